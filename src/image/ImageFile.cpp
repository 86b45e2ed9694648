#include "image/ImageFile.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "core/Localization.h"
#include "image/DecoderSupport.h"

namespace pv {

namespace decode {

Error failure(std::string_view english, std::initializer_list<std::string_view> args) {
    return Error{.reason = tr(english, args)};
}

std::optional<Error> unholdablePicture(std::uint64_t wide, std::uint64_t high, int samplesPerPixel,
                                       bool isPlanar) {
    if (wide == 0 || high == 0) {
        return failure(kDamaged);
    }
    // A meshed picture keeps all its samples in one block, a planar one a block per channel;
    // either block must stay within what a signed 32-bit offset reaches. Both factors are
    // below 2^32 and a pixel has at most 4 samples, so the product fits in 128 bits.
    __extension__ using Wide = unsigned __int128;
    const Wide bytes = Wide(wide) * high * std::uint64_t(isPlanar ? 1 : samplesPerPixel);
    if (wide > Bitmap::kMaxBytesPerPlane || high > Bitmap::kMaxBytesPerPlane ||
        bytes > Bitmap::kMaxBytesPerPlane) {
        std::string count;
        for (Wide b = bytes; b != 0 || count.empty(); b /= 10) {
            count.insert(count.begin(), char('0' + int(b % 10)));
        }
        const std::string dims = std::to_string(wide) + " x " + std::to_string(high);
        const std::string limit = std::to_string(Bitmap::kMaxBytesPerPlane);
        return isPlanar ? failure(
                              "the picture is too large: %1 pixels take %2 bytes per colour "
                              "plane, and this program holds at most %3 bytes (2 GiB) in "
                              "one plane",
                              {dims, count, limit})
                        : failure(
                              "the picture is too large: %1 pixels of %2 samples take %3 "
                              "bytes, and this program holds at most %4 bytes (2 GiB) in "
                              "one picture",
                              {dims, std::to_string(samplesPerPixel), count, limit});
    }
    return std::nullopt;
}

Result<Bitmap> allocatePicture(std::uint64_t wide, std::uint64_t high, int samplesPerPixel,
                               bool hasAlpha, bool isPlanar) {
    if (auto error = unholdablePicture(wide, high, samplesPerPixel, isPlanar)) {
        return *error;
    }
    const std::string dims = std::to_string(wide) + " x " + std::to_string(high);
    auto bitmap = Bitmap::create(int(wide), int(high), samplesPerPixel, hasAlpha, isPlanar);
    if (!bitmap) {
        return failure("there is not enough memory to open the picture (%1 pixels)", {dims});
    }
    return std::move(*bitmap);
}

std::optional<Error> refusedSize(const SizeCheck& check, std::uint64_t wide, std::uint64_t high) {
    if (!check) {
        return std::nullopt;
    }
    std::optional<std::string> why = check(wide, high);
    return why ? std::optional<Error>(Error{.reason = std::move(*why)}) : std::nullopt;
}

Error tooSmallFor(std::uint64_t wide, std::uint64_t high) {
    return failure(
        "the file is too small to hold the %1 pixels it declares: it is cut short or damaged",
        {std::to_string(wide) + " x " + std::to_string(high)});
}

Result<std::uint32_t> sixteenBitTop(std::uint32_t max, const ReadOptions& options) {
    if (options.sixteenBitTop) {
        if (max > *options.sixteenBitTop) {
            return failure("the picture holds samples up to %1, above %2, the scale asked for",
                           {std::to_string(max), std::to_string(*options.sixteenBitTop)});
        }
        return *options.sixteenBitTop;
    }
    if (options.depthBits <= 0) {
        return max;
    }
    const std::uint32_t top = (std::uint32_t(1) << std::min(options.depthBits, 16)) - 1;
    if (max > top) {
        return failure(
            "the picture holds samples up to %1, above %2, the largest a %3-bit "
            "depth allows",
            {std::to_string(max), std::to_string(top), std::to_string(options.depthBits)});
    }
    return top;
}

double usableDPI(double dpi) {
    return std::isfinite(dpi) && dpi > 0.0 ? dpi : 72.0;
}

Picture pictureAtResolution(Bitmap&& bitmap, double horizontalDPI, double verticalDPI) {
    const Size size{float(double(bitmap.pixelsWide()) / usableDPI(horizontalDPI) * 72.0),
                    float(double(bitmap.pixelsHigh()) / usableDPI(verticalDPI) * 72.0)};
    return Picture{std::make_shared<const Bitmap>(std::move(bitmap)), size, 1, std::nullopt};
}

}  // namespace decode

ImageKind detectImageKind(std::span<const std::uint8_t> b) {
    auto starts = [&](std::initializer_list<std::uint8_t> magic) {
        if (b.size() < magic.size()) {
            return false;
        }
        std::size_t i = 0;
        for (std::uint8_t m : magic) {
            if (b[i++] != m) {
                return false;
            }
        }
        return true;
    };
    // Classic TIFF (42) and BigTIFF (43), both byte orders.
    if (starts({'I', 'I', 42, 0}) || starts({'M', 'M', 0, 42}) || starts({'I', 'I', 43, 0}) ||
        starts({'M', 'M', 0, 43})) {
        return ImageKind::TIFF;
    }
    if (starts({0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'})) {
        return ImageKind::PNG;
    }
    if (starts({0xff, 0xd8, 0xff})) {
        return ImageKind::JPEG;
    }
    if (starts({'B', 'M'})) {
        return ImageKind::BMP;
    }
    return ImageKind::Unknown;
}

ImageKind imageKindOfFile(const std::string& path) {
    const Result<FileStart> start = fileStart(path);
    return start ? start->kind : ImageKind::Unknown;
}

bool isPictFileName(std::string_view path) {
    const std::string ext = std::filesystem::path(path).extension().string();
    return ext == ".pct" || ext == ".pict" || ext == ".PCT" || ext == ".PICT";
}

Result<FileStart> fileStart(const std::string& path) {
    std::error_code ec;
    const auto status = std::filesystem::status(path, ec);
    if (!std::filesystem::exists(status)) {
        return Error{path, tr("the file does not exist")};
    }
    if (std::filesystem::is_directory(status)) {
        return Error{path, tr("this is a folder, not a picture file")};
    }
    // Checked before it is opened: opening a pipe waits for a writer that may never come.
    if (!std::filesystem::is_regular_file(status)) {
        return Error{path,
                     tr("this is a pipe, device or socket, not a regular file: it cannot be read "
                        "as a picture")};
    }
    std::FILE* f = std::fopen(path.c_str(), "rb");
    if (!f) {
        return Error{path, errno == EACCES ? tr("you do not have permission to read the file")
                                           : tr("the file cannot be opened")};
    }
    std::uint8_t head[8] = {};
    const std::size_t got = std::fread(head, 1, sizeof head, f);
    const bool readFailed = std::ferror(f) != 0;
    std::fclose(f);
    if (readFailed) {
        return Error{path, tr("the file cannot be read")};
    }
    const std::uint64_t size = std::filesystem::file_size(path, ec);
    if (ec) {
        return Error{path, tr("the file cannot be read")};
    }
    if (size == 0) {
        return Error{path, tr("the file is empty")};
    }
    return FileStart{detectImageKind(std::span<const std::uint8_t>(head, got)), size};
}

SizeCheck sizeMustBe(std::int64_t wide, std::int64_t high, std::string english) {
    return [wide, high, english = std::move(english)](
               std::uint64_t fileWide, std::uint64_t fileHigh) -> std::optional<std::string> {
        if (std::int64_t(fileWide) == wide && std::int64_t(fileHigh) == high) {
            return std::nullopt;
        }
        return tr(english, {std::to_string(fileWide), std::to_string(fileHigh),
                            std::to_string(wide), std::to_string(high)});
    };
}

std::optional<std::string> unjustifiedPixels(std::uint64_t pages, std::uint64_t wide,
                                             std::uint64_t high, std::uint64_t fileBytes) {
    // Both sides are below 2^32, so one page's pixels fit; the pages saturate.
    const std::uint64_t pixels = wide * high;
    const std::uint64_t all =
        pages > 0 && pixels > UINT64_MAX / pages ? UINT64_MAX : pixels * pages;
    if (all <= kPixelsFreeOfFileSize || all / kMostPixelsPerFileByte < fileBytes) {
        return std::nullopt;
    }
    const std::string size = std::to_string(wide) + " x " + std::to_string(high);
    const std::string rule =
        tr("a picture of more than %1 pixels needs a byte for every %2 pixels",
           {std::to_string(kPixelsFreeOfFileSize), std::to_string(kMostPixelsPerFileByte)});
    return pages == 1 ? tr("the file is too small to hold the %1 pixels it declares: %2 bytes, "
                           "where %3",
                           {size, std::to_string(fileBytes), rule})
                      : tr("the file is too small to hold %1 pages of %2 pixels: %3 bytes, where "
                           "%4, counting every page read",
                           {std::to_string(pages), size, std::to_string(fileBytes), rule});
}

SizeCheck justifiedBy(std::uint64_t fileBytes) {
    return [fileBytes](std::uint64_t wide, std::uint64_t high) -> std::optional<std::string> {
        // A picture no layout can hold is left to the decoder, whose reason says so.
        if (wide * high > std::uint64_t(Bitmap::kMaxBytesPerPlane)) {
            return std::nullopt;
        }
        return unjustifiedPixels(1, wide, high, fileBytes);
    };
}

Result<LabelImage> readLabelImage(const std::string& path, const SizeCheck& givenCheck) {
    auto start = fileStart(path);
    if (!start) {
        return start.error();
    }
    const SizeCheck sizeCheck = givenCheck ? givenCheck : justifiedBy(start->size);
    if (start->kind != ImageKind::TIFF && start->kind != ImageKind::PNG) {
        return Error{path, tr("label images are read from TIFF and PNG files")};
    }
    Result<LabelImage> read = start->kind == ImageKind::PNG
                                  ? decode::decodePngLabels(path, sizeCheck)
                                  : decode::decodeTiffLabels(path, start->size, sizeCheck);
    if (!read) {
        return Error{path, read.error().reason};
    }
    // Each decoder asks before it reads the labels; this holds the promise for any other.
    if (auto refused =
            decode::refusedSize(sizeCheck, std::uint64_t(read->wide), std::uint64_t(read->high))) {
        return Error{path, refused->reason};
    }
    return read;
}

Result<Picture> readImageFile(const std::string& path, const ReadOptions& given) {
    using namespace decode;
    if (isPictFileName(path)) {
        return Error{path, tr(kPictNotSupported)};
    }
    auto start = fileStart(path);
    if (!start) {
        return start.error();
    }
    ReadOptions options = given;
    if (!options.sizeCheck) {
        options.sizeCheck = justifiedBy(start->size);
    }
    const std::uint64_t size = start->size;
    Result<Picture> picture = failure(kNotAPicture);
    switch (start->kind) {
        case ImageKind::TIFF:
            picture = decodeTiff(path, size, options);
            break;
        case ImageKind::PNG:
            picture = decodePng(path, options);
            break;
        case ImageKind::JPEG:
            picture = decodeJpeg(path, size, options.sizeCheck);
            break;
        case ImageKind::BMP:
            picture = decodeBmp(path, size, options.sizeCheck);
            break;
        case ImageKind::Unknown:
            break;
    }
    if (!picture) {
        return Error{path, picture.error().reason};
    }
    if (auto refused = refusedSize(options.sizeCheck, std::uint64_t(picture->pixelsWide()),
                                   std::uint64_t(picture->pixelsHigh()))) {
        return Error{path, refused->reason};
    }
    if (options.page > 0 && start->kind != ImageKind::TIFF) {
        return Error{path,
                     tr("the file has 1 page, and no page %1", {std::to_string(options.page + 1)})};
    }
    return picture;
}

Result<PixelSize> readPictureSize(const std::string& path, const ReadOptions& options) {
    // The decoders ask the size check as soon as their header gives the size: a check that
    // notes the size and refuses stops them before any pixel is read.
    std::optional<PixelSize> seen;
    ReadOptions reading = options;
    reading.sizeCheck = [&seen](std::uint64_t wide,
                                std::uint64_t high) -> std::optional<std::string> {
        seen = PixelSize{wide, high};
        return std::string();
    };
    Result<Picture> read = readImageFile(path, reading);
    if (seen) {
        return *seen;
    }
    return read ? Result<PixelSize>(PixelSize{std::uint64_t(read->pixelsWide()),
                                              std::uint64_t(read->pixelsHigh())})
                : Result<PixelSize>(read.error());
}

}  // namespace pv
