#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "analysis/AnalysisState.h"
#include "analysis/PackedRGB.h"
#include "core/Geometry.h"
#include "image/Bitmap.h"
#include "image/ImageRecords.h"

namespace pv {

// How often each (Y, X) intensity pair of the current channel pair occurs, split by the state
// of the third channel. The census, the sums and the scatter gram of the pass all follow from
// it, and so do the census and sums of any region of the scatter gram.
struct PairHistogram {
    // Third-channel states: 0 the sample is 0; 1 it is above its census minimum level;
    // 2 it is above 0 but not above the level (only possible with a level above 0).
    static constexpr int kThirdStates = 3;
    static constexpr int kBins = kThirdStates * 256 * 256;

    int rgbCombo = 0;
    std::vector<std::uint64_t> counts;  // index (third * 256 + y) * 256 + x; empty until a pass

    std::uint64_t count(int third, int y, int x) const {
        return counts[(std::size_t(third) * 256 + std::size_t(y)) * 256 + std::size_t(x)];
    }
};

// Census state of a sample against its minimum level: 0 it is 0, 1 above the level, 2 neither.
// The census treats all samples of one state alike, so a bin's third state is this.
int censusLevelState(int sample, int level);
// Minimum level of channel 0 red, 1 green, 2 blue.
int minimumLevelOf(const AnalysisState& state, int channel);

// Part of a pixel's bin index that its third sample decides: the bin of a pixel is
// offsets[third sample] | Y << 8 | X, under the pair's third channel's minimum level.
std::array<std::uint32_t, 256> thirdStateBinOffsets(const AnalysisState& state, int rgbCombo);

// Colour classes of the census; at most one holds for a pixel.
enum class CensusClass { None, Red, Green, Blue, Yellow, Magenta, Cyan };

// The census rule: each sample against its minimum level with a strict >, the others against 0.
CensusClass censusClassOf(const AnalysisState& state, int red, int green, int blue);
// The class shared by every pixel of one histogram bin (same minimum levels as the pass).
CensusClass censusClassOfBin(const AnalysisState& state, int rgbCombo, int third, int y, int x);
// The count field of a class in the image census; null for None.
std::int32_t* censusCountField(AnalysisState& state, CensusClass c);

// Sets the seven census counts and the eight sums of a pass to 0.
void resetPassResults(AnalysisState& state);

// Per-pixel steps, the single-pixel definition the pass must agree with.
// Census: adds 1 to totalPixelCount and to at most one class count.
void countPixelInCensus(AnalysisState& state, PackedRGB value);
// Accumulation of the image sums for the pair in state.rgbCombo.
void accumulatePixelSums(AnalysisState& state, PackedRGB value);

// The pixels a pass over rect visits, in visiting order: column indices, and memory row indices
// (top row 0) of a bitmap `height` rows high. Every scan of the working image shares this rule.
std::vector<long> visitedColumns(const Rect& rect, long width);
std::vector<long> visitedMemoryRows(const Rect& rect, long height);

// The automatic pass over every pixel of rect: resets the seven census counts and the eight
// sums, clears scatterGramData (256 x 256 x 3 bytes, top row first) to black, plots every
// pixel into it, and fills the histogram. Rows are split among `threads` workers (0: one per
// core); the results do not depend on the split. False when memory is short: the counts,
// sums and scatter gram are then left at zero.
bool runAnalysisPass(const BitmapInfo& info, const PlaneArray& planes, const Rect& rect,
                     AnalysisState& state, std::uint8_t* scatterGramData, PairHistogram& histogram,
                     unsigned threads = 0);

}  // namespace pv
