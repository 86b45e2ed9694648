#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/Result.h"

namespace pv {

// Cells as a segmentation labels them: a whole number a pixel, the same for every pixel of one
// cell, 0 for the background. Rows of `wide` labels, top row first.
struct LabelImage {
    int wide = 0;
    int high = 0;
    std::vector<std::uint16_t> labels;  // kMostLabels fits, and half the bytes of a pass
};

// The most labels a label image may hold: each becomes a row of results.
inline constexpr std::uint32_t kMostLabels = 65535;

// Reads a label image from a TIFF file of one grey channel of 8, 16 or 32 bits (or palette
// indices), the values as they are. Refused, with the reason, when the file cannot be read or
// holds a label above kMostLabels.
Result<LabelImage> readLabelImage(const std::string& path);

}  // namespace pv
