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
// compares: a byte survives when it is above its lane's limit. A limit of 0 keeps every byte (a 0
// stays 0), which serves untouched channels and negative thresholds alike; no byte exceeds 255.
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
            b[j] = b[j] > above[j] ? b[j] : 0;
        }
    }
    for (std::size_t j = 0; i < n; ++i, ++j) {
        bytes[i] = bytes[i] > above[j] ? bytes[i] : 0;
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

void getRGBChannel(const BackgroundControls& controls, BackgroundSettings& settings) {
    const int item = controls.channelItem;
    settings.channel = item >= 0 && item <= 2 ? item : 3;
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

void removeBackground(const BitmapInfo& info, const PlaneArray& planes, int width, int height,
                      const BackgroundSettings& settings) {
    const bool planar = info.isPlanar != 0;
    const long spp = planar ? 1 : info.samplesPerPixel;
    if (planes[0] == nullptr || spp <= 0 || spp > 8 || info.bytesPerRow <= 0) {
        return;
    }
    // Never past the bitmap, whatever the picture's size claims.
    long columns = std::min<long>({long(width), long(info.width), info.bytesPerRow / spp});
    long rows = std::min<long>(long(height), long(info.height));
    if (info.bytesPerPlane > 0) {
        rows = std::min<long>(rows, info.bytesPerPlane / info.bytesPerRow);
    }
    if (columns <= 0 || rows <= 0) {
        return;
    }
    const std::array<std::int32_t, 3> thresholds = {settings.redThreshold, settings.greenThreshold,
                                                    settings.blueThreshold};
    const bool all = settings.channel < 0 || settings.channel > 2;
    const auto chosen = [&](int k) { return (all || settings.channel == k) && thresholds[k] >= 0; };

    if (!planar) {
        LanePattern p;
        p.length = std::size_t(spp) * kPatternPixels;
        bool any = false;
        for (int k = 0; k < 3 && k < spp; ++k) {
            if (chosen(k)) {
                setLane(p, std::size_t(k), std::size_t(spp), thresholds[std::size_t(k)]);
                any = true;
            }
        }
        if (!any) {
            return;
        }
        for (long r = 0; r < rows; ++r) {
            thresholdBytes(planes[0] + r * info.bytesPerRow, std::size_t(columns * spp), p);
        }
        return;
    }
    for (int k = 0; k < 3; ++k) {
        if (!chosen(k) || planes[std::size_t(k)] == nullptr ||
            (info.numberOfPlanes > 0 && k >= info.numberOfPlanes)) {
            continue;
        }
        LanePattern p;
        p.length = kPatternPixels;
        setLane(p, 0, 1, thresholds[std::size_t(k)]);
        for (long r = 0; r < rows; ++r) {
            thresholdBytes(planes[std::size_t(k)] + r * info.bytesPerRow, std::size_t(columns), p);
        }
    }
}

}  // namespace pv
