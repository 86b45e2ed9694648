#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "analysis/AnalysisState.h"
#include "core/ParallelRows.h"
#include "image/ChannelView.h"

namespace pv {

// Costes' test of whether the pair's correlation beats chance: the Y channel is cut into square
// blocks of about the point-spread function's size and the blocks are shuffled, many times;
// the observed r is compared with the shuffled ones.
struct SignificanceResult {
    double observedR = 0.0;
    double shuffledMean = 0.0;
    double shuffledSD = 0.0;  // sample standard deviation (N - 1)
    double pValue = 0.0;      // share of shuffles whose r is below the observed one
    int psfSize = 0;          // block side in pixels
    std::size_t blocks = 0;   // whole blocks shuffled
};

// The block side from the channel's autocorrelation: the mean of the horizontal and vertical
// full widths at half maximum, each found by stepping the lag until the normalised
// autocorrelation falls to one half and interpolating between the last two lags. Read over a
// central window of at most 1024 x 1024 pixels, whatever the mask, since the optics blur the
// whole field alike; 1 to 64 pixels (1 for a constant channel).
int estimatePsfSize(const ChannelView& view, int channel);

// The pixels of the test, laid out a block at a time so that a shuffle reads each block as one
// run. Every r is Pearson's over all analysed pixels, zeros included: at each analysed place
// the X found there against the Y the shuffle brought there. Pixels right or below the last
// whole block stay in place, in the observed r and in every shuffled one alike. The slices of
// a stack are added one by one and their blocks shuffled as one pool.
class BlockShuffleTest {
  public:
    // The most blocks a test shuffles, of all its planes. A 100-megapixel picture has 11.1 M
    // blocks of 3 x 3 pixels. Besides its pixels a block takes 9 bytes, and 4 for each worker
    // shuffling (21 measured with two), so that the blocks' own memory stays within about
    // 250 MB on any number of cores.
    static constexpr std::uint64_t kMostBlocks = 12'000'000;

    explicit BlockShuffleTest(int blockSize);

    // The whole blocks of the test's side in a plane of width x height.
    std::uint64_t blocksIn(std::int64_t width, std::int64_t height) const;

    // The pair of the view, inside the mask. False, the test unchanged, when the view is not
    // the first plane's size, the mask does not fit it or the blocks would exceed kMostBlocks;
    // false when memory is short (the test is then unusable).
    bool addPlane(const ChannelView& view, RGBCombo combo, const MaskView& mask = {});

    // Told how many shuffles are done, from whichever worker finished one.
    using Progress = std::function<void(int done)>;

    // The observed r and `shuffles` shuffled ones. Shuffle i draws from a generator seeded by
    // (seed, i) alone, and every sum is a whole number, so the result does not depend on
    // `threads` (0: one per core; fewer when the workers' orders of many blocks would take much
    // memory). Nothing when cancelled or memory is short; NaN statistics when there are fewer
    // than two blocks to shuffle or r has no answer.
    std::optional<SignificanceResult> run(int shuffles, std::uint64_t seed, unsigned threads = 0,
                                          const CancelHook& cancel = {},
                                          const Progress& progress = {}) const;

    int blockSize() const { return side_; }
    std::size_t blockCount() const { return states_.size(); }

  private:
    enum class BlockState : std::uint8_t { Outside, Inside, Partly };
    struct Totals {
        std::int64_t n = 0, x = 0, xx = 0, y = 0, yy = 0, xy = 0;
    };
    // Sums of XY, Y and Y² over the blocks with block d's Y taken from source[d].
    Totals blockTotals(const std::uint32_t* source) const;
    double pearsonOf(const Totals& shuffled) const;

    int side_ = 1;
    int planes_ = 0;
    std::int64_t width_ = 0, height_ = 0;
    std::size_t blockPixels_ = 1;
    std::vector<std::uint8_t> y_, x_;   // X already 0 outside the mask
    std::vector<std::uint8_t> inside_;  // 1 inside the mask, block by block; empty without one
    std::vector<BlockState> states_;
    std::vector<std::uint32_t> blockY_;        // Σ Y of each block
    std::vector<std::uint32_t> blockYY_;       // Σ Y² of each block
    std::int64_t blocksY_ = 0, blocksYY_ = 0;  // of all blocks
    Totals fixed_;  // pixels outside the blocks, and n, ΣX, ΣX² of all
};

}  // namespace pv
