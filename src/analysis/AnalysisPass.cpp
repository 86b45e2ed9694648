#include "analysis/AnalysisPass.h"

#include <cstring>

#include "analysis/ScatterGram.h"

namespace pv {

bool runAnalysisPass(const ChannelView& view, AnalysisState& state, std::uint8_t* scatterGramData,
                     PairHistogram& histogram, unsigned threads, const CancelHook& cancel,
                     const MaskView& mask) {
    const bool counted =
        countPairs(view, state.rgbCombo, state.levels, histogram, threads, cancel, mask);
    summariseHistogram(histogram, state, scatterGramData);
    return counted;
}

void summariseHistogram(const PairHistogram& histogram, AnalysisState& state,
                        std::uint8_t* scatterGramData) {
    state.census = censusOf(histogram);
    // The sums and the scatter gram in one trip through the histogram.
    state.sums = {};
    std::memset(scatterGramData, 0, kScatterGramBytes);
    const ChannelPair pair = channelPairFor(state.rgbCombo);
    forEachOccurringPair(histogram, [&](int y, int x, std::uint64_t count) {
        addToPairSums(state.sums, y, x, count);
        plotPair(scatterGramData, pair, y, x);
    });
}

void addCounts(PairHistogram& into, const PairHistogram& more) {
    if (into.counts.size() != more.counts.size()) {
        into = more;
        return;
    }
    for (std::size_t b = 0; b < into.counts.size(); ++b) {
        into.counts[b] += more.counts[b];
    }
}

}  // namespace pv
