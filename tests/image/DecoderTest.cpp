#include <algorithm>
#include <cmath>
#include <tuple>

#include "image/ImageFile.h"
#include "image/ImageTestFiles.h"

namespace pv {
namespace {

using testing::TempDir;
using testing::TiffLayout;

std::uint8_t level(double v, double top) {
    return top == 0 ? 0 : std::uint8_t(std::lround(v * 255.0 / top));
}

// What the picture must look like, computed from the samples without the decoder's code.
std::vector<std::uint8_t> expectedRGBA(const TiffLayout& s, const std::vector<std::uint32_t>& in) {
    const std::size_t n = std::size_t(s.samples),
                      colours = s.photometric == PHOTOMETRIC_RGB ? 3 : 1;
    const double top = double((1u << s.bits) - 1);
    auto colour = [&](std::uint32_t v) {
        return s.photometric == PHOTOMETRIC_MINISWHITE ? top - v : double(v);
    };
    double max = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
        max = i % n < colours ? std::max(max, colour(in[i])) : max;
    }
    const double scale = s.bits == 16 ? max : top;
    const bool palette = s.photometric == PHOTOMETRIC_PALETTE;
    const auto map = testing::colourMap(palette ? s.bits : 0);
    std::vector<std::uint8_t> out;
    for (std::size_t p = 0; p < in.size(); p += n) {
        for (std::size_t k = 0; k < 3; ++k) {
            out.push_back(palette ? level(map[(k << s.bits) + in[p]], 65535)
                                  : level(colour(in[p + (colours == 3 ? k : 0)]), scale));
        }
        if (n > colours) {
            out.push_back(level(in[p + colours], top));
        }
    }
    return out;
}

// 37 x 21 is not a multiple of the tile width nor of 8 pixels. Each file is read on one thread
// and on three, which share its strips or tiles out (the last worker fewer than the others).
TEST(TiffDecoder, DeliversEightBitRGBInTheFilesLayout) {
    const int RGB = PHOTOMETRIC_RGB, GREY = PHOTOMETRIC_MINISBLACK;
    const int WHITE = PHOTOMETRIC_MINISWHITE, PALETTE = PHOTOMETRIC_PALETTE;
    const struct {
        const char* name;
        TiffLayout file;
        std::vector<std::uint32_t> samples = {};  // none: random, below 40000 for 16 bits
    } cases[] = {
        {"rgb8 lzw", {37, 21, 3, 8, RGB, false, false, COMPRESSION_LZW}},
        {"rgb8 planar", {37, 21, 3, 8, RGB, true}},
        {"rgba8 planar tiled", {37, 21, 4, 8, RGB, true, true}},
        {"rgb16", {37, 21, 3, 16, RGB}},
        {"rgba16 planar tiled", {37, 21, 4, 16, RGB, true, true}},
        {"rgb16 all zero stays black", {2, 1, 3, 16, RGB}, {0, 0, 0, 0, 0, 0}},
        // The largest colour, 1000, sets the factor, not alpha; 500 becomes 127.5, rounded up.
        {"rgba16 one factor",
         {3, 1, 4, 16, RGB},
         {0, 500, 1, 65535, 1000, 2, 998, 0, 3, 999, 4, 7}},
        {"bilevel min-is-white", {37, 21, 1, 1, WHITE}},
        {"grey16 min-is-white", {37, 21, 1, 16, WHITE}},
        {"grey+alpha planar", {37, 21, 2, 8, GREY, true}},
        {"grey16+alpha", {37, 21, 2, 16, GREY}},
        {"palette4", {37, 21, 1, 4, PALETTE}},
        {"palette8 tiled", {37, 21, 1, 8, PALETTE, false, true}},
        {"rgb8 deflate", {37, 21, 3, 8, RGB, false, false, COMPRESSION_ADOBE_DEFLATE}},
        {"rgba8 lzw planar", {37, 21, 4, 8, RGB, true, false, COMPRESSION_LZW}},
        {"rgb16 deflate planar", {37, 21, 3, 16, RGB, true, false, COMPRESSION_ADOBE_DEFLATE}},
        {"rgba16 lzw tiled", {37, 21, 4, 16, RGB, false, true, COMPRESSION_LZW}},
        {"grey4 deflate tiled", {37, 21, 1, 4, GREY, false, true, COMPRESSION_ADOBE_DEFLATE}},
        {"grey16 packbits", {37, 21, 1, 16, GREY, false, false, COMPRESSION_PACKBITS}},
        // More than a strip buffer may take, so read row by row.
        {"grey8 one strip of 17 MB",
         {4100, 4100, 1, 8, GREY, false, false, COMPRESSION_NONE, 0, 0, RESUNIT_INCH, {}, 1, 4100}},
    };
    TempDir dir;
    for (const auto& [name, s, given] : cases) {
        SCOPED_TRACE(name);
        const std::uint32_t below = s.bits == 16 ? 40000 : 1u << s.bits;
        const auto samples = given.empty()
                                 ? testing::pattern(std::size_t(s.wide * s.high * s.samples), below)
                                 : given;
        testing::writeTiff(dir.file("t.tif"), s, samples);
        const auto expected = expectedRGBA(s, samples);
        for (const unsigned threads : {1u, 3u}) {
            SCOPED_TRACE(threads);
            auto picture = readImageFile(dir.file("t.tif"), {.threads = threads});
            ASSERT_TRUE(picture.ok()) << picture.error().message();
            const Bitmap& b = *picture->bitmap;
            const bool alpha = s.samples % 2 == 0;
            EXPECT_EQ(
                std::tuple(b.isPlanar(), b.samplesPerPixel(), b.hasAlpha(), picture->size),
                std::tuple(s.planar, alpha ? 4 : 3, alpha, Size{float(s.wide), float(s.high)}));
            EXPECT_TRUE(testing::meshedSamples(b) == expected);
        }
    }
}

// 37 x 21 pixels; TIFF resolution, PNG pHYs and BMP pixels per metre all give points.
TEST(Decoders, ResolutionGivesThePictureSizeInPoints) {
    TempDir dir;
    const auto rgb = testing::pattern(37 * 21 * 3, 256);
    const auto tif = [&](const char* name, float x, float y, int unit) {
        testing::writeTiff(dir.file(name),
                           {.wide = 37, .high = 21, .xres = x, .yres = y, .unit = unit}, rgb);
        return dir.file(name);
    };
    testing::writePng(dir.file("p.png"), {.wide = 37, .high = 21, .pixelsPerMetre = 11811}, rgb);
    testing::writeBytes(dir.file("b.bmp"), testing::makeBmp(1, 1, 24, {}, {}, {1, 2, 3, 0}));
    const float dpm = 72.0f / (11811 * 0.0254f);  // points per pixel at 11811 per metre
    const std::pair<std::string, Size> table[] = {
        {tif("a.tif", 300, 300, RESUNIT_INCH), {37 * 0.24f, 21 * 0.24f}},
        {tif("b.tif", 150, 300, RESUNIT_INCH), {37 * 0.48f, 21 * 0.24f}},
        {tif("c.tif", 300 / 2.54f, 300 / 2.54f, RESUNIT_CENTIMETER), {37 * 0.24f, 21 * 0.24f}},
        {tif("d.tif", 300, 300, RESUNIT_NONE), {37, 21}},
        {tif("e.tif", 0, 0, RESUNIT_INCH), {37, 21}},  // no tags
        {dir.file("p.png"), {37 * dpm, 21 * dpm}},
        {dir.file("b.bmp"), {dpm, dpm}},
    };
    for (const auto& [path, expected] : table) {
        auto picture = readImageFile(path);
        ASSERT_TRUE(picture.ok()) << picture.error().message();
        const Size got = picture->size;
        EXPECT_LT(std::hypot(got.width - expected.width, got.height - expected.height), 1e-3)
            << path << ": " << got.width << " x " << got.height;
    }
}

TEST(PngDecoder, ExpandsEveryColourTypeToEightBitRGB) {
    TempDir dir;
    for (int i = 0; i < 16; ++i) {
        const int n = i % 4 + 1, bits = i & 4 ? 16 : 8;  // 1 to 4 samples
        const bool interlaced = i & 8;
        SCOPED_TRACE(::testing::Message() << n << " x " << bits << " interlaced " << interlaced);
        const auto in = testing::pattern(13 * 9 * std::size_t(n), bits == 16 ? 50000 : 256);
        testing::writePng(dir.file("p.png"), {13, 9, n, bits, interlaced}, in);
        auto picture = readImageFile(dir.file("p.png"));
        ASSERT_TRUE(picture.ok()) << picture.error().message();
        // A TIFF of the same samples must look the same.
        const TiffLayout like{13, 9, n, bits, n < 3 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB};
        const Bitmap& b = *picture->bitmap;
        EXPECT_EQ(std::tuple(b.isPlanar(), b.hasAlpha(), testing::meshedSamples(b)),
                  std::tuple(false, n % 2 == 0, expectedRGBA(like, in)));
    }
}

TEST(JpegDecoder, ReadsColourAndGreyWithTheirDensity) {
    const struct {
        int components, unit, density;
        float pointsWide;  // for 64 pixels
    } table[] = {{3, 0, 1, 64}, {3, 1, 300, 64.0f * 72 / 300}, {1, 2, 100, 64.0f * 72 / 254}};
    TempDir dir;
    for (const auto& c : table) {
        // Flat colour survives JPEG closely enough to check the channels; grey repeats red.
        const std::uint32_t rgb[3] = {200, 40, 90};
        std::vector<std::uint32_t> samples(std::size_t(64 * 32 * c.components));
        for (std::size_t i = 0; i < samples.size(); ++i) {
            samples[i] = rgb[i % std::size_t(c.components)];
        }
        testing::writeJpeg(dir.file("j.jpg"), 64, 32, c.components, samples, c.unit, c.density);
        auto picture = readImageFile(dir.file("j.jpg"));
        ASSERT_TRUE(picture.ok()) << picture.error().message();
        EXPECT_EQ(picture->bitmap->samplesPerPixel(), 3);
        EXPECT_NEAR(picture->size.width, c.pointsWide, 1e-3);
        for (int k = 0; k < 3; ++k) {
            EXPECT_NEAR(picture->bitmap->row(0, 17)[3 * 40 + k], rgb[c.components == 1 ? 0 : k], 2);
        }
    }
}

TEST(BmpDecoder, ReadsEveryDepthEitherWayUpAndRefusesRunLength) {
    TempDir dir;
    const std::string path = dir.file("b.bmp");
    // Three by two pixels; stored rows bottom first, padded to 4 bytes; pixels 0xAARRGGBB.
    auto check = [&](int bpp, std::vector<std::uint32_t> palette, std::vector<std::uint32_t> masks,
                     std::vector<std::uint8_t> rows, std::vector<std::uint32_t> pixels) {
        const bool alpha = masks.size() == 4;
        std::vector<std::uint8_t> expected;
        for (std::uint32_t px : pixels) {
            for (int shift = 16; shift >= (alpha ? -8 : 0); shift -= 8) {
                expected.push_back(std::uint8_t(px >> (shift & 31)));  // -8: alpha, bits 24-31
            }
        }
        for (int high : {2, -2}) {  // negative: stored top row first
            testing::writeBytes(path, testing::makeBmp(3, high, bpp, palette, masks, rows));
            auto picture = readImageFile(path);
            ASSERT_TRUE(picture.ok()) << picture.error().message();
            EXPECT_EQ(
                std::pair(picture->bitmap->hasAlpha(), testing::meshedSamples(*picture->bitmap)),
                std::pair(alpha, expected))
                << bpp << " " << high;
            std::rotate(rows.begin(), rows.begin() + std::ptrdiff_t(rows.size() / 2), rows.end());
        }
    };
    const std::vector<std::uint32_t> pal = {0x000000, 0xff0000, 0x00ff00, 0x0000ff};
    const std::vector<std::uint32_t> rgb = {0x0c0b0a, 0x0f0e0d, 0x121110,
                                            0x030201, 0x060504, 0x090807};
    check(1, {0x102030, 0xa0b0c0}, {}, {0b10100000, 0, 0, 0, 0b01000000, 0, 0, 0},
          {0x102030, 0xa0b0c0, 0x102030, 0xa0b0c0, 0x102030, 0xa0b0c0});
    check(4, pal, {}, {0x12, 0x30, 0, 0, 0x32, 0x10, 0, 0},
          {0x0000ff, 0x00ff00, 0xff0000, 0xff0000, 0x00ff00, 0x0000ff});
    check(8, pal, {}, {3, 2, 1, 0, 1, 1, 2, 0},
          {0xff0000, 0xff0000, 0x00ff00, 0x0000ff, 0x00ff00, 0xff0000});
    check(24, {}, {},
          {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0, 10, 11, 12, 13, 14, 15, 16, 17, 18, 0, 0, 0}, rgb);
    check(32, {}, {},
          {1, 2, 3, 99, 4, 5, 6, 99, 7, 8, 9, 99, 10, 11, 12, 99, 13, 14, 15, 99, 16, 17, 18, 99},
          rgb);
    check(16, {}, {0xf800, 0x07e0, 0x001f},
          {0x00, 0xf8, 0xe0, 0x07, 0x1f, 0x00, 0, 0, 0xff, 0xff, 0, 0, 0x10, 0x84, 0, 0},
          {0xffffff, 0x000000, 0x848284, 0xff0000, 0x00ff00, 0x0000ff});
    check(32, {}, {0x0000ff00, 0x00ff0000, 0xff000000, 0x000000ff},
          {7, 1, 2, 3, 8, 4, 5, 6, 9, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21},
          {0x0a0b0c0d, 0x0e0f1011, 0x12131415, 0x07010203, 0x08040506, 0x09070809});

    auto rle = testing::makeBmp(1, 1, 8, {0}, {}, {0, 0, 0, 1});
    rle[30] = 1;  // compression field: 8-bit run length
    testing::writeBytes(path, rle);
    auto refused = readImageFile(path);
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error().message(),
              path +
                  ": compressed (RLE) BMP pictures are not supported; save the picture "
                  "uncompressed or as TIFF");
}

}  // namespace
}  // namespace pv
