#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "scattergram/ScatterGram.h"

namespace pv {
namespace {

TEST(ScatterGram, EmptyIsBlack256Square) {
    auto b = makeEmptyScatterGram();
    ASSERT_TRUE(b);
    EXPECT_EQ(b->pixelsWide(), 256);
    EXPECT_EQ(b->pixelsHigh(), 256);
    EXPECT_EQ(b->bytesPerRow(), 768);
    EXPECT_EQ(b->samplesPerPixel(), 3);
    EXPECT_FALSE(b->isPlanar());
    EXPECT_TRUE(std::all_of(b->bitmapData(), b->bitmapData() + kScatterGramBytes,
                            [](auto v) { return v == 0; }));
}

struct PlotCase {
    int combo;
    std::array<std::uint8_t, 3> rgb;
    int offset;
    std::array<int, 3> bytes;  // -1: left as it was
};

TEST(ScatterGram, PlotsAtTheValuesOffset) {
    const PlotCase cases[] = {
        {0, {200, 50, 7}, 42390, {200, 50, -1}},
        {0, {255, 255, 9}, 765, {255, 255, -1}},
        {0, {0, 0, 77}, 255 * 768, {0, 0, -1}},
        {3, {9, 10, 20}, 188220, {-1, 10, 20}},
        {4, {30, 99, 200}, (255 - 200) * 768 + 90, {30, -1, 200}},
        {6, {1, 2, 3}, 254 * 768 + 6, {1, 2, -1}},
    };
    for (const PlotCase& c : cases) {
        std::vector<std::uint8_t> data(kScatterGramBytes, 0x11);
        plotPixelInScatterGram(data.data(), c.combo, packRGB(c.rgb[0], c.rgb[1], c.rgb[2]));
        for (int k = 0; k < 3; ++k) {
            const int want = c.bytes[std::size_t(k)] < 0 ? 0x11 : c.bytes[std::size_t(k)];
            EXPECT_EQ(data[std::size_t(c.offset + k)], want) << c.combo << " sample " << k;
        }
        EXPECT_EQ(std::count(data.begin(), data.end(), 0x11), kScatterGramBytes - 2);
    }
    EXPECT_EQ(getScatterGramPixelLocation(4, packRGB(30, 99, 200)), (Point{30.0f, 200.0f}));
    EXPECT_EQ(getScatterGramPixelLocation(-3, packRGB(30, 99, 200)), (Point{99.0f, 30.0f}));
}

TEST(ColorBars, NamesOfEachPair) {
    const std::array<std::string_view, 4> pair0 = {"brv-grad", "bgh-grad", "gyv-grad", "ryh-grad"};
    EXPECT_EQ(colorBarNames(0), pair0);
    EXPECT_EQ(colorBarNames(7), pair0);
    std::set<std::string_view> used;
    for (int combo = 0; combo < 6; ++combo) {
        for (auto name : colorBarNames(combo)) {
            used.insert(name);
        }
    }
    const auto& all = allColorBarNames();
    EXPECT_EQ(used, std::set<std::string_view>(all.begin(), all.end()));
    EXPECT_EQ(used.size(), 18u);
}

using Rgb = std::array<int, 3>;

Rgb pixelAt(const Bitmap& b, int row, int col) {
    const std::uint8_t* p = b.row(0, row) + 3 * col;
    return {p[0], p[1], p[2]};
}

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
            return vertical ? pixelAt(*g, h - 1 - i, across) : pixelAt(*g, across, i);
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
    EXPECT_FALSE(makeColorBarGradient("brv-grad", 0, 4));
    auto one = makeColorBarGradient("gyh-grad", 1, 2);
    ASSERT_TRUE(one);
    EXPECT_EQ(pixelAt(*one, 1, 0), G);
}

}  // namespace
}  // namespace pv
