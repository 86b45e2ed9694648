#include <gtest/gtest.h>

#include <array>
#include <map>
#include <string>
#include <vector>

#include "analysis/ScatterGram.h"

namespace pv {
namespace {

using Rgb = std::array<int, 3>;

TEST(ColorBars, GradientsRunBetweenTheirColoursInTheirDirection) {
    constexpr Rgb K{0, 0, 0}, R{255, 0, 0}, G{0, 255, 0}, B{0, 0, 255}, Y{255, 255, 0},
        M{255, 0, 255}, C{0, 255, 255};
    const std::map<std::string, std::pair<Rgb, Rgb>> ends = {
        {"brv-grad", {K, R}}, {"bgv-grad", {K, G}}, {"bbv-grad", {K, B}}, {"brh-grad", {K, R}},
        {"bgh-grad", {K, G}}, {"bbh-grad", {K, B}}, {"gyv-grad", {G, Y}}, {"ryv-grad", {R, Y}},
        {"bmv-grad", {B, M}}, {"rmv-grad", {R, M}}, {"bcv-grad", {B, C}}, {"gcv-grad", {G, C}},
        {"ryh-grad", {R, Y}}, {"gyh-grad", {G, Y}}, {"rmh-grad", {R, M}}, {"bmh-grad", {B, M}},
        {"gch-grad", {G, C}}, {"bch-grad", {B, C}}};
    for (const auto& [name, colours] : ends) {
        SCOPED_TRACE(name);
        const bool vertical = name[2] == 'v';
        const int w = vertical ? 4 : 5;
        const int h = vertical ? 5 : 4;
        auto g = makeColorBarGradient(name, w, h);
        ASSERT_TRUE(g);
        const auto [start, end] = colours;
        // Start at the bottom (last row in memory) or the left; the middle of five is halfway
        // rounded up; lines across the ramp are uniform.
        const auto at = [&](int i, int across) {
            const std::uint8_t* p =
                vertical ? g->row(0, h - 1 - i) + 3 * across : g->row(0, across) + 3 * i;
            return Rgb{p[0], p[1], p[2]};
        };
        for (int across = 0; across < 4; ++across) {
            EXPECT_EQ(at(0, across), start);
            EXPECT_EQ(at(4, across), end);
            for (int k = 0; k < 3; ++k) {
                const int s = start[std::size_t(k)];
                const int e = end[std::size_t(k)];
                EXPECT_EQ(at(2, across)[std::size_t(k)], s == e ? s : 128);
                EXPECT_EQ(at(1, across)[std::size_t(k)], s == e ? s : 64);  // 63.75
            }
        }
    }
    EXPECT_FALSE(makeColorBarGradient("bxv-grad", 4, 4));
}

}  // namespace
}  // namespace pv
