#include <gtest/gtest.h>

#include "image/ImageTestFiles.h"
#include "image/Normalization.h"

namespace pv {
namespace {

// Row padding holds a marker that must never reach a result.
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

TEST(Normalization, CombinedEffectOfBothConversions) {
    for (bool planar : {false, true}) {
        for (int spp : {1, 3, 4}) {
            for (float dpi : {72.0f, 300.0f, 96.0f}) {
                for (int padding : {0, 5}) {
                    SCOPED_TRACE(::testing::Message() << "planar " << planar << " spp " << spp
                                                      << " dpi " << dpi << " padding " << padding);
                    const int w = 7, h = 5;
                    Bitmap source = makeSource(w, h, spp, planar, padding);
                    std::vector<std::uint8_t> expected;  // grey repeats its one sample
                    for (int i = 0; i < w * h * 3; ++i) {
                        const int x = i / 3 % w, y = i / 3 / w, k = spp == 1 ? 0 : i % 3;
                        expected.push_back(std::uint8_t(x * 31 + y * 7 + k * 60));
                    }
                    Picture file{std::make_shared<const Bitmap>(std::move(source)),
                                 Size{w / dpi * 72.0f, h / dpi * 72.0f}};
                    ImageFileInfo info;
                    auto b = convertNon72dpiImages(file, info);
                    ASSERT_TRUE(b.ok()) << b.error().message;
                    EXPECT_FLOAT_EQ(info.horizontalDPI, dpi);
                    EXPECT_FLOAT_EQ(info.verticalDPI, dpi);
                    auto converted = convertPlanarImageToNonPlanar(*b);
                    ASSERT_TRUE(converted.ok());
                    const Picture shown = converted->has_value() ? **converted : *b;

                    if (!planar && dpi == 72.0f) {
                        EXPECT_EQ(b->bitmap, file.bitmap)
                            << "a 72-dpi meshed picture is passed on as is";
                        EXPECT_FALSE(converted->has_value());
                        continue;
                    }
                    EXPECT_EQ(b->bitmap->isPlanar(), planar)
                        << "the resolution step keeps the layout";
                    EXPECT_EQ(converted->has_value(), planar);
                    const Bitmap& s = *shown.bitmap;
                    EXPECT_FALSE(s.isPlanar());
                    EXPECT_EQ(s.samplesPerPixel(), 3);
                    EXPECT_FALSE(s.hasAlpha());
                    EXPECT_EQ(s.bytesPerRow(), 3 * w);
                    EXPECT_EQ(shown.size, (Size{float(w), float(h)}));
                    EXPECT_EQ(std::vector<std::uint8_t>(s.plane(0), s.plane(0) + s.bytesPerPlane()),
                              expected);
                }
            }
        }
    }
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
    const std::pair<const char*, bool> table[] = {{"tif", true},  {"TIF", false},   {"JPG", true},
                                                  {"jpg", false}, {"'TIFF'", true}, {"", false},
                                                  {"ti", false}};
    for (const auto& [extension, valid] : table) {
        EXPECT_EQ(fileIsValidImageType(types, extension), valid) << extension;
    }
    EXPECT_FALSE(fileIsValidImageType({}, "tif"));
}

}  // namespace
}  // namespace pv
