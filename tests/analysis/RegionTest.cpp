#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <vector>

#include "analysis/AnalysisPass.h"
#include "scattergram/RegionSelection.h"
#include "scattergram/ScatterGram.h"

namespace pv {
namespace {

// Channels (0 red, 1 green, 2 blue) of Y and X per pair, written out independently.
constexpr int kY[6] = {0, 0, 1, 1, 2, 2};
constexpr int kX[6] = {1, 2, 0, 2, 0, 1};

enum class Layout { MeshedRGB, PaddedRGBA, Planar };

struct TestImage {
    Layout layout;
    int w, h, spp, bytesPerRow;
    std::vector<std::vector<std::uint8_t>> planes;
    BitmapInfo info;
    PlaneArray planeArray() {
        PlaneArray p{};
        for (std::size_t k = 0; k < planes.size(); ++k) {
            p[k] = planes[k].data();
        }
        return p;
    }
    // Sample k of the pixel in memory row r, column c.
    std::uint8_t& at(int r, int c, int k) {
        if (layout == Layout::Planar) {
            return planes[std::size_t(k)][std::size_t(r * bytesPerRow + c)];
        }
        return planes[0][std::size_t(r * bytesPerRow + c * spp + k)];
    }
};

// Samples are often 0 and often small, so that every census class and the level states occur.
TestImage randomImage(Layout layout, int w, int h, std::mt19937& rng) {
    TestImage img{
        layout, w,  h, layout == Layout::MeshedRGB ? 3 : (layout == Layout::Planar ? 1 : 4),
        0,      {}, {}};
    img.bytesPerRow = w * img.spp + (layout == Layout::PaddedRGBA ? 5 : 0);
    const int planes = layout == Layout::Planar ? 3 : 1;
    img.planes.assign(std::size_t(planes),
                      std::vector<std::uint8_t>(std::size_t(img.bytesPerRow * h)));
    for (auto& p : img.planes) {
        for (auto& b : p) {
            const unsigned u = rng() % 10;
            b = std::uint8_t(u < 4 ? 0 : (u < 7 ? rng() % 12 : rng() % 256));
        }
    }
    img.info = BitmapInfo{
        img.bytesPerRow, layout == Layout::Planar ? 3 : img.spp, 8 * img.spp, img.bytesPerRow * h,
        planes,          std::uint8_t(layout == Layout::Planar), float(h),    float(w)};
    return img;
}

// Memory rows and columns a scan of rect visits, each as often as it is visited.
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

struct Expected {
    std::int64_t cls[7] = {};  // red, green, blue, yellow, magenta, cyan, total
    std::int64_t sumY = 0, sumX = 0, colocY = 0, colocX = 0;
};

void addPixel(Expected& e, const int rgb[3], const int levels[3], int combo) {
    const bool above[3] = {rgb[0] > levels[0], rgb[1] > levels[1], rgb[2] > levels[2]};
    const bool zero[3] = {rgb[0] == 0, rgb[1] == 0, rgb[2] == 0};
    e.cls[6] += 1;
    for (int k = 0; k < 3; ++k) {
        if (above[k] && zero[(k + 1) % 3] && zero[(k + 2) % 3]) {
            e.cls[k] += 1;
        }
    }
    e.cls[3] += above[0] && above[1] && zero[2];
    e.cls[4] += above[0] && above[2] && zero[1];
    e.cls[5] += above[1] && above[2] && zero[0];
    const int y = rgb[kY[combo]];
    const int x = rgb[kX[combo]];
    e.sumY += y;
    e.sumX += x;
    if (x > 0 && y > 0) {
        e.colocY += y;
        e.colocX += x;
    }
}

using PixelTest = std::function<bool(const int rgb[3])>;

Expected bruteForce(TestImage& img, const Rect& rect, int combo, const int levels[3],
                    const PixelTest& selected) {
    Expected e;
    for (auto [r, c] : visitedPixels(rect, img.w, img.h)) {
        const int rgb[3] = {img.at(r, c, 0), img.at(r, c, 1), img.at(r, c, 2)};
        if (selected(rgb)) {
            addPixel(e, rgb, levels, combo);
        }
    }
    return e;
}

void expectState(const AnalysisState& s, const Expected& e) {
    EXPECT_EQ(s.roiRedPixelCount, e.cls[0]);
    EXPECT_EQ(s.roiGreenPixelCount, e.cls[1]);
    EXPECT_EQ(s.roiBluePixelCount, e.cls[2]);
    EXPECT_EQ(s.roiYellowPixelCount, e.cls[3]);
    EXPECT_EQ(s.roiMagentaPixelCount, e.cls[4]);
    EXPECT_EQ(s.roiCyanPixelCount, e.cls[5]);
    EXPECT_EQ(s.roiTotalPixelCount, e.cls[6]);
    EXPECT_EQ(s.sumROIPixelsYAxis, e.sumY);
    EXPECT_EQ(s.sumROIPixelsXAxis, e.sumX);
    EXPECT_EQ(s.sumROIColocPixelsYAxis, e.colocY);
    EXPECT_EQ(s.sumROIColocPixelsXAxis, e.colocX);
}

// Random regions of the scatter gram: a polygon under the even-odd rule, or a random set.
std::function<bool(Point)> randomRegion(std::mt19937& rng, int kind) {
    if (kind == 0) {
        std::vector<Point> poly;
        const int n = 3 + int(rng() % 6);
        for (int i = 0; i < n; ++i) {
            poly.push_back({float(rng() % 300) - 20.0f, float(rng() % 300) - 20.0f});
        }
        return [poly](Point p) {
            bool inside = false;
            for (std::size_t i = 0, j = poly.size() - 1; i < poly.size(); j = i++) {
                const Point a = poly[i], b = poly[j];
                if ((a.y > p.y) != (b.y > p.y) &&
                    p.x < (b.x - a.x) * (p.y - a.y) / (b.y - a.y) + a.x) {
                    inside = !inside;
                }
            }
            return inside;
        };
    }
    auto set = std::make_shared<std::vector<bool>>(65536);
    for (std::size_t i = 0; i < set->size(); ++i) {
        (*set)[i] = rng() % 3 == 0;
    }
    (*set)[0] = kind == 2;  // the (0, 0) corner in or out
    return [set](Point p) { return (*set)[std::size_t(p.y) * 256 + std::size_t(p.x)]; };
}

struct Pass {
    PairHistogram histogram;
    AnalysisState state;
};

Pass runPass(TestImage& img, const Rect& rect, int combo, const int levels[3]) {
    Pass p;
    p.state.rgbCombo = combo;
    p.state.redMinimumLevel = levels[0];
    p.state.greenMinimumLevel = levels[1];
    p.state.blueMinimumLevel = levels[2];
    std::vector<std::uint8_t> scatter(kScatterGramBytes);
    EXPECT_TRUE(
        runAnalysisPass(img.info, img.planeArray(), rect, p.state, scatter.data(), p.histogram, 1));
    return p;
}

TEST(RegionCensus, MatchesPerPixelCountOnRandomImagesAndRegions) {
    std::mt19937 rng(42);
    const Layout layouts[] = {Layout::MeshedRGB, Layout::PaddedRGBA, Layout::Planar};
    const Rect rects[] = {makeRect(0, 0, 37, 23), makeRect(1.5f, 2.25f, 30.7f, 19.2f),
                          makeRect(-3.5f, 10.0f, 60.0f, 40.0f)};
    const int levelSets[][3] = {{0, 0, 0}, {5, 0, 9}, {2, 200, 3}};
    for (Layout layout : layouts) {
        TestImage img = randomImage(layout, 37, 23, rng);
        for (int combo = 0; combo < 6; ++combo) {
            for (int round = 0; round < 6; ++round) {
                const Rect& rect = rects[round % 3];
                const int* levels = levelSets[(round + combo) % 3];
                SCOPED_TRACE(testing::Message() << "layout " << int(layout) << " pair " << combo
                                                << " round " << round);
                auto region = randomRegion(rng, round % 3);
                Pass p = runPass(img, rect, combo, levels);
                countRegion(p.histogram, RegionSelection::fromPairTest(region), p.state);
                const Expected e = bruteForce(img, rect, combo, levels, [&](const int rgb[3]) {
                    return region(Point{float(rgb[kX[combo]]), float(rgb[kY[combo]])});
                });
                expectState(p.state, e);
                computeColocalization_M1M2(p.state);
                EXPECT_DOUBLE_EQ(p.state.colocalization_M1, double(e.colocY) / double(e.sumY));
                EXPECT_DOUBLE_EQ(p.state.colocalization_M2, double(e.colocX) / double(e.sumX));
            }
        }
    }
}

TEST(RegionCensus, PerPixelStepsMatchBruteForce) {
    std::mt19937 rng(7);
    TestImage img = randomImage(Layout::PaddedRGBA, 29, 17, rng);
    const int levels[3] = {0, 4, 0};
    const Rect rect = makeRect(0, 0, 29, 17);
    for (int combo = 0; combo < 6; ++combo) {
        auto region = randomRegion(rng, 0);
        AnalysisState s;
        s.rgbCombo = combo;
        s.greenMinimumLevel = levels[1];
        for (auto [r, c] : visitedPixels(rect, img.w, img.h)) {
            const PackedRGB v = packRGB(img.at(r, c, 0), img.at(r, c, 1), img.at(r, c, 2));
            if (region(getScatterGramPixelLocation(combo, v))) {
                countPixelsInScatterGramROI(s, v);
                countCoefficientsM1M2(s, v);
            }
        }
        expectState(s, bruteForce(img, rect, combo, levels, [&](const int rgb[3]) {
                        return region(Point{float(rgb[kX[combo]]), float(rgb[kY[combo]])});
                    }));
    }
}

TEST(RegionCensus, EmptyRegionCountsNothingAndGivesNaN) {
    std::mt19937 rng(3);
    TestImage img = randomImage(Layout::MeshedRGB, 16, 16, rng);
    const int levels[3] = {0, 0, 0};
    Pass p = runPass(img, makeRect(0, 0, 16, 16), 3, levels);
    p.state.roiTotalPixelCount = 99;
    p.state.sumROIPixelsXAxis = 99;
    countRegion(p.histogram, RegionSelection{}, p.state);
    expectState(p.state, Expected{});
    computeColocalization_M1M2(p.state);
    EXPECT_TRUE(std::isnan(p.state.colocalization_M1));
    EXPECT_TRUE(std::isnan(p.state.colocalization_M2));
}

TEST(RegionCensus, SingleColourSelectionMatchesItsDefinition) {
    std::mt19937 rng(11);
    const Point points[] = {{0, 0}, {3, 7}, {5, 1}};
    for (Layout layout : {Layout::MeshedRGB, Layout::Planar}) {
        TestImage img = randomImage(layout, 31, 19, rng);
        // Plenty of pixels with exactly one channel set.
        for (int r = 0; r < img.h; ++r) {
            for (int c = 0; c < img.w; c += 2) {
                for (int k = 0; k < 3; ++k) {
                    img.at(r, c, k) = k == (r + c) % 3 ? std::uint8_t(1 + rng() % 255) : 0;
                }
            }
        }
        const int levels[3] = {0, 0, 0};
        const Rect rect = makeRect(0, 0, 31, 19);
        for (int combo = 0; combo < 6; ++combo) {
            for (Point m : points) {
                const int own = m.y >= m.x ? kY[combo] : kX[combo];
                const PixelTest matched = [own](const int rgb[3]) {
                    return rgb[own] > 0 && rgb[(own + 1) % 3] == 0 && rgb[(own + 2) % 3] == 0;
                };
                Pass p = runPass(img, rect, combo, levels);
                countRegion(p.histogram, RegionSelection::singleColor(m), p.state);
                expectState(p.state, bruteForce(img, rect, combo, levels, matched));
                for (int i = 0; i < 200; ++i) {
                    const int rgb[3] = {rng() % 3 == 0 ? 0 : int(rng() % 256), int(rng() % 2) * 7,
                                        rng() % 2 == 0 ? 0 : int(rng() % 256)};
                    EXPECT_EQ(roiSingleSelectedColorMatched(
                                  combo, m,
                                  packRGB(std::uint8_t(rgb[0]), std::uint8_t(rgb[1]),
                                          std::uint8_t(rgb[2]))),
                              matched(rgb));
                }
            }
        }
    }
}

TEST(RegionCensus, EdgeCases) {
    struct Case {
        int combo;
        std::uint8_t r, g, b;
        Expected e;
    };
    Expected allThree;
    allThree.cls[6] = 1;
    allThree.sumY = 20;
    allThree.sumX = 10;
    allThree.colocY = 20;
    allThree.colocX = 10;
    Expected black;
    black.cls[6] = 1;
    const Case cases[] = {{2, 10, 20, 30, allThree}, {0, 0, 0, 0, black}, {4, 0, 0, 0, black}};
    std::mt19937 rng(1);
    for (const Case& c : cases) {
        TestImage img = randomImage(Layout::MeshedRGB, 1, 1, rng);
        img.at(0, 0, 0) = c.r;
        img.at(0, 0, 1) = c.g;
        img.at(0, 0, 2) = c.b;
        const int levels[3] = {0, 0, 0};
        Pass p = runPass(img, makeRect(0, 0, 1, 1), c.combo, levels);
        countRegion(p.histogram, RegionSelection::fromPairTest([](Point) { return true; }),
                    p.state);
        expectState(p.state, c.e);
    }
    // One pixel with both channels: M1 = M2 = 1.
    AnalysisState s;
    s.sumROIColocPixelsYAxis = s.sumROIPixelsYAxis = 20;
    s.sumROIColocPixelsXAxis = s.sumROIPixelsXAxis = 10;
    computeColocalization_M1M2(s);
    EXPECT_EQ(s.colocalization_M1, 1.0);
    EXPECT_EQ(s.colocalization_M2, 1.0);
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
            for (int t = 0; t < 3; ++t) {
                ASSERT_EQ(s.isSelected(t, y, x), x > y);
            }
        }
    }
}

// A reveal changes exactly the three colour bytes of each selected visited pixel.
TEST(Reveal, PaintsExactlyTheSelectedPixels) {
    std::mt19937 rng(5);
    const Rect rects[] = {makeRect(0, 0, 41, 27), makeRect(2.5f, -1.5f, 33.3f, 20.0f)};
    for (Layout layout : {Layout::MeshedRGB, Layout::PaddedRGBA, Layout::Planar}) {
        TestImage img = randomImage(layout, 41, 27, rng);
        for (int combo = 0; combo < 6; ++combo) {
            for (int round = 0; round < 4; ++round) {
                SCOPED_TRACE(testing::Message() << "layout " << int(layout) << " pair " << combo
                                                << " round " << round);
                const Rect& rect = rects[round % 2];
                AnalysisState state;
                state.rgbCombo = combo;
                state.redRevealPixelValue = 251;
                state.greenRevealPixelValue = 252;
                state.blueRevealPixelValue = 253;
                state.blueMinimumLevel = round;
                const bool single = round == 3;
                auto region = randomRegion(rng, round % 3);
                const RegionSelection selection = single ? RegionSelection::singleColor({0, 0})
                                                         : RegionSelection::fromPairTest(region);
                TestImage expected = img;
                for (auto [r, c] : visitedPixels(rect, img.w, img.h)) {
                    const int rgb[3] = {img.at(r, c, 0), img.at(r, c, 1), img.at(r, c, 2)};
                    const int y = rgb[kY[combo]], x = rgb[kX[combo]];
                    const bool on = single ? y > 0 && rgb[3 - kY[combo] - kX[combo]] == 0 && x == 0
                                           : region(Point{float(x), float(y)});
                    if (on) {
                        expected.at(r, c, 0) = 251;
                        expected.at(r, c, 1) = 252;
                        expected.at(r, c, 2) = 253;
                    }
                }
                for (unsigned threads : {1u, 3u}) {
                    TestImage target = img;
                    ASSERT_TRUE(revealPixels(img.info, img.planeArray(), target.planeArray(), rect,
                                             selection, state, threads));
                    EXPECT_EQ(target.planes, expected.planes) << threads << " threads";
                }
            }
        }
    }
}

TEST(Reveal, PaintPixelAddressesFromTheBottomRow) {
    for (Layout layout : {Layout::PaddedRGBA, Layout::Planar}) {
        std::mt19937 rng(9);
        TestImage img = randomImage(layout, 5, 100, rng);
        TestImage expected = img;
        for (int k = 0; k < 3; ++k) {
            expected.at(99, 3, k) = std::uint8_t(10 + k);
        }
        paintPixel(img.info, img.planeArray(), Point{3.0f, 0.0f}, 10, 11, 12);
        EXPECT_EQ(img.planes, expected.planes);
        if (layout == Layout::PaddedRGBA) {
            EXPECT_EQ(img.planes[0][std::size_t(99 * img.bytesPerRow + 3 * 4)], 10);
        }
    }
}

}  // namespace
}  // namespace pv
