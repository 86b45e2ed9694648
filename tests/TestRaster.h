#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "image/Bitmap.h"
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

// The layouts a bitmap can have, for loops that handle each one their own way.
struct BitmapLayout {
    const char* name;
    int samples;
    bool alpha;
    bool planar;
    int padding;  // bytes after each row's pixels
};
inline constexpr BitmapLayout kBitmapLayouts[] = {
    {"meshed RGB", 3, false, false, 0},         {"meshed RGB, padded", 3, false, false, 5},
    {"meshed RGBA, padded", 4, true, false, 3}, {"five samples", 5, false, false, 0},
    {"planar RGB", 3, false, true, 0},          {"planar RGBA, padded", 4, true, true, 2},
    {"grey, padded", 1, false, false, 3},       {"grey and alpha", 2, true, false, 0},
    {"planar grey and alpha", 2, true, true, 1}};

// Every byte, padding and alpha included, comes from sample(rng).
template <class Sample>
Bitmap randomBitmap(const BitmapLayout& l, int w, int h, std::mt19937& rng, Sample sample) {
    const int rowBytes = w * (l.planar ? 1 : l.samples) + l.padding;
    Bitmap b = *Bitmap::create(w, h, l.samples, l.alpha, l.planar, rowBytes);
    for (std::size_t i = 0; i < b.totalBytes(); ++i) {
        b.bitmapData()[i] = std::uint8_t(sample(rng));
    }
    return b;
}

// Where channel k (0 red, 1 green, 2 blue) of pixel (r, c) lies, from the layout alone: a grey
// bitmap's one sample stands for all three.
inline std::size_t sampleOffset(const Bitmap& b, int r, int c, int k) {
    const std::size_t sample = b.samplesPerPixel() >= 3 ? std::size_t(k) : 0;
    const std::size_t row = std::size_t(r) * std::size_t(b.bytesPerRow());
    if (b.isPlanar()) {
        return sample * b.bytesPerPlane() + row + std::size_t(c);
    }
    return row + std::size_t(c) * std::size_t(b.samplesPerPixel()) + sample;
}

inline std::vector<std::uint8_t> bytesOf(const Bitmap& b) {
    return std::vector<std::uint8_t>(b.bitmapData(), b.bitmapData() + b.totalBytes());
}

}  // namespace pv::test
