#include "analysis/AnalysisPass.h"

namespace pv {

CensusClass censusClassOf(const AnalysisState& state, int red, int green, int blue) {
    const bool r = red > state.redMinimumLevel;
    const bool g = green > state.greenMinimumLevel;
    const bool b = blue > state.blueMinimumLevel;
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

std::int32_t* censusCountField(AnalysisState& state, CensusClass c) {
    switch (c) {
        case CensusClass::Red:
            return &state.redPixelCount;
        case CensusClass::Green:
            return &state.greenPixelCount;
        case CensusClass::Blue:
            return &state.bluePixelCount;
        case CensusClass::Yellow:
            return &state.yellowPixelCount;
        case CensusClass::Magenta:
            return &state.magentaPixelCount;
        case CensusClass::Cyan:
            return &state.cyanPixelCount;
        case CensusClass::None:
            break;
    }
    return nullptr;
}

void countPixelInCensus(AnalysisState& state, PackedRGB value) {
    state.totalPixelCount += 1;
    if (std::int32_t* count = censusCountField(
            state, censusClassOf(state, redOf(value), greenOf(value), blueOf(value)))) {
        *count += 1;
    }
}

void accumulatePixelSums(AnalysisState& state, PackedRGB value) {
    const ChannelPair pair = channelPairFor(state.rgbCombo);
    const std::int64_t y = channelOf(value, pair.y);
    const std::int64_t x = channelOf(value, pair.x);
    if (x > 0 || y > 0) {
        state.sumPixelsXYAxis += x * y;
        state.sumPixelsXAxis += x;
        state.sumPixelsXSquaredAxis += x * x;
        state.sumPixelsYAxis += y;
        state.sumPixelsYSquaredAxis += y * y;
        state.sumPixelCount += 1;
    }
    if (y > 0) {
        state.sumColocPixelsXAxis += x;
    }
    if (x > 0) {
        state.sumColocPixelsYAxis += y;
    }
}

}  // namespace pv
