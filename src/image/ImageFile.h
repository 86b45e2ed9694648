#pragma once

#include <cstdint>
#include <functional>
#include <memory>
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

// What a file's first bytes say it is, and its size.
struct FileStart {
    ImageKind kind = ImageKind::Unknown;
    std::uint64_t size = 0;
};
// Every reader starts here: a file that does not exist, is a folder, a pipe or a device (which
// would block the reader forever), is empty or cannot be read is refused, naming it, before
// anything else opens it.
Result<FileStart> fileStart(const std::string& path);

// Where each page of a multi-page TIFF file lies (its directory's offset), in page order, from
// one walk along the file's chain of pages. Shared: every slice of a stack reads through it.
using PageIndex = std::shared_ptr<const std::vector<std::uint64_t>>;

// Answers why a picture of this many pixels is refused, or nothing. A reader asks it as soon as
// the file's header gives the size, before any memory is committed to the pixels.
using SizeCheck = std::function<std::optional<std::string>(std::uint64_t wide, std::uint64_t high)>;
// Refuses every size but wide x high with `english` (a key for tr), in which %1 x %2 is the
// file's size and %3 x %4 the one expected.
SizeCheck sizeMustBe(std::int64_t wide, std::int64_t high, std::string english);

// Decoded pixels a file's bytes must justify, unless another file's size does (a mask, a label
// image or a second channel must be the picture's size): a few kilobytes of a damaged or hostile
// file must not cost the memory and time of a huge picture. With every road taken (the
// significance test holds some 26 bytes a pixel at its smallest blocks), a 64 KB file then stays
// within 64 MB. Real microscope data, whose noise keeps it from compressing more than a few
// times, is far from 32 pixels a byte; only blank or made-up pictures come near it.
inline constexpr std::uint64_t kPixelsFreeOfFileSize = std::uint64_t(1) << 21;
inline constexpr std::uint64_t kMostPixelsPerFileByte = 32;
// The check readImageFile and readLabelImage make when they are given none.
SizeCheck justifiedBy(std::uint64_t fileBytes);
// Why `pages` pictures of wide x high pixels (the pages of a stack read one after another) are
// more than a file of fileBytes bytes justifies; nothing when they are not.
std::optional<std::string> unjustifiedPixels(std::uint64_t pages, std::uint64_t wide,
                                             std::uint64_t high, std::uint64_t fileBytes);

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
    // The file's pages when already known: the page is then read without walking the file's
    // pages again.
    PageIndex pageIndex = nullptr;
    // A grey TIFF picture may be given as one sample a pixel instead of three alike, for
    // readers that take a single channel from it.
    bool keepGrey = false;
    SizeCheck sizeCheck = nullptr;
};

// Decodes the first picture of an image file, chosen by content. The bitmap keeps the file's
// layout (planar stays planar) but always has 8-bit samples: grey and palette become RGB,
// alpha stays a fourth sample, 16-bit samples are scaled by one factor common to the colour
// channels so that the largest becomes 255 (or the top of a fixed depth). The picture's size is
// pixels / dpi * 72 (72 dpi when the file gives none). Every error's file is PATH as passed in, its
// reason in plain words (for PICT names, the reason is kPictNotSupported, checked before the file).
Result<Picture> readImageFile(const std::string& path, const ReadOptions& options = {});

// The picture's size as its header gives it (of the page, for a page of a TIFF file), without
// decoding its pixels.
struct PixelSize {
    std::uint64_t wide = 0, high = 0;
};
Result<PixelSize> readPictureSize(const std::string& path, const ReadOptions& options = {});

// Extensions on which the program refuses to decode, with the message it gives.
bool isPictFileName(std::string_view path);
inline constexpr const char* kPictNotSupported =
    "PICT pictures are not supported; convert the file to TIFF or PNG.";

}  // namespace pv
