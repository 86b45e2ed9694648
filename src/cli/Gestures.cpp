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

void startController(PixmeraVeltroController& controller, const Options& o, unsigned threads) {
    controller.setAnalysisThreads(threads);
    controller.setReadOptions(ReadOptions{.depthBits = o.depthBits, .threads = threads});
    controller.awakeFromNib();
    controller.applicationDidFinishLaunching();
    controller.setCheckboxes(o.checkboxes);
    if (o.rgbCombo != RGBCombo::RedGreen) {
        controller.getChannelsRGBCombo(popupIndexForRGBCombo(o.rgbCombo));
    }
}

void followRoad(PixmeraVeltroController& controller, BatchPort& port, const Options& o) {
    for (const BackgroundStep& step : o.background) {
        // The manual tab with the level typed in, the channel chosen, then Apply.
        BackgroundControls controls;
        controls.selectedTab = 1;
        controls.typedValue = step.level;
        getThresholdEntryValue(controls, controller.backgroundSettings());
        controls.channelItem = step.channelItem;
        getRGBChannel(controls, controller.backgroundSettings());
        controller.removeBackgroundNow(controls);
    }

    controller.calculateCoefficientsNow();
    if (port.warningAsked) {
        controller.colocalizationWarningSheetDidEnd(BackgroundWarningAnswer::CalculateAnyway);
    }
    if (o.region) {
        drawRegion(controller, *o.region);
        controller.calculateROINow();
        if (port.scatterGramWarningAsked) {
            controller.colocalizationScatterGramWarningSheetDidEnd(
                ScatterGramWarningAnswer::Calculate);
        }
        if (o.reveal) {
            controller.reflectWhitePixels();
        }
    }
}

}  // namespace pv::cli
