#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "TestRaster.h"
#include "background/BackgroundCorrection.h"

namespace pv {
namespace {

using test::Layout;
using test::Raster;

// Rows wide enough to reach the vector loop as well as its tail.
Raster randomRaster(Layout layout, std::mt19937& rng) {
    return test::randomRaster(layout, 75, 9, rng, [](std::mt19937& g) { return g(); });
}

// Independent reference: every chosen colour sample at or below its threshold becomes 0.
Raster thresholded(Raster img, const BackgroundSettings& s) {
    const int t[3] = {s.redThreshold, s.greenThreshold, s.blueThreshold};
    for (int r = 0; r < img.h; ++r) {
        for (int c = 0; c < img.w; ++c) {
            for (int k = 0; k < 3; ++k) {
                const bool chosen = s.channel == BackgroundChannel::All || int(s.channel) == k;
                if (chosen && img.at(r, c, k) <= t[k]) {
                    img.at(r, c, k) = 0;
                }
            }
        }
    }
    return img;
}

TEST(RemoveBackground, MatchesPerSampleRuleForEveryLayoutChannelAndThreshold) {
    std::mt19937 rng(17);
    const int thresholds[][3] = {{0, 0, 0},     {25, 50, 75}, {255, 255, 255},
                                 {300, -1, 17}, {-5, -5, -5}, {128, 254, 1}};
    for (Layout layout : {Layout::MeshedRGB, Layout::PaddedRGBA, Layout::Planar}) {
        const Raster img = randomRaster(layout, rng);
        for (BackgroundChannel channel : {BackgroundChannel::Red, BackgroundChannel::Green,
                                          BackgroundChannel::Blue, BackgroundChannel::All}) {
            for (const auto& t : thresholds) {
                for (unsigned threads : {1u, 3u}) {
                    SCOPED_TRACE(testing::Message()
                                 << "layout " << int(layout) << " channel " << int(channel) << " T "
                                 << t[0] << "," << t[1] << "," << t[2] << " threads " << threads);
                    const BackgroundSettings s = {channel, 0, t[0], t[1], t[2]};
                    Raster got = img;
                    EXPECT_TRUE(removeBackground(got.writableView(), s, threads));
                    EXPECT_EQ(got.planes, thresholded(img, s).planes);
                }
            }
        }
    }
}

// Presets take 25, 50 or 75 by row (25 otherwise) and leave the typed field alone; the manual
// tab takes the slider and brings the field in line.
TEST(BackgroundControls, ActionsSetThresholdsAndKeepFieldsEqual) {
    const int methods[][4] = {{0, 0, 90, 25}, {0, 1, 90, 50}, {0, 2, 90, 75}, {0, -1, 90, 25},
                              {0, 5, 90, 25}, {1, 2, 90, 90}, {2, 1, -4, -4}};
    for (const auto& [tab, row, slider, want] : methods) {
        BackgroundControls controls{tab, row, slider, 3, 3, 0};
        BackgroundSettings s;
        getBackgroundMethod(controls, s);
        EXPECT_EQ(
            std::vector<int>({controls.currentBackgroundMethod, s.redThreshold, s.greenThreshold,
                              s.blueThreshold, s.enteredThreshold, controls.typedValue}),
            std::vector<int>({1, want, want, want, tab ? slider : 0, tab ? slider : 3}));
    }
    BackgroundControls controls;
    BackgroundSettings s;
    const auto all = [&] {
        return std::vector<int>({controls.sliderValue, controls.typedValue, s.enteredThreshold,
                                 s.redThreshold, s.greenThreshold, s.blueThreshold});
    };
    controls.sliderValue = 40;
    getThresholdSlider(controls, s);
    EXPECT_EQ(all(), std::vector<int>(6, 40));
    controls.typedValue = -7;
    getThresholdEntryValue(controls, s);
    EXPECT_EQ(all(), std::vector<int>(6, -7));
    using C = BackgroundChannel;
    for (const auto& [item, channel] : {std::pair{0, C::Red},
                                        {1, C::Green},
                                        {2, C::Blue},
                                        {3, C::All},
                                        {-1, C::All},
                                        {9, C::All}}) {
        controls.channelItem = item;
        getRGBChannel(controls, s);
        EXPECT_EQ(s.channel, channel) << item;
    }
}

}  // namespace
}  // namespace pv
