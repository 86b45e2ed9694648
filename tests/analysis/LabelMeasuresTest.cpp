#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <random>
#include <string>

#include "TestRaster.h"
#include "analysis/LabelMeasures.h"

namespace pv {
namespace {

using test::Layout;

// Touching cells, a cell in two pieces, skipped numbers, a label far above the others.
LabelImage patchworkLabels(int w, int h) {
    LabelImage labels{w, h, LabelImage::Labels(std::size_t(w * h), 0)};
    for (int r = 0; r < h; ++r) {
        for (int c = 0; c < w; ++c) {
            const int band = c / 6, rows = r / 9;
            labels.labels[std::size_t(r * w + c)] =
                band % 4 == 2 ? 0 : std::uint16_t(rows * 10 + band % 3 * 3 + 1);
        }
    }
    labels.labels[std::size_t(w * h - 1)] = 65535;
    return labels;
}

// Each cell's bins, written out pixel by pixel.
std::map<std::uint32_t, std::vector<std::uint16_t>> bruteBins(
    const ChannelView& view, const LabelImage& labels, RGBCombo combo,
    const std::vector<std::uint8_t>* mask) {
    const ChannelPair pair = channelPairFor(combo);
    std::map<std::uint32_t, std::vector<std::uint16_t>> cells;
    for (int r = 0; r < labels.high; ++r) {
        for (int c = 0; c < labels.wide; ++c) {
            const std::size_t i = std::size_t(r * labels.wide + c);
            if (labels.labels[i] != 0 && (mask == nullptr || (*mask)[i] != 0)) {
                cells[labels.labels[i]].push_back(
                    std::uint16_t(*view.sample(pair.y, r, c) * 256 + *view.sample(pair.x, r, c)));
            }
        }
    }
    return cells;
}

// Every cell's bins, and its pairs as a measure sees them (the histogram shared with the cells
// before it left clean), for any layout, pair, mask and number of threads.
TEST(LabelMeasures, EachCellGetsExactlyItsOwnPixels) {
    std::mt19937 rng(11);
    const int w = 37, h = 31;
    const LabelImage labels = patchworkLabels(w, h);
    std::vector<std::uint8_t> mask(std::size_t(w * h));
    for (auto& m : mask) {
        m = rng() % 3 == 0 ? 0 : 255;
    }
    for (Layout layout : {Layout::MeshedRGB, Layout::PaddedRGBA, Layout::Planar}) {
        const test::Raster img =
            test::randomRaster(layout, w, h, rng, [](std::mt19937& g) { return g() % 256; });
        for (const bool masked : {false, true}) {
            for (const int combo : {0, 5}) {
                const auto expected =
                    bruteBins(img.view(), labels, RGBCombo(combo), masked ? &mask : nullptr);
                std::vector<std::uint32_t> cells;
                for (const auto& [label, bins] : expected) {
                    cells.push_back(label);
                }
                for (const unsigned threads : {1u, 3u}) {
                    SCOPED_TRACE(testing::Message()
                                 << "layout " << int(layout) << " masked " << masked << " pair "
                                 << combo << " threads " << threads);
                    const LabelBins bins =
                        binsByLabel(img.view(), labels, RGBCombo(combo),
                                    masked ? MaskView{mask.data(), w, w, h} : MaskView{}, threads);
                    std::size_t total = 0;
                    for (const auto& [label, want] : expected) {
                        const auto got = bins.of(label);
                        std::vector<std::uint16_t> a(got.begin(), got.end()), b = want;
                        std::sort(a.begin(), a.end());
                        std::sort(b.begin(), b.end());
                        EXPECT_EQ(a, b) << "label " << label;
                        total += want.size();
                    }
                    EXPECT_EQ(bins.bins.size(), total);
                    EXPECT_TRUE(bins.of(2).empty());  // a number no cell has

                    std::vector<int> seen(cells.size(), 0);
                    forEachLabelCounts(
                        bins, cells,
                        [&](std::size_t i, PairCounts pairs) {
                            std::map<std::uint16_t, std::uint64_t> want, got;
                            for (std::uint16_t b : expected.at(cells[i])) {
                                ++want[b];
                            }
                            std::uint16_t last = 0;
                            for (const PairCount& p : pairs) {
                                EXPECT_TRUE(got.empty() || p.bin > last) << "in order";
                                last = p.bin;
                                got[p.bin] += p.count;
                            }
                            EXPECT_EQ(got, want) << "label " << cells[i];
                            ++seen[i];
                        },
                        threads);
                    EXPECT_EQ(seen, std::vector<int>(cells.size(), 1));
                }
            }
        }
    }
}

// Each cell's test runs alone on one worker, so how many there are changes nothing.
TEST(LabelMeasures, SignificanceOfCellsIsTheSameOnAnyNumberOfThreads) {
    std::mt19937 rng(5);
    const int w = 48, h = 40;
    const LabelImage labels = patchworkLabels(w, h);
    const test::Raster img =
        test::randomRaster(Layout::MeshedRGB, w, h, rng, [](std::mt19937& g) { return g() % 256; });
    const std::vector<std::uint32_t> cells = {1, 4, 7, 11, 65535};
    const std::vector<CellBox> boxes = cellBoxes(img.view(), labels);
    const auto one =
        labelSignificance(img.view(), labels, boxes, cells, RGBCombo(0), {}, 2, 30, 9, 1);
    const auto three =
        labelSignificance(img.view(), labels, boxes, cells, RGBCombo(0), {}, 2, 30, 9, 3);
    ASSERT_TRUE(one && three);
    // Bit for bit, NaN included.
    const auto numbers = [](const SignificanceResult& s) {
        std::string text;
        for (double v : {s.observedR, s.shuffledMean, s.shuffledSD, s.pValue}) {
            char hex[40];
            std::snprintf(hex, sizeof hex, "%a ", v);
            text += hex;
        }
        return text + std::to_string(s.blocks);
    };
    for (std::size_t i = 0; i < cells.size(); ++i) {
        EXPECT_EQ(numbers((*one)[i]), numbers((*three)[i])) << cells[i];
    }
    // Cell 1's two pieces span a box of 24 x 9 pixels: 12 x 4 blocks of 2 x 2; a lone pixel
    // holds none.
    EXPECT_EQ((*one)[0].blocks, 48u);
    EXPECT_EQ((*one)[4].blocks, 0u);
    EXPECT_TRUE(std::isnan((*one)[4].pValue));
}

}  // namespace
}  // namespace pv
