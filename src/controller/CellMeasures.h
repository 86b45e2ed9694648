#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "analysis/LabelMeasures.h"
#include "controller/MeasureTexts.h"
#include "core/ParallelRows.h"
#include "core/Result.h"
#include "image/ChannelView.h"
#include "image/LabelImage.h"

namespace pv {

// The cells' bounding boxes may add up to this many times the picture's pixels: the test of a
// cell shuffles its whole box, so the cells' tests then take at most as long as this many tests
// of the whole picture. Compact cells cover the picture about once.
inline constexpr std::uint64_t kMostCellBoxCover = 16;

// How the cells' further measures are worked out.
struct CellMeasureOptions {
    // Without it, the histogram measures only, for a front end that tests the cell it shows.
    bool significance = true;
    CancelHook cancel;       // asked between shuffles of the cells' tests
    CellsProgress progress;  // cells tested so far
};

// The further measures that `picture` holds, of each of `cells` over the cell's pixels (inside
// the mask): the histogram measures from one counting sort of the labelled pixels, and the
// significance test, when the picture has one and the options ask for it, with the picture's
// block side, shuffles and seed. Fails, naming labelPath, when memory is short, the test was
// cancelled, or the cells' boxes are larger than kMostCellBoxCover allows.
Result<std::vector<FurtherMeasureResults>> cellFurtherMeasures(
    const FurtherMeasureResults& picture, const ChannelView& view, const LabelImage& labels,
    std::span<const std::uint32_t> cells, RGBCombo combo, const MaskView& mask,
    const std::string& labelPath, unsigned threads = 0, const CellMeasureOptions& options = {});

}  // namespace pv
