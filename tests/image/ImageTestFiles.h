#pragma once

// Writes small picture files with the real libraries, so the decoders meet genuine files.

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "image/Bitmap.h"

namespace pv::testing {

class TempDir {
  public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "pv-image-XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        path_ = pattern;
    }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(path_, ec);
    }
    std::string file(const std::string& name) const { return (path_ / name).string(); }

  private:
    std::filesystem::path path_;
};

inline std::vector<std::uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

inline void writeBytes(const std::string& path, const std::vector<std::uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
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

// Packs samples into bits, bytes or 16-bit words: big-endian for PNG, host order for TIFF.
inline std::vector<std::uint8_t> packRow(const std::vector<std::uint32_t>& v, int bits,
                                         bool bigEndian) {
    std::vector<std::uint8_t> row((v.size() * std::size_t(bits) + 7) / 8);
    for (std::size_t i = 0; i < v.size(); ++i) {
        if (bits == 16 && bigEndian) {
            row[2 * i] = std::uint8_t(v[i] >> 8);
            row[2 * i + 1] = std::uint8_t(v[i]);
        } else if (bits == 16) {
            const auto w = std::uint16_t(v[i]);
            std::memcpy(row.data() + 2 * i, &w, 2);
        } else {
            const std::size_t bit = i * std::size_t(bits);
            row[bit / 8] |= std::uint8_t(v[i] << (8 - bits - int(bit % 8)));
        }
    }
    return row;
}

// Samples are given meshed, pixel after pixel, whatever layout the file gets.
struct TiffLayout {
    int wide = 4, high = 3, samples = 3, bits = 8;
    int photometric = PHOTOMETRIC_RGB;
    bool planar = false, tiled = false;
    int compression = COMPRESSION_NONE;
    int rowsPerStrip = 1;
    float xres = 0, yres = 0;  // 0: no resolution tags
    int unit = RESUNIT_INCH;
    std::vector<std::uint16_t> colormap = {};  // 3 * 2^bits entries: reds, greens, blues
};

inline void writeTiff(const std::string& path, const TiffLayout& s,
                      const std::vector<std::uint32_t>& samples) {
    TIFF* t = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(t, nullptr);
    const int blockWide = s.tiled ? 16 : s.wide, blockHigh = s.tiled ? 16 : s.rowsPerStrip;
    const std::pair<ttag_t, int> tags[] = {
        {TIFFTAG_IMAGEWIDTH, s.wide},
        {TIFFTAG_IMAGELENGTH, s.high},
        {TIFFTAG_SAMPLESPERPIXEL, s.samples},
        {TIFFTAG_BITSPERSAMPLE, s.bits},
        {TIFFTAG_PHOTOMETRIC, s.photometric},
        {TIFFTAG_PLANARCONFIG, s.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG},
        {TIFFTAG_COMPRESSION, s.compression},
        {s.tiled ? TIFFTAG_TILEWIDTH : TIFFTAG_ROWSPERSTRIP, blockHigh},
        {s.tiled ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, blockHigh}};
    for (const auto& [tag, value] : tags) {
        TIFFSetField(t, tag, value);
    }
    if (s.samples > (s.photometric == PHOTOMETRIC_RGB ? 3 : 1)) {
        std::uint16_t type = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &type);
    }
    if (!s.colormap.empty()) {
        const std::uint16_t* map = s.colormap.data();
        const std::size_t n = s.colormap.size() / 3;
        TIFFSetField(t, TIFFTAG_COLORMAP, map, map + n, map + 2 * n);
    }
    if (s.xres > 0) {
        TIFFSetField(t, TIFFTAG_XRESOLUTION, s.xres);
        TIFFSetField(t, TIFFTAG_YRESOLUTION, s.yres);
        TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, s.unit);
    }
    // Each strip or tile of each plane; tiles reach past the picture and are zero there.
    for (int p = 0; p < (s.planar ? s.samples : 1); ++p) {
        for (int y0 = 0; y0 < s.high; y0 += blockHigh) {
            for (int x0 = 0; x0 < s.wide; x0 += blockWide) {
                std::vector<std::uint8_t> block;
                for (int y = y0; y < y0 + blockHigh && (s.tiled || y < s.high); ++y) {
                    std::vector<std::uint32_t> v;
                    for (int x = x0; x < x0 + blockWide; ++x) {
                        for (int k = 0; k < (s.planar ? 1 : s.samples); ++k) {
                            const int at = (y * s.wide + x) * s.samples + (s.planar ? p : k);
                            v.push_back(x < s.wide && y < s.high ? samples[std::size_t(at)] : 0);
                        }
                    }
                    const auto row = packRow(v, s.bits, false);
                    block.insert(block.end(), row.begin(), row.end());
                }
                const auto plane = std::uint16_t(p);
                const auto written = s.tiled ? TIFFWriteTile(t, block.data(), std::uint32_t(x0),
                                                             std::uint32_t(y0), 0, plane)
                                             : TIFFWriteEncodedStrip(
                                                   t, TIFFComputeStrip(t, std::uint32_t(y0), plane),
                                                   block.data(), tmsize_t(block.size()));
                ASSERT_GT(written, 0);
            }
        }
    }
    TIFFClose(t);
}

// colourType as libpng's PNG_COLOR_TYPE_*; samples meshed.
struct PngLayout {
    int wide = 4, high = 3;
    int colourType = PNG_COLOR_TYPE_RGB;
    int bits = 8;
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
    png_set_IHDR(png, info, png_uint_32(s.wide), png_uint_32(s.high), s.bits, s.colourType,
                 s.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (s.pixelsPerMetre) {
        png_set_pHYs(png, info, s.pixelsPerMetre, s.pixelsPerMetre, PNG_RESOLUTION_METER);
    }
    png_write_info(png, info);
    // 8 or 16 bits only, so rows need no bit padding and one packed run holds them all.
    auto all = packRow(samples, s.bits, true);
    std::vector<png_bytep> rows;
    for (std::size_t y = 0; y < std::size_t(s.high); ++y) {
        rows.push_back(all.data() + y * all.size() / std::size_t(s.high));
    }
    png_write_image(png, rows.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

// densityUnit as JFIF: 0 none, 1 per inch, 2 per centimetre.
inline void writeJpeg(const std::string& path, int wide, int high, int components,
                      const std::vector<std::uint8_t>& samples, int densityUnit, int density) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    jpeg_compress_struct c{};
    jpeg_error_mgr err{};
    c.err = jpeg_std_error(&err);
    jpeg_create_compress(&c);
    jpeg_stdio_dest(&c, f);
    c.image_width = JDIMENSION(wide);
    c.image_height = JDIMENSION(high);
    c.input_components = components;
    c.in_color_space = components == 1 ? JCS_GRAYSCALE : JCS_RGB;
    jpeg_set_defaults(&c);
    jpeg_set_quality(&c, 100, TRUE);
    c.density_unit = std::uint8_t(densityUnit);
    c.X_density = c.Y_density = std::uint16_t(density);
    jpeg_start_compress(&c, TRUE);
    for (int y = 0; y < high; ++y) {
        JSAMPROW row = const_cast<JSAMPLE*>(samples.data() + std::size_t(y * wide * components));
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::fclose(f);
}

// A BMP whose header has 108 bytes when there are four masks (alpha), else 40 followed by
// the masks; rows as stored, bottom-up unless high is negative.
inline std::vector<std::uint8_t> makeBmp(int wide, int high, int bpp, std::uint32_t compression,
                                         const std::vector<std::uint32_t>& palette,
                                         const std::vector<std::uint32_t>& masks,
                                         const std::vector<std::uint8_t>& rows,
                                         std::uint32_t pixelsPerMetre = 0) {
    std::vector<std::uint8_t> b = {'B', 'M'};
    const auto u32 = [&](std::uint32_t v) {
        for (int i = 0; i < 4; ++i) {
            b.push_back(std::uint8_t(v >> (8 * i)));
        }
    };
    const std::uint32_t header = masks.size() == 4 ? 108 : 40;
    const auto offset =
        std::uint32_t(14 + header + (header == 40 ? masks.size() * 4 : 0) + palette.size() * 4);
    for (std::uint32_t v : {0u, 0u, offset, header, std::uint32_t(wide), std::uint32_t(high),
                            1u | std::uint32_t(bpp) << 16, compression, 0u, pixelsPerMetre,
                            pixelsPerMetre, std::uint32_t(palette.size()), 0u}) {
        u32(v);
    }
    for (std::uint32_t v : masks) {
        u32(v);
    }
    b.resize(std::max(b.size(), 14 + std::size_t(header)), 0);
    for (std::uint32_t v : palette) {
        u32(v);  // 0x00RRGGBB is stored blue, green, red, 0
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
