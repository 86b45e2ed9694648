#pragma once

#include <cstdint>

namespace pv {

// The two channels an analysis compares, Y first, in the order of the channel popup.
enum class RGBCombo : std::int32_t { RedGreen, RedBlue, GreenRed, GreenBlue, BlueRed, BlueGreen };
inline constexpr int kRGBComboCount = 6;

// The pair as channel indices (0 red, 1 green, 2 blue); the third is the one the sums ignore.
struct ChannelPair {
    int y;
    int x;
    int third;
};

constexpr ChannelPair channelPairFor(RGBCombo combo) {
    constexpr ChannelPair pairs[kRGBComboCount] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                                   {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    return pairs[int(combo)];
}

// The channel popup lists the pairs with separators at items 2 and 5; a separator or an item
// out of range selects the first pair.
RGBCombo rgbComboForPopupIndex(int index);
int popupIndexForRGBCombo(RGBCombo combo);

// A sample counts in the census as its channel's colour only when it is above this level.
struct MinimumLevels {
    std::int32_t redMinimumLevel = 0;
    std::int32_t greenMinimumLevel = 0;
    std::int32_t blueMinimumLevel = 0;

    std::int32_t of(int channel) const {
        return channel == 0 ? redMinimumLevel
                            : (channel == 1 ? greenMinimumLevel : blueMinimumLevel);
    }
    bool operator==(const MinimumLevels&) const = default;
};

// Colour classes of the census; at most one holds for a pixel.
enum class CensusClass { None, Red, Green, Blue, Yellow, Magenta, Cyan };

// The census rule: each sample against its minimum level with a strict >, the others against 0.
CensusClass censusClassOf(const MinimumLevels& levels, int red, int green, int blue);

// Pixels by colour class, and all pixels counted. Counts are signed 32-bit because the texts
// are defined on that type.
struct PixelCensus {
    std::int32_t redPixelCount = 0;
    std::int32_t greenPixelCount = 0;
    std::int32_t bluePixelCount = 0;
    std::int32_t yellowPixelCount = 0;
    std::int32_t magentaPixelCount = 0;
    std::int32_t cyanPixelCount = 0;
    std::int32_t totalPixelCount = 0;

    // The count of a class; null for None.
    std::int32_t* countOf(CensusClass c);
    // The counts of the pair's Y class, X class and mixed class (yellow for red and green, ...).
    struct PairClasses {
        std::int32_t y, x, xy;
    };
    PairClasses forPair(RGBCombo combo) const;
};

// Sums of the pair over the whole picture. (0, 0) pixels are left out of all but the
// colocalised sums, which take Y where X > 0 and X where Y > 0.
struct PairSums {
    std::int64_t sumPixelsXYAxis = 0;
    std::int64_t sumPixelsXAxis = 0;
    std::int64_t sumPixelsXSquaredAxis = 0;
    std::int64_t sumPixelsYAxis = 0;
    std::int64_t sumPixelsYSquaredAxis = 0;
    std::int64_t sumPixelCount = 0;
    std::int64_t sumColocPixelsXAxis = 0;
    std::int64_t sumColocPixelsYAxis = 0;
};

// The sums of two sets of pixels taken together.
inline PairSums& operator+=(PairSums& a, const PairSums& b) {
    a.sumPixelsXYAxis += b.sumPixelsXYAxis;
    a.sumPixelsXAxis += b.sumPixelsXAxis;
    a.sumPixelsXSquaredAxis += b.sumPixelsXSquaredAxis;
    a.sumPixelsYAxis += b.sumPixelsYAxis;
    a.sumPixelsYSquaredAxis += b.sumPixelsYSquaredAxis;
    a.sumPixelCount += b.sumPixelCount;
    a.sumColocPixelsXAxis += b.sumColocPixelsXAxis;
    a.sumColocPixelsYAxis += b.sumColocPixelsYAxis;
    return a;
}

// Sums of the pixels a scatter-gram region stands for: Y where Y > 0, X where X > 0, and both
// where both are above 0.
struct RegionSums {
    std::int64_t sumROIColocPixelsXAxis = 0;
    std::int64_t sumROIColocPixelsYAxis = 0;
    std::int64_t sumROIPixelsYAxis = 0;
    std::int64_t sumROIPixelsXAxis = 0;
};

struct ImageCoefficients {
    double pearsons_Rr = 0.0;
    double overlap_R = 0.0;
    double overlap_k1 = 0.0;
    double overlap_k2 = 0.0;
    double overlap_m1 = 0.0;
    double overlap_m2 = 0.0;
};

struct RegionCoefficients {
    double colocalization_M1 = 0.0;
    double colocalization_M2 = 0.0;
};

struct RevealColour {
    std::uint8_t redRevealPixelValue = 255;
    std::uint8_t greenRevealPixelValue = 255;
    std::uint8_t blueRevealPixelValue = 255;
};

// Everything the analysis has computed for the working image. Each record is replaced whole
// (`= {}` resets it) by the step that computes it: the pass gives census and sums, a region
// count gives roiCensus and roiSums, Calculate the coefficients.
struct AnalysisState {
    bool coefficientsCalculated = false;
    bool roiCoefficientsCalculated = false;
    RGBCombo rgbCombo = RGBCombo::RedGreen;
    MinimumLevels levels;

    PixelCensus census;
    PairSums sums;
    PixelCensus roiCensus;
    RegionSums roiSums;
    ImageCoefficients coefficients;
    RegionCoefficients roiCoefficients;

    RevealColour revealColour;
};

}  // namespace pv
