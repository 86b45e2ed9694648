#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "TestRaster.h"
#include "controller/WorkingImage.h"

namespace pv {
namespace {

// A rectangle of the red-green scatter gram: X green, Y red.
struct Box {
    int x0, y0, x1, y1;
    bool contains(int x, int y) const { return x >= x0 && x <= x1 && y >= y0 && y <= y1; }
    RegionSelection selection() const {
        return RegionSelection::fromPairTest(
            [this](Point p) { return contains(int(p.x), int(p.y)); });
    }
};

// Brute force: the picture's bytes with every pixel whose pair the box contains white.
std::vector<std::uint8_t> revealedBytes(const Bitmap& b, const Box& box) {
    std::vector<std::uint8_t> bytes = test::bytesOf(b);
    for (int r = 0; r < b.pixelsHigh(); ++r) {
        for (int c = 0; c < b.pixelsWide(); ++c) {
            const int red = b.bitmapData()[test::sampleOffset(b, r, c, 0)];
            const int green = b.bitmapData()[test::sampleOffset(b, r, c, 1)];
            for (int k = 0; k < 3 && box.contains(green, red); ++k) {
                bytes[test::sampleOffset(b, r, c, k)] = 255;
            }
        }
    }
    return bytes;
}

Picture randomPicture(const test::BitmapLayout& layout, int w, int h, std::mt19937& rng) {
    return Picture::at72dpi(test::randomBitmap(
        layout, w, h, rng, [](std::mt19937& g) { return g() % 3 == 0 ? 0 : g() % 60; }));
}

const Box kLow{0, 0, 20, 30};
const Box kHigh{15, 10, 255, 255};

// The revealed picture is painted over only while nobody else holds it, and then shows nothing
// of the region before; a picture handed out never changes.
TEST(WorkingImage, RevealPaintsOverItsLastPictureOnlyWhileNobodyElseHoldsIt) {
    std::mt19937 rng(7);
    const AnalysisState analysis;
    for (int layout : {1, 2}) {
        SCOPED_TRACE(test::kBitmapLayouts[layout].name);
        const Picture picture = randomPicture(test::kBitmapLayouts[layout], 33, 17, rng);
        const std::vector<std::uint8_t> loaded = test::bytesOf(*picture.bitmap);
        WorkingImage image;
        image.load(picture);
        const auto revealed = [&] { return test::bytesOf(*image.revealedImage().bitmap); };

        ASSERT_TRUE(image.reveal(kLow.selection(), analysis, 2));
        EXPECT_EQ(revealed(), revealedBytes(*picture.bitmap, kLow));
        const Bitmap* first = image.revealedImage().bitmap.get();
        ASSERT_TRUE(image.reveal(kHigh.selection(), analysis, 2));
        EXPECT_EQ(image.revealedImage().bitmap.get(), first);
        EXPECT_EQ(revealed(), revealedBytes(*picture.bitmap, kHigh));

        const Picture held = image.revealedImage();
        ASSERT_TRUE(image.reveal(kLow.selection(), analysis, 2));
        EXPECT_NE(image.revealedImage().bitmap, held.bitmap);
        EXPECT_EQ(revealed(), revealedBytes(*picture.bitmap, kLow));
        EXPECT_EQ(test::bytesOf(*held.bitmap), revealedBytes(*picture.bitmap, kHigh));
        EXPECT_EQ(test::bytesOf(*picture.bitmap), loaded);

        // Clearing shows the analysed picture itself, not a copy of it.
        image.clearReveal();
        EXPECT_TRUE(image.revealedImage().isEmpty());
        EXPECT_EQ(image.viewPicture().bitmap, picture.bitmap);
    }
}

// A reveal paints the picture under analysis, corrected or not, into a picture of its layout;
// restoring hands back the loaded picture itself.
TEST(WorkingImage, RevealFollowsThePictureUnderAnalysis) {
    std::mt19937 rng(8);
    const AnalysisState analysis;
    WorkingImage image;
    image.load(randomPicture(test::kBitmapLayouts[0], 40, 9, rng));
    ASSERT_TRUE(image.reveal(kLow.selection(), analysis, 1));
    const Bitmap* first = image.revealedImage().bitmap.get();

    BackgroundSettings settings;
    settings.redThreshold = settings.greenThreshold = settings.blueThreshold = 12;
    ASSERT_TRUE(image.applyBackgroundCorrection(settings, 1));
    ASSERT_NE(image.currentDisplayedImage().bitmap, image.originalImage().bitmap);
    ASSERT_TRUE(image.reveal(kHigh.selection(), analysis, 1));
    EXPECT_EQ(image.revealedImage().bitmap.get(), first);
    EXPECT_EQ(test::bytesOf(*image.revealedImage().bitmap),
              revealedBytes(*image.currentDisplayedImage().bitmap, kHigh));
    image.restore();
    EXPECT_EQ(image.currentDisplayedImage().bitmap, image.originalImage().bitmap);

    const Picture other = randomPicture(test::kBitmapLayouts[2], 21, 13, rng);
    image.load(other);
    ASSERT_TRUE(image.reveal(kLow.selection(), analysis, 1));
    ASSERT_TRUE(image.revealedImage().bitmap->hasLayoutOf(*other.bitmap));
    EXPECT_EQ(test::bytesOf(*image.revealedImage().bitmap), revealedBytes(*other.bitmap, kLow));
}

}  // namespace
}  // namespace pv
