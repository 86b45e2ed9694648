#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/Result.h"

namespace pv {

// How the pages of a multi-page TIFF file hold channels, slices (z) and frames (time): from an
// ImageJ hyperstack's description, from OME-XML (its first image), or, for any other file, a
// plain sequence of slices.
struct StackLayout {
    enum class Kind { Pages, ImageJ, OME };
    Kind kind = Kind::Pages;
    int channels = 1;
    int slices = 1;
    int frames = 1;
    // The dimensions from the fastest-changing to the slowest along the pages: "CZT" for ImageJ,
    // OME's DimensionOrder without its leading "XY".
    std::string order = "CZT";
    std::vector<std::string> channelNames;  // as the file names them; empty where it does not
    std::uint32_t pages = 1;

    // The page (from 0) holding a channel, slice and frame, each counted from 0 and in range.
    std::uint32_t pageOf(int channel, int slice, int frame) const;
    // The channel named so, from 0; -1 when none is.
    int channelNamed(const std::string& name) const;
};

// Reads the file's page count and description. A description whose dimensions need more pages
// than the file holds is an error naming the numbers; a file that is not a TIFF has one page.
Result<StackLayout> readStackLayout(const std::string& path);

// The layout a description gives to a file of `pages` pages.
Result<StackLayout> stackLayoutOf(const std::string& description, std::uint32_t pages);

}  // namespace pv
