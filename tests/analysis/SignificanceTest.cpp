#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <numeric>
#include <random>
#include <vector>

#include "analysis/Significance.h"

namespace pv {
namespace {

// Y in red, X in green, one byte each a pixel; the mask empty for every pixel.
struct Pair {
    int w = 0, h = 0;
    std::vector<int> y, x;
    std::vector<std::uint8_t> mask;

    ChannelView view(std::vector<std::uint8_t>& rgb) const {
        rgb.assign(std::size_t(w * h * 3), 0);
        for (std::size_t i = 0; i < y.size(); ++i) {
            rgb[i * 3] = std::uint8_t(y[i]);
            rgb[i * 3 + 1] = std::uint8_t(x[i]);
        }
        const std::span<const std::uint8_t> all(rgb);
        return *ChannelView::over({all, all.subspan(1), all.subspan(2)}, 3, w * 3, w, h);
    }
    MaskView maskView() const { return mask.empty() ? MaskView{} : MaskView{mask.data(), w, w, h}; }
};

BlockShuffleTest testOf(const Pair& p, int side) {
    BlockShuffleTest test(side);
    std::vector<std::uint8_t> rgb;
    EXPECT_TRUE(test.addPlane(p.view(rgb), RGBCombo::RedGreen, p.maskView()));
    return test;
}

// Pearson's r over the analysed pixels, zeros included, with Y read at place yAt(i).
template <class Place>
double bruteR(const Pair& p, Place yAt) {
    long double n = 0, sx = 0, sy = 0, sxx = 0, syy = 0, sxy = 0;
    for (std::size_t i = 0; i < p.x.size(); ++i) {
        if (!p.mask.empty() && p.mask[i] == 0) {
            continue;
        }
        const long double x = p.x[i], y = p.y[yAt(i)];
        n += 1;
        sx += x;
        sy += y;
        sxx += x * x;
        syy += y * y;
        sxy += x * y;
    }
    return double((n * sxy - sx * sy) / std::sqrt((n * sxx - sx * sx) * (n * syy - sy * sy)));
}

Pair noise(int w, int h, std::mt19937& rng, bool masked) {
    Pair p{w, h, {}, {}, {}};
    for (int i = 0; i < w * h; ++i) {
        p.y.push_back(int(rng() % 256));
        p.x.push_back(int(rng() % 256));
        if (masked) {
            p.mask.push_back(rng() % 4 == 0 ? 0 : 1);
        }
    }
    return p;
}

// Squares of `side` pixels, each of one random value: structure of a known size.
std::vector<int> squares(int w, int h, int side, std::mt19937& rng) {
    const int across = (w + side - 1) / side;
    std::vector<int> level(std::size_t(across * ((h + side - 1) / side)));
    for (int& v : level) {
        v = int(rng() % 200);
    }
    std::vector<int> out;
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            out.push_back(level[std::size_t((r / side) * across + c / side)]);
        }
    }
    return out;
}

TEST(Significance, ObservedRIsPearsonsOverEveryAnalysedPixel) {
    std::mt19937 rng(3);
    for (bool masked : {false, true}) {
        for (int side : {1, 3, 5}) {
            SCOPED_TRACE(std::to_string(side) + (masked ? " masked" : ""));
            Pair p = noise(23, 19, rng, masked);
            for (std::size_t i = 0; i < p.x.size(); ++i) {
                p.x[i] = (p.x[i] + p.y[i]) / 2;  // some correlation
            }
            const auto result = testOf(p, side).run(3, 1);
            ASSERT_TRUE(result);
            EXPECT_NEAR(result->observedR, bruteR(p, [](std::size_t i) { return i; }), 1e-12);
            EXPECT_EQ(result->psfSize, side);
        }
    }
}

// Two whole blocks side by side, a column and a row of edge pixels that stay in place: every
// shuffle is one of two orders, whose r brute force gives.
TEST(Significance, TwoBlocksGiveOnlyTheirTwoOrders) {
    std::mt19937 rng(8);
    const int s = 4, w = 2 * s + 1, h = s + 1;
    for (bool masked : {false, true}) {
        SCOPED_TRACE(masked ? "masked" : "whole");
        const Pair p = noise(w, h, rng, masked);
        const double same = bruteR(p, [](std::size_t i) { return i; });
        const double swapped = bruteR(p, [&](std::size_t i) {
            const int r = int(i) / w, c = int(i) % w;
            const bool inBlocks = r < s && c < 2 * s;
            return inBlocks ? std::size_t(r * w + (c + s) % (2 * s)) : i;
        });
        const int n = 60;
        const auto result = testOf(p, s).run(n, 77);
        ASSERT_TRUE(result);
        EXPECT_NEAR(result->observedR, same, 1e-12);
        const double q = (result->shuffledMean - same) / (swapped - same);  // share swapped
        EXPECT_GT(q, 0.2);
        EXPECT_LT(q, 0.8);
        EXPECT_NEAR(std::round(q * n), q * n, 1e-6);
        EXPECT_NEAR(result->shuffledSD,
                    std::sqrt(n / (n - 1.0) * q * (1 - q)) * std::abs(swapped - same), 1e-9);
        EXPECT_NEAR(result->pValue, swapped < same ? q : 0.0, 1e-9);
    }
}

TEST(Significance, TheSameSeedGivesTheSameNumbersOnAnyThreads) {
    std::mt19937 rng(4);
    const Pair p = noise(64, 48, rng, true);
    const BlockShuffleTest test = testOf(p, 3);
    const auto one = test.run(41, 2026, 1);
    ASSERT_TRUE(one);
    for (unsigned threads : {2u, 3u, 8u}) {
        const auto other = test.run(41, 2026, threads);
        ASSERT_TRUE(other);
        EXPECT_EQ(one->observedR, other->observedR);
        EXPECT_EQ(one->shuffledMean, other->shuffledMean) << threads;
        EXPECT_EQ(one->shuffledSD, other->shuffledSD) << threads;
        EXPECT_EQ(one->pValue, other->pValue) << threads;
    }
    EXPECT_NE(test.run(41, 2027, 2)->shuffledMean, one->shuffledMean);
}

TEST(Significance, ColocalizedStructureBeatsEveryShuffle) {
    std::mt19937 rng(11);
    Pair p{96, 80, squares(96, 80, 4, rng), {}, {}};
    for (int v : p.y) {
        p.x.push_back(v / 2 + int(rng() % 30));
    }
    const auto result = testOf(p, 4).run(100, 5);
    ASSERT_TRUE(result);
    EXPECT_GT(result->observedR, 0.9);
    EXPECT_LT(std::abs(result->shuffledMean), 0.1);
    EXPECT_GE(result->pValue, 0.95);
}

TEST(Significance, IndependentChannelsSpreadAroundOneHalf) {
    std::mt19937 rng(21);
    std::vector<double> p;
    for (int picture = 0; picture < 30; ++picture) {
        Pair pair{40, 40, squares(40, 40, 2, rng), squares(40, 40, 2, rng), {}};
        p.push_back(testOf(pair, 2).run(99, std::uint64_t(picture))->pValue);
    }
    const double mean = std::accumulate(p.begin(), p.end(), 0.0) / double(p.size());
    EXPECT_GT(mean, 0.3);
    EXPECT_LT(mean, 0.7);
    EXPECT_LT(*std::min_element(p.begin(), p.end()), 0.3);
    EXPECT_GT(*std::max_element(p.begin(), p.end()), 0.7);
}

TEST(Significance, CancelStopsItAndProgressCountsEveryShuffle) {
    std::mt19937 rng(6);
    const BlockShuffleTest test = testOf(noise(64, 64, rng, false), 2);
    std::atomic<int> last{0};
    ASSERT_TRUE(test.run(50, 1, 2, {}, [&last](int done) {
        int seen = last.load();
        while (done > seen && !last.compare_exchange_weak(seen, done)) {
        }
    }));
    EXPECT_EQ(last.load(), 50);
    EXPECT_FALSE(test.run(50, 1, 2, [] { return true; }));
}

TEST(Significance, PsfSizeIsTheWidthOfTheStructure) {
    std::mt19937 rng(9);
    for (int side : {1, 4, 8}) {
        const Pair p{256, 192, squares(256, 192, side, rng), std::vector<int>(256 * 192, 0), {}};
        std::vector<std::uint8_t> rgb;
        EXPECT_EQ(estimatePsfSize(p.view(rgb), 0), side) << side;
    }
    const Pair flat{32, 32, std::vector<int>(32 * 32, 50), std::vector<int>(32 * 32, 0), {}};
    std::vector<std::uint8_t> rgb;
    EXPECT_EQ(estimatePsfSize(flat.view(rgb), 0), 1);
}

// Planes the test cannot pool are refused and leave it as it was: one of another size than the
// first, and one whose blocks pass the limit, before a pixel of it is read. The limit still
// takes a 100-megapixel picture at a 3-pixel PSF.
TEST(Significance, RefusesPlanesItCannotPool) {
    std::mt19937 rng(3);
    BlockShuffleTest test = testOf(noise(8, 6, rng, false), 2);
    ASSERT_EQ(test.blockCount(), 12u);
    std::vector<std::uint8_t> rgb;
    EXPECT_FALSE(test.addPlane(noise(6, 6, rng, false).view(rgb), RGBCombo::RedGreen));
    const std::uint8_t none = 0;
    const ChannelView huge{{&none, &none, &none}, 1, 1, 1 << 20, 1 << 20};
    EXPECT_FALSE(BlockShuffleTest(2).addPlane(huge, RGBCombo::RedGreen));
    EXPECT_EQ(test.blockCount(), 12u);
    EXPECT_LE(BlockShuffleTest(3).blocksIn(10000, 10000), BlockShuffleTest::kMostBlocks);
    EXPECT_GT(BlockShuffleTest(1).blocksIn(4096, 4096), BlockShuffleTest::kMostBlocks);
}

}  // namespace
}  // namespace pv
