#pragma once

#include <functional>
#include <memory>

#include "core/UserPreferences.h"
#include "image/Picture.h"
#include "roi/Path.h"
#include "roi/SelectionMarkers.h"

namespace pv {

// The scatter-gram view without its window: it owns the one selection marker, feeds it the
// mouse, and answers for the region. The picture is always shown at natural size with its
// origin at the view's, so view coordinates are (X intensity, Y intensity) pairs. The
// desktop view forwards its events here and draws the picture, then calls drawRect.
class CROI_ScatterGramCroppingImageView {
  public:
    explicit CROI_ScatterGramCroppingImageView(const UserPreferences& prefs);

    // Replaces the marker by a fresh one of the tool's kind, clearing the region. Posts
    // nothing: the old results stay until the next.
    void selectionMarkerStyle(SelectionTool tool);
    CROI_CropMarker* selectionMarker() const { return selectionMarker_.get(); }

    // Draws the marker over the whole view, unclipped.
    void drawRect(MarkerPainter& painter);
    void mouseDown(const MouseEvent& e);
    void mouseDragged(const MouseEvent& e);
    void mouseUp(const MouseEvent& e);

    // The marker's bounds clipped to the picture; without width or height there is no region.
    Rect selectedRectSize() const;
    Rect imageRectSize() const { return makeRect(0.0f, 0.0f, 256.0f, 256.0f); }
    // Not clipped; an empty path when there is no marker.
    const Path& currentlySelectedPath() const;

    void setImage(Picture picture) { image_ = std::move(picture); }
    const Picture& image() const { return image_; }
    // With no region, the view's own picture. Otherwise a new RGBA picture of the clipped
    // region's whole pixels (at least one each way), holding the pixels whose centres the
    // outline contains, hard-edged, and zero in all four samples elsewhere.
    Picture croppedImage() const;

    void setROIColors(const Color& stroke, const Color& fill, float fillOpacity);
    // Continuous: the region is reported at every drag step, not only at the release.
    bool isContinuous() const { return continuous_; }
    void setContinuous(bool continuous) { continuous_ = continuous; }
    PolygonState& polygonState() { return polygonState_; }

    // "ScatterGramROISelected": the region may have changed; recount.
    std::function<void()> onScatterGramROISelected;
    std::function<void()> onNeedsDisplay;

  private:
    void selectionChanged();
    void postSelectionChangedNotification();

    const UserPreferences& prefs_;
    PolygonState polygonState_;  // before the marker, which borrows it
    std::unique_ptr<CROI_CropMarker> selectionMarker_;
    bool continuous_ = false;
    Picture image_;
    Path noPath_;  // what a view without a marker hands out
};

}  // namespace pv
