#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "core/Result.h"
#include "image/Picture.h"

namespace pv {

// What a file's content reveals it to be (the first bytes, never the name).
enum class ImageKind { Unknown, TIFF, PNG, JPEG, BMP };

ImageKind detectImageKind(std::span<const std::uint8_t> firstBytes);
// Reads the first bytes of the file; Unknown when it cannot be read.
ImageKind imageKindOfFile(const std::string& path);

// How 16-bit files are read. By default each is scaled by its own brightest colour sample, so
// the same raw level means something else in every file; a fixed depth scales every file of
// a batch alike: raw values by 255 / (2^depthBits - 1).
struct ReadOptions {
    int depthBits = 0;     // 1 to 16; 0: the file's own brightest sample becomes 255
    unsigned threads = 0;  // decoding a compressed file; 0: one per core
    // The 16-bit sample value that becomes 255, when several files must be scaled alike; the
    // file's samples must not exceed it. Takes precedence over depthBits.
    std::optional<std::uint32_t> sixteenBitTop = std::nullopt;
    // The page of a multi-page TIFF file to read, from 0; other files have only page 0.
    std::uint32_t page = 0;
    // A grey TIFF picture may be given as one sample a pixel instead of three alike, for
    // readers that take a single channel from it.
    bool keepGrey = false;
};

// Decodes the first picture of an image file, chosen by content. The bitmap keeps the file's
// layout (planar stays planar) but always has 8-bit samples: grey and palette become RGB,
// alpha stays a fourth sample, 16-bit samples are scaled by one factor common to the colour
// channels so that the largest becomes 255 (or the top of a fixed depth). The picture's size is
// pixels / dpi * 72 (72 dpi when the file gives none). Every error's file is PATH as passed in, its
// reason in plain words (for PICT names, the reason is kPictNotSupported, checked before the file).
Result<Picture> readImageFile(const std::string& path, const ReadOptions& options = {});

// Extensions on which the program refuses to decode, with the message it gives.
bool isPictFileName(std::string_view path);
inline constexpr const char* kPictNotSupported =
    "PICT pictures are not supported; convert the file to TIFF or PNG.";

}  // namespace pv
