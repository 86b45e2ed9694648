#pragma once

#include <cstdint>
#include <random>
#include <vector>

#include "image/Bitmap.h"
#include "image/ImageRecords.h"

namespace pv::test {

enum class Layout { MeshedRGB, PaddedRGBA, Planar };

// A small bitmap owned by the test, with the geometry record the engine reads it through.
struct Raster {
    Layout layout;
    int w, h, spp, bytesPerRow;
    std::vector<std::vector<std::uint8_t>> planes;
    BitmapInfo info;

    PlaneArray planeArray() {
        PlaneArray p{};
        for (std::size_t k = 0; k < planes.size(); ++k) {
            p[k] = planes[k].data();
        }
        return p;
    }
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
    Raster img{layout, w, h, spp, bytesPerRow, {}, {}};
    img.planes.assign(planar ? 3 : 1, std::vector<std::uint8_t>(std::size_t(bytesPerRow * h)));
    for (auto& p : img.planes) {
        for (auto& b : p) {
            b = std::uint8_t(sample(rng));
        }
    }
    img.info = BitmapInfo{bytesPerRow,    planar ? 3 : spp, 8 * spp,  bytesPerRow * h,
                          planar ? 3 : 1, planar,           float(h), float(w)};
    return img;
}

}  // namespace pv::test
