#include <gtest/gtest.h>

#include <tuple>

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
                    std::vector<std::uint8_t> expected;  // grey repeats its one sample
                    for (int i = 0; i < w * h * 3; ++i) {
                        const int x = i / 3 % w, y = i / 3 / w, k = spp == 1 ? 0 : i % 3;
                        expected.push_back(std::uint8_t(x * 31 + y * 7 + k * 60));
                    }
                    const Picture file{
                        std::make_shared<const Bitmap>(makeSource(w, h, spp, planar, padding)),
                        Size{w / dpi * 72.0f, h / dpi * 72.0f}};
                    ImageFileInfo info;
                    auto b = convertNon72dpiImages(file, info);
                    ASSERT_TRUE(b.ok()) << b.error().message();
                    EXPECT_EQ(std::pair(info.horizontalDPI, info.verticalDPI), std::pair(dpi, dpi));
                    auto converted = convertPlanarImageToNonPlanar(*b);
                    ASSERT_TRUE(converted.ok());
                    if (!planar && dpi == 72.0f && spp >= 3) {  // passed on as is
                        EXPECT_EQ(std::pair(b->bitmap, converted->has_value()),
                                  std::pair(file.bitmap, false));
                        continue;
                    }
                    // The resolution step keeps the layout, sharing what it can pass on
                    // (anything readable at 72 dpi, plain RGB at any resolution); only a planar
                    // one is converted.
                    const bool shared =
                        (dpi == 72.0f && (planar || spp >= 3)) || (spp == 3 && padding == 0);
                    EXPECT_EQ(std::tuple(b->bitmap->isPlanar(), converted->has_value(),
                                         b->bitmap == file.bitmap),
                              std::tuple(planar, planar, shared));
                    const Picture shown = converted->has_value() ? **converted : *b;
                    const Bitmap& s = *shown.bitmap;
                    EXPECT_EQ(
                        std::tuple(s.isPlanar(), s.samplesPerPixel(), s.hasAlpha(), s.bytesPerRow(),
                                   shown.size,
                                   std::vector(s.plane(0), s.plane(0) + s.bytesPerPlane())),
                        std::tuple(false, 3, false, 3 * w, Size{float(w), float(h)}, expected));
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
    auto c = convertPlanarImageToNonPlanar(empty);
    ASSERT_TRUE(b.ok() && c.ok());
    EXPECT_EQ(std::tuple(b->isEmpty(), info.horizontalDPI, info.verticalDPI, c->has_value()),
              std::tuple(true, 0.0f, 0.0f, false));
}

TEST(Normalization, ExtensionsMatchExactly) {
    const std::vector<std::string> types = {"tif", "JPG", "'TIFF'"};
    const std::pair<const char*, bool> table[] = {{"tif", true},    {"TIF", false}, {"jpg", false},
                                                  {"'TIFF'", true}, {"", false},    {"ti", false}};
    for (const auto& [extension, valid] : table) {
        EXPECT_EQ(fileIsValidImageType(types, extension), valid) << extension;
    }
    EXPECT_FALSE(fileIsValidImageType({}, "tif"));
}

}  // namespace
}  // namespace pv
