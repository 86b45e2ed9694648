#include <gtest/gtest.h>

#include "image/ImageFile.h"
#include "image/ImageTestFiles.h"
#include "image/Normalization.h"

namespace pv {
namespace {

// A bitmap whose sample k of pixel (x, y) is a value derived from all three, with the row
// padding filled with a marker that must never reach a result.
Bitmap makeSource(int w, int h, int spp, bool planar, int padding) {
    const int rowBytes = (planar ? w : w * spp) + padding;
    auto b = Bitmap::create(w, h, spp, spp == 4, planar, rowBytes);
    EXPECT_TRUE(b.has_value());
    for (int k = 0; k < b->numberOfPlanes(); ++k) {
        std::fill(b->plane(k), b->plane(k) + b->bytesPerPlane(), 0xee);
    }
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            for (int k = 0; k < spp; ++k) {
                const auto v = std::uint8_t(x * 31 + y * 7 + k * 60);
                (planar ? b->row(k, y)[x] : b->row(0, y)[x * spp + k]) = v;
            }
        }
    }
    return std::move(*b);
}

// The first three samples of every pixel, the way the analysis reads colour.
std::vector<std::uint8_t> rgbOf(const Bitmap& b) {
    std::vector<std::uint8_t> out;
    const auto all = testing::meshedSamples(b);
    for (std::size_t i = 0; i < all.size(); i += std::size_t(b.samplesPerPixel())) {
        for (std::size_t k = 0; k < 3; ++k) {
            out.push_back(all[i + (b.samplesPerPixel() >= 3 ? k : 0)]);
        }
    }
    return out;
}

TEST(Normalization, CombinedEffectOfBothConversions) {
    struct Case {
        bool planar;
        int spp;
        float dpi;
        int padding;
    };
    std::vector<Case> table;
    for (bool planar : {false, true}) {
        for (int spp : {1, 3, 4}) {
            for (float dpi : {72.0f, 300.0f, 96.0f}) {
                for (int padding : {0, 5}) {
                    table.push_back({planar, spp, dpi, padding});
                }
            }
        }
    }
    for (const Case& c : table) {
        SCOPED_TRACE(::testing::Message() << "planar " << c.planar << " spp " << c.spp << " dpi "
                                          << c.dpi << " padding " << c.padding);
        const int w = 7, h = 5;
        Bitmap source = makeSource(w, h, c.spp, c.planar, c.padding);
        const auto expected = rgbOf(source);
        Picture file{std::make_shared<const Bitmap>(std::move(source)),
                     Size{w / c.dpi * 72.0f, h / c.dpi * 72.0f}};
        ImageFileInfo info;
        auto b = convertNon72dpiImages(file, info);
        ASSERT_TRUE(b.ok()) << b.error().message;
        EXPECT_FLOAT_EQ(info.horizontalDPI, c.dpi);
        EXPECT_FLOAT_EQ(info.verticalDPI, c.dpi);
        auto converted = convertPlanarImageToNonPlanar(*b);
        ASSERT_TRUE(converted.ok());
        const Picture shown = converted->has_value() ? **converted : *b;

        if (!c.planar && c.dpi == 72.0f) {
            EXPECT_EQ(b->bitmap, file.bitmap) << "a 72-dpi meshed picture is passed on as is";
            EXPECT_FALSE(converted->has_value());
            continue;
        }
        EXPECT_EQ(b->isEmpty(), false);
        EXPECT_EQ(b->bitmap->isPlanar(), c.planar) << "the resolution step keeps the layout";
        EXPECT_EQ(converted->has_value(), c.planar);
        const Bitmap& s = *shown.bitmap;
        EXPECT_FALSE(s.isPlanar());
        EXPECT_EQ(s.samplesPerPixel(), 3);
        EXPECT_FALSE(s.hasAlpha());
        EXPECT_EQ(s.bytesPerRow(), 3 * w);
        EXPECT_EQ(shown.size, (Size{float(w), float(h)}));
        EXPECT_EQ(std::vector<std::uint8_t>(s.plane(0), s.plane(0) + s.bytesPerPlane()), expected);
    }
}

TEST(Normalization, ThreeHundredDpiTiffKeepsItsPixels) {
    testing::TempDir dir;
    testing::TiffSpec t;
    t.wide = 600;
    t.high = 400;
    t.rowsPerStrip = 32;
    t.xres = t.yres = 300.0f;
    const auto samples = testing::pattern(600 * 400 * 3, 256);
    testing::writeTiff(dir.file("cells.tif"), t, samples);
    auto file = readImageFile(dir.file("cells.tif"));
    ASSERT_TRUE(file.ok()) << file.error().message;
    EXPECT_EQ(file->size, (Size{144.0f, 96.0f}));
    ImageFileInfo info;
    auto picture = convertNon72dpiImages(*file, info);
    ASSERT_TRUE(picture.ok());
    EXPECT_EQ(info.horizontalDPI, 300.0f);
    EXPECT_EQ(info.verticalDPI, 300.0f);
    EXPECT_EQ(picture->size, (Size{600.0f, 400.0f}));
    const Bitmap& b = *picture->bitmap;
    EXPECT_EQ(b.pixelsWide(), 600);
    EXPECT_EQ(b.pixelsHigh(), 400);
    EXPECT_FALSE(b.isPlanar());
    const std::vector<std::uint8_t> expected(samples.begin(), samples.end());
    EXPECT_EQ(std::vector<std::uint8_t>(b.plane(0), b.plane(0) + b.bytesPerPlane()), expected);
    EXPECT_FALSE(convertPlanarImageToNonPlanar(*picture)->has_value());
}

TEST(Normalization, EmptyPictureNeedsNothing) {
    ImageFileInfo info;
    info.horizontalDPI = 5.0f;
    const Picture empty;
    auto b = convertNon72dpiImages(empty, info);
    ASSERT_TRUE(b.ok());
    EXPECT_TRUE(b->isEmpty());
    EXPECT_EQ(info.horizontalDPI, 0.0f);
    EXPECT_EQ(info.verticalDPI, 0.0f);
    auto c = convertPlanarImageToNonPlanar(empty);
    ASSERT_TRUE(c.ok());
    EXPECT_FALSE(c->has_value());
}

TEST(Normalization, ExtensionsMatchExactly) {
    const std::vector<std::string> types = {"tif", "JPG", "'TIFF'"};
    struct Case {
        const char* extension;
        bool valid;
    } table[] = {{"tif", true},    {"TIF", false}, {"JPG", true}, {"jpg", false},
                 {"'TIFF'", true}, {"", false},    {"ti", false}};
    for (const Case& c : table) {
        EXPECT_EQ(fileIsValidImageType(types, c.extension), c.valid) << c.extension;
    }
    EXPECT_FALSE(fileIsValidImageType({}, "tif"));
}

}  // namespace
}  // namespace pv
