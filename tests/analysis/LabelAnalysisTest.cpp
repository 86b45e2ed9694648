#include <gtest/gtest.h>

#include <map>
#include <random>

#include "TestRaster.h"
#include "analysis/AnalysisPass.h"
#include "analysis/LabelAnalysis.h"
#include "analysis/ScatterGram.h"

namespace pv {
namespace {

using test::Layout;

// The results of one cell against those of a picture of its pixels alone, laid in one row,
// through the whole-picture pass and region count.
void expectLikeItsOwnPicture(const LabelResult& cell, const std::vector<std::uint8_t>& pixels,
                             RGBCombo combo, const MinimumLevels& levels,
                             const RegionSelection& region) {
    const auto alone = ChannelView::over(
        {std::span(pixels.data(), pixels.size()), std::span(pixels.data() + 1, pixels.size() - 1),
         std::span(pixels.data() + 2, pixels.size() - 2)},
        3, std::ptrdiff_t(pixels.size()), std::int64_t(pixels.size() / 3), 1);
    ASSERT_TRUE(alone);
    AnalysisState s;
    s.rgbCombo = combo;
    s.levels = levels;
    std::vector<std::uint8_t> scatter(kScatterGramBytes);
    PairHistogram histogram;
    ASSERT_TRUE(runAnalysisPass(*alone, s, scatter.data(), histogram, 1));
    const RegionCount roi = countRegion(histogram, region);
    const auto census = [](const PixelCensus& c) {
        return std::vector<std::int64_t>{c.redPixelCount,    c.greenPixelCount,   c.bluePixelCount,
                                         c.yellowPixelCount, c.magentaPixelCount, c.cyanPixelCount,
                                         c.totalPixelCount};
    };
    const auto sums = [](const PairSums& p, const RegionSums& r) {
        return std::vector<std::int64_t>{
            p.sumPixelsXYAxis,     p.sumPixelsXAxis,         p.sumPixelsXSquaredAxis,
            p.sumPixelsYAxis,      p.sumPixelsYSquaredAxis,  p.sumPixelCount,
            p.sumColocPixelsXAxis, p.sumColocPixelsYAxis,    r.sumROIPixelsYAxis,
            r.sumROIPixelsXAxis,   r.sumROIColocPixelsYAxis, r.sumROIColocPixelsXAxis};
    };
    EXPECT_EQ(census(cell.census), census(s.census));
    EXPECT_EQ(census(cell.roiCensus), census(roi.census));
    EXPECT_EQ(sums(cell.sums, cell.roiSums), sums(s.sums, roi.sums));
}

// Touching cells, cells in several pieces, labels that skip numbers, a mask over part of them,
// every layout and any split among threads: each cell as if it were a picture of its own. Cells
// narrower than the 16 pixels summed at a time, wider ones with a remainder, and rows longer than
// the vector sums hold before they are added up.
TEST(LabelAnalysis, EachCellAsAPictureOfItsOwnPixels) {
    for (const auto& [w, h, bandWide] : {std::tuple(41, 29, 5), {150, 21, 37}, {4133, 3, 4133}}) {
        SCOPED_TRACE(testing::Message() << w << " x " << h << ", bands of " << bandWide);
        std::mt19937 rng(7);
        LabelImage labels{w, h, LabelImage::Labels(std::size_t(w * h), 0)};
        for (int r = 0; r < h; ++r) {
            for (int c = 0; c < w; ++c) {
                // Bands of 5 columns by rows of 10, numbered sparsely; band 3 of a row shares its
                // label with band 0 of the same row, so that cell is in two pieces.
                const int band = c / bandWide, rows = r / 10;
                const std::uint16_t label =
                    band % 4 == 2 ? 0 : std::uint16_t(rows * 100 + band % 3 * 7 + 1);
                labels.labels[std::size_t(r * w + c)] = label;
            }
        }
        std::vector<std::uint8_t> mask(std::size_t(w * h));
        for (auto& m : mask) {
            m = rng() % 4 == 0 ? 0 : 1;
        }
        // A region drawn on the scatter gram, and one that depends on the third sample too.
        const RegionSelection regions[] = {
            RegionSelection::fromPairTest([](Point p) { return p.x > 40 && p.y < 200; }),
            RegionSelection::singleColor()};
        const MinimumLevels levels{10, 0, 30};
        for (Layout layout : {Layout::MeshedRGB, Layout::PaddedRGBA, Layout::Planar}) {
            const test::Raster img = test::randomRaster(
                layout, w, h, rng, [](std::mt19937& g) { return g() % 3 == 0 ? 0u : g() % 256; });
            for (const bool masked : {false, true}) {
                for (const int combo : {0, 4}) {
                    SCOPED_TRACE(testing::Message() << "layout " << int(layout) << " masked "
                                                    << masked << " pair " << combo);
                    // Each cell's pixels, in the order the rows give them.
                    std::map<std::uint32_t, std::vector<std::uint8_t>> pixels;
                    const ChannelView view = img.view();
                    for (int r = 0; r < h; ++r) {
                        for (int c = 0; c < w; ++c) {
                            const std::uint32_t label = labels.labels[std::size_t(r * w + c)];
                            if (label != 0 && (!masked || mask[std::size_t(r * w + c)] != 0)) {
                                for (int k = 0; k < 3; ++k) {
                                    pixels[label].push_back(*view.sample(k, r, c));
                                }
                            }
                        }
                    }
                    for (const auto& [threads, region] :
                         {std::pair<unsigned, const RegionSelection&>(1u, regions[0]),
                          {3u, regions[0]},
                          {1u, regions[1]}}) {
                        const auto cells = analyseLabels(
                            view, labels, RGBCombo(combo), levels, &region,
                            masked ? MaskView{mask.data(), w, w, h} : MaskView{}, threads);
                        ASSERT_EQ(cells.size(), pixels.size());
                        auto expected = pixels.begin();
                        for (const LabelResult& cell : cells) {
                            ASSERT_EQ(cell.label, expected->first);
                            expectLikeItsOwnPicture(cell, expected->second, RGBCombo(combo), levels,
                                                    region);
                            ++expected;
                        }
                    }
                }
            }
        }
    }
}

}  // namespace
}  // namespace pv
