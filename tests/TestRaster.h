#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "image/ChannelView.h"

namespace pv::test {

enum class Layout { MeshedRGB, PaddedRGBA, Planar };

// A small raster owned by the test, copyable so that an expected copy can be painted by hand.
struct Raster {
    Layout layout;
    int w, h, spp, bytesPerRow;
    std::vector<std::vector<std::uint8_t>> planes;

    template <class View, class Planes>
    static View viewOf(const Raster& r, Planes& planes) {
        using Byte = typename View::Sample;
        std::array<std::span<Byte>, 3> channels;
        for (std::size_t k = 0; k < 3; ++k) {
            auto& plane = planes[r.layout == Layout::Planar ? k : 0];
            const std::size_t start = r.layout == Layout::Planar ? 0 : k;
            channels[k] = std::span<Byte>(plane.data() + start, plane.size() - start);
        }
        return *View::over(channels, r.layout == Layout::Planar ? 1 : r.spp, r.bytesPerRow, r.w,
                           r.h);
    }
    ChannelView view() const { return viewOf<ChannelView>(*this, planes); }
    WritableChannelView writableView() { return viewOf<WritableChannelView>(*this, planes); }

    std::uint8_t& at(int r, int c, int k) {  // memory row r, column c, channel k
        if (layout == Layout::Planar) {
            return planes[std::size_t(k)][std::size_t(r * bytesPerRow + c)];
        }
        return planes[0][std::size_t(r * bytesPerRow + c * spp + k)];
    }
};

// Every byte, padding and alpha included, comes from sample(rng).
template <class Sample>
Raster randomRaster(Layout layout, int w, int h, std::mt19937& rng, Sample sample) {
    const bool planar = layout == Layout::Planar;
    const int spp = planar ? 1 : (layout == Layout::MeshedRGB ? 3 : 4);
    const int bytesPerRow = w * spp + (layout == Layout::PaddedRGBA ? 5 : 0);
    Raster img{layout, w, h, spp, bytesPerRow, {}};
    img.planes.assign(planar ? 3 : 1, std::vector<std::uint8_t>(std::size_t(bytesPerRow * h)));
    for (auto& p : img.planes) {
        for (auto& b : p) {
            b = std::uint8_t(sample(rng));
        }
    }
    return img;
}

}  // namespace pv::test
