#pragma once

namespace pv {

// An RGBA colour, components 0 to 1.
struct Color {
    float red = 0.0f;
    float green = 0.0f;
    float blue = 0.0f;
    float alpha = 1.0f;

    Color withAlpha(float a) const { return Color{red, green, blue, a}; }
    friend bool operator==(const Color&, const Color&) = default;
};

}  // namespace pv
