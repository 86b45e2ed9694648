#include <cmath>

#include "image/ChannelFiles.h"
#include "image/ImageTestFiles.h"

namespace pv {
namespace {

using testing::TempDir;
using testing::TiffLayout;

constexpr int W = 13, H = 7;
const int GREY = PHOTOMETRIC_MINISBLACK;

// Writes a one-channel file of the given depth; answers its samples.
std::vector<std::uint32_t> writeGrey(const std::string& path, int bits, std::uint32_t below,
                                     std::uint32_t seed) {
    std::vector<std::uint32_t> samples(W * H);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        samples[i] = std::uint32_t((i * 2654435761u + seed * 40503u) >> 7) % below;
    }
    testing::writeTiff(path, TiffLayout{W, H, 1, bits, GREY}, samples);
    return samples;
}

std::uint8_t scaled(std::uint32_t v, std::uint32_t top) {
    return std::uint8_t(std::lround(double(v) * 255.0 / double(top)));
}

// Every pixel of the working picture against the two files' samples: Y and X in their places,
// the third channel 0; 16-bit files share the factor of the brighter file.
TEST(ChannelFiles, TwoGreyFilesBecomeThePairOfOnePicture) {
    TempDir dir;
    const struct {
        const char* name;
        int bits;
        std::uint32_t belowY, belowX;
        ChannelPlaces into;
    } cases[] = {
        {"8-bit red-green", 8, 256, 256, {0, 1}},
        {"8-bit blue-red", 8, 200, 256, {2, 0}},
        {"16-bit, X four times brighter", 16, 9000, 36000, {0, 1}},
        {"16-bit, Y brighter", 16, 60000, 1200, {1, 2}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto ys = writeGrey(dir.file("y.tif"), c.bits, c.belowY, 1);
        const auto xs = writeGrey(dir.file("x.tif"), c.bits, c.belowX, 2);
        auto picture = readChannelPair({dir.file("y.tif")}, {dir.file("x.tif")}, c.into);
        ASSERT_TRUE(picture.ok()) << picture.error().message();
        std::uint32_t top = 255;
        if (c.bits == 16) {
            top = std::max(*std::max_element(ys.begin(), ys.end()),
                           *std::max_element(xs.begin(), xs.end()));
            EXPECT_EQ(picture->sixteenBitTop, top);
        }
        const int third = 3 - c.into.y - c.into.x;
        const std::vector<std::uint8_t> got = testing::meshedSamples(*picture->bitmap);
        std::vector<std::uint8_t> expected(got.size(), 0);
        for (std::size_t i = 0; i < ys.size(); ++i) {
            expected[3 * i + std::size_t(c.into.y)] = scaled(ys[i], top);
            expected[3 * i + std::size_t(c.into.x)] = scaled(xs[i], top);
            expected[3 * i + std::size_t(third)] = 0;
        }
        EXPECT_TRUE(got == expected);
    }
}

// A colour file gives the channel named; a grey one needs none.
TEST(ChannelFiles, AColourFileGivesTheChannelNamed) {
    TempDir dir;
    std::vector<std::uint32_t> rgb(W * H * 3);
    for (std::size_t i = 0; i < rgb.size(); ++i) {
        rgb[i] = std::uint32_t(i * 7 % 256);
    }
    testing::writeTiff(dir.file("rgb.tif"), TiffLayout{W, H, 3, 8, PHOTOMETRIC_RGB}, rgb);
    const auto grey = writeGrey(dir.file("g.tif"), 8, 256, 3);
    auto picture = readChannelPair({dir.file("rgb.tif"), 2}, {dir.file("g.tif")}, {1, 0});
    ASSERT_TRUE(picture.ok()) << picture.error().message();
    const auto got = testing::meshedSamples(*picture->bitmap);
    for (std::size_t i = 0; i < grey.size(); ++i) {
        ASSERT_EQ(std::tuple(got[3 * i], got[3 * i + 1], got[3 * i + 2]),
                  std::tuple(std::uint8_t(grey[i]), std::uint8_t(rgb[3 * i + 2]), std::uint8_t(0)))
            << i;
    }
}

TEST(ChannelFiles, RefusesWhatCannotMakeOnePictureNamingTheFile) {
    TempDir dir;
    writeGrey(dir.file("a.tif"), 8, 256, 1);
    testing::writeTiff(dir.file("small.tif"), TiffLayout{W - 1, H, 1, 8, GREY},
                       std::vector<std::uint32_t>((W - 1) * H, 5));
    testing::writeTiff(dir.file("rgb.tif"), TiffLayout{W, H, 3, 8, PHOTOMETRIC_RGB},
                       std::vector<std::uint32_t>(W * H * 3, 9));
    const std::string a = dir.file("a.tif");
    const auto refused = [](const ChannelSource& y, const ChannelSource& x, ChannelPlaces into,
                            const std::string& file, const std::string& reason) {
        auto picture = readChannelPair(y, x, into);
        ASSERT_FALSE(picture.ok());
        EXPECT_EQ(std::pair(picture.error().file, picture.error().reason), std::pair(file, reason));
    };
    const std::string small = dir.file("small.tif"), rgb = dir.file("rgb.tif");
    refused({a}, {small}, {0, 1}, small,
            "this picture is 12 x 7 pixels but " + a +
                " is 13 x 7: the two channels must be the "
                "same size");
    // Refused by its header: a file claiming a picture it does not hold gets its size as reason.
    const std::string claim = dir.file("claim.bmp");
    testing::writeBytes(
        claim, testing::makeBmp(W, 4000, 24, {}, {}, std::vector<std::uint8_t>(W * 3 + 1)));
    refused({a}, {claim, 0}, {0, 1}, claim,
            "this picture is 13 x 4000 pixels but " + a +
                " is 13 x 7: the two channels must be the same size");
    refused({rgb}, {a}, {0, 1}, rgb, "this is a colour picture: name the channel to take from it");
    refused({a}, {rgb, 3}, {0, 1}, rgb, "a picture has channels 1 to 3 (red, green, blue)");
    refused({a}, {dir.file("none.tif")}, {0, 1}, dir.file("none.tif"), "the file does not exist");
    refused({a}, {a}, {1, 1}, "", "the two channels must go into two different colour channels");
}

}  // namespace
}  // namespace pv
