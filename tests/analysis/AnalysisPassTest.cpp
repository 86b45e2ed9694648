#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <random>
#include <vector>

#include "analysis/AnalysisPass.h"
#include "scattergram/ScatterGram.h"

namespace pv {
namespace {

using Rgb = std::array<std::uint8_t, 3>;

// A bitmap and the geometry record the analysis reads it through. Padding and alpha bytes hold
// junk, so reading them would show.
struct TestImage {
    Bitmap bitmap;
    BitmapInfo info;

    std::uint8_t& sample(int r, int x, int c) {
        return info.isPlanar ? bitmap.row(c, r)[x] : bitmap.row(0, r)[x * info.samplesPerPixel + c];
    }
};

TestImage makeImage(int width, int height, int spp, bool planar, int bytesPerRow,
                    const std::function<Rgb(int row, int column)>& source) {
    TestImage t{*Bitmap::create(width, height, spp, spp == 4, planar, bytesPerRow), {}};
    std::fill(t.bitmap.bitmapData(), t.bitmap.bitmapData() + t.bitmap.totalBytes(), 0xA5);
    t.info.bytesPerRow = t.bitmap.bytesPerRow();
    t.info.samplesPerPixel = spp;
    t.info.isPlanar = planar ? 1 : 0;
    t.info.width = float(width);
    t.info.height = float(height);
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < width; ++x) {
            const Rgb rgb = source(r, x);
            for (int c = 0; c < 3; ++c) {
                t.sample(r, x, c) = rgb[std::size_t(c)];
            }
        }
    }
    return t;
}

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

Expected bruteForce(TestImage& img, int combo, std::array<int, 3> levels) {
    const int* p = kPairs[combo >= 0 && combo <= 5 ? combo : 0];
    Expected e;
    for (int r = 0; r < img.bitmap.pixelsHigh(); ++r) {
        for (int c = 0; c < img.bitmap.pixelsWide(); ++c) {
            const std::array<int, 3> rgb{img.sample(r, c, 0), img.sample(r, c, 1),
                                         img.sample(r, c, 2)};
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

void expectResults(const AnalysisState& s, const std::vector<std::uint8_t>& scatter,
                   const Expected& e) {
    EXPECT_EQ((std::array<std::int64_t, 7>{s.redPixelCount, s.greenPixelCount, s.bluePixelCount,
                                           s.yellowPixelCount, s.magentaPixelCount,
                                           s.cyanPixelCount, s.totalPixelCount}),
              e.census);
    EXPECT_EQ(
        (std::array<std::int64_t, 8>{s.sumPixelsXYAxis, s.sumPixelsXAxis, s.sumPixelsXSquaredAxis,
                                     s.sumPixelsYAxis, s.sumPixelsYSquaredAxis, s.sumPixelCount,
                                     s.sumColocPixelsXAxis, s.sumColocPixelsYAxis}),
        e.sums);
    EXPECT_TRUE(scatter == e.scatter);
}

// Each layout has its own minimum levels, so that the level of every channel is exercised.
struct Layout {
    const char* name;
    int samplesPerPixel;
    bool planar;
    int extraBytesPerRow;
    std::array<int, 3> levels;
};
constexpr Layout kLayouts[] = {{"meshed RGB", 3, false, 0, {0, 0, 0}},
                               {"meshed RGBA padded", 4, false, 13, {10, 0, 100}},
                               {"planar padded", 3, true, 5, {-5, 300, 1}}};

// Channels are often exactly 0 so that every census class occurs.
std::function<Rgb(int, int)> randomPixels(unsigned seed) {
    return [rng = std::mt19937(seed)](int, int) mutable {
        Rgb rgb{};
        for (auto& s : rgb) {
            const unsigned v = rng() % 512;
            s = v < 200 ? 0 : std::uint8_t(v % 256);
        }
        return rgb;
    };
}

// Both the per-pixel steps, read through the addressing rule at fractional points, and the pass
// with any split must give what the brute force gives.
TEST(AnalysisPass, AgreesWithBruteForceForEveryLayoutPairAndThreadCount) {
    for (const Layout& l : kLayouts) {
        const int w = 53;
        const int h = 41;
        const int rowBytes = (l.planar ? w : w * l.samplesPerPixel) + l.extraBytesPerRow;
        TestImage img = makeImage(w, h, l.samplesPerPixel, l.planar, rowBytes,
                                  randomPixels(unsigned(rowBytes)));
        const PlaneArray planes = img.bitmap.planes();
        for (int combo : {0, 1, 2, 3, 4, 5, 9}) {
            SCOPED_TRACE(testing::Message() << l.name << " pair " << combo);
            const Expected e = bruteForce(img, combo, l.levels);
            AnalysisState fresh;
            fresh.rgbCombo = combo;
            fresh.redMinimumLevel = l.levels[0];
            fresh.greenMinimumLevel = l.levels[1];
            fresh.blueMinimumLevel = l.levels[2];

            AnalysisState steps = fresh;
            std::vector<std::uint8_t> stepScatter(kScatterGramBytes, 0);
            for (int x = 0; x < w; ++x) {
                for (int y = 0; y < h; ++y) {
                    const PackedRGB v =
                        getPixelColorValues(img.info, planes, Point{x + 0.5f, y + 0.75f});
                    countPixelInCensus(steps, v);
                    plotPixelInScatterGram(stepScatter.data(), combo, v);
                    accumulatePixelSums(steps, v);
                }
            }
            expectResults(steps, stepScatter, e);

            for (unsigned threads : {1u, 2u, 3u, 0u}) {
                SCOPED_TRACE(testing::Message() << "threads " << threads);
                AnalysisState s = fresh;
                s.cyanPixelCount = 99;  // stale values of an earlier pass must go
                s.sumPixelsXAxis = 12345;
                std::vector<std::uint8_t> scatter(kScatterGramBytes, 0x5A);
                PairHistogram hist;
                ASSERT_TRUE(runAnalysisPass(img.info, planes, makeRect(0, 0, float(w), float(h)), s,
                                            scatter.data(), hist, threads));
                expectResults(s, scatter, e);
                EXPECT_TRUE(hist.counts == e.histogram);
                EXPECT_EQ(hist.rgbCombo, combo == 9 ? 0 : combo);
            }
        }
    }
}

TEST(PixelAccess, RowsAreFlippedAndCoordinatesTruncated) {
    for (const bool planar : {false, true}) {
        // Stored rows top first: row r holds (r, column, 7).
        auto img = makeImage(4, 3, 3, planar, 0, [](int r, int c) {
            return Rgb{std::uint8_t(r), std::uint8_t(c), 7};
        });
        const PlaneArray planes = img.bitmap.planes();
        EXPECT_EQ(getPixelColorValues(img.info, planes, {0, 0}), packRGB(2, 0, 7));
        EXPECT_EQ(getPixelColorValues(img.info, planes, {3, 2}), packRGB(0, 3, 7));
        EXPECT_EQ(getPixelColorValues(img.info, planes, {2.7f, 1.2f}), packRGB(1, 2, 7));
    }
    EXPECT_EQ(packRGB(200, 50, 7), 0xC83207u);
}

}  // namespace
}  // namespace pv
