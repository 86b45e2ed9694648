#include <gtest/gtest.h>

#include "analysis/AnalysisPass.h"
#include "analysis/PackedRGB.h"
#include "analysis/TestImages.h"

namespace pv {
namespace {

TEST(PixelAccess, AddressingAndPacking) {
    // Stored rows top first: row r holds samples (r, column, 7).
    const auto img = test::makeImage(4, 3, 3, false, 0, [](int r, int c) {
        return std::array<std::uint8_t, 3>{std::uint8_t(r), std::uint8_t(c), 7};
    });
    EXPECT_EQ(redOf(getPixelColorValues(img.info, img.planes, {0, 0})), 2);
    EXPECT_EQ(redOf(getPixelColorValues(img.info, img.planes, {0, 2})), 0);
    const PackedRGB frac = getPixelColorValues(img.info, img.planes, {2.7f, 1.2f});
    EXPECT_EQ(greenOf(frac), 2);
    EXPECT_EQ(redOf(frac), 1);
    EXPECT_EQ(packRGB(200, 50, 7), 13120007u);
    EXPECT_EQ(packRGB(200, 50, 7), 0xC83207u);
}

TEST(PixelAccess, ChannelPairs) {
    const PackedRGB v = packRGB(9, 10, 20);
    EXPECT_EQ(channelOf(v, channelPairFor(3).y), 10);
    EXPECT_EQ(channelOf(v, channelPairFor(3).x), 20);
    EXPECT_EQ(channelOf(v, channelPairFor(4).y), 20);
    EXPECT_EQ(channelOf(v, channelPairFor(4).x), 9);
    const int popup[][2] = {{0, 0}, {1, 1}, {2, 0}, {3, 2}, {4, 3}, {5, 0}, {6, 4}, {7, 5}, {8, 0}};
    for (const auto& [index, combo] : popup) {
        EXPECT_EQ(rgbComboForPopupIndex(index), combo) << index;
    }
}

struct PixelCase {
    int combo;
    std::array<std::uint8_t, 3> rgb;
    CensusClass cls;
    std::array<std::int64_t, 8> sums;  // XY, X, XX, Y, YY, N, colocX, colocY
};

TEST(PixelSteps, CensusAndSumsOfOnePixel) {
    const PixelCase cases[] = {
        {0, {0, 0, 9}, CensusClass::Blue, {0, 0, 0, 0, 0, 0, 0, 0}},
        {0, {100, 0, 0}, CensusClass::Red, {0, 0, 0, 100, 10000, 1, 0, 0}},
        {0, {100, 50, 0}, CensusClass::Yellow, {5000, 50, 2500, 100, 10000, 1, 50, 100}},
        {0, {100, 50, 1}, CensusClass::None, {5000, 50, 2500, 100, 10000, 1, 50, 100}},
        {0, {0, 0, 0}, CensusClass::None, {0, 0, 0, 0, 0, 0, 0, 0}},
        {1, {100, 0, 5}, CensusClass::Magenta, {500, 5, 25, 100, 10000, 1, 5, 100}},
        {3, {0, 7, 3}, CensusClass::Cyan, {21, 3, 9, 7, 49, 1, 3, 7}},
        {5, {0, 255, 0}, CensusClass::Green, {0, 255, 65025, 0, 0, 1, 0, 0}},
        {8, {255, 255, 0}, CensusClass::Yellow, {65025, 255, 65025, 255, 65025, 1, 255, 255}},
    };
    for (const PixelCase& c : cases) {
        SCOPED_TRACE(testing::Message() << "pair " << c.combo << " pixel " << int(c.rgb[0]) << ","
                                        << int(c.rgb[1]) << "," << int(c.rgb[2]));
        AnalysisState s;
        s.rgbCombo = c.combo;
        const PackedRGB v = packRGB(c.rgb[0], c.rgb[1], c.rgb[2]);
        countPixelInCensus(s, v);
        accumulatePixelSums(s, v);
        EXPECT_EQ(s.totalPixelCount, 1);
        const std::int32_t* counted = censusCountField(s, c.cls);
        for (std::int32_t* f : {&s.redPixelCount, &s.greenPixelCount, &s.bluePixelCount,
                                &s.yellowPixelCount, &s.magentaPixelCount, &s.cyanPixelCount}) {
            EXPECT_EQ(*f, f == counted ? 1 : 0);
        }
        const std::array<std::int64_t, 8> sums = {s.sumPixelsXYAxis,       s.sumPixelsXAxis,
                                                  s.sumPixelsXSquaredAxis, s.sumPixelsYAxis,
                                                  s.sumPixelsYSquaredAxis, s.sumPixelCount,
                                                  s.sumColocPixelsXAxis,   s.sumColocPixelsYAxis};
        EXPECT_EQ(sums, c.sums);
    }
}

TEST(PixelSteps, MinimumLevelsAreStrictAndApplyOnlyToTheirChannel) {
    AnalysisState s;
    s.redMinimumLevel = 10;
    EXPECT_EQ(censusClassOf(s, 10, 0, 0), CensusClass::None);
    EXPECT_EQ(censusClassOf(s, 11, 0, 0), CensusClass::Red);
    EXPECT_EQ(censusClassOf(s, 10, 5, 0), CensusClass::None);  // not green: red is not 0
    EXPECT_EQ(censusClassOf(s, 11, 5, 0), CensusClass::Yellow);
    // The sums ignore the levels.
    s.rgbCombo = 0;
    accumulatePixelSums(s, packRGB(10, 0, 0));
    EXPECT_EQ(s.sumPixelsYAxis, 10);
}

}  // namespace
}  // namespace pv
