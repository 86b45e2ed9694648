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
            const Point p0 = rings.back().back(), c1 = e.points[0], c2 = e.points[1];
            for (int k = 1; k <= 600; ++k) {
                const double t = k / 600.0, u = 1 - t;
                const double a = u * u * u, b = 3 * u * u * t, c = 3 * u * t * t, d = t * t * t;
                rings.back().push_back({float(a * p0.x + b * c1.x + c * c2.x + d * e.points[2].x),
                                        float(a * p0.y + b * c1.y + c * c2.y + d * e.points[2].y)});
            }
        }
    }
    return rings;
}

// Winding number by summing the angles the closed rings subtend; nullopt near the outline.
std::optional<bool> bruteInside(const std::vector<std::vector<Point>>& rings, Point p,
                                double margin) {
    double turn = 0;
    for (const auto& ring : rings) {
        for (std::size_t i = 0; i < ring.size(); ++i) {
            const Point a = ring[i], b = ring[(i + 1) % ring.size()];
            const double dx = b.x - a.x, dy = b.y - a.y, len2 = dx * dx + dy * dy;
            const double t = std::clamp(((p.x - a.x) * dx + (p.y - a.y) * dy) / len2, 0.0, 1.0);
            if (len2 > 0 && std::hypot(p.x - a.x - t * dx, p.y - a.y - t * dy) < margin) {
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

TEST(PathContainment, RandomPolygonsAndOvalsAgainstWindingNumbers) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> coord(0.0f, 256.0f), extent(0.5f, 260.0f);
    for (int n = 0; n < 60; ++n) {
        Path polygon;  // self-intersecting, mostly
        for (int v = 0; v < 3 + n % 12; ++v) {
            polygon.lineTo({coord(rng), coord(rng)});
        }
        if (n % 2) {
            polygon.closePath();  // open and closed outlines must test alike
        }
        expectAgreesWithBruteForce(polygon, rng, 1e-3);
        if (n % 2) {
            const Rect r = makeRect(coord(rng) - 50, coord(rng) - 50, extent(rng), extent(rng));
            expectAgreesWithBruteForce(Path::oval(r), rng, 0.01);
        }
    }
}

TEST(PathContainment, RectanglesHoldTheirHalfOpenIntegerPoints) {
    // Several rectangles in one path, so that inner edges are tested and not just the
    // outermost; the clockwise ones exercise the downward edges.
    const std::vector<Rect> sets[] = {
        {makeRect(0, 0, 256, 256)},
        {makeRect(10, 20, 5, 3), makeRect(100, 0, 10, 200), makeRect(-4, -6, 3, 9)},
        {makeRect(2.5f, 1.5f, 3, 2), makeRect(7, 7, 0, 4), makeRect(200, 5, 1, 1)},
    };
    for (const auto& rects : sets) {
        for (bool clockwise : {false, true}) {
            Path path;
            for (const Rect& r : rects) {
                const Path one = Path::rectangle(r);
                for (int i = 0; i < 4; ++i) {
                    const Point p = one.element(clockwise ? (4 - i) % 4 : i).points[0];
                    i == 0 ? path.moveTo(p) : path.lineTo(p);
                }
            }
            for (int x = -10; x <= 260; ++x) {
                for (int y = -10; y <= 260; y += (y < 30 ? 1 : 37)) {
                    bool want = false;
                    for (const Rect& r : rects) {
                        want |= r.minX() <= x && x < r.maxX() && r.minY() <= y && y < r.maxY();
                    }
                    ASSERT_EQ(path.containsPoint({float(x), float(y)}), want) << x << ", " << y;
                }
            }
        }
    }
}

TEST(PathShape, BoundsAndClosing) {
    Path arch;
    arch.moveTo({0, 0});
    arch.curveTo({10, 0}, {0, 10}, {10, 10});
    EXPECT_EQ(arch.bounds(), makeRect(0, 0, 10, 7.5f));  // the curve's extent, not its handles
    EXPECT_EQ(Path().bounds(), Rect{});
    for (const Rect& r : {makeRect(3, 4, 50, 20), makeRect(-8, 2.25f, 0.5f, 100)}) {
        const Rect o = Path::oval(r).bounds();
        EXPECT_NEAR(std::abs(o.minX() - r.minX()) + std::abs(o.maxX() - r.maxX()) +
                        std::abs(o.minY() - r.minY()) + std::abs(o.maxY() - r.maxY()),
                    0.0f, 1e-4f);
    }
    arch.lineTo({0, 10});
    EXPECT_FALSE(arch.isClosed());
    arch.closePath();
    EXPECT_TRUE(arch.isClosed());
    EXPECT_EQ(arch.currentPoint(), (Point{0, 0}));
    EXPECT_FALSE(Path::oval(Rect{}).containsPoint({0, 0}));
}

}  // namespace
}  // namespace pv
