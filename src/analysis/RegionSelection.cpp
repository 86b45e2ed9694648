#include "analysis/RegionSelection.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <system_error>
#include <thread>

#include "analysis/ScatterGram.h"

namespace pv {

namespace {

constexpr std::size_t kPairBins = 256 * 256;

std::int32_t* roiCensusCountField(AnalysisState& state, CensusClass c) {
    switch (c) {
        case CensusClass::Red:
            return &state.roiRedPixelCount;
        case CensusClass::Green:
            return &state.roiGreenPixelCount;
        case CensusClass::Blue:
            return &state.roiBluePixelCount;
        case CensusClass::Yellow:
            return &state.roiYellowPixelCount;
        case CensusClass::Magenta:
            return &state.roiMagentaPixelCount;
        case CensusClass::Cyan:
            return &state.roiCyanPixelCount;
        case CensusClass::None:
            break;
    }
    return nullptr;
}

bool singleColorTestsY(Point mouseUpHere) {
    return mouseUpHere.y >= mouseUpHere.x;
}

// Where a reveal reads a pixel's pair and writes its colour, for meshed and planar alike.
struct RevealLayout {
    const std::uint8_t* y = nullptr;
    const std::uint8_t* x = nullptr;
    const std::uint8_t* third = nullptr;
    std::uint8_t* red = nullptr;
    std::uint8_t* green = nullptr;
    std::uint8_t* blue = nullptr;
    long step = 0;
    long bytesPerRow = 0;
    std::array<std::uint32_t, 256> thirdOffsets{};
    const std::uint8_t* selected = nullptr;
    std::uint8_t colour[3] = {};
};

template <long kStep>
void revealRows(const RevealLayout& l, const long* rows, std::size_t rowCount,
                const std::vector<long>& columns, bool contiguous) {
    const long step = kStep > 0 ? kStep : l.step;
    const long n = long(columns.size());
    const std::uint8_t r = l.colour[0];
    const std::uint8_t g = l.colour[1];
    const std::uint8_t b = l.colour[2];
    for (std::size_t j = 0; j < rowCount; ++j) {
        const long rowOffset = rows[j] * l.bytesPerRow;
        auto visit = [&](long o) {
            const std::uint32_t bin =
                l.thirdOffsets[l.third[o]] | std::uint32_t(l.y[o]) << 8 | std::uint32_t(l.x[o]);
            if (l.selected[bin] != 0) {
                l.red[o] = r;
                l.green[o] = g;
                l.blue[o] = b;
            }
        };
        if (contiguous) {
            const long first = rowOffset + columns[0] * step;
            for (long k = 0; k < n; ++k) {
                visit(first + k * step);
            }
        } else {
            for (long k = 0; k < n; ++k) {
                visit(rowOffset + columns[std::size_t(k)] * step);
            }
        }
    }
}

void revealJob(const RevealLayout& l, const long* rows, std::size_t rowCount,
               const std::vector<long>& columns, bool contiguous) {
    switch (l.step) {
        case 1:
            revealRows<1>(l, rows, rowCount, columns, contiguous);
            break;
        case 3:
            revealRows<3>(l, rows, rowCount, columns, contiguous);
            break;
        case 4:
            revealRows<4>(l, rows, rowCount, columns, contiguous);
            break;
        default:
            revealRows<0>(l, rows, rowCount, columns, contiguous);
            break;
    }
}

// Below this many pixels per worker a thread costs more than it saves.
constexpr std::size_t kMinPixelsPerWorker = 1u << 18;

}  // namespace

RegionSelection RegionSelection::fromPairTest(const std::function<bool(Point)>& contains) {
    RegionSelection s;
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            if (contains(Point{float(x), float(y)})) {
                const std::size_t pair = std::size_t(y) * 256 + std::size_t(x);
                for (int t = 0; t < PairHistogram::kThirdStates; ++t) {
                    s.bins[std::size_t(t) * kPairBins + pair] = 1;
                }
            }
        }
    }
    return s;
}

RegionSelection RegionSelection::singleColor(Point mouseUpHere) {
    // Third state 0 is a third sample of 0, whatever the level.
    RegionSelection s;
    const bool testsY = singleColorTestsY(mouseUpHere);
    for (int v = 1; v < 256; ++v) {
        s.bins[testsY ? std::size_t(v) * 256 : std::size_t(v)] = 1;
    }
    return s;
}

bool roiSingleSelectedColorMatched(int rgbCombo, Point mouseUpHere, PackedRGB value) {
    const ChannelPair pair = channelPairFor(rgbCombo);
    const int channel = singleColorTestsY(mouseUpHere) ? pair.y : pair.x;
    const PackedRGB own = PackedRGB(0xff) << (8 * (2 - channel));
    return (value & own) != 0 && (value & ~own) == 0;
}

void countPixelsInScatterGramROI(AnalysisState& state, PackedRGB value) {
    state.roiTotalPixelCount += 1;
    if (std::int32_t* count = roiCensusCountField(
            state, censusClassOf(state, redOf(value), greenOf(value), blueOf(value)))) {
        *count += 1;
    }
}

void countCoefficientsM1M2(AnalysisState& state, PackedRGB value) {
    const ChannelPair pair = channelPairFor(state.rgbCombo);
    const std::int64_t y = channelOf(value, pair.y);
    const std::int64_t x = channelOf(value, pair.x);
    if (x > 0 && y > 0) {
        state.sumROIColocPixelsYAxis += y;
        state.sumROIColocPixelsXAxis += x;
    }
    if (y > 0) {
        state.sumROIPixelsYAxis += y;
    }
    if (x > 0) {
        state.sumROIPixelsXAxis += x;
    }
}

void resetRegionResults(AnalysisState& state) {
    state.roiRedPixelCount = 0;
    state.roiGreenPixelCount = 0;
    state.roiBluePixelCount = 0;
    state.roiYellowPixelCount = 0;
    state.roiMagentaPixelCount = 0;
    state.roiCyanPixelCount = 0;
    state.roiTotalPixelCount = 0;
    state.sumROIColocPixelsXAxis = 0;
    state.sumROIColocPixelsYAxis = 0;
    state.sumROIPixelsYAxis = 0;
    state.sumROIPixelsXAxis = 0;
}

void countRegion(const PairHistogram& histogram, const RegionSelection& selection,
                 AnalysisState& state) {
    resetRegionResults(state);
    if (histogram.counts.size() != std::size_t(PairHistogram::kBins) ||
        selection.bins.size() != std::size_t(PairHistogram::kBins)) {
        return;
    }
    const int combo = histogram.rgbCombo;
    const int xLevel = minimumLevelOf(state, channelPairFor(combo).x);
    std::array<std::uint8_t, 256> xState{};
    for (int v = 0; v < 256; ++v) {
        xState[std::size_t(v)] = std::uint8_t(censusLevelState(v, xLevel));
    }
    std::int64_t total = 0;
    std::int64_t sumY = 0;
    std::int64_t sumX = 0;
    std::int64_t colocY = 0;
    std::int64_t colocX = 0;
    for (int t = 0; t < PairHistogram::kThirdStates; ++t) {
        for (std::int64_t y = 0; y < 256; ++y) {
            const std::size_t row = (std::size_t(t) * 256 + std::size_t(y)) * 256;
            const std::uint64_t* counts = histogram.counts.data() + row;
            const std::uint8_t* chosen = selection.bins.data() + row;
            // A row's class depends on x only through x's level state; any x of a state that
            // occurs stands for it.
            std::uint64_t byXState[3] = {};
            int xOfState[3] = {-1, -1, -1};
            std::uint64_t n = 0;
            std::uint64_t weightedX = 0;
            for (int x = 0; x < 256; ++x) {
                const std::uint64_t k = chosen[x] != 0 ? counts[x] : 0;
                n += k;
                weightedX += k * std::uint64_t(x);
                const int s = xState[std::size_t(x)];
                byXState[s] += k;
                if (k != 0 && xOfState[s] < 0) {
                    xOfState[s] = x;
                }
            }
            if (n == 0) {
                continue;
            }
            const std::uint64_t atX0 = chosen[0] != 0 ? counts[0] : 0;
            total += std::int64_t(n);
            sumY += y * std::int64_t(n);
            sumX += std::int64_t(weightedX);
            colocY += y * std::int64_t(n - atX0);
            if (y > 0) {
                colocX += std::int64_t(weightedX);
            }
            for (int s = 0; s < 3; ++s) {
                if (xOfState[s] < 0) {
                    continue;
                }
                const CensusClass c = censusClassOfBin(state, combo, t, int(y), xOfState[s]);
                if (std::int32_t* field = roiCensusCountField(state, c)) {
                    *field += std::int32_t(byXState[s]);
                }
            }
        }
    }
    state.roiTotalPixelCount = std::int32_t(total);
    state.sumROIPixelsYAxis = sumY;
    state.sumROIPixelsXAxis = sumX;
    state.sumROIColocPixelsYAxis = colocY;
    state.sumROIColocPixelsXAxis = colocX;
}

void computeColocalization_M1M2(AnalysisState& state) {
    state.colocalization_M1 =
        double(state.sumROIColocPixelsYAxis) / double(state.sumROIPixelsYAxis);
    state.colocalization_M2 =
        double(state.sumROIColocPixelsXAxis) / double(state.sumROIPixelsXAxis);
}

namespace {

// The reveal pass. With copyRows each worker first copies its share of the source's memory
// rows (every plane, padding included) into the target, row by row just before painting it,
// so a fresh copy costs one trip through memory instead of two.
bool reveal(const BitmapInfo& info, const PlaneArray& source, const PlaneArray& target,
            const Rect& rect, const RegionSelection& selection, const AnalysisState& state,
            unsigned threads, bool copyRows) {
    const bool planar = info.isPlanar != 0;
    const auto readable = [planar, &info](const PlaneArray& p) {
        return p[0] != nullptr &&
               (planar ? (p[1] != nullptr && p[2] != nullptr) : info.samplesPerPixel >= 3);
    };
    if (!readable(source) || !readable(target) ||
        selection.bins.size() != std::size_t(PairHistogram::kBins)) {
        return true;
    }
    try {
        const long memoryRows =
            info.bytesPerRow > 0 ? long(info.bytesPerPlane / info.bytesPerRow) : 0;
        const std::vector<long> columns = visitedColumns(rect, long(info.width));
        const std::vector<long> rows = visitedMemoryRows(rect, long(info.height));
        if (!copyRows && (columns.empty() || rows.empty())) {
            return true;
        }
        // Painting is idempotent, so a row visited twice needs painting once.
        std::vector<std::uint8_t> visited(std::size_t(std::max(memoryRows, 0L)), 0);
        for (long r : rows) {
            if (r >= 0 && r < memoryRows) {
                visited[std::size_t(r)] = 1;
            }
        }
        const int combo = normalizedRGBCombo(state.rgbCombo);
        const ChannelPair pair = channelPairFor(combo);
        RevealLayout l;
        l.bytesPerRow = info.bytesPerRow;
        if (planar) {
            l.step = 1;
            l.y = source[std::size_t(pair.y)];
            l.x = source[std::size_t(pair.x)];
            l.third = source[std::size_t(pair.third)];
            l.red = target[0];
            l.green = target[1];
            l.blue = target[2];
        } else {
            l.step = info.samplesPerPixel;
            l.y = source[0] + pair.y;
            l.x = source[0] + pair.x;
            l.third = source[0] + pair.third;
            l.red = target[0];
            l.green = target[0] + 1;
            l.blue = target[0] + 2;
        }
        l.thirdOffsets = thirdStateBinOffsets(state, combo);
        l.selected = selection.bins.data();
        l.colour[0] = state.redRevealPixelValue;
        l.colour[1] = state.greenRevealPixelValue;
        l.colour[2] = state.blueRevealPixelValue;
        bool contiguous = true;
        for (std::size_t k = 0; k < columns.size(); ++k) {
            contiguous = contiguous && columns[k] == columns[0] + long(k);
        }
        const int planes = planar ? info.numberOfPlanes : 1;

        unsigned workers = threads;
        if (workers == 0) {
            workers = std::max(1u, std::thread::hardware_concurrency());
            const std::size_t pixels =
                std::size_t(memoryRows) * std::size_t(info.width > 0 ? long(info.width) : 0);
            workers = unsigned(std::min<std::size_t>(
                workers, std::max<std::size_t>(1, pixels / kMinPixelsPerWorker)));
        }
        workers = unsigned(std::max<long>(1, std::min<long>(long(workers), memoryRows)));
        // Workers own disjoint ranges of memory rows, so they copy and paint without locks.
        auto share = [&](unsigned w) {
            const long begin = memoryRows * long(w) / long(workers);
            const long end = memoryRows * long(w + 1) / long(workers);
            for (long r = begin; r < end; ++r) {
                if (copyRows) {
                    const std::size_t offset = std::size_t(r) * std::size_t(info.bytesPerRow);
                    for (int k = 0; k < planes; ++k) {
                        std::memcpy(target[std::size_t(k)] + offset,
                                    source[std::size_t(k)] + offset, std::size_t(info.bytesPerRow));
                    }
                }
                if (visited[std::size_t(r)] != 0 && !columns.empty()) {
                    revealJob(l, &r, 1, columns, contiguous);
                }
            }
        };
        std::vector<std::thread> pool;
        pool.reserve(workers);
        for (unsigned w = 1; w < workers; ++w) {
            try {
                pool.emplace_back(share, w);
            } catch (const std::system_error&) {
                share(w);
            }
        }
        share(0);
        for (auto& t : pool) {
            t.join();
        }
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

}  // namespace

bool revealPixels(const BitmapInfo& info, const PlaneArray& source, const PlaneArray& target,
                  const Rect& rect, const RegionSelection& selection, const AnalysisState& state,
                  unsigned threads) {
    return reveal(info, source, target, rect, selection, state, threads, false);
}

std::optional<Bitmap> revealedCopy(const Bitmap& source, const BitmapInfo& info, const Rect& rect,
                                   const RegionSelection& selection, const AnalysisState& state,
                                   unsigned threads) {
    if (source.isEmpty()) {
        return Bitmap();
    }
    std::optional<Bitmap> target =
        Bitmap::create(source.pixelsWide(), source.pixelsHigh(), source.samplesPerPixel(),
                       source.hasAlpha(), source.isPlanar(), source.bytesPerRow());
    if (!target) {
        return std::nullopt;
    }
    PlaneArray from{};
    for (int k = 0; k < source.numberOfPlanes(); ++k) {
        from[std::size_t(k)] = const_cast<std::uint8_t*>(source.plane(k));
    }
    if (!reveal(info, from, target->planes(), rect, selection, state, threads, true)) {
        return std::nullopt;
    }
    return target;
}

void paintPixel(const BitmapInfo& info, const PlaneArray& planes, Point p, std::uint8_t red,
                std::uint8_t green, std::uint8_t blue) {
    const long o = pixelOffset(info, p);
    const bool planar = info.isPlanar != 0;
    planes[0][o] = red;
    (planar ? planes[1] : planes[0] + 1)[o] = green;
    (planar ? planes[2] : planes[0] + 2)[o] = blue;
}

}  // namespace pv
