#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <vector>

#include "background/BackgroundCorrection.h"

namespace pv {
namespace {

struct Raster {
    bool planar;
    int w, h, spp, bytesPerRow;
    std::vector<std::vector<std::uint8_t>> planes;
    BitmapInfo info;
    PlaneArray planeArray() {
        PlaneArray p{};
        for (std::size_t k = 0; k < planes.size(); ++k) {
            p[k] = planes[k].data();
        }
        return p;
    }
    std::uint8_t& at(int r, int c, int k) {
        return planar ? planes[std::size_t(k)][std::size_t(r * bytesPerRow + c)]
                      : planes[0][std::size_t(r * bytesPerRow + c * spp + k)];
    }
};

Raster randomRaster(bool planar, int spp, int padding, std::mt19937& rng) {
    Raster img{planar, 75, 9, planar ? 1 : spp, 0, {}, {}};
    img.bytesPerRow = img.w * img.spp + padding;
    img.planes.assign(planar ? 3 : 1,
                      std::vector<std::uint8_t>(std::size_t(img.bytesPerRow * img.h)));
    for (auto& p : img.planes) {
        for (auto& b : p) {
            b = std::uint8_t(rng());
        }
    }
    img.info = BitmapInfo{img.bytesPerRow, planar ? 3 : spp, 8 * img.spp,  img.bytesPerRow * img.h,
                          planar ? 3 : 1,  planar,           float(img.h), float(img.w)};
    return img;
}

// Independent reference: every chosen sample of the first w x h pixels at or below its threshold
// becomes 0.
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
    struct Layout {
        bool planar;
        int spp, padding;
    };
    const Layout layouts[] = {{false, 3, 0}, {false, 4, 6}, {false, 3, 1}, {true, 1, 3}};
    const int thresholds[][3] = {{0, 0, 0},     {25, 50, 75}, {255, 255, 255},
                                 {300, -1, 17}, {-5, -5, -5}, {128, 254, 1}};
    const int sizes[][2] = {{75, 9}, {40, 4}, {1000, 1000}, {0, 5}, {-3, 9}};
    for (const Layout& l : layouts) {
        Raster img = randomRaster(l.planar, l.spp, l.padding, rng);
        for (int channel : {0, 1, 2, 3, 7}) {
            for (const auto& t : thresholds) {
                for (const auto& size : sizes) {
                    SCOPED_TRACE(testing::Message()
                                 << "planar " << l.planar << " spp " << l.spp << " channel "
                                 << channel << " T " << t[0] << "," << t[1] << "," << t[2]
                                 << " size " << size[0] << "x" << size[1]);
                    BackgroundSettings s;
                    s.channel = channel;
                    s.redThreshold = t[0];
                    s.greenThreshold = t[1];
                    s.blueThreshold = t[2];
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
    const Raster img = randomRaster(false, 3, 0, rng);
    auto apply = [](Raster r, std::initializer_list<int> levels) {
        for (int level : levels) {
            BackgroundSettings s;
            s.redThreshold = s.greenThreshold = s.blueThreshold = level;
            removeBackground(r.info, r.planeArray(), r.w, r.h, s);
        }
        return r.planes;
    };
    EXPECT_EQ(apply(img, {25, 50}), apply(img, {50}));
    EXPECT_EQ(apply(img, {50, 25}), apply(img, {50}));
}

TEST(RemoveBackground, GreenOnlyTouchesOffsetOne) {
    std::mt19937 rng(4);
    Raster img = randomRaster(false, 4, 2, rng);
    const Raster before = img;
    BackgroundSettings s;
    s.channel = 1;
    s.redThreshold = s.greenThreshold = s.blueThreshold = 255;
    removeBackground(img.info, img.planeArray(), img.w, img.h, s);
    for (std::size_t i = 0; i < img.planes[0].size(); ++i) {
        const int inRow = int(i) % img.bytesPerRow;
        const bool green = inRow < img.w * 4 && inRow % 4 == 1;
        EXPECT_EQ(img.planes[0][i], green ? 0 : before.planes[0][i]) << i;
    }
}

TEST(BackgroundControls, ActionsSetThresholdsAndKeepFieldsEqual) {
    struct Case {
        int tab, row, slider;
        int expected;
    };
    const Case methods[] = {{0, 0, 90, 25}, {0, 1, 90, 50}, {0, 2, 90, 75}, {0, -1, 90, 25},
                            {0, 5, 90, 25}, {1, 2, 90, 90}, {2, 1, -4, -4}};
    for (const Case& c : methods) {
        BackgroundControls controls;
        controls.selectedTab = c.tab;
        controls.selectedPresetRow = c.row;
        controls.sliderValue = c.slider;
        controls.typedValue = 3;
        controls.currentBackgroundMethod = 0;
        BackgroundSettings s;
        getBackgroundMethod(controls, s);
        EXPECT_EQ(controls.currentBackgroundMethod, 1);
        EXPECT_EQ(s.redThreshold, c.expected);
        EXPECT_EQ(s.greenThreshold, c.expected);
        EXPECT_EQ(s.blueThreshold, c.expected);
        // The manual tab also brings the typed field in line; presets leave it alone.
        EXPECT_EQ(controls.typedValue, c.tab != 0 ? c.slider : 3);
        EXPECT_EQ(s.enteredThreshold, c.tab != 0 ? c.slider : 0);
    }

    BackgroundControls controls;
    BackgroundSettings s;
    controls.sliderValue = 40;
    getThresholdSlider(controls, s);
    EXPECT_EQ(controls.typedValue, 40);
    EXPECT_EQ(s.enteredThreshold, 40);
    EXPECT_EQ(s.greenThreshold, 40);
    controls.typedValue = -7;
    getThresholdEntryValue(controls, s);
    EXPECT_EQ(controls.sliderValue, -7);
    EXPECT_EQ(s.enteredThreshold, -7);
    EXPECT_EQ(s.redThreshold, -7);
    EXPECT_EQ(s.blueThreshold, -7);

    const int items[][2] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {-1, 3}, {9, 3}};
    for (const auto& item : items) {
        controls.channelItem = item[0];
        getRGBChannel(controls, s);
        EXPECT_EQ(s.channel, item[1]);
    }
}

}  // namespace
}  // namespace pv
