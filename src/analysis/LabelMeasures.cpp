#include "analysis/LabelMeasures.h"

#include <algorithm>
#include <memory>
#include <new>

#include "core/ParallelRows.h"

namespace pv {

namespace {

// Every label a worker may meet, 0 included, so that no pass is needed to find the largest.
constexpr std::size_t kLabelSlots = std::size_t(kMostLabels) + 1;

const std::uint8_t* maskRow(const MaskView& mask, std::int64_t r) {
    return mask.isWhole() ? nullptr : mask.data + r * mask.rowStride;
}

struct Box {
    std::int64_t top = 0, left = 0, bottom = -1, right = -1;  // inclusive; empty when bottom < top
};

}  // namespace

LabelBins binsByLabel(const ChannelView& view, const LabelImage& labels, RGBCombo combo,
                      const MaskView& mask, unsigned threads) {
    LabelBins out;
    if (view.isEmpty() || labels.wide != view.width || labels.high != view.height) {
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
                        const std::function<void(std::size_t, const JointCounts&)>& measure,
                        unsigned threads) {
    if (cells.empty()) {
        return;
    }
    const auto n = std::int64_t(cells.size());
    // A cell's measures read its whole histogram, so even a small cell is worth a worker.
    const unsigned workers = workersFor(n, std::int64_t(1) << 18, threads);
    std::vector<std::unique_ptr<JointCounts>> counts(workers);
    for (auto& c : counts) {
        c = std::make_unique<JointCounts>();
    }
    forEachRowBlock(n, workers, [&](unsigned w, std::int64_t begin, std::int64_t end) {
        JointCounts& c = *counts[w];
        for (std::int64_t i = begin; i < end; ++i) {
            const std::span<const std::uint16_t> cell = bins.of(cells[std::size_t(i)]);
            for (std::uint16_t b : cell) {
                ++c[b];
            }
            measure(std::size_t(i), c);
            for (std::uint16_t b : cell) {
                c[b] = 0;
            }
        }
    });
}

std::optional<std::vector<SignificanceResult>> labelSignificance(
    const ChannelView& view, const LabelImage& labels, std::span<const std::uint32_t> cells,
    RGBCombo combo, const MaskView& mask, int blockSize, int shuffles, std::uint64_t seed,
    unsigned threads) {
    std::vector<SignificanceResult> results(cells.size());
    if (cells.empty() || view.isEmpty() || labels.wide != view.width ||
        labels.high != view.height) {
        return results;
    }
    std::vector<Box> boxes(kLabelSlots);
    for (std::int64_t r = 0; r < view.height; ++r) {
        const std::uint16_t* cell = labels.labels.data() + r * labels.wide;
        const std::uint8_t* inside = maskRow(mask, r);
        for (std::int64_t c = 0; c < view.width; ++c) {
            if (inside != nullptr && inside[c] == 0) {
                continue;
            }
            Box& b = boxes[cell[c]];
            if (b.bottom < b.top) {
                b = {r, c, r, c};
            }
            b.left = std::min(b.left, c);
            b.right = std::max(b.right, c);
            b.bottom = r;
        }
    }
    const auto n = std::int64_t(cells.size());
    const unsigned workers = workersFor(n, std::int64_t(1) << 18, threads);
    std::vector<char> failed(workers, 0);
    forEachRowBlock(n, workers, [&](unsigned w, std::int64_t begin, std::int64_t end) {
        std::vector<std::uint8_t> inside;
        for (std::int64_t i = begin; i < end && !failed[w]; ++i) {
            const std::uint32_t label = cells[std::size_t(i)];
            const Box& b = boxes[label];
            const std::int64_t wide = b.right - b.left + 1, high = b.bottom - b.top + 1;
            ChannelView box = view;
            for (int k = 0; k < 3; ++k) {
                box.channel[std::size_t(k)] = view.sample(k, b.top, b.left);
            }
            box.width = std::max<std::int64_t>(wide, 0);
            box.height = std::max<std::int64_t>(high, 0);
            try {
                inside.assign(std::size_t(box.width * box.height), 0);
            } catch (const std::bad_alloc&) {
                failed[w] = 1;
                break;
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
            BlockShuffleTest test(blockSize);
            std::optional<SignificanceResult> result;
            if (test.addPlane(box, combo, MaskView{inside.data(), box.width})) {
                result = test.run(shuffles, seed, 1);
            }
            if (!result) {
                failed[w] = 1;
                break;
            }
            results[std::size_t(i)] = *result;
        }
    });
    if (std::find(failed.begin(), failed.end(), 1) != failed.end()) {
        return std::nullopt;
    }
    return results;
}

}  // namespace pv
