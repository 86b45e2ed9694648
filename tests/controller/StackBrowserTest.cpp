#include <gtest/gtest.h>

#include <array>
#include <string>
#include <tuple>
#include <vector>

#include "GreyPages.h"
#include "TestFiles.h"
#include "controller/CellLabels.h"
#include "controller/InputMenus.h"
#include "controller/StackBrowser.h"

namespace pv {
namespace {

using testing::GreyPage;

constexpr int kWide = 7, kHigh = 5, kChannels = 2, kSlices = 5, kFrames = 2;

// Channel c of slice z at frame t: zeros in places, so that every census class occurs and
// differs from slice to slice.
std::uint32_t sample(int c, int z, int t, int i) {
    const int v = (c * 53 + z * 29 + t * 71 + i * (c + 3)) % 97;
    return v % (4 + c + z) == 0 ? 0u : std::uint32_t(v * 2 + 1);
}

GreyPage page(int c, int z, int t) {
    GreyPage p;
    for (int i = 0; i < kWide * kHigh; ++i) {
        p.push_back(sample(c, z, t, i));
    }
    return p;
}

// The three census counts of a red-green analysis of (Y, X) pairs, inside `inside` when given:
// Y only, X only, both.
std::array<int, 3> census(const GreyPage& y, const GreyPage& x,
                          const std::vector<bool>& inside = {}) {
    std::array<int, 3> n{};
    for (std::size_t i = 0; i < y.size(); ++i) {
        if (!inside.empty() && !inside[i]) {
            continue;
        }
        n[0] += y[i] > 0 && x[i] == 0;
        n[1] += y[i] == 0 && x[i] > 0;
        n[2] += y[i] > 0 && x[i] > 0;
    }
    return n;
}

std::array<int, 3> shownCensus(const PixmeraVeltroController& c) {
    const ResultFields& f = c.fields();
    return {std::stoi(f.yAxisPixelCountText), std::stoi(f.xAxisPixelCountText),
            std::stoi(f.xyAxisPixelCountText)};
}

struct StackBrowserTest : ::testing::Test {
    StackBrowserTest() {
        controller.awakeFromNib();
        controller.applicationDidFinishLaunching();
        // An ImageJ hyperstack: channels fastest, then slices, then frames.
        std::vector<GreyPage> pages;
        for (int t = 0; t < kFrames; ++t) {
            for (int z = 0; z < kSlices; ++z) {
                for (int c = 0; c < kChannels; ++c) {
                    pages.push_back(page(c, z, t));
                }
            }
        }
        EXPECT_TRUE(
            testing::writeGreyPages(stackPath, kWide, kHigh, pages,
                                    testing::imageJDescription(kChannels, kSlices, kFrames)));
    }
    const Bitmap* picture() const { return controller.workingImage().originalImage().bitmap.get(); }

    testing::TempDir dir;
    std::string stackPath = dir.file("series.tif");
    NullControllerPort port;
    PixmeraVeltroController controller{port};
    StackBrowser stack{controller};
    CellLabels labels{controller, stack};
};

TEST_F(StackBrowserTest, EachSliceFrameAndChannelChoiceIsAnalysedAsThatPageOfTheFile) {
    ASSERT_TRUE(controller.openImageFile(stackPath));
    ASSERT_TRUE(stack.open(stackPath));
    ASSERT_TRUE(stack.active());
    EXPECT_EQ(census(page(0, 0, 0), page(1, 0, 0)), shownCensus(controller));
    EXPECT_EQ(stack.sliceText(), "Slice 1 / 5");
    EXPECT_EQ(stack.frameText(), "Frame 1 / 2");
    EXPECT_EQ(channelChoices(stack.layout()), (std::vector<std::string>{"Channel 1", "Channel 2"}));

    struct Step {
        std::function<Status()> act;
        int y, x, z, t;
    };
    const std::vector<Step> steps = {
        {[&] { return stack.showSlice(2); }, 0, 1, 2, 0},
        {[&] { return stack.showFrame(1); }, 0, 1, 2, 1},
        {[&] { return stack.chooseChannels(1, 0); }, 1, 0, 2, 1},
        {[&] { return stack.showSlice(4); }, 1, 0, 4, 1},
    };
    for (const Step& s : steps) {
        ASSERT_TRUE(s.act());
        EXPECT_EQ(census(page(s.y, s.z, s.t), page(s.x, s.z, s.t)), shownCensus(controller))
            << "slice " << s.z << " frame " << s.t;
        // ImageJ's page order: c + C * (z + Z * t).
        EXPECT_EQ(stack.ySource().page, std::uint32_t(s.y + kChannels * (s.z + kSlices * s.t)));
        EXPECT_EQ(stack.xSource().page, std::uint32_t(s.x + kChannels * (s.z + kSlices * s.t)));
    }
    EXPECT_EQ(stack.sliceText(), "Slice 5 / 5");
    EXPECT_EQ(stack.frameText(), "Frame 2 / 2");
}

TEST_F(StackBrowserTest, AStepThatCannotBeTakenChangesNothing) {
    ASSERT_TRUE(controller.openImageFile(stackPath));
    ASSERT_TRUE(stack.open(stackPath));
    ASSERT_TRUE(stack.showSlice(1));
    const Bitmap* before = picture();
    const std::array<int, 3> counts = shownCensus(controller);
    for (const Status& s : {stack.showSlice(kSlices), stack.showSlice(-1), stack.showFrame(2),
                            stack.chooseChannels(0, 2)}) {
        EXPECT_FALSE(s);
        EXPECT_EQ(s.error().file, stackPath);
    }
    EXPECT_EQ(picture(), before);
    EXPECT_EQ(shownCensus(controller), counts);
    EXPECT_EQ(stack.slice(), 1);
    EXPECT_TRUE(stack.active());
}

TEST_F(StackBrowserTest, TheMaskStaysFromSliceToSliceAndCountsOnlyItsPixels) {
    std::vector<bool> inside;
    GreyPage mask;
    for (int i = 0; i < kWide * kHigh; ++i) {
        inside.push_back(i % kWide >= 2 && i / kWide <= 3);
        mask.push_back(inside.back() ? 255 : 0);
    }
    const std::string maskPath = dir.file("mask.tif");
    ASSERT_TRUE(testing::writeGreyPages(maskPath, kWide, kHigh, {mask}));
    ASSERT_TRUE(controller.openImageFile(stackPath));
    ASSERT_TRUE(stack.open(stackPath));
    ASSERT_TRUE(controller.setMaskFile(maskPath));
    for (int z : {3, 0, 4}) {
        ASSERT_TRUE(stack.showSlice(z));
        ASSERT_NE(controller.mask(), nullptr);
        EXPECT_EQ(census(page(0, z, 0), page(1, z, 0), inside), shownCensus(controller));
    }
}

// A mask or label image of another size is refused by its header: one claiming a large picture
// whose pixels it does not hold is refused for its size, not for its missing data.
TEST_F(StackBrowserTest, AMaskOrLabelsOfAnotherSizeAreRefusedBeforeTheirPixelsAreRead) {
    ASSERT_TRUE(controller.openImageFile(stackPath));
    const std::string claim = dir.file("claim.tif");
    TIFF* t = TIFFOpen(claim.c_str(), "w");
    ASSERT_NE(t, nullptr);
    for (const auto& [tag, value] : {std::pair(TIFFTAG_IMAGEWIDTH, 3000),
                                     {TIFFTAG_IMAGELENGTH, 2000},
                                     {TIFFTAG_BITSPERSAMPLE, 8},
                                     {TIFFTAG_ROWSPERSTRIP, 2000},
                                     {TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK}}) {
        TIFFSetField(t, tag, value);
    }
    const std::vector<std::uint8_t> row(3000, 1);
    TIFFWriteRawStrip(t, 0, const_cast<std::uint8_t*>(row.data()), tmsize_t(row.size()));
    TIFFClose(t);
    const std::string labelsRefusal =
        "the label image is 3000 x 2000 pixels but the picture is 7 x 5";
    EXPECT_EQ(controller.setMaskFile(claim).error().reason,
              "the mask is 3000 x 2000 pixels but the picture is 7 x 5");
    EXPECT_EQ(labels.load(claim).error().reason, labelsRefusal);
    EXPECT_EQ(controller.cellFields(claim, false).error().reason, labelsRefusal);
}

TEST_F(StackBrowserTest, BackgroundCorrectionsFollowTheSlices) {
    ASSERT_TRUE(controller.openImageFile(stackPath));
    ASSERT_TRUE(stack.open(stackPath));
    // Red (channel 1, the Y role) at or below 60 becomes 0.
    BackgroundControls controls;
    controls.selectedTab = 1;
    controls.typedValue = 60;
    getThresholdEntryValue(controls, controller.backgroundSettings());
    controls.channelItem = 0;
    getRGBChannel(controls, controller.backgroundSettings());
    controller.removeBackgroundNow(controls);
    const auto corrected = [](GreyPage p) {
        for (std::uint32_t& v : p) {
            v = v <= 60 ? 0 : v;
        }
        return p;
    };
    for (int z : {0, 3}) {
        ASSERT_TRUE(stack.showSlice(z));
        EXPECT_EQ(census(corrected(page(0, z, 0)), page(1, z, 0)), shownCensus(controller)) << z;
        EXPECT_EQ(controller.workingImage().imageFileInfo.backgroundCorrected, 1);
    }
    // A pair opened anew starts uncorrected.
    ASSERT_TRUE(stack.openChannels(stackPath, 0, stackPath, 1));
    EXPECT_EQ(census(page(0, 0, 0), page(1, 0, 0)), shownCensus(controller));
}

TEST_F(StackBrowserTest, PlainPicturesAreNoStackAndAnyOtherPictureEndsTheBrowsing) {
    const std::string rgb = dir.file("plain.tif");
    testing::writeTiff(rgb, {.wide = 2, .high = 1}, {10, 0, 0, 0, 20, 0});
    ASSERT_TRUE(controller.openImageFile(rgb));
    const Bitmap* before = picture();
    EXPECT_FALSE(stack.open(rgb));
    EXPECT_FALSE(stack.active());
    EXPECT_EQ(picture(), before);

    ASSERT_TRUE(controller.openImageFile(stackPath));
    ASSERT_TRUE(stack.open(stackPath));
    ASSERT_TRUE(controller.openImageFile(rgb));
    EXPECT_FALSE(stack.active());
}

TEST_F(StackBrowserTest, OpenChannelsTakesTwoFilesOrTwoChannelsOfOneStack) {
    const std::string y = dir.file("C1.tif"), x = dir.file("C2.tif"), small = dir.file("small.tif");
    ASSERT_TRUE(testing::writeGreyPages(y, kWide, kHigh, {page(0, 3, 1)}));
    ASSERT_TRUE(testing::writeGreyPages(x, kWide, kHigh, {page(1, 3, 1)}));
    ASSERT_TRUE(
        testing::writeGreyPages(small, kWide - 1, kHigh, {GreyPage(kWide * kHigh - kHigh, 9)}));

    ASSERT_TRUE(stack.openChannels(y, 0, x, 0));
    EXPECT_FALSE(stack.active());
    EXPECT_EQ(census(page(0, 3, 1), page(1, 3, 1)), shownCensus(controller));

    // Refused, naming the file at fault; the picture shown stays.
    const std::string colour = dir.file("colour.tif"), missing = dir.file("missing.tif");
    testing::writeTiff(colour, {.wide = kWide, .high = kHigh},
                       std::vector<std::uint32_t>(kWide * kHigh * 3, 40));
    const Bitmap* before = picture();
    for (const auto& [yFile, xFile, named] : {std::tuple{y, small, "small.tif"},
                                              {colour, x, "colour.tif"},
                                              {y, missing, "missing.tif"}}) {
        const Status refused = stack.openChannels(yFile, 0, xFile, 0);
        ASSERT_FALSE(refused) << named;
        EXPECT_NE(refused.error().message().find(named), std::string::npos)
            << refused.error().message();
        EXPECT_EQ(picture(), before) << named;
    }

    ASSERT_TRUE(stack.openChannels(stackPath, 1, stackPath, 0));
    EXPECT_TRUE(stack.active());
    EXPECT_EQ(census(page(1, 0, 0), page(0, 0, 0)), shownCensus(controller));
    ASSERT_TRUE(stack.openChannels(stackPath, 0, y, 0));
    EXPECT_FALSE(stack.active());
    EXPECT_EQ(census(page(0, 0, 0), page(0, 3, 1)), shownCensus(controller));
}

TEST_F(StackBrowserTest, ChannelChoicesAreTheFilesNamesWhereItGivesThem) {
    StackLayout layout;
    layout.channels = 3;
    layout.channelNames = {"DAPI", "", "GFP"};
    EXPECT_EQ(channelChoices(layout), (std::vector<std::string>{"DAPI", "Channel 2", "GFP"}));
}

// A label image with a cell touching another and a cell in two pieces; 0 is background.
const std::vector<std::uint32_t> kLabels = {
    0, 0, 0, 0, 0, 0, 0,  //
    0, 4, 4, 9, 9, 0, 0,  //
    0, 4, 4, 9, 9, 0, 4,  //
    0, 0, 0, 0, 0, 0, 4,  //
    7, 0, 0, 0, 0, 0, 0,  //
};

TEST_F(StackBrowserTest, ACellsResultsAreThoseOfItsPixelsAndItsEdgesRunAlongItsBorder) {
    const std::string labelPath = dir.file("labels.tif");
    ASSERT_TRUE(testing::writeGreyPages(labelPath, kWide, kHigh, {kLabels}, {}, 16));
    ASSERT_TRUE(controller.openImageFile(stackPath));
    ASSERT_TRUE(stack.open(stackPath));
    ASSERT_TRUE(labels.load(labelPath));
    ASSERT_TRUE(labels.shown());
    EXPECT_EQ(labels.labelAt(6, 2), 4u);
    EXPECT_EQ(labels.labelAt(0, 0), 0u);
    EXPECT_EQ(labels.labelAt(kWide, 0), 0u);
    for (int z : {0, 2}) {
        ASSERT_TRUE(stack.showSlice(z));
        ASSERT_TRUE(labels.shown()) << "labels follow the slices";
        for (std::uint32_t label : {4u, 9u, 7u}) {
            std::vector<bool> inside;
            for (std::uint32_t l : kLabels) {
                inside.push_back(l == label);
            }
            const auto* cell = labels.cell(label);
            ASSERT_NE(cell, nullptr);
            EXPECT_EQ(cell->pixels, int(std::count(inside.begin(), inside.end(), true)));
            const std::array<int, 3> n = census(page(0, z, 0), page(1, z, 0), inside);
            EXPECT_EQ(std::stoi(cell->fields.yAxisPixelCountText), n[0]) << label;
            EXPECT_EQ(std::stoi(cell->fields.xAxisPixelCountText), n[1]) << label;
            EXPECT_EQ(std::stoi(cell->fields.xyAxisPixelCountText), n[2]) << label;
            const auto rows = labels.cellRows(label);
            ASSERT_GE(rows.size(), 2u);
            EXPECT_EQ(rows[0].second, std::to_string(label));
            EXPECT_EQ(rows[1].second, std::to_string(cell->pixels));
        }
    }
    // The cells follow what the user does next without being told: Calculate, another pair.
    const std::vector<bool> cell9 = [] {
        std::vector<bool> in;
        for (std::uint32_t l : kLabels) {
            in.push_back(l == 9);
        }
        return in;
    }();
    EXPECT_EQ(labels.cellRows(9).back().first, "Coefficients:");
    controller.calculateCoefficientsNow();
    controller.colocalizationWarningSheetDidEnd(BackgroundWarningAnswer::CalculateAnyway);
    ASSERT_NE(labels.cell(9), nullptr);
    EXPECT_FALSE(labels.cell(9)->fields.coefficient_Rr.empty());
    EXPECT_EQ(labels.cellRows(9).back().first, "m2");
    controller.getChannelsRGBCombo(popupIndexForRGBCombo(RGBCombo::GreenRed));
    EXPECT_EQ(std::stoi(labels.cell(9)->fields.yAxisPixelCountText),
              census(page(1, 2, 0), page(0, 2, 0), cell9)[0]);

    EXPECT_EQ(labels.cell(5), nullptr);
    EXPECT_EQ(labels.cell(0), nullptr);
    // Every labelled pixel with a neighbour of another value; cell 4's lone right part and
    // the corner cell are all edge.
    const std::vector<std::uint8_t> edges = {
        0, 0, 0, 0, 0, 0, 0,  //
        0, 1, 1, 1, 1, 0, 0,  //
        0, 1, 1, 1, 1, 0, 1,  //
        0, 0, 0, 0, 0, 0, 1,  //
        1, 0, 0, 0, 0, 0, 0,  //
    };
    EXPECT_EQ(labels.outline(), edges);

    // Another picture hides them and a label image of another size is refused.
    const std::string rgb = dir.file("plain.tif");
    testing::writeTiff(rgb, {.wide = 2, .high = 1}, {10, 0, 0, 0, 20, 0});
    ASSERT_TRUE(controller.openImageFile(rgb));
    EXPECT_FALSE(labels.shown());
    EXPECT_EQ(labels.labelAt(1, 1), 0u);
    const Status refused = labels.load(labelPath);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().file, labelPath);
}

// The chosen cell's own test is due once the picture's further measures hold one; a test that
// ended without a result waits for the cell to be chosen again; a result is kept, and shown,
// only while the results it was made for stand.
TEST_F(StackBrowserTest, AChosenCellsOwnTestIsDueOnceAndKeptWhileItsResultsStand) {
    const std::string labelPath = dir.file("labels.tif");
    ASSERT_TRUE(testing::writeGreyPages(labelPath, kWide, kHigh, {kLabels}, {}, 16));
    ASSERT_TRUE(controller.openImageFile(stackPath));
    ASSERT_TRUE(labels.load(labelPath));
    EXPECT_FALSE(labels.testDue(4));
    ASSERT_TRUE(controller.calculateFurtherMeasures({true, false, false, false, true, 20, 3, 1}));
    EXPECT_TRUE(labels.testDue(4));
    const auto named = [&](const std::string& name) {
        for (const auto& [n, v] : labels.cellRows(4)) {
            if (n == name) {
                return v;
            }
        }
        return std::string("(none)");
    };
    EXPECT_NE(named("Spearman"), "(none)");
    EXPECT_EQ(named("P-value"), "(none)");

    const std::uint64_t stamp = labels.stamp();
    Result<BlockShuffleTest> test = labels.significanceTest(4);
    ASSERT_TRUE(test);
    EXPECT_TRUE(labels.takeSignificance(4, stamp, std::nullopt));
    EXPECT_FALSE(labels.testDue(4));
    labels.chose(4);
    EXPECT_TRUE(labels.testDue(4));
    const auto result = test->run(20, 3);
    EXPECT_TRUE(labels.takeSignificance(4, stamp, result));
    EXPECT_FALSE(labels.testDue(4));
    const auto cells = controller.cellFields(labels.labels(), labelPath, true);
    ASSERT_TRUE(cells);
    for (const auto& cell : *cells) {
        for (const ResultLine& line :
             cell.label == 4 ? cell.fields.furtherMeasures : std::vector<ResultLine>{}) {
            EXPECT_EQ(named(line.name), line.value) << line.name;
        }
    }

    controller.getChannelsRGBCombo(popupIndexForRGBCombo(RGBCombo::GreenRed));
    EXPECT_FALSE(labels.takeSignificance(4, stamp, result));
    EXPECT_EQ(named("P-value"), "(none)");
}

TEST_F(StackBrowserTest, MaskOutlineIsTheMasksInnerBorder) {
    GreyPage mask(kWide * kHigh, 0);
    for (int y = 1; y <= 3; ++y) {
        for (int x = 1; x <= 4; ++x) {
            mask[std::size_t(y * kWide + x)] = 200;
        }
    }
    const std::string maskPath = dir.file("mask.tif");
    ASSERT_TRUE(testing::writeGreyPages(maskPath, kWide, kHigh, {mask}));
    ASSERT_TRUE(controller.openImageFile(stackPath));
    EXPECT_TRUE(maskOutline(controller).empty());
    ASSERT_TRUE(controller.setMaskFile(maskPath));
    const std::vector<std::uint8_t> edges = maskOutline(controller);
    ASSERT_EQ(edges.size(), mask.size());
    for (int y = 0; y < kHigh; ++y) {
        for (int x = 0; x < kWide; ++x) {
            const bool ring = x >= 1 && x <= 4 && y >= 1 && y <= 3 && !(x >= 2 && x <= 3 && y == 2);
            EXPECT_EQ(edges[std::size_t(y * kWide + x)], ring ? 1 : 0) << x << "," << y;
        }
    }
}

TEST_F(StackBrowserTest, MenuItemsFollowThePictureTheMaskTheLabelsAndTheSlice) {
    const auto states = [&] {
        const InputMenuStates s = inputMenuStates(controller, stack, labels);
        return std::array{s.mask,        s.clearMask, s.labels,
                          s.clearLabels, s.nextSlice, s.previousSlice};
    };
    EXPECT_EQ(states(), (std::array{false, false, false, false, false, false}));
    const std::string maskPath = dir.file("mask.tif"), labelPath = dir.file("labels.tif");
    ASSERT_TRUE(testing::writeGreyPages(maskPath, kWide, kHigh, {GreyPage(kWide * kHigh, 1)}));
    ASSERT_TRUE(testing::writeGreyPages(labelPath, kWide, kHigh, {kLabels}));
    ASSERT_TRUE(controller.openImageFile(stackPath));
    ASSERT_TRUE(stack.open(stackPath));
    EXPECT_EQ(states(), (std::array{true, false, true, false, true, false}));
    ASSERT_TRUE(controller.setMaskFile(maskPath));
    ASSERT_TRUE(labels.load(labelPath));
    ASSERT_TRUE(stack.showSlice(kSlices - 1));
    EXPECT_EQ(states(), (std::array{true, true, true, true, false, true}));
    controller.clearMask();
    labels.clear();
    EXPECT_EQ(states(), (std::array{true, false, true, false, false, true}));
}

}  // namespace
}  // namespace pv
