#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <vector>

#include "roi/ScatterGramView.h"

namespace pv {
namespace {

using enum SelectionTool;

// One mouse event: 'd'own, 'm'oved (dragged) or 'u'p.
struct Step {
    char kind;
    Point p;
    Modifiers keys{};
    int clicks = 1;
};
using Steps = std::vector<Step>;

void play(CROI_ScatterGramCroppingImageView& view, const Steps& steps) {
    for (const Step& s : steps) {
        const MouseEvent e{s.p, s.keys, s.clicks};
        s.kind == 'd' ? view.mouseDown(e) : s.kind == 'm' ? view.mouseDragged(e) : view.mouseUp(e);
    }
}

const Steps kBox = {{'d', {10, 10}}, {'m', {30, 20}}, {'u', {40, 30}}};  // (10, 10, 30, 20)
const Steps kLasso = {{'d', {0, 0}}, {'m', {30, 0}}, {'u', {0, 30}}};    // a right triangle
const Steps kSquare = {{'d', {0, 0}},     {'m', {100, 0}},        {'u', {100, 0}},
                       {'d', {100, 100}}, {'u', {100, 100}},      {'d', {0, 100}},
                       {'u', {0, 100}},   {'d', {0, 100}, {}, 2}, {'u', {0, 100}, {}, 2}};

Steps then(Steps a, const Steps& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

class Selection : public testing::Test {
  protected:
    UserPreferences prefs;
    CROI_ScatterGramCroppingImageView view{prefs};
};

TEST_F(Selection, OutlineBoundsAfterEachGesture) {
    struct Case {
        const char* name;
        SelectionTool tool;
        Steps steps;
        Rect want;
        bool polygonInProgress = false;
    };
    const Modifiers shift{.shift = true};
    // Shift with any other key, or with Caps Lock on, leaves the rectangle free.
    auto shiftAnd = [](Modifiers keys) {
        keys.shift = true;
        return Steps{{'d', {10, 10}}, {'u', {40, 25}, keys}};
    };
    // clang-format off
    const Case cases[] = {
        {"fresh", Rectangle, {}, {}},
        {"click", Rectangle, {{'d', {7, 9}}, {'u', {7, 9}}}, {{7, 9}, {0, 0}}},
        {"shift square", Rectangle, {{'d', {10, 10}}, {'u', {40, 25}, shift}},
         {{10, 10}, {15, 15}}},
        {"shift square up-left", Rectangle, {{'d', {10, 10}}, {'u', {0, 30}, shift}},
         {{0, 10}, {10, 10}}},
        {"shift circle", Oval, {{'d', {10, 10}}, {'u', {40, 25}, shift}}, {{10, 10}, {15, 15}}},
        {"shift and control", Rectangle, shiftAnd({.control = true}), {{10, 10}, {30, 15}}},
        {"shift and option", Rectangle, shiftAnd({.option = true}), {{10, 10}, {30, 15}}},
        {"shift and command", Rectangle, shiftAnd({.command = true}), {{10, 10}, {30, 15}}},
        {"shift and caps lock", Rectangle, shiftAnd({.capsLock = true}), {{10, 10}, {30, 15}}},
        {"decided at the release", Rectangle,
         {{'d', {10, 10}}, {'m', {40, 25}, shift}, {'u', {40, 25}}}, {{10, 10}, {30, 15}}},
        {"moved by its bottom-left corner", Rectangle,
         then(kBox, {{'d', {10, 10}}, {'m', {15, 12}}, {'u', {20, 5}}}), {{20, 5}, {30, 20}}},
        {"right edge starts anew", Rectangle, then(kBox, {{'d', {40, 20}}, {'u', {50, 25}}}),
         {{40, 20}, {10, 5}}},
        {"oval moved by its corner", Oval, then(kBox, {{'d', {11, 11}}, {'u', {111, -89}}}),
         {{110, -90}, {30, 20}}},
        {"polygon ignores shift", Polygon, {{'d', {0, 0}}, {'m', {30, 20}, shift}},
         {{0, 0}, {30, 20}}, true},
        {"polygon square", Polygon, kSquare, {{0, 0}, {100, 100}}},
        {"polygon moved", Polygon,
         then(kSquare, {{'d', {50, 50}}, {'m', {60, 45}}, {'u', {60, 45}}}),
         {{10, -5}, {100, 100}}},
        {"polygon single click", Polygon, {{'d', {5, 6}}, {'u', {5, 6}}}, {{5, 6}, {0, 0}}},
        {"double-click clears a closed polygon", Polygon,
         then(kSquare, {{'d', {50, 50}}, {'u', {50, 50}}, {'d', {50, 50}, {}, 2}, {'u', {50, 50}}}),
         {{50, 50}, {0, 0}}},
        {"lasso ignores shift", Lasso, {{'d', {0, 0}}, {'m', {30, 20}, shift}, {'u', {0, 20}}},
         {{0, 0}, {30, 20}}},
        {"lasso moved", Lasso, then(kLasso, {{'d', {5, 5}}, {'u', {7, 2}}}), {{2, -3}, {30, 30}}},
        {"lasso restarted outside", Lasso, then(kLasso, {{'d', {40, 40}}, {'u', {50, 45}}}),
         {{40, 40}, {10, 5}}},
    };
    // clang-format on
    for (const Case& c : cases) {
        view.selectionMarkerStyle(c.tool);
        play(view, c.steps);
        const Rect g = view.selectionMarker()->selectedRect();
        EXPECT_NEAR(std::abs(g.minX() - c.want.minX()) + std::abs(g.minY() - c.want.minY()) +
                        std::abs(g.maxX() - c.want.maxX()) + std::abs(g.maxY() - c.want.maxY()),
                    0.0f, 1e-4f)
            << c.name;
        EXPECT_EQ(view.selectionMarker()->polygonStarted(), c.polygonInProgress) << c.name;
    }
}

TEST_F(Selection, PolygonOutlineKeepsEveryCornerAndCloses) {
    view.selectionMarkerStyle(Polygon);
    play(view, kSquare);
    const Path& square = view.currentlySelectedPath();
    std::vector<Point> corners;
    for (int i = 0; i < square.elementCount() - 1; ++i) {
        corners.push_back(square.element(i).points[0]);
    }
    EXPECT_EQ(corners, (std::vector<Point>{{0, 0}, {100, 0}, {100, 100}, {0, 100}, {0, 0}}));
    EXPECT_TRUE(square.isClosed());
}

struct RecordingPainter : MarkerPainter {
    std::vector<std::pair<char, Color>> calls;
    void fillPath(const Path&, const Color& c) override { calls.push_back({'f', c}); }
    void strokePath(const Path&, const Color& c, float width) override {
        EXPECT_EQ(width, 1.0f);
        calls.push_back({'s', c});
    }
};

TEST_F(Selection, FillFollowsThePreferenceAndTheRubberBandIsDrawnToo) {
    view.selectionMarkerStyle(Rectangle);
    play(view, kBox);
    RecordingPainter painter;
    view.drawRect(painter);
    using Calls = std::vector<std::pair<char, Color>>;
    EXPECT_EQ(painter.calls, (Calls{{'f', {1, 1, 1, 0.2f}}, {'s', {1, 0, 0, 1}}}));

    view.setROIColors({0, 0, 1, 1}, {0, 1, 0, 1}, 0.5f);
    painter.calls.clear();
    view.drawRect(painter);
    EXPECT_EQ(painter.calls, (Calls{{'f', {0, 1, 0, 0.5f}}, {'s', {0, 0, 1, 1}}}));

    prefs.enableFillROI = false;
    view.selectionMarkerStyle(Polygon);
    play(view, {{'d', {0, 0}}, {'m', {9, 0}}, {'u', {9, 0}}, {'d', {9, 9}}});
    painter.calls.clear();
    view.drawRect(painter);  // outline and rubber band, strokes only, in the preference colour
    EXPECT_EQ(painter.calls, (Calls{{'s', {1, 0, 0, 1}}, {'s', {1, 0, 0, 1}}}));
}

TEST(SelectionTools, PopupItemsTopToBottomAndRectangleOutside) {
    const std::pair<int, SelectionTool> items[] = {{-1, Rectangle}, {0, Rectangle}, {1, Oval},
                                                   {2, Polygon},    {3, Lasso},     {4, Rectangle}};
    for (const auto& [index, tool] : items) {
        EXPECT_EQ(selectionToolForPopupIndex(index), tool) << index;
    }
    for (int index = 0; index < 4; ++index) {
        EXPECT_EQ(popupIndexForSelectionTool(selectionToolForPopupIndex(index)), index);
    }
}

TEST_F(Selection, ClippedRegion) {
    EXPECT_EQ(view.selectedRectSize(), Rect{});  // no marker yet: no region, events ignored
    play(view, kBox);
    EXPECT_TRUE(view.currentlySelectedPath().isEmpty());

    view.selectionMarkerStyle(Rectangle);
    play(view, {{'d', {200, 200}}, {'u', {300, 310}}});
    EXPECT_EQ(view.selectedRectSize(), makeRect(200, 200, 56, 56));
    EXPECT_EQ(view.currentlySelectedPath().bounds(), makeRect(200, 200, 100, 110));
    play(view, {{'d', {200, 200}}, {'u', {500, 200}}});
    EXPECT_EQ(view.selectedRectSize(), Rect{});
}

TEST_F(Selection, NotificationsPerGesture) {
    int posted = 0;
    view.onScatterGramROISelected = [&] { ++posted; };
    view.selectionMarkerStyle(Rectangle);
    const Steps drag = {{'d', {1, 1}}, {'m', {2, 2}}, {'m', {3, 3}}, {'m', {4, 4}}, {'u', {5, 5}}};
    play(view, drag);
    EXPECT_EQ(posted, 1);
    view.setContinuous(true);
    play(view, drag);
    EXPECT_EQ(posted, 5);
    view.selectionMarkerStyle(Oval);  // the region goes, but nothing is recounted
    EXPECT_EQ(posted, 5);
}

TEST_F(Selection, CroppedPictureIsTheRegionMaskedToTheOutline) {
    // Red counts X and green Y, so each cropped pixel tells where it came from.
    auto bitmap = Bitmap::create(256, 256, 3, false, false);
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            std::uint8_t* px = bitmap->row(0, 255 - y) + 3 * x;
            px[0] = std::uint8_t(x), px[1] = std::uint8_t(y), px[2] = 7;
        }
    }
    view.setImage(Picture::at72dpi(std::move(*bitmap)));
    view.selectionMarkerStyle(Oval);
    EXPECT_EQ(view.croppedImage().bitmap, view.image().bitmap);
    play(view, {{'d', {30, 40}}, {'u', {40.5f, 60.75f}}});
    const Picture cut = view.croppedImage();
    ASSERT_EQ(cut.pixelsWide(), 10);
    ASSERT_EQ(cut.pixelsHigh(), 20);
    auto at = [&](int x, int y) { return cut.bitmap->row(0, 19 - y) + 4 * x; };
    const std::uint8_t centre[] = {35, 50, 7, 255}, clear[4] = {};
    EXPECT_EQ(std::memcmp(at(5, 10), centre, 4), 0);
    EXPECT_EQ(std::memcmp(at(0, 0), clear, 4), 0);
    EXPECT_EQ(std::memcmp(at(9, 19), clear, 4), 0);
}

}  // namespace
}  // namespace pv
