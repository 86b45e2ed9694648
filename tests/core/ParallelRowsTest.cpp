#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "core/ParallelRows.h"

namespace pv {
namespace {

// Every row goes to exactly one worker, and each worker owns one contiguous share.
TEST(ParallelRows, EveryRowOnceAndBlocksStayWithinTheirWorkersShare) {
    for (const auto& [rows, workers] :
         {std::pair<std::int64_t, unsigned>{1, 1}, {7, 3}, {1000, 4}, {129, 2}, {3, 8}}) {
        std::vector<std::atomic<int>> seen(static_cast<std::size_t>(rows));
        std::vector<std::atomic<int>> owner(static_cast<std::size_t>(rows));
        ASSERT_TRUE(forEachRowBlock(rows, workers, [&](unsigned w, std::int64_t b, std::int64_t e) {
            for (std::int64_t r = b; r < e; ++r) {
                seen[std::size_t(r)] += 1;
                owner[std::size_t(r)] = int(w);
            }
        }));
        for (std::int64_t r = 0; r < rows; ++r) {
            ASSERT_EQ(seen[std::size_t(r)], 1) << rows << " rows, row " << r;
            if (r > 0) {
                ASSERT_GE(owner[std::size_t(r)], owner[std::size_t(r - 1)]);
            }
        }
    }
}

TEST(ParallelRows, CancelStopsBetweenBlocksAndIsReported) {
    std::atomic<std::int64_t> done{0};
    std::atomic<bool> stop{false};
    const bool finished = forEachRowBlock(
        100000, 2,
        [&](unsigned, std::int64_t b, std::int64_t e) {
            done += e - b;
            stop = true;
        },
        [&] { return stop.load(); });
    EXPECT_FALSE(finished);
    EXPECT_LT(done, 100000);
}

TEST(ParallelRows, WorkerCountFollowsTheWork) {
    EXPECT_EQ(workersFor(0, 100, 0), 1u);
    EXPECT_EQ(workersFor(10, 10, 0), 1u);      // too small to pay for a thread
    EXPECT_EQ(workersFor(3, 1 << 20, 8), 3u);  // never more workers than rows
    EXPECT_EQ(workersFor(4000, 4000, 2), 2u);
}

}  // namespace
}  // namespace pv
