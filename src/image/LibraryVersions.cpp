#include "image/LibraryVersions.h"

#include <cstdio>  // before jpeglib.h, which needs FILE

#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

namespace pv {

std::string tiffVersionFromBanner(std::string_view banner) {
    const std::string_view line = banner.substr(0, banner.find('\n'));
    constexpr std::string_view kVersion = "Version ";
    const std::size_t at = line.find(kVersion);
    return std::string(at == std::string_view::npos ? line : line.substr(at + kVersion.size()));
}

std::string dottedVersion(unsigned long number, int digits) {
    unsigned long scale = 1;
    for (int i = 0; i < digits; ++i) {
        scale *= 10;
    }
    const unsigned long patch = number % scale;
    const unsigned long minor = number / scale % scale;
    const unsigned long major = number / scale / scale;
    return std::to_string(major) + "." + std::to_string(minor) + "." + std::to_string(patch);
}

std::vector<LibraryVersion> imageLibraryVersions() {
    std::vector<LibraryVersion> versions = {
        {"libtiff", tiffVersionFromBanner(TIFFGetVersion())},
        {"libpng", dottedVersion(png_access_version_number(), 2)},
    };
#ifdef LIBJPEG_TURBO_VERSION_NUMBER
    versions.push_back({"libjpeg-turbo", dottedVersion(LIBJPEG_TURBO_VERSION_NUMBER, 3)});
#else
    versions.push_back({"libjpeg", std::to_string(JPEG_LIB_VERSION / 10) + "." +
                                       std::to_string(JPEG_LIB_VERSION % 10)});
#endif
    return versions;
}

}  // namespace pv
