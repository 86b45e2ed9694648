#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "output/Export.h"

namespace pv {
namespace {

// "ND" (unticked) and "" (cleared) are copied into the cells like any value.
TEST(Report, CoefficientTextsAreCopiedAsShown) {
    for (const std::string v : {"ND", ""}) {
        ResultFields f;
        f.coefficient_Rr = f.coefficient_R = f.coefficient_k1 = f.coefficient_k2 =
            f.coefficient_m1 = f.coefficient_m2 = f.coefficient_M1 = f.coefficient_M2 = v;
        EXPECT_TRUE(buildReport(f).ends_with(
            "Current Image ROI\nRr\t" + v + "\nR\t" + v + "\nk1\t" + v + "\nk2\t" + v + "\nm1\t" +
            v + "\nm2\t" + v + "\n\nCoefficients Calculations - Scatter Gram ROI\nM1\t" + v +
            "\nM2\t" + v + "\n\n"))
            << '"' << v << '"';
    }
}

// A text of its own in every field, so that a cell showing another field's text stands out.
// (The worked example's report, from its real fields, is checked with the controller and the
// command line.)
TEST(Report, EveryFieldHasItsOwnCell) {
    ResultFields f;
    std::string* inReportOrder[] = {
        &f.yAxisPixelColorText,      &f.yAxisPixelCountText,      &f.yAxisPixelPercentText,
        &f.yAxisROIPixelCountText,   &f.yAxisROIPixelPercentText, &f.xAxisPixelColorText,
        &f.xAxisPixelCountText,      &f.xAxisPixelPercentText,    &f.xAxisROIPixelCountText,
        &f.xAxisROIPixelPercentText, &f.xyAxisPixelColorText,     &f.xyAxisPixelCountText,
        &f.xyAxisPixelPercentText,   &f.xyAxisROIPixelCountText,  &f.xyAxisROIPixelPercentText,
        &f.pixelCountTotal,          &f.pixelPercentTotal,        &f.pixelCountROITotal,
        &f.pixelROIPercentTotal,     &f.coefficient_Rr,           &f.coefficient_R,
        &f.coefficient_k1,           &f.coefficient_k2,           &f.coefficient_m1,
        &f.coefficient_m2,           &f.coefficient_M1,           &f.coefficient_M2};
    for (std::size_t i = 0; i < std::size(inReportOrder); ++i) {
        *inReportOrder[i] = "f" + std::to_string(i + 1);
    }
    EXPECT_EQ(buildReport(f),
              "Pixel Information\n\tImage ROI\tScatter Gram ROI\n\tCount\t%\tCount\t%\n"
              "f1\tf2\tf3\tf4\tf5\nf6\tf7\tf8\tf9\tf10\nf11\tf12\tf13\tf14\tf15\n"
              "Total:\tf16\tf17\tf18\tf19\n\n"
              "Coefficients Calculations - Current Image ROI\nRr\tf20\nR\tf21\nk1\tf22\nk2\tf23\n"
              "m1\tf24\nm2\tf25\n\n"
              "Coefficients Calculations - Scatter Gram ROI\nM1\tf26\nM2\tf27\n\n");
}

TEST(ReportPath, SuffixIsAlwaysAppended) {
    EXPECT_EQ(reportPath("/data/cells", ReportFormat::Spreadsheet), "/data/cells.xls");
    EXPECT_EQ(reportPath("/data/cells", ReportFormat::PlainText), "/data/cells.txt");
    EXPECT_EQ(reportPath("/data/cells.txt", ReportFormat::PlainText), "/data/cells.txt.txt");
    EXPECT_EQ(reportPath("cells.xls", ReportFormat::PlainText), "cells.xls.txt");
}

}  // namespace
}  // namespace pv
