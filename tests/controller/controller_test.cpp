#include <gtest/gtest.h>
#include <tiffio.h>

#include <array>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "ReferenceReport.h"
#include "TestFiles.h"
#include "controller/PixmeraVeltroController.h"
#include "output/Export.h"

namespace pv {
namespace {

// Records what the controller asks of its front end.
struct RecordingPort : NullControllerPort {
    void showImage(const Picture& p) override { shownImages.push_back(p); }
    void showScatterGram(const Picture& p) override { scatterGram = p; }
    void showColorBars(const std::array<std::string_view, 4>& names) override {
        colorBars.assign(names.begin(), names.end());
    }
    void refreshControls() override { ++refreshes; }
    void askBackgroundCorrectionWarning(const WarningQuestion& q) override {
        backgroundWarnings.push_back(q);
    }
    void performBackgroundCorrection() override { ++backgroundRequests; }
    void showHelpPage(std::string_view page) override { helpPages.emplace_back(page); }
    void showError(const Error& e) override { errors.push_back(e.message()); }
    void logMessage(std::string_view m) override { log.emplace_back(m); }
    void noteRecentDocument(const std::string& p) override { recent.push_back(p); }
    void askScatterGramWarning(const WarningQuestion& q) override {
        scatterGramWarnings.push_back(q);
    }

    std::vector<Picture> shownImages;
    Picture scatterGram;
    std::vector<std::string> colorBars;
    int refreshes = 0;
    std::vector<WarningQuestion> backgroundWarnings;
    int backgroundRequests = 0;
    std::vector<std::string> helpPages;
    std::vector<std::string> errors;
    std::vector<std::string> log;
    std::vector<std::string> recent;
    std::vector<WarningQuestion> scatterGramWarnings;
};

using RGB = std::array<std::uint8_t, 3>;

// A meshed RGB picture at 72 dpi; rows listed top to bottom.
Picture picture(int w, int h, const std::vector<RGB>& pixels) {
    auto b = Bitmap::create(w, h, 3, false, false);
    for (int i = 0; i < w * h; ++i) {
        for (int k = 0; k < 3; ++k) {
            b->bitmapData()[i * 3 + k] = pixels[std::size_t(i)][std::size_t(k)];
        }
    }
    return Picture::at72dpi(std::move(*b));
}

struct ControllerTest : ::testing::Test {
    ControllerTest() {
        controller.awakeFromNib();
        controller.applicationDidFinishLaunching();
    }
    void load(const Picture& p) { controller.takePictureFromView(p, std::nullopt); }

    RecordingPort port;
    PixmeraVeltroController controller{port};
};

// The 2 x 2 picture whose report is the reference example.
const std::vector<RGB> kExample = {{100, 0, 0}, {0, 50, 0}, {100, 50, 0}, {0, 0, 0}};

TEST_F(ControllerTest, StartsWithNothingEnabledAndABlackScatterGram) {
    const ButtonStates& b = controller.buttons();
    EXPECT_FALSE(b.backgroundButton || b.calculateCoefficientButton || b.saveButton ||
                 b.calculateROIButton || b.reflectROIButton);
    EXPECT_FALSE(controller.initialImageHasBeenSelected());
    ASSERT_FALSE(port.scatterGram.isEmpty());
    const Bitmap& sg = *port.scatterGram.bitmap;
    EXPECT_EQ(sg.pixelsWide(), 256);
    EXPECT_EQ(sg.pixelsHigh(), 256);
    for (std::size_t i = 0; i < sg.totalBytes(); ++i) {
        ASSERT_EQ(sg.bitmapData()[i], 0) << i;
    }
    // No image: zero counts, and percentages of 0/0 read "nan", never "-nan".
    EXPECT_EQ(controller.fields().yAxisPixelCountText, "0");
    EXPECT_EQ(controller.fields().yAxisPixelPercentText, "nan");
    EXPECT_EQ(controller.fields().pixelCountROITotal, "--");
    EXPECT_EQ(port.colorBars,
              (std::vector<std::string>{"brv-grad", "bgh-grad", "gyv-grad", "ryh-grad"}));
    EXPECT_FALSE(controller.supportedImageFileTypes().empty());
}

TEST_F(ControllerTest, ReferenceExampleReportComesOutByteForByte) {
    load(picture(2, 2, kExample));
    EXPECT_TRUE(controller.buttons().calculateCoefficientButton);
    EXPECT_FALSE(controller.buttons().saveButton);

    controller.calculateCoefficientsNow();
    // Not background-corrected: the question comes first.
    ASSERT_EQ(port.backgroundWarnings.size(), 1u);
    EXPECT_EQ(controller.fields().coefficient_Rr, "");
    controller.colocalizationWarningSheetDidEnd(BackgroundWarningAnswer::CalculateAnyway);
    EXPECT_TRUE(controller.buttons().saveButton);
    EXPECT_TRUE(controller.analysis().coefficientsCalculated);

    EXPECT_EQ(buildReport(controller.fields()), test::kReferenceReport);
}

// Each answer's tag, as the question box returns it, leads to its action; an unknown tag to none.
TEST_F(ControllerTest, WarningAnswersDecideWhatHappens) {
    struct Case {
        int tag;
        bool calculates;
        int backgroundRequests;
        std::size_t helpPages;
    };
    for (const Case& c :
         {Case{1, true, 0, 0}, Case{-1, false, 1, 0}, Case{0, false, 0, 1}, Case{7, false, 0, 0}}) {
        RecordingPort p;
        PixmeraVeltroController ctl(p);
        ctl.awakeFromNib();
        ctl.takePictureFromView(picture(2, 2, kExample), std::nullopt);
        ctl.calculateCoefficientsNow();
        if (const auto answer = backgroundWarningAnswerForTag(c.tag)) {
            ctl.colocalizationWarningSheetDidEnd(*answer);
        }
        EXPECT_EQ(ctl.analysis().coefficientsCalculated, c.calculates) << c.tag;
        EXPECT_EQ(ctl.fields().coefficient_R.empty(), !c.calculates) << c.tag;
        EXPECT_EQ(p.backgroundRequests, c.backgroundRequests) << c.tag;
        ASSERT_EQ(p.helpPages.size(), c.helpPages) << c.tag;
        if (c.helpPages) {
            EXPECT_EQ(p.helpPages[0], "src/PixmeraVeltro206.html");
        }
    }
}

// Ticking a box shows nothing new until Calculate; select all ticks every box and clears the
// texts; clear all also forgets the calculation, but not the values.
TEST_F(ControllerTest, SelectAllAndClearAllCoefficients) {
    load(picture(2, 2, kExample));
    controller.setCheckboxes({true, false, false, true});
    controller.colocalizationWarningSheetDidEnd(BackgroundWarningAnswer::CalculateAnyway);
    const ResultFields& f = controller.fields();
    controller.setCheckboxes({true, true, true, true});
    EXPECT_EQ(f.coefficient_R, "ND");  // the texts wait for the next Calculate
    controller.selectAllCoefficients();
    EXPECT_TRUE(controller.checkboxes().checkbox_R && controller.checkboxes().checkbox_k1);
    EXPECT_EQ(f.coefficient_Rr, "");
    EXPECT_TRUE(controller.analysis().coefficientsCalculated);
    EXPECT_TRUE(controller.buttons().saveButton);  // left enabled: exports empty lines

    controller.colocalizationWarningSheetDidEnd(BackgroundWarningAnswer::CalculateAnyway);
    controller.clearAllCoefficients();
    EXPECT_EQ(f.coefficient_m2, "");
    EXPECT_FALSE(controller.analysis().coefficientsCalculated);
    EXPECT_DOUBLE_EQ(controller.analysis().coefficients.overlap_m2, 0.5);
}

// Each of the sixteen settings: k1's box governs k2 as well, m1's governs m2.
TEST_F(ControllerTest, EachCheckboxSettingShowsNDInExactlyItsFields) {
    const std::string cells = std::string(PV_SOURCE_DIR) + "/resources/sample-cells.tif";
    for (int ticks = 0; ticks < 16; ++ticks) {
        const CoefficientCheckboxes boxes{(ticks & 1) != 0, (ticks & 2) != 0, (ticks & 4) != 0,
                                          (ticks & 8) != 0};
        controller.setCheckboxes(boxes);
        ASSERT_TRUE(controller.openImageFile(cells));
        controller.calculateCoefficientsNow();
        controller.colocalizationWarningSheetDidEnd(BackgroundWarningAnswer::CalculateAnyway);
        // Rr, R, k1, k2, m1, m2: "N" for "ND", "v" for a value.
        const ResultFields& f = controller.fields();
        std::string shown, want;
        for (const auto& [text, ticked] : {std::pair(f.coefficient_Rr, boxes.checkbox_Rr),
                                           std::pair(f.coefficient_R, boxes.checkbox_R),
                                           std::pair(f.coefficient_k1, boxes.checkbox_k1),
                                           std::pair(f.coefficient_k2, boxes.checkbox_k1),
                                           std::pair(f.coefficient_m1, boxes.checkbox_m1),
                                           std::pair(f.coefficient_m2, boxes.checkbox_m1)}) {
            shown += text == "ND" ? 'N' : text.empty() ? '-' : 'v';
            want += ticked ? 'v' : 'N';
        }
        EXPECT_EQ(shown, want) << "check boxes " << ticks;
    }
    EXPECT_EQ(port.backgroundWarnings.size(), 16u);
}

TEST_F(ControllerTest, ChangingThePairRelabelsAndRecountsButKeepsTheCensus) {
    // red 9, green 10, blue 20 and a pure blue and a pure red pixel
    load(picture(3, 1, {{9, 10, 20}, {0, 0, 40}, {30, 0, 0}}));
    const std::int32_t total = controller.analysis().census.totalPixelCount;
    struct Case {
        int popupIndex;
        int rgbCombo;
        const char* y;
        const char* x;
        const char* xy;
        const char* yCount;
        const char* xCount;
        const char* firstBar;
    };
    for (const Case& c : {Case{6, 4, "Blue:", "Red:", "Magenta:", "1", "1", "bbv-grad"},
                          Case{3, 2, "Green:", "Red:", "Yellow:", "0", "1", "bgv-grad"},
                          Case{5, 0, "Red:", "Green:", "Yellow:", "1", "0", "brv-grad"},
                          Case{42, 0, "Red:", "Green:", "Yellow:", "1", "0", "brv-grad"}}) {
        controller.colocalizationWarningSheetDidEnd(BackgroundWarningAnswer::CalculateAnyway);
        controller.getChannelsRGBCombo(c.popupIndex);
        const ResultFields& f = controller.fields();
        EXPECT_EQ(int(controller.analysis().rgbCombo), c.rgbCombo);
        EXPECT_EQ(f.yAxisPixelColorText, c.y);
        EXPECT_EQ(f.xAxisPixelColorText, c.x);
        EXPECT_EQ(f.xyAxisPixelColorText, c.xy);
        EXPECT_EQ(f.yAxisPixelCountText, c.yCount);
        EXPECT_EQ(f.xAxisPixelCountText, c.xCount);
        EXPECT_EQ(port.colorBars.at(0), c.firstBar);
        EXPECT_EQ(controller.analysis().census.totalPixelCount, total);
        EXPECT_EQ(f.coefficient_Rr, "");  // the pass empties the results
        EXPECT_FALSE(controller.buttons().saveButton);
        EXPECT_EQ(f.xyAxisROIPixelCountText, "--");
    }
    // Y blue, X red for pair 4: sums cover pixels with blue or red above 0.
    controller.getChannelsRGBCombo(6);
    EXPECT_EQ(controller.analysis().sums.sumPixelCount, 3);
    EXPECT_EQ(controller.analysis().sums.sumPixelsYAxis, 60);
    EXPECT_EQ(controller.analysis().sums.sumPixelsXAxis, 39);
}

// Its texts are in ImageInfoTexts' tests; a pasted picture is no recent document.
TEST_F(ControllerTest, PastedPictureIsAnalysedButNotRemembered) {
    load(picture(3, 2, std::vector<RGB>(6, RGB{1, 2, 3})));
    EXPECT_TRUE(controller.initialImageHasBeenSelected());
    EXPECT_TRUE(port.recent.empty());
    EXPECT_EQ(controller.workingImage().imageFileInfo.bitDepth, 24);
}

TEST_F(ControllerTest, PlanarPictureIsMeshedBeforeAnalysis) {
    auto b = Bitmap::create(2, 1, 3, false, true);
    const std::uint8_t planes[3][2] = {{100, 0}, {50, 7}, {0, 0}};
    for (int k = 0; k < 3; ++k) {
        for (int i = 0; i < 2; ++i) {
            b->plane(k)[i] = planes[k][i];
        }
    }
    load(Picture::at72dpi(std::move(*b)));
    const WorkingImage& image = controller.workingImage();
    EXPECT_EQ(image.bitmapInfo().isPlanar, 0);
    EXPECT_EQ(image.bitmapInfo().samplesPerPixel, 3);
    const std::uint8_t* d = image.currentDisplayedImage().bitmap->bitmapData();
    EXPECT_EQ(std::vector<int>(d, d + 6), (std::vector<int>{100, 50, 0, 0, 7, 0}));
    EXPECT_EQ(controller.fields().xyAxisPixelCountText, "1");
    EXPECT_EQ(controller.fields().xAxisPixelCountText, "1");
}

TEST_F(ControllerTest, GreyPictureHandedOverIsAnalysedAsRGB) {
    auto b = Bitmap::create(2, 1, 1, false, false, 4);  // grey, padded rows
    b->bitmapData()[0] = 5;
    b->bitmapData()[1] = 0;
    load(Picture::at72dpi(std::move(*b)));
    const WorkingImage& image = controller.workingImage();
    EXPECT_EQ(image.bitmapInfo().samplesPerPixel, 3);
    const std::uint8_t* d = image.currentDisplayedImage().bitmap->bitmapData();
    EXPECT_EQ(std::vector<int>(d, d + 6), (std::vector<int>{5, 5, 5, 0, 0, 0}));
    EXPECT_EQ(controller.analysis().sums.sumPixelCount, 1);
}

TEST_F(ControllerTest, FailedLoadLeavesAnEmptyWorkingImageAndSaysWhy) {
    load(picture(2, 2, kExample));
    const Status s = controller.openImageFile("/nonexistent/folder/cells.tif");
    ASSERT_FALSE(s.ok());
    EXPECT_NE(s.error().message().find("cells.tif"), std::string::npos);
    ASSERT_EQ(port.errors.size(), 1u);
    const WorkingImage& image = controller.workingImage();
    EXPECT_TRUE(image.currentDisplayedImage().isEmpty());
    EXPECT_TRUE(image.currentImageRect().isEmpty());
    EXPECT_EQ(image.bitmapInfo().bytesPerPlane, 0);
    EXPECT_EQ(controller.analysis().census.totalPixelCount, 0);
    EXPECT_TRUE(port.recent.empty());
}

// Drags a rectangle on the scatter gram as a user would.
void dragRectangle(PixmeraVeltroController& c, Point from, Point to) {
    c.scatterGramGraph().mouseDown({.location = from});
    c.scatterGramGraph().mouseDragged({.location = to});
    c.scatterGramGraph().mouseUp({.location = to});
}

TEST_F(ControllerTest, RegionCountsThenCalculatesAfterTheWarning) {
    // Red-green pairs: (X 0, Y 30) pure red twice, (X 40, Y 30) yellow, (X 200, Y 200) outside.
    load(picture(4, 1, {{30, 0, 0}, {30, 0, 5}, {30, 40, 0}, {200, 200, 0}}));
    dragRectangle(controller, {0, 0}, {100, 100});
    const ResultFields& f = controller.fields();
    EXPECT_EQ(controller.analysis().roiCensus.totalPixelCount, 3);
    EXPECT_EQ(f.yAxisROIPixelCountText, "1");  // (30, 0, 5) has blue: no class
    EXPECT_EQ(f.yAxisROIPixelPercentText, "33.33");
    EXPECT_EQ(f.xyAxisROIPixelCountText, "1");
    EXPECT_EQ(f.pixelROIPercentTotal, "66.67");
    EXPECT_TRUE(f.roiColumnEnabled);
    EXPECT_TRUE(controller.buttons().calculateROIButton && controller.buttons().reflectROIButton);
    EXPECT_EQ(f.coefficient_M1, "");

    controller.calculateROINow();
    ASSERT_EQ(port.scatterGramWarnings.size(), 1u);
    const WarningQuestion& q = port.scatterGramWarnings[0];
    EXPECT_EQ(q.title, "Warning");
    EXPECT_EQ(q.defaultButton, "Calculate");
    EXPECT_EQ(q.alternateButton, "Background...");
    controller.colocalizationScatterGramWarningSheetDidEnd(ScatterGramWarningAnswer::Background);
    EXPECT_EQ(port.backgroundRequests, 1);
    EXPECT_EQ(f.coefficient_M1, "");

    controller.colocalizationScatterGramWarningSheetDidEnd(ScatterGramWarningAnswer::Calculate);
    // M1: Y where X > 0 (30) over all Y (90); M2: X where Y > 0 over all X: 40 / 40.
    EXPECT_EQ(f.coefficient_M1, "0.3333");
    EXPECT_EQ(f.coefficient_M2, "1.0000");
    EXPECT_TRUE(controller.analysis().roiCoefficientsCalculated);
    EXPECT_TRUE(controller.buttons().saveButton);

    // A click inside the rectangle only moves it by nothing.
    controller.scatterGramGraph().mouseDown({.location = {10, 10}});
    controller.scatterGramGraph().mouseUp({.location = {10, 10}});
    EXPECT_EQ(f.coefficient_M1, "0.3333");
    // A click outside it without a drag removes the region: the column greys, all is cleared.
    controller.scatterGramGraph().mouseDown({.location = {150, 150}});
    controller.scatterGramGraph().mouseUp({.location = {150, 150}});
    EXPECT_FALSE(f.roiColumnEnabled);
    EXPECT_EQ(f.yAxisROIPixelCountText, "--");
    EXPECT_EQ(f.coefficient_M1, "");
    EXPECT_FALSE(controller.buttons().calculateROIButton || controller.buttons().reflectROIButton);
    EXPECT_FALSE(controller.analysis().roiCoefficientsCalculated);
    // Without a region the single-colour test counted the pure-Y pixels.
    EXPECT_EQ(controller.analysis().roiCensus.totalPixelCount, 1);
}

TEST_F(ControllerTest, RevealPaintsACopyAndClearingShowsThePlainImage) {
    load(picture(3, 1, {{30, 0, 0}, {30, 40, 0}, {200, 200, 9}}));
    dragRectangle(controller, {30, 20}, {60, 60});  // only the yellow pixel (X 40, Y 30)
    controller.reflectWhitePixels();
    const WorkingImage& image = controller.workingImage();
    ASSERT_FALSE(image.revealedImage().isEmpty());
    const std::uint8_t* r = image.revealedImage().bitmap->bitmapData();
    EXPECT_EQ(std::vector<int>(r, r + 9), (std::vector<int>{30, 0, 0, 255, 255, 255, 200, 200, 9}));
    EXPECT_EQ(image.currentDisplayedImage().bitmap->bitmapData()[3], 30);  // analysed: untouched
    EXPECT_TRUE(controller.workingImage().reflectedImageValid());
    EXPECT_EQ(port.shownImages.back().bitmap, image.revealedImage().bitmap);

    // A second reveal shows the second region alone.
    controller.getSelectionTool(0);
    dragRectangle(controller, {0, 20}, {10, 40});  // only the pure red pixel
    controller.reflectWhitePixels();
    const std::uint8_t* r2 = image.revealedImage().bitmap->bitmapData();
    EXPECT_EQ(std::vector<int>(r2, r2 + 6), (std::vector<int>{255, 255, 255, 30, 40, 0}));

    // Changing the pair shows the analysed picture but keeps the reveal for saving.
    controller.getChannelsRGBCombo(3);
    EXPECT_EQ(port.shownImages.back().bitmap, image.currentDisplayedImage().bitmap);
    EXPECT_TRUE(controller.workingImage().reflectedImageValid());
    // A click off the region removes it, and the reveal with it.
    controller.scatterGramGraph().mouseDown(MouseEvent{.location = {250, 250}});
    controller.scatterGramGraph().mouseUp(MouseEvent{.location = {250, 250}});
    EXPECT_FALSE(controller.workingImage().reflectedImageValid());
    EXPECT_EQ(port.shownImages.back().bitmap, image.currentDisplayedImage().bitmap);
}

TEST_F(ControllerTest, BackgroundCorrectionFromTheWindowsControlsAndRestore) {
    load(picture(3, 1, {{20, 60, 0}, {40, 10, 90}, {80, 80, 80}}));
    const WorkingImage& image = controller.workingImage();
    const BitmapInfo geometryBefore = image.bitmapInfo();
    const auto pixels = [](const Picture& p) {
        return std::vector<int>(p.bitmap->bitmapData(), p.bitmap->bitmapData() + 9);
    };
    BackgroundControls controls;  // automatic tab, first preset row: level 25
    controls.channelItem = 0;
    getRGBChannel(controls, controller.backgroundSettings());
    controller.removeBackgroundNow(controls);
    EXPECT_EQ(pixels(image.currentDisplayedImage()),
              (std::vector<int>{0, 60, 0, 40, 10, 90, 80, 80, 80}));
    EXPECT_EQ(pixels(image.originalImage()), (std::vector<int>{20, 60, 0, 40, 10, 90, 80, 80, 80}));
    EXPECT_EQ(port.shownImages.back().bitmap, image.currentDisplayedImage().bitmap);
    EXPECT_EQ(image.imageFileInfo.backgroundCorrected, 1);
    EXPECT_EQ(image.bitmapInfo().bytesPerRow, geometryBefore.bytesPerRow);
    EXPECT_EQ(controller.fields().xAxisPixelCountText, "1");  // (0, 60, 0) is green now

    // Corrections accumulate: the manual tab at 50 on all channels.
    controls.selectedTab = 1;
    controls.typedValue = 50;
    getThresholdEntryValue(controls, controller.backgroundSettings());
    controls.channelItem = 3;
    getRGBChannel(controls, controller.backgroundSettings());
    controller.removeBackgroundNow(controls);
    EXPECT_EQ(pixels(image.currentDisplayedImage()),
              (std::vector<int>{0, 60, 0, 0, 0, 90, 80, 80, 80}));
    // Corrected: Calculate asks nothing.
    controller.calculateCoefficientsNow();
    controller.calculateROINow();
    EXPECT_TRUE(port.backgroundWarnings.empty());
    EXPECT_TRUE(port.scatterGramWarnings.empty());
    EXPECT_TRUE(controller.buttons().saveButton);

    controller.resetImageToOriginal();
    EXPECT_EQ(pixels(image.currentDisplayedImage()),
              (std::vector<int>{20, 60, 0, 40, 10, 90, 80, 80, 80}));
    EXPECT_EQ(image.imageFileInfo.backgroundCorrected, 0);
    EXPECT_EQ(port.shownImages.back().bitmap, image.originalImage().bitmap);
    EXPECT_FALSE(controller.buttons().saveButton);

    // A new load clears the mark before the new picture is analysed.
    controller.removeBackgroundNow(controls);
    load(picture(1, 1, {{1, 1, 1}}));
    EXPECT_EQ(image.imageFileInfo.backgroundCorrected, 0);
    EXPECT_EQ(image.currentImageRect(), makeRect(0, 0, 1, 1));
}

// However many steps an action takes, the front end refreshes once, at its end.
TEST_F(ControllerTest, EachActionRefreshesTheControlsOnce) {
    const std::vector<std::pair<const char*, std::function<void()>>> actions = {
        {"load", [&] { load(picture(2, 2, kExample)); }},
        {"pair", [&] { controller.getChannelsRGBCombo(3); }},
        {"answer",
         [&] {
             controller.colocalizationWarningSheetDidEnd(BackgroundWarningAnswer::CalculateAnyway);
         }},
        {"region",
         [&] {
             dragRectangle(controller, {0, 0}, {100, 100});
         }},
        {"reveal", [&] { controller.reflectWhitePixels(); }},
        {"restore", [&] { controller.restoreImageToOriginal(); }},
    };
    for (const auto& [name, act] : actions) {
        const int before = port.refreshes;
        act();
        EXPECT_EQ(port.refreshes - before, 1) << name;
    }
}

// Commands that need a picture wait for the first one; Restore waits for a correction.
TEST_F(ControllerTest, MenuItemsFollowThePictureAndTheCorrection) {
    const MenuAction needPicture[] = {
        MenuAction::Histogram,  MenuAction::ImageInfo, MenuAction::BackgroundCorrection,
        MenuAction::PageLayout, MenuAction::Print,     MenuAction::RestoreOriginal};
    const auto enabled = [&] {
        std::string s;
        for (MenuAction a : needPicture) {
            s += controller.validateMenuItem(a) ? 'y' : 'n';
        }
        return s + (controller.validateMenuItem(MenuAction::Other) ? 'y' : 'n');
    };
    EXPECT_EQ(enabled(), "nnnnnny");
    load(picture(2, 2, kExample));
    EXPECT_EQ(enabled(), "yyyyyny");
    BackgroundControls controls;
    controller.removeBackgroundNow(controls);
    EXPECT_EQ(enabled(), "yyyyyyy");
    controller.restoreImageToOriginal();
    EXPECT_EQ(enabled(), "yyyyyny");
}

TEST_F(ControllerTest, PixelsWithAPairComeFromThePass) {
    EXPECT_EQ(controller.pixelsWithPair(0, 0), 0u);
    load(picture(4, 1, {{30, 0, 0}, {30, 0, 5}, {30, 40, 0}, {0, 0, 9}}));
    EXPECT_EQ(controller.pixelsWithPair(0, 30), 2u);  // whatever the blue sample
    EXPECT_EQ(controller.pixelsWithPair(40, 30), 1u);
    EXPECT_EQ(controller.pixelsWithPair(0, 0), 1u);
    EXPECT_EQ(controller.pixelsWithPair(256, 0), 0u);
}

// Results without an answer come with the reason, in words; answers come with none.
TEST_F(ControllerTest, UndefinedResultsSayWhy) {
    struct Case {
        std::vector<RGB> pixels;
        CoefficientCheckboxes boxes;
        bool region;  // a rectangle around pairs that hold no pixel
        std::vector<std::string> cautions;
    };
    const CoefficientCheckboxes all;
    const Case cases[] = {
        {kExample, all, false, {}},
        {{{100, 10, 0}, {100, 50, 0}},
         all,
         false,
         {"Rr is undefined: the red channel is constant"}},
        {{{100, 10, 0}, {100, 10, 0}},
         all,
         false,
         {"Rr is undefined: the red and green channels are constant"}},
        {{{100, 0, 0}, {50, 0, 9}},
         all,
         false,
         {"Rr, R, k2 and m2 are undefined: the green channel is 0 in every pixel"}},
        // Unticked coefficients read ND and need no word.
        {{{100, 0, 0}, {50, 0, 9}},
         {false, true, false, false},
         false,
         {"R is undefined: the green channel is 0 in every pixel"}},
        {{{0, 0, 0}, {0, 0, 70}},
         all,
         false,
         {"Rr, R, k1, k2, m1 and m2 are undefined: no pixel has red or green above 0"}},
        {{{7, 7, 7}, {90, 90, 90}},
         all,
         false,
         {"the red and green channels are identical in every pixel: is the picture grey?"}},
        {kExample,
         all,
         true,
         {"M1 and M2 are undefined: the region holds no pixels with red or green above 0"}},
    };
    for (const Case& c : cases) {
        RecordingPort p;
        PixmeraVeltroController ctl(p);
        ctl.awakeFromNib();
        EXPECT_TRUE(ctl.cautions().empty());  // no picture, nothing to say
        ctl.takePictureFromView(picture(int(c.pixels.size()), 1, c.pixels), std::nullopt);
        ctl.setCheckboxes(c.boxes);
        ctl.calculateCoefficients();
        if (c.region) {
            dragRectangle(ctl, {150, 150}, {250, 250});
            ctl.calculateROI();
        }
        std::vector<std::string> texts;
        for (const Caution& caution : ctl.cautions()) {
            texts.push_back(caution.text);
        }
        EXPECT_EQ(texts, c.cautions) << ::testing::PrintToString(c.pixels);
    }
}

// A picture taller than a float can count rows by one (2^24) is read and counted exactly:
// every row bound and buffer size comes from integers.
TEST_F(ControllerTest, PictureTallerThanFloatsCountIsCountedExactly) {
    constexpr std::uint32_t kRows = (1u << 24) + 84;
    constexpr std::uint32_t kRowsPerStrip = 1u << 16;
    testing::TempDir dir;
    const std::string path = dir.file("tall.tif");
    TIFF* t = TIFFOpen(path.c_str(), "w");
    ASSERT_NE(t, nullptr);
    TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 1);
    TIFFSetField(t, TIFFTAG_IMAGELENGTH, kRows);
    TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
    TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
    TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
    TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, kRowsPerStrip);
    // Row y is red when y is a multiple of 3, yellow otherwise.
    std::vector<std::uint8_t> strip;
    for (std::uint32_t y0 = 0, s = 0; y0 < kRows; y0 += kRowsPerStrip, ++s) {
        strip.clear();
        for (std::uint32_t y = y0; y < std::min(kRows, y0 + kRowsPerStrip); ++y) {
            strip.insert(strip.end(), {200, std::uint8_t(y % 3 == 0 ? 0 : 100), 0});
        }
        ASSERT_GT(TIFFWriteEncodedStrip(t, s, strip.data(), tmsize_t(strip.size())), 0);
    }
    TIFFClose(t);

    // So few bytes for so many pixels would be refused as made up; any size is taken here.
    const auto anySize = [](std::uint64_t, std::uint64_t) -> std::optional<std::string> {
        return std::nullopt;
    };
    ASSERT_TRUE(controller.openReadPicture(path, readImageFile(path, {.sizeCheck = anySize})).ok());
    const PixelCensus& c = controller.analysis().census;
    EXPECT_EQ(c.redPixelCount, std::int32_t((kRows + 2) / 3));
    EXPECT_EQ(c.yellowPixelCount, std::int32_t(kRows - (kRows + 2) / 3));
    EXPECT_EQ(c.totalPixelCount, std::int32_t(kRows));
    EXPECT_EQ(controller.currentDisplayedImage().pixelsHigh(), int(kRows));
}

}  // namespace
}  // namespace pv
