#include "analysis/AnalysisPass.h"

#include <cstring>

#include "analysis/ScatterGram.h"

namespace pv {

bool runAnalysisPass(const ChannelView& view, AnalysisState& state, std::uint8_t* scatterGramData,
                     PairHistogram& histogram, unsigned threads, const CancelHook& cancel,
                     const MaskView& mask) {
    const bool counted =
        countPairs(view, state.rgbCombo, state.levels, histogram, threads, cancel, mask);
    state.census = censusOf(histogram);
    // The sums and the scatter gram in one trip through the histogram.
    state.sums = {};
    std::memset(scatterGramData, 0, kScatterGramBytes);
    const ChannelPair pair = channelPairFor(state.rgbCombo);
    forEachOccurringPair(histogram, [&](int y, int x, std::uint64_t count) {
        addToPairSums(state.sums, y, x, count);
        plotPair(scatterGramData, pair, y, x);
    });
    return counted;
}

}  // namespace pv
