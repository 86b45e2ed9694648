#pragma once

#include <array>
#include <memory>
#include <vector>

#include "core/Geometry.h"

namespace pv {

// A vector outline of move-to, line-to, cubic curve-to and close-path elements, in view
// coordinates. A value type; copies share the (immutable) hit-test tables until one changes.
//
// Containment uses the non-zero winding rule, every open subpath being closed implicitly,
// and is half-open like a rectangle hit test: a point on a left or bottom edge is inside, one
// on a right or top edge outside. So the rectangle path of (X, Y, W, H) holds exactly the
// points X <= x < X+W, Y <= y < Y+H, and two outlines that share an edge never both claim a
// point on it. Curves are tested against a flattening within 1e-4 of the true curve.
class Path {
  public:
    enum class ElementKind { MoveTo = 0, LineTo = 1, CurveTo = 2, ClosePath = 3 };

    // A curve's points are control1, control2, end; other kinds use only points[0] (for
    // ClosePath, the start of the subpath it returns to).
    struct Element {
        ElementKind kind = ElementKind::MoveTo;
        std::array<Point, 3> points{};
    };

    // Counter-clockwise from the origin corner: move-to, three line-tos, close-path.
    static Path rectangle(const Rect& r);
    // Four cubic quarter-arcs counter-clockwise from the middle of the right side, closed.
    // An empty rectangle gives the same elements collapsed onto its edges, enclosing nothing.
    static Path oval(const Rect& r);

    void moveTo(Point p);
    // Without a current point (an empty path) these begin the path at their end point.
    void lineTo(Point p);
    void curveTo(Point end, Point control1, Point control2);
    void closePath();
    void removeAllPoints();

    // The end of the last element; after a close-path, the start of that subpath; (0, 0) for
    // an empty path.
    Point currentPoint() const;
    int elementCount() const { return int(elements_.size()); }
    const Element& element(int index) const { return elements_[std::size_t(index)]; }
    bool isEmpty() const { return elements_.empty(); }

    // The smallest rectangle holding every point of the path, curve extremes included and
    // control points not; the zero rectangle for an empty path.
    Rect bounds() const;
    bool containsPoint(Point p) const;
    void translate(float dx, float dy);

    // True when the last element is a close-path.
    bool isClosed() const;

  private:
    struct HitTable;
    const HitTable& hitTable() const;
    void changed() { hitTable_.reset(); }
    void startSubpathAfterClose();

    std::vector<Element> elements_;
    Point subpathStart_;
    // Built on the first containment test after a change; the hot loop of region counting.
    mutable std::shared_ptr<const HitTable> hitTable_;
};

}  // namespace pv
