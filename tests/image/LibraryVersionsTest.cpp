#include <gtest/gtest.h>

#include <string>

#include "image/LibraryVersions.h"

namespace pv {
namespace {

// Digits in at least two parts separated by single dots: "4.5.0", not "4." or "v4.5".
bool isDottedNumber(const std::string& v) {
    bool digitBefore = false;
    int dots = 0;
    for (char c : v) {
        if (c == '.') {
            if (!digitBefore) {
                return false;
            }
            ++dots;
            digitBefore = false;
        } else if (c >= '0' && c <= '9') {
            digitBefore = true;
        } else {
            return false;
        }
    }
    return dots > 0 && digitBefore;
}

TEST(LibraryVersions, TiffBannerGivesItsVersion) {
    struct Case {
        const char* banner;
        const char* version;
    };
    const Case cases[] = {
        {"LIBTIFF, Version 4.5.0\nCopyright (c) 1988-1996 Sam Leffler\n", "4.5.0"},
        {"LIBTIFF, Version 4.7.1", "4.7.1"},
        {"some other banner\nVersion 9", "some other banner"},
        {"", ""},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(tiffVersionFromBanner(c.banner), c.version) << c.banner;
    }
}

TEST(LibraryVersions, NumbersBecomeDottedVersions) {
    struct Case {
        unsigned long number;
        int digits;
        const char* version;
    };
    const Case cases[] = {
        {10639, 2, "1.6.39"},   {10500, 2, "1.5.0"},         {2001005, 3, "2.1.5"},
        {3000090, 3, "3.0.90"}, {12345678, 3, "12.345.678"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(dottedVersion(c.number, c.digits), c.version) << c.number;
    }
}

// What the about box lists: the three libraries, each with a version of dotted numbers.
TEST(LibraryVersions, TheLinkedLibrariesReportVersions) {
    const std::vector<LibraryVersion> versions = imageLibraryVersions();
    ASSERT_EQ(versions.size(), 3u);
    EXPECT_EQ(versions[0].name, "libtiff");
    EXPECT_EQ(versions[1].name, "libpng");
    EXPECT_EQ(versions[2].name.substr(0, 7), "libjpeg");
    for (const LibraryVersion& v : versions) {
        EXPECT_TRUE(isDottedNumber(v.version)) << v.version;
    }
}

}  // namespace
}  // namespace pv
