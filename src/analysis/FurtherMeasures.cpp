#include "analysis/FurtherMeasures.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "analysis/Coefficients.h"

namespace pv {

namespace {

__extension__ using Int128 = __int128;
__extension__ using UInt128 = unsigned __int128;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::size_t kSide = 256;

// The counts without the (0, 0) pixels: the pixels Rr uses.
JointCounts rankSet(const JointCounts& counts) {
    JointCounts c = counts;
    c[0] = 0;
    return c;
}

struct Marginals {
    std::array<std::uint64_t, kSide> y{};
    std::array<std::uint64_t, kSide> x{};
    std::uint64_t n = 0;
};

Marginals marginalsOf(const JointCounts& c) {
    Marginals m;
    for (std::size_t y = 0; y < kSide; ++y) {
        for (std::size_t x = 0; x < kSide; ++x) {
            m.y[y] += c[y * kSide + x];
            m.x[x] += c[y * kSide + x];
        }
    }
    for (std::uint64_t k : m.y) {
        m.n += k;
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

// Sums of the pixels with X >= x and Y >= y for every corner, so that any step of the threshold
// search costs a look-up instead of a pass.
class CornerSums {
  public:
    explicit CornerSums(const JointCounts& c) : sums_((kSide + 1) * (kSide + 1)) {
        for (std::size_t y = kSide; y-- > 0;) {
            for (std::size_t x = kSide; x-- > 0;) {
                const std::int64_t k = std::int64_t(c[y * kSide + x]);
                const std::int64_t yy = std::int64_t(y), xx = std::int64_t(x);
                PairSums s = minus(at(y + 1, x), at(y + 1, x + 1));
                const PairSums& right = at(y, x + 1);
                s.sumPixelsXYAxis += right.sumPixelsXYAxis + k * xx * yy;
                s.sumPixelsXAxis += right.sumPixelsXAxis + k * xx;
                s.sumPixelsXSquaredAxis += right.sumPixelsXSquaredAxis + k * xx * xx;
                s.sumPixelsYAxis += right.sumPixelsYAxis + k * yy;
                s.sumPixelsYSquaredAxis += right.sumPixelsYSquaredAxis + k * yy * yy;
                s.sumPixelCount += right.sumPixelCount + k;
                sums_[y * (kSide + 1) + x] = s;
            }
        }
    }
    // Thresholds outside 0 ... 256 take in everything or nothing.
    const PairSums& from(std::int64_t x, std::int64_t y) const {
        return at(std::size_t(std::clamp<std::int64_t>(y, 0, kSide)),
                  std::size_t(std::clamp<std::int64_t>(x, 0, kSide)));
    }

  private:
    const PairSums& at(std::size_t y, std::size_t x) const { return sums_[y * (kSide + 1) + x]; }
    std::vector<PairSums> sums_;
};

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

double definedPearson(const PairSums& s) {
    const Int128 n = s.sumPixelCount;
    const Int128 varX = n * s.sumPixelsXSquaredAxis - Int128(s.sumPixelsXAxis) * s.sumPixelsXAxis;
    const Int128 varY = n * s.sumPixelsYSquaredAxis - Int128(s.sumPixelsYAxis) * s.sumPixelsYAxis;
    if (n < 2 || varX == 0 || varY == 0) {
        return kNaN;
    }
    return pearsons_Rr(s);
}

double spearmansRho(const JointCounts& counts) {
    const JointCounts c = rankSet(counts);
    const Marginals m = marginalsOf(c);
    const auto ry = centredTwiceRanks(m.y, m.n);
    const auto rx = centredTwiceRanks(m.x, m.n);
    Int128 sxy = 0, syy = 0, sxx = 0;
    for (std::size_t v = 0; v < kSide; ++v) {
        syy += Int128(m.y[v]) * ry[v] * ry[v];
        sxx += Int128(m.x[v]) * rx[v] * rx[v];
    }
    for (std::size_t y = 0; y < kSide; ++y) {
        Int128 row = 0;
        for (std::size_t x = 0; x < kSide; ++x) {
            row += Int128(c[y * kSide + x]) * rx[x];
        }
        sxy += row * ry[y];
    }
    if (m.n < 2 || syy == 0 || sxx == 0) {
        return kNaN;
    }
    return double(sxy) / std::sqrt(double(syy) * double(sxx));
}

double kendallsTauB(const JointCounts& counts) {
    const JointCounts c = rankSet(counts);
    // below[y][x]: pixels with Y < y and X < x.
    std::vector<std::uint64_t> below((kSide + 1) * (kSide + 1), 0);
    auto at = [&below](std::size_t y, std::size_t x) -> std::uint64_t& {
        return below[y * (kSide + 1) + x];
    };
    for (std::size_t y = 0; y < kSide; ++y) {
        std::uint64_t rowSoFar = 0;
        for (std::size_t x = 0; x < kSide; ++x) {
            rowSoFar += c[y * kSide + x];
            at(y + 1, x + 1) = at(y, x + 1) + rowSoFar;
        }
    }
    // Each pair is counted once, from its member with the larger Y.
    UInt128 concordant = 0, discordant = 0;
    for (std::size_t y = 1; y < kSide; ++y) {
        const std::uint64_t rowsBelow = at(y, kSide);
        for (std::size_t x = 0; x < kSide; ++x) {
            const std::uint64_t k = c[y * kSide + x];
            if (k != 0) {
                concordant += UInt128(k) * at(y, x);
                discordant += UInt128(k) * (rowsBelow - at(y, x + 1));
            }
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

double intensityCorrelationQuotient(const JointCounts& counts) {
    const JointCounts c = rankSet(counts);
    const Marginals m = marginalsOf(c);
    const auto n = std::int64_t(m.n);
    if (n == 0) {
        return kNaN;
    }
    std::int64_t sumY = 0, sumX = 0;
    for (std::size_t v = 0; v < kSide; ++v) {
        sumY += std::int64_t(v * m.y[v]);
        sumX += std::int64_t(v * m.x[v]);
    }
    // n * (v - mean) keeps the sign test in whole numbers.
    std::uint64_t positive = 0;
    for (std::int64_t y = 0; y < 256; ++y) {
        const std::int64_t dy = n * y - sumY;
        for (std::int64_t x = 0; x < 256; ++x) {
            const std::int64_t dx = n * x - sumX;
            if ((dy > 0 && dx > 0) || (dy < 0 && dx < 0)) {
                positive += c[std::size_t(y * 256 + x)];
            }
        }
    }
    return double(positive) / double(n) - 0.5;
}

CostesResult costesThresholds(const JointCounts& counts) {
    CostesResult result{{}, kNaN, kNaN, kNaN, kNaN, kNaN};
    const CornerSums corners(counts);
    const PairSums all = corners.from(0, 0);
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
    for (std::int64_t v = 255; v > 0 && top == 0; --v) {
        const PairSums& beyond = alongX ? corners.from(v, 0) : corners.from(0, v);
        top = beyond.sumPixelCount > 0 ? v : 0;
    }
    std::int64_t tx = 0, ty = 0;
    for (std::int64_t t = top; t >= 0; --t) {
        tx = alongX ? t : roundHalfUp((double(t) - b) / a);
        ty = alongX ? roundHalfUp(a * double(t) + b) : t;
        const double r = definedPearson(minus(all, corners.from(tx, ty)));
        if (!(r > 0)) {
            break;
        }
    }
    const int x = int(std::clamp<std::int64_t>(tx, 0, 255));
    const int y = int(std::clamp<std::int64_t>(ty, 0, 255));
    result.thresholds = CostesResult::Thresholds{y, x};
    const PairSums& above = corners.from(x + 1, y + 1);
    result.pearsonsAbove = definedPearson(above);
    result.tM1 = quotientOrNaN(above.sumPixelsYAxis, corners.from(0, y + 1).sumPixelsYAxis);
    result.tM2 = quotientOrNaN(above.sumPixelsXAxis, corners.from(x + 1, 0).sumPixelsXAxis);
    return result;
}

}  // namespace pv
