#include "roi/Path.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace pv {

namespace {

// Far below what a pixel-centre test can notice, and cheap: a quarter of a 256-wide oval
// becomes a few hundred segments, and the bucketed table keeps the per-point cost flat.
constexpr double kFlatness = 1e-4;
constexpr int kMaxSubdivision = 16;
constexpr double kKappa = 0.5522847498;

struct DPoint {
    double x;
    double y;
};

DPoint toD(Point p) {
    return {double(p.x), double(p.y)};
}
DPoint mid(DPoint a, DPoint b) {
    return {(a.x + b.x) * 0.5, (a.y + b.y) * 0.5};
}

// Appends the curve's points after p0, subdividing until the control polygon lies within
// kFlatness of its chord (the bound of Willcocks: 16 tol^2 on the squared deviations).
void flattenCubic(DPoint p0, DPoint c1, DPoint c2, DPoint p3, int depth, std::vector<DPoint>& out) {
    auto sq = [](double v) { return v * v; };
    const double ux = sq(3.0 * c1.x - 2.0 * p0.x - p3.x), uy = sq(3.0 * c1.y - 2.0 * p0.y - p3.y);
    const double vx = sq(3.0 * c2.x - 2.0 * p3.x - p0.x), vy = sq(3.0 * c2.y - 2.0 * p3.y - p0.y);
    const double deviation = std::max(ux, vx) + std::max(uy, vy);
    if (depth >= kMaxSubdivision || !(deviation > 16.0 * kFlatness * kFlatness)) {
        out.push_back(p3);
        return;
    }
    const DPoint a = mid(p0, c1), b = mid(c1, c2), c = mid(c2, p3);
    const DPoint ab = mid(a, b), bc = mid(b, c);
    const DPoint m = mid(ab, bc);
    flattenCubic(p0, a, ab, m, depth + 1, out);
    flattenCubic(m, bc, c, p3, depth + 1, out);
}

// Parameters in (0, 1) where one coordinate of the cubic has a turning point.
int cubicExtremes(double p0, double p1, double p2, double p3, double t[2]) {
    const double a = -p0 + 3.0 * p1 - 3.0 * p2 + p3;
    const double b = 2.0 * (p0 - 2.0 * p1 + p2);
    const double c = p1 - p0;
    int n = 0;
    auto keep = [&](double v) {
        if (v > 0.0 && v < 1.0) {
            t[n++] = v;
        }
    };
    if (std::abs(a) < 1e-12) {
        if (std::abs(b) > 1e-12) {
            keep(-c / b);
        }
        return n;
    }
    const double disc = b * b - 4.0 * a * c;
    if (disc >= 0.0) {
        const double s = std::sqrt(disc);
        keep((-b + s) / (2.0 * a));
        keep((-b - s) / (2.0 * a));
    }
    return n;
}

double cubicAt(double p0, double p1, double p2, double p3, double t) {
    const double u = 1.0 - t;
    return u * u * u * p0 + 3.0 * u * u * t * p1 + 3.0 * u * t * t * p2 + t * t * t * p3;
}

}  // namespace

struct Path::HitTable {
    struct Edge {
        double x0, y0, x1, y1;
    };
    std::vector<Edge> edges;  // grouped by bucket; an edge spanning several appears in each
    std::vector<std::uint32_t> bucketStart;
    double xMin = 0.0, xMax = 0.0, yMin = 0.0, yMax = 0.0, bucketHeight = 1.0;

    std::size_t bucketOf(double y) const {
        const double k = std::floor((y - yMin) / bucketHeight);
        const std::size_t last = bucketStart.size() - 2;
        if (!(k > 0.0)) {
            return 0;
        }
        return k >= double(last) ? last : std::size_t(k);
    }

    static HitTable build(const std::vector<Element>& elements);
};

Path::HitTable Path::HitTable::build(const std::vector<Element>& elements) {
    std::vector<Edge> all;
    std::vector<DPoint> ring;
    auto closeRing = [&] {
        if (ring.size() > 1) {
            ring.push_back(ring.front());  // open subpaths count as closed
        }
        for (std::size_t i = 1; i < ring.size(); ++i) {
            if (ring[i - 1].y != ring[i].y) {  // horizontal edges never cross a scan line
                all.push_back({ring[i - 1].x, ring[i - 1].y, ring[i].x, ring[i].y});
            }
        }
        ring.clear();
    };
    for (const Element& e : elements) {
        switch (e.kind) {
            case ElementKind::MoveTo:
                closeRing();
                ring.push_back(toD(e.points[0]));
                break;
            case ElementKind::LineTo:
                ring.push_back(toD(e.points[0]));
                break;
            case ElementKind::CurveTo:
                flattenCubic(ring.back(), toD(e.points[0]), toD(e.points[1]), toD(e.points[2]), 0,
                             ring);
                break;
            case ElementKind::ClosePath:
                closeRing();
                ring.push_back(toD(e.points[0]));
                break;
        }
    }
    closeRing();

    HitTable t;
    if (all.empty()) {
        t.bucketStart = {0, 0};
        t.xMin = t.xMax = t.yMin = t.yMax = 0.0;  // holds nothing: y < yMax fails
        return t;
    }
    t.xMin = t.yMin = std::numeric_limits<double>::infinity();
    t.xMax = t.yMax = -std::numeric_limits<double>::infinity();
    for (const Edge& e : all) {
        t.xMin = std::min({t.xMin, e.x0, e.x1});
        t.xMax = std::max({t.xMax, e.x0, e.x1});
        t.yMin = std::min({t.yMin, e.y0, e.y1});
        t.yMax = std::max({t.yMax, e.y0, e.y1});
    }
    // About one edge per bucket, unless tall edges would be copied into too many buckets.
    std::size_t buckets = std::clamp<std::size_t>(all.size(), 1, 1024);
    if (!std::isfinite(t.yMax - t.yMin)) {
        buckets = 1;
    }
    auto layOut = [&](std::size_t n) {
        t.bucketHeight = (t.yMax - t.yMin) / double(n);
        t.bucketStart.assign(n + 1, 0);
    };
    auto spans = [&](auto&& visit) {
        for (std::size_t i = 0; i < all.size(); ++i) {
            const auto [lo, hi] = std::minmax(all[i].y0, all[i].y1);
            visit(i, t.bucketOf(lo), t.bucketOf(hi));
        }
    };
    for (;; buckets /= 2) {
        layOut(buckets);
        std::size_t entries = 0;
        spans([&](std::size_t, std::size_t a, std::size_t b) { entries += b - a + 1; });
        if (buckets == 1 || entries <= 16 * all.size() + 1024) {
            break;
        }
    }
    spans([&](std::size_t, std::size_t a, std::size_t b) {
        for (std::size_t k = a; k <= b; ++k) {
            ++t.bucketStart[k + 1];
        }
    });
    for (std::size_t k = 1; k <= buckets; ++k) {
        t.bucketStart[k] += t.bucketStart[k - 1];
    }
    t.edges.resize(t.bucketStart[buckets]);
    std::vector<std::uint32_t> fill(t.bucketStart.begin(), t.bucketStart.end() - 1);
    spans([&](std::size_t i, std::size_t a, std::size_t b) {
        for (std::size_t k = a; k <= b; ++k) {
            t.edges[fill[k]++] = all[i];
        }
    });
    return t;
}

const Path::HitTable& Path::hitTable() const {
    if (!hitTable_) {
        hitTable_ = std::make_shared<const HitTable>(HitTable::build(elements_));
    }
    return *hitTable_;
}

bool Path::containsPoint(Point p) const {
    const HitTable& t = hitTable();
    const double px = p.x, py = p.y;
    // Left of every edge, crossings cancel; right of (or on) the rightmost, none count.
    if (!(py >= t.yMin && py < t.yMax && px >= t.xMin && px < t.xMax)) {
        return false;
    }
    const std::size_t k = t.bucketOf(py);
    int winding = 0;
    for (std::uint32_t i = t.bucketStart[k]; i < t.bucketStart[k + 1]; ++i) {
        const HitTable::Edge& e = t.edges[i];
        // Edges own their lower end only, and a point exactly on an edge is not left of it:
        // together, the half-open rule.
        const double side = (e.x1 - e.x0) * (py - e.y0) - (px - e.x0) * (e.y1 - e.y0);
        if (e.y0 <= py) {
            if (e.y1 > py && side > 0.0) {
                ++winding;
            }
        } else if (e.y1 <= py && side < 0.0) {
            --winding;
        }
    }
    return winding != 0;
}

Path Path::rectangle(const Rect& r) {
    Path p;
    p.moveTo({r.minX(), r.minY()});
    p.lineTo({r.maxX(), r.minY()});
    p.lineTo({r.maxX(), r.maxY()});
    p.lineTo({r.minX(), r.maxY()});
    p.closePath();
    return p;
}

Path Path::oval(const Rect& r) {
    const double rx = double(r.size.width) / 2.0, ry = double(r.size.height) / 2.0;
    const double cx = double(r.origin.x) + rx, cy = double(r.origin.y) + ry;
    const double kx = kKappa * rx, ky = kKappa * ry;
    auto pt = [](double x, double y) { return Point{float(x), float(y)}; };
    Path p;
    p.moveTo(pt(cx + rx, cy));
    p.curveTo(pt(cx, cy + ry), pt(cx + rx, cy + ky), pt(cx + kx, cy + ry));
    p.curveTo(pt(cx - rx, cy), pt(cx - kx, cy + ry), pt(cx - rx, cy + ky));
    p.curveTo(pt(cx, cy - ry), pt(cx - rx, cy - ky), pt(cx - kx, cy - ry));
    p.curveTo(pt(cx + rx, cy), pt(cx + kx, cy - ry), pt(cx + rx, cy - ky));
    p.closePath();
    return p;
}

void Path::moveTo(Point p) {
    elements_.push_back({ElementKind::MoveTo, {p, {}, {}}});
    subpathStart_ = p;
    changed();
}

void Path::lineTo(Point p) {
    if (isEmpty()) {
        moveTo(p);
        return;
    }
    startSubpathAfterClose();
    elements_.push_back({ElementKind::LineTo, {p, {}, {}}});
    changed();
}

void Path::curveTo(Point end, Point control1, Point control2) {
    if (isEmpty()) {
        moveTo(end);
        return;
    }
    startSubpathAfterClose();
    elements_.push_back({ElementKind::CurveTo, {control1, control2, end}});
    changed();
}

void Path::closePath() {
    if (isEmpty()) {
        return;
    }
    elements_.push_back({ElementKind::ClosePath, {subpathStart_, {}, {}}});
    changed();
}

void Path::startSubpathAfterClose() {
    // Drawing on after a close-path begins a new subpath where the closed one began.
    if (isClosed()) {
        elements_.push_back({ElementKind::MoveTo, {subpathStart_, {}, {}}});
    }
}

void Path::removeAllPoints() {
    elements_.clear();
    subpathStart_ = {};
    changed();
}

Point Path::currentPoint() const {
    if (isEmpty()) {
        return {};
    }
    const Element& last = elements_.back();
    return last.kind == ElementKind::CurveTo ? last.points[2] : last.points[0];
}

Rect Path::bounds() const {
    if (isEmpty()) {
        return {};
    }
    double x0 = std::numeric_limits<double>::infinity(), y0 = x0;
    double x1 = -x0, y1 = -x0;
    auto add = [&](double x, double y) {
        x0 = std::min(x0, x);
        x1 = std::max(x1, x);
        y0 = std::min(y0, y);
        y1 = std::max(y1, y);
    };
    DPoint current{};
    for (const Element& e : elements_) {
        if (e.kind == ElementKind::CurveTo) {
            const DPoint c1 = toD(e.points[0]), c2 = toD(e.points[1]), end = toD(e.points[2]);
            double t[2];
            for (int i = 0, n = cubicExtremes(current.x, c1.x, c2.x, end.x, t); i < n; ++i) {
                add(cubicAt(current.x, c1.x, c2.x, end.x, t[i]), current.y);
            }
            for (int i = 0, n = cubicExtremes(current.y, c1.y, c2.y, end.y, t); i < n; ++i) {
                add(current.x, cubicAt(current.y, c1.y, c2.y, end.y, t[i]));
            }
            current = end;
        } else {
            current = toD(e.points[0]);
        }
        add(current.x, current.y);
    }
    return makeRect(float(x0), float(y0), float(x1 - x0), float(y1 - y0));
}

void Path::translate(float dx, float dy) {
    for (Element& e : elements_) {
        for (Point& p : e.points) {
            p.x += dx;
            p.y += dy;
        }
    }
    subpathStart_.x += dx;
    subpathStart_.y += dy;
    changed();
}

bool Path::isClosed() const {
    return !isEmpty() && elements_.back().kind == ElementKind::ClosePath;
}

}  // namespace pv
