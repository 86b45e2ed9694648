#include "analysis/LabelAnalysis.h"

#include <algorithm>
#include <array>

#include "analysis/PairHistogram.h"

namespace pv {

namespace {

// One cell's running totals; the census by class index, CensusClass::None included.
struct Totals {
    std::array<std::int64_t, 7> classes{};
    std::int64_t pixels = 0;
    PairSums sums;
    std::array<std::int64_t, 7> roiClasses{};
    std::int64_t roiPixels = 0;
    RegionSums roiSums;
};

PixelCensus censusOf(const std::array<std::int64_t, 7>& classes, std::int64_t pixels) {
    PixelCensus c;
    for (int k = 1; k < 7; ++k) {
        if (std::int32_t* field = c.countOf(CensusClass(k))) {
            *field = std::int32_t(classes[std::size_t(k)]);
        }
    }
    c.totalPixelCount = std::int32_t(pixels);
    return c;
}

}  // namespace

std::vector<LabelResult> analyseLabels(const ChannelView& view, const LabelImage& labels,
                                       RGBCombo combo, const MinimumLevels& levels,
                                       const RegionSelection* region, const MaskView& mask,
                                       unsigned threads) {
    if (view.isEmpty() || labels.wide != view.width || labels.high != view.height) {
        return {};
    }
    const std::uint32_t most = std::min(
        kMostLabels,
        labels.labels.empty() ? 0u : *std::max_element(labels.labels.begin(), labels.labels.end()));
    // A pixel's class and whether the region takes it both follow from its bin.
    std::vector<std::uint8_t> classOfBin(PairHistogram::kBins);
    for (int t = 0; t < PairHistogram::kThirdStates; ++t) {
        for (int y = 0; y < 256; ++y) {
            for (int x = 0; x < 256; ++x) {
                classOfBin[PairHistogram::binOf(t, y, x)] =
                    std::uint8_t(censusClassOfBin(combo, levels, t, y, x));
            }
        }
    }
    const ChannelPair pair = channelPairFor(combo);
    const std::array<std::uint32_t, 256> thirdLut = thirdStateBinOffsets(combo, levels);
    const unsigned workers = workersFor(view.height, view.width, threads);
    std::vector<std::vector<Totals>> perWorker(workers, std::vector<Totals>(std::size_t(most) + 1));
    forEachRowBlock(view.height, workers, [&](unsigned w, std::int64_t begin, std::int64_t end) {
        std::vector<Totals>& totals = perWorker[w];
        for (std::int64_t r = begin; r < end; ++r) {
            const std::uint32_t* cell = labels.labels.data() + r * labels.wide;
            const std::uint8_t* inside = mask.isWhole() ? nullptr : mask.data + r * mask.rowStride;
            for (std::int64_t c = 0; c < view.width; ++c) {
                const std::uint32_t label = cell[c];
                if (label == 0 || label > most || (inside && inside[c] == 0)) {
                    continue;
                }
                const int y = *view.sample(pair.y, r, c), x = *view.sample(pair.x, r, c);
                const std::uint32_t bin = thirdLut[*view.sample(pair.third, r, c)] |
                                          std::uint32_t(y) << 8 | std::uint32_t(x);
                Totals& t = totals[label];
                t.classes[classOfBin[bin]] += 1;
                t.pixels += 1;
                addToPairSums(t.sums, y, x, 1);
                if (region && region->bins[bin] != 0) {
                    t.roiClasses[classOfBin[bin]] += 1;
                    t.roiPixels += 1;
                    t.roiSums.sumROIPixelsYAxis += y;
                    t.roiSums.sumROIPixelsXAxis += x;
                    t.roiSums.sumROIColocPixelsYAxis += x > 0 ? y : 0;
                    t.roiSums.sumROIColocPixelsXAxis += y > 0 ? x : 0;
                }
            }
        }
    });
    std::vector<LabelResult> results;
    for (std::uint32_t label = 1; label <= most; ++label) {
        Totals all;
        for (const std::vector<Totals>& totals : perWorker) {
            const Totals& t = totals[label];
            for (std::size_t k = 0; k < 7; ++k) {
                all.classes[k] += t.classes[k];
                all.roiClasses[k] += t.roiClasses[k];
            }
            all.pixels += t.pixels;
            all.roiPixels += t.roiPixels;
            const PairSums& s = t.sums;
            all.sums.sumPixelsXYAxis += s.sumPixelsXYAxis;
            all.sums.sumPixelsXAxis += s.sumPixelsXAxis;
            all.sums.sumPixelsXSquaredAxis += s.sumPixelsXSquaredAxis;
            all.sums.sumPixelsYAxis += s.sumPixelsYAxis;
            all.sums.sumPixelsYSquaredAxis += s.sumPixelsYSquaredAxis;
            all.sums.sumPixelCount += s.sumPixelCount;
            all.sums.sumColocPixelsXAxis += s.sumColocPixelsXAxis;
            all.sums.sumColocPixelsYAxis += s.sumColocPixelsYAxis;
            all.roiSums.sumROIPixelsYAxis += t.roiSums.sumROIPixelsYAxis;
            all.roiSums.sumROIPixelsXAxis += t.roiSums.sumROIPixelsXAxis;
            all.roiSums.sumROIColocPixelsYAxis += t.roiSums.sumROIColocPixelsYAxis;
            all.roiSums.sumROIColocPixelsXAxis += t.roiSums.sumROIColocPixelsXAxis;
        }
        if (all.pixels == 0) {
            continue;
        }
        results.push_back({label, censusOf(all.classes, all.pixels), all.sums,
                           censusOf(all.roiClasses, all.roiPixels), all.roiSums});
    }
    return results;
}

}  // namespace pv
