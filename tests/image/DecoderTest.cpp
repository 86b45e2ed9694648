#include <algorithm>
#include <cmath>
#include <tuple>

#include "image/ImageFile.h"
#include "image/ImageTestFiles.h"

namespace pv {
namespace {

using testing::TempDir;

std::uint8_t level(double v, double top) {
    return top == 0 ? 0 : std::uint8_t(std::lround(v * 255.0 / top));
}

// 37 x 21 is not a multiple of the tile width nor of 8 pixels; the last strip is short.
testing::TiffLayout tiff(int samples, int bits, int photometric, bool planar = false,
                       bool tiled = false, int compression = COMPRESSION_NONE) {
    testing::TiffLayout s{37, 21, samples, bits, photometric, planar, tiled, compression, 4};
    const std::size_t n = photometric == PHOTOMETRIC_PALETTE ? std::size_t(1) << bits : 0;
    s.colormap.resize(3 * n);
    for (std::size_t i = 0; i < n; ++i) {
        s.colormap[i] = std::uint16_t(i * 65535 / (n - 1));
        s.colormap[n + i] = std::uint16_t(65535 - s.colormap[i]);
        s.colormap[2 * n + i] = std::uint16_t((i * 7919) % 65536);
    }
    return s;
}

// What the picture must look like, computed from the samples without the decoder's code.
std::vector<std::uint8_t> expectedRGBA(const testing::TiffLayout& s,
                                       const std::vector<std::uint32_t>& in) {
    const std::size_t n = std::size_t(s.samples);
    const std::size_t colours = s.photometric == PHOTOMETRIC_RGB ? 3 : 1;
    const double top = double((1u << s.bits) - 1);
    auto colour = [&](std::uint32_t v) {
        return s.photometric == PHOTOMETRIC_MINISWHITE ? top - v : double(v);
    };
    double max = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
        max = i % n < colours ? std::max(max, colour(in[i])) : max;
    }
    const double scale = s.bits == 16 ? max : top;
    const std::size_t entries = s.colormap.size() / 3;
    std::vector<std::uint8_t> out;
    for (std::size_t p = 0; p < in.size(); p += n) {
        for (std::size_t k = 0; k < 3; ++k) {
            out.push_back(entries ? level(s.colormap[k * entries + in[p]], 65535)
                                  : level(colour(in[p + (colours == 3 ? k : 0)]), scale));
        }
        if (n > colours) {
            out.push_back(level(in[p + colours], top));
        }
    }
    return out;
}

TEST(TiffDecoder, DeliversEightBitRGBInTheFilesLayout) {
    const int RGB = PHOTOMETRIC_RGB, GREY = PHOTOMETRIC_MINISBLACK;
    const int WHITE = PHOTOMETRIC_MINISWHITE, PALETTE = PHOTOMETRIC_PALETTE;
    const struct {
        const char* name;
        testing::TiffLayout file;
        std::uint32_t levels = 0;  // 0: every value the bits allow (below 40000 for 16 bits)
    } cases[] = {
        {"rgb8", tiff(3, 8, RGB)},
        {"rgb8 lzw", tiff(3, 8, RGB, false, false, COMPRESSION_LZW)},
        {"rgb8 planar", tiff(3, 8, RGB, true)},
        {"rgba8 planar tiled", tiff(4, 8, RGB, true, true)},
        {"rgb16", tiff(3, 16, RGB)},
        {"rgba16 planar tiled", tiff(4, 16, RGB, true, true)},
        {"rgb16 all zero stays black", tiff(3, 16, RGB), 1},
        {"grey4", tiff(1, 4, GREY)},
        {"bilevel min-is-white", tiff(1, 1, WHITE)},
        {"grey16 min-is-white", tiff(1, 16, WHITE)},
        {"grey+alpha planar", tiff(2, 8, GREY, true)},
        {"grey16+alpha", tiff(2, 16, GREY)},
        {"palette4", tiff(1, 4, PALETTE)},
        {"palette8 tiled", tiff(1, 8, PALETTE, false, true)},
    };
    TempDir dir;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto& s = c.file;
        const std::uint32_t levels = c.levels ? c.levels : s.bits == 16 ? 40000 : 1u << s.bits;
        const auto samples = testing::pattern(std::size_t(s.wide * s.high * s.samples), levels);
        testing::writeTiff(dir.file("t.tif"), s, samples);
        auto picture = readImageFile(dir.file("t.tif"));
        ASSERT_TRUE(picture.ok()) << picture.error().message;
        const Bitmap& b = *picture->bitmap;
        const bool alpha = s.samples % 2 == 0;
        EXPECT_EQ(std::tuple(b.isPlanar(), b.samplesPerPixel(), b.hasAlpha(), picture->size),
                  std::tuple(s.planar, alpha ? 4 : 3, alpha, Size{float(s.wide), float(s.high)}));
        EXPECT_EQ(testing::meshedSamples(b), expectedRGBA(s, samples));
    }
}

TEST(TiffDecoder, SixteenBitColoursShareOneFactorAndAlphaKeepsItsOwn) {
    TempDir dir;
    auto s = tiff(4, 16, PHOTOMETRIC_RGB);
    s.wide = 3;
    s.high = 1;
    // Largest colour 1000 is in green; alpha 65535 must not set the factor.
    testing::writeTiff(dir.file("a.tif"), s, {0, 500, 1, 65535, 1000, 2, 998, 0, 3, 999, 4, 32768});
    auto picture = readImageFile(dir.file("a.tif"));
    ASSERT_TRUE(picture.ok()) << picture.error().message;
    // 500 -> 127.5 -> 128; 2 -> 0.51 -> 1; 998 -> 254.49 -> 254; 999 -> 254.745 -> 255.
    const std::vector<std::uint8_t> expected = {0, 128, 0, 255, 255, 1, 254, 0, 1, 255, 1, 128};
    EXPECT_EQ(testing::meshedSamples(*picture->bitmap), expected);
}

// 37 x 21 pixels; TIFF resolution, PNG pHYs and BMP pixels per metre all give points.
TEST(Decoders, ResolutionGivesThePictureSizeInPoints) {
    TempDir dir;
    const auto tif = [&](const char* name, float x, float y, int unit) {
        auto s = tiff(3, 8, PHOTOMETRIC_RGB);
        s.xres = x, s.yres = y, s.unit = unit;
        testing::writeTiff(dir.file(name), s, testing::pattern(37 * 21 * 3, 256));
        return dir.file(name);
    };
    testing::PngLayout png{37, 21};
    png.pixelsPerMetre = 11811;  // 299.9994 dpi
    testing::writePng(dir.file("p.png"), png, testing::pattern(37 * 21 * 3, 256));
    testing::writeBytes(dir.file("b.bmp"),
                        testing::makeBmp(1, 1, 24, 0, {}, {}, {1, 2, 3, 0}, 11811));
    const float dpm = 72.0f / (11811 * 0.0254f);  // points per pixel at 11811 per metre
    const struct {
        std::string path;
        Size expected;
    } table[] = {
        {tif("a.tif", 300, 300, RESUNIT_INCH), {37 * 0.24f, 21 * 0.24f}},
        {tif("b.tif", 150, 300, RESUNIT_INCH), {37 * 0.48f, 21 * 0.24f}},
        {tif("c.tif", 300 / 2.54f, 300 / 2.54f, RESUNIT_CENTIMETER), {37 * 0.24f, 21 * 0.24f}},
        {tif("d.tif", 300, 300, RESUNIT_NONE), {37, 21}},
        {tif("e.tif", 0, 0, RESUNIT_INCH), {37, 21}},  // no tags
        {dir.file("p.png"), {37 * dpm, 21 * dpm}},
        {dir.file("b.bmp"), {dpm, dpm}},
    };
    for (const auto& r : table) {
        auto picture = readImageFile(r.path);
        ASSERT_TRUE(picture.ok()) << picture.error().message;
        EXPECT_NEAR(picture->size.width, r.expected.width, 1e-3) << r.path;
        EXPECT_NEAR(picture->size.height, r.expected.height, 1e-3) << r.path;
    }
}

TEST(PngDecoder, ExpandsEveryColourTypeToEightBitRGB) {
    const int types[] = {PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GA, PNG_COLOR_TYPE_RGB,
                         PNG_COLOR_TYPE_RGB_ALPHA};  // 1 to 4 samples
    TempDir dir;
    for (int bits : {8, 16}) {
        for (bool interlaced : {false, true}) {
            for (int n = 1; n <= 4; ++n) {
                SCOPED_TRACE(::testing::Message()
                             << n << " x " << bits << " interlaced " << interlaced);
                testing::PngLayout s{13, 9, types[n - 1], bits, interlaced};
                const auto in = testing::pattern(13 * 9 * std::size_t(n), bits == 16 ? 50000 : 256);
                testing::writePng(dir.file("p.png"), s, in);
                auto picture = readImageFile(dir.file("p.png"));
                ASSERT_TRUE(picture.ok()) << picture.error().message;
                // A TIFF of the same samples must look the same.
                const auto like = tiff(n, bits, n < 3 ? PHOTOMETRIC_MINISBLACK : PHOTOMETRIC_RGB);
                EXPECT_FALSE(picture->bitmap->isPlanar());
                EXPECT_EQ(picture->bitmap->hasAlpha(), n % 2 == 0);
                EXPECT_EQ(testing::meshedSamples(*picture->bitmap), expectedRGBA(like, in));
            }
        }
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
        const int rgb[3] = {200, 40, 90};
        std::vector<std::uint8_t> samples(std::size_t(64 * 32 * c.components));
        for (std::size_t i = 0; i < samples.size(); ++i) {
            samples[i] = std::uint8_t(rgb[i % std::size_t(c.components)]);
        }
        testing::writeJpeg(dir.file("j.jpg"), 64, 32, c.components, samples, c.unit, c.density);
        auto picture = readImageFile(dir.file("j.jpg"));
        ASSERT_TRUE(picture.ok()) << picture.error().message;
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
            testing::writeBytes(
                path, testing::makeBmp(3, high, bpp, masks.empty() ? 0 : 3, palette, masks, rows));
            auto picture = readImageFile(path);
            ASSERT_TRUE(picture.ok()) << picture.error().message;
            EXPECT_EQ(picture->bitmap->hasAlpha(), alpha) << bpp;
            EXPECT_EQ(testing::meshedSamples(*picture->bitmap), expected) << bpp << " " << high;
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

    testing::writeBytes(path, testing::makeBmp(1, 1, 8, 1, {0}, {}, {0, 0, 0, 1}));
    auto refused = readImageFile(path);
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error().message,
              path +
                  ": compressed (RLE) BMP pictures are not supported; save the picture "
                  "uncompressed or as TIFF");
}

}  // namespace
}  // namespace pv
