#include "background/BackgroundCorrection.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace pv {

namespace {

void setAllThresholds(BackgroundSettings& settings, std::int32_t value) {
    settings.redThreshold = value;
    settings.greenThreshold = value;
    settings.blueThreshold = value;
}

// A run of bytes covering whole pixels, laid out for a loop the compiler turns into vector
// compares against each lane's limit. A limit of 0 only zeroes bytes that are 0 already, which
// serves untouched channels and negative thresholds alike; no byte exceeds 255.
constexpr std::size_t kPatternPixels = 32;

struct LanePattern {
    std::size_t length = 0;
    std::array<std::uint8_t, 8 * kPatternPixels> above{};
};

void setLane(LanePattern& p, std::size_t lane, std::size_t period, std::int32_t threshold) {
    for (std::size_t i = lane; i < p.length; i += period) {
        p.above[i] = std::uint8_t(std::clamp<std::int32_t>(threshold, 0, 255));
    }
}

void thresholdBytes(std::uint8_t* bytes, std::size_t n, const LanePattern& p) {
    const std::uint8_t* above = p.above.data();
    const std::size_t len = p.length;
    std::size_t i = 0;
    for (; i + len <= n; i += len) {
        std::uint8_t* b = bytes + i;
        for (std::size_t j = 0; j < len; ++j) {
            b[j] = zeroedByThreshold(b[j], above[j]) ? 0 : b[j];
        }
    }
    for (std::size_t j = 0; i < n; ++i, ++j) {
        bytes[i] = zeroedByThreshold(bytes[i], above[j]) ? 0 : bytes[i];
    }
}

}  // namespace

void getThresholdSlider(BackgroundControls& controls, BackgroundSettings& settings) {
    const int v = controls.sliderValue;
    settings.enteredThreshold = v;
    controls.typedValue = v;
    setAllThresholds(settings, v);
}

void getThresholdEntryValue(BackgroundControls& controls, BackgroundSettings& settings) {
    const int v = controls.typedValue;
    settings.enteredThreshold = v;
    controls.sliderValue = v;
    setAllThresholds(settings, v);
}

BackgroundChannel backgroundChannelForItem(int item) {
    return item >= 0 && item <= 2 ? BackgroundChannel(item) : BackgroundChannel::All;
}

void getRGBChannel(const BackgroundControls& controls, BackgroundSettings& settings) {
    settings.channel = backgroundChannelForItem(controls.channelItem);
}

void getBackgroundMethod(BackgroundControls& controls, BackgroundSettings& settings) {
    controls.currentBackgroundMethod = 1;
    if (controls.selectedTab != 0) {
        settings.enteredThreshold = controls.sliderValue;
        controls.typedValue = controls.sliderValue;
        setAllThresholds(settings, settings.enteredThreshold);
        return;
    }
    const int row = controls.selectedPresetRow;
    setAllThresholds(settings, row == 1 ? 50 : (row == 2 ? 75 : 25));
}

bool removeBackground(const WritableChannelView& view, const BackgroundSettings& settings,
                      unsigned threads, const CancelHook& cancel) {
    if (view.isEmpty()) {
        return true;
    }
    const std::array<std::int32_t, 3> thresholds = {settings.redThreshold, settings.greenThreshold,
                                                    settings.blueThreshold};
    const bool all = settings.channel == BackgroundChannel::All;
    std::array<bool, 3> chosen{};
    for (int k = 0; k < 3; ++k) {
        chosen[std::size_t(k)] =
            (all || int(settings.channel) == k) && thresholds[std::size_t(k)] >= 0;
    }
    if (!chosen[0] && !chosen[1] && !chosen[2]) {
        return true;
    }
    // Meshed pixels of up to eight samples are thresholded as one run of bytes per row (the
    // lanes beyond the colours keep a limit of 0); anything else one channel at a time.
    const std::size_t stride = std::size_t(view.pixelStride);
    const bool meshed = view.isMeshedRGB() && stride <= 8;
    std::array<LanePattern, 3> patterns;
    if (meshed) {
        patterns[0].length = stride * kPatternPixels;
        for (int k = 0; k < 3; ++k) {
            if (chosen[std::size_t(k)]) {
                setLane(patterns[0], std::size_t(k), stride, thresholds[std::size_t(k)]);
            }
        }
    } else {
        for (std::size_t k = 0; k < 3; ++k) {
            patterns[k].length = kPatternPixels;
            setLane(patterns[k], 0, 1, thresholds[k]);
        }
    }
    const std::size_t rowBytes = std::size_t(view.width) * stride;
    return forEachRowBlock(
        view.height, workersFor(view.height, view.width, threads),
        [&](unsigned, std::int64_t begin, std::int64_t end) {
            for (std::int64_t r = begin; r < end; ++r) {
                if (meshed) {
                    // The last pixel's bytes beyond the colours may be the row's end.
                    std::uint8_t* row = view.sample(0, r, 0);
                    thresholdBytes(row, rowBytes - (stride - 3), patterns[0]);
                    continue;
                }
                for (int k = 0; k < 3; ++k) {
                    if (!chosen[std::size_t(k)]) {
                        continue;
                    }
                    std::uint8_t* p = view.sample(k, r, 0);
                    if (stride == 1) {
                        thresholdBytes(p, std::size_t(view.width), patterns[std::size_t(k)]);
                        continue;
                    }
                    const std::uint8_t limit = patterns[std::size_t(k)].above[0];
                    for (std::int64_t c = 0; c < view.width; ++c) {
                        std::uint8_t& b = p[c * view.pixelStride];
                        b = zeroedByThreshold(b, limit) ? 0 : b;
                    }
                }
            }
        },
        cancel);
}

}  // namespace pv
