#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "analysis/Coefficients.h"

namespace pv {
namespace {

using Pairs = std::vector<std::array<int, 2>>;  // (Y, X) of pair 0

// The sums pixel by pixel, written out from their definition.
ImageCoefficients computedFrom(const Pairs& pairs) {
    PairSums s;
    for (const auto& [y, x] : pairs) {
        if (x > 0 || y > 0) {
            s.sumPixelsXYAxis += x * y;
            s.sumPixelsXAxis += x;
            s.sumPixelsXSquaredAxis += x * x;
            s.sumPixelsYAxis += y;
            s.sumPixelsYSquaredAxis += y * y;
            s.sumPixelCount += 1;
        }
        s.sumColocPixelsXAxis += y > 0 ? x : 0;
        s.sumColocPixelsYAxis += x > 0 ? y : 0;
    }
    return imageCoefficients(s);
}

// Rr R k1 k2 m1 m2 as shown; the sign of a NaN is not part of any rule.
std::string shown(const ImageCoefficients& s) {
    std::string text;
    for (double v :
         {s.pearsons_Rr, s.overlap_R, s.overlap_k1, s.overlap_k2, s.overlap_m1, s.overlap_m2}) {
        char cell[32];
        std::snprintf(cell, sizeof cell, " %0.4f", std::isnan(v) ? NAN : v);
        text += cell;
    }
    return text.substr(1);
}

TEST(Coefficients, WorkedExamples) {
    const std::pair<Pairs, const char*> examples[] = {
        {{{100, 50}, {200, 100}}, "1.0000 1.0000 0.5000 2.0000 1.0000 1.0000"},
        {{{100, 0}, {0, 80}}, "-1.0000 0.0000 0.0000 0.0000 0.0000 0.0000"},
        // The 2 x 2 image (100,0,0), (0,50,0), (100,50,0), (0,0,0).
        {{{100, 0}, {0, 50}, {100, 50}, {0, 0}}, "-0.5000 0.5000 0.2500 1.0000 0.5000 0.5000"},
        // Denominators are not guarded: no counted pixel, no Y, constant X.
        {{}, "nan nan nan nan nan nan"},
        {{{0, 30}, {0, 60}}, "nan nan nan 0.0000 nan 0.0000"},
        {{{10, 5}, {20, 5}}, "nan 0.9487 0.3000 3.0000 1.0000 1.0000"},
    };
    for (const auto& [pairs, texts] : examples) {
        EXPECT_EQ(shown(computedFrom(pairs)), texts);
    }
    // a / sqrt(0) with a < 0.
    PairSums s;
    s.sumPixelCount = 2;
    s.sumPixelsXYAxis = -1;
    s.sumPixelsYSquaredAxis = 1;
    EXPECT_EQ(pearsons_Rr(s), -INFINITY);
}

// Beyond about 11.9 million bright pixels the products of two sums leave 64 bits.
TEST(Coefficients, PearsonStaysExactForHugeSums) {
    const std::int64_t n1 = 12'000'000;  // (Y, X) = (255, 255)
    const std::int64_t n2 = 8'000'000;   // (Y, X) = (100, 200)
    PairSums s;
    s.sumPixelCount = n1 + n2;
    s.sumPixelsXAxis = 255 * n1 + 200 * n2;
    s.sumPixelsYAxis = 255 * n1 + 100 * n2;
    s.sumPixelsXYAxis = 255 * 255 * n1 + 100 * 200 * n2;
    s.sumPixelsXSquaredAxis = 255 * 255 * n1 + 200 * 200 * n2;
    s.sumPixelsYSquaredAxis = 255 * 255 * n1 + 100 * 100 * n2;
    ASSERT_GT(static_cast<long double>(s.sumPixelsXAxis) * s.sumPixelsYAxis, 9.3e18L);
    const double rr = pearsons_Rr(s);

    __extension__ using Wide = __int128;
    const Wide n = s.sumPixelCount;
    const Wide a = n * s.sumPixelsXYAxis - Wide(s.sumPixelsXAxis) * s.sumPixelsYAxis;
    const Wide b = n * s.sumPixelsXSquaredAxis - Wide(s.sumPixelsXAxis) * s.sumPixelsXAxis;
    const Wide c = n * s.sumPixelsYSquaredAxis - Wide(s.sumPixelsYAxis) * s.sumPixelsYAxis;
    const long double want = static_cast<long double>(a) /
                             std::sqrt(static_cast<long double>(b) * static_cast<long double>(c));
    EXPECT_NEAR(rr, double(want), 1e-9);
    EXPECT_GT(rr, 0.9);
}

}  // namespace
}  // namespace pv
