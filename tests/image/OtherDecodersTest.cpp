#include <cmath>

#include "image/ImageFile.h"
#include "image/ImageTestFiles.h"

namespace pv {
namespace {

using testing::TempDir;

// ---- PNG ----

struct PngCase {
    const char* name;
    testing::PngSpec spec;
    int channels;
};

TEST(PngDecoder, ExpandsEveryColourTypeToEightBitRGB) {
    testing::PngSpec base;
    base.wide = 13;
    base.high = 9;
    std::vector<PngCase> cases;
    for (bool interlaced : {false, true}) {
        auto s = base;
        s.interlaced = interlaced;
        s.colourType = PNG_COLOR_TYPE_RGB;
        cases.push_back({"rgb", s, 3});
        s.colourType = PNG_COLOR_TYPE_RGB_ALPHA;
        cases.push_back({"rgba", s, 4});
        s.colourType = PNG_COLOR_TYPE_GRAY;
        cases.push_back({"grey", s, 1});
        s.colourType = PNG_COLOR_TYPE_GA;
        cases.push_back({"grey+alpha", s, 2});
    }
    TempDir dir;
    for (const PngCase& c : cases) {
        SCOPED_TRACE(std::string(c.name) + (c.spec.interlaced ? " interlaced" : ""));
        const auto samples = testing::pattern(std::size_t(13 * 9 * c.channels), 256);
        testing::writePng(dir.file("p.png"), c.spec, samples);
        auto picture = readImageFile(dir.file("p.png"));
        ASSERT_TRUE(picture.ok()) << picture.error().message;
        const bool alpha = c.channels % 2 == 0;
        std::vector<std::uint8_t> expected;
        for (std::size_t p = 0; p < 13 * 9; ++p) {
            const std::uint32_t* px = &samples[p * std::size_t(c.channels)];
            for (int k = 0; k < 3; ++k) {
                expected.push_back(std::uint8_t(px[c.channels >= 3 ? k : 0]));
            }
            if (alpha) {
                expected.push_back(std::uint8_t(px[c.channels - 1]));
            }
        }
        EXPECT_FALSE(picture->bitmap->isPlanar());
        EXPECT_EQ(picture->bitmap->hasAlpha(), alpha);
        EXPECT_EQ(testing::meshedSamples(*picture->bitmap), expected);
    }
}

TEST(PngDecoder, PaletteWithTransparencyBecomesRGBA) {
    testing::PngSpec s;
    s.wide = 5;
    s.high = 1;
    s.colourType = PNG_COLOR_TYPE_PALETTE;
    s.bits = 4;
    s.palette = {{10, 20, 30}, {200, 100, 0}, {1, 2, 3}};
    s.paletteAlpha = {255, 0};  // the third entry is opaque by default
    TempDir dir;
    testing::writePng(dir.file("p.png"), s, {0, 1, 2, 1, 0});
    auto picture = readImageFile(dir.file("p.png"));
    ASSERT_TRUE(picture.ok()) << picture.error().message;
    const std::vector<std::uint8_t> expected = {10, 20,  30,  255, 200, 100, 0,  0,  1,  2,
                                                3,  255, 200, 100, 0,   0,   10, 20, 30, 255};
    EXPECT_EQ(testing::meshedSamples(*picture->bitmap), expected);
}

TEST(PngDecoder, SixteenBitScalesByTheLargestColourEvenWhenInterlaced) {
    for (bool interlaced : {false, true}) {
        testing::PngSpec s;
        s.wide = 11;
        s.high = 7;
        s.bits = 16;
        s.interlaced = interlaced;
        s.colourType = PNG_COLOR_TYPE_RGB_ALPHA;
        const auto samples = testing::pattern(11 * 7 * 4, 50000, 3);
        TempDir dir;
        testing::writePng(dir.file("p.png"), s, samples);
        auto picture = readImageFile(dir.file("p.png"));
        ASSERT_TRUE(picture.ok()) << picture.error().message;
        double max = 0;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            if (i % 4 != 3) {
                max = std::max(max, double(samples[i]));
            }
        }
        std::vector<std::uint8_t> expected;
        for (std::size_t i = 0; i < samples.size(); ++i) {
            const double scale = i % 4 == 3 ? 65535.0 : max;
            expected.push_back(std::uint8_t(std::lround(samples[i] * 255.0 / scale)));
        }
        EXPECT_EQ(testing::meshedSamples(*picture->bitmap), expected) << interlaced;
    }
}

TEST(PngDecoder, PhysInMetresGivesDotsPerInch) {
    testing::PngSpec s;
    s.wide = 600;
    s.high = 400;
    s.pixelsPerMetre = 11811;  // 299.9994 dpi
    TempDir dir;
    testing::writePng(dir.file("p.png"), s, testing::pattern(600 * 400 * 3, 256));
    auto picture = readImageFile(dir.file("p.png"));
    ASSERT_TRUE(picture.ok()) << picture.error().message;
    EXPECT_NEAR(picture->size.width, 600.0 / (11811 * 0.0254) * 72.0, 1e-3);
    EXPECT_NEAR(picture->size.height, 400.0 / (11811 * 0.0254) * 72.0, 1e-3);
}

// ---- JPEG ----

TEST(JpegDecoder, ReadsColourAndGreyWithTheirDensity) {
    struct Case {
        int components, unit, density;
        float pointsWide;  // for 64 pixels
    } table[] = {{3, 0, 1, 64.0f},
                 {3, 1, 300, 64.0f * 72 / 300},
                 {1, 2, 100, 64.0f * 72 / 254},
                 {1, 1, 72, 64.0f}};
    TempDir dir;
    for (const Case& c : table) {
        SCOPED_TRACE(c.components);
        // Flat colour survives JPEG exactly enough to check the channels.
        std::vector<std::uint8_t> samples;
        for (int i = 0; i < 64 * 32; ++i) {
            const std::uint8_t rgb[3] = {200, 40, 90};
            samples.insert(samples.end(), rgb, rgb + c.components);
        }
        testing::writeJpeg(dir.file("j.jpg"), 64, 32, c.components, samples, c.unit, c.density);
        auto picture = readImageFile(dir.file("j.jpg"));
        ASSERT_TRUE(picture.ok()) << picture.error().message;
        const Bitmap& b = *picture->bitmap;
        EXPECT_EQ(b.samplesPerPixel(), 3);
        EXPECT_FALSE(b.hasAlpha());
        EXPECT_NEAR(picture->size.width, c.pointsWide, 1e-3);
        const std::uint8_t* px = b.row(0, 17) + 3 * 40;
        if (c.components == 1) {
            EXPECT_EQ(px[0], 200);
            EXPECT_EQ(px[1], 200);
            EXPECT_EQ(px[2], 200);
        } else {
            EXPECT_NEAR(px[0], 200, 2);
            EXPECT_NEAR(px[1], 40, 2);
            EXPECT_NEAR(px[2], 90, 2);
        }
    }
}

// ---- BMP ----

// A BMP written byte by byte: header size 40 (or 108 for masks in the header), given pixels
// as stored rows, bottom-up unless the height is negative.
struct BmpWriter {
    std::vector<std::uint8_t> bytes;
    void u16(std::uint32_t v) {
        bytes.push_back(std::uint8_t(v));
        bytes.push_back(std::uint8_t(v >> 8));
    }
    void u32(std::uint32_t v) {
        u16(v & 0xffff);
        u16(v >> 16);
    }
};

std::vector<std::uint8_t> makeBmp(int wide, int high, int bpp, std::uint32_t compression,
                                  const std::vector<std::uint32_t>& palette,
                                  const std::vector<std::uint32_t>& masks,
                                  const std::vector<std::vector<std::uint8_t>>& storedRows,
                                  int headerSize = 40, std::int32_t pixelsPerMetre = 0) {
    BmpWriter w;
    const std::uint32_t extraMasks = headerSize == 40 ? std::uint32_t(masks.size()) * 4 : 0;
    const std::uint32_t offset =
        14 + std::uint32_t(headerSize) + extraMasks + std::uint32_t(palette.size()) * 4;
    w.bytes = {'B', 'M'};
    w.u32(0);  // file size, unused by readers
    w.u32(0);
    w.u32(offset);
    w.u32(std::uint32_t(headerSize));
    w.u32(std::uint32_t(wide));
    w.u32(std::uint32_t(high));
    w.u16(1);
    w.u16(std::uint32_t(bpp));
    w.u32(compression);
    w.u32(0);
    w.u32(std::uint32_t(pixelsPerMetre));
    w.u32(std::uint32_t(pixelsPerMetre));
    w.u32(std::uint32_t(palette.size()));
    w.u32(0);
    for (std::uint32_t m : masks) {
        w.u32(m);
    }
    while (w.bytes.size() < 14 + std::size_t(headerSize)) {
        w.bytes.push_back(0);
    }
    for (std::uint32_t c : palette) {
        w.u32(c);  // 0x00RRGGBB is stored blue, green, red, 0
    }
    for (const auto& row : storedRows) {
        w.bytes.insert(w.bytes.end(), row.begin(), row.end());
    }
    return w.bytes;
}

TEST(BmpDecoder, ReadsEveryDepth) {
    struct Case {
        const char* name;
        int bpp;
        std::uint32_t compression;
        std::vector<std::uint32_t> palette, masks;
        std::vector<std::vector<std::uint8_t>> rows;  // stored bottom row first, padded to 4
        int headerSize;
        std::vector<std::uint8_t> expected;  // 3 x 2 pixels, top row first
        bool alpha;
    };
    const std::vector<std::uint32_t> pal = {0x000000, 0xff0000, 0x00ff00, 0x0000ff};
    std::vector<Case> table = {
        {"1 bit",
         1,
         0,
         {0x102030, 0xa0b0c0},
         {},
         {{0b10100000, 0, 0, 0}, {0b01000000, 0, 0, 0}},
         40,
         {0x10, 0x20, 0x30, 0xa0, 0xb0, 0xc0, 0x10, 0x20, 0x30, 0xa0, 0xb0, 0xc0, 0x10, 0x20, 0x30,
          0xa0, 0xb0, 0xc0},
         false},
        {"4 bit",
         4,
         0,
         pal,
         {},
         {{0x12, 0x30, 0, 0}, {0x32, 0x10, 0, 0}},
         40,
         {0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255},
         false},
        {"8 bit",
         8,
         0,
         pal,
         {},
         {{3, 2, 1, 0}, {1, 1, 2, 0}},
         40,
         {255, 0, 0, 255, 0, 0, 0, 255, 0, 0, 0, 255, 0, 255, 0, 255, 0, 0},
         false},
        {"24 bit",
         24,
         0,
         {},
         {},
         {{1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0}, {10, 11, 12, 13, 14, 15, 16, 17, 18, 0, 0, 0}},
         40,
         {12, 11, 10, 15, 14, 13, 18, 17, 16, 3, 2, 1, 6, 5, 4, 9, 8, 7},
         false},
        {"32 bit",
         32,
         0,
         {},
         {},
         {{1, 2, 3, 99, 4, 5, 6, 99, 7, 8, 9, 99},
          {10, 11, 12, 99, 13, 14, 15, 99, 16, 17, 18, 99}},
         40,
         {12, 11, 10, 15, 14, 13, 18, 17, 16, 3, 2, 1, 6, 5, 4, 9, 8, 7},
         false},
        {"16 bit 565 bitfields",
         16,
         3,
         {},
         {0xf800, 0x07e0, 0x001f},
         {{0x00, 0xf8, 0xe0, 0x07, 0x1f, 0x00, 0, 0}, {0xff, 0xff, 0, 0, 0x10, 0x84, 0, 0}},
         40,
         {255, 255, 255, 0, 0, 0, 132, 130, 132, 255, 0, 0, 0, 255, 0, 0, 0, 255},
         false},
        {"32 bit bitfields with alpha in a V4 header",
         32,
         3,
         {},
         {0x0000ff00, 0x00ff0000, 0xff000000, 0x000000ff},
         {{7, 1, 2, 3, 8, 4, 5, 6, 9, 7, 8, 9}, {10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21}},
         108,
         {11, 12, 13, 10, 15, 16, 17, 14, 19, 20, 21, 18, 1, 2, 3, 7, 4, 5, 6, 8, 7, 8, 9, 9},
         true},
    };
    TempDir dir;
    for (const Case& c : table) {
        SCOPED_TRACE(c.name);
        for (bool topDown : {false, true}) {
            auto rows = c.rows;
            if (topDown) {
                std::swap(rows[0], rows[1]);
            }
            testing::writeBytes(dir.file("b.bmp"),
                                makeBmp(3, topDown ? -2 : 2, c.bpp, c.compression, c.palette,
                                        c.masks, rows, c.headerSize));
            auto picture = readImageFile(dir.file("b.bmp"));
            ASSERT_TRUE(picture.ok()) << picture.error().message;
            EXPECT_EQ(picture->bitmap->hasAlpha(), c.alpha);
            EXPECT_EQ(testing::meshedSamples(*picture->bitmap), c.expected) << topDown;
        }
    }
}

TEST(BmpDecoder, ResolutionAndRefusals) {
    TempDir dir;
    const std::vector<std::vector<std::uint8_t>> row = {{1, 2, 3, 0}};
    testing::writeBytes(dir.file("r.bmp"), makeBmp(1, 1, 24, 0, {}, {}, row, 40, 11811));
    auto picture = readImageFile(dir.file("r.bmp"));
    ASSERT_TRUE(picture.ok()) << picture.error().message;
    EXPECT_NEAR(picture->size.width, 72.0 / (11811 * 0.0254), 1e-5);

    testing::writeBytes(dir.file("rle.bmp"), makeBmp(1, 1, 8, 1, {0}, {}, {{0, 0, 0, 1}}));
    auto rle = readImageFile(dir.file("rle.bmp"));
    ASSERT_FALSE(rle.ok());
    EXPECT_EQ(rle.error().message,
              dir.file("rle.bmp") +
                  ": compressed (RLE) BMP pictures are not supported; save the "
                  "picture uncompressed or as TIFF");

    testing::writeBytes(dir.file("2bit.bmp"),
                        makeBmp(1, 1, 2, 0, {0, 0, 0, 0}, {}, {{0, 0, 0, 0}}));
    auto twoBit = readImageFile(dir.file("2bit.bmp"));
    ASSERT_FALSE(twoBit.ok());
    EXPECT_NE(twoBit.error().message.find("2 bits per pixel are not supported"), std::string::npos);
}

}  // namespace
}  // namespace pv
