#include "core/ParallelRows.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <thread>
#include <vector>

namespace pv {

namespace {

// Below this many pixels per worker, starting a thread costs more than it saves.
constexpr std::int64_t kMinPixelsPerWorker = std::int64_t(1) << 18;
// Rows between two questions to the cancel hook: small enough to stop within a few
// milliseconds on a wide picture, large enough that asking costs nothing.
constexpr std::int64_t kRowsPerBlock = 64;

}  // namespace

unsigned workersFor(std::int64_t rows, std::int64_t pixelsPerRow, unsigned requested) {
    if (rows <= 0) {
        return 1;
    }
    std::int64_t n = requested;
    if (n == 0) {
        n = std::max(1u, std::thread::hardware_concurrency());
        const std::int64_t pixels = rows * std::max<std::int64_t>(pixelsPerRow, 0);
        n = std::min(n, std::max<std::int64_t>(1, pixels / kMinPixelsPerWorker));
    }
    return unsigned(std::min(n, rows));
}

bool forEachRowBlock(std::int64_t rows, unsigned workers,
                     const std::function<void(unsigned, std::int64_t, std::int64_t)>& work,
                     const CancelHook& cancel) {
    workers = std::max(1u, workers);
    std::atomic<bool> stopped{false};
    auto share = [&](unsigned w) {
        const std::int64_t begin = rows * w / workers;
        const std::int64_t end = rows * (w + 1) / workers;
        for (std::int64_t r = begin; r < end; r += kRowsPerBlock) {
            if (stopped.load(std::memory_order_relaxed) || (cancel && cancel())) {
                stopped = true;
                return;
            }
            work(w, r, std::min(end, r + kRowsPerBlock));
        }
    };
    std::vector<std::thread> pool;
    pool.reserve(workers - 1);
    for (unsigned w = 1; w < workers; ++w) {
        try {
            pool.emplace_back(share, w);
        } catch (const std::system_error&) {
            share(w);  // no thread to be had: do the share here
        }
    }
    share(0);
    for (std::thread& t : pool) {
        t.join();
    }
    return !stopped;
}

}  // namespace pv
