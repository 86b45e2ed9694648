#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pv {

struct LibraryVersion {
    std::string name;
    std::string version;
};

// The image-file libraries the program runs with, for the about box: libtiff and libpng as
// they report themselves at run time, libjpeg-turbo as built against (it reports nothing at
// run time).
std::vector<LibraryVersion> imageLibraryVersions();

// The version in libtiff's banner ("LIBTIFF, Version 4.5.0\nCopyright ..." gives "4.5.0"); the
// first line as it stands when it has no "Version".
std::string tiffVersionFromBanner(std::string_view banner);
// A version number with `digits` decimal digits per part after the first, as libpng (2:
// 10639 is 1.6.39) and libjpeg-turbo (3: 2001005 is 2.1.5) count.
std::string dottedVersion(unsigned long number, int digits);

}  // namespace pv
