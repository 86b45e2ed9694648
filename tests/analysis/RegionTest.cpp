#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "TestRaster.h"
#include "analysis/AnalysisPass.h"
#include "scattergram/RegionSelection.h"
#include "scattergram/ScatterGram.h"

namespace pv {
namespace {

// Channels (0 red, 1 green, 2 blue) of Y and X per pair, written out independently.
constexpr int kY[6] = {0, 0, 1, 1, 2, 2};
constexpr int kX[6] = {1, 2, 0, 2, 0, 1};

using test::Layout;
using TestImage = test::Raster;

// Samples are often 0 and often small, so that every census class and level state occurs.
TestImage randomImage(Layout layout, int w, int h, std::mt19937& rng) {
    return test::randomRaster(layout, w, h, rng, [](std::mt19937& g) {
        const unsigned u = g() % 10;
        return u < 4 ? 0 : (u < 7 ? g() % 12 : g() % 256);
    });
}

// (memory row, column) of every visit of a scan over rect.
std::vector<std::pair<int, int>> visitedPixels(const Rect& rect, int w, int h) {
    std::vector<std::pair<int, int>> out;
    for (long i = 0; float(i) < rect.size.width; ++i) {
        const float x = rect.origin.x + float(i);
        for (long j = 0; float(j) < rect.size.height; ++j) {
            const float y = rect.origin.y + float(j);
            if (x > -1.0f && long(x) < w && y > -1.0f && long(y) < h) {
                out.emplace_back(h - int(long(y)) - 1, int(long(x)));
            }
        }
    }
    return out;
}

using PixelTest = std::function<bool(const int rgb[3])>;

struct Region {
    RegionSelection selection;
    PixelTest selects;
};

// Kinds: 0 a random polygon (even-odd ray cast), 1 and 2 random sets of points without and
// with the (0, 0) corner, 3 nothing, 4 and 5 the single-colour tests of Y and of X.
Region randomRegion(std::mt19937& rng, int kind, int combo) {
    std::function<bool(Point)> inside;
    if (kind == 0) {
        std::vector<Point> poly(3 + rng() % 6);
        for (Point& p : poly) {
            p = {float(rng() % 300) - 20.0f, float(rng() % 300) - 20.0f};
        }
        inside = [poly](Point p) {
            bool in = false;
            for (std::size_t i = 0, j = poly.size() - 1; i < poly.size(); j = i++) {
                const Point a = poly[i], b = poly[j];
                if ((a.y > p.y) != (b.y > p.y) &&
                    p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x) {
                    in = !in;
                }
            }
            return in;
        };
    } else if (kind <= 3) {
        auto set = std::make_shared<std::vector<bool>>(65536);
        for (std::size_t i = 0; i < set->size(); ++i) {
            (*set)[i] = kind != 3 && rng() % 3 == 0;
        }
        (*set)[0] = kind == 2;
        inside = [set](Point p) { return (*set)[std::size_t(p.y) * 256 + std::size_t(p.x)]; };
    } else {
        const int own = kind == 4 ? kY[combo] : kX[combo];
        return {RegionSelection::singleColor(kind == 4 ? Point{2, 2} : Point{5, 1}),
                [own](const int rgb[3]) {
                    return rgb[own] > 0 && rgb[(own + 1) % 3] == 0 && rgb[(own + 2) % 3] == 0;
                }};
    }
    return {RegionSelection::fromPairTest(inside), [inside, combo](const int rgb[3]) {
                return inside(Point{float(rgb[kX[combo]]), float(rgb[kY[combo]])});
            }};
}

// Census classes red, green, blue, yellow, magenta, cyan, then the total and the four sums.
std::vector<std::int64_t> bruteForce(TestImage& img, const Rect& rect, int combo,
                                     const int levels[3], const PixelTest& selects) {
    std::vector<std::int64_t> e(11);
    for (auto [r, c] : visitedPixels(rect, img.w, img.h)) {
        const int rgb[3] = {img.at(r, c, 0), img.at(r, c, 1), img.at(r, c, 2)};
        if (!selects(rgb)) {
            continue;
        }
        bool above[3], zero[3];
        for (int k = 0; k < 3; ++k) {
            above[k] = rgb[k] > levels[k];
            zero[k] = rgb[k] == 0;
        }
        for (int k = 0; k < 3; ++k) {
            e[std::size_t(k)] += above[k] && zero[(k + 1) % 3] && zero[(k + 2) % 3];
        }
        e[3] += above[0] && above[1] && zero[2];
        e[4] += above[0] && above[2] && zero[1];
        e[5] += above[1] && above[2] && zero[0];
        e[6] += 1;
        const int y = rgb[kY[combo]], x = rgb[kX[combo]];
        e[7] += y;
        e[8] += x;
        e[9] += x > 0 && y > 0 ? y : 0;
        e[10] += x > 0 && y > 0 ? x : 0;
    }
    return e;
}

std::vector<std::int64_t> regionResults(const AnalysisState& s) {
    return {s.roiRedPixelCount,       s.roiGreenPixelCount,    s.roiBluePixelCount,
            s.roiYellowPixelCount,    s.roiMagentaPixelCount,  s.roiCyanPixelCount,
            s.roiTotalPixelCount,     s.sumROIPixelsYAxis,     s.sumROIPixelsXAxis,
            s.sumROIColocPixelsYAxis, s.sumROIColocPixelsXAxis};
}

AnalysisState passOver(TestImage& img, const Rect& rect, int combo, const int levels[3],
                       PairHistogram& histogram) {
    AnalysisState s;
    s.rgbCombo = combo;
    s.redMinimumLevel = levels[0];
    s.greenMinimumLevel = levels[1];
    s.blueMinimumLevel = levels[2];
    std::vector<std::uint8_t> scatter(kScatterGramBytes);
    EXPECT_TRUE(runAnalysisPass(img.info, img.planeArray(), rect, s, scatter.data(), histogram, 1));
    return s;
}

bool sameDouble(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

// Region census from the histogram, and the per-pixel steps, against the brute force.
TEST(RegionCensus, MatchesBruteForceForEveryPairLayoutAndRegionKind) {
    std::mt19937 rng(42);
    const Rect rects[] = {makeRect(0, 0, 37, 23), makeRect(1.5f, 2.25f, 30.7f, 19.2f),
                          makeRect(-3.5f, 10.0f, 60.0f, 40.0f)};
    const int levelSets[][3] = {{0, 0, 0}, {5, 0, 9}, {2, 200, 3}};
    for (Layout layout : {Layout::MeshedRGB, Layout::PaddedRGBA, Layout::Planar}) {
        TestImage img = randomImage(layout, 37, 23, rng);
        for (int combo = 0; combo < 6; ++combo) {
            for (int kind = 0; kind < 6; ++kind) {
                SCOPED_TRACE(testing::Message() << "layout " << int(layout) << " pair " << combo
                                                << " region " << kind);
                const Rect& rect = rects[kind % 3];
                const int* levels = levelSets[(kind + combo) % 3];
                const Region region = randomRegion(rng, kind, combo);
                const auto expected = bruteForce(img, rect, combo, levels, region.selects);

                PairHistogram histogram;
                AnalysisState s = passOver(img, rect, combo, levels, histogram);
                AnalysisState perPixel = s;
                countRegion(histogram, region.selection, s);
                EXPECT_EQ(regionResults(s), expected);
                computeColocalization_M1M2(s);
                EXPECT_TRUE(sameDouble(s.colocalization_M1, double(expected[9]) / expected[7]));
                EXPECT_TRUE(sameDouble(s.colocalization_M2, double(expected[10]) / expected[8]));

                for (auto [r, c] : visitedPixels(rect, img.w, img.h)) {
                    const int rgb[3] = {img.at(r, c, 0), img.at(r, c, 1), img.at(r, c, 2)};
                    const PackedRGB v = packRGB(img.at(r, c, 0), img.at(r, c, 1), img.at(r, c, 2));
                    if (kind >= 4) {
                        const Point mouse = kind == 4 ? Point{2, 2} : Point{5, 1};
                        ASSERT_EQ(roiSingleSelectedColorMatched(combo, mouse, v),
                                  region.selects(rgb));
                    }
                    if (region.selects(rgb)) {
                        countPixelsInScatterGramROI(perPixel, v);
                        countCoefficientsM1M2(perPixel, v);
                    }
                }
                EXPECT_EQ(regionResults(perPixel), expected);
            }
        }
    }
}

TEST(RegionCensus, OnePixelCases) {
    struct Case {
        int combo;
        std::uint8_t r, g, b;
        std::vector<std::int64_t> expected;
    };
    const Case cases[] = {{2, 10, 20, 30, {0, 0, 0, 0, 0, 0, 1, 20, 10, 20, 10}},
                          {0, 0, 0, 0, {0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}},
                          {4, 0, 0, 0, {0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0}}};
    std::mt19937 rng(1);
    for (const Case& c : cases) {
        TestImage img = randomImage(Layout::MeshedRGB, 1, 1, rng);
        img.planes[0] = {c.r, c.g, c.b};
        const int levels[3] = {0, 0, 0};
        PairHistogram histogram;
        AnalysisState s = passOver(img, makeRect(0, 0, 1, 1), c.combo, levels, histogram);
        countRegion(histogram, RegionSelection::fromPairTest([](Point) { return true; }), s);
        EXPECT_EQ(regionResults(s), c.expected);
        computeColocalization_M1M2(s);
        EXPECT_TRUE(c.combo != 2 || (s.colocalization_M1 == 1.0 && s.colocalization_M2 == 1.0));
    }
}

TEST(RegionSelection, AsksEachPairOnceAndSelectsEveryThirdState) {
    std::vector<int> asked(65536);
    const RegionSelection s = RegionSelection::fromPairTest([&](Point p) {
        asked[std::size_t(p.y) * 256 + std::size_t(p.x)] += 1;
        return p.x > p.y;
    });
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            ASSERT_EQ(asked[std::size_t(y * 256 + x)], 1);
            ASSERT_TRUE(s.isSelected(0, y, x) == (x > y) && s.isSelected(1, y, x) == (x > y) &&
                        s.isSelected(2, y, x) == (x > y));
        }
    }
}

// A reveal changes exactly the three colour bytes of each selected visited pixel, whatever the
// split among threads.
TEST(Reveal, PaintsExactlyTheSelectedPixels) {
    std::mt19937 rng(5);
    const Rect rects[] = {makeRect(0, 0, 41, 27), makeRect(2.5f, -1.5f, 33.3f, 20.0f)};
    for (Layout layout : {Layout::MeshedRGB, Layout::PaddedRGBA, Layout::Planar}) {
        TestImage img = randomImage(layout, 41, 27, rng);
        for (int combo = 0; combo < 6; ++combo) {
            for (int kind : {0, 2, 4, 5}) {
                SCOPED_TRACE(testing::Message() << "layout " << int(layout) << " pair " << combo
                                                << " region " << kind);
                const Rect& rect = rects[kind % 2];
                AnalysisState state;
                state.rgbCombo = combo;
                state.redRevealPixelValue = 251;
                state.greenRevealPixelValue = 252;
                state.blueRevealPixelValue = 253;
                state.blueMinimumLevel = kind;
                const Region region = randomRegion(rng, kind, combo);
                TestImage expected = img;
                for (auto [r, c] : visitedPixels(rect, img.w, img.h)) {
                    const int rgb[3] = {img.at(r, c, 0), img.at(r, c, 1), img.at(r, c, 2)};
                    for (int k = 0; k < 3 && region.selects(rgb); ++k) {
                        expected.at(r, c, k) = std::uint8_t(251 + k);
                    }
                }
                for (unsigned threads : {1u, 3u}) {
                    TestImage target = img;
                    ASSERT_TRUE(revealPixels(img.info, img.planeArray(), target.planeArray(), rect,
                                             region.selection, state, threads));
                    EXPECT_EQ(target.planes, expected.planes) << threads << " threads";

                    // Copying and painting in one pass gives the same bytes, padding included.
                    const bool planar = layout == Layout::Planar;
                    auto source =
                        Bitmap::create(img.w, img.h, planar ? 3 : img.spp,
                                       layout == Layout::PaddedRGBA, planar, img.bytesPerRow);
                    for (std::size_t k = 0; k < img.planes.size(); ++k) {
                        std::copy(img.planes[k].begin(), img.planes[k].end(),
                                  source->plane(int(k)));
                    }
                    auto painted =
                        revealedCopy(*source, img.info, rect, region.selection, state, threads);
                    ASSERT_TRUE(painted);
                    for (std::size_t k = 0; k < img.planes.size(); ++k) {
                        const std::uint8_t* p = painted->plane(int(k));
                        EXPECT_EQ(std::vector<std::uint8_t>(p, p + img.planes[k].size()),
                                  expected.planes[k]);
                    }
                }
            }
        }
    }
}

TEST(Reveal, PaintPixelAddressesFromTheBottomRow) {
    std::mt19937 rng(9);
    for (Layout layout : {Layout::PaddedRGBA, Layout::Planar}) {
        TestImage img = randomImage(layout, 5, 100, rng);
        TestImage expected = img;
        for (int k = 0; k < 3; ++k) {
            expected.at(99, 3, k) = std::uint8_t(10 + k);
        }
        paintPixel(img.info, img.planeArray(), Point{3.0f, 0.0f}, 10, 11, 12);
        EXPECT_EQ(img.planes, expected.planes);
    }
}

}  // namespace
}  // namespace pv
