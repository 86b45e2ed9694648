#pragma once

// Grey TIFF files as microscopes and segmentation programs write them: single-channel pages,
// hyperstacks (ImageJ's description on the first page) and label images. Free of any test
// framework, so that Qt tests and GoogleTest tests write the same files.

#include <tiffio.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace pv::testing {

using GreyPage = std::vector<std::uint32_t>;  // rows of `wide` samples, top row first

// Pages of one grey sample of `bits` (8, 16 or 32) bits; the first page carries `description`
// when there is one. False when libtiff refused something.
inline bool writeGreyPages(const std::string& path, int wide, int high,
                           const std::vector<GreyPage>& pages, const std::string& description = {},
                           int bits = 8) {
    TIFF* t = TIFFOpen(path.c_str(), "w");
    if (t == nullptr) {
        return false;
    }
    bool ok = true;
    for (std::size_t p = 0; p < pages.size() && ok; ++p) {
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, wide);
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, high);
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, high);
        if (p == 0 && !description.empty()) {
            TIFFSetField(t, TIFFTAG_IMAGEDESCRIPTION, description.c_str());
        }
        std::vector<std::uint8_t> strip(std::size_t(wide) * std::size_t(high) *
                                        std::size_t(bits / 8));
        for (std::size_t i = 0; i < pages[p].size(); ++i) {
            const std::uint32_t v = pages[p][i];
            const auto w16 = std::uint16_t(v);
            const auto b8 = std::uint8_t(v);
            std::memcpy(&strip[i * std::size_t(bits / 8)],
                        bits == 8    ? static_cast<const void*>(&b8)
                        : bits == 16 ? static_cast<const void*>(&w16)
                                     : static_cast<const void*>(&v),
                        std::size_t(bits / 8));
        }
        ok = TIFFWriteEncodedStrip(t, 0, strip.data(), tmsize_t(strip.size())) >= 0 &&
             (p + 1 == pages.size() || TIFFWriteDirectory(t) == 1);
    }
    TIFFClose(t);
    return ok;
}

// ImageJ's description of a hyperstack of channels x slices x frames, channels changing
// fastest along the pages.
inline std::string imageJDescription(int channels, int slices, int frames = 1) {
    return "ImageJ=1.54f\nimages=" + std::to_string(channels * slices * frames) +
           "\nchannels=" + std::to_string(channels) + "\nslices=" + std::to_string(slices) +
           "\nframes=" + std::to_string(frames) + "\nhyperstack=true\nmode=composite\n";
}

}  // namespace pv::testing
