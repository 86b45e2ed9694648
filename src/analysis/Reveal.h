#pragma once

#include "analysis/AnalysisState.h"
#include "analysis/RegionCensus.h"
#include "core/ParallelRows.h"
#include "image/Bitmap.h"

namespace pv {

// Writes the revealed picture of source into target, which has the source's layout
// (Bitmap::hasLayoutOf): every pixel whose value falls in a selected bin under the pair and the
// levels takes the reveal colour; every other byte (other pixels, alpha, further planes, row
// padding) is the source's. Whatever target held before does not show through. Rows are split
// among `threads` workers (0: one per core); the result does not depend on the split. False
// when the layouts differ, the mask does not fit or memory is short (nothing written), or cancel
// stopped it (part written). With a mask, pixels outside it keep their own colour.
bool paintReveal(const Bitmap& source, Bitmap& target, RGBCombo combo, const MinimumLevels& levels,
                 const RegionSelection& selection, const RevealColour& colour, unsigned threads = 0,
                 const CancelHook& cancel = {}, const MaskView& mask = {});

}  // namespace pv
