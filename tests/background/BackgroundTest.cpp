#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <optional>
#include <random>
#include <span>
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

// Pixels too wide for a lane pattern (here ten bytes, the colours at 0, 1 and 7) are corrected
// channel by channel, and their other bytes are left alone.
TEST(RemoveBackground, CorrectsPixelsWiderThanAPattern) {
    std::mt19937 rng(19);
    const int w = 37, h = 5, step = 10, at[3] = {0, 1, 7};
    std::vector<std::uint8_t> bytes(std::size_t(w * h * step));
    for (auto& b : bytes) {
        b = std::uint8_t(rng());
    }
    const BackgroundSettings s = {BackgroundChannel::All, 0, 90, -1, 200};
    std::vector<std::uint8_t> expected = bytes;
    for (int p = 0; p < w * h; ++p) {
        for (int k : {0, 2}) {
            std::uint8_t& b = expected[std::size_t(p * step + at[k])];
            b = b <= (k == 0 ? 90 : 200) ? 0 : b;
        }
    }
    std::array<std::span<std::uint8_t>, 3> channels;
    for (std::size_t k = 0; k < 3; ++k) {
        channels[k] = std::span<std::uint8_t>(bytes).subspan(std::size_t(at[k]));
    }
    const auto view = WritableChannelView::over(channels, step, w * step, w, h);
    ASSERT_TRUE(view && removeBackground(*view, s, 2));
    EXPECT_EQ(bytes, expected);
}

// The per-sample rule on a bitmap, sample by sample through the layout: channels that share a
// sample (grey) are corrected one after the other.
std::vector<std::uint8_t> correctedBytes(const Bitmap& b, const BackgroundSettings& s) {
    std::vector<std::uint8_t> bytes = test::bytesOf(b);
    const int t[3] = {s.redThreshold, s.greenThreshold, s.blueThreshold};
    for (int r = 0; r < b.pixelsHigh(); ++r) {
        for (int c = 0; c < b.pixelsWide(); ++c) {
            for (int k = 0; k < 3; ++k) {
                std::uint8_t& sample = bytes[test::sampleOffset(b, r, c, k)];
                const bool chosen = s.channel == BackgroundChannel::All || int(s.channel) == k;
                sample = chosen && sample <= t[k] ? 0 : sample;
            }
        }
    }
    return bytes;
}

// Correcting into another bitmap (a new one, or one holding other pixels) gives what correcting
// a copy in place gives, byte for byte, in every layout; the source stays as it was.
TEST(CorrectedCopy, MatchesPerSampleRuleForEveryLayoutChannelAndThreshold) {
    std::mt19937 rng(18);
    const int thresholds[][3] = {
        {25, 50, 75}, {255, 255, 255}, {300, -1, 17}, {-5, -5, -5}, {128, 254, 1}};
    for (const test::BitmapLayout& layout : test::kBitmapLayouts) {
        const Bitmap source =
            test::randomBitmap(layout, 75, 9, rng, [](std::mt19937& g) { return g(); });
        const std::vector<std::uint8_t> before = test::bytesOf(source);
        Bitmap stale = test::randomBitmap(layout, 75, 9, rng, [](std::mt19937& g) { return g(); });
        for (BackgroundChannel channel : {BackgroundChannel::Red, BackgroundChannel::Green,
                                          BackgroundChannel::Blue, BackgroundChannel::All}) {
            for (const auto& t : thresholds) {
                SCOPED_TRACE(testing::Message() << layout.name << ", channel " << int(channel)
                                                << ", T " << t[0] << "," << t[1] << "," << t[2]);
                const BackgroundSettings s = {channel, 0, t[0], t[1], t[2]};
                const std::vector<std::uint8_t> expected = correctedBytes(source, s);
                std::optional<Bitmap> inPlace = source.copy();
                ASSERT_TRUE(removeBackground(inPlace->writableChannels(), s, 2));
                EXPECT_EQ(test::bytesOf(*inPlace), expected) << "in place";
                for (unsigned threads : {1u, 3u}) {
                    const std::optional<Bitmap> copy = correctedCopy(source, s, threads);
                    ASSERT_TRUE(copy && copy->hasLayoutOf(source));
                    EXPECT_EQ(test::bytesOf(*copy), expected) << threads << " threads";
                    ASSERT_TRUE(removeBackground(source, stale, s, threads));
                    EXPECT_EQ(test::bytesOf(stale), expected) << threads << " threads, over";
                }
                EXPECT_EQ(test::bytesOf(source), before);
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
