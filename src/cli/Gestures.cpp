#include "cli/Gestures.h"

namespace pv::cli {

void drawRegion(PixmeraVeltroController& controller, const RegionOption& region) {
    controller.getSelectionTool(popupIndexForSelectionTool(region.tool));
    CROI_ScatterGramCroppingImageView& view = controller.scatterGramGraph();
    const std::vector<Point>& p = region.points;
    auto press = [&view](Point at, int clicks = 1) {
        view.mouseDown({.location = at, .clickCount = clicks});
    };
    auto drag = [&view](Point at) { view.mouseDragged({.location = at}); };
    auto release = [&view](Point at, int clicks = 1) {
        view.mouseUp({.location = at, .clickCount = clicks});
    };

    if (region.tool == SelectionTool::Polygon) {
        press(p[0]);
        drag(p[1]);
        release(p[1]);
        for (std::size_t k = 2; k + 1 < p.size(); ++k) {
            press(p[k]);
            release(p[k]);
        }
        press(p.back());
        release(p.back());
        press(p.back(), 2);
        release(p.back(), 2);
        return;
    }
    press(p.front());
    for (std::size_t k = 1; k + 1 < p.size(); ++k) {
        drag(p[k]);
    }
    if (p.size() == 2) {
        drag(p.back());
    }
    release(p.back());
}

}  // namespace pv::cli
