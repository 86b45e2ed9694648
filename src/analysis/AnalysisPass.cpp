#include "analysis/AnalysisPass.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>
#include <thread>

#include "analysis/ScatterGram.h"

namespace pv {

namespace {

constexpr std::size_t kPairBins = 256 * 256;

// A sample in each state, for deriving the census of a state (only used when the state occurs).
int sampleOfState(int state, int level) {
    if (state == 0) {
        return 0;
    }
    if (state == 1) {
        return level < 0 ? 1 : level + 1;
    }
    return 1;
}

// Where the pair's three samples of a pixel are: base pointers and the distance between
// neighbouring pixels, so that meshed and planar bitmaps share one kernel.
struct SampleLayout {
    const std::uint8_t* y = nullptr;
    const std::uint8_t* x = nullptr;
    const std::uint8_t* third = nullptr;
    long step = 0;
    long bytesPerRow = 0;
};

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};
using Counts32 = std::unique_ptr<std::uint32_t[], FreeDeleter>;

// One worker's share: the rows it reads and the two sub-histograms it fills.
struct Job {
    const SampleLayout* layout = nullptr;
    const std::uint32_t* thirdLut = nullptr;
    const long* rows = nullptr;
    std::size_t rowCount = 0;
    const long* columnOffsets = nullptr;  // null when the columns are contiguous
    long firstColumnOffset = 0;
    long columns = 0;
    std::uint32_t* h0 = nullptr;
    std::uint32_t* h1 = nullptr;
};

template <long kStep, class Offset>
void countRow(const Job& job, const std::uint8_t* y, const std::uint8_t* x, const std::uint8_t* t,
              long step, Offset offset) {
    const std::uint32_t* lut = job.thirdLut;
    std::uint32_t* h0 = job.h0;
    std::uint32_t* h1 = job.h1;
    const long n = job.columns;
    auto index = [&](long k) {
        const long o = offset(k, kStep > 0 ? kStep : step);
        return lut[t[o]] | std::uint32_t(y[o]) << 8 | std::uint32_t(x[o]);
    };
    // Alternate pixels go to alternate sub-histograms, so that a run of equal values (a black
    // background) does not make each increment wait for the one before. Measured on black and
    // on noisy pictures, this beat a single histogram and a test for runs of four equal pixels.
    long k = 0;
    for (; k + 2 <= n; k += 2) {
        h0[index(k)] += 1;
        h1[index(k + 1)] += 1;
    }
    if (k < n) {
        h0[index(k)] += 1;
    }
}

template <long kStep>
void countRows(const Job& job) {
    const SampleLayout& l = *job.layout;
    for (std::size_t j = 0; j < job.rowCount; ++j) {
        const long rowOffset = job.rows[j] * l.bytesPerRow;
        if (job.columnOffsets == nullptr) {
            const long first = rowOffset + job.firstColumnOffset;
            countRow<kStep>(job, l.y + first, l.x + first, l.third + first, l.step,
                            [](long k, long step) { return k * step; });
        } else {
            const long* offsets = job.columnOffsets;
            countRow<kStep>(job, l.y + rowOffset, l.x + rowOffset, l.third + rowOffset, l.step,
                            [offsets](long k, long) { return offsets[k]; });
        }
    }
}

void runJob(const Job& job) {
    switch (job.layout->step) {
        case 1:
            countRows<1>(job);
            break;
        case 3:
            countRows<3>(job);
            break;
        case 4:
            countRows<4>(job);
            break;
        default:
            countRows<0>(job);
            break;
    }
}

// Position i of the rectangle's side reads pixel trunc(origin + i) while float(i) < length.
// Positions outside the bitmap cannot be read and are left out.
template <class ToIndex>
std::vector<long> visitedIndices(float origin, float length, long limit, ToIndex toIndex) {
    std::vector<long> indices;
    constexpr long kMaxSteps = 0x7fffffffL;
    for (long i = 0; i < kMaxSteps && float(i) < length; ++i) {
        const float p = origin + float(i);
        if (!(p > -1.0f)) {
            continue;
        }
        if (!(p < 2147483648.0f) || long(p) >= limit) {
            break;
        }
        indices.push_back(toIndex(long(p)));
    }
    return indices;
}

// Below this many pixels per worker, starting a thread and merging its histogram costs more
// than it saves.
constexpr std::size_t kMinPixelsPerWorker = 1u << 18;

unsigned workerCount(unsigned requested, std::size_t rows, std::size_t pixels) {
    unsigned n = requested;
    if (n == 0) {
        n = std::max(1u, std::thread::hardware_concurrency());
        n = unsigned(
            std::min<std::size_t>(n, std::max<std::size_t>(1, pixels / kMinPixelsPerWorker)));
    }
    return unsigned(std::min<std::size_t>(n, std::max<std::size_t>(rows, 1)));
}

// Fills histogram.counts from the pixels; false when memory is short.
bool countPixels(const SampleLayout& layout, const std::uint32_t* thirdLut, std::size_t thirdStates,
                 const std::vector<long>& rows, const std::vector<long>& columns,
                 unsigned requestedThreads, PairHistogram& histogram) {
    histogram.counts.assign(PairHistogram::kBins, 0);
    if (rows.empty() || columns.empty()) {
        return true;
    }
    bool contiguous = true;
    for (std::size_t k = 0; k < columns.size(); ++k) {
        contiguous = contiguous && columns[k] == columns[0] + long(k);
    }
    std::vector<long> columnOffsets;
    if (!contiguous) {
        columnOffsets.resize(columns.size());
        for (std::size_t k = 0; k < columns.size(); ++k) {
            columnOffsets[k] = columns[k] * layout.step;
        }
    }

    const unsigned workers =
        workerCount(requestedThreads, rows.size(), rows.size() * columns.size());
    const std::size_t binsUsed = thirdStates * kPairBins;
    std::vector<Counts32> counts(workers);
    std::vector<Job> jobs(workers);
    for (unsigned w = 0; w < workers; ++w) {
        counts[w].reset(
            static_cast<std::uint32_t*>(std::calloc(2 * binsUsed, sizeof(std::uint32_t))));
        if (!counts[w]) {
            return false;
        }
        const std::size_t begin = rows.size() * w / workers;
        const std::size_t end = rows.size() * (w + 1) / workers;
        Job& job = jobs[w];
        job.layout = &layout;
        job.thirdLut = thirdLut;
        job.rows = rows.data() + begin;
        job.rowCount = end - begin;
        job.columnOffsets = contiguous ? nullptr : columnOffsets.data();
        job.firstColumnOffset = columns[0] * layout.step;
        job.columns = long(columns.size());
        job.h0 = counts[w].get();
        job.h1 = counts[w].get() + binsUsed;
    }

    std::vector<std::thread> threads;
    for (unsigned w = 1; w < workers; ++w) {
        try {
            threads.emplace_back(runJob, std::cref(jobs[w]));
        } catch (const std::system_error&) {
            runJob(jobs[w]);  // no thread to be had: do the share here
        }
    }
    runJob(jobs[0]);
    for (auto& t : threads) {
        t.join();
    }

    std::uint64_t* merged = histogram.counts.data();
    for (unsigned w = 0; w < workers; ++w) {
        const std::uint32_t* h0 = counts[w].get();
        const std::uint32_t* h1 = h0 + binsUsed;
        for (std::size_t b = 0; b < binsUsed; ++b) {
            merged[b] += std::uint64_t(h0[b]) + h1[b];
        }
    }
    return true;
}

void deriveCensus(const PairHistogram& histogram, int combo, const std::array<int, 3>& levels,
                  AnalysisState& state) {
    const ChannelPair pair = channelPairFor(combo);
    // The census depends only on each channel's state, so the bins reduce to 3 x 3 x 3 totals.
    std::array<std::array<int, 256>, 2> stateOfValue{};
    for (int v = 0; v < 256; ++v) {
        stateOfValue[0][std::size_t(v)] = censusLevelState(v, levels[std::size_t(pair.y)]);
        stateOfValue[1][std::size_t(v)] = censusLevelState(v, levels[std::size_t(pair.x)]);
    }
    std::uint64_t totals[3][3][3] = {};
    std::uint64_t all = 0;
    for (int t = 0; t < PairHistogram::kThirdStates; ++t) {
        for (int y = 0; y < 256; ++y) {
            std::uint64_t byXState[3] = {};
            const std::uint64_t* row =
                &histogram.counts[(std::size_t(t) * 256 + std::size_t(y)) * 256];
            for (int x = 0; x < 256; ++x) {
                byXState[stateOfValue[1][std::size_t(x)]] += row[x];
            }
            for (int sx = 0; sx < 3; ++sx) {
                totals[t][stateOfValue[0][std::size_t(y)]][sx] += byXState[sx];
                all += byXState[sx];
            }
        }
    }
    state.totalPixelCount = std::int32_t(all);
    for (int t = 0; t < 3; ++t) {
        for (int sy = 0; sy < 3; ++sy) {
            for (int sx = 0; sx < 3; ++sx) {
                if (totals[t][sy][sx] == 0) {
                    continue;
                }
                // Any sample of a state stands for all of it.
                const CensusClass cls = censusClassOfBin(
                    state, combo, t, sampleOfState(sy, levels[std::size_t(pair.y)]),
                    sampleOfState(sx, levels[std::size_t(pair.x)]));
                if (std::int32_t* field = censusCountField(state, cls)) {
                    *field += std::int32_t(totals[t][sy][sx]);
                }
            }
        }
    }
}

// Sums and scatter gram follow from the (Y, X) counts, whatever the third channel.
void deriveSumsAndPlot(const PairHistogram& histogram, const ChannelPair& pair,
                       AnalysisState& state, std::uint8_t* scatterGramData) {
    const std::uint64_t* c = histogram.counts.data();
    for (std::int64_t y = 0; y < 256; ++y) {
        std::int64_t n = 0;
        std::int64_t sx = 0;
        std::int64_t sxx = 0;
        std::int64_t atX0 = 0;
        std::uint8_t* plotRow = scatterGramData + (255 - y) * kScatterGramBytesPerRow;
        for (std::int64_t x = 0; x < 256; ++x) {
            const std::size_t bin = std::size_t(y * 256 + x);
            const std::int64_t k =
                std::int64_t(c[bin] + c[bin + kPairBins] + c[bin + 2 * kPairBins]);
            if (k == 0) {
                continue;
            }
            if (x == 0) {
                atX0 = k;
            }
            n += k;
            sx += k * x;
            sxx += k * x * x;
            plotRow[x * 3 + pair.y] = std::uint8_t(y);
            plotRow[x * 3 + pair.x] = std::uint8_t(x);
        }
        // (0, 0) pixels are left out of every sum.
        const std::int64_t counted = y > 0 ? n : n - atX0;
        state.sumPixelsXYAxis += y * sx;
        state.sumPixelsXAxis += sx;
        state.sumPixelsXSquaredAxis += sxx;
        state.sumPixelsYAxis += y * counted;
        state.sumPixelsYSquaredAxis += y * y * counted;
        state.sumPixelCount += counted;
        if (y > 0) {
            state.sumColocPixelsXAxis += sx;
        }
        state.sumColocPixelsYAxis += y * (n - atX0);
    }
}

}  // namespace

int censusLevelState(int sample, int level) {
    if (sample == 0) {
        return 0;
    }
    return sample > level ? 1 : 2;
}

int minimumLevelOf(const AnalysisState& state, int channel) {
    return channel == 0 ? state.redMinimumLevel
                        : (channel == 1 ? state.greenMinimumLevel : state.blueMinimumLevel);
}

std::vector<long> visitedColumns(const Rect& rect, long width) {
    return visitedIndices(rect.origin.x, rect.size.width, width, [](long c) { return c; });
}

std::vector<long> visitedMemoryRows(const Rect& rect, long height) {
    return visitedIndices(rect.origin.y, rect.size.height, height,
                          [height](long r) { return height - r - 1; });
}

std::array<std::uint32_t, 256> thirdStateBinOffsets(const AnalysisState& state, int rgbCombo) {
    const int level = minimumLevelOf(state, channelPairFor(rgbCombo).third);
    std::array<std::uint32_t, 256> offsets{};
    for (int v = 0; v < 256; ++v) {
        offsets[std::size_t(v)] = std::uint32_t(censusLevelState(v, level)) << 16;
    }
    return offsets;
}

void resetPassResults(AnalysisState& state) {
    state.redPixelCount = 0;
    state.greenPixelCount = 0;
    state.bluePixelCount = 0;
    state.yellowPixelCount = 0;
    state.magentaPixelCount = 0;
    state.cyanPixelCount = 0;
    state.totalPixelCount = 0;
    state.sumPixelsXYAxis = 0;
    state.sumPixelsXAxis = 0;
    state.sumPixelsXSquaredAxis = 0;
    state.sumPixelsYAxis = 0;
    state.sumPixelsYSquaredAxis = 0;
    state.sumPixelCount = 0;
    state.sumColocPixelsXAxis = 0;
    state.sumColocPixelsYAxis = 0;
}

CensusClass censusClassOfBin(const AnalysisState& state, int rgbCombo, int third, int y, int x) {
    const ChannelPair pair = channelPairFor(rgbCombo);
    std::array<int, 3> rgb{};
    rgb[std::size_t(pair.y)] = y;
    rgb[std::size_t(pair.x)] = x;
    rgb[std::size_t(pair.third)] = sampleOfState(third, minimumLevelOf(state, pair.third));
    return censusClassOf(state, rgb[0], rgb[1], rgb[2]);
}

bool runAnalysisPass(const BitmapInfo& info, const PlaneArray& planes, const Rect& rect,
                     AnalysisState& state, std::uint8_t* scatterGramData, PairHistogram& histogram,
                     unsigned threads) {
    resetPassResults(state);
    std::memset(scatterGramData, 0, kScatterGramBytes);
    const int combo = normalizedRGBCombo(state.rgbCombo);
    const ChannelPair pair = channelPairFor(combo);
    histogram.rgbCombo = combo;
    try {
        // Red, green and blue must all be there: a meshed pixel needs three samples.
        const bool readable =
            planes[0] != nullptr &&
            (info.isPlanar == 0 ? info.samplesPerPixel >= 3 : (planes[1] && planes[2]));
        const long width = readable ? long(info.width) : 0;
        const long height = readable ? long(info.height) : 0;
        const std::vector<long> columns = visitedColumns(rect, width);
        const std::vector<long> rows = visitedMemoryRows(rect, height);

        SampleLayout layout;
        layout.bytesPerRow = info.bytesPerRow;
        if (info.isPlanar == 0) {
            layout.step = info.samplesPerPixel;
            layout.y = planes[0] + pair.y;
            layout.x = planes[0] + pair.x;
            layout.third = planes[0] + pair.third;
        } else {
            layout.step = 1;
            layout.y = planes[std::size_t(pair.y)];
            layout.x = planes[std::size_t(pair.x)];
            layout.third = planes[std::size_t(pair.third)];
        }

        const std::array<int, 3> levels = {state.redMinimumLevel, state.greenMinimumLevel,
                                           state.blueMinimumLevel};
        const int thirdLevel = levels[std::size_t(pair.third)];
        const std::array<std::uint32_t, 256> thirdLut = thirdStateBinOffsets(state, combo);
        // State 2 needs a level above 0; without it the workers' histograms are a third smaller.
        const std::size_t thirdStates = thirdLevel > 0 ? 3 : 2;

        if (!countPixels(layout, thirdLut.data(), thirdStates, rows, columns, threads, histogram)) {
            histogram.counts.clear();
            return false;
        }
        deriveCensus(histogram, combo, levels, state);
        deriveSumsAndPlot(histogram, pair, state, scatterGramData);
        return true;
    } catch (const std::bad_alloc&) {
        resetPassResults(state);
        histogram.counts.clear();
        std::memset(scatterGramData, 0, kScatterGramBytes);
        return false;
    }
}

}  // namespace pv
