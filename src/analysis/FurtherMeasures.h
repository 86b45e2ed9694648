#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "analysis/AnalysisState.h"
#include "analysis/PairHistogram.h"

namespace pv {

// How many analysed pixels have each (Y, X) pair, whatever the third channel: index y * 256 + x.
// Every measure here reads only this, so its time does not grow with the picture.
using JointCounts = std::array<std::uint64_t, 256 * 256>;

// Empty counts for a histogram that was never counted.
JointCounts jointCountsOf(const PairHistogram& histogram);

// A pair that occurs, and how many pixels have it.
struct PairCount {
    std::uint16_t bin = 0;  // y * 256 + x
    std::uint64_t count = 0;
};
// The pairs that occur, by increasing bin. The measures read these, so that those of a cell of
// a few pixels cost what its pairs do, not the 65,536 of the whole histogram; the measures of
// the joint counts are those of their pairs.
using PairCounts = std::span<const PairCount>;
std::vector<PairCount> pairCountsOf(const JointCounts& counts);

// Pearson's r of the sums, NaN (never printed as "-nan") when it has no answer: fewer than two
// pixels, or a channel without variance. The variances are checked in exact integers, since
// rounding could otherwise turn 0 / 0 into a huge quotient.
double definedPearson(const PairSums& s);

// The rank measures and ICQ run over the pixels Rr uses: Y > 0 or X > 0.

// Spearman's rho: Pearson's r of the ranks, tied values sharing their average rank. Exact
// up to the last division (twice the ranks are whole numbers, summed in 128 bits).
double spearmansRho(PairCounts counts);
double spearmansRho(const JointCounts& counts);

// Kendall's tau-b from exact counts of concordant, discordant and tied pairs.
double kendallsTauB(PairCounts counts);
double kendallsTauB(const JointCounts& counts);

// Li's intensity correlation quotient: the share of pixels with (Y - mean Y)(X - mean X) > 0,
// less 0.5, so -0.5 ... +0.5.
double intensityCorrelationQuotient(PairCounts counts);
double intensityCorrelationQuotient(const JointCounts& counts);

// Costes' automatic thresholds over every analysed pixel, zeros included. Without `thresholds`
// (a channel constant, or the channels uncorrelated so that the regression has no direction)
// every number is NaN.
struct CostesResult {
    struct Thresholds {
        int y = 0;
        int x = 0;
    };
    std::optional<Thresholds> thresholds;
    double slope = 0.0;  // of the orthogonal regression Y = slope * X + intercept
    double intercept = 0.0;
    double pearsonsAbove = 0.0;  // r of the pixels with X > x threshold and Y > y threshold
    double tM1 = 0.0;            // share of the Y above its threshold where X is above its own
    double tM2 = 0.0;
};
CostesResult costesThresholds(PairCounts counts);
CostesResult costesThresholds(const JointCounts& counts);

}  // namespace pv
