#include <gtest/gtest.h>

#include <algorithm>
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

// Independent reference: every chosen sample of the first w x h pixels at or below its
// threshold becomes 0.
Raster thresholded(Raster img, int w, int h, const BackgroundSettings& s) {
    const int t[3] = {s.redThreshold, s.greenThreshold, s.blueThreshold};
    for (int r = 0; r < std::min(h, img.h); ++r) {
        for (int c = 0; c < std::min(w, img.w); ++c) {
            for (int k = 0; k < 3; ++k) {
                const bool chosen = s.channel == k || s.channel < 0 || s.channel > 2;
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
    const int sizes[][2] = {{75, 9}, {40, 4}, {1000, 1000}, {0, 5}, {-3, 9}};
    for (Layout layout : {Layout::MeshedRGB, Layout::PaddedRGBA, Layout::Planar}) {
        const Raster img = randomRaster(layout, rng);
        for (int channel : {0, 1, 2, 3, 7}) {
            for (const auto& t : thresholds) {
                for (const auto& size : sizes) {
                    SCOPED_TRACE(testing::Message()
                                 << "layout " << int(layout) << " channel " << channel << " T "
                                 << t[0] << "," << t[1] << "," << t[2] << " size " << size[0]);
                    const BackgroundSettings s = {channel, 0, t[0], t[1], t[2]};
                    Raster got = img;
                    removeBackground(got.info, got.planeArray(), size[0], size[1], s);
                    EXPECT_EQ(got.planes, thresholded(img, size[0], size[1], s).planes);
                }
            }
        }
    }
}

TEST(RemoveBackground, CorrectionsAccumulate) {
    std::mt19937 rng(2);
    const Raster img = randomRaster(Layout::MeshedRGB, rng);
    const auto apply = [](Raster r, std::initializer_list<int> levels) {
        for (int level : levels) {
            removeBackground(r.info, r.planeArray(), r.w, r.h, {3, 0, level, level, level});
        }
        return r.planes;
    };
    EXPECT_EQ(apply(img, {25, 50}), apply(img, {50}));
    EXPECT_EQ(apply(img, {50, 25}), apply(img, {50}));
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
    for (const auto& [item, channel] : {std::pair{0, 0}, {2, 2}, {3, 3}, {-1, 3}, {9, 3}}) {
        controls.channelItem = item;
        getRGBChannel(controls, s);
        EXPECT_EQ(s.channel, channel);
    }
}

}  // namespace
}  // namespace pv
