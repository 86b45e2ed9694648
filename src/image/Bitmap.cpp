#include "image/Bitmap.h"

#include <cstring>
#include <new>

namespace pv {

std::optional<Bitmap> Bitmap::create(int pixelsWide, int pixelsHigh, int samplesPerPixel,
                                     bool hasAlpha, bool isPlanar, int bytesPerRow, bool zeroed) {
    if (pixelsWide <= 0 || pixelsHigh <= 0 || samplesPerPixel < 1 || samplesPerPixel > 5) {
        return std::nullopt;
    }
    const std::size_t rowSamples = isPlanar ? 1 : std::size_t(samplesPerPixel);
    const std::size_t minRow = std::size_t(pixelsWide) * rowSamples;
    if (minRow > kMaxBytesPerPlane) {
        return std::nullopt;
    }
    const std::size_t row = bytesPerRow == 0 ? minRow : std::size_t(bytesPerRow);
    if (bytesPerRow < 0 || row < minRow || row * std::size_t(pixelsHigh) > kMaxBytesPerPlane) {
        return std::nullopt;
    }
    const std::size_t planes = isPlanar ? std::size_t(samplesPerPixel) : 1;
    const std::size_t total = row * std::size_t(pixelsHigh) * planes;
    Bitmap b;
    b.data_.reset(zeroed ? new (std::nothrow) std::uint8_t[total]()
                         : new (std::nothrow) std::uint8_t[total]);
    if (!b.data_) {
        return std::nullopt;
    }
    b.pixelsWide_ = pixelsWide;
    b.pixelsHigh_ = pixelsHigh;
    b.samplesPerPixel_ = samplesPerPixel;
    b.hasAlpha_ = hasAlpha;
    b.isPlanar_ = isPlanar;
    b.bytesPerRow_ = int(row);
    return b;
}

std::optional<Bitmap> Bitmap::copy() const {
    if (isEmpty()) {
        return Bitmap();
    }
    auto b = create(pixelsWide_, pixelsHigh_, samplesPerPixel_, hasAlpha_, isPlanar_, bytesPerRow_);
    if (b) {
        std::memcpy(b->data_.get(), data_.get(), totalBytes());
    }
    return b;
}

PlaneArray Bitmap::planes() {
    PlaneArray p{};
    for (int k = 0; k < numberOfPlanes() && k < 5; ++k) {
        p[std::size_t(k)] = plane(k);
    }
    return p;
}

}  // namespace pv
