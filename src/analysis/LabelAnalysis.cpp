#include "analysis/LabelAnalysis.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <tmmintrin.h>
#endif

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
    to.sums += t.sums;
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
    // For the vector loop: each pixel's class by the states of its samples (as classWords),
    // and the census levels of Y, X and the third sample.
    const std::uint8_t* classOf;
    std::array<std::uint8_t, 3> levels;  // Y, X, third
    bool sameForEveryThird;              // the region chooses a pair whatever the third sample
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

#if defined(__x86_64__)
#define PV_LABEL_VECTORS 1

// Sixteen pixels at a time: the samples are split out of the meshed pixels with byte shuffles,
// the sums come from sums of absolute differences and multiply-adds, and the classes from a
// shuffle of the states. Only the region's bins are looked up one pixel at a time.
namespace vec {

#define PV_SSSE3 __attribute__((target("ssse3")))

// The shuffles that gather the sample at `offset` of each of 16 pixels `stride` bytes apart
// from the 16-byte pieces that hold them; -128 leaves a byte 0.
struct Gather {
    __m128i piece[4] = {};
    int pieces = 0;
};

Gather gatherFor(int offset, int stride) {
    Gather g;
    g.pieces = stride;
    for (int p = 0; p < stride; ++p) {
        alignas(16) std::int8_t m[16];
        for (int j = 0; j < 16; ++j) {
            const int at = offset + stride * j - 16 * p;
            m[j] = at >= 0 && at < 16 ? std::int8_t(at) : std::int8_t(-128);
        }
        std::memcpy(&g.piece[p], m, 16);
    }
    return g;
}

PV_SSSE3 inline __m128i gather(const __m128i* pieces, const Gather& g) {
    __m128i v = _mm_shuffle_epi8(pieces[0], g.piece[0]);
    for (int p = 1; p < g.pieces; ++p) {
        v = _mm_or_si128(v, _mm_shuffle_epi8(pieces[p], g.piece[p]));
    }
    return v;
}

// A sample's census state as sumRun's tables give it: 0 it is 0, 1 above the level, 2 neither.
PV_SSSE3 inline __m128i stateOf(__m128i v, __m128i level) {
    const __m128i zero = _mm_setzero_si128();
    const __m128i nonZero = _mm_andnot_si128(_mm_cmpeq_epi8(v, zero), _mm_set1_epi8(2));
    const __m128i above =
        _mm_andnot_si128(_mm_cmpeq_epi8(_mm_subs_epu8(v, level), zero), _mm_set1_epi8(1));
    return _mm_sub_epi8(nonZero, above);
}

PV_SSSE3 inline std::int64_t total64(__m128i v) {
    return std::int64_t(std::uint64_t(_mm_cvtsi128_si64(v)) +
                        std::uint64_t(_mm_cvtsi128_si64(_mm_unpackhi_epi64(v, v))));
}

PV_SSSE3 inline std::int64_t total32(__m128i v) {
    alignas(16) std::uint32_t lanes[4];
    _mm_store_si128(reinterpret_cast<__m128i*>(lanes), v);
    return std::int64_t(lanes[0]) + lanes[1] + lanes[2] + lanes[3];
}

// The pair sums of 16 pixels (zero where left out) into 64-bit and 32-bit lanes.
struct Sums {
    __m128i x = _mm_setzero_si128(), y = x, colocX = x, colocY = x;  // 64-bit lanes
    __m128i xx = x, yy = x, xy = x;                                  // 32-bit lanes
};

PV_SSSE3 inline void addPairs(Sums& s, __m128i x, __m128i y, bool squares) {
    const __m128i zero = _mm_setzero_si128();
    s.x = _mm_add_epi64(s.x, _mm_sad_epu8(x, zero));
    s.y = _mm_add_epi64(s.y, _mm_sad_epu8(y, zero));
    const __m128i withX = _mm_andnot_si128(_mm_cmpeq_epi8(x, zero), y);
    const __m128i withY = _mm_andnot_si128(_mm_cmpeq_epi8(y, zero), x);
    s.colocY = _mm_add_epi64(s.colocY, _mm_sad_epu8(withX, zero));
    s.colocX = _mm_add_epi64(s.colocX, _mm_sad_epu8(withY, zero));
    if (squares) {
        const __m128i xl = _mm_unpacklo_epi8(x, zero), xh = _mm_unpackhi_epi8(x, zero);
        const __m128i yl = _mm_unpacklo_epi8(y, zero), yh = _mm_unpackhi_epi8(y, zero);
        s.xx = _mm_add_epi32(s.xx, _mm_add_epi32(_mm_madd_epi16(xl, xl), _mm_madd_epi16(xh, xh)));
        s.yy = _mm_add_epi32(s.yy, _mm_add_epi32(_mm_madd_epi16(yl, yl), _mm_madd_epi16(yh, yh)));
        s.xy = _mm_add_epi32(s.xy, _mm_add_epi32(_mm_madd_epi16(xl, yl), _mm_madd_epi16(xh, yh)));
    }
}

// Counts the pixels of each of the seven classes, and those with signal, in n bytes (a whole
// number of 16s, at most 255 of them) of class numbers; a byte of another value counts nowhere.
PV_SSSE3 inline void countClasses(const std::uint8_t* cls, const std::uint8_t* signal,
                                  std::int64_t n, std::array<std::int64_t, 7>& classes,
                                  std::int64_t& pixels, std::int64_t* signalled) {
    const __m128i zero = _mm_setzero_si128();
    __m128i counts[8] = {};
    for (std::int64_t i = 0; i < n; i += 16) {
        const __m128i v = _mm_load_si128(reinterpret_cast<const __m128i*>(cls + i));
        for (int k = 0; k < 7; ++k) {
            counts[k] = _mm_sub_epi8(counts[k], _mm_cmpeq_epi8(v, _mm_set1_epi8(char(k))));
        }
        if (signalled) {
            counts[7] = _mm_add_epi8(counts[7],
                                     _mm_load_si128(reinterpret_cast<const __m128i*>(signal + i)));
        }
    }
    for (std::size_t k = 0; k < 7; ++k) {
        const std::int64_t c = total64(_mm_sad_epu8(counts[k], zero));
        classes[k] += c;
        pixels += c;
    }
    if (signalled) {
        *signalled += total64(_mm_sad_epu8(counts[7], zero));
    }
}

// The pixels begin..end (a whole number of 16s) of a row of meshed or planar samples into run,
// as sumRun would sum them: first the sums, with each pixel's class kept in a byte, then the
// classes counted, so that neither loop needs more registers than there are.
template <bool kPlanar, bool kMask, bool kRegion>
PV_SSSE3 void sumBlocks(const RunSource& src, const std::uint8_t* base,
                        const std::array<Gather, 3>& gathers, std::int64_t begin, std::int64_t end,
                        Totals& run) {
    constexpr std::int64_t kChunk = 16 * 255;
    alignas(16) std::uint8_t classes[kChunk], signals[kChunk];
    // With a region: the samples as read, to find each pixel's bin, and whether it is chosen.
    alignas(16) std::uint8_t ys[kRegion ? kChunk : 1], xs[kRegion ? kChunk : 1],
        states[kRegion ? kChunk : 1], picked[kRegion ? kChunk : 1];
    alignas(16) std::uint16_t pairs[kRegion ? kChunk : 1];  // Y << 8 | X
    const __m128i zero = _mm_setzero_si128();
    const __m128i none = _mm_set1_epi8(-1);
    const __m128i yLevel = _mm_set1_epi8(char(src.levels[0]));
    const __m128i xLevel = _mm_set1_epi8(char(src.levels[1]));
    const __m128i thirdLevel = _mm_set1_epi8(char(src.levels[2]));
    const __m128i classesLow = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src.classOf));
    const __m128i classesHigh = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src.classOf + 16));
    const std::ptrdiff_t step = src.step;
    const auto keepOf = [&](std::int64_t c) PV_SSSE3 {
        if constexpr (kMask) {
            return _mm_xor_si128(
                _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src.inside + c)),
                               zero),
                none);
        }
        return none;
    };
    for (std::int64_t chunk = begin; chunk < end; chunk += kChunk) {
        const std::int64_t stop = std::min(end, chunk + kChunk);
        Sums all;
        for (std::int64_t c = chunk; c < stop; c += 16) {
            __m128i y, x, third;
            if constexpr (kPlanar) {
                y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src.ys + c));
                x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src.xs + c));
                third = _mm_loadu_si128(reinterpret_cast<const __m128i*>(src.ts + c));
            } else {
                __m128i pieces[4];
                const std::uint8_t* at = base + c * step;
                for (int p = 0; p < int(step); ++p) {
                    pieces[p] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(at + 16 * p));
                }
                y = gather(pieces, gathers[0]);
                x = gather(pieces, gathers[1]);
                third = gather(pieces, gathers[2]);
            }
            const std::int64_t i = c - chunk;
            // The class of each pixel from the 27 by the states (third * 9 + Y * 3 + X): two
            // shuffles of 16 entries.
            const __m128i st = stateOf(third, thirdLevel), sy = stateOf(y, yLevel);
            if constexpr (kRegion) {
                _mm_store_si128(reinterpret_cast<__m128i*>(ys + i), y);
                _mm_store_si128(reinterpret_cast<__m128i*>(xs + i), x);
                _mm_store_si128(reinterpret_cast<__m128i*>(states + i), st);
                _mm_store_si128(reinterpret_cast<__m128i*>(pairs + i), _mm_unpacklo_epi8(x, y));
                _mm_store_si128(reinterpret_cast<__m128i*>(pairs + i + 8), _mm_unpackhi_epi8(x, y));
            }
            const __m128i idx = _mm_add_epi8(
                _mm_add_epi8(_mm_slli_epi16(st, 3), st),
                _mm_add_epi8(_mm_add_epi8(_mm_slli_epi16(sy, 1), sy), stateOf(x, xLevel)));
            const __m128i high = _mm_cmpgt_epi8(idx, _mm_set1_epi8(15));
            const __m128i topBit = _mm_set1_epi8(char(0x80));
            const __m128i cls = _mm_or_si128(
                _mm_shuffle_epi8(classesLow, _mm_or_si128(idx, _mm_and_si128(high, topBit))),
                _mm_shuffle_epi8(classesHigh, _mm_or_si128(_mm_sub_epi8(idx, _mm_set1_epi8(16)),
                                                           _mm_andnot_si128(high, topBit))));
            // Left out: a class number no counter takes, and zero samples, which add nothing.
            const __m128i keep = keepOf(c);
            y = _mm_and_si128(y, keep);
            x = _mm_and_si128(x, keep);
            _mm_store_si128(reinterpret_cast<__m128i*>(classes + i),
                            _mm_or_si128(cls, _mm_andnot_si128(keep, none)));
            _mm_store_si128(
                reinterpret_cast<__m128i*>(signals + i),
                _mm_andnot_si128(_mm_cmpeq_epi8(_mm_or_si128(x, y), zero), _mm_set1_epi8(1)));
            addPairs(all, x, y, true);
        }
        PairSums& p = run.sums;
        p.sumPixelsXAxis += total64(all.x);
        p.sumPixelsYAxis += total64(all.y);
        p.sumColocPixelsYAxis += total64(all.colocY);
        p.sumColocPixelsXAxis += total64(all.colocX);
        p.sumPixelsXSquaredAxis += total32(all.xx);
        p.sumPixelsYSquaredAxis += total32(all.yy);
        p.sumPixelsXYAxis += total32(all.xy);
        countClasses(classes, signals, stop - chunk, run.classes, run.pixels, &p.sumPixelCount);
        if constexpr (kRegion) {
            // The region's bins are looked up one pixel at a time, away from the vector loops
            // so that no vector waits on the bytes just written.
            if (src.sameForEveryThird) {
                for (std::int64_t i = 0; i < stop - chunk; ++i) {
                    picked[i] = src.selected[pairs[i]];
                }
            } else {
                for (std::int64_t i = 0; i < stop - chunk; ++i) {
                    picked[i] = src.selected[std::uint32_t(states[i]) << 16 | pairs[i]];
                }
            }
            Sums chosen;
            for (std::int64_t c = chunk; c < stop; c += 16) {
                const std::int64_t i = c - chunk;
                const __m128i choose = _mm_andnot_si128(
                    _mm_cmpeq_epi8(_mm_load_si128(reinterpret_cast<const __m128i*>(picked + i)),
                                   zero),
                    keepOf(c));
                const __m128i cls = _mm_load_si128(reinterpret_cast<const __m128i*>(classes + i));
                _mm_store_si128(reinterpret_cast<__m128i*>(classes + i),
                                _mm_or_si128(cls, _mm_andnot_si128(choose, none)));
                addPairs(
                    chosen,
                    _mm_and_si128(_mm_load_si128(reinterpret_cast<const __m128i*>(xs + i)), choose),
                    _mm_and_si128(_mm_load_si128(reinterpret_cast<const __m128i*>(ys + i)), choose),
                    false);
            }
            RegionSums& q = run.roiSums;
            q.sumROIPixelsXAxis += total64(chosen.x);
            q.sumROIPixelsYAxis += total64(chosen.y);
            q.sumROIColocPixelsYAxis += total64(chosen.colocY);
            q.sumROIColocPixelsXAxis += total64(chosen.colocX);
            countClasses(classes, nullptr, stop - chunk, run.roiClasses, run.roiPixels, nullptr);
        }
    }
}

#undef PV_SSSE3

}  // namespace vec
#endif

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
    if (view.isEmpty() || labels.wide != view.width || labels.high != view.height ||
        !mask.fits(view)) {
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
    std::array<std::uint8_t, 32> classOf{};
    for (int t = 0; t < 3; ++t) {
        for (int sy = 0; sy < 3; ++sy) {
            for (int sx = 0; sx < 3; ++sx) {
                const int k = int(censusClassOfBin(combo, levels, t, ySample[std::size_t(sy)],
                                                   xSample[std::size_t(sx)]));
                classOf[std::size_t(9 * t + 3 * sy + sx)] = std::uint8_t(k);
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
    // A region drawn on the scatter gram chooses pairs alike for every state of the third sample.
    constexpr std::size_t kPlane = 256 * 256;
    const bool sameForEveryThird = region &&
                                   std::equal(selected, selected + kPlane, selected + kPlane) &&
                                   std::equal(selected, selected + kPlane, selected + 2 * kPlane);
    const std::array<std::uint8_t, 3> sampleLevels = {std::uint8_t(levels.of(pair.y)),
                                                      std::uint8_t(levels.of(pair.x)),
                                                      std::uint8_t(levels.of(pair.third))};
    // Whole groups of 16 pixels go through the vector loop where the processor has it and the
    // samples lie as it reads them: in planes, or meshed three or four bytes a pixel.
    const std::ptrdiff_t step = view.pixelStride;
    const std::uint8_t* first =
        std::min({view.channel[std::size_t(pair.y)], view.channel[std::size_t(pair.x)],
                  view.channel[std::size_t(pair.third)]});
    const std::array<std::ptrdiff_t, 3> offsets = {view.channel[std::size_t(pair.y)] - first,
                                                   view.channel[std::size_t(pair.x)] - first,
                                                   view.channel[std::size_t(pair.third)] - first};
    const bool planar = step == 1;
    const bool meshed =
        (step == 3 || step == 4) && std::max({offsets[0], offsets[1], offsets[2]}) < step;
#if PV_LABEL_VECTORS
    const bool vectors = (planar || meshed) && __builtin_cpu_supports("ssse3");
    std::array<vec::Gather, 3> gathers;
    if (meshed) {
        for (std::size_t k = 0; k < 3; ++k) {
            gathers[k] = vec::gatherFor(int(offsets[k]), int(step));
        }
    }
#else
    const bool vectors = false;
#endif
    forEachRowBlock(view.height, workers, [&](unsigned w, std::int64_t begin, std::int64_t end) {
        std::vector<Totals>& totals = perWorker[w];
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
                                       selected,
                                       classOf.data(),
                                       sampleLevels,
                                       sameForEveryThird};
                std::int64_t from = c;
#if PV_LABEL_VECTORS
                if (vectors && e - c >= 16) {
                    from = c + (e - c) / 16 * 16;
                    const std::uint8_t* base = view.sample(pair.y, r, 0) - offsets[0];
                    const auto blocks = [&]<bool kPlanar, bool kMask, bool kRegion>() {
                        vec::sumBlocks<kPlanar, kMask, kRegion>(source, base, gathers, c, from,
                                                                run);
                    };
                    const auto withRegion = [&]<bool kPlanar, bool kMask>() {
                        selected ? blocks.template operator()<kPlanar, kMask, true>()
                                 : blocks.template operator()<kPlanar, kMask, false>();
                    };
                    const auto withMask = [&]<bool kPlanar>() {
                        inside ? withRegion.template operator()<kPlanar, true>()
                               : withRegion.template operator()<kPlanar, false>();
                    };
                    planar ? withMask.template operator()<true>()
                           : withMask.template operator()<false>();
                }
#endif
                if (inside) {
                    selected ? sumRun<true, true>(source, from, e, run)
                             : sumRun<true, false>(source, from, e, run);
                } else {
                    selected ? sumRun<false, true>(source, from, e, run)
                             : sumRun<false, false>(source, from, e, run);
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
