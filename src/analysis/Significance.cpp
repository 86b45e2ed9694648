#include "analysis/Significance.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <limits>
#include <new>
#include <numeric>

#include "analysis/FurtherMeasures.h"

namespace pv {

namespace {

__extension__ using UInt128 = unsigned __int128;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kLargestBlock = 128;        // keeps a block's Σ Y² and dot product within 32 bits
constexpr std::size_t kGatherAhead = 64;  // blocks fetched ahead of the one read; measured
// Each worker shuffles an order of all blocks of its own: together they stay within this.
constexpr std::uint64_t kOrderBytes = std::uint64_t(128) << 20;

std::uint64_t mix64(std::uint64_t z) {
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

// SplitMix64: small, fast and the same on every machine, unlike the standard distributions.
class ShuffleRandom {
  public:
    ShuffleRandom(std::uint64_t seed, std::uint64_t shuffle)
        : state_(mix64(mix64(seed) ^ (shuffle * 0xD1B54A32D192ED03ull))) {}
    std::uint64_t next() { return mix64(state_ += 0x9E3779B97F4A7C15ull); }
    // Uniform in 0 ... range - 1 without modulo bias (Lemire's multiply and reject).
    std::uint64_t below(std::uint64_t range) {
        UInt128 m = UInt128(next()) * range;
        if (std::uint64_t(m) < range) {
            const std::uint64_t floor = (0 - range) % range;
            while (std::uint64_t(m) < floor) {
                m = UInt128(next()) * range;
            }
        }
        return std::uint64_t(m >> 64);
    }

  private:
    std::uint64_t state_;
};

// Fisher-Yates. The draws do not depend on the order's contents, so each is made 64 swaps
// early and the place it will swap with fetched meanwhile: with many small blocks the order
// outgrows the caches and every swap would otherwise wait for memory.
void shuffle(std::vector<std::uint32_t>& order, ShuffleRandom random) {
    constexpr std::size_t kAhead = 64;
    std::array<std::uint64_t, kAhead> drawn{};
    const std::size_t last = order.size() - 1;
    auto draw = [&](std::size_t k) {
        const std::uint64_t j = random.below(k + 1);
        __builtin_prefetch(&order[j], 1);
        drawn[(last - k) % kAhead] = j;
    };
    for (std::size_t k = last; k > 0 && last - k < kAhead; --k) {
        draw(k);
    }
    for (std::size_t k = last; k > 0; --k) {
        const std::uint64_t j = drawn[(last - k) % kAhead];
        if (k > kAhead) {
            draw(k - kAhead);
        }
        std::swap(order[k], order[j]);
    }
}

// Normalised autocorrelation at each lag along one axis, until it falls to one half; answers
// the half width there, interpolated.
template <class Covariance>
double halfWidthAlong(std::int64_t along, const Covariance& atLag, double variance) {
    constexpr int kLags = 64;
    double previous = 1.0;
    for (std::int64_t d = 1; d <= kLags && d < along; ++d) {
        const double c = atLag(d) / variance;
        if (c <= 0.5) {
            return double(d - 1) + (previous - 0.5) / (previous - c);
        }
        previous = c;
    }
    return kLags;
}

}  // namespace

int estimatePsfSize(const ChannelView& view, int channel) {
    const std::int64_t w = std::min<std::int64_t>(view.width, 1024);
    const std::int64_t h = std::min<std::int64_t>(view.height, 1024);
    if (w <= 0 || h <= 0) {
        return 1;
    }
    const std::int64_t left = (view.width - w) / 2, top = (view.height - h) / 2;
    auto at = [&](std::int64_t r, std::int64_t c) {
        return double(*view.sample(channel, top + r, left + c));
    };
    double sum = 0.0;
    for (std::int64_t r = 0; r < h; ++r) {
        for (std::int64_t c = 0; c < w; ++c) {
            sum += at(r, c);
        }
    }
    const double mean = sum / double(w * h);
    double squares = 0.0;
    for (std::int64_t r = 0; r < h; ++r) {
        for (std::int64_t c = 0; c < w; ++c) {
            squares += (at(r, c) - mean) * (at(r, c) - mean);
        }
    }
    const double variance = squares / double(w * h);
    if (variance == 0.0) {
        return 1;
    }
    auto lagged = [&](std::int64_t dr, std::int64_t dc) {
        double s = 0.0;
        for (std::int64_t r = 0; r + dr < h; ++r) {
            for (std::int64_t c = 0; c + dc < w; ++c) {
                s += (at(r, c) - mean) * (at(r + dr, c + dc) - mean);
            }
        }
        return s / double((h - dr) * (w - dc));
    };
    const double across = halfWidthAlong(
        w, [&](std::int64_t d) { return lagged(0, d); }, variance);
    const double down = halfWidthAlong(
        h, [&](std::int64_t d) { return lagged(d, 0); }, variance);
    // The mean of the two full widths, each twice its half width.
    return int(std::clamp<double>(std::floor(across + down + 0.5), 1, 64));
}

BlockShuffleTest::BlockShuffleTest(int blockSize)
    : side_(std::clamp(blockSize, 1, kLargestBlock)), blockPixels_(std::size_t(side_ * side_)) {}

std::uint64_t BlockShuffleTest::blocksIn(std::int64_t width, std::int64_t height) const {
    return width <= 0 || height <= 0 ? 0
                                     : std::uint64_t(width / side_) * std::uint64_t(height / side_);
}

bool BlockShuffleTest::addPlane(const ChannelView& view, RGBCombo combo, const MaskView& mask) {
    const bool sameSize = planes_ == 0 || (view.width == width_ && view.height == height_);
    const std::uint64_t blocks64 = blocksIn(view.width, view.height);
    if (!sameSize || !mask.fits(view) || blocks64 > kMostBlocks - states_.size()) {
        return false;
    }
    width_ = view.width;
    height_ = view.height;
    const ChannelPair pair = channelPairFor(combo);
    const std::int64_t s = side_;
    const std::int64_t across = view.width / s, down = view.height / s;
    const std::size_t first = states_.size();
    const auto blocks = std::size_t(blocks64);
    try {
        y_.resize((first + blocks) * blockPixels_);
        x_.resize((first + blocks) * blockPixels_);
        if (!mask.isWhole() || !inside_.empty()) {
            inside_.resize((first + blocks) * blockPixels_, 1);
        }
        states_.resize(first + blocks, BlockState::Inside);
        blockY_.resize(first + blocks, 0);
        blockYY_.resize(first + blocks, 0);
    } catch (const std::bad_alloc&) {
        return false;
    }
    std::vector<std::uint32_t> insideCount;
    try {
        insideCount.assign(blocks, 0);
    } catch (const std::bad_alloc&) {
        return false;
    }
    for (std::int64_t r = 0; r < view.height; ++r) {
        const std::uint8_t* ys = view.sample(pair.y, r, 0);
        const std::uint8_t* xs = view.sample(pair.x, r, 0);
        const std::uint8_t* m = mask.isWhole() ? nullptr : mask.data + r * mask.rowStride;
        for (std::int64_t c = 0; c < view.width; ++c) {
            const std::int64_t y = ys[c * view.pixelStride];
            const std::int64_t x = xs[c * view.pixelStride];
            const bool in = m == nullptr || m[c] != 0;
            if (r >= down * s || c >= across * s) {
                if (in) {  // stays in place
                    fixed_.n += 1;
                    fixed_.x += x;
                    fixed_.xx += x * x;
                    fixed_.y += y;
                    fixed_.yy += y * y;
                    fixed_.xy += x * y;
                }
                continue;
            }
            const std::size_t block = std::size_t((r / s) * across + c / s);
            const std::size_t at =
                (first + block) * blockPixels_ + std::size_t((r % s) * s + c % s);
            y_[at] = std::uint8_t(y);
            x_[at] = in ? std::uint8_t(x) : 0;
            blockY_[first + block] += std::uint32_t(y);
            blockYY_[first + block] += std::uint32_t(y * y);
            if (!inside_.empty()) {
                inside_[at] = in ? 1 : 0;
            }
            if (in) {
                insideCount[block] += 1;
                fixed_.n += 1;
                fixed_.x += x;
                fixed_.xx += x * x;
            }
        }
    }
    for (std::size_t b = 0; b < blocks; ++b) {
        blocksY_ += blockY_[first + b];
        blocksYY_ += blockYY_[first + b];
        states_[first + b] = insideCount[b] == 0              ? BlockState::Outside
                             : insideCount[b] == blockPixels_ ? BlockState::Inside
                                                              : BlockState::Partly;
    }
    ++planes_;
    return true;
}

BlockShuffleTest::Totals BlockShuffleTest::blockTotals(const std::uint32_t* source) const {
    // Every block's Y lands somewhere, so the Y sums start from all blocks' and only the
    // places outside the mask take theirs away: a fully analysed place reads nothing but its
    // dot product.
    Totals t;
    t.y = blocksY_;
    t.yy = blocksYY_;
    const std::size_t k = blockPixels_;
    for (std::size_t d = 0; d < states_.size(); ++d) {
        if (d + kGatherAhead < states_.size()) {
            // The blocks are read in shuffled order: fetch ahead rather than wait for each.
            const std::uint8_t* next = &y_[std::size_t(source[d + kGatherAhead]) * k];
            __builtin_prefetch(next);
            __builtin_prefetch(next + k - 1);
        }
        const std::size_t from = source[d];
        if (states_[d] != BlockState::Inside) {
            t.y -= blockY_[from];
            t.yy -= blockYY_[from];
            if (states_[d] == BlockState::Outside) {
                continue;
            }
        }
        const std::uint8_t* x = &x_[d * k];
        const std::uint8_t* y = &y_[from * k];
        std::uint32_t dot = 0;
        for (std::size_t i = 0; i < k; ++i) {
            dot += std::uint32_t(x[i]) * y[i];
        }
        t.xy += dot;
        if (states_[d] == BlockState::Partly) {
            const std::uint8_t* in = &inside_[d * k];
            std::uint32_t sy = 0, syy = 0;
            for (std::size_t i = 0; i < k; ++i) {
                sy += std::uint32_t(in[i] * y[i]);
                syy += std::uint32_t(in[i] * y[i] * y[i]);
            }
            t.y += sy;
            t.yy += syy;
        }
    }
    return t;
}

double BlockShuffleTest::pearsonOf(const Totals& shuffled) const {
    PairSums s;
    s.sumPixelCount = fixed_.n;
    s.sumPixelsXAxis = fixed_.x;
    s.sumPixelsXSquaredAxis = fixed_.xx;
    s.sumPixelsYAxis = fixed_.y + shuffled.y;
    s.sumPixelsYSquaredAxis = fixed_.yy + shuffled.yy;
    s.sumPixelsXYAxis = fixed_.xy + shuffled.xy;
    return definedPearson(s);
}

std::optional<SignificanceResult> BlockShuffleTest::run(int shuffles, std::uint64_t seed,
                                                        unsigned threads, const CancelHook& cancel,
                                                        const Progress& progress) const {
    const std::size_t blocks = states_.size();
    SignificanceResult result{kNaN, kNaN, kNaN, kNaN, side_, blocks};
    try {
        const std::int64_t pixels = width_ * height_;
        const auto workersForMemory =
            unsigned(std::clamp<std::uint64_t>(kOrderBytes / (4 * std::max<std::size_t>(blocks, 1)),
                                               1, std::numeric_limits<unsigned>::max()));
        const unsigned workers = std::min(workersFor(shuffles, pixels, threads), workersForMemory);
        std::vector<std::vector<std::uint32_t>> orders(workers, std::vector<std::uint32_t>(blocks));
        std::iota(orders[0].begin(), orders[0].end(), 0u);
        result.observedR = pearsonOf(blockTotals(orders[0].data()));
        if (blocks < 2 || shuffles < 1) {
            return result;
        }
        std::vector<double> r(std::size_t(shuffles), kNaN);
        std::atomic<int> done{0};
        const bool finished = forEachRowBlock(
            shuffles, workers,
            [&](unsigned w, std::int64_t begin, std::int64_t end) {
                std::vector<std::uint32_t>& order = orders[w];
                for (std::int64_t i = begin; i < end; ++i) {
                    std::iota(order.begin(), order.end(), 0u);
                    shuffle(order, ShuffleRandom(seed, std::uint64_t(i)));
                    r[std::size_t(i)] = pearsonOf(blockTotals(order.data()));
                    if (progress) {
                        progress(++done);
                    }
                }
            },
            cancel);
        if (!finished) {
            return std::nullopt;
        }
        double sum = 0.0;
        int below = 0;
        for (double v : r) {
            sum += v;
            below += v < result.observedR ? 1 : 0;
        }
        result.shuffledMean = sum / double(shuffles);
        double squares = 0.0;
        for (double v : r) {
            squares += (v - result.shuffledMean) * (v - result.shuffledMean);
        }
        result.shuffledSD = shuffles > 1 ? std::sqrt(squares / double(shuffles - 1)) : kNaN;
        result.pValue = std::isnan(result.observedR) ? kNaN : double(below) / double(shuffles);
        return result;
    } catch (const std::bad_alloc&) {
        return std::nullopt;
    }
}

}  // namespace pv
