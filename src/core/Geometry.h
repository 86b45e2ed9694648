#pragma once

// Points, sizes and rectangles in 32-bit floats, origin at the bottom left, y upwards.
namespace pv {

struct Point {
    float x = 0.0f;
    float y = 0.0f;
    friend bool operator==(const Point&, const Point&) = default;
};

struct Size {
    float width = 0.0f;
    float height = 0.0f;
    friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
    Point origin;
    Size size;

    float minX() const { return origin.x; }
    float minY() const { return origin.y; }
    float maxX() const { return origin.x + size.width; }
    float maxY() const { return origin.y + size.height; }
    // A rectangle without area is empty, whatever its origin.
    bool isEmpty() const { return !(size.width > 0.0f) || !(size.height > 0.0f); }
    friend bool operator==(const Rect&, const Rect&) = default;
};

inline Rect makeRect(float x, float y, float width, float height) {
    return Rect{{x, y}, {width, height}};
}

}  // namespace pv
