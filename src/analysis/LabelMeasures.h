#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "analysis/FurtherMeasures.h"
#include "analysis/Significance.h"
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
// particular order.
LabelBins binsByLabel(const ChannelView& view, const LabelImage& labels, RGBCombo combo,
                      const MaskView& mask = {}, unsigned threads = 0);

// Hands each of `cells` (labels, in any order) with the joint counts of its pixels to
// measure(index into cells, counts), from `threads` workers (0: one per core) at once, each
// with one histogram of its own that is cleared only where the last cell filled it.
void forEachLabelCounts(const LabelBins& bins, std::span<const std::uint32_t> cells,
                        const std::function<void(std::size_t, const JointCounts&)>& measure,
                        unsigned threads = 0);

// The significance test of each of `cells`: over the cell's bounding box, the cell (inside
// the mask) as the test's mask, blocks of `blockSize` pixels, the same shuffles and seed for
// every cell; so a picture of only that box, masked to the cell, gives the same numbers. Cells
// are shared among `threads` workers (0: one per core) and each runs on one, which leaves the
// results as they are for any number. Nothing when memory is short.
std::optional<std::vector<SignificanceResult>> labelSignificance(
    const ChannelView& view, const LabelImage& labels, std::span<const std::uint32_t> cells,
    RGBCombo combo, const MaskView& mask, int blockSize, int shuffles, std::uint64_t seed,
    unsigned threads = 0);

}  // namespace pv
