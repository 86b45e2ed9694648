#include "background/BackgroundCorrection.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>

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
constexpr std::size_t kMaxPatternStride = 8;

struct LanePattern {
    std::size_t length = 0;
    std::array<std::uint8_t, kMaxPatternStride * kPatternPixels> above{};
};

std::uint8_t limitOf(std::int32_t threshold) {
    return std::uint8_t(std::clamp<std::int32_t>(threshold, 0, 255));
}

// Writes the n bytes at from, thresholded, to `to`; the same address corrects in place.
void thresholdBytes(const std::uint8_t* from, std::uint8_t* to, std::size_t n,
                    const LanePattern& p) {
    const std::uint8_t* above = p.above.data();
    const std::size_t len = p.length;
    std::size_t i = 0;
    for (; i + len <= n; i += len) {
        const std::uint8_t* f = from + i;
        std::uint8_t* t = to + i;
        for (std::size_t j = 0; j < len; ++j) {
            t[j] = zeroedByThreshold(f[j], above[j]) ? 0 : f[j];
        }
    }
    for (std::size_t j = 0; i < n; ++i, ++j) {
        to[i] = zeroedByThreshold(from[i], above[j]) ? 0 : from[i];
    }
}

// One row's share of the correction: the bytes from a channel's first sample of the row,
// thresholded lane by lane, or (strided) only that channel's samples.
struct Run {
    int channel = 0;
    std::size_t bytes = 0;
    bool strided = false;
    LanePattern pattern;
};

// How rows are corrected. Meshed pixels (the colours within the first eight bytes of a pixel,
// grey and grey with alpha included) make one run over all of a row's pixels, the other
// samples passing through with a limit of 0; channels that share a sample take the highest
// of their limits, as correcting them one after the other would. Otherwise each chosen
// channel is a run of its own.
struct Plan {
    std::array<Run, 3> runs;
    int count = 0;
    bool anyChosen = false;
    std::ptrdiff_t stride = 0;
    std::int64_t width = 0;
};

template <class View>
Plan planFor(const View& view, const BackgroundSettings& settings) {
    const std::array<std::int32_t, 3> thresholds = {settings.redThreshold, settings.greenThreshold,
                                                    settings.blueThreshold};
    const bool all = settings.channel == BackgroundChannel::All;
    std::array<bool, 3> chosen{};
    Plan plan;
    plan.stride = view.pixelStride;
    plan.width = view.width;
    for (std::size_t k = 0; k < 3; ++k) {
        chosen[k] = (all || int(settings.channel) == int(k)) && thresholds[k] >= 0;
        plan.anyChosen = plan.anyChosen || chosen[k];
    }
    const std::size_t stride = std::size_t(view.pixelStride);
    const std::size_t width = std::size_t(view.width);
    // Addresses as numbers: the channels of a view need not lie in one array.
    std::array<std::uintptr_t, 3> address{};
    for (std::size_t k = 0; k < 3; ++k) {
        address[k] = reinterpret_cast<std::uintptr_t>(view.channel[k]);
    }
    const std::size_t first =
        std::size_t(std::min_element(address.begin(), address.end()) - address.begin());
    std::array<std::size_t, 3> lane{};
    bool meshed = stride <= kMaxPatternStride;
    for (std::size_t k = 0; k < 3; ++k) {
        lane[k] = address[k] - address[first];
        meshed = meshed && lane[k] < stride;
    }
    if (meshed) {
        Run& run = plan.runs[0];
        run.channel = int(first);
        run.pattern.length = stride * kPatternPixels;
        run.bytes = (width - 1) * stride + 1 + std::max({lane[0], lane[1], lane[2]});
        for (std::size_t k = 0; k < 3; ++k) {
            for (std::size_t i = lane[k]; chosen[k] && i < run.pattern.length; i += stride) {
                run.pattern.above[i] = std::max(run.pattern.above[i], limitOf(thresholds[k]));
            }
        }
        plan.count = 1;
        return plan;
    }
    for (std::size_t k = 0; k < 3; ++k) {
        if (!chosen[k]) {
            continue;
        }
        Run* run = nullptr;
        for (int i = 0; i < plan.count; ++i) {
            Run& r = plan.runs[std::size_t(i)];
            run = address[std::size_t(r.channel)] == address[k] ? &r : run;
        }
        if (run == nullptr) {
            run = &plan.runs[std::size_t(plan.count++)];
            run->channel = int(k);
            run->strided = stride > 1;
            run->bytes = run->strided ? 0 : width;
            run->pattern.length = kPatternPixels;
        }
        const std::uint8_t limit = std::max(run->pattern.above[0], limitOf(thresholds[k]));
        std::fill_n(run->pattern.above.begin(), kPatternPixels, limit);
    }
    return plan;
}

void correctRun(const Plan& plan, const Run& run, const std::uint8_t* from, std::uint8_t* to) {
    if (!run.strided) {
        thresholdBytes(from, to, run.bytes, run.pattern);
        return;
    }
    const std::uint8_t limit = run.pattern.above[0];
    for (std::int64_t c = 0; c < plan.width; ++c) {
        const std::ptrdiff_t at = c * plan.stride;
        to[at] = zeroedByThreshold(from[at], limit) ? 0 : from[at];
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
    const Plan plan = planFor(view, settings);
    if (!plan.anyChosen) {
        return true;
    }
    return forEachRowBlock(
        view.height, workersFor(view.height, view.width, threads),
        [&](unsigned, std::int64_t begin, std::int64_t end) {
            for (std::int64_t r = begin; r < end; ++r) {
                for (int i = 0; i < plan.count; ++i) {
                    const Run& run = plan.runs[std::size_t(i)];
                    std::uint8_t* at = view.sample(run.channel, r, 0);
                    correctRun(plan, run, at, at);
                }
            }
        },
        cancel);
}

bool removeBackground(const Bitmap& source, Bitmap& target, const BackgroundSettings& settings,
                      unsigned threads, const CancelHook& cancel) {
    if (!target.hasLayoutOf(source)) {
        return false;
    }
    if (source.isEmpty()) {
        return true;
    }
    const ChannelView from = source.channels();
    const Plan plan = planFor(from, settings);
    // A bitmap's runs start their plane's rows; the rest of each row (padding, the last pixel's
    // samples after the colours) and planes without a run (alpha, unchosen colours) are copied.
    std::array<const Run*, 5> runOf{};
    for (int i = 0; i < plan.count; ++i) {
        const Run& run = plan.runs[std::size_t(i)];
        const std::ptrdiff_t at = from.channel[std::size_t(run.channel)] - source.plane(0);
        runOf[std::size_t(at) / source.bytesPerPlane()] = &run;
    }
    const std::size_t rowBytes = std::size_t(source.bytesPerRow());
    return forEachRowBlock(
        from.height, workersFor(from.height, from.width, threads),
        [&](unsigned, std::int64_t begin, std::int64_t end) {
            for (std::int64_t r = begin; r < end; ++r) {
                for (int k = 0; k < source.numberOfPlanes(); ++k) {
                    const std::uint8_t* in = source.row(k, int(r));
                    std::uint8_t* out = target.row(k, int(r));
                    const Run* run = runOf[std::size_t(k)];
                    // A strided run writes its samples only, over the copied row.
                    const std::size_t written = run != nullptr && !run->strided ? run->bytes : 0;
                    std::memcpy(out + written, in + written, rowBytes - written);
                    if (run != nullptr) {
                        correctRun(plan, *run, in, out);
                    }
                }
            }
        },
        cancel);
}

std::optional<Bitmap> correctedCopy(const Bitmap& source, const BackgroundSettings& settings,
                                    unsigned threads, const CancelHook& cancel) {
    std::optional<Bitmap> target = Bitmap::createLike(source);
    if (!target || !removeBackground(source, *target, settings, threads, cancel)) {
        return std::nullopt;
    }
    return target;
}

}  // namespace pv
