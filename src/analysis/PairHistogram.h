#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "analysis/AnalysisState.h"
#include "core/ParallelRows.h"
#include "image/ChannelView.h"

namespace pv {

// How often each (Y, X) intensity pair of a channel pair occurs, split by the state of the
// third channel. The census, the sums and the scatter gram of the pass all follow from it, and
// so do the census and sums of any region of the scatter gram: whatever reads the pass's
// results reads this, never the pixels again.
struct PairHistogram {
    // Third-channel states: 0 the sample is 0; 1 it is above its census minimum level;
    // 2 it is above 0 but not above the level (only possible with a level above 0).
    static constexpr int kThirdStates = 3;
    static constexpr int kBins = kThirdStates * 256 * 256;

    RGBCombo rgbCombo = RGBCombo::RedGreen;
    MinimumLevels levels;               // the census levels the third states were decided by
    std::vector<std::uint64_t> counts;  // index (third * 256 + y) * 256 + x; empty until counted

    static constexpr std::size_t binOf(int third, int y, int x) {
        return (std::size_t(third) * 256 + std::size_t(y)) * 256 + std::size_t(x);
    }
    std::uint64_t count(int third, int y, int x) const { return counts[binOf(third, y, x)]; }
    // State 2 needs the third channel's level above 0; without it its bins stay empty and
    // readers can skip them.
    int occurringThirdStates() const {
        return levels.of(channelPairFor(rgbCombo).third) > 0 ? kThirdStates : 2;
    }
};

// Census state of a sample against its minimum level: 0 it is 0, 1 above the level, 2 neither.
int censusLevelState(int sample, int level);

// Part of a pixel's bin index that its third sample decides: the bin of a pixel is
// offsets[third sample] | Y << 8 | X.
std::array<std::uint32_t, 256> thirdStateBinOffsets(RGBCombo combo, const MinimumLevels& levels);

// The class shared by every pixel of one bin.
CensusClass censusClassOfBin(RGBCombo combo, const MinimumLevels& levels, int third, int y, int x);

// Counts every pixel of the view (inside the mask, when there is one) into the histogram, which
// is replaced, or with `adding` is added to when it holds counts of the same pair and levels
// (the slices of a stack, one after another, without a second histogram). Rows are split among
// `threads` workers (0: one per core); the counts do not depend on the split. False when memory
// is short, cancel stopped it or the mask does not fit the view: the histogram is then left
// empty.
bool countPairs(const ChannelView& view, RGBCombo combo, const MinimumLevels& levels,
                PairHistogram& histogram, unsigned threads = 0, const CancelHook& cancel = {},
                const MaskView& mask = {}, bool adding = false);

// The image census, exactly as a pixel-by-pixel count would give it.
PixelCensus censusOf(const PairHistogram& histogram);

// Adds `count` pixels of the pair (y, x) to the sums: (0, 0) pixels count in none of them.
inline void addToPairSums(PairSums& s, std::int64_t y, std::int64_t x, std::uint64_t count) {
    const std::int64_t k = std::int64_t(count);
    if (x > 0 || y > 0) {
        s.sumPixelsXYAxis += k * x * y;
        s.sumPixelsXAxis += k * x;
        s.sumPixelsXSquaredAxis += k * x * x;
        s.sumPixelsYAxis += k * y;
        s.sumPixelsYSquaredAxis += k * y * y;
        s.sumPixelCount += k;
    }
    if (y > 0) {
        s.sumColocPixelsXAxis += k * x;
    }
    if (x > 0) {
        s.sumColocPixelsYAxis += k * y;
    }
}

}  // namespace pv
