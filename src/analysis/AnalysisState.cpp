#include "analysis/AnalysisState.h"

namespace pv {

namespace {

// Items 2 and 5 of the channel popup are separators.
constexpr int kPopupIndexes[kRGBComboCount] = {0, 1, 3, 4, 6, 7};

}  // namespace

RGBCombo rgbComboForPopupIndex(int index) {
    for (int c = 0; c < kRGBComboCount; ++c) {
        if (kPopupIndexes[c] == index) {
            return RGBCombo(c);
        }
    }
    return RGBCombo::RedGreen;
}

int popupIndexForRGBCombo(RGBCombo combo) {
    return kPopupIndexes[int(combo)];
}

CensusClass censusClassOf(const MinimumLevels& levels, int red, int green, int blue) {
    const bool r = red > levels.redMinimumLevel;
    const bool g = green > levels.greenMinimumLevel;
    const bool b = blue > levels.blueMinimumLevel;
    const bool r0 = red == 0;
    const bool g0 = green == 0;
    const bool b0 = blue == 0;
    if (r && g0 && b0) {
        return CensusClass::Red;
    }
    if (g && r0 && b0) {
        return CensusClass::Green;
    }
    if (b && r0 && g0) {
        return CensusClass::Blue;
    }
    if (r && g && b0) {
        return CensusClass::Yellow;
    }
    if (r && b && g0) {
        return CensusClass::Magenta;
    }
    if (g && b && r0) {
        return CensusClass::Cyan;
    }
    return CensusClass::None;
}

std::int32_t* PixelCensus::countOf(CensusClass c) {
    switch (c) {
        case CensusClass::Red:
            return &redPixelCount;
        case CensusClass::Green:
            return &greenPixelCount;
        case CensusClass::Blue:
            return &bluePixelCount;
        case CensusClass::Yellow:
            return &yellowPixelCount;
        case CensusClass::Magenta:
            return &magentaPixelCount;
        case CensusClass::Cyan:
            return &cyanPixelCount;
        case CensusClass::None:
            break;
    }
    return nullptr;
}

PixelCensus::PairClasses PixelCensus::forPair(RGBCombo combo) const {
    const std::int32_t byChannel[3] = {redPixelCount, greenPixelCount, bluePixelCount};
    // The mixed class is named by the channel it lacks: blue → yellow, green → magenta.
    const std::int32_t mixed[3] = {cyanPixelCount, magentaPixelCount, yellowPixelCount};
    const ChannelPair pair = channelPairFor(combo);
    return {byChannel[pair.y], byChannel[pair.x], mixed[pair.third]};
}

}  // namespace pv
