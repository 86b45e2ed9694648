#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "image/Localization.h"
#include "output/Export.h"

namespace pv {
namespace {

// The fields after Calculate on a 2 x 2 image (100,0,0), (0,50,0), (100,50,0), (0,0,0), pair 0,
// every coefficient ticked, no scatter-gram selection.
ResultFields workedExampleFields() {
    ResultFields f;
    f.yAxisPixelColorText = "Red:";
    f.xAxisPixelColorText = "Green:";
    f.xyAxisPixelColorText = "Yellow:";
    f.yAxisPixelCountText = f.xAxisPixelCountText = f.xyAxisPixelCountText = "1";
    f.yAxisPixelPercentText = f.xAxisPixelPercentText = f.xyAxisPixelPercentText = "25.00";
    f.pixelCountTotal = "3";
    f.pixelPercentTotal = "75.00";
    for (std::string* roi :
         {&f.yAxisROIPixelCountText, &f.xAxisROIPixelCountText, &f.xyAxisROIPixelCountText,
          &f.yAxisROIPixelPercentText, &f.xAxisROIPixelPercentText, &f.xyAxisROIPixelPercentText,
          &f.pixelCountROITotal, &f.pixelROIPercentTotal}) {
        *roi = "--";
    }
    f.coefficient_Rr = "-0.5000";
    f.coefficient_R = "0.5000";
    f.coefficient_k1 = "0.2500";
    f.coefficient_k2 = "1.0000";
    f.coefficient_m1 = "0.5000";
    f.coefficient_m2 = "0.5000";
    return f;
}

TEST(Report, WorkedExampleByteForByte) {
    const std::string expected =
        "Pixel Information\n"
        "\tImage ROI\tScatter Gram ROI\n"
        "\tCount\t%\tCount\t%\n"
        "Red:\t1\t25.00\t--\t--\n"
        "Green:\t1\t25.00\t--\t--\n"
        "Yellow:\t1\t25.00\t--\t--\n"
        "Total:\t3\t75.00\t--\t--\n"
        "\n"
        "Coefficients Calculations - Current Image ROI\n"
        "Rr\t-0.5000\n"
        "R\t0.5000\n"
        "k1\t0.2500\n"
        "k2\t1.0000\n"
        "m1\t0.5000\n"
        "m2\t0.5000\n"
        "\n"
        "Coefficients Calculations - Scatter Gram ROI\n"
        "M1\t\n"
        "M2\t\n"
        "\n";
    EXPECT_EQ(buildReport(workedExampleFields()), expected);
}

std::string coefficientLines(const std::string& report) {
    const auto from = report.find("Rr\t");
    return report.substr(from, report.find("\n\n", from) - from);
}

TEST(Report, CoefficientTextsAreCopiedNotRecomputed) {
    struct Case {
        const char* name;
        std::string value;
        std::string lines;
    };
    const std::vector<Case> cases = {
        {"unticked", "ND", "Rr\tND\nR\tND\nk1\tND\nk2\tND\nm1\tND\nm2\tND"},
        {"emptied by select all", "", "Rr\t\nR\t\nk1\t\nk2\t\nm1\t\nm2\t"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ResultFields f = workedExampleFields();
        f.coefficient_Rr = f.coefficient_R = f.coefficient_k1 = f.coefficient_k2 =
            f.coefficient_m1 = f.coefficient_m2 = c.value;
        f.coefficient_M1 = f.coefficient_M2 = c.value;
        const std::string report = buildReport(f);
        EXPECT_EQ(coefficientLines(report), c.lines);
        EXPECT_TRUE(
            report.ends_with("Scatter Gram ROI\nM1\t" + c.value + "\nM2\t" + c.value + "\n\n"));
    }
}

TEST(Report, EveryFieldLandsInItsOwnCell) {
    // Distinct texts show any field that is swapped, skipped or repeated.
    ResultFields f;
    f.yAxisPixelColorText = "Blue:";
    f.xAxisPixelColorText = "Red:";
    f.xyAxisPixelColorText = "Magenta:";
    f.yAxisPixelCountText = "a1";
    f.yAxisPixelPercentText = "a2";
    f.yAxisROIPixelCountText = "a3";
    f.yAxisROIPixelPercentText = "a4";
    f.xAxisPixelCountText = "b1";
    f.xAxisPixelPercentText = "b2";
    f.xAxisROIPixelCountText = "b3";
    f.xAxisROIPixelPercentText = "b4";
    f.xyAxisPixelCountText = "c1";
    f.xyAxisPixelPercentText = "c2";
    f.xyAxisROIPixelCountText = "c3";
    f.xyAxisROIPixelPercentText = "c4";
    f.pixelCountTotal = "t1";
    f.pixelPercentTotal = "t2";
    f.pixelCountROITotal = "t3";
    f.pixelROIPercentTotal = "t4";
    f.coefficient_Rr = "Rr";
    f.coefficient_R = "R";
    f.coefficient_k1 = "k1";
    f.coefficient_k2 = "k2";
    f.coefficient_m1 = "m1";
    f.coefficient_m2 = "m2";
    f.coefficient_M1 = "M1";
    f.coefficient_M2 = "M2";
    EXPECT_EQ(buildReport(f),
              "Pixel Information\n\tImage ROI\tScatter Gram ROI\n\tCount\t%\tCount\t%\n"
              "Blue:\ta1\ta2\ta3\ta4\nRed:\tb1\tb2\tb3\tb4\nMagenta:\tc1\tc2\tc3\tc4\n"
              "Total:\tt1\tt2\tt3\tt4\n\n"
              "Coefficients Calculations - Current Image ROI\n"
              "Rr\tRr\nR\tR\nk1\tk1\nk2\tk2\nm1\tm1\nm2\tm2\n\n"
              "Coefficients Calculations - Scatter Gram ROI\nM1\tM1\nM2\tM2\n\n");
}

TEST(Report, FormatsGoThroughTheTranslatorWithTheEnglishKey) {
    std::vector<std::string> keys;
    installTranslator([&keys](std::string_view english) {
        keys.emplace_back(english);
        if (english == "Coefficients Calculations - Scatter Gram ROI\nM1\t%@\nM2\t%@\n\n") {
            return std::string("Streudiagramm\nM1 %@ / M2 %@ (%%)\n");
        }
        return std::string(english);
    });
    ResultFields f = workedExampleFields();
    f.coefficient_M1 = "0.1000";
    f.coefficient_M2 = "0.2000";
    const std::string report = buildReport(f);
    installTranslator(nullptr);

    ASSERT_EQ(keys.size(), 3u);
    EXPECT_TRUE(
        keys[0].starts_with("Pixel Information\n\tImage ROI\tScatter Gram ROI\n"
                            "\tCount\t%%\tCount\t%%\n"));
    EXPECT_TRUE(keys[1].starts_with("Coefficients Calculations - Current Image ROI\n"));
    EXPECT_TRUE(report.ends_with("m2\t0.5000\n\nStreudiagramm\nM1 0.1000 / M2 0.2000 (%)\n"));
}

TEST(FillPlaceholders, FillsInOrderAndLeavesValuesAlone) {
    struct Case {
        const char* format;
        std::vector<std::string_view> values;
        const char* expected;
    };
    const std::vector<Case> cases = {
        {"%@\t%@", {"a", "b"}, "a\tb"},
        {"100%%", {}, "100%"},
        {"%%@", {"x"}, "%@"},  // an escaped percent followed by '@' is not a placeholder
        {"%@", {"50%"}, "50%"},
        {"%@ %@", {"%@", "%%"}, "%@ %%"},  // values are never re-expanded
        {"%@-%@-%@", {"a"}, "a--"},        // missing values leave the cell empty
        {"%@", {"a", "b"}, "a"},
        {"%d %s %", {"a"}, "%d %s %"},  // printf conversions are plain text here
        {"", {"a"}, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.format);
        EXPECT_EQ(fillPlaceholders(c.format, c.values), c.expected);
    }
}

TEST(ReportPath, SuffixIsAlwaysAppended) {
    struct Case {
        const char* stem;
        ReportFormat format;
        const char* expected;
    };
    const std::vector<Case> cases = {
        {"/data/cells", ReportFormat::Spreadsheet, "/data/cells.xls"},
        {"/data/cells", ReportFormat::PlainText, "/data/cells.txt"},
        {"/data/cells.txt", ReportFormat::PlainText, "/data/cells.txt.txt"},
        {"/data/cells.xls", ReportFormat::Spreadsheet, "/data/cells.xls.xls"},
        {"/data/cells.xls", ReportFormat::PlainText, "/data/cells.xls.txt"},
        {"untitled", ReportFormat::Spreadsheet, "untitled.xls"},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(reportPath(c.stem, c.format), c.expected);
    }
}

}  // namespace
}  // namespace pv
