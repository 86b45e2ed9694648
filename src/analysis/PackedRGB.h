#pragma once

#include <cstdint>

#include "core/Geometry.h"
#include "image/Bitmap.h"
#include "image/ImageRecords.h"

namespace pv {

// One pixel: red in bits 16-23, green in bits 8-15, blue in bits 0-7.
using PackedRGB = std::uint32_t;

constexpr PackedRGB packRGB(std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
    return PackedRGB(red) * 65536u + PackedRGB(green) * 256u + PackedRGB(blue);
}
constexpr std::uint8_t redOf(PackedRGB v) {
    return std::uint8_t((v >> 16) & 0xff);
}
constexpr std::uint8_t greenOf(PackedRGB v) {
    return std::uint8_t((v >> 8) & 0xff);
}
constexpr std::uint8_t blueOf(PackedRGB v) {
    return std::uint8_t(v & 0xff);
}
// Sample of channel 0 red, 1 green, 2 blue.
constexpr std::uint8_t channelOf(PackedRGB v, int channel) {
    return std::uint8_t((v >> (8 * (2 - channel))) & 0xff);
}

// The two channels an analysis compares, as channel indices (0 red, 1 green, 2 blue); the third
// is the one the sums ignore.
struct ChannelPair {
    int y;
    int x;
    int third;
};

// Values outside 0..5 act as 0.
constexpr int normalizedRGBCombo(int rgbCombo) {
    return rgbCombo >= 0 && rgbCombo <= 5 ? rgbCombo : 0;
}

constexpr ChannelPair channelPairFor(int rgbCombo) {
    constexpr ChannelPair pairs[6] = {{0, 1, 2}, {0, 2, 1}, {1, 0, 2},
                                      {1, 2, 0}, {2, 0, 1}, {2, 1, 0}};
    return pairs[normalizedRGBCombo(rgbCombo)];
}

// The channel popup has separators at items 2 and 5.
constexpr int rgbComboForPopupIndex(int index) {
    switch (index) {
        case 1:
            return 1;
        case 3:
            return 2;
        case 4:
            return 3;
        case 6:
            return 4;
        case 7:
            return 5;
        default:
            return 0;
    }
}

// The one pixel-addressing rule: column trunc(x), memory row trunc(height) - trunc(y) - 1. The
// offset is of the pixel's first sample in plane 0 (meshed) or of its sample in each plane
// (planar). No bounds check: callers pass points inside the picture.
inline long pixelOffset(const BitmapInfo& info, Point p) {
    const long c = long(p.x);
    const long r = long(info.height) - long(p.y) - 1;
    return r * info.bytesPerRow + (info.isPlanar == 0 ? c * info.samplesPerPixel : c);
}

inline PackedRGB getPixelColorValues(const BitmapInfo& info, const PlaneArray& planes, Point p) {
    const long o = pixelOffset(info, p);
    if (info.isPlanar == 0) {
        return packRGB(planes[0][o], planes[0][o + 1], planes[0][o + 2]);
    }
    return packRGB(planes[0][o], planes[1][o], planes[2][o]);
}

}  // namespace pv
