#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "analysis/AnalysisPass.h"
#include "analysis/Coefficients.h"
#include "analysis/TestImages.h"
#include "scattergram/ScatterGram.h"

namespace pv {
namespace {

std::string shown(double v) {
    char text[64];
    std::snprintf(text, sizeof text, "%0.4f", v);
    return text;
}

void computeAll(AnalysisState& s) {
    computePearsons_Rr(s);
    computeOverlap_R(s);
    computeOverlap_k1k2(s);
    computeOverlap_m1m2(s);
}

// Sums of (Y, X) pairs, each counted when either is above 0.
AnalysisState stateOfPairs(const std::vector<std::array<std::int64_t, 2>>& pairs) {
    AnalysisState s;
    for (const auto& [y, x] : pairs) {
        accumulatePixelSums(s, packRGB(std::uint8_t(y), std::uint8_t(x), 0));
    }
    return s;
}

struct Worked {
    const char* name;
    std::vector<std::array<std::int64_t, 2>> pairs;
    std::array<const char*, 6> texts;  // Rr, R, k1, k2, m1, m2
};

TEST(Coefficients, WorkedExamples) {
    const Worked examples[] = {
        {"correlated",
         {{100, 50}, {200, 100}},
         {"1.0000", "1.0000", "0.5000", "2.0000", "1.0000", "1.0000"}},
        {"disjoint",
         {{100, 0}, {0, 80}},
         {"-1.0000", "0.0000", "0.0000", "0.0000", "0.0000", "0.0000"}},
    };
    for (const Worked& w : examples) {
        SCOPED_TRACE(w.name);
        AnalysisState s = stateOfPairs(w.pairs);
        computeAll(s);
        const double values[] = {s.pearsons_Rr, s.overlap_R,  s.overlap_k1,
                                 s.overlap_k2,  s.overlap_m1, s.overlap_m2};
        for (int k = 0; k < 6; ++k) {
            EXPECT_EQ(shown(values[k]), w.texts[std::size_t(k)]) << k;
        }
    }
    // Exactly representable steps of the first example.
    AnalysisState s = stateOfPairs({{100, 50}, {200, 100}});
    computeAll(s);
    EXPECT_EQ(s.pearsons_Rr, 1.0);
    EXPECT_EQ(s.overlap_k1, 0.5);
    EXPECT_EQ(s.overlap_k2, 2.0);
}

TEST(Coefficients, TwoByTwoImageThroughThePass) {
    const std::array<std::uint8_t, 3> pixels[2][2] = {{{100, 0, 0}, {0, 50, 0}},
                                                      {{100, 50, 0}, {0, 0, 0}}};
    const auto img = test::makeImage(2, 2, 3, false, 0, [&](int r, int c) { return pixels[r][c]; });
    AnalysisState s;
    std::vector<std::uint8_t> scatter(kScatterGramBytes);
    PairHistogram hist;
    runAnalysisPass(img.info, img.planes, makeRect(0, 0, 2, 2), s, scatter.data(), hist);
    EXPECT_EQ(s.redPixelCount, 1);
    EXPECT_EQ(s.greenPixelCount, 1);
    EXPECT_EQ(s.yellowPixelCount, 1);
    EXPECT_EQ(s.totalPixelCount, 4);
    EXPECT_EQ(s.sumPixelCount, 3);
    computeAll(s);
    EXPECT_EQ(shown(s.pearsons_Rr), "-0.5000");
    EXPECT_EQ(shown(s.overlap_R), "0.5000");
    EXPECT_EQ(s.overlap_k1, 0.25);
    EXPECT_EQ(s.overlap_k2, 1.0);
    EXPECT_EQ(s.overlap_m1, 0.5);
    EXPECT_EQ(s.overlap_m2, 0.5);
}

TEST(Coefficients, UnguardedDenominators) {
    AnalysisState none;  // no counted pixel
    computeAll(none);
    for (double v : {none.pearsons_Rr, none.overlap_R, none.overlap_k1, none.overlap_k2,
                     none.overlap_m1, none.overlap_m2}) {
        EXPECT_TRUE(std::isnan(v));
    }

    AnalysisState noY = stateOfPairs({{0, 30}, {0, 60}});
    computeAll(noY);
    EXPECT_TRUE(std::isnan(noY.overlap_k1));
    EXPECT_TRUE(std::isnan(noY.overlap_m1));
    EXPECT_EQ(noY.overlap_k2, 0.0);
    EXPECT_TRUE(std::isnan(noY.overlap_R));  // 0 / sqrt(0)

    AnalysisState constantX = stateOfPairs({{10, 5}, {20, 5}});
    computeAll(constantX);
    EXPECT_TRUE(std::isnan(constantX.pearsons_Rr));  // a = b = 0 exactly

    AnalysisState onlyX;  // b = 0 but a < 0 would give -inf: a / sqrt(0)
    onlyX.sumPixelCount = 2;
    onlyX.sumPixelsXYAxis = -1;
    onlyX.sumPixelsYSquaredAxis = 1;
    computePearsons_Rr(onlyX);
    EXPECT_EQ(onlyX.pearsons_Rr, -INFINITY);
}

// Beyond about 11.9 million bright pixels the products of two sums leave 64 bits.
TEST(Coefficients, PearsonStaysExactForHugeSums) {
    const std::int64_t n1 = 12'000'000;  // (Y, X) = (255, 255)
    const std::int64_t n2 = 8'000'000;   // (Y, X) = (100, 200)
    AnalysisState s;
    s.sumPixelCount = n1 + n2;
    s.sumPixelsXAxis = 255 * n1 + 200 * n2;
    s.sumPixelsYAxis = 255 * n1 + 100 * n2;
    s.sumPixelsXYAxis = 255 * 255 * n1 + 100 * 200 * n2;
    s.sumPixelsXSquaredAxis = 255 * 255 * n1 + 200 * 200 * n2;
    s.sumPixelsYSquaredAxis = 255 * 255 * n1 + 100 * 100 * n2;
    ASSERT_GT(static_cast<long double>(s.sumPixelsXAxis) * s.sumPixelsYAxis, 9.3e18L);
    computePearsons_Rr(s);

    // Multiplied through by N, in exact integers, then one long-double square root.
    __extension__ using Wide = __int128;
    const Wide n = s.sumPixelCount;
    const Wide a = n * s.sumPixelsXYAxis - Wide(s.sumPixelsXAxis) * s.sumPixelsYAxis;
    const Wide b = n * s.sumPixelsXSquaredAxis - Wide(s.sumPixelsXAxis) * s.sumPixelsXAxis;
    const Wide c = n * s.sumPixelsYSquaredAxis - Wide(s.sumPixelsYAxis) * s.sumPixelsYAxis;
    const long double want = static_cast<long double>(a) /
                             std::sqrt(static_cast<long double>(b) * static_cast<long double>(c));
    EXPECT_NEAR(s.pearsons_Rr, double(want), 1e-9);
    EXPECT_GT(s.pearsons_Rr, 0.9);
}

}  // namespace
}  // namespace pv
