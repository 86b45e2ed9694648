#include "analysis/LabelAnalysis.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#include "analysis/PairHistogram.h"

namespace pv {

namespace {

// One cell's running totals; the census by class index, CensusClass::None included.
struct Totals {
    std::array<std::int64_t, 7> classes{};
    std::int64_t pixels = 0;
    PairSums sums;
    std::array<std::int64_t, 7> roiClasses{};
    std::int64_t roiPixels = 0;
    RegionSums roiSums;
};

void add(Totals& to, const Totals& t) {
    for (std::size_t k = 0; k < 7; ++k) {
        to.classes[k] += t.classes[k];
        to.roiClasses[k] += t.roiClasses[k];
    }
    to.pixels += t.pixels;
    to.roiPixels += t.roiPixels;
    PairSums& p = to.sums;
    p.sumPixelsXYAxis += t.sums.sumPixelsXYAxis;
    p.sumPixelsXAxis += t.sums.sumPixelsXAxis;
    p.sumPixelsXSquaredAxis += t.sums.sumPixelsXSquaredAxis;
    p.sumPixelsYAxis += t.sums.sumPixelsYAxis;
    p.sumPixelsYSquaredAxis += t.sums.sumPixelsYSquaredAxis;
    p.sumPixelCount += t.sums.sumPixelCount;
    p.sumColocPixelsXAxis += t.sums.sumColocPixelsXAxis;
    p.sumColocPixelsYAxis += t.sums.sumColocPixelsYAxis;
    RegionSums& q = to.roiSums;
    q.sumROIPixelsYAxis += t.roiSums.sumROIPixelsYAxis;
    q.sumROIPixelsXAxis += t.roiSums.sumROIPixelsXAxis;
    q.sumROIColocPixelsYAxis += t.roiSums.sumROIColocPixelsYAxis;
    q.sumROIColocPixelsXAxis += t.roiSums.sumROIColocPixelsXAxis;
}

// Where a run of one row reads its pixels.
struct RunSource {
    const std::uint8_t* ys;
    const std::uint8_t* xs;
    const std::uint8_t* ts;
    const std::uint8_t* inside;  // the mask's row, when there is one
    std::ptrdiff_t step;
    const std::uint32_t* thirdLut;
    // A pixel's class as a byte lane, with the lane of pixels with signal, by the states of its
    // three samples (third * 9 + Y * 3 + X): small tables that stay in the nearest cache.
    const std::uint64_t* classWords;
    const std::uint8_t* thirdState;
    const std::uint8_t* yState;
    const std::uint8_t* xState;
    const std::uint64_t* pairWords;  // X, Y and the colocalised X and Y in 16-bit lanes
    const std::uint8_t* selected;    // the region's bins, when there is one
};

// Sums the pixels begin..end of a row into run, without a branch per pixel. Within 255 pixels
// every sum fits a part of a 64-bit word, so a handful of words in registers hold them all:
// X, Y and the two colocalised sums in 16-bit lanes, the squares in 32-bit lanes, and the
// classes (with the count of pixels that have signal) in bytes.
template <bool kMask, bool kRegion>
void sumRun(const RunSource& src, std::int64_t begin, std::int64_t end, Totals& run) {
    const auto lane = [](std::uint64_t word, unsigned at, unsigned bits) {
        return std::int64_t(word >> at & ((std::uint64_t(1) << bits) - 1));
    };
    for (std::int64_t chunk = begin; chunk < end; chunk += 255) {
        std::uint64_t linear = 0, squares = 0, products = 0, classes = 0;
        std::uint64_t roiLinear = 0, roiClasses = 0;
        const std::int64_t stop = std::min(end, chunk + 255);
        for (std::int64_t c = chunk; c < stop; ++c) {
            const std::ptrdiff_t o = c * src.step;
            const std::uint64_t keep =
                kMask ? -std::uint64_t(src.inside[c] != 0) : ~std::uint64_t(0);
            const std::uint64_t y = src.ys[o], x = src.xs[o];
            const std::uint32_t bin =
                src.thirdLut[src.ts[o]] | std::uint32_t(y) << 8 | std::uint32_t(x);
            // Y where X > 0 and X where Y > 0, each in its lane.
            const std::uint64_t pixel = src.pairWords[bin & 0xffff];
            const std::uint64_t classBit =
                src.classWords[src.thirdState[src.ts[o]] + src.yState[y] + src.xState[x]];
            linear += pixel & keep;
            squares += (x * x | y * y << 32) & keep;
            products += x * y & keep;
            classes += classBit & keep;
            if constexpr (kRegion) {
                const std::uint64_t chosen = keep & -std::uint64_t(src.selected[bin] != 0);
                roiLinear += pixel & chosen;
                roiClasses += classBit & chosen;
            }
        }
        PairSums& p = run.sums;
        p.sumPixelsXAxis += lane(linear, 0, 16);
        p.sumPixelsYAxis += lane(linear, 16, 16);
        p.sumColocPixelsYAxis += lane(linear, 32, 16);
        p.sumColocPixelsXAxis += lane(linear, 48, 16);
        p.sumPixelsXSquaredAxis += lane(squares, 0, 32);
        p.sumPixelsYSquaredAxis += lane(squares, 32, 32);
        p.sumPixelsXYAxis += std::int64_t(products);
        p.sumPixelCount += lane(classes, 56, 8);
        RegionSums& q = run.roiSums;
        q.sumROIPixelsXAxis += lane(roiLinear, 0, 16);
        q.sumROIPixelsYAxis += lane(roiLinear, 16, 16);
        q.sumROIColocPixelsYAxis += lane(roiLinear, 32, 16);
        q.sumROIColocPixelsXAxis += lane(roiLinear, 48, 16);
        for (unsigned k = 0; k < 7; ++k) {
            run.classes[k] += lane(classes, 8 * k, 8);
            run.pixels += lane(classes, 8 * k, 8);
            run.roiClasses[k] += lane(roiClasses, 8 * k, 8);
            run.roiPixels += lane(roiClasses, 8 * k, 8);
        }
    }
}

// Where the run of labels that starts at `begin` ends, four labels at a time: most runs are
// long, and a label's run costs no more than a fraction of its pixels' sums.
std::int64_t runEnd(const std::uint16_t* cell, std::int64_t begin, std::int64_t width) {
    const std::uint64_t four = cell[begin] * 0x0001'0001'0001'0001u;
    std::int64_t e = begin + 1;
    for (; e + 4 <= width; e += 4) {
        std::uint64_t next;
        std::memcpy(&next, cell + e, sizeof next);
        if (const std::uint64_t differ = next ^ four) {
            // The lowest differing label is the first in memory on a little-endian machine.
            if constexpr (std::endian::native == std::endian::little) {
                return e + std::countr_zero(differ) / 16;
            }
            break;
        }
    }
    while (e < width && cell[e] == cell[begin]) {
        ++e;
    }
    return e;
}

PixelCensus censusOf(const std::array<std::int64_t, 7>& classes, std::int64_t pixels) {
    PixelCensus c;
    for (int k = 1; k < 7; ++k) {
        if (std::int32_t* field = c.countOf(CensusClass(k))) {
            *field = std::int32_t(classes[std::size_t(k)]);
        }
    }
    c.totalPixelCount = std::int32_t(pixels);
    return c;
}

}  // namespace

std::vector<LabelResult> analyseLabels(const ChannelView& view, const LabelImage& labels,
                                       RGBCombo combo, const MinimumLevels& levels,
                                       const RegionSelection* region, const MaskView& mask,
                                       unsigned threads) {
    if (view.isEmpty() || labels.wide != view.width || labels.high != view.height) {
        return {};
    }
    // What a pixel adds to the packed lanes follows from its bin, so it is looked up.
    const ChannelPair pair = channelPairFor(combo);
    std::array<std::uint8_t, 256> thirdState{}, yState{}, xState{};
    std::array<int, 3> ySample{}, xSample{};  // a sample of each state
    for (int v = 255; v >= 0; --v) {
        const int t = censusLevelState(v, levels.of(pair.third));
        const int sy = censusLevelState(v, levels.of(pair.y));
        const int sx = censusLevelState(v, levels.of(pair.x));
        thirdState[std::size_t(v)] = std::uint8_t(9 * t);
        yState[std::size_t(v)] = std::uint8_t(3 * sy);
        xState[std::size_t(v)] = std::uint8_t(sx);
        ySample[std::size_t(sy)] = v;
        xSample[std::size_t(sx)] = v;
    }
    std::array<std::uint64_t, 27> classWords{};
    for (int t = 0; t < 3; ++t) {
        for (int sy = 0; sy < 3; ++sy) {
            for (int sx = 0; sx < 3; ++sx) {
                const int k = int(censusClassOfBin(combo, levels, t, ySample[std::size_t(sy)],
                                                   xSample[std::size_t(sx)]));
                classWords[std::size_t(9 * t + 3 * sy + sx)] =
                    std::uint64_t(1) << (8 * k) | std::uint64_t(sy != 0 || sx != 0) << 56;
            }
        }
    }
    std::vector<std::uint64_t> pairWords(256 * 256);
    for (std::uint64_t y = 0; y < 256; ++y) {
        for (std::uint64_t x = 0; x < 256; ++x) {
            pairWords[y << 8 | x] = x | y << 16 | (x != 0 ? y : 0) << 32 | (y != 0 ? x : 0) << 48;
        }
    }
    const std::array<std::uint32_t, 256> thirdLut = thirdStateBinOffsets(combo, levels);
    const unsigned workers = workersFor(view.height, view.width, threads);
    // Each worker's totals grow to the highest label it meets, which saves a pass to find it.
    std::vector<std::vector<Totals>> perWorker(workers);
    const std::uint8_t* selected = region ? region->bins.data() : nullptr;
    forEachRowBlock(view.height, workers, [&](unsigned w, std::int64_t begin, std::int64_t end) {
        std::vector<Totals>& totals = perWorker[w];
        const std::ptrdiff_t step = view.pixelStride;
        for (std::int64_t r = begin; r < end; ++r) {
            const std::uint16_t* cell = labels.labels.data() + r * labels.wide;
            const std::uint8_t* inside = mask.isWhole() ? nullptr : mask.data + r * mask.rowStride;
            const std::uint8_t* ys = view.sample(pair.y, r, 0);
            const std::uint8_t* xs = view.sample(pair.x, r, 0);
            const std::uint8_t* ts = view.sample(pair.third, r, 0);
            // Cells lie in runs along a row: each run is summed in locals, without a branch per
            // pixel, and added to its cell's totals once.
            for (std::int64_t c = 0; c < view.width;) {
                const std::uint16_t label = cell[c];
                const std::int64_t e = runEnd(cell, c, view.width);
                if (label == 0) {
                    c = e;
                    continue;
                }
                if (label >= totals.size()) {
                    totals.resize(std::size_t(label) + 1);
                }
                Totals run;
                const RunSource source{ys,
                                       xs,
                                       ts,
                                       inside,
                                       step,
                                       thirdLut.data(),
                                       classWords.data(),
                                       thirdState.data(),
                                       yState.data(),
                                       xState.data(),
                                       pairWords.data(),
                                       selected};
                if (inside) {
                    selected ? sumRun<true, true>(source, c, e, run)
                             : sumRun<true, false>(source, c, e, run);
                } else {
                    selected ? sumRun<false, true>(source, c, e, run)
                             : sumRun<false, false>(source, c, e, run);
                }
                c = e;
                add(totals[label], run);
            }
        }
    });
    std::vector<LabelResult> results;
    std::size_t most = 0;
    for (const std::vector<Totals>& totals : perWorker) {
        most = std::max(most, totals.size());
    }
    for (std::size_t label = 1; label < most; ++label) {
        Totals all;
        for (const std::vector<Totals>& totals : perWorker) {
            if (label < totals.size()) {
                add(all, totals[label]);
            }
        }
        if (all.pixels == 0) {
            continue;
        }
        results.push_back({std::uint32_t(label), censusOf(all.classes, all.pixels), all.sums,
                           censusOf(all.roiClasses, all.roiPixels), all.roiSums});
    }
    return results;
}

}  // namespace pv
