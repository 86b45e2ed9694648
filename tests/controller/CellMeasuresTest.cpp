#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "TestFiles.h"
#include "controller/PixmeraVeltroController.h"

namespace pv {
namespace {

struct CellMeasuresTest : ::testing::Test {
    CellMeasuresTest() {
        controller.awakeFromNib();
        controller.applicationDidFinishLaunching();
    }
    testing::TempDir temp;
    NullControllerPort port;
    PixmeraVeltroController controller{port};
};

// A cell as large as the picture is the picture: its lines are the picture's, the significance
// test's included (the box is the picture, the cell a mask over all of it). Cells get measures
// only when asked and only those the picture has.
TEST_F(CellMeasuresTest, ACellCoveringThePictureReadsAsThePicture) {
    const int w = 36, h = 24;
    std::mt19937 rng(6);
    std::vector<std::uint32_t> rgb;
    for (int i = 0; i < w * h; ++i) {
        const auto red = std::uint32_t(rng() % 200);
        rgb.insert(rgb.end(), {red, std::uint32_t((red + rng() % 100) / 2), 0u});
    }
    const std::string picture = temp.file("picture.tif");
    testing::writeTiff(picture, {.wide = w, .high = h}, rgb);
    ASSERT_TRUE(controller.openImageFile(picture));
    const LabelImage whole{w, h, LabelImage::Labels(std::size_t(w * h), 7)};

    auto cellLines = [&](bool asked) {
        const auto cells = controller.cellFields(whole, "labels.tif", asked);
        EXPECT_TRUE(cells && cells->size() == 1u);
        return cells && cells->size() == 1u ? cells->front().fields.furtherMeasures
                                            : std::vector<ResultLine>{};
    };
    EXPECT_TRUE(cellLines(true).empty());  // nothing calculated yet

    ASSERT_TRUE(controller.calculateFurtherMeasures({true, true, true, true, true, 30, 4, 3}));
    const std::vector<ResultLine> lines = controller.fields().furtherMeasures;
    ASSERT_EQ(lines.size(), 15u);
    EXPECT_EQ(cellLines(true), lines);
    EXPECT_TRUE(cellLines(false).empty());

    // A front end that tests the cell it shows gets the histogram's lines of every cell, and
    // the same test for the one cell.
    CellMeasureOptions histogramOnly;
    histogramOnly.significance = false;
    const auto cells = controller.cellFields(whole, "labels.tif", true, histogramOnly);
    ASSERT_TRUE(cells);
    EXPECT_EQ(cells->front().fields.furtherMeasures,
              std::vector<ResultLine>(lines.begin(), lines.begin() + 10));
    Result<BlockShuffleTest> test = controller.cellSignificanceTest(whole, 7, "labels.tif");
    ASSERT_TRUE(test);
    FurtherMeasureResults tested;
    tested.asked.significance = true;
    tested.significance = *test->run(30, 4);
    EXPECT_EQ(furtherMeasureLines(tested),
              std::vector<ResultLine>(lines.begin() + 10, lines.end()));

    ASSERT_TRUE(controller.calculateFurtherMeasures({false, true, false, false, false, 30, 4, 3}));
    ASSERT_EQ(controller.fields().furtherMeasures.size(), 1u);
    EXPECT_EQ(cellLines(true), controller.fields().furtherMeasures);
    EXPECT_FALSE(controller.cellSignificanceTest(whole, 7, "labels.tif"));
}

// Each cell's test shuffles its box: cells whose boxes cover the picture many times over (two
// pixels each, at opposite corners) are refused with the numbers, compact ones are tested, with
// progress by cells and a cancel that stops them.
TEST_F(CellMeasuresTest, CellsWhoseBoxesCoverThePictureManyTimesAreNotTested) {
    const int side = 16;
    std::vector<std::uint32_t> rgb;
    for (int i = 0; i < side * side; ++i) {
        rgb.insert(rgb.end(), {std::uint32_t(i * 7 % 251), std::uint32_t(i * 3 % 199), 0u});
    }
    const std::string picture = temp.file("picture.tif");
    testing::writeTiff(picture, {.wide = side, .high = side}, rgb);
    ASSERT_TRUE(controller.openImageFile(picture));
    ASSERT_TRUE(controller.calculateFurtherMeasures({true, false, false, false, true, 20, 4, 1}));
    LabelImage corners{side, side, LabelImage::Labels(std::size_t(side * side), 0)};
    LabelImage tiles = corners;
    for (int i = 0; i < side * side; ++i) {
        const int r = i / side, c = i % side;
        tiles.labels[std::size_t(i)] = std::uint16_t(r / 4 * 4 + c / 4 + 1);
        if (r < side / 2) {  // and its mirror image in the lower half
            const auto label = std::uint16_t(i + 1);
            corners.labels[std::size_t(i)] = label;
            corners.labels[std::size_t(side * side - 1 - i)] = label;
        }
    }
    const auto refused = controller.cellFields(corners, "corners.tif", true);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().message(),
              "corners.tif: the cells' bounding boxes add up to 10368 pixels, 40 times the "
              "picture's 256 (at most 16 times): the significance test of a cell shuffles its "
              "whole box. Leave significance out of the measures for these labels, or label "
              "compact cells");
    EXPECT_TRUE(controller.cellFields(corners, "corners.tif", false));

    CellMeasureOptions options;
    std::size_t done = 0;
    options.progress = [&done](std::size_t cells) { done = std::max(done, cells); };
    const auto tested = controller.cellFields(tiles, "tiles.tif", true, options);
    ASSERT_TRUE(tested);
    EXPECT_EQ(tested->size(), 16u);
    EXPECT_EQ(done, 16u);
    options.cancel = [] { return true; };
    const auto cancelled = controller.cellFields(tiles, "tiles.tif", true, options);
    ASSERT_FALSE(cancelled);
    EXPECT_EQ(cancelled.error().reason, "The cells' significance test was cancelled.");
}

}  // namespace
}  // namespace pv
