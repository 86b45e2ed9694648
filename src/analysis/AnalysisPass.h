#pragma once

#include <cstdint>

#include "analysis/AnalysisState.h"
#include "analysis/PairHistogram.h"
#include "core/ParallelRows.h"
#include "image/ChannelView.h"

namespace pv {

// The automatic pass over every pixel of the view (inside the mask, when there is one) for the
// state's pair and levels: counts the histogram, then replaces the census and the sums and
// redraws the scatter gram (256 x 256 x 3 bytes, top row first) from it. False when memory is
// short, cancel stopped it or the mask does not fit the view: the census, sums, histogram and
// scatter gram are then empty.
bool runAnalysisPass(const ChannelView& view, AnalysisState& state, std::uint8_t* scatterGramData,
                     PairHistogram& histogram, unsigned threads = 0, const CancelHook& cancel = {},
                     const MaskView& mask = {});

// The census, the sums and the scatter gram from a histogram already counted (of one picture,
// or of several counted into one).
void summariseHistogram(const PairHistogram& histogram, AnalysisState& state,
                        std::uint8_t* scatterGramData);

}  // namespace pv
