#pragma once

#include <optional>

#include "analysis/AnalysisState.h"
#include "analysis/RegionCensus.h"
#include "core/ParallelRows.h"
#include "image/Bitmap.h"
#include "image/ChannelView.h"

namespace pv {

// Paints, in target, every pixel whose value read from source falls in a selected bin under
// the pair and the levels, with the reveal colour. Target has the source's width and height
// and starts as a copy of it; only the three colour samples are written. Rows are split among
// `threads` workers (0: one per core); the result does not depend on the split. False when
// cancel stopped it (part painted).
bool revealPixels(const ChannelView& source, const WritableChannelView& target, RGBCombo combo,
                  const MinimumLevels& levels, const RegionSelection& selection,
                  const RevealColour& colour, unsigned threads = 0, const CancelHook& cancel = {});

// The same painting into a new copy of source (same layout, padding included) made in the
// same pass: the revealed picture. Nothing when memory is short or cancel stopped it.
std::optional<Bitmap> revealedCopy(const Bitmap& source, RGBCombo combo,
                                   const MinimumLevels& levels, const RegionSelection& selection,
                                   const RevealColour& colour, unsigned threads = 0,
                                   const CancelHook& cancel = {});

}  // namespace pv
