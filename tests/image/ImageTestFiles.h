#pragma once

// Writes small picture files with the real libraries, so the decoders meet genuine files.

// jpeglib.h needs size_t and FILE declared first.
#include <cstddef>
#include <cstdio>
//
#include <jpeglib.h>
#include <png.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestFiles.h"
#include "image/Bitmap.h"

namespace pv::testing {

inline std::vector<std::uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

inline void putU32(std::vector<std::uint8_t>& b, std::uint32_t v) {  // little-endian
    for (int shift = 0; shift < 32; shift += 8) {
        b.push_back(std::uint8_t(v >> shift));
    }
}

// Deterministic test samples below modulo.
inline std::vector<std::uint32_t> pattern(std::size_t count, std::uint32_t modulo,
                                          std::uint32_t seed = 7) {
    std::vector<std::uint32_t> v(count);
    for (auto& s : v) {
        seed = seed * 1103515245u + 12345u;
        s = (seed >> 8) % modulo;
    }
    return v;
}

// Samples meshed: 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA; 8 or 16 bits.
struct PngLayout {
    int wide = 4, high = 3, samples = 3, bits = 8;
    bool interlaced = false;
    std::uint32_t pixelsPerMetre = 0;  // 0: no pHYs
};

inline void writePng(const std::string& path, const PngLayout& s,
                     const std::vector<std::uint32_t>& samples) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    const int type = (s.samples > 2 ? PNG_COLOR_MASK_COLOR : 0) |
                     (s.samples % 2 == 0 ? PNG_COLOR_MASK_ALPHA : 0);
    png_set_IHDR(png, info, png_uint_32(s.wide), png_uint_32(s.high), s.bits, type,
                 s.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (s.pixelsPerMetre) {
        png_set_pHYs(png, info, s.pixelsPerMetre, s.pixelsPerMetre, PNG_RESOLUTION_METER);
    }
    // 8 or 16 bits only, so rows need no bit padding and one packed run holds them all.
    auto all = packRow(samples, s.bits);
    std::vector<png_bytep> rows;
    for (std::size_t y = 0; y < std::size_t(s.high); ++y) {
        rows.push_back(all.data() + y * all.size() / std::size_t(s.high));
    }
    png_set_rows(png, info, rows.data());
    // packRow gives host-order words; PNG stores them big-endian.
    const bool swap = std::endian::native == std::endian::little;
    png_write_png(png, info, swap ? PNG_TRANSFORM_SWAP_ENDIAN : 0, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

// densityUnit as JFIF: 0 none, 1 per inch, 2 per centimetre.
struct JpegOptions {
    int densityUnit = 0, density = 72;
    bool progressive = false;             // libjpeg's own progression
    bool arithmetic = false;              // arithmetic coding instead of Huffman's
    std::vector<jpeg_scan_info> scans{};  // or this one
};

// Samples meshed, below 256; quality 100. Four components are CMYK.
inline std::vector<std::uint8_t> jpegBytes(int wide, int high, int components,
                                           const std::vector<std::uint32_t>& samples,
                                           const JpegOptions& o = {}) {
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    unsigned char* out = nullptr;
    unsigned long size = 0;
    jpeg_mem_dest(&c, &out, &size);
    c.image_width = JDIMENSION(wide);
    c.image_height = JDIMENSION(high);
    c.input_components = components;
    c.in_color_space = components == 1 ? JCS_GRAYSCALE : components == 4 ? JCS_CMYK : JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, 100, TRUE);
    c.arith_code = o.arithmetic ? TRUE : FALSE;
    c.density_unit = std::uint8_t(o.densityUnit);
    c.X_density = c.Y_density = std::uint16_t(o.density);
    if (o.progressive) {
        jpeg_simple_progression(&c);
    } else if (!o.scans.empty()) {
        c.scan_info = o.scans.data();
        c.num_scans = int(o.scans.size());
    }
    jpeg_start_compress(&c, TRUE);
    auto bytes = packRow(samples, 8);
    for (int y = 0; y < high; ++y) {
        JSAMPROW row = bytes.data() + std::size_t(y * wide * components);
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::vector<std::uint8_t> file(out, out + size);
    std::free(out);
    return file;
}

inline void writeJpeg(const std::string& path, int wide, int high, int components,
                      const std::vector<std::uint32_t>& samples, int densityUnit, int density) {
    writeBytes(path, jpegBytes(wide, high, components, samples, {densityUnit, density}));
}

// Uncompressed, or bit fields when there are masks: three after a 40-byte header, four (with
// alpha) inside a 108-byte one. Rows as stored, bottom-up unless high is negative; 300 dpi.
inline std::vector<std::uint8_t> makeBmp(int wide, int high, int bpp,
                                         const std::vector<std::uint32_t>& palette,
                                         const std::vector<std::uint32_t>& masks,
                                         const std::vector<std::uint8_t>& rows) {
    std::vector<std::uint8_t> b = {'B', 'M'};
    const std::uint32_t header = masks.size() == 4 ? 108 : 40;
    const auto offset =
        std::uint32_t(14 + header + (header == 40 ? masks.size() * 4 : 0) + palette.size() * 4);
    for (std::uint32_t v : {0u, 0u, offset, header, std::uint32_t(wide), std::uint32_t(high),
                            1u | std::uint32_t(bpp) << 16, masks.empty() ? 0u : 3u, 0u, 11811u,
                            11811u, std::uint32_t(palette.size()), 0u}) {
        putU32(b, v);
    }
    for (std::uint32_t v : masks) {
        putU32(b, v);
    }
    b.resize(std::max(b.size(), 14 + std::size_t(header)), 0);
    for (std::uint32_t v : palette) {
        putU32(b, v);  // 0x00RRGGBB is stored blue, green, red, 0
    }
    b.insert(b.end(), rows.begin(), rows.end());
    return b;
}

// The pixels of either layout as meshed samples, so tests compare content apart from layout.
inline std::vector<std::uint8_t> meshedSamples(const Bitmap& b) {
    std::vector<std::uint8_t> out;
    const int n = b.samplesPerPixel();
    for (int y = 0; y < b.pixelsHigh(); ++y) {
        for (int x = 0; x < b.pixelsWide(); ++x) {
            for (int k = 0; k < n; ++k) {
                out.push_back(b.isPlanar() ? b.row(k, y)[x] : b.row(0, y)[x * n + k]);
            }
        }
    }
    return out;
}

}  // namespace pv::testing
