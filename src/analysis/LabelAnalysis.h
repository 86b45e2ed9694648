#pragma once

#include <cstdint>
#include <vector>

#include "analysis/AnalysisState.h"
#include "analysis/RegionCensus.h"
#include "core/ParallelRows.h"
#include "image/ChannelView.h"
#include "image/LabelImage.h"

namespace pv {

// What the analysis of one labelled cell gives: the census and sums of its pixels and, with a
// region, the census and sums of those of its pixels that the region stands for, exactly as
// the pass and the region count give them for a whole picture of only those pixels.
struct LabelResult {
    std::uint32_t label = 0;
    PixelCensus census;
    PairSums sums;
    PixelCensus roiCensus;
    RegionSums roiSums;
};

// Every label that occurs (inside the mask, when there is one), in increasing order, from one
// pass over the picture whatever the number of labels. The labels are the picture's size and
// hold no label above kMostLabels; rows are split among `threads` workers (0: one per core).
// Nothing when the labels or the mask are not the picture's size.
std::vector<LabelResult> analyseLabels(const ChannelView& view, const LabelImage& labels,
                                       RGBCombo combo, const MinimumLevels& levels,
                                       const RegionSelection* region, const MaskView& mask = {},
                                       unsigned threads = 0);

}  // namespace pv
