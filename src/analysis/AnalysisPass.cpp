#include "analysis/AnalysisPass.h"

#include "analysis/ScatterGram.h"

namespace pv {

bool runAnalysisPass(const ChannelView& view, AnalysisState& state, std::uint8_t* scatterGramData,
                     PairHistogram& histogram, unsigned threads, const CancelHook& cancel) {
    const bool counted = countPairs(view, state.rgbCombo, state.levels, histogram, threads, cancel);
    state.census = censusOf(histogram);
    state.sums = pairSumsOf(histogram);
    plotScatterGram(histogram, scatterGramData);
    return counted;
}

}  // namespace pv
