#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>
#include <vector>

#include "TestRaster.h"
#include "analysis/AnalysisPass.h"
#include "analysis/Coefficients.h"
#include "analysis/LabelAnalysis.h"
#include "analysis/LabelMeasures.h"
#include "analysis/RegionCensus.h"
#include "analysis/Reveal.h"
#include "analysis/ScatterGram.h"
#include "analysis/Significance.h"

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

using PixelTest = std::function<bool(const int rgb[3])>;

struct Region {
    RegionSelection selection;
    PixelTest selects;
};

// Kinds: 0 a random polygon (even-odd ray cast), 1 and 2 random sets of points without and
// with the (0, 0) corner, 3 nothing, 4 the single-colour test (Y alone).
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
        const int own = kY[combo];
        return {RegionSelection::singleColor(), [own](const int rgb[3]) {
                    return rgb[own] > 0 && rgb[(own + 1) % 3] == 0 && rgb[(own + 2) % 3] == 0;
                }};
    }
    return {RegionSelection::fromPairTest(inside), [inside, combo](const int rgb[3]) {
                return inside(Point{float(rgb[kX[combo]]), float(rgb[kY[combo]])});
            }};
}

// Census class 0-5 (red, green, blue, yellow, magenta, cyan) or -1; the first match wins,
// which matters when a negative level makes 0 count as above it.
int censusClass(const int rgb[3], const int levels[3]) {
    bool above[3], zero[3];
    for (int k = 0; k < 3; ++k) {
        above[k] = rgb[k] > levels[k];
        zero[k] = rgb[k] == 0;
    }
    for (int k = 0; k < 3; ++k) {
        if (above[k] && zero[(k + 1) % 3] && zero[(k + 2) % 3]) {
            return k;
        }
    }
    return above[0] && above[1] && zero[2]   ? 3
           : above[0] && above[2] && zero[1] ? 4
           : above[1] && above[2] && zero[0] ? 5
                                             : -1;
}

struct Expected {
    std::vector<std::int64_t> whole = std::vector<std::int64_t>(15);  // census, total, sums
    std::vector<std::int64_t> region = std::vector<std::int64_t>(11);
    std::vector<std::uint8_t> scatter = std::vector<std::uint8_t>(kScatterGramBytes, 0);
    std::vector<std::uint64_t> histogram = std::vector<std::uint64_t>(PairHistogram::kBins, 0);
};

// mask: a byte a pixel, row by row, 0 where the pixel is left out; empty for every pixel.
Expected bruteForce(TestImage& img, int combo, const int levels[3], const PixelTest& selects,
                    const std::vector<std::uint8_t>& mask = {}) {
    Expected e;
    for (int r = 0; r < img.h; ++r) {
        for (int c = 0; c < img.w; ++c) {
            if (!mask.empty() && mask[std::size_t(r * img.w + c)] == 0) {
                continue;
            }
            const int rgb[3] = {img.at(r, c, 0), img.at(r, c, 1), img.at(r, c, 2)};
            const int k = censusClass(rgb, levels), third = 3 - kY[combo] - kX[combo];
            const std::int64_t y = rgb[kY[combo]], x = rgb[kX[combo]], t = rgb[third];
            if (k >= 0) {
                e.whole[std::size_t(k)] += 1;
            }
            e.whole[6] += 1;
            if (x > 0 || y > 0) {
                const std::int64_t sums[6] = {x * y, x, x * x, y, y * y, 1};
                for (std::size_t i = 0; i < 6; ++i) {
                    e.whole[7 + i] += sums[i];
                }
            }
            e.whole[13] += y > 0 ? x : 0;
            e.whole[14] += x > 0 ? y : 0;
            const std::size_t at = std::size_t((255 - y) * 768 + x * 3);
            e.scatter[at + std::size_t(kY[combo])] = std::uint8_t(y);
            e.scatter[at + std::size_t(kX[combo])] = std::uint8_t(x);
            const std::int64_t state = t == 0 ? 0 : (t > levels[third] ? 1 : 2);
            e.histogram[std::size_t((state * 256 + y) * 256 + x)] += 1;
            if (selects(rgb)) {
                const std::int64_t sums[4] = {y, x, x > 0 && y > 0 ? y : 0, x > 0 && y > 0 ? x : 0};
                if (k >= 0) {
                    e.region[std::size_t(k)] += 1;
                }
                e.region[6] += 1;
                for (std::size_t i = 0; i < 4; ++i) {
                    e.region[7 + i] += sums[i];
                }
            }
        }
    }
    return e;
}

// The census, then the sums in the order the brute force keeps them.
std::vector<std::int64_t> results(const PixelCensus& c, std::initializer_list<std::int64_t> sums) {
    std::vector<std::int64_t> v = {c.redPixelCount,    c.greenPixelCount,   c.bluePixelCount,
                                   c.yellowPixelCount, c.magentaPixelCount, c.cyanPixelCount,
                                   c.totalPixelCount};
    v.insert(v.end(), sums);
    return v;
}

std::vector<std::int64_t> wholeResults(const AnalysisState& a) {
    const PairSums& s = a.sums;
    return results(a.census, {s.sumPixelsXYAxis, s.sumPixelsXAxis, s.sumPixelsXSquaredAxis,
                              s.sumPixelsYAxis, s.sumPixelsYSquaredAxis, s.sumPixelCount,
                              s.sumColocPixelsXAxis, s.sumColocPixelsYAxis});
}

std::vector<std::int64_t> regionResults(const RegionCount& r) {
    const RegionSums& s = r.sums;
    return results(r.census, {s.sumROIPixelsYAxis, s.sumROIPixelsXAxis, s.sumROIColocPixelsYAxis,
                              s.sumROIColocPixelsXAxis});
}

bool sameDouble(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
}

MinimumLevels levelsOf(const int levels[3]) {
    return {levels[0], levels[1], levels[2]};
}

// The pass with any split, then the region census from its histogram, must give what the brute
// force gives for every pixel (or every pixel inside a mask), whatever the layout.
TEST(AnalysisPass, WholeAndRegionResultsMatchBruteForce) {
    std::mt19937 rng(42);
    const int levelSets[][3] = {{0, 0, 0}, {5, 0, 100}, {-5, 300, 1}};
    for (Layout layout : {Layout::MeshedRGB, Layout::PaddedRGBA, Layout::Planar}) {
        TestImage img = randomImage(layout, 37, 23, rng);
        // A mask with rows 3 bytes longer than the picture's, a third of its pixels left out.
        const std::ptrdiff_t maskRow = img.w + 3;
        std::vector<std::uint8_t> maskRows(std::size_t(maskRow * img.h)), mask;
        for (int r = 0; r < img.h; ++r) {
            for (int c = 0; c < img.w; ++c) {
                const std::uint8_t m = rng() % 3 == 0 ? 0 : std::uint8_t(1 + rng() % 255);
                maskRows[std::size_t(r * maskRow + c)] = m;
                mask.push_back(m);
            }
        }
        for (int combo = 0; combo < kRGBComboCount; ++combo) {
            for (int kind = 0; kind < 6; ++kind) {
                SCOPED_TRACE(testing::Message() << "layout " << int(layout) << " pair " << combo
                                                << " region " << kind);
                const int* levels = levelSets[(kind + combo) % 3];
                const Region region = randomRegion(rng, kind % 5, combo);
                const bool masked = kind == 5;
                const Expected e = bruteForce(img, combo, levels, region.selects,
                                              masked ? mask : std::vector<std::uint8_t>{});
                const MaskView maskView =
                    masked ? MaskView{maskRows.data(), maskRow, img.w, img.h} : MaskView{};
                for (unsigned threads : {1u, 2u, 3u, 0u}) {
                    SCOPED_TRACE(testing::Message() << "threads " << threads);
                    AnalysisState s;
                    s.rgbCombo = RGBCombo(combo);
                    s.levels = levelsOf(levels);
                    s.census.cyanPixelCount = 99;  // stale values of an earlier pass must go
                    s.sums.sumPixelsXAxis = 12345;
                    std::vector<std::uint8_t> scatter(kScatterGramBytes, 0x5A);
                    PairHistogram hist;
                    ASSERT_TRUE(runAnalysisPass(img.view(), s, scatter.data(), hist, threads, {},
                                                maskView));
                    EXPECT_EQ(wholeResults(s), e.whole);
                    EXPECT_TRUE(scatter == e.scatter);
                    EXPECT_TRUE(hist.counts == e.histogram);
                    EXPECT_EQ(int(hist.rgbCombo), combo);
                    const RegionCount count = countRegion(hist, region.selection);
                    EXPECT_EQ(regionResults(count), e.region);
                    const RegionCoefficients m = colocalization_M1M2(count.sums);
                    EXPECT_TRUE(sameDouble(m.colocalization_M1, double(e.region[9]) / e.region[7]));
                    EXPECT_TRUE(
                        sameDouble(m.colocalization_M2, double(e.region[10]) / e.region[8]));
                }
            }
        }
    }
}

// An empty picture and a cancelled pass leave nothing behind.
TEST(AnalysisPass, EmptyPictureAndCancelGiveEmptyResults) {
    std::mt19937 rng(3);
    TestImage img = randomImage(Layout::MeshedRGB, 300, 200, rng);
    for (bool cancel : {false, true}) {
        AnalysisState s;
        std::vector<std::uint8_t> scatter(kScatterGramBytes, 0x5A);
        PairHistogram hist;
        const ChannelView view = cancel ? img.view() : ChannelView{};
        EXPECT_EQ(runAnalysisPass(view, s, scatter.data(), hist, 2, [cancel] { return cancel; }),
                  !cancel);
        EXPECT_EQ(wholeResults(s), std::vector<std::int64_t>(15, 0));
        EXPECT_TRUE(std::all_of(scatter.begin(), scatter.end(), [](int b) { return b == 0; }));
        EXPECT_EQ(countRegion(hist, RegionSelection::singleColor()).census.totalPixelCount, 0);
    }
}

// Brute force: the source's bytes, with the colour written to red, green and blue in turn of
// each selected pixel (so a grey pixel ends up blue).
// mask: a byte a pixel, 0 where the pixel is not revealed; empty for every pixel.
std::vector<std::uint8_t> revealedBytes(const Bitmap& source, const PixelTest& selects,
                                        const RevealColour& colour,
                                        const std::vector<std::uint8_t>& mask = {}) {
    std::vector<std::uint8_t> bytes = test::bytesOf(source);
    const std::uint8_t paint[3] = {colour.redRevealPixelValue, colour.greenRevealPixelValue,
                                   colour.blueRevealPixelValue};
    for (int r = 0; r < source.pixelsHigh(); ++r) {
        for (int c = 0; c < source.pixelsWide(); ++c) {
            int rgb[3];
            for (int k = 0; k < 3; ++k) {
                rgb[k] = source.bitmapData()[test::sampleOffset(source, r, c, k)];
            }
            const bool inside = mask.empty() || mask[std::size_t(r * source.pixelsWide() + c)];
            for (int k = 0; k < 3 && inside && selects(rgb); ++k) {
                bytes[test::sampleOffset(source, r, c, k)] = paint[k];
            }
        }
    }
    return bytes;
}

// A reveal paints exactly the selected pixels and takes every other byte from the source, in
// every layout and whatever the split among threads, over a bitmap that held other pixels
// (the last reveal of another region, say).
TEST(Reveal, PaintsExactlyTheSelectedPixels) {
    std::mt19937 rng(5);
    const auto sample = [](std::mt19937& g) {
        const unsigned u = g() % 10;
        return u < 4 ? 0 : (u < 7 ? g() % 12 : g() % 256);
    };
    const RevealColour colour{251, 252, 253};
    for (const test::BitmapLayout& layout : test::kBitmapLayouts) {
        const Bitmap source = test::randomBitmap(layout, 41, 27, rng, sample);
        Bitmap reused = test::randomBitmap(layout, 41, 27, rng, sample);
        // Outside a mask (a third of the pixels) nothing is revealed.
        std::vector<std::uint8_t> mask(41 * 27);
        for (auto& m : mask) {
            m = rng() % 3 == 0 ? 0 : 1;
        }
        for (int combo = 0; combo < kRGBComboCount; ++combo) {
            for (int kind : {0, 2, 4, 5}) {
                SCOPED_TRACE(testing::Message()
                             << layout.name << ", pair " << combo << ", region " << kind);
                const MinimumLevels levels{0, 0, kind};
                const Region region = randomRegion(rng, kind % 5, combo);
                const bool masked = kind == 5;
                const std::vector<std::uint8_t> expected = revealedBytes(
                    source, region.selects, colour, masked ? mask : std::vector<std::uint8_t>{});
                for (unsigned threads : {1u, 3u}) {
                    ASSERT_TRUE(paintReveal(
                        source, reused, RGBCombo(combo), levels, region.selection, colour, threads,
                        {}, masked ? MaskView{mask.data(), 41, 41, 27} : MaskView{}));
                    EXPECT_EQ(test::bytesOf(reused), expected) << threads << " threads";
                }
            }
        }
    }
}

// A target of another layout is refused untouched: painting it could run past its rows.
TEST(Reveal, RefusesATargetOfAnotherLayout) {
    std::mt19937 rng(6);
    const auto sample = [](std::mt19937& g) { return g(); };
    const test::BitmapLayout& meshed = test::kBitmapLayouts[0];
    const Bitmap source = test::randomBitmap(meshed, 20, 10, rng, sample);
    for (const test::BitmapLayout& layout : test::kBitmapLayouts) {
        Bitmap target = test::randomBitmap(layout, 20, &layout == &meshed ? 9 : 10, rng, sample);
        const std::vector<std::uint8_t> before = test::bytesOf(target);
        EXPECT_FALSE(paintReveal(source, target, RGBCombo::RedGreen, {},
                                 RegionSelection::singleColor(), {}, 1))
            << layout.name;
        EXPECT_EQ(test::bytesOf(target), before) << layout.name;
    }
}

// A mask of another size than the picture, or with rows shorter than the picture's, would be
// read past its end or against the wrong pixels: every pass that reads a mask refuses it.
TEST(Mask, EveryPassRefusesOneOfAnotherSize) {
    std::mt19937 rng(8);
    const int w = 12, h = 9;
    const Bitmap picture =
        test::randomBitmap(test::kBitmapLayouts[0], w, h, rng, [](std::mt19937& g) { return g(); });
    const ChannelView view = picture.channels();
    const LabelImage labels{w, h, LabelImage::Labels(std::size_t(w * h), 1)};
    const std::vector<CellBox> boxes = cellBoxes(view, labels);
    const std::uint32_t cells[] = {1};
    std::vector<std::uint8_t> bytes(std::size_t((w + 1) * (h + 1)), 255);
    for (const auto& [mask, ok] : {std::pair(MaskView{bytes.data(), w - 1, w - 1, h}, false),
                                   {MaskView{bytes.data(), w, w, h + 1}, false},
                                   {MaskView{bytes.data(), w - 1, w, h}, false},
                                   {MaskView{bytes.data(), w, w, h}, true}}) {
        SCOPED_TRACE(testing::Message()
                     << mask.width << " x " << mask.height << " rows of " << mask.rowStride);
        PairHistogram histogram;
        EXPECT_EQ(countPairs(view, RGBCombo::RedGreen, {}, histogram, 1, {}, mask), ok);
        EXPECT_EQ(histogram.counts.empty(), !ok);
        BlockShuffleTest test(2);
        EXPECT_EQ(test.addPlane(view, RGBCombo::RedGreen, mask), ok);
        EXPECT_EQ(test.blockCount(), ok ? 24u : 0u);
        EXPECT_EQ(binsByLabel(view, labels, RGBCombo::RedGreen, mask).bins.size(), ok ? 108u : 0u);
        EXPECT_EQ(cellBoxes(view, labels, mask).empty(), !ok);
        EXPECT_EQ(labelSignificance(view, labels, boxes, cells, RGBCombo::RedGreen, mask, 2, 5, 1)
                      .has_value(),
                  ok);
        EXPECT_EQ(analyseLabels(view, labels, RGBCombo::RedGreen, {}, nullptr, mask).empty(), !ok);
        std::optional<Bitmap> target = picture.copy();
        ASSERT_TRUE(target);
        EXPECT_EQ(paintReveal(picture, *target, RGBCombo::RedGreen, {},
                              RegionSelection::singleColor(), {}, 1, {}, mask),
                  ok);
    }
}

}  // namespace
}  // namespace pv
