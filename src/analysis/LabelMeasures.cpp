#include "analysis/LabelMeasures.h"

#include <algorithm>
#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "core/ParallelRows.h"

namespace pv {

namespace {

// Every label a worker may meet, 0 included, so that no pass is needed to find the largest.
constexpr std::size_t kLabelSlots = std::size_t(kMostLabels) + 1;

const std::uint8_t* maskRow(const MaskView& mask, std::int64_t r) {
    return mask.isWhole() ? nullptr : mask.data + r * mask.rowStride;
}

bool fitsLabels(const ChannelView& view, const LabelImage& labels, const MaskView& mask) {
    return labels.wide == view.width && labels.high == view.height && mask.fits(view);
}

}  // namespace

LabelBins binsByLabel(const ChannelView& view, const LabelImage& labels, RGBCombo combo,
                      const MaskView& mask, unsigned threads) {
    LabelBins out;
    if (view.isEmpty() || !fitsLabels(view, labels, mask)) {
        return out;
    }
    const ChannelPair pair = channelPairFor(combo);
    const unsigned workers = workersFor(view.height, view.width, threads);
    // Each worker counts its rows' labels, then scatters them from its own place in each label.
    std::vector<std::vector<std::size_t>> at(workers, std::vector<std::size_t>(kLabelSlots, 0));
    forEachRowBlock(view.height, workers, [&](unsigned w, std::int64_t begin, std::int64_t end) {
        std::size_t* count = at[w].data();
        for (std::int64_t r = begin; r < end; ++r) {
            const std::uint16_t* cell = labels.labels.data() + r * labels.wide;
            const std::uint8_t* inside = maskRow(mask, r);
            for (std::int64_t c = 0; c < view.width; ++c) {
                count[cell[c]] += inside == nullptr || inside[c] != 0 ? 1 : 0;
            }
        }
    });
    out.starts.assign(kLabelSlots + 1, 0);
    std::size_t total = 0;
    for (std::size_t label = 1; label < kLabelSlots; ++label) {
        out.starts[label] = total;
        for (std::vector<std::size_t>& count : at) {
            const std::size_t n = count[label];
            count[label] = total;
            total += n;
        }
    }
    out.starts[kLabelSlots] = total;
    out.bins.resize(total);
    forEachRowBlock(view.height, workers, [&](unsigned w, std::int64_t begin, std::int64_t end) {
        std::size_t* next = at[w].data();
        std::uint16_t* bins = out.bins.data();
        const std::ptrdiff_t step = view.pixelStride;
        for (std::int64_t r = begin; r < end; ++r) {
            const std::uint16_t* cell = labels.labels.data() + r * labels.wide;
            const std::uint8_t* inside = maskRow(mask, r);
            const std::uint8_t* ys = view.sample(pair.y, r, 0);
            const std::uint8_t* xs = view.sample(pair.x, r, 0);
            for (std::int64_t c = 0; c < view.width; ++c) {
                if (cell[c] != 0 && (inside == nullptr || inside[c] != 0)) {
                    bins[next[cell[c]]++] = std::uint16_t(ys[c * step] << 8 | xs[c * step]);
                }
            }
        }
    });
    return out;
}

void forEachLabelCounts(const LabelBins& bins, std::span<const std::uint32_t> cells,
                        const std::function<void(std::size_t, PairCounts)>& measure,
                        unsigned threads) {
    if (cells.empty()) {
        return;
    }
    const auto n = std::int64_t(cells.size());
    // A cell costs its pixels and a few passes over one channel's 256 values.
    const unsigned workers = workersFor(n, std::int64_t(bins.bins.size()) / n + 1024, threads);
    std::vector<std::unique_ptr<JointCounts>> counts(workers);
    for (auto& c : counts) {
        c = std::make_unique<JointCounts>();
    }
    forEachRowBlock(n, workers, [&](unsigned w, std::int64_t begin, std::int64_t end) {
        JointCounts& c = *counts[w];
        std::vector<PairCount> pairs;
        for (std::int64_t i = begin; i < end; ++i) {
            const std::span<const std::uint16_t> cell = bins.of(cells[std::size_t(i)]);
            pairs.clear();
            for (std::uint16_t b : cell) {
                if (c[b]++ == 0) {
                    pairs.push_back({b, 0});
                }
            }
            for (PairCount& p : pairs) {
                p.count = std::exchange(c[p.bin], 0);
            }
            std::sort(pairs.begin(), pairs.end(),
                      [](const PairCount& a, const PairCount& b) { return a.bin < b.bin; });
            measure(std::size_t(i), pairs);
        }
    });
}

std::vector<CellBox> cellBoxes(const ChannelView& view, const LabelImage& labels,
                               const MaskView& mask) {
    if (!fitsLabels(view, labels, mask)) {
        return {};
    }
    std::vector<CellBox> boxes(kLabelSlots);
    for (std::int64_t r = 0; r < view.height; ++r) {
        const std::uint16_t* cell = labels.labels.data() + r * labels.wide;
        const std::uint8_t* inside = maskRow(mask, r);
        for (std::int64_t c = 0; c < view.width; ++c) {
            if (inside != nullptr && inside[c] == 0) {
                continue;
            }
            CellBox& b = boxes[cell[c]];
            if (b.isEmpty()) {
                b = {r, c, r, c};
            }
            b.left = std::min(b.left, c);
            b.right = std::max(b.right, c);
            b.bottom = r;
        }
    }
    return boxes;
}

std::optional<BlockShuffleTest> cellShuffleTest(const ChannelView& view, const LabelImage& labels,
                                                std::uint32_t label, const CellBox& b,
                                                RGBCombo combo, const MaskView& mask,
                                                int blockSize) {
    BlockShuffleTest test(blockSize);
    ChannelView box{};
    std::vector<std::uint8_t> inside;
    if (!b.isEmpty() && fitsLabels(view, labels, mask) && b.top >= 0 && b.left >= 0 &&
        b.bottom < view.height && b.right < view.width) {
        box = view;
        for (int k = 0; k < 3; ++k) {
            box.channel[std::size_t(k)] = view.sample(k, b.top, b.left);
        }
        box.width = b.right - b.left + 1;
        box.height = b.bottom - b.top + 1;
        try {
            inside.assign(std::size_t(box.width * box.height), 0);
        } catch (const std::bad_alloc&) {
            return std::nullopt;
        }
        for (std::int64_t r = 0; r < box.height; ++r) {
            const std::uint16_t* cell = labels.labels.data() + (b.top + r) * labels.wide;
            const std::uint8_t* m = maskRow(mask, b.top + r);
            for (std::int64_t c = 0; c < box.width; ++c) {
                const std::int64_t at = b.left + c;
                inside[std::size_t(r * box.width + c)] =
                    cell[at] == label && (m == nullptr || m[at] != 0) ? 1 : 0;
            }
        }
    }
    if (!test.addPlane(box, combo, MaskView{inside.data(), box.width, box.width, box.height})) {
        return std::nullopt;
    }
    return test;
}

std::optional<std::vector<SignificanceResult>> labelSignificance(
    const ChannelView& view, const LabelImage& labels, const std::vector<CellBox>& boxes,
    std::span<const std::uint32_t> cells, RGBCombo combo, const MaskView& mask, int blockSize,
    int shuffles, std::uint64_t seed, unsigned threads, const CancelHook& cancel,
    const CellsProgress& progress) {
    std::vector<SignificanceResult> results(cells.size());
    if (cells.empty() || view.isEmpty()) {
        return results;
    }
    if (boxes.size() != kLabelSlots || !fitsLabels(view, labels, mask)) {
        return std::nullopt;
    }
    const auto boxOf = [&boxes](std::uint32_t label) {
        return label < boxes.size() ? boxes[label] : CellBox{};
    };
    // Each worker holds the test of its cell; together no more than about the picture's.
    std::uint64_t largest = 1;
    for (const std::uint32_t label : cells) {
        largest = std::max(largest, boxOf(label).pixels());
    }
    const auto n = std::int64_t(cells.size());
    const auto fitting = std::max<std::uint64_t>(
        1, std::uint64_t(view.width) * std::uint64_t(view.height) / largest);
    const unsigned workers =
        unsigned(std::min<std::uint64_t>(workersFor(n, std::int64_t(1) << 18, threads), fitting));
    std::vector<char> failed(workers, 0);
    std::atomic<std::size_t> done{0};
    const bool finished = forEachRowBlock(
        n, workers,
        [&](unsigned w, std::int64_t begin, std::int64_t end) {
            for (std::int64_t i = begin; i < end && !failed[w]; ++i) {
                const std::uint32_t label = cells[std::size_t(i)];
                std::optional<BlockShuffleTest> test =
                    cellShuffleTest(view, labels, label, boxOf(label), combo, mask, blockSize);
                std::optional<SignificanceResult> result;
                if (test) {
                    result = test->run(shuffles, seed, 1, cancel);
                }
                if (!result) {
                    failed[w] = 1;
                    break;
                }
                results[std::size_t(i)] = *result;
                if (progress) {
                    progress(++done);
                }
            }
        },
        cancel);
    if (!finished || std::find(failed.begin(), failed.end(), 1) != failed.end()) {
        return std::nullopt;
    }
    return results;
}

}  // namespace pv
