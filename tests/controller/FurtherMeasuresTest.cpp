#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "BruteMeasures.h"
#include "TestFiles.h"
#include "controller/PixmeraVeltroController.h"
#include "controller/ResultTexts.h"
#include "output/Export.h"

namespace pv {
namespace {

using test::Values;

MeasureRequest everything() {
    return {true, true, true, true, true, 40, 9, 2};
}

// Red, green, blue samples pixel after pixel: the blue channel 0, so that every pixel with red
// and green above 0 is counted as both.
struct Samples {
    int w, h;
    std::vector<std::uint32_t> rgb;
    std::uint32_t at(int i, int k) const { return rgb[std::size_t(i * 3 + k)]; }
};

Samples randomSamples(int w, int h, std::mt19937& rng) {
    Samples s{w, h, {}};
    for (int i = 0; i < w * h; ++i) {
        const std::uint32_t red = rng() % 4 == 0 ? 0 : rng() % 200;
        s.rgb.push_back(red);
        s.rgb.push_back(rng() % 4 == 0 ? 0 : std::min<std::uint32_t>(255, red / 2 + rng() % 90));
        s.rgb.push_back(0);
    }
    return s;
}

struct FurtherMeasuresTest : ::testing::Test {
    FurtherMeasuresTest() {
        controller.awakeFromNib();
        controller.applicationDidFinishLaunching();
    }
    std::string written(const std::string& name, const Samples& s) {
        const std::string path = temp.file(name);
        testing::writeTiff(path, {.wide = s.w, .high = s.h}, s.rgb);
        return path;
    }
    std::string line(const std::string& name) const {
        for (const ResultLine& l : controller.fields().furtherMeasures) {
            if (l.name == name) {
                return l.value;
            }
        }
        return "(none)";
    }

    testing::TempDir temp;
    NullControllerPort port;
    PixmeraVeltroController controller{port};
};

// The pair green against red, inside a mask: the measures speak of the masked pixels only.
TEST_F(FurtherMeasuresTest, MeasuresTheAnalysedPixelsAndGoIntoTheReport) {
    std::mt19937 rng(1);
    const Samples picture = randomSamples(30, 20, rng);
    Samples mask{30, 20, {}};
    for (int i = 0; i < 600; ++i) {
        const std::uint32_t v = (i % 30) < 17 ? 255 : 0;
        mask.rgb.insert(mask.rgb.end(), {v, v, v});
    }
    controller.getChannelsRGBCombo(popupIndexForRGBCombo(RGBCombo::GreenRed));
    ASSERT_TRUE(controller.openImageFile(written("cells.tif", picture)));
    ASSERT_TRUE(controller.setMaskFile(written("mask.tif", mask)));
    const std::string plain = buildReport(controller.fields());
    EXPECT_TRUE(controller.fields().furtherMeasures.empty());

    ASSERT_TRUE(controller.calculateFurtherMeasures(everything()));
    std::vector<std::string> names;
    for (const ResultLine& l : controller.fields().furtherMeasures) {
        names.push_back(l.name);
    }
    EXPECT_EQ(names, test::kMeasureNames);

    Values y, x, ry, rx;  // every masked pixel, and those Rr uses
    for (int i = 0; i < 600; ++i) {
        if (mask.at(i, 0) == 0) {
            continue;
        }
        y.push_back(picture.at(i, 1));
        x.push_back(picture.at(i, 0));
        if (y.back() > 0 || x.back() > 0) {
            ry.push_back(y.back());
            rx.push_back(x.back());
        }
    }
    EXPECT_EQ(line("Spearman"),
              printfText("%0.4f", test::pearson(test::ranks(ry), test::ranks(rx))));
    EXPECT_EQ(line("Observed r"), printfText("%0.4f", test::pearson(y, x)));
    EXPECT_EQ(line("PSF size"), "2");

    std::string block = "Further Measures\n";
    for (const ResultLine& l : controller.fields().furtherMeasures) {
        block += l.name + "\t" + l.value + "\n";
    }
    EXPECT_EQ(buildReport(controller.fields()), plain + block + "\n");

    // A new analysis leaves no measures of the old one behind.
    controller.applyBackgroundLevel(3, 10);
    EXPECT_TRUE(controller.fields().furtherMeasures.empty());
    EXPECT_FALSE(controller.furtherMeasures());
}

// A front end that runs the test on a thread of its own gets the same numbers.
TEST_F(FurtherMeasuresTest, TheTestRunElsewhereGivesTheSameLines) {
    std::mt19937 rng(2);
    ASSERT_TRUE(controller.openImageFile(written("cells.tif", randomSamples(40, 30, rng))));
    ASSERT_TRUE(controller.calculateFurtherMeasures(everything()));
    const std::vector<ResultLine> direct = controller.fields().furtherMeasures;

    const std::uint64_t generation = controller.analysisGeneration();
    Result<BlockShuffleTest> test = controller.significanceTest(everything());
    ASSERT_TRUE(test);
    const auto result = test->run(40, 9, 3);
    ASSERT_TRUE(controller.takeFurtherMeasures(everything(), result, generation));
    ASSERT_EQ(controller.fields().furtherMeasures.size(), direct.size());
    for (std::size_t i = 0; i < direct.size(); ++i) {
        EXPECT_EQ(controller.fields().furtherMeasures[i].value, direct[i].value) << direct[i].name;
    }
    // Cancelled: the histogram measures without the test's lines.
    controller.takeFurtherMeasures(everything(), std::nullopt);
    EXPECT_EQ(controller.fields().furtherMeasures.size(), 10u);
    // A result of the picture before a correction speaks of other pixels.
    controller.applyBackgroundLevel(3, 30);
    EXPECT_FALSE(controller.takeFurtherMeasures(everything(), result, generation));
    EXPECT_TRUE(controller.fields().furtherMeasures.empty());
}

// Both slices' pixels count, once each: the pooled stack of a picture and its copy measures as
// the picture, the test's sums doubled alike.
TEST_F(FurtherMeasuresTest, APooledStackIsMeasuredOverEverySlice) {
    std::mt19937 rng(3);
    const Samples s = randomSamples(24, 16, rng);
    const std::string one = written("one.tif", s), two = written("two.tif", s);
    ASSERT_TRUE(controller.openImageFile(one));
    ASSERT_TRUE(controller.calculateFurtherMeasures(everything()));
    const std::string observed = line("Observed r"), spearman = line("Spearman");

    ASSERT_TRUE(controller.openStack({{{one, 0}, {one, 1}}, {{two, 0}, {two, 1}}}));
    ASSERT_TRUE(controller.calculateFurtherMeasures(everything()));
    EXPECT_EQ(line("Observed r"), observed);
    EXPECT_EQ(line("Spearman"), spearman);
    EXPECT_EQ(line("PSF size"), "2");
}

// Costes' thresholds applied as two corrections: the census then counts exactly the pixels
// above both, and Restore Original brings the picture back.
TEST_F(FurtherMeasuresTest, ApplyingCostesThresholdsKeepsThePixelsAboveThem) {
    std::mt19937 rng(4);
    const Samples s = randomSamples(50, 40, rng);
    ASSERT_TRUE(controller.openImageFile(written("cells.tif", s)));
    const std::string before = controller.fields().xyAxisPixelCountText;
    MeasureRequest costes;
    costes.costes = true;
    ASSERT_TRUE(controller.calculateFurtherMeasures(costes));
    const int ty = std::stoi(line("Costes Y threshold")),
              tx = std::stoi(line("Costes X threshold"));
    int above = 0;
    for (int i = 0; i < 2000; ++i) {
        above += int(s.at(i, 0)) > ty && int(s.at(i, 1)) > tx;
    }
    const auto shown = controller.costesThresholdsShown();
    ASSERT_TRUE(shown.has_value());
    EXPECT_EQ(std::pair(shown->y, shown->x), std::pair(ty, tx));
    ASSERT_TRUE(controller.applyCostesThresholds());
    EXPECT_FALSE(controller.costesThresholdsShown());  // the analysis started over
    EXPECT_EQ(controller.fields().xyAxisPixelCountText, std::to_string(above));
    EXPECT_TRUE(controller.validateMenuItem(MenuAction::RestoreOriginal));
    controller.restoreImageToOriginal();
    EXPECT_EQ(controller.fields().xyAxisPixelCountText, before);
}

TEST_F(FurtherMeasuresTest, UndefinedMeasuresPrintNan) {
    Samples flat{8, 8, {}};
    for (int i = 0; i < 64; ++i) {
        flat.rgb.insert(flat.rgb.end(), {std::uint32_t(i * 3), 7, 0});  // green constant
    }
    ASSERT_TRUE(controller.openImageFile(written("flat.tif", flat)));
    ASSERT_TRUE(controller.calculateFurtherMeasures(everything()));
    for (const char* name : {"Spearman", "Kendall", "Costes Y threshold", "Costes X threshold",
                             "Costes slope", "tM2", "Observed r", "P-value"}) {
        EXPECT_EQ(line(name), "nan") << name;
    }
    EXPECT_FALSE(controller.costesThresholdsShown());
    EXPECT_FALSE(controller.applyCostesThresholds());
    std::vector<std::string> said;
    for (const Caution& c : controller.cautions()) {
        said.push_back(c.text);
    }
    const std::vector<std::string> reasons = {
        "Spearman and Kendall are undefined: the pixels with red or green above 0 hold a single "
        "value of a channel, or none",
        "the Costes thresholds are undefined: a channel is constant, or the red and green "
        "channels do not vary together",
        "the significance test has no answer: a channel is constant over the analysed pixels"};
    for (const std::string& reason : reasons) {
        EXPECT_NE(std::find(said.begin(), said.end(), reason), said.end()) << reason;
    }
}

// Blocks too large for the picture leave nothing to shuffle, and say so.
TEST_F(FurtherMeasuresTest, BlocksLargerThanHalfThePictureAreNamedAsTheReason) {
    std::mt19937 rng(5);
    ASSERT_TRUE(controller.openImageFile(written("cells.tif", randomSamples(20, 12, rng))));
    MeasureRequest request = everything();
    request.psfSize = 11;
    ASSERT_TRUE(controller.calculateFurtherMeasures(request));
    EXPECT_EQ(line("P-value"), "nan");
    EXPECT_NE(line("Observed r"), "nan");
    const std::vector<Caution> cautions = controller.cautions();
    ASSERT_FALSE(cautions.empty());
    EXPECT_EQ(cautions.back().text,
              "the significance test has no answer: fewer than two whole blocks of 11 x 11 "
              "pixels fit the picture");
}

// Slices of a pooled stack are counted pixel by pixel against the first one and its mask: one
// of another size is refused naming both sizes, by the pass and by the test alike.
TEST_F(FurtherMeasuresTest, PooledSlicesOfAnotherSizeAreRefusedNamingBothSizes) {
    std::mt19937 rng(6);
    const std::string one = written("one.tif", randomSamples(24, 16, rng)),
                      two = written("two.tif", randomSamples(12, 16, rng));
    const Status pooled = controller.openStack({{{one, 0}, {one, 1}}, {{two, 0}, {two, 1}}});
    ASSERT_FALSE(pooled);
    EXPECT_EQ(pooled.error().message(),
              two +
                  ": slice 2 is 12 x 16 pixels but slice 1 is 24 x 16: the slices of a pooled "
                  "stack must be the same size");
    Samples mask{24, 16, std::vector<std::uint32_t>(24 * 16 * 3, 255)};
    ASSERT_TRUE(controller.setMaskFile(written("mask.tif", mask)));
    EXPECT_EQ(controller.fields().pixelCountTotal, "0");
    const Status measured = controller.calculateFurtherMeasures(everything());
    ASSERT_FALSE(measured);
    EXPECT_EQ(measured.error().message(), pooled.error().message());
}

// Beyond its limit of blocks the test is refused before a slice is read, with the smallest
// block side that fits.
TEST_F(FurtherMeasuresTest, TooManyBlocksAreRefusedWithTheSmallestSideThatFits) {
    std::mt19937 rng(7);
    const std::string one = written("one.tif", randomSamples(256, 256, rng));
    ASSERT_TRUE(controller.openStack(
        std::vector<PixmeraVeltroController::SlicePair>(184, {{one, 0}, {one, 1}})));
    MeasureRequest request = everything();
    request.psfSize = 1;
    const Status refused = controller.calculateFurtherMeasures(request);
    ASSERT_FALSE(refused);
    EXPECT_EQ(refused.error().reason,
              "the significance test would shuffle 12058624 blocks of 1 x 1 pixels, more than its "
              "limit of 12000000: give a PSF size of at least 2 pixels");
    EXPECT_FALSE(controller.furtherMeasures());
}

// An empty mask leaves every value undefined: each reads "nan", as the help says, never the
// "-nan" printf makes of 0 / 0.
TEST_F(FurtherMeasuresTest, AnEmptyMaskReadsNanNeverMinusNan) {
    std::mt19937 rng(8);
    ASSERT_TRUE(controller.openImageFile(written("cells.tif", randomSamples(20, 12, rng))));
    ASSERT_TRUE(controller.setMaskFile(
        written("mask.tif", Samples{20, 12, std::vector<std::uint32_t>(720, 0)})));
    controller.calculateCoefficients();
    ASSERT_TRUE(controller.calculateFurtherMeasures(everything()));
    const ResultFields& f = controller.fields();
    for (const std::string* text :
         {&f.yAxisPixelPercentText, &f.pixelPercentTotal, &f.coefficient_Rr, &f.coefficient_R,
          &f.coefficient_k1, &f.coefficient_m2}) {
        EXPECT_EQ(*text, "nan");
    }
    EXPECT_EQ(buildReport(f).find("-nan"), std::string::npos);
}

}  // namespace
}  // namespace pv
