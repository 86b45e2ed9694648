#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>

#include "analysis/PackedRGB.h"
#include "image/Bitmap.h"
#include "image/ImageRecords.h"

namespace pv::test {

// A bitmap with the geometry record and plane pointers the analysis reads it through.
struct TestImage {
    Bitmap bitmap;
    BitmapInfo info;
    PlaneArray planes{};
    int width = 0;
    int height = 0;

    // Sample c of the pixel in stored row r, column x.
    std::uint8_t sample(int r, int x, int c) const {
        if (info.isPlanar) {
            return bitmap.row(c, r)[x];
        }
        return bitmap.row(0, r)[x * info.samplesPerPixel + c];
    }
};

using PixelSource = std::function<std::array<std::uint8_t, 3>(int row, int column)>;

// Padding and alpha bytes are filled with junk, so reading them would show.
inline TestImage makeImage(int width, int height, int samplesPerPixel, bool planar, int bytesPerRow,
                           const PixelSource& source) {
    TestImage t;
    t.width = width;
    t.height = height;
    t.bitmap =
        *Bitmap::create(width, height, samplesPerPixel, samplesPerPixel == 4, planar, bytesPerRow);
    std::fill(t.bitmap.bitmapData(), t.bitmap.bitmapData() + t.bitmap.totalBytes(), 0xA5);
    for (int r = 0; r < height; ++r) {
        for (int x = 0; x < width; ++x) {
            const auto rgb = source(r, x);
            for (int c = 0; c < 3; ++c) {
                if (planar) {
                    t.bitmap.row(c, r)[x] = rgb[std::size_t(c)];
                } else {
                    t.bitmap.row(0, r)[x * samplesPerPixel + c] = rgb[std::size_t(c)];
                }
            }
        }
    }
    t.info.bytesPerRow = t.bitmap.bytesPerRow();
    t.info.samplesPerPixel = samplesPerPixel;
    t.info.bitsPerPixel = t.bitmap.bitsPerPixel();
    t.info.bytesPerPlane = std::int32_t(t.bitmap.bytesPerPlane());
    t.info.numberOfPlanes = t.bitmap.numberOfPlanes();
    t.info.isPlanar = planar ? 1 : 0;
    t.info.width = float(width);
    t.info.height = float(height);
    t.planes = t.bitmap.planes();
    return t;
}

// Channels are often exactly 0 so that every census class occurs.
inline PixelSource randomPixels(unsigned seed) {
    auto rng = std::make_shared<std::mt19937>(seed);
    return [rng](int, int) {
        std::array<std::uint8_t, 3> rgb{};
        for (auto& s : rgb) {
            const unsigned v = (*rng)() % 512;
            s = v < 200 ? 0 : std::uint8_t(v % 256);
        }
        return rgb;
    };
}

inline PixelSource uniformPixels(std::array<std::uint8_t, 3> rgb) {
    return [rgb](int, int) { return rgb; };
}

}  // namespace pv::test
