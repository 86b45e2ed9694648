#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "core/PixelMemory.h"

namespace pv {
namespace {

constexpr std::size_t kMB = std::size_t(1) << 20;

bool allZero(const PixelBlock& b) {
    return std::all_of(b.get(), b.get() + b.size(), [](std::uint8_t v) { return v == 0; });
}

// Small blocks come from the heap and large ones are mapped, and either way a zeroed block is
// zero and every byte can be written and read back.
TEST(PixelMemory, BlocksOfEverySizeHoldTheirBytes) {
    for (const std::size_t bytes :
         {std::size_t(1), 4096 * std::size_t(3), kMB - 1, kMB, 3 * kMB + 5, 65 * kMB}) {
        SCOPED_TRACE(bytes);
        PixelBlock zeroed = PixelBlock::allocate(bytes, true);
        ASSERT_TRUE(zeroed);
        EXPECT_EQ(zeroed.size(), bytes);
        EXPECT_TRUE(allZero(zeroed));
        std::fill(zeroed.get(), zeroed.get() + bytes, std::uint8_t(0xA5));
        EXPECT_EQ(zeroed.get()[bytes - 1], 0xA5);
    }
}

// A batch worker's next picture takes the memory the last one freed - filled with zeros again
// when asked - while a thread that keeps nothing, or a request that would waste most of the
// kept block, gets fresh memory.
TEST(PixelMemory, AKeepingThreadReusesItsLastFreedBlock) {
    std::uint8_t* first = nullptr;
    {
        const pixel_memory::KeepFreedBlocks keep;
        {
            PixelBlock a = PixelBlock::allocate(6 * kMB, false);
            first = a.get();
            std::fill(a.get(), a.get() + a.size(), std::uint8_t(7));
        }
        PixelBlock again = PixelBlock::allocate(5 * kMB, true);
        EXPECT_EQ(again.get(), first);
        EXPECT_TRUE(allZero(again));
        again.reset();
        PixelBlock tiny = PixelBlock::allocate(2 * kMB, false);
        EXPECT_NE(tiny.get(), first);  // too small a part of the kept block
        // Another thread keeps nothing of this one's.
        std::uint8_t* other = nullptr;
        std::thread([&] { other = PixelBlock::allocate(5 * kMB, false).get(); }).join();
        EXPECT_NE(other, first);
    }
}

}  // namespace
}  // namespace pv
