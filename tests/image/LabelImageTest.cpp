#include "image/ImageTestFiles.h"
#include "image/LabelImage.h"

namespace pv {
namespace {

using testing::TempDir;
using testing::TiffLayout;

// Labels are read as they are at every depth and coding, never scaled as picture samples are.
TEST(LabelImage, ReadsWholeNumbersAsTheyAre) {
    TempDir dir;
    const int GREY = PHOTOMETRIC_MINISBLACK;
    for (const auto& [bits, compression, top] : {std::tuple(8, COMPRESSION_NONE, 255u),
                                                 {16, COMPRESSION_ADOBE_DEFLATE, 65535u},
                                                 {32, COMPRESSION_NONE, 65535u},
                                                 {32, COMPRESSION_LZW, 4000u}}) {
        SCOPED_TRACE(::testing::Message() << bits << " bits, compression " << compression);
        const auto labels = testing::pattern(37 * 21, top + 1);
        testing::writeTiff(dir.file("l.tif"),
                           TiffLayout{.wide = 37,
                                      .high = 21,
                                      .samples = 1,
                                      .bits = bits,
                                      .photometric = GREY,
                                      .compression = compression},
                           labels);
        auto read = readLabelImage(dir.file("l.tif"));
        ASSERT_TRUE(read.ok()) << read.error().message();
        EXPECT_EQ(std::tuple(read->wide, read->high), std::tuple(37, 21));
        EXPECT_EQ(read->labels, LabelImage::Labels(labels.begin(), labels.end()));
    }
}

// Segmentation tools often save their labels as grey PNG files, 16-bit when cells are many.
TEST(LabelImage, ReadsGreyPngLabelsAsTheyAre) {
    TempDir dir;
    for (const auto& [bits, interlaced, top] :
         {std::tuple(8, false, 255u), {8, true, 200u}, {16, false, 65535u}, {16, true, 3000u}}) {
        SCOPED_TRACE(::testing::Message() << bits << " bits, interlaced " << interlaced);
        const auto labels = testing::pattern(37 * 21, top + 1);
        testing::writePng(dir.file("l.png"), {37, 21, 1, bits, interlaced}, labels);
        auto read = readLabelImage(dir.file("l.png"));
        ASSERT_TRUE(read.ok()) << read.error().message();
        EXPECT_EQ(std::tuple(read->wide, read->high), std::tuple(37, 21));
        EXPECT_EQ(read->labels, LabelImage::Labels(labels.begin(), labels.end()));
    }
}

TEST(LabelImage, RefusesWhatIsNotALabelImage) {
    TempDir dir;
    testing::writeTiff(
        dir.file("many.tif"),
        TiffLayout{
            .wide = 2, .high = 1, .samples = 1, .bits = 32, .photometric = PHOTOMETRIC_MINISBLACK},
        {1, 70000});
    testing::writeTiff(dir.file("rgb.tif"), TiffLayout{.wide = 1, .high = 1}, {1, 2, 3});
    testing::writePng(dir.file("rgb.png"), {4, 3, 3, 8}, testing::pattern(4 * 3 * 3, 256));
    testing::writeBytes(dir.file("cut.png"), {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n', 0});
    testing::writeBytes(dir.file("l.bmp"), {'B', 'M', 0, 0, 0, 0});
    const std::pair<std::string, std::string> cases[] = {
        {"many.tif", "the label image holds label 70000; at most 65535 cells can be analysed"},
        {"rgb.tif",
         "a label image has one channel of whole numbers (8, 16 or 32 bits), 0 for "
         "the background"},
        {"rgb.png",
         "a label image has one channel of whole numbers (8, 16 or 32 bits), 0 for "
         "the background"},
        {"cut.png", "the file ends before the picture is complete"},
        {"l.bmp", "label images are read from TIFF and PNG files"},
        {"none.tif", "the file does not exist"}};
    for (const auto& [name, reason] : cases) {
        auto read = readLabelImage(dir.file(name));
        ASSERT_FALSE(read.ok()) << name;
        EXPECT_EQ(std::pair(read.error().file, read.error().reason),
                  std::pair(dir.file(name), reason));
    }
}

}  // namespace
}  // namespace pv
