#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "analysis/PairHistogram.h"
#include "image/Bitmap.h"

namespace pv {

inline constexpr int kScatterGramSize = 256;
inline constexpr int kScatterGramBytesPerRow = 768;
inline constexpr int kScatterGramBytes = 196608;

// A new black 256 x 256 meshed 8-bit RGB bitmap, 768 bytes per row; nothing when memory is short.
std::optional<Bitmap> makeEmptyScatterGram();

// Plots one pair: at (255 - Y) * 768 + X * 3 the Y channel's sample becomes Y and the X
// channel's becomes X; the third sample is left as it is.
inline void plotPair(std::uint8_t* scatterGramData, const ChannelPair& pair, int y, int x) {
    std::uint8_t* pixel = scatterGramData + (255 - y) * kScatterGramBytesPerRow + x * 3;
    pixel[pair.y] = std::uint8_t(y);
    pixel[pair.x] = std::uint8_t(x);
}

// Gradient names for the bars y1, x1, y2, x2 of a pair.
std::array<std::string_view, 4> colorBarNames(RGBCombo combo);
// All eighteen gradient names.
const std::array<std::string_view, 18>& allColorBarNames();
// A linear ramp between the two colours the name gives ("brv-grad": black to red, vertical,
// bottom to top; "...h-grad": left to right). Meshed 8-bit RGB; nothing for an unknown name.
std::optional<Bitmap> makeColorBarGradient(std::string_view name, int width, int height);

}  // namespace pv
