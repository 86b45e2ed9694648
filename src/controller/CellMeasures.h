#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "controller/MeasureTexts.h"
#include "core/Result.h"
#include "image/ChannelView.h"
#include "image/LabelImage.h"

namespace pv {

// The further measures that `picture` holds, of each of `cells` over the cell's pixels (inside
// the mask): the histogram measures from one counting sort of the labelled pixels, and the
// significance test, when the picture has one, with the picture's block side, shuffles and
// seed. Fails, naming labelPath, when memory is short.
Result<std::vector<FurtherMeasureResults>> cellFurtherMeasures(
    const FurtherMeasureResults& picture, const ChannelView& view, const LabelImage& labels,
    std::span<const std::uint32_t> cells, RGBCombo combo, const MaskView& mask,
    const std::string& labelPath, unsigned threads = 0);

}  // namespace pv
