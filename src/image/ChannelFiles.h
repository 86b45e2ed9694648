#pragma once

#include <optional>
#include <string>

#include "core/Result.h"
#include "image/ImageFile.h"
#include "image/Picture.h"

namespace pv {

// One channel of a picture file: its grey, or one colour channel (0 red, 1 green, 2 blue) of a
// colour file.
struct ChannelSource {
    std::string path;
    std::optional<int> channel = std::nullopt;
    std::uint32_t page = 0;         // of a multi-page TIFF file (a channel of a stack), from 0
    PageIndex pageIndex = nullptr;  // the file's pages, when its layout was read
};

// Where the two channels go in the working picture (0 red, 1 green, 2 blue); the third channel
// stays 0.
struct ChannelPlaces {
    int y = 0;
    int x = 1;
    // In planes rather than meshed: the third plane is never written, so a slice of a stack that
    // is only counted costs two bytes a pixel.
    bool planes = false;
};

// Reads two single-channel pictures, as microscopes save each channel, into one meshed RGB
// picture of their common size, at the resolution of the first. 16-bit files read at their own
// scale are scaled by one factor, that of the brighter, so that their relative intensities
// hold. Refused, naming the file, when a file cannot be read, is colour without a channel
// named, or differs in size from the other (the second then refused by its header alone).
Result<Picture> readChannelPair(const ChannelSource& y, const ChannelSource& x, ChannelPlaces into,
                                const ReadOptions& options = {});

// Refused, naming the file, when reading `pages` pictures the size of `first`'s (the slices of a
// stack, one after another) is more than the file's bytes justify; checked by the page's header
// before anything is decoded. A file that cannot be read passes: its reading says why.
Status pagesJustified(const ChannelSource& first, std::uint64_t pages);

}  // namespace pv
