#include "image/ChannelFiles.h"

#include <algorithm>
#include <array>

#include "core/Localization.h"

namespace pv {

namespace {

std::string sizeText(const Picture& p) {
    return std::to_string(p.pixelsWide()) + " x " + std::to_string(p.pixelsHigh());
}

// The sample of the source's channel, from a decoded picture (whose grey is in all three).
std::optional<Error> checkChannel(const ChannelSource& source, const Picture& picture) {
    if (source.channel && (*source.channel < 0 || *source.channel > 2)) {
        return Error{source.path, tr("a picture has channels 1 to 3 (red, green, blue)")};
    }
    if (!picture.grey && !source.channel) {
        return Error{source.path, tr("this is a colour picture: name the channel to take from it")};
    }
    return std::nullopt;
}

}  // namespace

Result<Picture> readChannelPair(const ChannelSource& y, const ChannelSource& x, ChannelPlaces into,
                                const ReadOptions& options) {
    const auto onPage = [&](const ChannelSource& source) {
        ReadOptions o = options;
        o.page = source.page;
        return o;
    };
    std::array<Result<Picture>, 2> read = {readImageFile(y.path, onPage(y)),
                                           readImageFile(x.path, onPage(x))};
    const std::array<const ChannelSource*, 2> sources = {&y, &x};
    for (std::size_t i = 0; i < 2; ++i) {
        if (!read[i]) {
            return read[i].error();
        }
        if (auto error = checkChannel(*sources[i], *read[i])) {
            return *error;
        }
    }
    // Each 16-bit file was scaled by its own brightest sample; read again at the common scale
    // the one whose brightest was lower.
    if (read[0]->sixteenBitTop && read[1]->sixteenBitTop && !options.sixteenBitTop &&
        options.depthBits <= 0 && *read[0]->sixteenBitTop != *read[1]->sixteenBitTop) {
        const std::size_t dimmer = *read[0]->sixteenBitTop < *read[1]->sixteenBitTop ? 0 : 1;
        ReadOptions common = onPage(*sources[dimmer]);
        common.sixteenBitTop = std::max(*read[0]->sixteenBitTop, *read[1]->sixteenBitTop);
        read[dimmer] = readImageFile(sources[dimmer]->path, common);
        if (!read[dimmer]) {
            return read[dimmer].error();
        }
    }
    const Picture& py = *read[0];
    const Picture& px = *read[1];
    if (py.pixelsWide() != px.pixelsWide() || py.pixelsHigh() != px.pixelsHigh()) {
        return Error{x.path, tr("this picture is %1 pixels but %2 is %3: the two channels must "
                                "be the same size",
                                {sizeText(px), y.path, sizeText(py)})};
    }
    if (into.y == into.x || std::min(into.y, into.x) < 0 || std::max(into.y, into.x) > 2) {
        return Error{{}, tr("the two channels must go into two different colour channels")};
    }
    std::optional<Bitmap> out =
        Bitmap::create(py.pixelsWide(), py.pixelsHigh(), 3, false, false, 0, true);
    if (!out) {
        return Error{y.path, tr("there is not enough memory to open the picture (%1 pixels)",
                                {sizeText(py)})};
    }
    const ChannelView from[2] = {py.bitmap->channels(), px.bitmap->channels()};
    const int fromChannel[2] = {y.channel.value_or(0), x.channel.value_or(0)};
    const int toChannel[2] = {into.y, into.x};
    for (int r = 0; r < out->pixelsHigh(); ++r) {
        std::uint8_t* row = out->row(0, r);
        for (int i = 0; i < 2; ++i) {
            for (std::int64_t c = 0; c < from[i].width; ++c) {
                row[3 * c + toChannel[i]] = *from[i].sample(fromChannel[i], r, c);
            }
        }
    }
    Picture picture = Picture::at72dpi(std::move(*out));
    picture.size = py.size;
    if (py.sixteenBitTop || px.sixteenBitTop) {
        picture.sixteenBitTop =
            std::max(py.sixteenBitTop.value_or(0), px.sixteenBitTop.value_or(0));
    }
    return picture;
}

}  // namespace pv
