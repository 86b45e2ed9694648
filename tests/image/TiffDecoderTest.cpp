#include <algorithm>
#include <cmath>

#include "image/ImageFile.h"
#include "image/ImageTestFiles.h"

namespace pv {
namespace {

using testing::TempDir;

struct TiffCase {
    const char* name;
    testing::TiffSpec spec;
};

// What the picture must look like, computed from the samples without the decoder's code.
std::vector<std::uint8_t> expectedRGBA(const testing::TiffSpec& s,
                                       const std::vector<std::uint32_t>& samples) {
    const int colours = s.photometric == PHOTOMETRIC_RGB ? 3 : 1;
    const bool alpha = s.samples > colours;
    const double top = double((1u << s.bits) - 1);
    auto colourOf = [&](std::uint32_t v) {
        return s.photometric == PHOTOMETRIC_MINISWHITE ? std::uint32_t(top) - v : v;
    };
    double max = 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        if (int(i % std::size_t(s.samples)) < colours) {
            max = std::max(max, double(colourOf(samples[i])));
        }
    }
    auto level = [&](std::uint32_t raw) -> std::uint8_t {
        const double v = colourOf(raw);
        if (s.bits == 16) {
            return max == 0 ? 0 : std::uint8_t(std::lround(v * 255.0 / max));
        }
        return std::uint8_t(std::lround(v * 255.0 / top));
    };
    std::vector<std::uint8_t> out;
    for (std::size_t p = 0; p < samples.size() / std::size_t(s.samples); ++p) {
        const std::uint32_t* px = &samples[p * std::size_t(s.samples)];
        for (int k = 0; k < 3; ++k) {
            if (s.photometric == PHOTOMETRIC_PALETTE) {
                const std::size_t n = s.colormap.size() / 3;
                out.push_back(std::uint8_t(
                    std::lround(s.colormap[std::size_t(k) * n + px[0]] * 255.0 / 65535.0)));
            } else {
                out.push_back(level(px[colours == 3 ? k : 0]));
            }
        }
        if (alpha) {
            out.push_back(std::uint8_t(std::lround(px[colours] * 255.0 / top)));
        }
    }
    return out;
}

std::vector<std::uint16_t> rampColormap(int bits) {
    const std::size_t n = std::size_t(1) << bits;
    std::vector<std::uint16_t> map(3 * n);
    for (std::size_t i = 0; i < n; ++i) {
        map[i] = std::uint16_t(i * 65535 / (n - 1));
        map[n + i] = std::uint16_t(65535 - map[i]);
        map[2 * n + i] = std::uint16_t((i * 7919) % 65536);
    }
    return map;
}

testing::TiffSpec spec(int samples, int bits, int photometric) {
    testing::TiffSpec s;
    s.samples = samples;
    s.bits = bits;
    s.photometric = photometric;
    s.wide = 37;  // not a multiple of the tile width nor of 8 pixels
    s.high = 21;
    s.rowsPerStrip = 4;
    return s;
}

std::vector<TiffCase> cases() {
    std::vector<TiffCase> c;
    auto add = [&](const char* name, testing::TiffSpec s) { c.push_back({name, s}); };
    auto rgb = spec(3, 8, PHOTOMETRIC_RGB);
    add("rgb8", rgb);
    for (int compression : {COMPRESSION_LZW, COMPRESSION_ADOBE_DEFLATE, COMPRESSION_PACKBITS}) {
        auto s = rgb;
        s.compression = compression;
        add("rgb8 compressed", s);
    }
    auto s = rgb;
    s.planar = true;
    add("rgb8 planar", s);
    s.tiled = true;
    add("rgb8 planar tiled", s);
    s = rgb;
    s.tiled = true;
    s.compression = COMPRESSION_LZW;
    add("rgb8 tiled lzw", s);
    s = rgb;
    s.rowsPerStrip = 21;
    add("rgb8 one strip", s);
    add("rgba8", spec(4, 8, PHOTOMETRIC_RGB));
    s = spec(4, 8, PHOTOMETRIC_RGB);
    s.planar = true;
    add("rgba8 planar", s);
    add("rgb16", spec(3, 16, PHOTOMETRIC_RGB));
    add("rgba16", spec(4, 16, PHOTOMETRIC_RGB));
    s = spec(3, 16, PHOTOMETRIC_RGB);
    s.planar = true;
    s.tiled = true;
    add("rgb16 planar tiled", s);
    add("grey8", spec(1, 8, PHOTOMETRIC_MINISBLACK));
    add("grey16", spec(1, 16, PHOTOMETRIC_MINISBLACK));
    add("grey4", spec(1, 4, PHOTOMETRIC_MINISBLACK));
    add("bilevel", spec(1, 1, PHOTOMETRIC_MINISBLACK));
    add("bilevel min-is-white", spec(1, 1, PHOTOMETRIC_MINISWHITE));
    add("grey8 min-is-white", spec(1, 8, PHOTOMETRIC_MINISWHITE));
    add("grey16 min-is-white", spec(1, 16, PHOTOMETRIC_MINISWHITE));
    add("grey+alpha", spec(2, 8, PHOTOMETRIC_MINISBLACK));
    s = spec(2, 8, PHOTOMETRIC_MINISBLACK);
    s.planar = true;
    add("grey+alpha planar", s);
    s = spec(2, 16, PHOTOMETRIC_MINISBLACK);
    add("grey16+alpha", s);
    for (int bits : {8, 4}) {
        s = spec(1, bits, PHOTOMETRIC_PALETTE);
        s.colormap = rampColormap(bits);
        add("palette", s);
    }
    s = spec(1, 8, PHOTOMETRIC_PALETTE);
    s.colormap = rampColormap(8);
    s.tiled = true;
    add("palette tiled", s);
    return c;
}

TEST(TiffDecoder, DeliversEightBitRGBInTheFilesLayout) {
    TempDir dir;
    int n = 0;
    for (const TiffCase& c : cases()) {
        SCOPED_TRACE(c.name + std::string(" #") + std::to_string(n));
        const auto& s = c.spec;
        const std::string path = dir.file("case" + std::to_string(n++) + ".tif");
        const auto samples = testing::pattern(std::size_t(s.wide * s.high * s.samples),
                                              s.bits == 16 ? 40000 : 1u << s.bits, 11 + n);
        testing::writeTiff(path, s, samples);
        auto picture = readImageFile(path);
        ASSERT_TRUE(picture.ok()) << picture.error().message;
        const Bitmap& b = *picture->bitmap;
        const bool alpha = s.samples > (s.photometric == PHOTOMETRIC_RGB ? 3 : 1);
        EXPECT_EQ(b.pixelsWide(), s.wide);
        EXPECT_EQ(b.pixelsHigh(), s.high);
        EXPECT_EQ(b.isPlanar(), s.planar);
        EXPECT_EQ(b.samplesPerPixel(), alpha ? 4 : 3);
        EXPECT_EQ(b.hasAlpha(), alpha);
        EXPECT_EQ(picture->size, (Size{float(s.wide), float(s.high)}));
        EXPECT_EQ(testing::meshedSamples(b), expectedRGBA(s, samples));
    }
}

TEST(TiffDecoder, SixteenBitColoursShareOneFactorAndAlphaKeepsItsOwn) {
    TempDir dir;
    auto s = spec(4, 16, PHOTOMETRIC_RGB);
    s.wide = 3;
    s.high = 1;
    // Largest colour 1000 is in green; alpha 65535 must not set the factor.
    const std::vector<std::uint32_t> samples = {0,   500, 1, 65535, 1000, 2,
                                                998, 0,   3, 999,   4,    32768};
    testing::writeTiff(dir.file("a.tif"), s, samples);
    auto picture = readImageFile(dir.file("a.tif"));
    ASSERT_TRUE(picture.ok()) << picture.error().message;
    // 500*255/1000 = 127.5 -> 128; 2 -> 0.51 -> 1; 998 -> 254.49 -> 254; 999 -> 254.745 -> 255.
    const std::vector<std::uint8_t> expected = {0, 128, 0, 255, 255, 1, 254, 0, 1, 255, 1, 128};
    EXPECT_EQ(testing::meshedSamples(*picture->bitmap), expected);
}

TEST(TiffDecoder, AllZeroSixteenBitPictureStaysBlack) {
    TempDir dir;
    auto s = spec(3, 16, PHOTOMETRIC_RGB);
    testing::writeTiff(dir.file("z.tif"), s, std::vector<std::uint32_t>(37 * 21 * 3, 0));
    auto picture = readImageFile(dir.file("z.tif"));
    ASSERT_TRUE(picture.ok()) << picture.error().message;
    const auto bytes = testing::meshedSamples(*picture->bitmap);
    EXPECT_TRUE(std::all_of(bytes.begin(), bytes.end(), [](auto v) { return v == 0; }));
}

TEST(TiffDecoder, ResolutionGivesThePictureSizeInPoints) {
    struct Res {
        float x, y;
        int unit;
        Size expected;  // for 600 x 400 pixels
    } table[] = {
        {300.0f, 300.0f, RESUNIT_INCH, {144.0f, 96.0f}},
        {150.0f, 300.0f, RESUNIT_INCH, {288.0f, 96.0f}},
        {300.0f / 2.54f, 300.0f / 2.54f, RESUNIT_CENTIMETER, {144.0f, 96.0f}},
        {300.0f, 300.0f, RESUNIT_NONE, {600.0f, 400.0f}},
        {0.0f, 0.0f, RESUNIT_INCH, {600.0f, 400.0f}},  // no tags
    };
    TempDir dir;
    for (const Res& r : table) {
        SCOPED_TRACE(std::to_string(r.x) + " unit " + std::to_string(r.unit));
        auto s = spec(3, 8, PHOTOMETRIC_RGB);
        s.wide = 600;
        s.high = 400;
        s.rowsPerStrip = 16;
        s.xres = r.x;
        s.yres = r.y;
        s.unit = r.unit;
        testing::writeTiff(dir.file("r.tif"), s, testing::pattern(600 * 400 * 3, 256));
        auto picture = readImageFile(dir.file("r.tif"));
        ASSERT_TRUE(picture.ok()) << picture.error().message;
        EXPECT_NEAR(picture->size.width, r.expected.width, 1e-3);
        EXPECT_NEAR(picture->size.height, r.expected.height, 1e-3);
    }
}

TEST(TiffDecoder, ReadsOnlyTheFirstPage) {
    TempDir dir;
    auto s = spec(3, 8, PHOTOMETRIC_RGB);
    s.extraPage = true;
    const auto samples = testing::pattern(37 * 21 * 3, 256);
    testing::writeTiff(dir.file("pages.tif"), s, samples);
    auto picture = readImageFile(dir.file("pages.tif"));
    ASSERT_TRUE(picture.ok()) << picture.error().message;
    EXPECT_EQ(testing::meshedSamples(*picture->bitmap), expectedRGBA(s, samples));
}

TEST(TiffDecoder, RefusesSamplesItCannotShowInWords) {
    TempDir dir;
    TIFF* t = TIFFOpen(dir.file("float.tif").c_str(), "w");
    ASSERT_NE(t, nullptr);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 2u);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, 1u);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, std::uint16_t(1));
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, std::uint16_t(32));
    TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, std::uint16_t(SAMPLEFORMAT_IEEEFP));
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, std::uint16_t(PHOTOMETRIC_MINISBLACK));
    float row[2] = {0.5f, 1.0f};
    TIFFWriteScanline(t, row, 0, 0);
    TIFFClose(t);
    auto picture = readImageFile(dir.file("float.tif"));
    ASSERT_FALSE(picture.ok());
    EXPECT_EQ(picture.error().message,
              dir.file("float.tif") +
                  ": pictures with signed or floating-point samples are not supported");
}

}  // namespace
}  // namespace pv
