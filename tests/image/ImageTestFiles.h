#pragma once

// Writes small picture files with the real libraries, so the decoders meet genuine files.

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace pv::testing {

class TempDir {
  public:
    TempDir() {
        std::string pattern = (std::filesystem::temp_directory_path() / "pv-image-XXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr) {
            ADD_FAILURE() << "cannot make a temporary folder";
        }
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

// Samples are given meshed, pixel after pixel, whatever layout the file gets.
struct TiffSpec {
    int wide = 4;
    int high = 3;
    int samples = 3;
    int bits = 8;
    int photometric = PHOTOMETRIC_RGB;
    bool planar = false;
    bool tiled = false;
    int compression = COMPRESSION_NONE;
    int rowsPerStrip = 1;
    float xres = 0.0f;  // 0: no resolution tags
    float yres = 0.0f;
    int unit = RESUNIT_INCH;
    std::vector<std::uint16_t> colormap;  // 3 * 2^bits entries: reds, greens, blues
    bool extraPage = false;
};

inline void writeTiff(const std::string& path, const TiffSpec& s,
                      const std::vector<std::uint32_t>& samples) {
    TIFF* t = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(t, nullptr);
    for (int page = 0; page < (s.extraPage ? 2 : 1); ++page) {
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, std::uint32_t(s.wide));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, std::uint32_t(s.high));
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, std::uint16_t(s.samples));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, std::uint16_t(s.bits));
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, std::uint16_t(s.photometric));
        TIFFSetField(t, TIFFTAG_PLANARCONFIG,
                     std::uint16_t(s.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG));
        TIFFSetField(t, TIFFTAG_COMPRESSION, std::uint16_t(s.compression));
        const int colours = s.photometric == PHOTOMETRIC_RGB ? 3 : 1;
        if (s.samples > colours) {
            std::uint16_t type = EXTRASAMPLE_UNASSALPHA;
            TIFFSetField(t, TIFFTAG_EXTRASAMPLES, std::uint16_t(1), &type);
        }
        if (!s.colormap.empty()) {
            const std::size_t n = s.colormap.size() / 3;
            TIFFSetField(t, TIFFTAG_COLORMAP, s.colormap.data(), s.colormap.data() + n,
                         s.colormap.data() + 2 * n);
        }
        if (s.xres > 0) {
            TIFFSetField(t, TIFFTAG_XRESOLUTION, s.xres);
            TIFFSetField(t, TIFFTAG_YRESOLUTION, s.yres);
            TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, std::uint16_t(s.unit));
        }
        const int tile = 16;
        if (s.tiled) {
            TIFFSetField(t, TIFFTAG_TILEWIDTH, std::uint32_t(tile));
            TIFFSetField(t, TIFFTAG_TILELENGTH, std::uint32_t(tile));
        } else {
            TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, std::uint32_t(s.rowsPerStrip));
        }
        const int planes = s.planar ? s.samples : 1;
        const int perPixel = s.planar ? 1 : s.samples;
        // Pack one sample into a row of bits, bytes or host-order 16-bit words.
        auto put = [&](std::vector<std::uint8_t>& row, std::size_t index, std::uint32_t v) {
            if (s.bits == 16) {
                const std::uint16_t w = std::uint16_t(v);
                std::memcpy(row.data() + 2 * index, &w, 2);
            } else if (s.bits == 8) {
                row[index] = std::uint8_t(v);
            } else {
                const std::size_t bit = index * std::size_t(s.bits);
                row[bit / 8] |= std::uint8_t(v << (8 - s.bits - int(bit % 8)));
            }
        };
        auto sample = [&](int x, int y, int c) {
            return samples[(std::size_t(y) * std::size_t(s.wide) + std::size_t(x)) *
                               std::size_t(s.samples) +
                           std::size_t(c)];
        };
        for (int p = 0; p < planes; ++p) {
            if (s.tiled) {
                const std::size_t tileRow = (std::size_t(tile * perPixel * s.bits) + 7) / 8;
                for (int ty = 0; ty < s.high; ty += tile) {
                    for (int tx = 0; tx < s.wide; tx += tile) {
                        std::vector<std::uint8_t> buf(tileRow * tile);
                        for (int r = 0; r < tile && ty + r < s.high; ++r) {
                            std::vector<std::uint8_t> row(tileRow);
                            for (int c = 0; c < tile && tx + c < s.wide; ++c) {
                                for (int k = 0; k < perPixel; ++k) {
                                    put(row, std::size_t(c * perPixel + k),
                                        sample(tx + c, ty + r, s.planar ? p : k));
                                }
                            }
                            std::copy(row.begin(), row.end(), buf.begin() + r * tileRow);
                        }
                        ASSERT_GE(TIFFWriteTile(t, buf.data(), std::uint32_t(tx), std::uint32_t(ty),
                                                0, std::uint16_t(p)),
                                  0);
                    }
                }
            } else {
                for (int y = 0; y < s.high; ++y) {
                    std::vector<std::uint8_t> row((std::size_t(s.wide * perPixel * s.bits) + 7) /
                                                  8);
                    for (int x = 0; x < s.wide; ++x) {
                        for (int k = 0; k < perPixel; ++k) {
                            put(row, std::size_t(x * perPixel + k), sample(x, y, s.planar ? p : k));
                        }
                    }
                    ASSERT_EQ(TIFFWriteScanline(t, row.data(), std::uint32_t(y), std::uint16_t(p)),
                              1);
                }
            }
        }
        TIFFWriteDirectory(t);
    }
    TIFFClose(t);
}

// colourType as libpng's PNG_COLOR_TYPE_*; samples meshed, palette indices for palettes.
struct PngSpec {
    int wide = 4;
    int high = 3;
    int colourType = PNG_COLOR_TYPE_RGB;
    int bits = 8;
    bool interlaced = false;
    std::uint32_t pixelsPerMetre = 0;  // 0: no pHYs
    std::vector<png_color> palette;
    std::vector<png_byte> paletteAlpha;
};

inline void writePng(const std::string& path, const PngSpec& s,
                     const std::vector<std::uint32_t>& samples) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, png_uint_32(s.wide), png_uint_32(s.high), s.bits, s.colourType,
                 s.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!s.palette.empty()) {
        png_set_PLTE(png, info, s.palette.data(), int(s.palette.size()));
    }
    if (!s.paletteAlpha.empty()) {
        png_set_tRNS(png, info, s.paletteAlpha.data(), int(s.paletteAlpha.size()), nullptr);
    }
    if (s.pixelsPerMetre) {
        png_set_pHYs(png, info, s.pixelsPerMetre, s.pixelsPerMetre, PNG_RESOLUTION_METER);
    }
    png_write_info(png, info);
    const int channels = s.colourType == PNG_COLOR_TYPE_RGB         ? 3
                         : s.colourType == PNG_COLOR_TYPE_RGB_ALPHA ? 4
                         : s.colourType == PNG_COLOR_TYPE_GA        ? 2
                                                                    : 1;
    const std::size_t rowBytes = (std::size_t(s.wide * channels * s.bits) + 7) / 8;
    std::vector<std::vector<png_byte>> rows(std::size_t(s.high), std::vector<png_byte>(rowBytes));
    for (int y = 0; y < s.high; ++y) {
        for (int i = 0; i < s.wide * channels; ++i) {
            const std::uint32_t v = samples[std::size_t(y * s.wide * channels + i)];
            auto& row = rows[std::size_t(y)];
            if (s.bits == 16) {
                row[2 * std::size_t(i)] = png_byte(v >> 8);
                row[2 * std::size_t(i) + 1] = png_byte(v);
            } else if (s.bits == 8) {
                row[std::size_t(i)] = png_byte(v);
            } else {
                const std::size_t bit = std::size_t(i * s.bits);
                row[bit / 8] |= png_byte(v << (8 - s.bits - int(bit % 8)));
            }
        }
    }
    std::vector<png_bytep> pointers;
    for (auto& row : rows) {
        pointers.push_back(row.data());
    }
    png_write_image(png, pointers.data());
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

// densityUnit as JFIF: 0 none, 1 per inch, 2 per centimetre.
inline void writeJpeg(const std::string& path, int wide, int high, int components,
                      const std::vector<std::uint8_t>& samples, int densityUnit = 0,
                      int density = 1, int quality = 100) {
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
    jpeg_set_quality(&c, quality, TRUE);
    c.density_unit = std::uint8_t(densityUnit);
    c.X_density = std::uint16_t(density);
    c.Y_density = std::uint16_t(density);
    jpeg_start_compress(&c, TRUE);
    for (int y = 0; y < high; ++y) {
        JSAMPROW row = const_cast<JSAMPLE*>(samples.data() + std::size_t(y * wide * components));
        jpeg_write_scanlines(&c, &row, 1);
    }
    jpeg_finish_compress(&c);
    jpeg_destroy_compress(&c);
    std::fclose(f);
}

// Deterministic test pixels.
inline std::vector<std::uint32_t> pattern(std::size_t count, std::uint32_t modulo,
                                          std::uint32_t seed = 7) {
    std::vector<std::uint32_t> v(count);
    std::uint32_t x = seed;
    for (auto& s : v) {
        x = x * 1103515245u + 12345u;
        s = (x >> 8) % modulo;
    }
    return v;
}

}  // namespace pv::testing

#include "image/Bitmap.h"

namespace pv::testing {

// The pixels of either layout as meshed samples, so tests compare content apart from layout.
inline std::vector<std::uint8_t> meshedSamples(const Bitmap& b) {
    std::vector<std::uint8_t> out;
    for (int y = 0; y < b.pixelsHigh(); ++y) {
        for (int x = 0; x < b.pixelsWide(); ++x) {
            for (int k = 0; k < b.samplesPerPixel(); ++k) {
                out.push_back(b.isPlanar() ? b.row(k, y)[x]
                                           : b.row(0, y)[x * b.samplesPerPixel() + k]);
            }
        }
    }
    return out;
}

}  // namespace pv::testing
