#include <gtest/gtest.h>

#include <iterator>
#include <string>

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
    EXPECT_EQ(buildReport(workedExampleFields()),
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
              "\n");
}

// "ND" (unticked) and "" (cleared) are copied into the cells like any value.
TEST(Report, CoefficientTextsAreCopiedAsShown) {
    for (const std::string v : {"ND", ""}) {
        ResultFields f = workedExampleFields();
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
