#include "analysis/FurtherMeasures.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <numeric>
#include <vector>

#include "analysis/Coefficients.h"

namespace pv {

namespace {

__extension__ using Int128 = __int128;
__extension__ using UInt128 = unsigned __int128;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kSide = 256;

int yOf(const PairCount& p) {
    return p.bin >> 8;
}

int xOf(const PairCount& p) {
    return p.bin & 0xFF;
}

// The pairs without the (0, 0) pixels, which come first: the pixels Rr uses.
PairCounts rankSet(PairCounts counts) {
    return counts.subspan(!counts.empty() && counts.front().bin == 0 ? 1 : 0);
}

struct Marginals {
    std::array<std::uint64_t, kSide> y{};
    std::array<std::uint64_t, kSide> x{};
    std::uint64_t n = 0;
};

Marginals marginalsOf(PairCounts c) {
    Marginals m;
    for (const PairCount& p : c) {
        m.y[std::size_t(yOf(p))] += p.count;
        m.x[std::size_t(xOf(p))] += p.count;
        m.n += p.count;
    }
    return m;
}

// Twice each value's average rank, less n + 1: whole numbers centred on the mean rank.
std::array<std::int64_t, kSide> centredTwiceRanks(const std::array<std::uint64_t, kSide>& counts,
                                                  std::uint64_t n) {
    std::array<std::int64_t, kSide> r{};
    std::uint64_t below = 0;
    for (std::size_t v = 0; v < kSide; ++v) {
        r[v] = std::int64_t(2 * below + counts[v] + 1) - std::int64_t(n + 1);
        below += counts[v];
    }
    return r;
}

PairSums minus(PairSums a, const PairSums& b) {
    a.sumPixelsXYAxis -= b.sumPixelsXYAxis;
    a.sumPixelsXAxis -= b.sumPixelsXAxis;
    a.sumPixelsXSquaredAxis -= b.sumPixelsXSquaredAxis;
    a.sumPixelsYAxis -= b.sumPixelsYAxis;
    a.sumPixelsYSquaredAxis -= b.sumPixelsYSquaredAxis;
    a.sumPixelCount -= b.sumPixelCount;
    return a;
}

// Adds the sums of one pair's pixels: Costes' search counts the (0, 0) ones too.
void addPair(PairSums& s, const PairCount& p) {
    addToPairSums(s, yOf(p), xOf(p), p.count);
    s.sumPixelCount += p.bin == 0 ? std::int64_t(p.count) : 0;
}

// A corner of the threshold search; outside 0 ... 256 it takes in everything or nothing.
struct Corner {
    std::int64_t x = 0;
    std::int64_t y = 0;
};

// Sums of the pixels with X >= x and Y >= y: of one corner by a pass over the pairs, ...
PairSums sumsFrom(PairCounts c, Corner corner) {
    PairSums s;
    for (const PairCount& p : c) {
        if (xOf(p) >= corner.x && yOf(p) >= corner.y) {
            addPair(s, p);
        }
    }
    return s;
}

// ... and of many in one sweep up from the last row, a tree over the columns that occur holding
// the rows swept, so that the search costs what the pairs do whatever the number of steps.
std::vector<PairSums> sumsFrom(PairCounts c, const std::vector<Corner>& corners) {
    std::array<std::uint64_t, kSide / 64> occurs{};
    for (const PairCount& p : c) {
        occurs[std::size_t(xOf(p)) / 64] |= std::uint64_t(1) << (xOf(p) % 64);
    }
    std::vector<int> columns;
    std::array<std::size_t, kSide> columnOf;  // set for the columns that occur
    for (std::size_t word = 0; word < occurs.size(); ++word) {
        for (std::uint64_t bits = occurs[word]; bits != 0; bits &= bits - 1) {
            const auto x = int(word * 64) + std::countr_zero(bits);
            columnOf[std::size_t(x)] = columns.size();
            columns.push_back(x);
        }
    }
    const std::size_t m = columns.size();
    // Column i sits at m - i of the tree, so that a prefix of the tree is a run of columns
    // from the right.
    std::vector<PairSums> tree(m + 1);
    std::vector<std::size_t> order(corners.size());
    std::iota(order.begin(), order.end(), std::size_t(0));
    std::sort(order.begin(), order.end(),
              [&](std::size_t a, std::size_t b) { return corners[a].y > corners[b].y; });
    std::vector<PairSums> out(corners.size());
    std::size_t unswept = c.size();
    for (const std::size_t q : order) {
        for (; unswept > 0 && yOf(c[unswept - 1]) >= corners[q].y; --unswept) {
            const PairCount& p = c[unswept - 1];
            PairSums s;
            addPair(s, p);
            for (std::size_t i = m - columnOf[std::size_t(xOf(p))]; i <= m; i += i & (~i + 1)) {
                tree[i] += s;
            }
        }
        const auto first = std::size_t(
            std::lower_bound(columns.begin(), columns.end(), corners[q].x) - columns.begin());
        for (std::size_t i = m - first; i > 0; i -= i & (~i + 1)) {
            out[q] += tree[i];
        }
    }
    return out;
}

double quotientOrNaN(std::int64_t a, std::int64_t b) {
    return b == 0 ? kNaN : double(a) / double(b);
}

std::int64_t roundHalfUp(double v) {
    return std::int64_t(std::floor(v + 0.5));
}

}  // namespace

JointCounts jointCountsOf(const PairHistogram& histogram) {
    JointCounts c{};
    if (histogram.counts.size() != std::size_t(PairHistogram::kBins)) {
        return c;
    }
    for (int t = 0; t < histogram.occurringThirdStates(); ++t) {
        const std::uint64_t* plane = &histogram.counts[PairHistogram::binOf(t, 0, 0)];
        for (std::size_t b = 0; b < c.size(); ++b) {
            c[b] += plane[b];
        }
    }
    return c;
}

std::vector<PairCount> pairCountsOf(const JointCounts& counts) {
    std::vector<PairCount> pairs;
    pairs.reserve(std::size_t(
        std::count_if(counts.begin(), counts.end(), [](std::uint64_t k) { return k != 0; })));
    for (std::size_t b = 0; b < counts.size(); ++b) {
        if (counts[b] != 0) {
            pairs.push_back({std::uint16_t(b), counts[b]});
        }
    }
    return pairs;
}

double definedPearson(const PairSums& s) {
    const Int128 n = s.sumPixelCount;
    const Int128 varX = n * s.sumPixelsXSquaredAxis - Int128(s.sumPixelsXAxis) * s.sumPixelsXAxis;
    const Int128 varY = n * s.sumPixelsYSquaredAxis - Int128(s.sumPixelsYAxis) * s.sumPixelsYAxis;
    if (n < 2 || varX == 0 || varY == 0) {
        return kNaN;
    }
    return pearsons_Rr(s);
}

double spearmansRho(PairCounts counts) {
    const PairCounts c = rankSet(counts);
    const Marginals m = marginalsOf(c);
    const auto ry = centredTwiceRanks(m.y, m.n);
    const auto rx = centredTwiceRanks(m.x, m.n);
    Int128 sxy = 0, syy = 0, sxx = 0;
    for (std::size_t v = 0; v < kSide; ++v) {
        syy += Int128(m.y[v]) * ry[v] * ry[v];
        sxx += Int128(m.x[v]) * rx[v] * rx[v];
    }
    for (const PairCount& p : c) {
        sxy += Int128(p.count) * rx[std::size_t(xOf(p))] * ry[std::size_t(yOf(p))];
    }
    if (m.n < 2 || syy == 0 || sxx == 0) {
        return kNaN;
    }
    return double(sxy) / std::sqrt(double(syy) * double(sxx));
}

double kendallsTauB(PairCounts counts) {
    const PairCounts c = rankSet(counts);
    // A tree over X of the pixels in the rows below the one reached, and their count by X.
    std::array<std::uint64_t, kSide + 1> tree{};
    std::array<std::uint64_t, kSide> column{};
    auto leftOf = [&tree](int x) {  // pixels below with X < x
        std::uint64_t n = 0;
        for (auto i = std::size_t(x); i > 0; i -= i & (~i + 1)) {
            n += tree[i];
        }
        return n;
    };
    // Each pair is counted once, from its member with the larger Y.
    UInt128 concordant = 0, discordant = 0;
    std::uint64_t rowsBelow = 0;
    for (std::size_t row = 0; row < c.size();) {
        std::size_t end = row;
        for (; end < c.size() && yOf(c[end]) == yOf(c[row]); ++end) {
            const std::uint64_t k = c[end].count, left = leftOf(xOf(c[end]));
            concordant += UInt128(k) * left;
            discordant += UInt128(k) * (rowsBelow - left - column[std::size_t(xOf(c[end]))]);
        }
        for (; row < end; ++row) {
            for (auto i = std::size_t(xOf(c[row])) + 1; i <= kSide; i += i & (~i + 1)) {
                tree[i] += c[row].count;
            }
            column[std::size_t(xOf(c[row]))] += c[row].count;
            rowsBelow += c[row].count;
        }
    }
    const Marginals m = marginalsOf(c);
    auto pairsOf = [](std::uint64_t k) { return UInt128(k) * (k == 0 ? 0 : k - 1) / 2; };
    UInt128 tiedY = 0, tiedX = 0;
    for (std::size_t v = 0; v < kSide; ++v) {
        tiedY += pairsOf(m.y[v]);
        tiedX += pairsOf(m.x[v]);
    }
    const UInt128 all = pairsOf(m.n);
    if (all == tiedY || all == tiedX) {
        return kNaN;
    }
    const double difference = concordant >= discordant ? double(concordant - discordant)
                                                       : -double(discordant - concordant);
    return difference / std::sqrt(double(all - tiedY) * double(all - tiedX));
}

double intensityCorrelationQuotient(PairCounts counts) {
    const PairCounts c = rankSet(counts);
    std::int64_t n = 0, sumY = 0, sumX = 0;
    for (const PairCount& p : c) {
        n += std::int64_t(p.count);
        sumY += std::int64_t(p.count) * yOf(p);
        sumX += std::int64_t(p.count) * xOf(p);
    }
    if (n == 0) {
        return kNaN;
    }
    // n * (v - mean) keeps the sign test in whole numbers.
    std::uint64_t positive = 0;
    for (const PairCount& p : c) {
        const std::int64_t dy = n * yOf(p) - sumY;
        const std::int64_t dx = n * xOf(p) - sumX;
        if ((dy > 0 && dx > 0) || (dy < 0 && dx < 0)) {
            positive += p.count;
        }
    }
    return double(positive) / double(n) - 0.5;
}

CostesResult costesThresholds(PairCounts counts) {
    CostesResult result{{}, kNaN, kNaN, kNaN, kNaN, kNaN};
    const PairSums all = sumsFrom(counts, Corner{0, 0});
    const Int128 n = all.sumPixelCount;
    // n times the central sums, exact.
    const Int128 sxx =
        n * all.sumPixelsXSquaredAxis - Int128(all.sumPixelsXAxis) * all.sumPixelsXAxis;
    const Int128 syy =
        n * all.sumPixelsYSquaredAxis - Int128(all.sumPixelsYAxis) * all.sumPixelsYAxis;
    const Int128 sxy = n * all.sumPixelsXYAxis - Int128(all.sumPixelsXAxis) * all.sumPixelsYAxis;
    if (sxx == 0 || syy == 0 || sxy == 0) {
        return result;
    }
    const double dxx = double(sxx), dyy = double(syy), dxy = double(sxy);
    const double a = (dyy - dxx + std::sqrt((dyy - dxx) * (dyy - dxx) + 4 * dxy * dxy)) / (2 * dxy);
    const double b = (double(all.sumPixelsYAxis) - a * double(all.sumPixelsXAxis)) / double(n);
    result.slope = a;
    result.intercept = b;

    const bool alongX = -1 < a && a < 1;
    std::int64_t top = 0;  // the largest value of the walked channel
    for (const PairCount& p : counts) {
        top = std::max<std::int64_t>(top, alongX ? xOf(p) : yOf(p));
    }
    // The corners of every step are known before any is taken, so their sums come in one sweep.
    std::vector<Corner> steps;
    for (std::int64_t t = top; t >= 0; --t) {
        const std::int64_t tx = alongX ? t : roundHalfUp((double(t) - b) / a);
        const std::int64_t ty = alongX ? roundHalfUp(a * double(t) + b) : t;
        steps.push_back(
            {std::clamp<std::int64_t>(tx, 0, kSide), std::clamp<std::int64_t>(ty, 0, kSide)});
    }
    const std::vector<PairSums> beyond = sumsFrom(counts, steps);
    Corner last;
    for (std::size_t i = 0; i < steps.size(); ++i) {
        last = steps[i];
        if (!(definedPearson(minus(all, beyond[i])) > 0)) {
            break;
        }
    }
    const int x = int(std::min<std::int64_t>(last.x, 255));
    const int y = int(std::min<std::int64_t>(last.y, 255));
    result.thresholds = CostesResult::Thresholds{y, x};
    const PairSums above = sumsFrom(counts, Corner{x + 1, y + 1});
    result.pearsonsAbove = definedPearson(above);
    result.tM1 =
        quotientOrNaN(above.sumPixelsYAxis, sumsFrom(counts, Corner{0, y + 1}).sumPixelsYAxis);
    result.tM2 =
        quotientOrNaN(above.sumPixelsXAxis, sumsFrom(counts, Corner{x + 1, 0}).sumPixelsXAxis);
    return result;
}

double spearmansRho(const JointCounts& counts) {
    return spearmansRho(pairCountsOf(counts));
}

double kendallsTauB(const JointCounts& counts) {
    return kendallsTauB(pairCountsOf(counts));
}

double intensityCorrelationQuotient(const JointCounts& counts) {
    return intensityCorrelationQuotient(pairCountsOf(counts));
}

CostesResult costesThresholds(const JointCounts& counts) {
    return costesThresholds(pairCountsOf(counts));
}

}  // namespace pv
