#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "analysis/AnalysisState.h"
#include "analysis/PairHistogram.h"
#include "core/Geometry.h"

namespace pv {

// The pixels a region of the scatter gram stands for, as the histogram bins they fall in: one
// byte per (third state, Y, X) bin, indexed like PairHistogram. A pixel is selected exactly when
// its bin is, so the census, the sums and the reveal of a region never test a pixel against the
// region's outline.
struct RegionSelection {
    std::vector<std::uint8_t> bins = std::vector<std::uint8_t>(PairHistogram::kBins, 0);

    bool isSelected(int third, int y, int x) const {
        return bins[PairHistogram::binOf(third, y, x)] != 0;
    }

    // A region drawn on the scatter gram: contains is asked once for each of the 65,536 points
    // (X, Y) and decides the bins of that pair for every third state.
    static RegionSelection fromPairTest(const std::function<bool(Point)>& contains);
    // The selection used while no region is drawn: the pixels whose Y sample is above 0 and
    // whose two other samples are 0. It speaks of the pair's own channels, so it holds for
    // every pair.
    static RegionSelection singleColor();
};

struct RegionCount {
    PixelCensus census;
    RegionSums sums;
};

// The census and sums of the pixels of the last pass whose bin is selected, as a pixel-by-pixel
// count over the same pixels would give them; its cost does not depend on the picture's size.
// Empty for an empty histogram.
RegionCount countRegion(const PairHistogram& histogram, const RegionSelection& selection);

}  // namespace pv
