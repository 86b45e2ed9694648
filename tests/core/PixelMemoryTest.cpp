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

// Zeroing a stretch that starts and ends inside pages, over written memory of the heap and of a
// mapping, leaves zeros exactly there and every byte around it as it was.
TEST(PixelMemory, ZeroingAStretchKeepsItsNeighbours) {
    for (const std::size_t bytes : {std::size_t(5000), 3 * kMB + 5}) {
        for (const auto& [from, length] :
             {std::pair<std::size_t, std::size_t>(3, 10), {100, bytes / 2 + 7}, {1, bytes - 2}}) {
            SCOPED_TRACE(::testing::Message() << bytes << " bytes, " << from << "+" << length);
            PixelBlock b = PixelBlock::allocate(bytes, false);
            ASSERT_TRUE(b);
            std::fill(b.get(), b.get() + bytes, std::uint8_t(0x5A));
            pixel_memory::zero(b.get() + from, length);
            for (std::size_t i = 0; i < bytes; ++i) {
                const bool inside = i >= from && i < from + length;
                ASSERT_EQ(b.get()[i], inside ? 0 : 0x5A) << i;
            }
        }
    }
}

}  // namespace
}  // namespace pv
