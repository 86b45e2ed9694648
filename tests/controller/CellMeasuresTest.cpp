#include <gtest/gtest.h>

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

    ASSERT_TRUE(controller.calculateFurtherMeasures({false, true, false, false, false, 30, 4, 3}));
    ASSERT_EQ(controller.fields().furtherMeasures.size(), 1u);
    EXPECT_EQ(cellLines(true), controller.fields().furtherMeasures);
}

}  // namespace
}  // namespace pv
