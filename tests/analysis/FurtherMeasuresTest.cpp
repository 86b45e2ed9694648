#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <optional>
#include <random>
#include <vector>

#include "BruteMeasures.h"
#include "analysis/FurtherMeasures.h"
#include "analysis/PairHistogram.h"

namespace pv {
namespace {

// A picture of the test's own: the pair's samples and the mask, pixel by pixel.
struct PairPicture {
    int w = 0, h = 0;
    std::vector<int> y, x, third;
    std::vector<std::uint8_t> mask;  // empty: every pixel

    bool analysed(std::size_t i) const { return mask.empty() || mask[i] != 0; }
};

using Sampler = std::function<std::array<int, 2>(std::mt19937&)>;  // (Y, X)

PairPicture randomPicture(int w, int h, std::mt19937& rng, const Sampler& sample, bool masked) {
    PairPicture p{w, h, {}, {}, {}, {}};
    for (int i = 0; i < w * h; ++i) {
        const auto [y, x] = sample(rng);
        p.y.push_back(y);
        p.x.push_back(x);
        p.third.push_back(int(rng() % 3));
        if (masked) {
            p.mask.push_back(rng() % 3 == 0 ? 0 : 255);
        }
    }
    return p;
}

JointCounts countedThroughPass(const PairPicture& p, RGBCombo combo) {
    const ChannelPair pair = channelPairFor(combo);
    std::vector<std::uint8_t> rgb(std::size_t(p.w * p.h * 3));
    for (std::size_t i = 0; i < p.y.size(); ++i) {
        rgb[i * 3 + std::size_t(pair.y)] = std::uint8_t(p.y[i]);
        rgb[i * 3 + std::size_t(pair.x)] = std::uint8_t(p.x[i]);
        rgb[i * 3 + std::size_t(pair.third)] = std::uint8_t(p.third[i]);
    }
    const std::span<const std::uint8_t> all(rgb);
    const ChannelView view =
        *ChannelView::over({all, all.subspan(1), all.subspan(2)}, 3, p.w * 3, p.w, p.h);
    const MaskView mask = p.mask.empty() ? MaskView{} : MaskView{p.mask.data(), p.w, p.w, p.h};
    PairHistogram histogram;
    EXPECT_TRUE(countPairs(view, combo, MinimumLevels{}, histogram, 2, {}, mask));
    return jointCountsOf(histogram);
}

// --- Brute force, from the definitions ---

using test::pearson;
using test::ranks;
using test::Values;

double kendall(const Values& y, const Values& x) {
    long double concordant = 0, discordant = 0, tiedY = 0, tiedX = 0, all = 0;
    for (std::size_t i = 0; i < y.size(); ++i) {
        for (std::size_t j = i + 1; j < y.size(); ++j) {
            const long double s = (y[i] - y[j]) * (x[i] - x[j]);
            concordant += s > 0;
            discordant += s < 0;
            tiedY += y[i] == y[j];
            tiedX += x[i] == x[j];
            all += 1;
        }
    }
    if (all == tiedY || all == tiedX) {
        return NAN;
    }
    return double((concordant - discordant) / std::sqrt((all - tiedY) * (all - tiedX)));
}

double icq(const Values& y, const Values& x) {
    if (y.empty()) {
        return NAN;
    }
    const long double my = std::accumulate(y.begin(), y.end(), 0.0L) / y.size();
    const long double mx = std::accumulate(x.begin(), x.end(), 0.0L) / x.size();
    long double positive = 0;
    for (std::size_t i = 0; i < y.size(); ++i) {
        positive += (y[i] - my) * (x[i] - mx) > 0;
    }
    return double(positive / y.size() - 0.5L);
}

struct BruteCostes {
    std::optional<std::array<int, 2>> thresholds;  // (Y, X)
    double slope = NAN, intercept = NAN, rr = NAN, tM1 = NAN, tM2 = NAN;
};

// The search stepped literally, each step's r over the pixels themselves.
BruteCostes costes(const Values& y, const Values& x) {
    BruteCostes c;
    const long double n = y.size();
    const long double my = std::accumulate(y.begin(), y.end(), 0.0L) / n;
    const long double mx = std::accumulate(x.begin(), x.end(), 0.0L) / n;
    long double sxx = 0, syy = 0, sxy = 0;
    for (std::size_t i = 0; i < y.size(); ++i) {
        sxx += (x[i] - mx) * (x[i] - mx);
        syy += (y[i] - my) * (y[i] - my);
        sxy += (x[i] - mx) * (y[i] - my);
    }
    if (sxx == 0 || syy == 0 || sxy == 0) {
        return c;
    }
    const long double a =
        (syy - sxx + std::sqrt((syy - sxx) * (syy - sxx) + 4 * sxy * sxy)) / (2 * sxy);
    const long double b = my - a * mx;
    c.slope = double(a);
    c.intercept = double(b);
    const bool alongX = -1 < a && a < 1;
    const long double top =
        *std::max_element(alongX ? x.begin() : y.begin(), alongX ? x.end() : y.end());
    long double tx = 0, ty = 0;
    for (long double t = top; t >= 0; --t) {
        tx = alongX ? t : std::floor((t - b) / a + 0.5L);
        ty = alongX ? std::floor(a * t + b + 0.5L) : t;
        Values ys, xs;
        for (std::size_t i = 0; i < y.size(); ++i) {
            if (x[i] < tx || y[i] < ty) {
                ys.push_back(y[i]);
                xs.push_back(x[i]);
            }
        }
        if (!(pearson(ys, xs) > 0)) {
            break;
        }
    }
    const long double tyc = std::clamp(ty, 0.0L, 255.0L), txc = std::clamp(tx, 0.0L, 255.0L);
    c.thresholds = std::array<int, 2>{int(tyc), int(txc)};
    Values ya, xa;
    long double both = 0, yAbove = 0, xBoth = 0, xAbove = 0;
    for (std::size_t i = 0; i < y.size(); ++i) {
        if (y[i] > tyc && x[i] > txc) {
            ya.push_back(y[i]);
            xa.push_back(x[i]);
            both += y[i];
            xBoth += x[i];
        }
        yAbove += y[i] > tyc ? y[i] : 0;
        xAbove += x[i] > txc ? x[i] : 0;
    }
    c.rr = pearson(ya, xa);
    c.tM1 = yAbove == 0 ? NAN : double(both / yAbove);
    c.tM2 = xAbove == 0 ? NAN : double(xBoth / xAbove);
    return c;
}

void expectSame(double expected, double actual, const char* what) {
    if (std::isnan(expected)) {
        EXPECT_TRUE(std::isnan(actual)) << what << " " << actual;
        EXPECT_FALSE(std::signbit(actual)) << what << " prints as -nan";
    } else {
        EXPECT_NEAR(expected, actual, 1e-9) << what;
    }
}

void expectMeasuresOf(const PairPicture& p, RGBCombo combo) {
    const JointCounts counts = countedThroughPass(p, combo);
    Values ry, rx, ay, ax;  // the rank set, and every analysed pixel
    for (std::size_t i = 0; i < p.y.size(); ++i) {
        if (!p.analysed(i)) {
            continue;
        }
        ay.push_back(p.y[i]);
        ax.push_back(p.x[i]);
        if (p.y[i] > 0 || p.x[i] > 0) {
            ry.push_back(p.y[i]);
            rx.push_back(p.x[i]);
        }
    }
    expectSame(pearson(ranks(ry), ranks(rx)), spearmansRho(counts), "Spearman");
    expectSame(kendall(ry, rx), kendallsTauB(counts), "Kendall");
    expectSame(icq(ry, rx), intensityCorrelationQuotient(counts), "ICQ");
    const BruteCostes expected = costes(ay, ax);
    const CostesResult actual = costesThresholds(counts);
    ASSERT_EQ(expected.thresholds.has_value(), actual.thresholds.has_value());
    if (expected.thresholds) {
        EXPECT_EQ((*expected.thresholds)[0], actual.thresholds->y);
        EXPECT_EQ((*expected.thresholds)[1], actual.thresholds->x);
    }
    expectSame(expected.slope, actual.slope, "Costes slope");
    expectSame(expected.intercept, actual.intercept, "Costes intercept");
    expectSame(expected.rr, actual.pearsonsAbove, "Costes Rr");
    expectSame(expected.tM1, actual.tM1, "tM1");
    expectSame(expected.tM2, actual.tM2, "tM2");
}

struct Kind {
    const char* name;
    Sampler sample;
};

std::vector<Kind> kinds() {
    return {
        {"uniform",
         [](std::mt19937& r) {
             return std::array<int, 2>{int(r() % 256), int(r() % 256)};
         }},
        {"correlated",
         [](std::mt19937& r) {
             const int y = int(r() % 200);
             return std::array<int, 2>{y, std::clamp(y / 2 + int(r() % 60) - 10, 0, 255)};
         }},
        {"anti-correlated",
         [](std::mt19937& r) {
             const int y = int(r() % 256);
             return std::array<int, 2>{y, std::clamp(250 - y + int(r() % 21) - 10, 0, 255)};
         }},
        {"heavy ties",  // a few values, many zeros
         [](std::mt19937& r) {
             constexpr int kValues[] = {0, 0, 0, 1, 2, 255};
             return std::array<int, 2>{kValues[r() % 6], kValues[r() % 6]};
         }},
        {"constant Y",
         [](std::mt19937& r) {
             return std::array<int, 2>{40, int(r() % 256)};
         }},
        {"black",
         [](std::mt19937&) {
             return std::array<int, 2>{0, 0};
         }},
    };
}

TEST(FurtherMeasures, EachMeasureIsItsDefinitionOnRandomPictures) {
    std::mt19937 rng(12);
    for (const Kind& kind : kinds()) {
        for (int combo = 0; combo < kRGBComboCount; ++combo) {
            for (bool masked : {false, true}) {
                SCOPED_TRACE(std::string(kind.name) + " pair " + std::to_string(combo) +
                             (masked ? " masked" : ""));
                const PairPicture p = randomPicture(23, 17, rng, kind.sample, masked);
                expectMeasuresOf(p, RGBCombo(combo));
            }
        }
    }
}

// The measures of a picture with the pairs given, each once.
JointCounts countsOf(const std::vector<std::array<int, 2>>& pairs) {
    JointCounts c{};
    for (const auto& [y, x] : pairs) {
        c[std::size_t(y * 256 + x)] += 1;
    }
    return c;
}

TEST(Costes, PerfectlyCorrelatedChannelsKeepEverythingAboveOne) {
    std::vector<std::array<int, 2>> pairs;
    for (int v = 0; v < 256; ++v) {
        pairs.push_back({v, v});
    }
    const CostesResult c = costesThresholds(countsOf(pairs));
    ASSERT_TRUE(c.thresholds);
    EXPECT_NEAR(c.slope, 1.0, 1e-12);
    EXPECT_NEAR(c.intercept, 0.0, 1e-9);
    // The pixels below (T, T) correlate perfectly until only the zeros are left.
    EXPECT_EQ(c.thresholds->y, 1);
    EXPECT_EQ(c.thresholds->x, 1);
    EXPECT_NEAR(c.pearsonsAbove, 1.0, 1e-12);
    EXPECT_EQ(c.tM1, 1.0);
    EXPECT_EQ(c.tM2, 1.0);
}

TEST(Costes, AntiCorrelatedChannelsStopAtOnce) {
    std::vector<std::array<int, 2>> pairs;
    for (int v = 0; v < 200; ++v) {
        pairs.push_back({v, 255 - v});
    }
    const CostesResult c = costesThresholds(countsOf(pairs));
    ASSERT_TRUE(c.thresholds);
    EXPECT_NEAR(c.slope, -1.0, 1e-12);
    EXPECT_EQ(c.thresholds->y, 199);
    EXPECT_EQ(c.thresholds->x, 56);
    EXPECT_TRUE(std::isnan(c.pearsonsAbove));  // nothing is above both
    EXPECT_TRUE(std::isnan(c.tM1));
}

TEST(Costes, NoiseStopsAtOnceWithTheThresholdsAtTheTop) {
    std::mt19937 rng(5);
    for (int round = 0; round < 5; ++round) {
        std::vector<std::array<int, 2>> pairs;
        for (int i = 0; i < 2000; ++i) {
            pairs.push_back({int(rng() % 256), int(rng() % 256)});
        }
        Values y, x;
        for (const auto& [a, b] : pairs) {
            y.push_back(a);
            x.push_back(b);
        }
        if (pearson(y, x) > 0) {  // noise of no positive correlation
            for (auto& p : pairs) {
                p[1] = 255 - p[1];
            }
        }
        const CostesResult c = costesThresholds(countsOf(pairs));
        ASSERT_TRUE(c.thresholds);
        const bool alongX = std::abs(c.slope) < 1;
        int top = 0;
        for (const auto& p : pairs) {
            top = std::max(top, p[alongX ? 1 : 0]);
        }
        EXPECT_EQ(alongX ? c.thresholds->x : c.thresholds->y, top);
    }
}

TEST(Costes, AConstantChannelHasNoThresholds) {
    for (const auto& pairs :
         {std::vector<std::array<int, 2>>{{7, 1}, {7, 9}, {7, 200}},
          std::vector<std::array<int, 2>>{{1, 0}, {9, 0}}, std::vector<std::array<int, 2>>{}}) {
        const CostesResult c = costesThresholds(countsOf(pairs));
        EXPECT_FALSE(c.thresholds);
        for (double v : {c.slope, c.intercept, c.pearsonsAbove, c.tM1, c.tM2}) {
            EXPECT_TRUE(std::isnan(v));
        }
    }
}

// Counts far beyond what a test can enumerate (n² past 64 bits): repeating every pixel k times
// leaves rho and ICQ alone, and tau-b too, as its ties within copies cancel.
TEST(FurtherMeasures, HugeCountsKeepTheirValue) {
    const std::vector<std::array<int, 2>> pairs = {{1, 1}, {2, 3}, {3, 2}, {4, 4}, {5, 5}};
    const JointCounts one = countsOf(pairs);
    JointCounts many{};
    for (std::size_t b = 0; b < one.size(); ++b) {
        many[b] = one[b] * 20'000'000'000ull;
    }
    Values y, x;
    for (const auto& [a, b] : pairs) {
        y.push_back(a);
        x.push_back(b);
    }
    EXPECT_NEAR(spearmansRho(many), pearson(ranks(y), ranks(x)), 1e-12);
    EXPECT_NEAR(intensityCorrelationQuotient(many), icq(y, x), 1e-12);
    EXPECT_NEAR(kendallsTauB(many), kendall(y, x), 1e-12);
    EXPECT_NEAR(kendall(y, x), 0.8, 1e-12);  // 9 concordant, 1 discordant of 10 pairs
}

}  // namespace
}  // namespace pv
