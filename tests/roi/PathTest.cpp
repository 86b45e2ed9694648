#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "roi/Path.h"

namespace pv {
namespace {

using Kind = Path::ElementKind;

// The outline as a dense polyline, sampling each curve straight from its Bernstein form.
std::vector<std::vector<Point>> sampledRings(const Path& path) {
    std::vector<std::vector<Point>> rings;
    for (int i = 0; i < path.elementCount(); ++i) {
        const Path::Element& e = path.element(i);
        if (e.kind == Kind::MoveTo) {
            rings.push_back({e.points[0]});
        } else if (e.kind == Kind::LineTo) {
            rings.back().push_back(e.points[0]);
        } else if (e.kind == Kind::CurveTo) {
            const Point p0 = rings.back().back();
            for (int k = 1; k <= 600; ++k) {
                const double t = k / 600.0, u = 1.0 - t;
                auto at = [&](double a, double b, double c, double d) {
                    return float(u * u * u * a + 3 * u * u * t * b + 3 * u * t * t * c +
                                 t * t * t * d);
                };
                rings.back().push_back({at(p0.x, e.points[0].x, e.points[1].x, e.points[2].x),
                                        at(p0.y, e.points[0].y, e.points[1].y, e.points[2].y)});
            }
        }
    }
    return rings;
}

double distanceToSegment(Point p, Point a, Point b) {
    const double dx = b.x - a.x, dy = b.y - a.y, len2 = dx * dx + dy * dy;
    const double t =
        len2 == 0 ? 0 : std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / len2, 0.0, 1.0);
    return std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy);
}

// Winding number by summing the angles the closed rings subtend; nullopt near the outline.
std::optional<bool> bruteInside(const std::vector<std::vector<Point>>& rings, Point p,
                                double margin) {
    double turn = 0;
    for (const auto& ring : rings) {
        for (std::size_t i = 0; i < ring.size(); ++i) {
            const Point a = ring[i], b = ring[(i + 1) % ring.size()];
            if (distanceToSegment(p, a, b) < margin) {
                return std::nullopt;
            }
            double d = std::atan2(b.y - p.y, b.x - p.x) - std::atan2(a.y - p.y, a.x - p.x);
            d -= 2 * std::numbers::pi * std::round(d / (2 * std::numbers::pi));
            turn += d;
        }
    }
    return std::lround(turn / (2 * std::numbers::pi)) != 0;
}

void expectAgreesWithBruteForce(const Path& path, std::mt19937& rng, double margin) {
    const auto rings = sampledRings(path);
    std::uniform_real_distribution<float> coord(-20.0f, 276.0f);
    int compared = 0;
    for (int k = 0; k < 400; ++k) {
        const Point p{coord(rng), coord(rng)};
        if (auto inside = bruteInside(rings, p, margin)) {
            ++compared;
            ASSERT_EQ(path.containsPoint(p), *inside) << p.x << ", " << p.y;
        }
    }
    EXPECT_GT(compared, 300);
}

TEST(PathContainment, RandomPolygonsIncludingSelfIntersecting) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> coord(0.0f, 256.0f);
    for (int n = 0; n < 60; ++n) {
        Path path;
        const int vertices = 3 + n % 12;
        for (int v = 0; v < vertices; ++v) {
            path.lineTo({coord(rng), coord(rng)});
        }
        if (n % 2) {
            path.closePath();  // open and closed outlines must test alike
        }
        expectAgreesWithBruteForce(path, rng, 1e-3);
    }
}

TEST(PathContainment, RandomOvalsWithinAHundredthOfTheCurve) {
    std::mt19937 rng(11);
    std::uniform_real_distribution<float> coord(-10.0f, 200.0f), extent(0.5f, 260.0f);
    for (int n = 0; n < 30; ++n) {
        const Path oval = Path::oval(makeRect(coord(rng), coord(rng), extent(rng), extent(rng)));
        expectAgreesWithBruteForce(oval, rng, 0.01);
    }
}

TEST(PathContainment, RectanglesHoldTheirHalfOpenIntegerPoints) {
    // Several rectangles in one path, so that inner edges are tested and not just the
    // outermost; the clockwise ones exercise the downward edges.
    struct Case {
        std::vector<Rect> rects;
        bool clockwise;
    };
    const Case cases[] = {
        {{makeRect(0, 0, 256, 256)}, false},
        {{makeRect(10, 20, 5, 3), makeRect(100, 0, 10, 200), makeRect(-4, -6, 3, 9)}, false},
        {{makeRect(10, 20, 5, 3), makeRect(100, 0, 10, 200), makeRect(-4, -6, 3, 9)}, true},
        {{makeRect(2.5f, 1.5f, 3, 2), makeRect(7, 7, 0, 4), makeRect(200, 5, 1, 1)}, true},
    };
    for (const Case& c : cases) {
        Path path;
        for (const Rect& r : c.rects) {
            Path one = Path::rectangle(r);
            if (c.clockwise) {
                one = Path();
                one.moveTo(r.origin);
                one.lineTo({r.minX(), r.maxY()});
                one.lineTo({r.maxX(), r.maxY()});
                one.lineTo({r.maxX(), r.minY()});
            }
            for (int i = 0; i < one.elementCount(); ++i) {
                const Point p = one.element(i).points[0];
                i == 0 ? path.moveTo(p) : path.lineTo(p);
            }
        }
        for (int x = -10; x <= 260; ++x) {
            for (int y = -10; y <= 260; y += (y < 30 ? 1 : 37)) {
                bool want = false;
                for (const Rect& r : c.rects) {
                    want |= r.minX() <= x && x < r.maxX() && r.minY() <= y && y < r.maxY();
                }
                ASSERT_EQ(path.containsPoint({float(x), float(y)}), want) << x << ", " << y;
            }
        }
    }
}

TEST(PathContainment, CopiesAndChangesDoNotShareStaleTables) {
    Path a = Path::rectangle(makeRect(0, 0, 10, 10));
    const Path b = a;
    EXPECT_TRUE(a.containsPoint({5, 5}));
    a.translate(100, 0);
    EXPECT_FALSE(a.containsPoint({5, 5}));
    EXPECT_TRUE(a.containsPoint({105, 5}));
    EXPECT_TRUE(b.containsPoint({5, 5}));
    a.removeAllPoints();
    EXPECT_FALSE(a.containsPoint({105, 5}));
}

TEST(PathBounds, CurveExtremesNotControlPoints) {
    Path arch;
    arch.moveTo({0, 0});
    arch.curveTo({10, 0}, {0, 10}, {10, 10});
    const Rect b = arch.bounds();
    EXPECT_NEAR(b.maxY(), 7.5f, 1e-5);
    EXPECT_EQ(b.origin, (Point{0, 0}));
    EXPECT_FLOAT_EQ(b.size.width, 10);

    const Rect ovals[] = {makeRect(3, 4, 50, 20), makeRect(-8, 2.25f, 0.5f, 100)};
    for (const Rect& r : ovals) {
        const Rect o = Path::oval(r).bounds();
        EXPECT_NEAR(o.minX(), r.minX(), 1e-4);
        EXPECT_NEAR(o.maxX(), r.maxX(), 1e-4);
        EXPECT_NEAR(o.minY(), r.minY(), 1e-4);
        EXPECT_NEAR(o.maxY(), r.maxY(), 1e-4);
    }
    EXPECT_EQ(Path().bounds(), Rect{});
    Path dot;
    dot.moveTo({3, 4});
    EXPECT_EQ(dot.bounds(), makeRect(3, 4, 0, 0));
}

TEST(PathElements, ClosingAndDrawingOn) {
    Path triangle;
    EXPECT_FALSE(triangle.isClosed());
    triangle.moveTo({0, 0});
    triangle.lineTo({10, 0});
    triangle.lineTo({0, 10});
    const Path closed = triangle.closedPath();
    EXPECT_FALSE(triangle.isClosed());
    EXPECT_EQ(triangle.elementCount(), 3);
    EXPECT_TRUE(closed.isClosed());
    EXPECT_EQ(closed.elementCount(), 4);
    EXPECT_EQ(closed.closedPath().elementCount(), 4);
    EXPECT_EQ(closed.currentPoint(), (Point{0, 0}));

    // Drawing on after a close starts a new subpath at the closed one's start.
    Path more = closed;
    more.lineTo({-10, 0});
    EXPECT_EQ(more.elementKind(4), Kind::MoveTo);
    EXPECT_EQ(more.element(4).points[0], (Point{0, 0}));
    EXPECT_EQ(Path::oval(Rect{}).elementCount(), 6);
    EXPECT_FALSE(Path::oval(Rect{}).containsPoint({0, 0}));
}

}  // namespace
}  // namespace pv
