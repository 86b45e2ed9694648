#include <gtest/gtest.h>
#include <sys/resource.h>
#include <tiffio.h>

#include <csignal>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "output/Export.h"
#include "output/TempFolder.h"

namespace pv {
namespace {

using test::namesIn;
using test::TempFolder;

constexpr int kWide = 13;  // odd, so that a wrong stride cannot line up by chance
constexpr int kHigh = 7;

std::uint8_t sampleAt(int x, int y, int c) {
    return std::uint8_t(x * 37 + y * 11 + c * 85);
}

// A bitmap of the given layout holding sampleAt() as colour, 0x80 as alpha and 0xEE in any row
// padding.
Bitmap makeBitmap(int samplesPerPixel, bool hasAlpha, bool isPlanar, int padding) {
    const int rowBytes = kWide * (isPlanar ? 1 : samplesPerPixel) + padding;
    Bitmap b = *Bitmap::create(kWide, kHigh, samplesPerPixel, hasAlpha, isPlanar, rowBytes);
    std::fill(b.bitmapData(), b.bitmapData() + b.totalBytes(), std::uint8_t(0xEE));
    const int colours = hasAlpha ? samplesPerPixel - 1 : samplesPerPixel;
    for (int y = 0; y < kHigh; ++y) {
        for (int x = 0; x < kWide; ++x) {
            for (int s = 0; s < samplesPerPixel; ++s) {
                const std::uint8_t v = s < colours ? sampleAt(x, y, s) : 0x80;
                if (isPlanar) {
                    b.row(s, y)[x] = v;
                } else {
                    b.row(0, y)[x * samplesPerPixel + s] = v;
                }
            }
        }
    }
    return b;
}

struct TiffCloser {
    void operator()(TIFF* t) const { TIFFClose(t); }
};

// Reads the file back and checks that it is the one form we write, with the expected pixels.
void expectRgbTiff(const std::string& path, bool grey) {
    std::unique_ptr<TIFF, TiffCloser> tif(TIFFOpen(path.c_str(), "r"));
    ASSERT_TRUE(tif) << path;
    TIFF* t = tif.get();
    std::uint32_t wide = 0, high = 0;
    std::uint16_t spp = 0, bps = 0, photometric = 0, planar = 0, unit = 0;
    float xres = 0, yres = 0;
    TIFFGetField(t, TIFFTAG_IMAGEWIDTH, &wide);
    TIFFGetField(t, TIFFTAG_IMAGELENGTH, &high);
    TIFFGetFieldDefaulted(t, TIFFTAG_SAMPLESPERPIXEL, &spp);
    TIFFGetFieldDefaulted(t, TIFFTAG_BITSPERSAMPLE, &bps);
    TIFFGetField(t, TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetFieldDefaulted(t, TIFFTAG_PLANARCONFIG, &planar);
    ASSERT_TRUE(TIFFGetField(t, TIFFTAG_XRESOLUTION, &xres));
    ASSERT_TRUE(TIFFGetField(t, TIFFTAG_YRESOLUTION, &yres));
    TIFFGetFieldDefaulted(t, TIFFTAG_RESOLUTIONUNIT, &unit);
    EXPECT_EQ(wide, std::uint32_t(kWide));
    EXPECT_EQ(high, std::uint32_t(kHigh));
    EXPECT_EQ(spp, 3);
    EXPECT_EQ(bps, 8);
    EXPECT_EQ(photometric, PHOTOMETRIC_RGB);
    EXPECT_EQ(planar, PLANARCONFIG_CONTIG);
    EXPECT_EQ(xres, 72.0f);
    EXPECT_EQ(yres, 72.0f);
    EXPECT_EQ(unit, RESUNIT_INCH);
    EXPECT_EQ(TIFFNumberOfDirectories(t), 1);

    std::vector<std::uint8_t> row(std::size_t(TIFFScanlineSize(t)));
    ASSERT_EQ(row.size(), std::size_t(kWide * 3));
    int wrong = 0;
    for (int y = 0; y < kHigh; ++y) {
        ASSERT_EQ(TIFFReadScanline(t, row.data(), std::uint32_t(y), 0), 1);
        for (int x = 0; x < kWide; ++x) {
            for (int c = 0; c < 3; ++c) {
                const std::uint8_t expected = sampleAt(x, y, grey ? 0 : c);
                if (row[std::size_t(x * 3 + c)] != expected && ++wrong <= 5) {
                    ADD_FAILURE() << "pixel (" << x << ", " << y << ") channel " << c << ": "
                                  << int(row[std::size_t(x * 3 + c)]) << " != " << int(expected);
                }
            }
        }
    }
    EXPECT_EQ(wrong, 0);
}

TEST(WriteTiffAtomically, EveryLayoutBecomesMeshedRgb) {
    struct Case {
        const char* name;
        int samplesPerPixel;
        bool hasAlpha;
        bool isPlanar;
        int padding;
    };
    const std::vector<Case> cases = {
        {"meshed RGB", 3, false, false, 0},        {"meshed RGBA", 4, true, false, 0},
        {"meshed RGB padded", 3, false, false, 5}, {"meshed RGBA padded", 4, true, false, 3},
        {"planar RGB", 3, false, true, 0},         {"planar RGBA", 4, true, true, 0},
        {"planar RGB padded", 3, false, true, 7},  {"grey", 1, false, false, 1},
        {"grey with alpha", 2, true, false, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TempFolder folder;
        const std::string path = folder / "picture.tif";
        const Bitmap b = makeBitmap(c.samplesPerPixel, c.hasAlpha, c.isPlanar, c.padding);
        const Status status = writeTiffAtomically(path, b);
        ASSERT_TRUE(status) << status.error().message;
        expectRgbTiff(path, c.samplesPerPixel < 3);
        EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{"picture.tif"});
    }
}

TEST(WriteTiffAtomically, EmptyBitmapIsAnErrorAndWritesNothing) {
    TempFolder folder;
    const std::string path = folder / "empty.tif";
    const Status status = writeTiffAtomically(path, Bitmap());
    ASSERT_FALSE(status);
    EXPECT_EQ(status.error().message, "cannot write " + path + ": the picture is empty");
    EXPECT_TRUE(namesIn(folder.path()).empty());
}

TEST(WriteTiffAtomically, FailedWriteKeepsTheOldPictureAndGivesTheSystemReason) {
    TempFolder folder;
    const std::string path = folder / "old.tif";
    test::writeFile(path, "old picture");
    const std::string message = test::inChild([&] {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        ::getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = 64;
        ::setrlimit(RLIMIT_FSIZE, &limit);
        const Status s = writeTiffAtomically(path, makeBitmap(3, false, false, 0));
        return s ? std::string("OK") : s.error().message;
    });
    EXPECT_EQ(message, "cannot write " + path + ": File too large");
    EXPECT_EQ(test::readFile(path), "old picture");
    EXPECT_EQ(namesIn(folder.path()), std::set<std::string>{"old.tif"});
}

}  // namespace
}  // namespace pv
