// Writes the fuzzers' seed corpus into the folder given: small genuine files of every layout
// the decoders accept (and of the few they refuse with a message), written by libtiff, libpng
// and libjpeg through the test suite's writers, and command lines for the option parser.
//
//   pv_make_corpus OUT   makes OUT/tiff, OUT/png, OUT/jpeg, OUT/bmp and OUT/cli

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "ImageTestFiles.h"
#include "TestFiles.h"

namespace {

using namespace pv::testing;
namespace fs = std::filesystem;

constexpr int kWide = 8, kHigh = 6;

fs::path out;

std::string file(const char* kind, const std::string& name) {
    fs::create_directories(out / kind);
    return (out / kind / name).string();
}

std::vector<std::uint32_t> samples(int wide, int high, int perPixel, int bits) {
    return pattern(std::size_t(wide * high * perPixel), std::uint32_t(1) << bits);
}

void tiffs() {
    struct Named {
        const char* name;
        TiffLayout layout;
    };
    const Named layouts[] = {
        {"rgb8.tif", {}},
        {"rgb8-300dpi.tif", {.xres = 300, .yres = 300}},
        {"rgb8-cm.tif", {.xres = 100, .yres = 50, .unit = RESUNIT_CENTIMETER}},
        {"rgb16.tif", {.bits = 16}},
        {"rgba8.tif", {.samples = 4}},
        {"rgba16.tif", {.samples = 4, .bits = 16}},
        {"grey8.tif", {.samples = 1, .photometric = PHOTOMETRIC_MINISBLACK}},
        {"grey16.tif", {.samples = 1, .bits = 16, .photometric = PHOTOMETRIC_MINISBLACK}},
        {"grey4.tif", {.samples = 1, .bits = 4, .photometric = PHOTOMETRIC_MINISBLACK}},
        {"white1.tif", {.samples = 1, .bits = 1, .photometric = PHOTOMETRIC_MINISWHITE}},
        {"grey-alpha8.tif", {.samples = 2, .photometric = PHOTOMETRIC_MINISBLACK}},
        {"palette8.tif", {.samples = 1, .photometric = PHOTOMETRIC_PALETTE}},
        {"palette4.tif", {.samples = 1, .bits = 4, .photometric = PHOTOMETRIC_PALETTE}},
        {"planar-rgb8.tif", {.planar = true}},
        {"planar-rgba16.tif", {.samples = 4, .bits = 16, .planar = true}},
        {"tiled-rgb8.tif", {.wide = 20, .high = 18, .tiled = true}},
        {"tiled-planar-rgb8.tif", {.wide = 20, .high = 18, .planar = true, .tiled = true}},
        {"lzw-rgb8.tif", {.compression = COMPRESSION_LZW}},
        {"lzw-grey16.tif",
         {.samples = 1,
          .bits = 16,
          .photometric = PHOTOMETRIC_MINISBLACK,
          .compression = COMPRESSION_LZW}},
        {"deflate-rgb8.tif", {.compression = COMPRESSION_ADOBE_DEFLATE}},
        {"packbits-rgb8.tif", {.compression = COMPRESSION_PACKBITS}},
        // JPEG in TIFF wants blocks of whole MCUs: tiles of 16 give them.
        {"jpeg-tiled-rgb8.tif",
         {.wide = 20, .high = 18, .tiled = true, .compression = COMPRESSION_JPEG}},
        {"pages3-rgb8.tif", {.pages = 3}},
        {"g3-white1.tif",
         {.samples = 1,
          .bits = 1,
          .photometric = PHOTOMETRIC_MINISWHITE,
          .compression = COMPRESSION_CCITTFAX3}},
        {"g4-white1.tif",
         {.samples = 1,
          .bits = 1,
          .photometric = PHOTOMETRIC_MINISWHITE,
          .compression = COMPRESSION_CCITTFAX4}},
        {"lzma-rgb8.tif", {.compression = COMPRESSION_LZMA}},
        {"zstd-rgb16.tif", {.bits = 16, .compression = COMPRESSION_ZSTD}},
        {"webp-rgba8.tif", {.samples = 4, .compression = COMPRESSION_WEBP}},
    };
    for (const Named& n : layouts) {
        const TiffLayout& s = n.layout;
        writeTiff(file("tiff", n.name), s, samples(s.wide, s.high, s.samples, s.bits));
    }
    // Big-endian and BigTIFF, through libtiff's own modes.
    for (const auto& [name, mode] :
         {std::pair{"big-endian-rgb8.tif", "wb"}, std::pair{"bigtiff-rgb8.tif", "w8"}}) {
        TIFF* t = TIFFOpen(file("tiff", name).c_str(), mode);
        const TiffLayout s;
        writeTiffPage(t, s, samples(s.wide, s.high, s.samples, s.bits));
        TIFFClose(t);
    }
}

// Grey of 1, 2 or 4 bits, or a palette of 1 to 8 bits with transparency: what writePng's
// 8- and 16-bit rows cannot hold.
void writeSmallSamplePng(const std::string& path, int colourType, int bits) {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, f);
    png_set_IHDR(png, info, kWide, kHigh, bits, colourType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (colourType == PNG_COLOR_TYPE_PALETTE) {
        std::vector<png_color> palette(std::size_t(1) << bits);
        std::vector<png_byte> alpha(palette.size());
        for (std::size_t i = 0; i < palette.size(); ++i) {
            palette[i] = {png_byte(i * 37), png_byte(255 - i * 11), png_byte(i * 101)};
            alpha[i] = png_byte(255 - i);
        }
        png_set_PLTE(png, info, palette.data(), int(palette.size()));
        png_set_tRNS(png, info, alpha.data(), int(alpha.size()), nullptr);
    }
    png_write_info(png, info);
    auto rows = samples(kWide, kHigh, 1, bits);
    for (int y = 0; y < kHigh; ++y) {
        std::vector<std::uint32_t> row(rows.begin() + y * kWide, rows.begin() + (y + 1) * kWide);
        auto packed = packRow(row, bits);
        png_write_row(png, packed.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    std::fclose(f);
}

void pngs() {
    struct Named {
        const char* name;
        PngLayout layout;
    };
    const Named layouts[] = {
        {"rgb8.png", {.wide = kWide, .high = kHigh}},
        {"rgb8-300dpi.png", {.wide = kWide, .high = kHigh, .pixelsPerMetre = 11811}},
        {"rgba8.png", {.wide = kWide, .high = kHigh, .samples = 4}},
        {"grey8.png", {.wide = kWide, .high = kHigh, .samples = 1}},
        {"grey-alpha8.png", {.wide = kWide, .high = kHigh, .samples = 2}},
        {"rgb16.png", {.wide = kWide, .high = kHigh, .bits = 16}},
        {"rgba16.png", {.wide = kWide, .high = kHigh, .samples = 4, .bits = 16}},
        {"grey16.png", {.wide = kWide, .high = kHigh, .samples = 1, .bits = 16}},
        {"interlaced-rgb8.png", {.wide = 11, .high = 9, .interlaced = true}},
        {"interlaced-rgb16.png", {.wide = 11, .high = 9, .bits = 16, .interlaced = true}},
        {"interlaced-grey8.png", {.wide = 3, .high = 2, .samples = 1, .interlaced = true}},
    };
    for (const Named& n : layouts) {
        const PngLayout& s = n.layout;
        writePng(file("png", n.name), s, samples(s.wide, s.high, s.samples, s.bits));
    }
    for (int bits : {1, 2, 4}) {
        writeSmallSamplePng(file("png", "grey" + std::to_string(bits) + ".png"),
                            PNG_COLOR_TYPE_GRAY, bits);
    }
    for (int bits : {1, 4, 8}) {
        writeSmallSamplePng(file("png", "palette" + std::to_string(bits) + ".png"),
                            PNG_COLOR_TYPE_PALETTE, bits);
    }
}

void jpegs() {
    const int wide = 16, high = 16;
    struct Named {
        const char* name;
        int components;
        JpegOptions options;
    };
    const Named layouts[] = {
        {"rgb.jpg", 3, {}},
        {"rgb-300dpi.jpg", 3, {.densityUnit = 1, .density = 300}},
        {"rgb-cm.jpg", 3, {.densityUnit = 2, .density = 40}},
        {"grey.jpg", 1, {}},
        {"progressive-rgb.jpg", 3, {.progressive = true}},
        {"progressive-grey.jpg", 1, {.progressive = true}},
        {"cmyk.jpg", 4, {}},
    };
    for (const Named& n : layouts) {
        writeBytes(
            file("jpeg", n.name),
            jpegBytes(wide, high, n.components, samples(wide, high, n.components, 8), n.options));
    }
}

std::vector<std::uint8_t> bmpRows(int wide, int high, int bpp) {
    const std::size_t stride = std::size_t((wide * bpp + 31) / 32 * 4);
    std::vector<std::uint8_t> rows;
    for (std::uint32_t v : pattern(stride * std::size_t(std::abs(high)), 256)) {
        rows.push_back(std::uint8_t(v));
    }
    return rows;
}

std::vector<std::uint32_t> palette(int entries) {
    std::vector<std::uint32_t> p;
    for (int i = 0; i < entries; ++i) {
        p.push_back(std::uint32_t(i * 0x010307 + 0x204010) & 0xffffff);
    }
    return p;
}

void bmps() {
    for (int bpp : {1, 4, 8}) {
        writeBytes(file("bmp", "palette" + std::to_string(bpp) + ".bmp"),
                   makeBmp(kWide, kHigh, bpp, palette(1 << bpp), {}, bmpRows(kWide, kHigh, bpp)));
    }
    for (int bpp : {16, 24, 32}) {
        writeBytes(file("bmp", "rgb" + std::to_string(bpp) + ".bmp"),
                   makeBmp(kWide, kHigh, bpp, {}, {}, bmpRows(kWide, kHigh, bpp)));
    }
    writeBytes(file("bmp", "bitfields565.bmp"),
               makeBmp(kWide, kHigh, 16, {}, {0xf800, 0x07e0, 0x001f}, bmpRows(kWide, kHigh, 16)));
    writeBytes(file("bmp", "bitfields32.bmp"),
               makeBmp(kWide, kHigh, 32, {}, {0xff0000, 0xff00, 0xff}, bmpRows(kWide, kHigh, 32)));
    writeBytes(file("bmp", "alpha32.bmp"),
               makeBmp(kWide, kHigh, 32, {}, {0xff0000, 0xff00, 0xff, 0xff000000u},
                       bmpRows(kWide, kHigh, 32)));
    writeBytes(file("bmp", "top-down24.bmp"),
               makeBmp(kWide, -kHigh, 24, {}, {}, bmpRows(kWide, -kHigh, 24)));
    // Run-length data, which the program refuses with a message: a run and an end of line for
    // each row (two pixels a byte for RLE4), then the end of the picture.
    for (const auto& [name, bpp, compression] :
         {std::tuple{"rle8.bmp", 8, 1}, std::tuple{"rle4.bmp", 4, 2}}) {
        std::vector<std::uint8_t> runs;
        for (int y = 0; y < kHigh; ++y) {
            runs.insert(runs.end(), {std::uint8_t(kWide), std::uint8_t(y * 17), 0, 0});
        }
        runs.insert(runs.end(), {0, 1});
        auto b = makeBmp(kWide, kHigh, bpp, palette(1 << bpp), {}, runs);
        b[30] = std::uint8_t(compression);
        writeBytes(file("bmp", name), b);
    }
    // The OS/2 header of 12 bytes, with a palette of three-byte entries.
    std::vector<std::uint8_t> os2 = {'B', 'M', 0, 0,  0, 0, 0, 0,     0,   0,     14 + 12 + 6,
                                     0,   0,   0, 12, 0, 0, 0, kWide, 0,   kHigh, 0,
                                     1,   0,   1, 0,  0, 0, 0, 255,   255, 255};
    const auto rows = bmpRows(kWide, kHigh, 1);
    os2.insert(os2.end(), rows.begin(), rows.end());
    writeBytes(file("bmp", "os2-palette1.bmp"), os2);
}

void commandLines() {
    const std::vector<std::vector<std::string>> lines = {
        {"cells.tif"},
        {"--pair", "green-blue", "--coefficients", "Rr,k", "a.tif", "b.png"},
        {"--pair=blue-red", "--roi", "rect:20,20,200,180", "--reveal", "--images", "--report",
         "out", "--txt", "cells.tif"},
        {"--roi=oval:10.5,0,245.5,256", "--background", "all:20", "--background=red:255", "-j2",
         "x.bmp"},
        {"--roi", "polygon:10,10,240,20,200,240,30,200", "--reveal", "--xls", "--", "-odd.jpg"},
        {"--roi", "lasso:0,0,256,0,256,256,128,100,0,256", "--jobs", "1", "y.tif"},
        {"--help"},
        {"--version"},
    };
    int k = 0;
    for (const auto& line : lines) {
        std::vector<std::uint8_t> bytes;
        for (const std::string& word : line) {
            if (!bytes.empty()) {
                bytes.push_back(0);
            }
            bytes.insert(bytes.end(), word.begin(), word.end());
        }
        writeBytes(file("cli", "line" + std::to_string(++k)), bytes);
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: pv_make_corpus OUT\n";
        return 2;
    }
    out = argv[1];
    tiffs();
    pngs();
    jpegs();
    bmps();
    commandLines();
    // The writers report through GoogleTest's assertions; any failure has been printed.
    return ::testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
}
