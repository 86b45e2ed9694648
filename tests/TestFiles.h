#pragma once

// Temporary folders, and TIFF files written by libtiff itself so that readers meet genuine ones.

#include <tiffio.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace pv::testing {

struct TempDir {
    std::string root = (std::filesystem::temp_directory_path() / "pv-test-XXXXXX").string();
    TempDir() { EXPECT_NE(mkdtemp(root.data()), nullptr); }
    ~TempDir() {
        std::error_code ec;
        std::filesystem::remove_all(root, ec);
    }
    std::string file(const std::string& name) const { return root + "/" + name; }
};

// Packs samples first-pixel-high into bytes, or into 16-bit words in host order.
inline std::vector<std::uint8_t> packRow(const std::vector<std::uint32_t>& v, int bits) {
    std::vector<std::uint8_t> row((v.size() * std::size_t(bits) + 7) / 8);
    for (std::size_t i = 0, bit = 0; i < v.size(); ++i, bit += std::size_t(bits)) {
        const auto word = std::uint16_t(v[i]);
        if (bits == 32) {
            std::memcpy(&row[bit / 8], &v[i], 4);
        } else if (bits == 16) {
            std::memcpy(&row[bit / 8], &word, 2);
        } else {
            row[bit / 8] |= std::uint8_t(v[i] << (8 - bits - int(bit % 8)));
        }
    }
    return row;
}

// Reds, then greens, then blues; uneven values so a wrong channel, index or scale shows.
inline std::vector<std::uint16_t> colourMap(int bits) {
    std::vector<std::uint16_t> map(std::size_t(3) << bits);
    for (std::size_t i = 0; i < map.size(); ++i) {
        map[i] = std::uint16_t(i * 7919 + 13);
    }
    return map;
}

// Samples are given meshed, pixel after pixel, whatever layout the file gets; an even count
// means the last one is alpha.
struct TiffLayout {
    int wide = 4, high = 3, samples = 3, bits = 8, photometric = PHOTOMETRIC_RGB;
    bool planar = false, tiled = false;
    int compression = COMPRESSION_NONE;
    float xres = 0, yres = 0;  // 0: no resolution tags
    int unit = RESUNIT_INCH;
    std::span<const std::uint16_t> palette = {};  // as colourMap lays it out; or colourMap's
    int pages = 1;                                // each the same picture
    int rowsPerStrip = 4;
};

// One page: the tags and the pixels, strip after strip or tile after tile.
inline void writeTiffPage(TIFF* t, const TiffLayout& s, const std::vector<std::uint32_t>& samples) {
    // Strips of 4 rows, so the last is usually short; tiles reach past the picture, zero there.
    const int blockHigh = s.tiled ? 16 : s.rowsPerStrip, blockWide = s.tiled ? 16 : s.wide;
    const int planes = s.planar ? s.samples : 1, perPixel = s.samples / planes;
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, s.wide);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, s.high);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, s.samples);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, s.bits);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, s.photometric);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, s.planar ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, s.compression);
    TIFFSetField(t, s.tiled ? TIFFTAG_TILEWIDTH : TIFFTAG_ROWSPERSTRIP, blockHigh);
    TIFFSetField(t, s.tiled ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP, blockHigh);
    if (s.samples % 2 == 0) {
        const std::uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
        TIFFSetField(t, TIFFTAG_EXTRASAMPLES, 1, &alpha);
    }
    if (s.photometric == PHOTOMETRIC_PALETTE) {
        const auto own = colourMap(s.bits);
        const auto map = s.palette.empty() ? std::span(own) : s.palette;
        const std::size_t n = map.size() / 3;
        TIFFSetField(t, TIFFTAG_COLORMAP, map.data(), map.data() + n, map.data() + 2 * n);
    }
    if (s.xres > 0) {
        TIFFSetField(t, TIFFTAG_XRESOLUTION, s.xres);
        TIFFSetField(t, TIFFTAG_YRESOLUTION, s.yres);
        TIFFSetField(t, TIFFTAG_RESOLUTIONUNIT, s.unit);
    }
    for (int p = 0; p < planes; ++p) {
        for (int y0 = 0; y0 < s.high; y0 += blockHigh) {
            for (int x0 = 0; x0 < s.wide; x0 += blockWide) {
                std::vector<std::uint8_t> block;
                for (int y = y0; y < y0 + blockHigh && (s.tiled || y < s.high); ++y) {
                    std::vector<std::uint32_t> v;
                    for (int x = x0; x < x0 + blockWide; ++x) {
                        for (int k = p; k < p + perPixel; ++k) {
                            const auto at = std::size_t((y * s.wide + x) * s.samples + k);
                            v.push_back(x < s.wide && y < s.high ? samples[at] : 0);
                        }
                    }
                    const auto row = packRow(v, s.bits);
                    block.insert(block.end(), row.begin(), row.end());
                }
                const auto x = std::uint32_t(x0), y = std::uint32_t(y0);
                const auto index = s.tiled ? TIFFComputeTile(t, x, y, 0, std::uint16_t(p))
                                           : TIFFComputeStrip(t, y, std::uint16_t(p));
                const auto write = s.tiled ? TIFFWriteEncodedTile : TIFFWriteEncodedStrip;
                ASSERT_GT(write(t, index, block.data(), tmsize_t(block.size())), 0);
            }
        }
    }
}

inline void writeTiff(const std::string& path, const TiffLayout& s,
                      const std::vector<std::uint32_t>& samples) {
    TIFF* t = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(t, nullptr);
    for (int page = 0; page < s.pages; ++page) {
        if (page > 0) {
            ASSERT_EQ(TIFFWriteDirectory(t), 1);
        }
        writeTiffPage(t, s, samples);
    }
    TIFFClose(t);
}

}  // namespace pv::testing
