#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "core/Result.h"
#include "image/ImageFile.h"

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
    // As the file names them, one for each channel at most; empty where it does not.
    std::vector<std::string> channelNames;
    std::uint32_t pages = 1;
    // Of a TIFF file, where its pages lie (pages of them), for reading any page directly.
    PageIndex pageIndex = nullptr;

    // The page (from 0) holding a channel, slice and frame, each counted from 0 and in range.
    std::uint32_t pageOf(int channel, int slice, int frame) const;
    // The channel named so, from 0; -1 when none is.
    int channelNamed(const std::string& name) const;
};

// Reads the file's pages (walking them once) and its description. A description whose
// dimensions need more pages than the file holds is an error naming the numbers; a file that is
// not a TIFF has one page. Refused, naming the file, as a reader refuses it (a missing file,
// a pipe).
Result<StackLayout> readStackLayout(const std::string& path);

// The layout a description gives to a file of `pages` pages. Colour channels of OME-XML held
// as the samples of one page make no pages of their own: one colour picture is no stack.
Result<StackLayout> stackLayoutOf(const std::string& description, std::uint32_t pages);

}  // namespace pv
