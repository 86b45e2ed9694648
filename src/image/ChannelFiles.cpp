#include "image/ChannelFiles.h"

#include <algorithm>
#include <array>

#include "core/Localization.h"
#include "core/PixelMemory.h"
#include "image/StackLayout.h"

namespace pv {

namespace {

std::string sizeText(std::int64_t wide, std::int64_t high) {
    return std::to_string(wide) + " x " + std::to_string(high);
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
    if (into.y == into.x || std::min(into.y, into.x) < 0 || std::max(into.y, into.x) > 2) {
        return Error{{}, tr("the two channels must go into two different colour channels")};
    }
    const std::array<const ChannelSource*, 2> sources = {&y, &x};
    const std::array<int, 2> places = {into.y, into.x};
    std::optional<Bitmap> out;
    Size size;
    std::array<std::optional<std::uint32_t>, 2> tops;
    // Each file in turn into its place, so that no more than one is held decoded besides the
    // result: a stack's slices are read this way one after another.
    const auto take = [&](std::size_t i, ReadOptions reading) -> std::optional<Error> {
        const ChannelSource& source = *sources[i];
        reading.page = source.page;
        reading.pageIndex = source.pageIndex;
        reading.keepGrey = true;  // only one channel of it is wanted
        if (out) {
            // Refused by its header, before a picture of another size is decoded.
            reading.sizeCheck = [&](std::uint64_t wide,
                                    std::uint64_t high) -> std::optional<std::string> {
                if (std::int64_t(wide) == out->pixelsWide() &&
                    std::int64_t(high) == out->pixelsHigh()) {
                    return std::nullopt;
                }
                return tr(
                    "this picture is %1 pixels but %2 is %3: the two channels must be the same "
                    "size",
                    {sizeText(std::int64_t(wide), std::int64_t(high)), y.path,
                     sizeText(out->pixelsWide(), out->pixelsHigh())});
            };
        }
        Result<Picture> read = readImageFile(source.path, reading);
        if (!read) {
            // In a stack the page at fault is what the user needs to find.
            Error error = read.error();
            PageIndex pages = source.pageIndex;
            if (!pages) {
                const Result<StackLayout> layout = readStackLayout(source.path);
                pages = layout ? layout->pageIndex : nullptr;
            }
            if (pages && pages->size() > 1 && source.page < pages->size()) {
                error.reason = tr(
                    "page %1 of %2: %3",
                    {std::to_string(source.page + 1), std::to_string(pages->size()), error.reason});
            }
            return error;
        }
        if (auto error = checkChannel(source, *read)) {
            return error;
        }
        if (!out) {
            out = Bitmap::create(read->pixelsWide(), read->pixelsHigh(), 3, false, into.planes, 0,
                                 !into.planes);
            if (!out) {
                return Error{source.path,
                             tr("there is not enough memory to open the picture (%1 pixels)",
                                {sizeText(read->pixelsWide(), read->pixelsHigh())})};
            }
            size = read->size;
        }
        const ChannelView from = read->bitmap->channels();
        const int channel = source.channel.value_or(0);
        const std::size_t place = std::size_t(places[i]);
        const WritableChannelView to = out->writableChannels();
        for (int r = 0; r < out->pixelsHigh(); ++r) {
            for (std::int64_t c = 0; c < from.width; ++c) {
                *to.sample(int(place), r, c) = *from.sample(channel, r, c);
            }
        }
        tops[i] = read->sixteenBitTop;
        return std::nullopt;
    };
    for (std::size_t i = 0; i < 2; ++i) {
        if (auto error = take(i, options)) {
            return *error;
        }
    }
    // Each 16-bit file was scaled by its own brightest sample; the one whose brightest was lower
    // is read again at the brighter one's scale.
    if (tops[0] && tops[1] && *tops[0] != *tops[1] && !options.sixteenBitTop &&
        options.depthBits <= 0) {
        ReadOptions common = options;
        common.sixteenBitTop = std::max(*tops[0], *tops[1]);
        if (auto error = take(*tops[0] < *tops[1] ? 0 : 1, common)) {
            return *error;
        }
    }
    if (into.planes) {
        const int third = 3 - into.y - into.x;
        pixel_memory::zero(out->row(third, 0),
                           std::size_t(out->bytesPerRow()) * std::size_t(out->pixelsHigh()));
    }
    Picture picture = Picture::at72dpi(std::move(*out));
    picture.size = size;
    if (tops[0] || tops[1]) {
        picture.sixteenBitTop = std::max(tops[0].value_or(0), tops[1].value_or(0));
    }
    return picture;
}

Status pagesJustified(const ChannelSource& first, std::uint64_t pages) {
    const Result<FileStart> start = fileStart(first.path);
    const Result<PixelSize> size =
        readPictureSize(first.path, {.page = first.page, .pageIndex = first.pageIndex});
    if (!start || !size) {
        return Status();
    }
    if (auto why = unjustifiedPixels(pages, size->wide, size->high, start->size)) {
        return Status(Error{first.path, std::move(*why)});
    }
    return Status();
}

}  // namespace pv
