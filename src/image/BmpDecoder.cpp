#include <array>
#include <bit>
#include <cstdio>
#include <memory>
#include <vector>

#include "image/DecoderSupport.h"

namespace pv::decode {

namespace {

std::uint32_t le32(const std::uint8_t* p) {
    return std::uint32_t(p[0]) | std::uint32_t(p[1]) << 8 | std::uint32_t(p[2]) << 16 |
           std::uint32_t(p[3]) << 24;
}
std::uint16_t le16(const std::uint8_t* p) {
    return std::uint16_t(p[0] | p[1] << 8);
}

// One colour field of a 16- or 32-bit pixel.
struct Field {
    std::uint32_t mask = 0;
    int shift = 0;
    int bits = 0;
    explicit Field(std::uint32_t m = 0) : mask(m) {
        if (m != 0) {
            shift = std::countr_zero(m);
            bits = 32 - std::countl_zero(m >> shift);
        }
    }
    std::uint8_t operator()(std::uint32_t pixel) const {
        return stretchTo8((pixel & mask) >> shift, bits);
    }
};

enum : std::uint32_t {
    kRGB = 0,
    kRLE8 = 1,
    kRLE4 = 2,
    kBitfields = 3,
    kJPEG = 4,
    kPNG = 5,
    kAlphaBitfields = 6
};

// Reads exactly n bytes at offset; false when the file is shorter.
bool readAt(std::FILE* f, std::uint64_t offset, std::uint8_t* into, std::size_t n) {
    return std::fseek(f, long(offset), SEEK_SET) == 0 && std::fread(into, 1, n, f) == n;
}

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};

}  // namespace

Result<Picture> decodeBmp(const std::string& path, std::uint64_t fileSize,
                          const SizeCheck& sizeCheck) {
    std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
    if (!file) {
        return failure("the file cannot be opened");
    }
    std::FILE* f = file.get();
    // File header (14 bytes) and the largest info header we know (124 bytes).
    std::array<std::uint8_t, 14 + 124> h{};
    if (fileSize < 18 || !readAt(f, 0, h.data(), 18)) {
        return failure(kTruncated);
    }
    const std::uint64_t dataOffset = le32(&h[10]);
    const std::uint32_t headerSize = le32(&h[14]);
    if (headerSize != 12 && (headerSize < 40 || headerSize > 124)) {
        return failure(kDamaged);
    }
    if (fileSize < 14 + std::uint64_t(headerSize) || !readAt(f, 0, h.data(), 14 + headerSize)) {
        return failure(kTruncated);
    }
    const std::uint8_t* info = &h[14];
    std::int64_t wide = 0, high = 0;
    int bpp = 0;
    std::uint32_t compression = kRGB, colorsUsed = 0;
    double dpiX = 72.0, dpiY = 72.0;
    std::uint32_t masks[4] = {0, 0, 0, 0};
    bool haveMasks = false;
    if (headerSize == 12) {  // OS/2 core header
        wide = le16(info + 4);
        high = le16(info + 6);
        bpp = le16(info + 10);
    } else {
        wide = std::int32_t(le32(info + 4));
        high = std::int32_t(le32(info + 8));
        bpp = le16(info + 14);
        compression = le32(info + 16);
        dpiX = double(std::int32_t(le32(info + 24))) * 0.0254;
        dpiY = double(std::int32_t(le32(info + 28))) * 0.0254;
        colorsUsed = le32(info + 32);
        if (compression == kBitfields || compression == kAlphaBitfields) {
            const std::uint32_t count = compression == kAlphaBitfields ? 4 : 3;
            std::uint8_t m[16] = {};
            if (headerSize >= 40 + 4 * count) {
                std::copy(info + 40, info + 40 + 4 * count, m);
            } else if (!readAt(f, 14 + std::uint64_t(headerSize), m, 4 * count)) {
                return failure(kTruncated);
            }
            for (std::uint32_t i = 0; i < count; ++i) {
                masks[i] = le32(m + 4 * i);
            }
            if (headerSize >= 56) {
                masks[3] = le32(info + 52);
            }
            haveMasks = true;
        }
    }
    if (compression == kRLE8 || compression == kRLE4) {
        return failure(
            "compressed (RLE) BMP pictures are not supported; save the picture "
            "uncompressed or as TIFF");
    }
    if (compression == kJPEG || compression == kPNG) {
        return failure("BMP pictures holding JPEG or PNG data are not supported");
    }
    if (compression != kRGB && !haveMasks) {
        return failure(kDamaged);
    }
    const bool paletted = bpp == 1 || bpp == 4 || bpp == 8;
    if (!(paletted || bpp == 24 || ((bpp == 16 || bpp == 32)))) {
        return failure("BMP pictures with %1 bits per pixel are not supported",
                       {std::to_string(bpp)});
    }
    if (haveMasks && bpp != 16 && bpp != 32) {
        return failure(kDamaged);
    }
    const bool topDown = high < 0;
    high = topDown ? -high : high;
    if (wide <= 0 || high <= 0) {
        return failure(kDamaged);
    }
    if (auto refused = refusedSize(sizeCheck, std::uint64_t(wide), std::uint64_t(high))) {
        return *refused;
    }
    if (!haveMasks) {
        masks[0] = bpp == 16 ? 0x7c00 : 0xff0000;
        masks[1] = bpp == 16 ? 0x03e0 : 0x00ff00;
        masks[2] = bpp == 16 ? 0x001f : 0x0000ff;
    }
    const Field red(masks[0]), green(masks[1]), blue(masks[2]), alphaField(masks[3]);
    const bool alpha = (bpp == 16 || bpp == 32) && masks[3] != 0;

    std::array<std::array<std::uint8_t, 3>, 256> palette{};  // missing entries stay black
    if (paletted) {
        const std::uint32_t entrySize = headerSize == 12 ? 3 : 4;
        const std::uint32_t most = 1u << bpp;
        const std::uint32_t count = colorsUsed == 0 || colorsUsed > most ? most : colorsUsed;
        std::vector<std::uint8_t> raw(std::size_t(count) * entrySize);
        const std::uint64_t at = 14 + std::uint64_t(headerSize);
        if (at + raw.size() > fileSize || !readAt(f, at, raw.data(), raw.size())) {
            return failure(kTruncated);
        }
        for (std::uint32_t i = 0; i < count; ++i) {
            const std::uint8_t* e = &raw[std::size_t(i) * entrySize];
            palette[i] = {e[2], e[1], e[0]};
        }
    }

    const std::uint64_t stride = (std::uint64_t(wide) * std::uint64_t(bpp) + 31) / 32 * 4;
    if (dataOffset < 14 + std::uint64_t(headerSize)) {
        return failure(kDamaged);
    }
    if (dataOffset > fileSize || std::uint64_t(high) > (fileSize - dataOffset) / stride) {
        return failure(kTruncated);
    }
    auto bitmap =
        allocatePicture(std::uint64_t(wide), std::uint64_t(high), alpha ? 4 : 3, alpha, false);
    if (!bitmap) {
        return bitmap.error();
    }
    std::unique_ptr<std::uint8_t[]> row(new (std::nothrow) std::uint8_t[std::size_t(stride)]);
    if (!row || std::fseek(f, long(dataOffset), SEEK_SET) != 0) {
        return failure(kNoMemory);
    }
    Bitmap& out = bitmap.value();
    const int outSamples = out.samplesPerPixel();
    for (std::int64_t fileRow = 0; fileRow < high; ++fileRow) {
        if (std::fread(row.get(), 1, std::size_t(stride), f) != stride) {
            return failure(kTruncated);
        }
        const int y = int(topDown ? fileRow : high - 1 - fileRow);
        std::uint8_t* dst = out.row(0, y);
        const std::uint8_t* src = row.get();
        for (std::int64_t x = 0; x < wide; ++x, dst += outSamples) {
            switch (bpp) {
                case 1:
                case 4:
                case 8: {
                    const std::uint64_t bit = std::uint64_t(x) * std::uint64_t(bpp);
                    const int shift = 8 - bpp - int(bit & 7);
                    const auto index = (src[bit >> 3] >> shift) & ((1 << bpp) - 1);
                    const auto& c = palette[std::size_t(index)];
                    dst[0] = c[0];
                    dst[1] = c[1];
                    dst[2] = c[2];
                    break;
                }
                case 24: {
                    const std::uint8_t* p = src + 3 * x;
                    dst[0] = p[2];
                    dst[1] = p[1];
                    dst[2] = p[0];
                    break;
                }
                default: {
                    const std::uint32_t pixel = bpp == 16 ? le16(src + 2 * x) : le32(src + 4 * x);
                    dst[0] = red(pixel);
                    dst[1] = green(pixel);
                    dst[2] = blue(pixel);
                    if (alpha) {
                        dst[3] = alphaField(pixel);
                    }
                }
            }
        }
    }
    return pictureAtResolution(std::move(out), dpiX, dpiY);
}

}  // namespace pv::decode
