#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "core/Result.h"
#include "image/ImageFile.h"

namespace pv {

// Storage whose new elements are left unset: a reader writes every label, and the memory of a
// large label image is then taken only as it is filled - a damaged file that claims a huge
// picture costs nothing before it is refused.
template <class T>
struct UnsetAllocator : std::allocator<T> {
    template <class U>
    struct rebind {
        using other = UnsetAllocator<U>;
    };
    UnsetAllocator() = default;
    template <class U>
    UnsetAllocator(const UnsetAllocator<U>&) noexcept {}
    template <class U>
    void construct(U* p) noexcept {
        ::new (static_cast<void*>(p)) U;
    }
    template <class U, class... Args>
    void construct(U* p, Args&&... args) {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
};

// Cells as a segmentation labels them: a whole number a pixel, the same for every pixel of one
// cell, 0 for the background. Rows of `wide` labels, top row first.
struct LabelImage {
    // 16 bits: kMostLabels fits, and a pass reads half the bytes of 32. Made with a size alone,
    // the labels are unset.
    using Labels = std::vector<std::uint16_t, UnsetAllocator<std::uint16_t>>;
    int wide = 0;
    int high = 0;
    Labels labels;
};

// The most labels a label image may hold: each becomes a row of results.
inline constexpr std::uint32_t kMostLabels = 65535;

inline constexpr const char* kLabelSizeDiffers =
    "the label image is %1 x %2 pixels but the picture is %3 x %4";

// Reads a label image from a TIFF file of one grey channel of 8, 16 or 32 bits (or palette
// indices), the values as they are. Refused, with the reason, when the file cannot be read or
// holds a label above kMostLabels. A size check refuses the file before its labels are read.
Result<LabelImage> readLabelImage(const std::string& path, const SizeCheck& sizeCheck = nullptr);

}  // namespace pv
