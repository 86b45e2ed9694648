#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "core/Geometry.h"
#include "image/Bitmap.h"

namespace pv {

// A picture: an immutable bitmap plus its size in points. Pictures share their bitmap, so
// handing one around is a snapshot; nothing changes a picture's pixels in place.
struct Picture {
    std::shared_ptr<const Bitmap> bitmap;
    Size size;  // in points: pixels / dpi * 72
    // Pages of the file it was read from; only the first is the picture.
    std::uint32_t pageCount = 1;
    // Of a 16-bit file, the sample value that became 255 (the scale every colour sample took).
    std::optional<std::uint32_t> sixteenBitTop = std::nullopt;
    // The file held one colour channel (grey, perhaps with alpha), copied into all three.
    bool grey = false;

    bool isEmpty() const { return !bitmap || bitmap->isEmpty(); }
    int pixelsWide() const { return bitmap ? bitmap->pixelsWide() : 0; }
    int pixelsHigh() const { return bitmap ? bitmap->pixelsHigh() : 0; }

    // A picture of the bitmap at 72 dpi (one point per pixel).
    static Picture at72dpi(std::shared_ptr<const Bitmap> b) {
        const Size s = b ? Size{float(b->pixelsWide()), float(b->pixelsHigh())} : Size{};
        return Picture{std::move(b), s, 1, std::nullopt};
    }
    static Picture at72dpi(Bitmap&& b) {
        return at72dpi(std::make_shared<const Bitmap>(std::move(b)));
    }
};

}  // namespace pv
