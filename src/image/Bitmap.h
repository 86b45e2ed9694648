#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "core/PixelMemory.h"
#include "image/ChannelView.h"

namespace pv {

// An 8-bit-per-sample raster: either meshed (one plane, samples interleaved) or planar
// (one plane per sample). Rows run top to bottom in memory; a row of a plane is bytesPerRow
// bytes long and may be padded. Move-only: copies are explicit, because a copy of a
// 100-megapixel picture should never happen by accident.
class Bitmap {
  public:
    // Largest plane we accept: plane offsets and BitmapInfo fields are signed 32-bit.
    static constexpr std::size_t kMaxBytesPerPlane = 0x7fffffff;

    Bitmap() = default;  // the empty 0 x 0 bitmap
    Bitmap(Bitmap&&) noexcept = default;
    Bitmap& operator=(Bitmap&&) noexcept = default;
    Bitmap(const Bitmap&) = delete;
    Bitmap& operator=(const Bitmap&) = delete;

    // Allocates the pixel memory (contents undefined unless zeroed). bytesPerRow 0 means
    // unpadded rows. Answers nothing when the layout is inconsistent, too large, or memory is
    // short.
    static std::optional<Bitmap> create(int pixelsWide, int pixelsHigh, int samplesPerPixel,
                                        bool hasAlpha, bool isPlanar, int bytesPerRow = 0,
                                        bool zeroed = false);

    // A bitmap over memory already filled (or about to be): the block must hold at least the
    // layout's bytes. Nothing when the block is empty or the layout inconsistent or too large.
    static std::optional<Bitmap> adopt(PixelBlock block, int pixelsWide, int pixelsHigh,
                                       int samplesPerPixel, bool hasAlpha, bool isPlanar,
                                       int bytesPerRow = 0);
    // A bitmap of other's layout, contents undefined; nothing when memory is short.
    static std::optional<Bitmap> createLike(const Bitmap& other);
    // An independent copy with the same layout; nothing when memory is short.
    std::optional<Bitmap> copy() const;
    // Same size, samples, alpha, planes and row length: every byte of one has its place in the
    // other.
    bool hasLayoutOf(const Bitmap& other) const;

    bool isEmpty() const { return !data_; }
    int pixelsWide() const { return pixelsWide_; }
    int pixelsHigh() const { return pixelsHigh_; }
    int bitsPerSample() const { return isEmpty() ? 0 : 8; }
    int samplesPerPixel() const { return samplesPerPixel_; }
    bool hasAlpha() const { return hasAlpha_; }
    bool isPlanar() const { return isPlanar_; }
    int bytesPerRow() const { return bytesPerRow_; }
    // Meshed: bits of one whole pixel; planar: bits of one sample.
    int bitsPerPixel() const { return isEmpty() ? 0 : (isPlanar_ ? 8 : 8 * samplesPerPixel_); }
    int numberOfPlanes() const { return isEmpty() ? 0 : (isPlanar_ ? samplesPerPixel_ : 1); }
    std::size_t bytesPerPlane() const {
        return std::size_t(bytesPerRow_) * std::size_t(pixelsHigh_);
    }
    std::size_t totalBytes() const { return bytesPerPlane() * std::size_t(numberOfPlanes()); }

    std::uint8_t* plane(int k) { return data_.get() + std::size_t(k) * bytesPerPlane(); }
    const std::uint8_t* plane(int k) const {
        return data_.get() + std::size_t(k) * bytesPerPlane();
    }
    std::uint8_t* row(int k, int r) {
        return plane(k) + std::size_t(r) * std::size_t(bytesPerRow_);
    }
    const std::uint8_t* row(int k, int r) const {
        return plane(k) + std::size_t(r) * std::size_t(bytesPerRow_);
    }
    // Red, green and blue as every pixel loop reads them. A grey bitmap (one or two samples)
    // gives its first sample for all three; alpha and any further samples are not part of it.
    ChannelView channels() const;
    WritableChannelView writableChannels();
    std::uint8_t* bitmapData() { return data_.get(); }
    const std::uint8_t* bitmapData() const { return data_.get(); }

  private:
    int pixelsWide_ = 0;
    int pixelsHigh_ = 0;
    int samplesPerPixel_ = 0;
    bool hasAlpha_ = false;
    bool isPlanar_ = false;
    int bytesPerRow_ = 0;
    PixelBlock data_;
};

}  // namespace pv
