#include "analysis/PairHistogram.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <numeric>

namespace pv {

namespace {

constexpr std::size_t kPairBins = 256 * 256;

// A sample in each state, for deriving the class of a state (only asked when it can occur).
int sampleOfState(int state, int level) {
    if (state == 0) {
        return 0;
    }
    if (state == 1) {
        return level < 0 ? 1 : level + 1;
    }
    return 1;
}

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
using Counts32 = std::unique_ptr<std::uint32_t[], FreeDeleter>;

// Where the pair's three samples of a pixel are, so that every layout shares one kernel.
struct Kernel {
    const std::uint8_t* y = nullptr;
    const std::uint8_t* x = nullptr;
    const std::uint8_t* third = nullptr;
    std::ptrdiff_t rowStride = 0;
    std::int64_t columns = 0;
    const std::uint32_t* thirdLut = nullptr;
    MaskView mask{};
    std::uint32_t outside = 0;  // the bin past the histogram for pixels outside the mask
};

template <std::ptrdiff_t kStep, bool kMasked>
void countRows(const Kernel& k, std::ptrdiff_t step, std::int64_t begin, std::int64_t end,
               std::uint32_t* h0, std::uint32_t* h1) {
    const std::ptrdiff_t s = kStep > 0 ? kStep : step;
    const std::uint32_t* lut = k.thirdLut;
    const std::int64_t n = k.columns;
    for (std::int64_t r = begin; r < end; ++r) {
        const std::ptrdiff_t row = r * k.rowStride;
        const std::uint8_t* y = k.y + row;
        const std::uint8_t* x = k.x + row;
        const std::uint8_t* t = k.third + row;
        const std::uint8_t* m = kMasked ? k.mask.data + r * k.mask.rowStride : nullptr;
        auto index = [&](std::int64_t c) {
            const std::ptrdiff_t o = c * s;
            const std::uint32_t bin = lut[t[o]] | std::uint32_t(y[o]) << 8 | std::uint32_t(x[o]);
            // A pixel outside the mask goes to a bin past the histogram, without a branch.
            return kMasked ? (m[c] != 0 ? bin : k.outside) : bin;
        };
        // Alternate pixels go to alternate sub-histograms, so that a run of equal values (a
        // black background) does not make each increment wait for the one before. Measured on
        // black and on noisy pictures, this beat a single histogram and a test for runs.
        std::int64_t c = 0;
        for (; c + 2 <= n; c += 2) {
            h0[index(c)] += 1;
            h1[index(c + 1)] += 1;
        }
        if (c < n) {
            h0[index(c)] += 1;
        }
    }
}

template <bool kMasked>
void countBlockOf(const Kernel& k, std::ptrdiff_t step, std::int64_t begin, std::int64_t end,
                  std::uint32_t* h0, std::uint32_t* h1) {
    switch (step) {
        case 1:
            countRows<1, kMasked>(k, step, begin, end, h0, h1);
            break;
        case 3:
            countRows<3, kMasked>(k, step, begin, end, h0, h1);
            break;
        case 4:
            countRows<4, kMasked>(k, step, begin, end, h0, h1);
            break;
        default:
            countRows<0, kMasked>(k, step, begin, end, h0, h1);
            break;
    }
}

void countBlock(const Kernel& k, std::ptrdiff_t step, std::int64_t begin, std::int64_t end,
                std::uint32_t* h0, std::uint32_t* h1) {
    if (k.mask.isWhole()) {
        countBlockOf<false>(k, step, begin, end, h0, h1);
    } else {
        countBlockOf<true>(k, step, begin, end, h0, h1);
    }
}

}  // namespace

int censusLevelState(int sample, int level) {
    if (sample == 0) {
        return 0;
    }
    return sample > level ? 1 : 2;
}

std::array<std::uint32_t, 256> thirdStateBinOffsets(RGBCombo combo, const MinimumLevels& levels) {
    const int level = levels.of(channelPairFor(combo).third);
    std::array<std::uint32_t, 256> offsets{};
    for (int v = 0; v < 256; ++v) {
        offsets[std::size_t(v)] = std::uint32_t(censusLevelState(v, level)) << 16;
    }
    return offsets;
}

CensusClass censusClassOfBin(RGBCombo combo, const MinimumLevels& levels, int third, int y, int x) {
    const ChannelPair pair = channelPairFor(combo);
    int rgb[3] = {};
    rgb[pair.y] = y;
    rgb[pair.x] = x;
    rgb[pair.third] = sampleOfState(third, levels.of(pair.third));
    return censusClassOf(levels, rgb[0], rgb[1], rgb[2]);
}

bool countPairs(const ChannelView& view, RGBCombo combo, const MinimumLevels& levels,
                PairHistogram& histogram, unsigned threads, const CancelHook& cancel,
                const MaskView& mask, bool adding) {
    const bool keep = adding && histogram.counts.size() == std::size_t(PairHistogram::kBins) &&
                      histogram.rgbCombo == combo && histogram.levels == levels;
    histogram.rgbCombo = combo;
    histogram.levels = levels;
    if (!keep) {
        histogram.counts.clear();
    }
    try {
        if (!keep) {
            histogram.counts.assign(PairHistogram::kBins, 0);
        }
        if (view.isEmpty()) {
            return true;
        }
        if (!mask.fits(view)) {
            histogram.counts.clear();
            return false;
        }
        const ChannelPair pair = channelPairFor(combo);
        const std::array<std::uint32_t, 256> thirdLut = thirdStateBinOffsets(combo, levels);
        // Without state 2 the workers' histograms are a third smaller.
        const std::size_t binsUsed = std::size_t(histogram.occurringThirdStates()) * kPairBins;
        Kernel kernel{view.channel[std::size_t(pair.y)],
                      view.channel[std::size_t(pair.x)],
                      view.channel[std::size_t(pair.third)],
                      view.rowStride,
                      view.width,
                      thirdLut.data(),
                      mask,
                      std::uint32_t(binsUsed)};
        // Each sub-histogram has one bin more than is used: that of the pixels outside a mask.
        const std::size_t stride = binsUsed + 1;

        const unsigned workers = workersFor(view.height, view.width, threads);
        std::vector<Counts32> counts(workers);
        for (Counts32& c : counts) {
            c.reset(static_cast<std::uint32_t*>(std::calloc(2 * stride, sizeof(std::uint32_t))));
            if (!c) {
                histogram.counts.clear();
                return false;
            }
        }
        const bool finished = forEachRowBlock(
            view.height, workers,
            [&](unsigned w, std::int64_t begin, std::int64_t end) {
                std::uint32_t* h0 = counts[w].get();
                countBlock(kernel, view.pixelStride, begin, end, h0, h0 + stride);
            },
            cancel);
        if (!finished) {
            histogram.counts.clear();
            return false;
        }
        std::uint64_t* merged = histogram.counts.data();
        for (const Counts32& c : counts) {
            const std::uint32_t* h0 = c.get();
            const std::uint32_t* h1 = h0 + stride;
            for (std::size_t b = 0; b < binsUsed; ++b) {
                merged[b] += std::uint64_t(h0[b]) + h1[b];
            }
        }
        return true;
    } catch (const std::bad_alloc&) {
        histogram.counts.clear();
        return false;
    }
}

PixelCensus censusOf(const PairHistogram& histogram) {
    PixelCensus census;
    if (histogram.counts.size() != std::size_t(PairHistogram::kBins)) {
        return census;
    }
    const RGBCombo combo = histogram.rgbCombo;
    const MinimumLevels& levels = histogram.levels;
    const ChannelPair pair = channelPairFor(combo);
    const int yLevel = levels.of(pair.y);
    const int xLevel = levels.of(pair.x);
    // The census depends only on each channel's state, so the bins reduce to 3 x 3 x 3 totals.
    // Along a row the X states are runs: 0 alone, then the dim samples up to the level, then
    // the bright ones, so each is a plain sum.
    const int lastDim = std::clamp(xLevel, 0, 255);
    std::uint64_t totals[3][3][3] = {};
    std::uint64_t all = 0;
    for (int t = 0; t < histogram.occurringThirdStates(); ++t) {
        for (int y = 0; y < 256; ++y) {
            const std::uint64_t* row = &histogram.counts[PairHistogram::binOf(t, y, 0)];
            const std::uint64_t byXState[3] = {
                row[0], std::accumulate(row + lastDim + 1, row + 256, std::uint64_t(0)),
                std::accumulate(row + 1, row + lastDim + 1, std::uint64_t(0))};
            const int sy = censusLevelState(y, yLevel);
            for (int sx = 0; sx < 3; ++sx) {
                totals[t][sy][sx] += byXState[sx];
                all += byXState[sx];
            }
        }
    }
    census.totalPixelCount = std::int32_t(all);
    for (int t = 0; t < 3; ++t) {
        for (int sy = 0; sy < 3; ++sy) {
            for (int sx = 0; sx < 3; ++sx) {
                if (totals[t][sy][sx] == 0) {
                    continue;
                }
                // Any sample of a state stands for all of it.
                const CensusClass cls = censusClassOfBin(
                    combo, levels, t, sampleOfState(sy, yLevel), sampleOfState(sx, xLevel));
                if (std::int32_t* field = census.countOf(cls)) {
                    *field += std::int32_t(totals[t][sy][sx]);
                }
            }
        }
    }
    return census;
}

PairSums pairSumsOf(const PairHistogram& histogram) {
    PairSums sums;
    if (histogram.counts.size() != std::size_t(PairHistogram::kBins)) {
        return sums;
    }
    const std::uint64_t* c = histogram.counts.data();
    const bool state2 = histogram.occurringThirdStates() > 2;
    for (std::int64_t y = 0; y < 256; ++y) {
        std::int64_t n = 0;
        std::int64_t sx = 0;
        std::int64_t sxx = 0;
        std::int64_t atX0 = 0;
        for (std::int64_t x = 0; x < 256; ++x) {
            const std::size_t bin = std::size_t(y * 256 + x);
            const std::int64_t k =
                std::int64_t(c[bin] + c[bin + kPairBins] + (state2 ? c[bin + 2 * kPairBins] : 0));
            if (k == 0) {
                continue;  // most pairs never occur
            }
            if (x == 0) {
                atX0 = k;
            }
            n += k;
            sx += k * x;
            sxx += k * x * x;
        }
        // (0, 0) pixels are left out of every sum.
        const std::int64_t counted = y > 0 ? n : n - atX0;
        sums.sumPixelsXYAxis += y * sx;
        sums.sumPixelsXAxis += sx;
        sums.sumPixelsXSquaredAxis += sxx;
        sums.sumPixelsYAxis += y * counted;
        sums.sumPixelsYSquaredAxis += y * y * counted;
        sums.sumPixelCount += counted;
        if (y > 0) {
            sums.sumColocPixelsXAxis += sx;
        }
        sums.sumColocPixelsYAxis += y * (n - atX0);
    }
    return sums;
}

}  // namespace pv
