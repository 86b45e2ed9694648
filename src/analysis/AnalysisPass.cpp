#include "analysis/AnalysisPass.h"

#include <array>
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
    state.sums = {};
    std::memset(scatterGramData, 0, kScatterGramBytes);
    if (histogram.counts.size() != std::size_t(PairHistogram::kBins)) {
        return;
    }
    // The sums and the scatter gram in one trip through the histogram, a row of one Y at a
    // time: a row's sums are plain dot products, which the compiler vectorises, and are the
    // per-pair sums of addToPairSums gathered by Y. Every batch file pays this whatever its size.
    const ChannelPair pair = channelPairFor(state.rgbCombo);
    const int states = histogram.occurringThirdStates();
    PairSums& s = state.sums;
    std::array<std::uint64_t, 256> k{};
    for (std::int64_t y = 0; y < 256; ++y) {
        const std::uint64_t* c0 = &histogram.counts[PairHistogram::binOf(0, int(y), 0)];
        const std::uint64_t* c1 = &histogram.counts[PairHistogram::binOf(1, int(y), 0)];
        const std::uint64_t* c2 = &histogram.counts[PairHistogram::binOf(2, int(y), 0)];
        std::uint64_t n = 0, sx = 0, sxx = 0;
        for (std::uint64_t x = 0; x < 256; ++x) {
            k[x] = c0[x] + c1[x] + (states > 2 ? c2[x] : 0);
            n += k[x];
            sx += k[x] * x;
            sxx += k[x] * x * x;
        }
        if (n == 0) {
            continue;
        }
        for (int x = 0; x < 256; ++x) {
            if (k[std::size_t(x)] != 0) {
                plotPair(scatterGramData, pair, int(y), x);
            }
        }
        // Only the (0, 0) pixels count in none of the sums.
        const auto withX = std::int64_t(n - k[0]);
        s.sumPixelsXYAxis += y * std::int64_t(sx);
        s.sumPixelsXAxis += std::int64_t(sx);
        s.sumPixelsXSquaredAxis += std::int64_t(sxx);
        s.sumPixelsYAxis += y * std::int64_t(n);
        s.sumPixelsYSquaredAxis += y * y * std::int64_t(n);
        s.sumPixelCount += y > 0 ? std::int64_t(n) : withX;
        s.sumColocPixelsXAxis += y > 0 ? std::int64_t(sx) : 0;
        s.sumColocPixelsYAxis += y * withX;
    }
}

}  // namespace pv
