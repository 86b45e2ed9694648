#include <png.h>

#include <algorithm>
#include <bit>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <vector>

#include "image/DecoderSupport.h"

namespace pv::decode {

namespace {

// All state the longjmp-guarded functions touch lives here, outside their frames, so that a
// longjmp out of libpng skips no destructor and leaves no stale local.
struct PngJob {
    std::FILE* file = nullptr;
    png_structp png = nullptr;
    png_infop info = nullptr;
    bool hitEnd = false;
    bool noMemory = false;
    std::uint64_t idatBytes = 0;  // compressed picture data, summed from the chunk headers
    std::uint64_t fileBits = 0;   // per pixel, before expansion
    png_uint_32 wide = 0, high = 0;
    int bitDepth = 0;
    int channels = 0;
    bool interlaced = false;
    bool grey = false;       // before expansion to RGB
    bool labels = false;     // read as a label image: grey values or palette indices as they are
    bool notLabels = false;  // asked for labels, the file holds colour
    double dpiX = 72.0, dpiY = 72.0;
    std::unique_ptr<png_byte[]> row;
    Bitmap* out = nullptr;
    std::uint8_t* raw16 = nullptr;  // while 16-bit rows are kept as decoded
    std::size_t raw16Row = 0;
    std::uint32_t max = 0;            // the brightest 16-bit colour sample
    std::vector<std::uint8_t> lut16;  // 16-bit colour samples to 8 bits
};

void pngError(png_structp png, png_const_charp message) {
    // libpng words every failed allocation this way.
    if (std::strstr(message, "memory")) {
        static_cast<PngJob*>(png_get_error_ptr(png))->noMemory = true;
    }
    png_longjmp(png, 1);
}
void pngWarning(png_structp, png_const_charp) {}

void pngRead(png_structp png, png_bytep data, png_size_t length) {
    auto* job = static_cast<PngJob*>(png_get_io_ptr(png));
    if (std::fread(data, 1, length, job->file) != length) {
        job->hitEnd = true;
        png_error(png, "end of file");
    }
}

bool readPngHeader(PngJob& job) {
    if (setjmp(png_jmpbuf(job.png))) {
        return false;
    }
    png_set_read_fn(job.png, &job, pngRead);
    // Data libpng calls a "benign" error (a picture with too little or too much data, a bad
    // checksum it could skip) is still data missing or corrupt.
    png_set_benign_errors(job.png, 0);
    png_read_info(job.png, job.info);
    int colourType = 0, interlace = 0;
    png_get_IHDR(job.png, job.info, &job.wide, &job.high, &job.bitDepth, &colourType, &interlace,
                 nullptr, nullptr);
    job.fileBits = std::uint64_t(png_get_channels(job.png, job.info)) * std::uint64_t(job.bitDepth);
    job.interlaced = interlace != PNG_INTERLACE_NONE;
    job.grey = (colourType & PNG_COLOR_MASK_COLOR) == 0;
    if (job.labels) {
        job.notLabels = colourType != PNG_COLOR_TYPE_GRAY && colourType != PNG_COLOR_TYPE_PALETTE;
        png_set_packing(job.png);  // small depths to a byte a pixel, the values unchanged
        if constexpr (std::endian::native == std::endian::little) {
            png_set_swap(job.png);  // 16-bit values in the machine's order
        }
        png_set_interlace_handling(job.png);
    } else {
        png_set_expand(job.png);  // palette to RGB, small grey levels to 8 bits, tRNS to alpha
        png_set_gray_to_rgb(job.png);
    }
    // Rows of interlaced files are read pass by pass and placed by us, so no full-size buffer.
    png_read_update_info(job.png, job.info);
    job.bitDepth = png_get_bit_depth(job.png, job.info);
    job.channels = png_get_channels(job.png, job.info);
    png_uint_32 xppu = 0, yppu = 0;
    int unit = 0;
    if (png_get_pHYs(job.png, job.info, &xppu, &yppu, &unit) && unit == PNG_RESOLUTION_METER) {
        job.dpiX = usableDPI(double(xppu) * 0.0254);
        job.dpiY = usableDPI(double(yppu) * 0.0254);
    }
    return true;
}

// Takes one decoded row (of a pass, when interlaced) from src. 16-bit samples are first kept
// as they are, to be scaled once the brightest is known; otherwise they go to the bitmap.
void takePngRow(PngJob& job, int pass, png_uint_32 passRow, png_uint_32 cols, const png_byte* src) {
    const int bytes = job.bitDepth == 16 ? 2 : 1;
    const int colours = 3;
    const bool alpha = job.channels > colours;
    const std::size_t pixelBytes = std::size_t(job.channels) * std::size_t(bytes);
    auto at = [&](png_uint_32 col, int c) -> std::uint32_t {
        const png_byte* p =
            src + std::size_t(col) * pixelBytes + std::size_t(c) * std::size_t(bytes);
        return bytes == 2 ? (std::uint32_t(p[0]) << 8 | p[1]) : p[0];
    };
    const png_uint_32 y = job.interlaced ? PNG_ROW_FROM_PASS_ROW(passRow, pass) : passRow;
    const auto column = [&](png_uint_32 col) {
        return job.interlaced ? PNG_COL_FROM_PASS_COL(col, pass) : col;
    };
    // Plain 16-bit colour rows, the common case, in loops simple enough to be vectorised.
    const bool plainColour = bytes == 2 && !alpha && !job.interlaced;
    const auto bigEndian = [&](std::size_t i) {
        std::uint16_t v;
        std::memcpy(&v, src + 2 * i, 2);
        return std::uint16_t(v << 8 | v >> 8);
    };
    if (job.raw16) {
        std::uint8_t* dst = job.raw16 + std::size_t(y) * job.raw16Row;
        if (plainColour && src == dst) {
            std::uint16_t top = 0;
            for (std::size_t i = 0, n = std::size_t(cols) * colours; i < n; ++i) {
                top = std::max(top, bigEndian(i));
            }
            job.max = std::max<std::uint32_t>(job.max, top);
            return;
        }
        for (png_uint_32 col = 0; col < cols; ++col) {
            for (int c = 0; c < colours; ++c) {
                job.max = std::max(job.max, at(col, c));
            }
            if (src != dst) {
                std::memcpy(dst + std::size_t(column(col)) * pixelBytes, src + col * pixelBytes,
                            pixelBytes);
            }
        }
        return;
    }
    std::uint8_t* dst = job.out->row(0, int(y));
    if (src == dst) {
        return;  // decoded in place
    }
    const int outSamples = job.out->samplesPerPixel();
    if (plainColour && outSamples == colours) {
        for (std::size_t i = 0, n = std::size_t(cols) * colours; i < n; ++i) {
            dst[i] = job.lut16[bigEndian(i)];
        }
        return;
    }
    for (png_uint_32 col = 0; col < cols; ++col) {
        std::uint8_t* px = dst + std::size_t(column(col)) * std::size_t(outSamples);
        for (int c = 0; c < colours; ++c) {
            px[c] = bytes == 2 ? job.lut16[at(col, c)] : std::uint8_t(at(col, c));
        }
        if (alpha) {
            px[3] = bytes == 2 ? alpha16to8(at(col, colours)) : std::uint8_t(at(col, colours));
        }
    }
}

bool readPngRows(PngJob& job) {
    if (setjmp(png_jmpbuf(job.png))) {
        return false;
    }
    const int passes = job.interlaced ? 7 : 1;
    for (int pass = 0; pass < passes; ++pass) {
        const png_uint_32 cols = job.interlaced ? PNG_PASS_COLS(job.wide, pass) : job.wide;
        const png_uint_32 rows = job.interlaced ? PNG_PASS_ROWS(job.high, pass) : job.high;
        if (cols == 0 || rows == 0) {
            continue;  // libpng skips empty passes too
        }
        for (png_uint_32 r = 0; r < rows; ++r) {
            // Whole rows are decoded where they belong: expanded 8-bit rows are the bitmap's.
            png_bytep target = job.row.get();
            if (!job.interlaced) {
                target = job.raw16           ? job.raw16 + std::size_t(r) * job.raw16Row
                         : job.bitDepth == 8 ? job.out->row(0, int(r))
                                             : target;
            }
            png_read_row(job.png, target, nullptr);
            takePngRow(job, pass, r, cols, target);
        }
    }
    return true;
}

// Sums the lengths of the IDAT chunks without reading them.
std::uint64_t compressedPictureBytes(std::FILE* file) {
    const long start = std::ftell(file);
    std::uint64_t total = 0;
    std::uint8_t head[8];
    if (start < 0 || std::fseek(file, 8, SEEK_SET) != 0) {
        return 0;
    }
    while (std::fread(head, 1, 8, file) == 8) {
        const std::uint32_t length = std::uint32_t(head[0]) << 24 | std::uint32_t(head[1]) << 16 |
                                     std::uint32_t(head[2]) << 8 | head[3];
        if (std::memcmp(head + 4, "IDAT", 4) == 0) {
            total += length;
        } else if (std::memcmp(head + 4, "IEND", 4) == 0) {
            break;
        }
        if (std::fseek(file, long(length) + 4, SEEK_CUR) != 0) {
            break;
        }
    }
    std::fseek(file, start, SEEK_SET);
    return total;
}

struct PngCleanup {
    PngJob& job;
    ~PngCleanup() {
        if (job.png) {
            png_destroy_read_struct(&job.png, job.info ? &job.info : nullptr, nullptr);
        }
        if (job.file) {
            std::fclose(job.file);
        }
    }
};

Error pngFailure(const PngJob& job) {
    return failure(job.noMemory ? kNoMemory : job.hitEnd ? kTruncated : kDamaged);
}

// Opens the file and reads the header into job.
std::optional<Error> startPng(const std::string& path, PngJob& job, const SizeCheck& sizeCheck) {
    job.file = std::fopen(path.c_str(), "rb");
    if (!job.file) {
        return failure("the file cannot be opened");
    }
    job.png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &job, pngError, pngWarning);
    job.info = job.png ? png_create_info_struct(job.png) : nullptr;
    if (!job.info) {
        return failure(kNoMemory);
    }
    if (!readPngHeader(job)) {
        return pngFailure(job);
    }
    if (auto refused = refusedSize(sizeCheck, job.wide, job.high)) {
        return refused;
    }
    // Deflate codes at most 258 bytes in 2 bits, about 1032 to 1, so fewer compressed bytes
    // cannot hold the picture; libpng would only find out after the memory was committed.
    // libpng's limit of a million pixels a side keeps the product far from overflowing.
    const std::uint64_t raw = (std::uint64_t(job.wide) * job.fileBits + 7) / 8 * job.high;
    if (auto error = unholdablePicture(job.wide, job.high, job.channels, false)) {
        return *error;
    }
    if (compressedPictureBytes(job.file) < raw / 1032) {
        return tooSmallFor(job.wide, job.high);
    }
    job.row.reset(new (std::nothrow) png_byte[png_get_rowbytes(job.png, job.info)]);
    if (!job.row) {
        return failure(kNoMemory);
    }
    return std::nullopt;
}

}  // namespace

namespace {

// Every row of every pass, the rows of one picture of `rowBytes` bytes at `pixels`.
bool readPngPicture(PngJob& job, std::uint8_t* pixels, std::size_t rowBytes) {
    if (setjmp(png_jmpbuf(job.png))) {
        return false;
    }
    for (int pass = 0; pass < (job.interlaced ? 7 : 1); ++pass) {
        for (png_uint_32 r = 0; r < job.high; ++r) {
            png_read_row(job.png, pixels + std::size_t(r) * rowBytes, nullptr);
        }
    }
    return true;
}

}  // namespace

Result<LabelImage> decodePngLabels(const std::string& path, const SizeCheck& sizeCheck) {
    auto job = std::make_unique<PngJob>();
    auto cleanup = std::unique_ptr<PngCleanup>(new PngCleanup{*job});
    job->labels = true;
    if (auto error = startPng(path, *job, sizeCheck)) {
        return *error;
    }
    if (job->notLabels || job->channels != 1) {
        return failure(kNotLabels);
    }
    LabelImage out;
    out.wide = int(job->wide);
    out.high = int(job->high);
    const std::size_t pixels = std::size_t(job->wide) * job->high;
    std::vector<std::uint8_t> bytes;  // 8-bit values, widened once read
    try {
        out.labels.resize(pixels);
        if (job->bitDepth != 16) {
            bytes.resize(pixels);
        }
    } catch (const std::bad_alloc&) {
        return failure(kNoMemory);
    }
    const bool ok = job->bitDepth == 16
                        ? readPngPicture(*job, reinterpret_cast<std::uint8_t*>(out.labels.data()),
                                         std::size_t(job->wide) * 2)
                        : readPngPicture(*job, bytes.data(), job->wide);
    if (!ok) {
        return pngFailure(*job);
    }
    std::copy(bytes.begin(), bytes.end(), out.labels.begin());
    return out;
}

Result<Picture> decodePng(const std::string& path, const ReadOptions& options) {
    auto job = std::make_unique<PngJob>();
    auto cleanup = std::unique_ptr<PngCleanup>(new PngCleanup{*job});
    if (auto error = startPng(path, *job, options.sizeCheck)) {
        return *error;
    }
    const bool alpha = job->channels > 3;
    auto bitmap = allocatePicture(job->wide, job->high, alpha ? 4 : 3, alpha, false);
    if (!bitmap) {
        return bitmap.error();
    }
    job->out = &bitmap.value();
    PixelBlock raw;
    if (job->bitDepth == 16) {
        job->raw16Row = std::size_t(job->wide) * std::size_t(job->channels) * 2;
        raw = PixelBlock::allocate(job->raw16Row * job->high, false);
        if (!raw) {
            return failure(kNoMemory);
        }
        job->raw16 = raw.get();
    }
    if (!readPngRows(*job)) {
        return pngFailure(*job);
    }
    std::optional<std::uint32_t> sixteenBitTop;
    if (job->bitDepth == 16) {
        Result<std::uint32_t> top = decode::sixteenBitTop(job->max, options);
        if (!top) {
            return top.error();
        }
        const Scale16 scale{top.value()};
        job->lut16.resize(65536);
        for (std::uint32_t v = 0; v < 65536; ++v) {
            job->lut16[v] = scale(v);
        }
        job->raw16 = nullptr;
        job->interlaced = false;  // the kept rows are whole
        for (png_uint_32 y = 0; y < job->high; ++y) {
            takePngRow(*job, 0, y, job->wide, raw.get() + std::size_t(y) * job->raw16Row);
        }
        sixteenBitTop = top.value();
    }
    Picture picture = pictureAtResolution(std::move(bitmap.value()), job->dpiX, job->dpiY);
    picture.sixteenBitTop = sixteenBitTop;
    picture.grey = job->grey;
    return picture;
}

}  // namespace pv::decode
