#include <gtest/gtest.h>

#include <random>

#include "TestRaster.h"
#include "background/BackgroundCorrection.h"

namespace pv {
namespace {

using test::Layout;
using test::Raster;

// On samples that are not already 0, a pixel counts as covered exactly when the correction
// turns its chosen samples (all three for all channels) to 0.
TEST(BackgroundCovers, FollowsWhatTheCorrectionDoes) {
    std::mt19937 rng(5);
    Raster img = test::randomRaster(Layout::MeshedRGB, 64, 16, rng,
                                    [](std::mt19937& g) { return 1 + g() % 255; });
    const int thresholds[][3] = {{0, 0, 0},       {1, 1, 1},     {25, 50, 75},  {128, 128, 128},
                                 {254, 254, 254}, {255, 9, 300}, {-3, 200, 100}};
    for (BackgroundChannel channel : {BackgroundChannel::Red, BackgroundChannel::Green,
                                      BackgroundChannel::Blue, BackgroundChannel::All}) {
        for (const auto& t : thresholds) {
            SCOPED_TRACE(testing::Message() << "channel " << int(channel) << " T " << t[0] << ","
                                            << t[1] << "," << t[2]);
            const BackgroundSettings s = {channel, 0, t[0], t[1], t[2]};
            Raster corrected = img;
            removeBackground(corrected.writableView(), s, 1);
            int covered = 0;
            for (int r = 0; r < img.h; ++r) {
                for (int c = 0; c < img.w; ++c) {
                    bool blackedOut = true;
                    for (int k = 0; k < 3; ++k) {
                        if (channel == BackgroundChannel::All || int(channel) == k) {
                            blackedOut = blackedOut && corrected.at(r, c, k) == 0;
                        }
                    }
                    const bool got =
                        backgroundCovers(s, img.at(r, c, 0), img.at(r, c, 1), img.at(r, c, 2));
                    ASSERT_EQ(got, blackedOut) << "row " << r << " column " << c;
                    covered += got ? 1 : 0;
                }
            }
            if (t[0] >= 128 && t[1] >= 128 && t[2] >= 128) {
                EXPECT_GT(covered, 0);  // the case is not vacuous
            }
        }
    }
}

// Samples that are 0 already count as at or below any threshold of 0 or more; with all
// channels a pixel needs every sample there, or a two-colour image (blue 0 everywhere) would be
// covered whole.
TEST(BackgroundCovers, ZeroSamplesAndAllChannels) {
    struct Case {
        BackgroundChannel channel;
        int threshold;
        std::uint8_t r, g, b;
        bool want;
    };
    using C = BackgroundChannel;
    const Case cases[] = {
        {C::Red, 0, 0, 200, 0, true},     {C::Red, -1, 0, 200, 0, false},
        {C::Red, 25, 25, 0, 0, true},     {C::Red, 25, 26, 0, 0, false},
        {C::Green, 25, 0, 25, 255, true}, {C::Blue, 255, 9, 9, 255, true},
        {C::All, 25, 200, 0, 0, false},   {C::All, 25, 20, 0, 0, true},
        {C::All, 25, 20, 30, 0, false},   {C::All, 25, 25, 25, 25, true},
    };
    for (const Case& c : cases) {
        const BackgroundSettings s = {c.channel, 0, c.threshold, c.threshold, c.threshold};
        EXPECT_EQ(backgroundCovers(s, c.r, c.g, c.b), c.want)
            << int(c.channel) << " T " << c.threshold << " (" << int(c.r) << ", " << int(c.g)
            << ", " << int(c.b) << ")";
    }
}

}  // namespace
}  // namespace pv
