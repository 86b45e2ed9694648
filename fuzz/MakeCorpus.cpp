// Writes the fuzzers' seed corpus into the folder given: small genuine files of every layout
// the decoders accept (and of the few they refuse with a message), written by libtiff, libpng
// and libjpeg through the test suite's writers, stacks as microscopes and ImageJ save them,
// label images, and command lines for the option parser.
//
//   pv_make_corpus OUT   makes OUT/tiff, OUT/png, OUT/jpeg, OUT/bmp, OUT/stack and OUT/cli

#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "GreyPages.h"
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

// Pages of one layout each, the first carrying the description: slices of different sizes,
// codings or depths.
void writePages(const std::string& path, const std::vector<TiffLayout>& pages,
                const std::string& description = {}) {
    TIFF* t = TIFFOpen(path.c_str(), "w");
    for (std::size_t p = 0; p < pages.size(); ++p) {
        if (p > 0) {
            TIFFWriteDirectory(t);
        }
        if (p == 0 && !description.empty()) {
            TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
        }
        const TiffLayout& s = pages[p];
        writeTiffPage(t, s, samples(s.wide, s.high, s.samples, s.bits));
    }
    TIFFClose(t);
}

std::string omeDescription(const std::string& order, int c, int z, int t,
                           const std::string& root = "OME") {
    const std::string prefix = root == "OME" ? "" : root.substr(0, root.find(':') + 1);
    std::string channels;
    const char* names[] = {"DAPI", "GFP", "RFP", "Cy5"};
    for (int k = 0; k < c; ++k) {
        channels += "<" + prefix + "Channel ID=\"Channel:0:" + std::to_string(k) + "\" Name=\"" +
                    names[k % 4] + "\"/>";
    }
    return R"(<?xml version="1.0" encoding="UTF-8"?><)" + root +
           (prefix.empty() ? " xmlns" : " xmlns:" + prefix.substr(0, prefix.size() - 1)) +
           R"(="http://www.openmicroscopy.org/Schemas/OME/2016-06"><)" + prefix +
           R"(Image ID="Image:0"><)" + prefix + R"(Pixels ID="Pixels:0" DimensionOrder=")" + order +
           R"(" SizeC=")" + std::to_string(c) + R"(" SizeZ=")" + std::to_string(z) +
           R"(" SizeT=")" + std::to_string(t) + R"(" SizeX="8" SizeY="6" Type="uint8">)" +
           channels + "</" + prefix + "Pixels></" + prefix + "Image></" + root + ">";
}

// Stacks of slices, a mask page, label images: the inputs of the stack harness.
void stacks() {
    const int w = kWide, h = kHigh;
    const auto greyPages = [&](int count, int bits) {
        std::vector<GreyPage> pages;
        for (int p = 0; p < count; ++p) {
            pages.push_back(pattern(std::size_t(w * h), std::uint32_t(1) << std::min(bits, 16),
                                    std::uint32_t(p + 3)));
        }
        return pages;
    };
    writeGreyPages(file("stack", "imagej-c2z3t2.tif"), w, h, greyPages(12, 8),
                   imageJDescription(2, 3, 2));
    writeGreyPages(file("stack", "imagej-c2z2-16bit.tif"), w, h, greyPages(4, 16),
                   imageJDescription(2, 2), 16);
    writeGreyPages(file("stack", "imagej-slices5.tif"), w, h, greyPages(5, 8),
                   "ImageJ=1.54f\nimages=5\nslices=5\nloop=false\n");
    writeGreyPages(file("stack", "imagej-crlf.tif"), w, h, greyPages(4, 8),
                   "ImageJ=1.54f\r\nimages=4\r\nchannels=2\r\nslices=2\r\nhyperstack=true\r\n");
    writeGreyPages(file("stack", "pages4.tif"), w, h, greyPages(4, 8));
    writeGreyPages(file("stack", "pages3-32bit.tif"), w, h, greyPages(3, 32), {}, 32);
    for (const auto& [name, order, c, z, t] :
         {std::tuple{"ome-zct.tif", "XYZCT", 2, 3, 1}, std::tuple{"ome-czt.tif", "XYCZT", 2, 2, 2},
          std::tuple{"ome-tzc.tif", "XYTZC", 3, 1, 2}}) {
        writeGreyPages(file("stack", name), w, h, greyPages(c * z * t, 8),
                       omeDescription(order, c, z, t));
    }
    writeGreyPages(file("stack", "ome-prefixed.tif"), w, h, greyPages(4, 8),
                   omeDescription("XYCZT", 2, 2, 1, "ome:OME"));
    // tifffile's OME-TIFF of one RGB page: its three channels are the samples of one plane.
    writePages(file("stack", "ome-rgb.tif"), {TiffLayout{.wide = w, .high = h}},
               omeDescription("XYCZT", 3, 1, 1));
    const TiffLayout grey{
        .wide = w, .high = h, .samples = 1, .photometric = PHOTOMETRIC_MINISBLACK};
    TiffLayout grey16 = grey, lzw = grey, bigger = grey, smaller = grey, wideRow = grey;
    grey16.bits = 16;
    lzw.compression = COMPRESSION_LZW;
    bigger.wide = 2 * w;
    bigger.high = 3 * h;
    smaller.wide = 3;
    smaller.high = 2;
    wideRow.wide = 64;
    wideRow.high = 1;
    writePages(file("stack", "lzw-16bit-pages.tif"), {lzw, grey16, lzw, grey16});
    writePages(file("stack", "sizes-differ.tif"), {grey, bigger, smaller});
    writePages(file("stack", "imagej-sizes-differ.tif"), {grey, grey, bigger, smaller},
               imageJDescription(2, 2));
    writePages(file("stack", "row-then-page.tif"), {wideRow, bigger});
    // A mask as the first page, then the slices.
    std::vector<std::uint32_t> mask;
    for (int i = 0; i < w * h; ++i) {
        mask.push_back(i % w > i / w ? 255 : 0);
    }
    writeGreyPages(file("stack", "mask-page.tif"), w, h,
                   {mask, greyPages(1, 8)[0], greyPages(2, 8)[1]});
    // Label images of a few cells, one of them in two pieces.
    std::vector<std::uint32_t> labels;
    for (int i = 0; i < w * h; ++i) {
        labels.push_back(i % w == 2 ? 0 : i % w < 2 || i / w == 0 ? 7 : 9 + i / w % 2);
    }
    for (int bits : {8, 16, 32}) {
        writeGreyPages(file("stack", "labels" + std::to_string(bits) + ".tif"), w, h, {labels}, {},
                       bits);
    }
    writePng(file("stack", "labels16.png"), {.wide = w, .high = h, .samples = 1, .bits = 16},
             labels);
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
        // File names stand for the option harness's files by their first byte: 0 a picture,
        // 1 an ImageJ stack, 2 an OME stack, 3 a mask, 4 labels, 5 16-bit grey, 6 a small mask.
        {"--y-channel", "1", "--x-channel", "2", "--stack", "--mask", "3.tif", "1.tif"},
        {"--y-channel", "GFP", "--x-channel", "DAPI", "--slices", "all", "--labels", "4.tif",
         "--measures", "all", "--shuffles", "3", "2.tif"},
        {"--y-channel", "2", "--x-channel", "1", "--slice", "3", "--frame", "1", "--mask", "6.tif",
         "1.tif"},
        {"--y-file", "5.tif", "--x-file", "2.tif", "--mask", "3.tif"},
        {"--y-file", "0.tif", "--x-file", "0.tif", "--y-channel", "1", "--x-channel", "3"},
        {"--labels", "4.tif", "--measures", "all", "--roi", "rect:20,20,200,180", "0.tif"},
        {"--mask", "3.tif", "--measures", "significance", "--psf", "2", "--shuffles", "5", "0.tif",
         "5.tif", "7.tif"},
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
    stacks();
    commandLines();
    // The writers report through GoogleTest's assertions; any failure has been printed.
    return ::testing::UnitTest::GetInstance()->Failed() ? 1 : 0;
}
