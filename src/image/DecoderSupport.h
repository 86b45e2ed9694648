#pragma once

// Shared by the image input code (decoders, normalisation); not part of the engine's interface.

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

#include "core/Result.h"
#include "image/Bitmap.h"
#include "image/ImageFile.h"
#include "image/LabelImage.h"
#include "image/Picture.h"

namespace pv::decode {

// Reasons a decoder gives, as keys for tr(). readImageFile adds the file.
inline constexpr const char* kTruncated = "the file ends before the picture is complete";
inline constexpr const char* kDamaged = "the file is damaged and the picture cannot be read";
inline constexpr const char* kNoMemory = "there is not enough memory to open the picture";
inline constexpr const char* kNotAPicture =
    "not a picture file this program can read (TIFF, PNG, JPEG or BMP)";

// A translated reason with %1, %2, ... replaced by the arguments; no file yet.
Error failure(std::string_view english, std::initializer_list<std::string_view> args = {});

// Why a picture of this size cannot be held, if it cannot; checked before anything else is
// decided about the file's data.
std::optional<Error> unholdablePicture(std::uint64_t wide, std::uint64_t high, int samplesPerPixel,
                                       bool isPlanar);

// An 8-bit bitmap for a decoded picture, refused with a reason when a plane would be larger
// than a Bitmap may be or memory is short.
Result<Bitmap> allocatePicture(std::uint64_t wide, std::uint64_t high, int samplesPerPixel,
                               bool hasAlpha, bool isPlanar);

// The check's refusal of a picture of this size, if it refuses it.
std::optional<Error> refusedSize(const SizeCheck& check, std::uint64_t wide, std::uint64_t high);

// Refused before anything is allocated: the data in the file, even at the best compression its
// format allows, cannot hold the pixels the header promises.
Error tooSmallFor(std::uint64_t wide, std::uint64_t high);

// Size in points from the file's resolution; a missing or nonsensical resolution is 72 dpi.
Picture pictureAtResolution(Bitmap&& bitmap, double horizontalDPI, double verticalDPI);
double usableDPI(double dpi);

// 16-bit colour samples share one factor so that the largest becomes 255; zero stays zero.
struct Scale16 {
    std::uint32_t max = 0;
    std::uint8_t operator()(std::uint32_t v) const {
        return max == 0 ? 0
                        : std::uint8_t((std::uint64_t(v) * 510 + max) / (2 * std::uint64_t(max)));
    }
};
// Alpha keeps its own meaning, so it maps 65535 to 255 regardless of the colours.
inline std::uint8_t alpha16to8(std::uint32_t v) {
    return std::uint8_t((v * 255u + 32767u) / 65535u);
}
// An n-bit sample (n <= 32) stretched to 0..255, rounded.
inline std::uint8_t stretchTo8(std::uint32_t v, int bits) {
    if (bits <= 0) {
        return 0;
    }
    const std::uint64_t top = (std::uint64_t(1) << bits) - 1;
    return std::uint8_t((std::uint64_t(v) * 510 + top) / (2 * top));
}

// The sample value a 16-bit picture whose brightest colour sample is `max` scales to 255: that
// sample itself, or the top of the fixed depth asked for, which the data must not exceed.
Result<std::uint32_t> sixteenBitTop(std::uint32_t max, const ReadOptions& options);

Result<Picture> decodeTiff(const std::string& path, std::uint64_t fileSize,
                           const ReadOptions& options);
inline constexpr const char* kNotLabels =
    "a label image has one channel of whole numbers (8, 16 or 32 bits), 0 for the background";
Result<LabelImage> decodeTiffLabels(const std::string& path, std::uint64_t fileSize,
                                    const SizeCheck& sizeCheck = nullptr);
Result<Picture> decodePng(const std::string& path, const ReadOptions& options);
Result<LabelImage> decodePngLabels(const std::string& path, const SizeCheck& sizeCheck = nullptr);
Result<Picture> decodeJpeg(const std::string& path, std::uint64_t fileSize,
                           const SizeCheck& sizeCheck = nullptr);
Result<Picture> decodeBmp(const std::string& path, std::uint64_t fileSize,
                          const SizeCheck& sizeCheck = nullptr);

// A TIFF file's pages, from one walk along its chain of directories, and the first page's
// description ("" when it has none).
struct TiffPages {
    PageIndex index;
    std::string description;
};
Result<TiffPages> readTiffPages(const std::string& path, std::uint64_t fileSize);

}  // namespace pv::decode
