#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "analysis/AnalysisPass.h"
#include "analysis/TestImages.h"
#include "scattergram/ScatterGram.h"

namespace pv {
namespace {

using test::makeImage;
using test::TestImage;

// Written out again here rather than taken from the engine: (Y channel, X channel, third).
constexpr int kPairs[6][3] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};

struct Expected {
    std::array<std::int64_t, 7> census{};  // red, green, blue, yellow, magenta, cyan, total
    std::array<std::int64_t, 8> sums{};    // XY, X, XX, Y, YY, N, colocX, colocY
    std::vector<std::uint8_t> scatter = std::vector<std::uint8_t>(kScatterGramBytes, 0);
    std::vector<std::uint64_t> histogram = std::vector<std::uint64_t>(PairHistogram::kBins, 0);
};

// Each class as masks (bit 0 red, 1 green, 2 blue) of the channels that must be above their
// level and those that must be 0; the first class that matches wins.
int classIndexOf(const std::array<int, 3>& rgb, const std::array<int, 3>& levels) {
    int zero = 0;
    int above = 0;
    for (int c = 0; c < 3; ++c) {
        zero |= rgb[std::size_t(c)] == 0 ? 1 << c : 0;
        above |= rgb[std::size_t(c)] > levels[std::size_t(c)] ? 1 << c : 0;
    }
    constexpr int kMasks[6][2] = {{1, 6}, {2, 5}, {4, 3}, {3, 4}, {5, 2}, {6, 1}};
    for (int k = 0; k < 6; ++k) {
        if ((above & kMasks[k][0]) == kMasks[k][0] && (zero & kMasks[k][1]) == kMasks[k][1]) {
            return k;
        }
    }
    return -1;
}

Expected bruteForce(const TestImage& img, int combo, std::array<int, 3> levels) {
    const int* p = kPairs[combo >= 0 && combo <= 5 ? combo : 0];
    Expected e;
    for (int r = 0; r < img.height; ++r) {
        for (int c = 0; c < img.width; ++c) {
            std::array<int, 3> rgb{};
            for (int k = 0; k < 3; ++k) {
                rgb[std::size_t(k)] = img.sample(r, c, k);
            }
            e.census[6] += 1;
            if (const int k = classIndexOf(rgb, levels); k >= 0) {
                e.census[std::size_t(k)] += 1;
            }
            const std::int64_t y = rgb[std::size_t(p[0])];
            const std::int64_t x = rgb[std::size_t(p[1])];
            const int t = rgb[std::size_t(p[2])];
            if (x > 0 || y > 0) {
                e.sums[0] += x * y;
                e.sums[1] += x;
                e.sums[2] += x * x;
                e.sums[3] += y;
                e.sums[4] += y * y;
                e.sums[5] += 1;
            }
            e.sums[6] += y > 0 ? x : 0;
            e.sums[7] += x > 0 ? y : 0;
            const std::size_t at = std::size_t((255 - y) * 768 + x * 3);
            e.scatter[at + std::size_t(p[0])] = std::uint8_t(y);
            e.scatter[at + std::size_t(p[1])] = std::uint8_t(x);
            const int third = t == 0 ? 0 : (t > levels[std::size_t(p[2])] ? 1 : 2);
            e.histogram[std::size_t((third * 256 + y) * 256 + x)] += 1;
        }
    }
    return e;
}

std::array<std::int64_t, 7> censusOf(const AnalysisState& s) {
    return {s.redPixelCount,     s.greenPixelCount, s.bluePixelCount, s.yellowPixelCount,
            s.magentaPixelCount, s.cyanPixelCount,  s.totalPixelCount};
}

std::array<std::int64_t, 8> sumsOf(const AnalysisState& s) {
    return {s.sumPixelsXYAxis,     s.sumPixelsXAxis,        s.sumPixelsXSquaredAxis,
            s.sumPixelsYAxis,      s.sumPixelsYSquaredAxis, s.sumPixelCount,
            s.sumColocPixelsXAxis, s.sumColocPixelsYAxis};
}

void expectResults(const AnalysisState& s, const std::vector<std::uint8_t>& scatter,
                   const PairHistogram& h, const Expected& e) {
    EXPECT_EQ(censusOf(s), e.census);
    EXPECT_EQ(sumsOf(s), e.sums);
    EXPECT_TRUE(scatter == e.scatter);
    EXPECT_TRUE(h.counts == e.histogram);
}

struct Layout {
    const char* name;
    int samplesPerPixel;
    bool planar;
    int extraBytesPerRow;
};
constexpr Layout kLayouts[] = {{"meshed RGB", 3, false, 0},
                               {"meshed RGBA padded", 4, false, 13},
                               {"planar padded", 3, true, 5}};

TEST(AnalysisPass, AgreesWithBruteForceForEveryLayoutPairAndThreadCount) {
    for (const Layout& l : kLayouts) {
        const int w = 53;
        const int h = 41;
        const int rowBytes = (l.planar ? w : w * l.samplesPerPixel) + l.extraBytesPerRow;
        const TestImage img = makeImage(w, h, l.samplesPerPixel, l.planar, rowBytes,
                                        test::randomPixels(unsigned(rowBytes)));
        for (int combo : {0, 1, 2, 3, 4, 5, 9, -1}) {
            const Expected e = bruteForce(img, combo, {0, 0, 0});
            for (unsigned threads : {1u, 2u, 3u, 7u, 0u}) {
                SCOPED_TRACE(testing::Message()
                             << l.name << " pair " << combo << " threads " << threads);
                AnalysisState s;
                s.rgbCombo = combo;
                std::vector<std::uint8_t> scatter(kScatterGramBytes, 0x5A);
                PairHistogram hist;
                runAnalysisPass(img.info, img.planes, makeRect(0, 0, float(w), float(h)), s,
                                scatter.data(), hist, threads);
                expectResults(s, scatter, hist, e);
                EXPECT_EQ(hist.rgbCombo, combo >= 0 && combo <= 5 ? combo : 0);
            }
        }
    }
}

TEST(AnalysisPass, HonoursMinimumLevelsOfEveryChannel) {
    const TestImage img = makeImage(37, 29, 3, false, 0, test::randomPixels(7));
    for (std::array<int, 3> levels : {std::array<int, 3>{10, 0, 100}, {-5, 300, 1}, {255, 3, 0}}) {
        for (int combo = 0; combo < 6; ++combo) {
            SCOPED_TRACE(testing::Message() << "pair " << combo << " levels " << levels[0] << ","
                                            << levels[1] << "," << levels[2]);
            AnalysisState s;
            s.rgbCombo = combo;
            s.redMinimumLevel = levels[0];
            s.greenMinimumLevel = levels[1];
            s.blueMinimumLevel = levels[2];
            std::vector<std::uint8_t> scatter(kScatterGramBytes);
            PairHistogram hist;
            runAnalysisPass(img.info, img.planes, makeRect(0, 0, 37, 29), s, scatter.data(), hist,
                            2);
            expectResults(s, scatter, hist, bruteForce(img, combo, levels));
        }
    }
}

// Runs of equal pixels of every length, starting at every phase of a row.
TEST(AnalysisPass, CountsRunsOfEqualPixelsExactly) {
    const TestImage img = makeImage(61, 23, 3, false, 0, [](int r, int c) {
        const int run = r % 9 + 1;
        const int k = (c + r) / run;
        return std::array<std::uint8_t, 3>{std::uint8_t(k % 3 == 0 ? 0 : k), std::uint8_t(k % 2),
                                           0};
    });
    AnalysisState s;
    std::vector<std::uint8_t> scatter(kScatterGramBytes);
    PairHistogram hist;
    runAnalysisPass(img.info, img.planes, makeRect(0, 0, 61, 23), s, scatter.data(), hist, 2);
    expectResults(s, scatter, hist, bruteForce(img, 0, {0, 0, 0}));
}

// The definition: every point of the rectangle through the pixel reader and the three steps.
void perPixelPass(const TestImage& img, const Rect& rect, AnalysisState& s, std::uint8_t* scatter) {
    for (int i = 0; float(i) < rect.size.width; ++i) {
        for (int j = 0; float(j) < rect.size.height; ++j) {
            const PackedRGB v = getPixelColorValues(
                img.info, img.planes, Point{rect.origin.x + float(i), rect.origin.y + float(j)});
            countPixelInCensus(s, v);
            plotPixelInScatterGram(scatter, s.rgbCombo, v);
            accumulatePixelSums(s, v);
        }
    }
}

TEST(AnalysisPass, VisitsTheRectangleLikeThePerPixelSteps) {
    const Rect rects[] = {makeRect(0, 0, 9, 7),           makeRect(0.5f, 0.3f, 3.7f, 2.2f),
                          makeRect(2, 1, 4, 5),           makeRect(-0.5f, -0.5f, 3, 3),
                          makeRect(8.5f, 6.5f, 0.25f, 1), makeRect(0, 0, 0, 7),
                          makeRect(3, 3, 5, -1)};
    for (const Layout& l : kLayouts) {
        const TestImage img =
            makeImage(9, 7, l.samplesPerPixel, l.planar, 0, test::randomPixels(3));
        for (const Rect& rect : rects) {
            SCOPED_TRACE(testing::Message()
                         << l.name << " rect " << rect.origin.x << "," << rect.origin.y << " "
                         << rect.size.width << "x" << rect.size.height);
            AnalysisState want;
            want.rgbCombo = 3;
            std::vector<std::uint8_t> wantScatter(kScatterGramBytes, 0);
            perPixelPass(img, rect, want, wantScatter.data());

            AnalysisState got;
            got.rgbCombo = 3;
            got.sumPixelsXAxis = 12345;  // stale values of an earlier pass must go
            got.cyanPixelCount = 99;
            std::vector<std::uint8_t> gotScatter(kScatterGramBytes, 0xFF);
            PairHistogram hist;
            runAnalysisPass(img.info, img.planes, rect, got, gotScatter.data(), hist, 2);
            EXPECT_EQ(censusOf(want), censusOf(got));
            EXPECT_EQ(sumsOf(want), sumsOf(got));
            EXPECT_TRUE(wantScatter == gotScatter);
        }
    }
}

TEST(AnalysisPass, BlackImageCountsOnlyInTheTotal) {
    const TestImage black = makeImage(10, 10, 3, false, 0, test::uniformPixels({0, 0, 0}));
    AnalysisState s;
    std::vector<std::uint8_t> scatter(kScatterGramBytes);
    PairHistogram hist;
    runAnalysisPass(black.info, black.planes, makeRect(0, 0, 10, 10), s, scatter.data(), hist);
    EXPECT_EQ(s.totalPixelCount, 100);
    EXPECT_EQ(s.redPixelCount + s.greenPixelCount + s.bluePixelCount + s.yellowPixelCount +
                  s.magentaPixelCount + s.cyanPixelCount,
              0);
    EXPECT_EQ(s.sumPixelCount, 0);
    EXPECT_TRUE(std::all_of(scatter.begin(), scatter.end(), [](auto b) { return b == 0; }));
}

TEST(AnalysisPass, EmptyBitmapVisitsNothing) {
    AnalysisState s;
    s.totalPixelCount = 5;
    std::vector<std::uint8_t> scatter(kScatterGramBytes, 1);
    PairHistogram hist;
    runAnalysisPass(BitmapInfo{}, PlaneArray{}, Rect{}, s, scatter.data(), hist);
    EXPECT_EQ(s.totalPixelCount, 0);
    EXPECT_TRUE(std::all_of(scatter.begin(), scatter.end(), [](auto b) { return b == 0; }));
    EXPECT_EQ(hist.counts.size(), std::size_t(PairHistogram::kBins));
}

}  // namespace
}  // namespace pv
