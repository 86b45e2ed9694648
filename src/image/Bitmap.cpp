#include "image/Bitmap.h"

#include <cstring>
#include <new>

namespace pv {

namespace {

// Bytes of one plane of the layout; 0 when it is inconsistent or larger than a plane may be.
std::size_t planeBytesOf(int pixelsWide, int pixelsHigh, int samplesPerPixel, bool isPlanar,
                         int bytesPerRow) {
    if (pixelsWide <= 0 || pixelsHigh <= 0 || samplesPerPixel < 1 || samplesPerPixel > 5) {
        return 0;
    }
    const std::size_t rowSamples = isPlanar ? 1 : std::size_t(samplesPerPixel);
    const std::size_t minRow = std::size_t(pixelsWide) * rowSamples;
    if (minRow > Bitmap::kMaxBytesPerPlane) {
        return 0;
    }
    const std::size_t row = bytesPerRow == 0 ? minRow : std::size_t(bytesPerRow);
    if (bytesPerRow < 0 || row < minRow ||
        row * std::size_t(pixelsHigh) > Bitmap::kMaxBytesPerPlane) {
        return 0;
    }
    return row * std::size_t(pixelsHigh);
}

}  // namespace

std::optional<Bitmap> Bitmap::create(int pixelsWide, int pixelsHigh, int samplesPerPixel,
                                     bool hasAlpha, bool isPlanar, int bytesPerRow, bool zeroed) {
    const std::size_t planeBytes =
        planeBytesOf(pixelsWide, pixelsHigh, samplesPerPixel, isPlanar, bytesPerRow);
    if (planeBytes == 0) {
        return std::nullopt;
    }
    const std::size_t planes = isPlanar ? std::size_t(samplesPerPixel) : 1;
    return adopt(PixelBlock::allocate(planeBytes * planes, zeroed), pixelsWide, pixelsHigh,
                 samplesPerPixel, hasAlpha, isPlanar, bytesPerRow);
}

std::optional<Bitmap> Bitmap::adopt(PixelBlock block, int pixelsWide, int pixelsHigh,
                                    int samplesPerPixel, bool hasAlpha, bool isPlanar,
                                    int bytesPerRow) {
    const std::size_t planeBytes =
        planeBytesOf(pixelsWide, pixelsHigh, samplesPerPixel, isPlanar, bytesPerRow);
    const std::size_t planes = isPlanar ? std::size_t(samplesPerPixel) : 1;
    if (planeBytes == 0 || !block || block.size() / planes < planeBytes) {
        return std::nullopt;
    }
    Bitmap b;
    b.pixelsWide_ = pixelsWide;
    b.pixelsHigh_ = pixelsHigh;
    b.samplesPerPixel_ = samplesPerPixel;
    b.hasAlpha_ = hasAlpha;
    b.isPlanar_ = isPlanar;
    b.bytesPerRow_ = int(planeBytes / std::size_t(pixelsHigh));
    b.data_ = std::move(block);
    return b;
}

std::optional<Bitmap> Bitmap::createLike(const Bitmap& other) {
    if (other.isEmpty()) {
        return Bitmap();
    }
    return create(other.pixelsWide_, other.pixelsHigh_, other.samplesPerPixel_, other.hasAlpha_,
                  other.isPlanar_, other.bytesPerRow_);
}

std::optional<Bitmap> Bitmap::copy() const {
    auto b = createLike(*this);
    if (b && !isEmpty()) {
        std::memcpy(b->data_.get(), data_.get(), totalBytes());
    }
    return b;
}

bool Bitmap::hasLayoutOf(const Bitmap& other) const {
    return isEmpty() == other.isEmpty() && pixelsWide_ == other.pixelsWide_ &&
           pixelsHigh_ == other.pixelsHigh_ && samplesPerPixel_ == other.samplesPerPixel_ &&
           hasAlpha_ == other.hasAlpha_ && isPlanar_ == other.isPlanar_ &&
           bytesPerRow_ == other.bytesPerRow_;
}

namespace {

template <class View, class Byte>
View channelsOf(const Bitmap& b, Byte* data) {
    if (b.isEmpty()) {
        return View{};
    }
    std::array<std::span<Byte>, 3> channels;
    const std::size_t planeBytes = b.bytesPerPlane();
    for (int k = 0; k < 3; ++k) {
        const int sample = b.samplesPerPixel() >= 3 ? k : 0;
        const std::size_t start =
            b.isPlanar() ? std::size_t(sample) * planeBytes : std::size_t(sample);
        const std::size_t end = b.isPlanar() ? start + planeBytes : planeBytes;
        channels[std::size_t(k)] = std::span<Byte>(data + start, end - start);
    }
    // A bitmap's own layout always passes; the check is what makes a view trustworthy.
    const auto view = View::over(channels, b.isPlanar() ? 1 : b.samplesPerPixel(), b.bytesPerRow(),
                                 b.pixelsWide(), b.pixelsHigh());
    return view ? *view : View{};
}

}  // namespace

ChannelView Bitmap::channels() const {
    return channelsOf<ChannelView>(*this, static_cast<const std::uint8_t*>(data_.get()));
}

WritableChannelView Bitmap::writableChannels() {
    return channelsOf<WritableChannelView>(*this, data_.get());
}

}  // namespace pv
