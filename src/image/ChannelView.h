#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>

namespace pv {

// Where the red, green and blue samples of a raster lie: for each channel the address of the
// top-left pixel's sample, the distance between neighbouring pixels and between rows (rows run
// top to bottom). Every loop over pixels takes one of these instead of a bitmap's layout, so
// meshed, planar, grey and borrowed rasters all look alike to it. The factories check the
// geometry once; nothing reading through a view needs to check again.
template <class Byte>
struct BasicChannelView {
    using Sample = Byte;

    std::array<Byte*, 3> channel{};
    std::ptrdiff_t pixelStride = 0;
    std::ptrdiff_t rowStride = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;

    bool isEmpty() const { return width <= 0 || height <= 0; }
    // Sample of channel k (0 red, 1 green, 2 blue) in memory row r, column c.
    Byte* sample(int k, std::int64_t r, std::int64_t c) const {
        return channel[std::size_t(k)] + r * rowStride + c * pixelStride;
    }
    // The three channels are the first three bytes of one run of pixelStride-byte pixels.
    bool isMeshedRGB() const {
        return pixelStride >= 3 && channel[1] == channel[0] + 1 && channel[2] == channel[0] + 2;
    }

    // A view over memory the caller owns: each channel's span starts at its top-left sample and
    // runs to the end of the memory that channel may be read from. Refused when a row would not
    // hold its pixels, a stride is not positive, or a channel's last sample lies past its span.
    static std::optional<BasicChannelView> over(const std::array<std::span<Byte>, 3>& channels,
                                                std::ptrdiff_t pixelStride,
                                                std::ptrdiff_t rowStride, std::int64_t width,
                                                std::int64_t height) {
        if (width == 0 || height == 0) {
            return BasicChannelView{};
        }
        if (width < 0 || height < 0 || pixelStride <= 0 || rowStride <= 0 ||
            (width - 1) > (rowStride - 1) / pixelStride) {
            return std::nullopt;
        }
        const std::uint64_t rows = std::uint64_t(height - 1);
        if (rows >
            std::uint64_t(std::numeric_limits<std::ptrdiff_t>::max()) / std::uint64_t(rowStride)) {
            return std::nullopt;
        }
        const std::uint64_t last =
            rows * std::uint64_t(rowStride) + std::uint64_t(width - 1) * std::uint64_t(pixelStride);
        BasicChannelView v{{}, pixelStride, rowStride, width, height};
        for (std::size_t k = 0; k < 3; ++k) {
            if (channels[k].data() == nullptr || last >= channels[k].size()) {
                return std::nullopt;
            }
            v.channel[k] = channels[k].data();
        }
        return v;
    }
};

using ChannelView = BasicChannelView<const std::uint8_t>;
using WritableChannelView = BasicChannelView<std::uint8_t>;

// Which pixels of a picture are analysed: those whose byte here is not 0. One byte a pixel,
// rows rowStride apart, width x height; no data means every pixel.
struct MaskView {
    const std::uint8_t* data = nullptr;
    std::ptrdiff_t rowStride = 0;
    std::int64_t width = 0;
    std::int64_t height = 0;

    bool isWhole() const { return data == nullptr; }
    // Whether every pixel of the view has its byte here: a mask of another size would be read
    // past its end, or against the wrong pixels.
    template <class Byte>
    bool fits(const BasicChannelView<Byte>& view) const {
        return isWhole() || (width == view.width && height == view.height && rowStride >= width);
    }
};

}  // namespace pv

namespace pv {

// Row r of the view as red, green, blue triples: 3 * width bytes at out.
void copyRGBRow(const ChannelView& view, std::int64_t r, std::uint8_t* out);
// Row r of one channel as width bytes at out.
void copyChannelRow(const ChannelView& view, int channel, std::int64_t r, std::uint8_t* out);

}  // namespace pv
