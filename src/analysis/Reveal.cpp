#include "analysis/Reveal.h"

#include <array>
#include <cstring>
#include <memory>
#include <new>

namespace pv {

namespace {

// Everything a pixel's fate depends on, as tables, so that every pixel goes through the same
// arithmetic: a branch on "selected?" mispredicts at every edge of a revealed area.
struct Painter {
    // Each channel's share of a pixel's bin (the pair's Y shifted, X, the third's state), so
    // that the bin comes from the samples in memory order whatever the pair.
    std::array<std::array<std::uint32_t, 256>, 3> binShare{};
    // Red's and green's shares together, indexed by the two bytes as one 16-bit load reads
    // them: a lookup less for each meshed pixel.
    std::array<std::uint32_t, 65536> redGreenShare{};
    // Per bin: 1 where the pixel takes the colour, 0 where it keeps its own.
    std::array<std::uint8_t, PairHistogram::kBins> painted{};
    std::array<std::uint8_t, 3> colour{};
    // The colour, and all ones, over a pixel's first three bytes as one word reads them.
    std::uint32_t colourWord = 0;
    std::uint32_t colourBytes = 0;

    // All ones where the pixel takes the colour, else 0.
    std::uint32_t maskOf(std::uint8_t red, std::uint8_t green, std::uint8_t blue) const {
        return 0u - painted[binShare[0][red] | binShare[1][green] | binShare[2][blue]];
    }
    std::uint32_t maskOf(const std::uint8_t* rgb) const {
        std::uint16_t redGreen;
        std::memcpy(&redGreen, rgb, sizeof redGreen);
        return 0u - painted[redGreenShare[redGreen] | binShare[2][rgb[2]]];
    }
};

std::uint32_t wordOf(std::uint8_t a, std::uint8_t b, std::uint8_t c) {
    const std::uint8_t bytes[4] = {a, b, c, 0};
    std::uint32_t w;
    std::memcpy(&w, bytes, sizeof w);
    return w;
}

std::unique_ptr<Painter> painterFor(RGBCombo combo, const MinimumLevels& levels,
                                    const RegionSelection& selection, const RevealColour& colour) {
    std::unique_ptr<Painter> p(new (std::nothrow) Painter);
    if (!p) {
        return p;
    }
    const ChannelPair pair = channelPairFor(combo);
    p->binShare[std::size_t(pair.third)] = thirdStateBinOffsets(combo, levels);
    for (std::uint32_t v = 0; v < 256; ++v) {
        p->binShare[std::size_t(pair.y)][v] = v << 8;
        p->binShare[std::size_t(pair.x)][v] = v;
    }
    for (std::uint32_t r = 0; r < 256; ++r) {
        for (std::uint32_t g = 0; g < 256; ++g) {
            const std::uint8_t bytes[2] = {std::uint8_t(r), std::uint8_t(g)};
            std::uint16_t at;
            std::memcpy(&at, bytes, sizeof at);
            p->redGreenShare[at] = p->binShare[0][r] | p->binShare[1][g];
        }
    }
    // A selection of the wrong size selects nothing.
    if (selection.bins.size() == p->painted.size()) {
        for (std::size_t i = 0; i < p->painted.size(); ++i) {
            p->painted[i] = selection.bins[i] != 0 ? 1 : 0;
        }
    }
    p->colour = {colour.redRevealPixelValue, colour.greenRevealPixelValue,
                 colour.blueRevealPixelValue};
    p->colourWord = wordOf(p->colour[0], p->colour[1], p->colour[2]);
    p->colourBytes = wordOf(0xFF, 0xFF, 0xFF);
    return p;
}

// The sample where mask is 0, the colour where it is all ones.
inline std::uint8_t blend(std::uint8_t sample, std::uint8_t colour, std::uint32_t mask) {
    return std::uint8_t(sample ^ ((sample ^ colour) & mask));
}

// The three colour samples of n pixels kStep bytes apart (each its own in memory, or in grey
// all one), written from `in` to `out`. In grey the blue colour is written last and stays.
template <std::ptrdiff_t kStep>
void paintSamples(const Painter& p, const std::array<const std::uint8_t*, 3>& in,
                  const std::array<std::uint8_t*, 3>& out, std::ptrdiff_t step, std::int64_t n) {
    const std::ptrdiff_t s = kStep > 0 ? kStep : step;
    const std::array<std::uint8_t, 3> colour = p.colour;
    for (std::int64_t c = 0; c < n; ++c) {
        const std::ptrdiff_t at = c * s;
        const std::uint8_t v[3] = {in[0][at], in[1][at], in[2][at]};
        const std::uint32_t m = p.maskOf(v[0], v[1], v[2]);
        for (std::size_t k = 0; k < 3; ++k) {
            out[k][at] = blend(v[k], colour[k], m);
        }
    }
}

// A meshed row of kStep-byte pixels, colours first: every byte of its pixels is written. Each
// pixel is read and written as one four-byte word; with three-byte pixels the fourth byte is
// the next pixel's, written unpainted and then over by that pixel, so the last pixel, whose
// fourth byte is not the row's, goes sample by sample.
template <int kStep>
void paintMeshedRow(const Painter& p, const std::uint8_t* in, std::uint8_t* out,
                    std::int64_t columns) {
    static_assert(kStep == 3 || kStep == 4);
    const std::int64_t words = kStep == 4 ? columns : columns - 1;
    const std::uint32_t colourWord = p.colourWord;
    const std::uint32_t colourBytes = p.colourBytes;
    const auto paint = [&](std::int64_t c) {
        const std::uint8_t* from = in + c * kStep;
        std::uint32_t w;
        std::memcpy(&w, from, sizeof w);
        w ^= (w ^ colourWord) & p.maskOf(from) & colourBytes;
        std::memcpy(out + c * kStep, &w, sizeof w);
    };
    // Two pixels a turn keep more lookups in flight.
    std::int64_t c = 0;
    for (; c + 2 <= words; c += 2) {
        paint(c);
        paint(c + 1);
    }
    for (; c < words; ++c) {
        paint(c);
    }
    if constexpr (kStep == 3) {
        const std::uint8_t* from = in + words * kStep;
        std::uint8_t* to = out + words * kStep;
        paintSamples<3>(p, {from, from + 1, from + 2}, {to, to + 1, to + 2}, 3, 1);
    }
}

// Any other layout: the colour samples of row r wherever they lie.
void paintChannelsRow(const Painter& p, const ChannelView& in, const WritableChannelView& out,
                      std::int64_t r) {
    const std::array<const std::uint8_t*, 3> from = {in.sample(0, r, 0), in.sample(1, r, 0),
                                                     in.sample(2, r, 0)};
    const std::array<std::uint8_t*, 3> to = {out.sample(0, r, 0), out.sample(1, r, 0),
                                             out.sample(2, r, 0)};
    if (in.pixelStride == 1) {
        paintSamples<1>(p, from, to, 1, in.width);
    } else {
        paintSamples<0>(p, from, to, in.pixelStride, in.width);
    }
}

}  // namespace

bool paintReveal(const Bitmap& source, Bitmap& target, RGBCombo combo, const MinimumLevels& levels,
                 const RegionSelection& selection, const RevealColour& colour, unsigned threads,
                 const CancelHook& cancel, const MaskView& mask) {
    if (!target.hasLayoutOf(source) || !mask.fits(source.channels())) {
        return false;
    }
    if (source.isEmpty()) {
        return true;
    }
    const std::unique_ptr<Painter> painter = painterFor(combo, levels, selection, colour);
    if (!painter) {
        return false;
    }
    const ChannelView from = source.channels();
    const WritableChannelView to = target.writableChannels();
    const int step = source.isPlanar() ? 1 : source.samplesPerPixel();
    const std::size_t pixelBytes = std::size_t(source.pixelsWide()) * std::size_t(step);
    const std::size_t rowBytes = std::size_t(source.bytesPerRow());
    // Planes whose pixel bytes the painting writes, every one, need only their padding copied;
    // the others (alpha planes, meshed pixels of 2 or 5 samples) are copied whole, then painted.
    const int planes = source.numberOfPlanes();
    const bool pixelsWhole = step == 1 || step == 3 || step == 4;
    std::array<std::size_t, 5> copiedFrom{};
    for (int k = 0; k < planes; ++k) {
        const bool painted = k == 0 || (k < 3 && source.samplesPerPixel() >= 3);
        copiedFrom[std::size_t(k)] = painted && pixelsWhole ? pixelBytes : 0;
    }
    return forEachRowBlock(
        from.height, workersFor(from.height, from.width, threads),
        [&](unsigned, std::int64_t begin, std::int64_t end) {
            for (std::int64_t r = begin; r < end; ++r) {
                for (int k = 0; k < planes; ++k) {
                    const std::size_t f = copiedFrom[std::size_t(k)];
                    std::memcpy(target.row(k, int(r)) + f, source.row(k, int(r)) + f, rowBytes - f);
                }
                if (step == 3) {
                    paintMeshedRow<3>(*painter, source.row(0, int(r)), target.row(0, int(r)),
                                      from.width);
                } else if (step == 4) {
                    paintMeshedRow<4>(*painter, source.row(0, int(r)), target.row(0, int(r)),
                                      from.width);
                } else {
                    paintChannelsRow(*painter, from, to, r);
                }
                if (!mask.isWhole()) {
                    // Outside the mask nothing is analysed, so nothing is revealed: the painting
                    // is undone there rather than slowing every unmasked reveal.
                    const std::uint8_t* inside = mask.data + r * mask.rowStride;
                    for (std::int64_t c = 0; c < from.width; ++c) {
                        if (inside[c] == 0) {
                            for (int k = 0; k < 3; ++k) {
                                *to.sample(k, r, c) = *from.sample(k, r, c);
                            }
                        }
                    }
                }
            }
        },
        cancel);
}

}  // namespace pv
