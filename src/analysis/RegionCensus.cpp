#include "analysis/RegionCensus.h"

#include <array>

namespace pv {

RegionSelection RegionSelection::fromPairTest(const std::function<bool(Point)>& contains) {
    RegionSelection s;
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            if (contains(Point{float(x), float(y)})) {
                for (int t = 0; t < PairHistogram::kThirdStates; ++t) {
                    s.bins[PairHistogram::binOf(t, y, x)] = 1;
                }
            }
        }
    }
    return s;
}

RegionSelection RegionSelection::singleColor() {
    // Third state 0 is a third sample of 0, whatever the level.
    RegionSelection s;
    for (int v = 1; v < 256; ++v) {
        s.bins[PairHistogram::binOf(0, v, 0)] = 1;
    }
    return s;
}

RegionCount countRegion(const PairHistogram& histogram, const RegionSelection& selection) {
    RegionCount result;
    if (histogram.counts.size() != std::size_t(PairHistogram::kBins) ||
        selection.bins.size() != std::size_t(PairHistogram::kBins)) {
        return result;
    }
    const RGBCombo combo = histogram.rgbCombo;
    const MinimumLevels& levels = histogram.levels;
    const int xLevel = levels.of(channelPairFor(combo).x);
    std::array<std::uint8_t, 256> xState{};
    for (int v = 0; v < 256; ++v) {
        xState[std::size_t(v)] = std::uint8_t(censusLevelState(v, xLevel));
    }
    std::int64_t total = 0;
    RegionSums& sums = result.sums;
    for (int t = 0; t < PairHistogram::kThirdStates; ++t) {
        for (std::int64_t y = 0; y < 256; ++y) {
            const std::size_t row = PairHistogram::binOf(t, int(y), 0);
            const std::uint64_t* counts = histogram.counts.data() + row;
            const std::uint8_t* chosen = selection.bins.data() + row;
            // A row's class depends on x only through x's level state; any x of a state that
            // occurs stands for it.
            std::uint64_t byXState[3] = {};
            int xOfState[3] = {-1, -1, -1};
            std::uint64_t n = 0;
            std::uint64_t weightedX = 0;
            for (int x = 0; x < 256; ++x) {
                const std::uint64_t k = chosen[x] != 0 ? counts[x] : 0;
                n += k;
                weightedX += k * std::uint64_t(x);
                const int s = xState[std::size_t(x)];
                byXState[s] += k;
                if (k != 0 && xOfState[s] < 0) {
                    xOfState[s] = x;
                }
            }
            if (n == 0) {
                continue;
            }
            const std::uint64_t atX0 = chosen[0] != 0 ? counts[0] : 0;
            total += std::int64_t(n);
            sums.sumROIPixelsYAxis += y * std::int64_t(n);
            sums.sumROIPixelsXAxis += std::int64_t(weightedX);
            sums.sumROIColocPixelsYAxis += y * std::int64_t(n - atX0);
            if (y > 0) {
                sums.sumROIColocPixelsXAxis += std::int64_t(weightedX);
            }
            for (int s = 0; s < 3; ++s) {
                if (xOfState[s] < 0) {
                    continue;
                }
                const CensusClass c = censusClassOfBin(combo, levels, t, int(y), xOfState[s]);
                if (std::int32_t* field = result.census.countOf(c)) {
                    *field += std::int32_t(byXState[s]);
                }
            }
        }
    }
    result.census.totalPixelCount = std::int32_t(total);
    return result;
}

}  // namespace pv
