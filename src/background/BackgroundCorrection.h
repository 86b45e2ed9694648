#pragma once

#include <cstdint>
#include <optional>

#include "core/ParallelRows.h"
#include "image/Bitmap.h"
#include "image/ChannelView.h"

namespace pv {

// Channel choice and thresholds of the correction; one record for the whole program, kept while
// the window is closed.
enum class BackgroundChannel { Red, Green, Blue, All };

// The channel popup's items: red, green, blue, all; any other item (none selected) is all.
BackgroundChannel backgroundChannelForItem(int item);

struct BackgroundSettings {
    BackgroundChannel channel = BackgroundChannel::All;
    std::int32_t enteredThreshold = 0;
    std::int32_t redThreshold = 0;
    std::int32_t greenThreshold = 0;
    std::int32_t blueThreshold = 0;
};

// The correction's one rule: a sample at or below its channel's threshold becomes 0 (so a
// negative threshold leaves every sample alone).
constexpr bool zeroedByThreshold(int sample, std::int32_t threshold) {
    return sample <= threshold;
}

// Whether the correction with these settings would black the pixel out in the chosen channel:
// that channel's sample, or with all channels every sample, at or below its threshold. What the
// correction window shows before anything is applied. For all channels a single dim sample is
// not enough: in a two-colour image the unused channel is dim everywhere.
inline bool backgroundCovers(const BackgroundSettings& s, std::uint8_t red, std::uint8_t green,
                             std::uint8_t blue) {
    const bool r = zeroedByThreshold(red, s.redThreshold);
    const bool g = zeroedByThreshold(green, s.greenThreshold);
    const bool b = zeroedByThreshold(blue, s.blueThreshold);
    switch (s.channel) {
        case BackgroundChannel::Red:
            return r;
        case BackgroundChannel::Green:
            return g;
        case BackgroundChannel::Blue:
            return b;
        case BackgroundChannel::All:
            break;
    }
    return r && g && b;
}

// The correction window's controls as plain values, and the method field of its controller.
struct BackgroundControls {
    int selectedTab = 0;        // 0 automatic (preset rows), otherwise manual (slider)
    int selectedPresetRow = 0;  // -1: none selected
    int sliderValue = 0;
    int typedValue = 0;
    int channelItem = 3;  // popup: red, green, blue, all; -1: none selected
    std::int32_t currentBackgroundMethod = 1;
};

// The window's actions. The slider and the typed field are kept equal; each sets all three
// thresholds to its value, as typed even where a slider could not show it.
void getThresholdSlider(BackgroundControls& controls, BackgroundSettings& settings);
void getThresholdEntryValue(BackgroundControls& controls, BackgroundSettings& settings);
void getRGBChannel(const BackgroundControls& controls, BackgroundSettings& settings);
// Thresholds afresh from the controls: preset rows 0, 1, 2 give 25, 50, 75 (no row: 25); the
// manual tab takes the slider.
void getBackgroundMethod(BackgroundControls& controls, BackgroundSettings& settings);

// Sets to 0, in place, every sample of the chosen channel (or of all three) at or below its
// threshold. A negative threshold leaves its channel alone. Rows are split among `threads`
// workers (0: one per core). False when cancel stopped it (part corrected).
bool removeBackground(const WritableChannelView& view, const BackgroundSettings& settings,
                      unsigned threads = 0, const CancelHook& cancel = {});

// The same correction written into target, which has source's layout (Bitmap::hasLayoutOf), in
// the pass that reads source: every byte it does not zero (other channels, alpha, padding) is
// the source's, whatever target held. False when the layouts differ (nothing written) or
// cancel stopped it (part written).
bool removeBackground(const Bitmap& source, Bitmap& target, const BackgroundSettings& settings,
                      unsigned threads = 0, const CancelHook& cancel = {});

// The same into a new bitmap. Nothing when memory is short or cancel stopped it.
std::optional<Bitmap> correctedCopy(const Bitmap& source, const BackgroundSettings& settings,
                                    unsigned threads = 0, const CancelHook& cancel = {});

}  // namespace pv
