#pragma once

#include <memory>

#include "core/Color.h"
#include "core/Geometry.h"
#include "core/UserPreferences.h"
#include "roi/Path.h"

namespace pv {

// The keys held during a mouse event. Caps Lock counts: with it on, Shift does not constrain.
struct Modifiers {
    bool shift = false;
    bool control = false;
    bool option = false;
    bool command = false;
    bool capsLock = false;

    // The only combination that constrains a rectangle or an oval to a square.
    bool shiftAlone() const { return shift && !control && !option && !command && !capsLock; }
};

// A mouse event as the host view hands it on, its location already in view coordinates.
struct MouseEvent {
    Point location;
    Modifiers modifiers{};
    int clickCount = 1;
};

// The kinds of outline a user can draw.
enum class SelectionTool { Rectangle, Oval, Polygon, Lasso };

// The tool popup's items in order; an index it does not have gives the rectangle.
SelectionTool selectionToolForPopupIndex(int index);
int popupIndexForSelectionTool(SelectionTool tool);

// What a marker draws with; the desktop view implements it over its own painter.
class MarkerPainter {
  public:
    virtual ~MarkerPainter() = default;
    virtual void fillPath(const Path& path, const Color& color) = 0;
    virtual void strokePath(const Path& path, const Color& color, float lineWidth) = 0;
};

// The polygon drawing in progress. It outlives any one polygon marker (a new marker picks up
// whether the last polygon was closed), so the view owns it and lends it to its markers.
struct PolygonState {
    Point polygonFirstVertex;
    Point polygonPendingVertex;
    bool polygonClosed = false;
};

// The rectangle marker, and the base of the other kinds: the outline of one region in view
// coordinates, and the mouse gestures that make and move it. trackingMode is 0 idle,
// 1 selecting, 2 moving, 3 placing a polygon vertex.
class CROI_CropMarker {
  public:
    explicit CROI_CropMarker(const UserPreferences& prefs);
    virtual ~CROI_CropMarker() = default;
    CROI_CropMarker(const CROI_CropMarker&) = delete;
    CROI_CropMarker& operator=(const CROI_CropMarker&) = delete;

    // The fill keeps its colour with the alpha replaced by the opacity.
    void setROIColor(const Color& stroke, const Color& fill, float fillOpacity);
    virtual void drawCropMarker(MarkerPainter& painter, const UserPreferences& prefs);
    virtual void mouseDown(const MouseEvent& e);
    virtual void mouseUp(const MouseEvent& e);
    virtual void mouseDragged(const MouseEvent& e);
    // Valid until the next event changes the outline.
    const Path& selectedPath() const { return selectedPath_; }
    // The bounds of the outline (the zero rectangle when it is empty), whatever the kind.
    Rect selectedRect() const { return selectedPath_.bounds(); }

    int trackingMode() const { return trackingMode_; }
    bool polygonStarted() const { return polygonStarted_; }

  protected:
    void startMovingAtPoint(Point p);
    virtual void startSelectingAtPoint(Point p);
    virtual void continueMovingAtPoint(Point p);
    void stopMovingAtPoint(Point p);
    // The pointer pulled onto the diagonal through the anchor, in the pointer's quadrant.
    Point makePointDistanceEqual(Point p) const;
    void setSelectedRect(const Rect& r);
    void setSelectedRectOrigin(Point origin);
    virtual void stopSelectingAtPoint(Point p);
    virtual void continueSelectingAtPoint(Point p);

    // The outline for selectedRect_: a rectangle here, an ellipse for the oval marker.
    virtual Path outlineForRect(const Rect& r) const { return Path::rectangle(r); }
    void rebuildOutline() { selectedPath_ = outlineForRect(selectedRect_); }
    // Free-form outlines move by translating the path itself.
    void translateOutlineTo(Point p);
    void drawPath(MarkerPainter& painter, const UserPreferences& prefs, const Path& path) const;

    Rect selectedRect_;
    Point lastLocation_;
    Color fillColor_;
    Color strokeColor_;
    int trackingMode_ = 0;
    Path selectedPath_;
    bool polygonStarted_ = false;
};

// An ellipse inscribed in the dragged rectangle; Shift alone makes it a circle. Moving is
// still decided by the bounding rectangle, so a press near a corner moves it.
class CROI_OvalCropMarker : public CROI_CropMarker {
  public:
    explicit CROI_OvalCropMarker(const UserPreferences& prefs);

  protected:
    Path outlineForRect(const Rect& r) const override { return Path::oval(r); }
};

// Straight edges placed by clicks, closed back to the first vertex by a double-click.
class CROI_PolygonCropMarker : public CROI_CropMarker {
  public:
    CROI_PolygonCropMarker(const UserPreferences& prefs, PolygonState& state);

    void drawCropMarker(MarkerPainter& painter, const UserPreferences& prefs) override;
    void mouseDown(const MouseEvent& e) override;
    void mouseUp(const MouseEvent& e) override;
    void mouseDragged(const MouseEvent& e) override;

  protected:
    void startSelectingAtPoint(Point p) override;
    void continueSelectingAtPoint(Point p) override;
    void continueMovingAtPoint(Point p) override;
    void stopSelectingAtPoint(Point p) override;

  private:
    // The rubber band from the last vertex to the pointer, placed at the release.
    void continueSelectingAgainAtPoint(Point p);

    PolygonState& state_;
    Path tempPath_;
};

// A freehand outline, one vertex per drag event, closed at the release.
class CROI_LassoCropMarker : public CROI_CropMarker {
  public:
    using CROI_CropMarker::CROI_CropMarker;

    void mouseDown(const MouseEvent& e) override;
    void mouseUp(const MouseEvent& e) override;
    void mouseDragged(const MouseEvent& e) override;

  protected:
    void startSelectingAtPoint(Point p) override;
    void continueMovingAtPoint(Point p) override;
    void continueSelectingAtPoint(Point p) override;
    void stopSelectingAtPoint(Point p) override;
};

// A fresh marker of the tool's kind, holding no region.
std::unique_ptr<CROI_CropMarker> makeCropMarker(SelectionTool tool, const UserPreferences& prefs,
                                                PolygonState& polygonState);

}  // namespace pv
