#include "image/ChannelView.h"

#include <cstring>

namespace pv {

void copyRGBRow(const ChannelView& view, std::int64_t r, std::uint8_t* out) {
    const std::int64_t w = view.width;
    if (view.pixelStride == 3 && view.isMeshedRGB()) {
        std::memcpy(out, view.sample(0, r, 0), std::size_t(w) * 3);
        return;
    }
    const std::uint8_t* p0 = view.sample(0, r, 0);
    const std::uint8_t* p1 = view.sample(1, r, 0);
    const std::uint8_t* p2 = view.sample(2, r, 0);
    const std::ptrdiff_t step = view.pixelStride;
    for (std::int64_t x = 0; x < w; ++x, out += 3) {
        out[0] = p0[x * step];
        out[1] = p1[x * step];
        out[2] = p2[x * step];
    }
}

void copyChannelRow(const ChannelView& view, int channel, std::int64_t r, std::uint8_t* out) {
    const std::uint8_t* p = view.sample(channel, r, 0);
    if (view.pixelStride == 1) {
        std::memcpy(out, p, std::size_t(view.width));
        return;
    }
    for (std::int64_t x = 0; x < view.width; ++x) {
        out[x] = p[x * view.pixelStride];
    }
}

}  // namespace pv
