#include <gtest/gtest.h>

#include <algorithm>

#include "output/PrintLayout.h"

namespace pv {
namespace {

TEST(PrintPlacement, ScalesDownNeverUpAndCentres) {
    struct Case {
        const char* what;
        Size picture;
        Size area;
        Rect want;
    };
    const Case cases[] = {
        {"smaller: own size, centred", {100, 60}, {500, 700}, makeRect(200, 320, 100, 60)},
        {"exactly the area", {500, 700}, {500, 700}, makeRect(0, 0, 500, 700)},
        {"too wide: fits the width", {1000, 200}, {500, 700}, makeRect(0, 300, 500, 100)},
        {"too tall: fits the height", {100, 1400}, {500, 700}, makeRect(225, 0, 50, 700)},
        {"too large both ways, height binds", {2000, 4000}, {500, 700}, makeRect(75, 0, 350, 700)},
        {"wide enough, too tall", {400, 1400}, {500, 700}, makeRect(150, 0, 200, 700)},
        {"no picture", {0, 0}, {500, 700}, makeRect(250, 350, 0, 0)},
        {"no printable area", {100, 60}, {0, 700}, makeRect(0, 350, 0, 0)},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        const Rect got = printPlacement(c.picture, c.area);
        EXPECT_FLOAT_EQ(got.origin.x, c.want.origin.x);
        EXPECT_FLOAT_EQ(got.origin.y, c.want.origin.y);
        EXPECT_FLOAT_EQ(got.size.width, c.want.size.width);
        EXPECT_FLOAT_EQ(got.size.height, c.want.size.height);
    }
}

// Whatever the sizes, the picture keeps its proportions and stays inside the area.
TEST(PrintPlacement, KeepsProportionsAndStaysInside) {
    for (float w : {1.0f, 37.0f, 595.0f, 9000.0f}) {
        for (float h : {1.0f, 83.0f, 842.0f, 12000.0f}) {
            SCOPED_TRACE(testing::Message() << w << " x " << h);
            const Size area{523.0f, 770.0f};
            const Rect r = printPlacement({w, h}, area);
            EXPECT_NEAR(r.size.width * h, r.size.height * w, 1e-3f * w * h);
            EXPECT_LE(r.size.width, std::min(w, area.width) * 1.0001f);
            EXPECT_LE(r.size.height, std::min(h, area.height) * 1.0001f);
            EXPECT_GE(r.origin.x, -1e-3f);
            EXPECT_GE(r.origin.y, -1e-3f);
            EXPECT_NEAR(r.origin.x * 2 + r.size.width, area.width, 1e-2f);
            EXPECT_NEAR(r.origin.y * 2 + r.size.height, area.height, 1e-2f);
        }
    }
}

}  // namespace
}  // namespace pv
