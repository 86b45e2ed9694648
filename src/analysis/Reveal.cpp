#include "analysis/Reveal.h"

#include <array>
#include <cstring>

namespace pv {

namespace {

// Where a reveal reads a pixel's pair and writes its colour, for every layout alike.
struct Painter {
    const std::uint8_t* y = nullptr;
    const std::uint8_t* x = nullptr;
    const std::uint8_t* third = nullptr;
    std::array<std::uint8_t*, 3> out{};
    std::ptrdiff_t sourceRowStride = 0;
    std::ptrdiff_t targetRowStride = 0;
    std::int64_t columns = 0;
    std::array<std::uint32_t, 256> thirdOffsets{};
    const std::uint8_t* selected = nullptr;
    std::uint8_t colour[3] = {};
};

template <std::ptrdiff_t kStep>
void paintRows(const Painter& p, std::ptrdiff_t step, std::ptrdiff_t targetStep, std::int64_t begin,
               std::int64_t end) {
    const std::ptrdiff_t s = kStep > 0 ? kStep : step;
    for (std::int64_t r = begin; r < end; ++r) {
        const std::uint8_t* y = p.y + r * p.sourceRowStride;
        const std::uint8_t* x = p.x + r * p.sourceRowStride;
        const std::uint8_t* t = p.third + r * p.sourceRowStride;
        std::uint8_t* red = p.out[0] + r * p.targetRowStride;
        std::uint8_t* green = p.out[1] + r * p.targetRowStride;
        std::uint8_t* blue = p.out[2] + r * p.targetRowStride;
        for (std::int64_t c = 0; c < p.columns; ++c) {
            const std::ptrdiff_t o = c * s;
            const std::uint32_t bin =
                p.thirdOffsets[t[o]] | std::uint32_t(y[o]) << 8 | std::uint32_t(x[o]);
            if (p.selected[bin] != 0) {
                const std::ptrdiff_t w = c * targetStep;
                red[w] = p.colour[0];
                green[w] = p.colour[1];
                blue[w] = p.colour[2];
            }
        }
    }
}

void paintBlock(const Painter& p, std::ptrdiff_t step, std::ptrdiff_t targetStep,
                std::int64_t begin, std::int64_t end) {
    switch (step) {
        case 1:
            paintRows<1>(p, step, targetStep, begin, end);
            break;
        case 3:
            paintRows<3>(p, step, targetStep, begin, end);
            break;
        case 4:
            paintRows<4>(p, step, targetStep, begin, end);
            break;
        default:
            paintRows<0>(p, step, targetStep, begin, end);
            break;
    }
}

Painter painterFor(const ChannelView& source, const WritableChannelView& target, RGBCombo combo,
                   const MinimumLevels& levels, const RegionSelection& selection,
                   const RevealColour& colour) {
    const ChannelPair pair = channelPairFor(combo);
    Painter p;
    p.y = source.channel[std::size_t(pair.y)];
    p.x = source.channel[std::size_t(pair.x)];
    p.third = source.channel[std::size_t(pair.third)];
    p.out = target.channel;
    p.sourceRowStride = source.rowStride;
    p.targetRowStride = target.rowStride;
    p.columns = source.width;
    p.thirdOffsets = thirdStateBinOffsets(combo, levels);
    p.selected = selection.bins.data();
    p.colour[0] = colour.redRevealPixelValue;
    p.colour[1] = colour.greenRevealPixelValue;
    p.colour[2] = colour.blueRevealPixelValue;
    return p;
}

bool usable(const ChannelView& source, const WritableChannelView& target,
            const RegionSelection& selection) {
    return !source.isEmpty() && target.width == source.width && target.height == source.height &&
           selection.bins.size() == std::size_t(PairHistogram::kBins);
}

}  // namespace

bool revealPixels(const ChannelView& source, const WritableChannelView& target, RGBCombo combo,
                  const MinimumLevels& levels, const RegionSelection& selection,
                  const RevealColour& colour, unsigned threads, const CancelHook& cancel) {
    if (!usable(source, target, selection)) {
        return true;
    }
    const Painter p = painterFor(source, target, combo, levels, selection, colour);
    return forEachRowBlock(
        source.height, workersFor(source.height, source.width, threads),
        [&](unsigned, std::int64_t begin, std::int64_t end) {
            paintBlock(p, source.pixelStride, target.pixelStride, begin, end);
        },
        cancel);
}

std::optional<Bitmap> revealedCopy(const Bitmap& source, RGBCombo combo,
                                   const MinimumLevels& levels, const RegionSelection& selection,
                                   const RevealColour& colour, unsigned threads,
                                   const CancelHook& cancel) {
    if (source.isEmpty()) {
        return Bitmap();
    }
    std::optional<Bitmap> target =
        Bitmap::create(source.pixelsWide(), source.pixelsHigh(), source.samplesPerPixel(),
                       source.hasAlpha(), source.isPlanar(), source.bytesPerRow());
    if (!target) {
        return std::nullopt;
    }
    const ChannelView from = source.channels();
    const WritableChannelView to = target->writableChannels();
    const bool paint = usable(from, to, selection);
    const Painter p = painterFor(from, to, combo, levels, selection, colour);
    const int planes = source.numberOfPlanes();
    const std::size_t rowBytes = std::size_t(source.bytesPerRow());
    // Each block is copied (every plane, padding included) just before it is painted, so a
    // fresh copy costs one trip through memory instead of two.
    const bool finished = forEachRowBlock(
        from.height, workersFor(from.height, from.width, threads),
        [&](unsigned, std::int64_t begin, std::int64_t end) {
            for (int k = 0; k < planes; ++k) {
                std::memcpy(target->row(k, int(begin)), source.row(k, int(begin)),
                            rowBytes * std::size_t(end - begin));
            }
            if (paint) {
                paintBlock(p, from.pixelStride, to.pixelStride, begin, end);
            }
        },
        cancel);
    if (!finished) {
        return std::nullopt;
    }
    return target;
}

}  // namespace pv
