#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "analysis/AnalysisPass.h"
#include "analysis/AnalysisState.h"
#include "analysis/PackedRGB.h"
#include "core/Geometry.h"
#include "image/Bitmap.h"
#include "image/ImageRecords.h"

namespace pv {

// The pixels a region of the scatter gram stands for, as the histogram bins they fall in: one
// byte per (third state, Y, X) bin, indexed like PairHistogram. A pixel is selected exactly when
// its bin is, so the census, the sums and the reveal of a region never test a pixel against the
// region's outline.
struct RegionSelection {
    std::vector<std::uint8_t> bins = std::vector<std::uint8_t>(PairHistogram::kBins, 0);

    bool isSelected(int third, int y, int x) const {
        return bins[(std::size_t(third) * 256 + std::size_t(y)) * 256 + std::size_t(x)] != 0;
    }

    // A region drawn on the scatter gram: contains is asked once for each of the 65,536 points
    // (X, Y) and decides the bins of that pair for every third state.
    static RegionSelection fromPairTest(const std::function<bool(Point)>& contains);
    // The selection used while no region is drawn (see roiSingleSelectedColorMatched). It does
    // not depend on the pair: both tests speak of the pair's own Y, X and third channel.
    static RegionSelection singleColor(Point mouseUpHere);
};

// Without a region: for mouseUpHere.y >= mouseUpHere.x, the pixels whose Y sample is above 0 and
// whose two other samples are 0; otherwise the same with the X channel.
bool roiSingleSelectedColorMatched(int rgbCombo, Point mouseUpHere, PackedRGB value);

// Per-pixel steps of the region census. Census: adds 1 to roiTotalPixelCount and to at most one
// ROI class count (the image census rule). Sums: the four ROI sums of the pair in state.rgbCombo.
void countPixelsInScatterGramROI(AnalysisState& state, PackedRGB value);
void countCoefficientsM1M2(AnalysisState& state, PackedRGB value);

// Sets the seven ROI counts and the four ROI sums to 0.
void resetRegionResults(AnalysisState& state);

// Resets the seven ROI counts and four ROI sums, then counts every pixel of the last pass whose
// bin is selected, as the per-pixel steps would over the same pixels. The histogram must be the
// one of the current pass (its pair is the one counted); its cost does not depend on the image.
void countRegion(const PairHistogram& histogram, const RegionSelection& selection,
                 AnalysisState& state);

// M1 and M2 from the ROI sums, double quotients; a zero denominator gives NaN or infinity.
void computeColocalization_M1M2(AnalysisState& state);

// Paints, in target, every pixel of rect (the analysis pass's visiting rule) whose value falls in
// a selected bin under state.rgbCombo and the state's minimum levels, with the state's reveal
// colour. Values are read from source; target must have the same geometry and start as a copy of
// it. Only the three colour samples are written. Rows are split among `threads` workers (0: one
// per core); the result does not depend on the split. False when memory is short (nothing or
// part painted).
bool revealPixels(const BitmapInfo& info, const PlaneArray& source, const PlaneArray& target,
                  const Rect& rect, const RegionSelection& selection, const AnalysisState& state,
                  unsigned threads = 0);

// The same painting into a new copy of source (same layout) made in the same pass: the
// revealed picture. Nothing when memory is short. info must describe source.
std::optional<Bitmap> revealedCopy(const Bitmap& source, const BitmapInfo& info, const Rect& rect,
                                   const RegionSelection& selection, const AnalysisState& state,
                                   unsigned threads = 0);

// Paints the pixel at an image point (the pixel-addressing rule; no bounds check).
void paintPixel(const BitmapInfo& info, const PlaneArray& planes, Point p, std::uint8_t red,
                std::uint8_t green, std::uint8_t blue);

}  // namespace pv
