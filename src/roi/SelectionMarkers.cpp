#include "roi/SelectionMarkers.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace pv {

namespace {

// Half-open, so a zero-size rectangle holds nothing and only the left and bottom edges of the
// current outline grab it for a move.
bool pointInRect(Point p, const Rect& r) {
    return r.minX() <= p.x && p.x < r.maxX() && r.minY() <= p.y && p.y < r.maxY();
}

// The tool popup's items, top to bottom.
constexpr std::array kPopupTools = {SelectionTool::Rectangle, SelectionTool::Oval,
                                    SelectionTool::Polygon, SelectionTool::Lasso};

}  // namespace

SelectionTool selectionToolForPopupIndex(int index) {
    return index >= 0 && index < int(kPopupTools.size()) ? kPopupTools[std::size_t(index)]
                                                         : SelectionTool::Rectangle;
}

int popupIndexForSelectionTool(SelectionTool tool) {
    return int(std::find(kPopupTools.begin(), kPopupTools.end(), tool) - kPopupTools.begin());
}

CROI_CropMarker::CROI_CropMarker(const UserPreferences& prefs) {
    setROIColor(prefs.roiBorderColor, prefs.roiFillColor, prefs.opacityValue);
    setSelectedRect({});
}

void CROI_CropMarker::setROIColor(const Color& stroke, const Color& fill, float fillOpacity) {
    strokeColor_ = stroke;
    fillColor_ = fill.withAlpha(fillOpacity);
}

void CROI_CropMarker::drawPath(MarkerPainter& painter, const UserPreferences& prefs,
                               const Path& path) const {
    if (path.isEmpty()) {
        return;
    }
    if (prefs.enableFillROI) {
        painter.fillPath(path, fillColor_);
    }
    painter.strokePath(path, strokeColor_, 1.0f);
}

void CROI_CropMarker::drawCropMarker(MarkerPainter& painter, const UserPreferences& prefs) {
    drawPath(painter, prefs, selectedPath_);
}

void CROI_CropMarker::startMovingAtPoint(Point p) {
    trackingMode_ = 2;
    lastLocation_ = p;
}

void CROI_CropMarker::startSelectingAtPoint(Point p) {
    trackingMode_ = 1;
    lastLocation_ = p;
}

void CROI_CropMarker::continueMovingAtPoint(Point p) {
    setSelectedRectOrigin({selectedRect_.origin.x + (p.x - lastLocation_.x),
                           selectedRect_.origin.y + (p.y - lastLocation_.y)});
    lastLocation_ = p;
}

void CROI_CropMarker::stopMovingAtPoint(Point p) {
    continueMovingAtPoint(p);
    trackingMode_ = 0;
}

void CROI_CropMarker::mouseDown(const MouseEvent& e) {
    lastLocation_ = e.location;
    if (pointInRect(e.location, selectedRect_)) {
        startMovingAtPoint(e.location);
    } else {
        startSelectingAtPoint(e.location);
    }
}

void CROI_CropMarker::mouseDragged(const MouseEvent& e) {
    if (trackingMode_ == 1) {
        continueSelectingAtPoint(e.modifiers.shiftAlone() ? makePointDistanceEqual(e.location)
                                                          : e.location);
    } else if (trackingMode_ == 2) {
        continueMovingAtPoint(e.location);
    }
}

void CROI_CropMarker::mouseUp(const MouseEvent& e) {
    if (trackingMode_ == 1) {
        stopSelectingAtPoint(e.modifiers.shiftAlone() ? makePointDistanceEqual(e.location)
                                                      : e.location);
    } else if (trackingMode_ == 2) {
        stopMovingAtPoint(e.location);
    }
}

Point CROI_CropMarker::makePointDistanceEqual(Point p) const {
    const float dx = p.x - lastLocation_.x, dy = p.y - lastLocation_.y;
    const float d = std::min(std::abs(dx), std::abs(dy));
    return {dx > 0 ? lastLocation_.x + d : lastLocation_.x - d,
            dy > 0 ? lastLocation_.y + d : lastLocation_.y - d};
}

void CROI_CropMarker::setSelectedRect(const Rect& r) {
    selectedRect_ = r;
    rebuildOutline();
}

void CROI_CropMarker::setSelectedRectOrigin(Point origin) {
    selectedRect_.origin = origin;
    rebuildOutline();
}

void CROI_CropMarker::continueSelectingAtPoint(Point p) {
    setSelectedRect(makeRect(std::min(lastLocation_.x, p.x), std::min(lastLocation_.y, p.y),
                             std::abs(lastLocation_.x - p.x), std::abs(lastLocation_.y - p.y)));
}

void CROI_CropMarker::stopSelectingAtPoint(Point p) {
    continueSelectingAtPoint(p);
    trackingMode_ = 0;
}

void CROI_CropMarker::translateOutlineTo(Point p) {
    selectedPath_.translate(p.x - lastLocation_.x, p.y - lastLocation_.y);
    lastLocation_ = p;
}

CROI_OvalCropMarker::CROI_OvalCropMarker(const UserPreferences& prefs) : CROI_CropMarker(prefs) {
    setSelectedRect({});  // the base could only build its own kind of outline
}

// Lasso.

void CROI_LassoCropMarker::mouseDown(const MouseEvent& e) {
    lastLocation_ = e.location;
    // Containment closes an open outline itself, so no closed copy is needed.
    if (selectedPath_.containsPoint(e.location)) {
        startMovingAtPoint(e.location);
    } else {
        startSelectingAtPoint(e.location);
    }
}

void CROI_LassoCropMarker::mouseDragged(const MouseEvent& e) {
    if (trackingMode_ == 1) {
        continueSelectingAtPoint(e.location);
    } else if (trackingMode_ == 2) {
        continueMovingAtPoint(e.location);
    }
}

void CROI_LassoCropMarker::mouseUp(const MouseEvent& e) {
    if (trackingMode_ == 1) {
        stopSelectingAtPoint(e.location);
    } else if (trackingMode_ == 2) {
        stopMovingAtPoint(e.location);
    }
}

void CROI_LassoCropMarker::startSelectingAtPoint(Point p) {
    lastLocation_ = p;
    trackingMode_ = 1;
    selectedPath_.removeAllPoints();
    selectedPath_.moveTo(p);
}

void CROI_LassoCropMarker::continueMovingAtPoint(Point p) {
    translateOutlineTo(p);
}

void CROI_LassoCropMarker::continueSelectingAtPoint(Point p) {
    selectedPath_.lineTo(p);
}

void CROI_LassoCropMarker::stopSelectingAtPoint(Point p) {
    selectedPath_.lineTo(p);
    selectedPath_.closePath();
    trackingMode_ = 0;
}

// Polygon.

CROI_PolygonCropMarker::CROI_PolygonCropMarker(const UserPreferences& prefs, PolygonState& state)
    : CROI_CropMarker(prefs), state_(state) {}

void CROI_PolygonCropMarker::drawCropMarker(MarkerPainter& painter, const UserPreferences& prefs) {
    CROI_CropMarker::drawCropMarker(painter, prefs);
    drawPath(painter, prefs, tempPath_);
}

void CROI_PolygonCropMarker::mouseDown(const MouseEvent& e) {
    const Point p = e.location;
    lastLocation_ = p;
    if (e.clickCount == 1) {
        if (polygonStarted_) {
            continueSelectingAgainAtPoint(p);
        } else if (selectedPath_.containsPoint(p)) {
            startMovingAtPoint(p);
        } else {
            startSelectingAtPoint(p);
            state_.polygonClosed = false;
            polygonStarted_ = true;
        }
    } else if (polygonStarted_) {
        polygonStarted_ = false;
        stopSelectingAtPoint(state_.polygonFirstVertex);
    } else {
        // A double-click with no polygon in progress starts afresh, keeping polygonClosed.
        polygonStarted_ = true;
        startSelectingAtPoint(p);
    }
}

void CROI_PolygonCropMarker::mouseDragged(const MouseEvent& e) {
    if (trackingMode_ == 1) {
        continueSelectingAtPoint(e.location);
    } else if (trackingMode_ == 2 && state_.polygonClosed) {
        continueMovingAtPoint(e.location);
    } else if (trackingMode_ == 2 || trackingMode_ == 3) {
        continueSelectingAgainAtPoint(e.location);
    }
}

void CROI_PolygonCropMarker::mouseUp(const MouseEvent& e) {
    if (trackingMode_ == 1) {
        // Released where pressed: a click, not the first edge; nothing is started.
        if (e.location == lastLocation_) {
            polygonStarted_ = false;
            trackingMode_ = 0;
        }
    } else if (trackingMode_ == 3) {
        selectedPath_.lineTo(state_.polygonPendingVertex);
    }
}

void CROI_PolygonCropMarker::startSelectingAtPoint(Point p) {
    lastLocation_ = p;
    trackingMode_ = 1;
    tempPath_.removeAllPoints();
    selectedPath_.removeAllPoints();
    selectedPath_.moveTo(p);
    state_.polygonFirstVertex = p;
}

void CROI_PolygonCropMarker::continueSelectingAtPoint(Point p) {
    selectedPath_.removeAllPoints();
    selectedPath_.moveTo(state_.polygonFirstVertex);
    selectedPath_.lineTo(p);
    trackingMode_ = 1;
}

void CROI_PolygonCropMarker::continueSelectingAgainAtPoint(Point p) {
    trackingMode_ = 3;
    tempPath_.removeAllPoints();
    tempPath_.moveTo(selectedPath_.currentPoint());
    tempPath_.lineTo(p);
    state_.polygonPendingVertex = p;
}

void CROI_PolygonCropMarker::continueMovingAtPoint(Point p) {
    translateOutlineTo(p);  // the rubber band stays behind: it is redrawn on the next vertex
}

void CROI_PolygonCropMarker::stopSelectingAtPoint(Point p) {
    selectedPath_.lineTo(state_.polygonFirstVertex);
    lastLocation_ = p;
    selectedPath_.closePath();
    trackingMode_ = 0;
    polygonStarted_ = false;
    state_.polygonClosed = true;
}

std::unique_ptr<CROI_CropMarker> makeCropMarker(SelectionTool tool, const UserPreferences& prefs,
                                                PolygonState& polygonState) {
    switch (tool) {
        case SelectionTool::Oval:
            return std::make_unique<CROI_OvalCropMarker>(prefs);
        case SelectionTool::Polygon:
            return std::make_unique<CROI_PolygonCropMarker>(prefs, polygonState);
        case SelectionTool::Lasso:
            return std::make_unique<CROI_LassoCropMarker>(prefs);
        case SelectionTool::Rectangle:
            break;
    }
    return std::make_unique<CROI_CropMarker>(prefs);
}

}  // namespace pv
