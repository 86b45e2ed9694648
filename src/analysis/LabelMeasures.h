#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "analysis/FurtherMeasures.h"
#include "analysis/Significance.h"
#include "core/ParallelRows.h"
#include "image/ChannelView.h"
#include "image/LabelImage.h"

namespace pv {

// The (Y, X) bin (y * 256 + x) of every labelled pixel inside the mask, grouped by label: a
// counting sort, so that a cell's pixels lie together at two bytes a pixel whatever the number
// of cells, instead of a joint histogram per cell.
struct LabelBins {
    std::vector<std::uint16_t> bins;
    std::vector<std::size_t> starts;  // label L's bins are bins[starts[L] .. starts[L + 1])

    std::span<const std::uint16_t> of(std::uint32_t label) const {
        if (std::size_t(label) + 1 >= starts.size()) {
            return {};
        }
        return {bins.data() + starts[label], starts[label + 1] - starts[label]};
    }
};

// Two passes over the labels: a count per label, then each pixel's bin scattered to its place.
// Rows are split among `threads` workers (0: one per core); the bins of one label come in no
// particular order. Nothing when the labels or the mask are not the view's size.
LabelBins binsByLabel(const ChannelView& view, const LabelImage& labels, RGBCombo combo,
                      const MaskView& mask = {}, unsigned threads = 0);

// Hands each of `cells` (labels, in any order) with the pairs of its pixels to measure(index
// into cells, pairs), from `threads` workers (0: one per core) at once. A cell costs what its
// pixels do: each worker counts into one histogram of its own, cleared only where the last
// cell filled it, and hands over only the bins that cell filled.
void forEachLabelCounts(const LabelBins& bins, std::span<const std::uint32_t> cells,
                        const std::function<void(std::size_t, PairCounts)>& measure,
                        unsigned threads = 0);

// The smallest rectangle holding a cell's pixels (inside the mask), edges included; empty for
// a label without any.
struct CellBox {
    std::int64_t top = 0, left = 0, bottom = -1, right = -1;

    bool isEmpty() const { return bottom < top; }
    std::uint64_t pixels() const {
        return isEmpty() ? 0 : std::uint64_t(bottom - top + 1) * std::uint64_t(right - left + 1);
    }
};
// The box of every label, by label (kMostLabels + 1 of them); none when the labels or the mask
// are not the view's size.
std::vector<CellBox> cellBoxes(const ChannelView& view, const LabelImage& labels,
                               const MaskView& mask = {});

// The significance test of one cell: over its box, the cell (inside the mask) as the test's
// mask, blocks of `blockSize` pixels; so a picture of only that box, masked to the cell, gives
// the same numbers. The test has its own copy of the box. Nothing when memory is short.
std::optional<BlockShuffleTest> cellShuffleTest(const ChannelView& view, const LabelImage& labels,
                                                std::uint32_t label, const CellBox& box,
                                                RGBCombo combo, const MaskView& mask,
                                                int blockSize);

// Told how many cells are done, from whichever worker finished one.
using CellsProgress = std::function<void(std::size_t done)>;

// cellShuffleTest of each of `cells` (boxes from cellBoxes), run with the same shuffles and
// seed. Cells are shared among `threads` workers (0: one per core; fewer when the boxes are so
// large that the workers' tests together would hold more than the picture) and each runs on
// one, which leaves the results as they are for any number. Nothing when memory is short or
// cancel stopped it.
std::optional<std::vector<SignificanceResult>> labelSignificance(
    const ChannelView& view, const LabelImage& labels, const std::vector<CellBox>& boxes,
    std::span<const std::uint32_t> cells, RGBCombo combo, const MaskView& mask, int blockSize,
    int shuffles, std::uint64_t seed, unsigned threads = 0, const CancelHook& cancel = {},
    const CellsProgress& progress = {});

}  // namespace pv
