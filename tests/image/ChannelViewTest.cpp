#include <gtest/gtest.h>

#include <vector>

#include "image/Bitmap.h"
#include "image/ChannelView.h"

namespace pv {
namespace {

// A view is refused as soon as one sample it could address lies outside its memory.
TEST(ChannelView, RefusesGeometryThatReachesPastItsMemory) {
    std::vector<std::uint8_t> buffer(4 * 10);  // 10 rows of 4 bytes
    const auto spans = [&](std::size_t size) {
        std::array<std::span<const std::uint8_t>, 3> s;
        for (std::size_t k = 0; k < 3; ++k) {
            s[k] = std::span<const std::uint8_t>(buffer.data() + k, size - k);
        }
        return s;
    };
    struct Case {
        std::ptrdiff_t pixelStride, rowStride;
        std::int64_t width, height;
        std::size_t bytes;
        bool ok;
    };
    for (const Case& c :
         {Case{3, 4, 1, 10, 40, true}, Case{3, 4, 2, 10, 40, false}, Case{3, 4, 1, 11, 40, false},
          Case{3, 4, 1, 10, 38, false}, Case{1, 4, 2, 10, 40, true}, Case{0, 4, 1, 1, 40, false},
          Case{3, -4, 1, 2, 40, false}, Case{3, 4, -1, 2, 40, false}, Case{3, 4, 0, 5, 40, true}}) {
        const auto view =
            ChannelView::over(spans(c.bytes), c.pixelStride, c.rowStride, c.width, c.height);
        EXPECT_EQ(view.has_value(), c.ok) << c.pixelStride << " " << c.rowStride << " " << c.width
                                          << "x" << c.height << " in " << c.bytes;
    }
}

// Grey gives its one sample for all three channels; alpha and padding are never part of a view.
TEST(ChannelView, BitmapsOfEveryLayoutAddressTheirColourSamples) {
    struct Case {
        int spp;
        bool planar;
        int bytesPerRow;
    };
    for (const Case& c : {Case{3, false, 0}, Case{4, false, 23}, Case{1, false, 7},
                          Case{2, false, 0}, Case{3, true, 9}, Case{4, true, 0}}) {
        auto b = Bitmap::create(5, 3, c.spp, c.spp == 2 || c.spp == 4, c.planar, c.bytesPerRow);
        ASSERT_TRUE(b);
        const ChannelView v = b->channels();
        ASSERT_EQ(v.width, 5);
        ASSERT_EQ(v.height, 3);
        for (int k = 0; k < 3; ++k) {
            const int sample = c.spp >= 3 ? k : 0;
            for (int r = 0; r < 3; ++r) {
                for (int x = 0; x < 5; ++x) {
                    const std::uint8_t* want =
                        c.planar ? b->row(sample, r) + x : b->row(0, r) + x * c.spp + sample;
                    ASSERT_EQ(v.sample(k, r, x), want) << c.spp << " " << c.planar << " k" << k;
                }
            }
        }
    }
    EXPECT_TRUE(Bitmap().channels().isEmpty());
}

}  // namespace
}  // namespace pv
