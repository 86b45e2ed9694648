#include <gtest/gtest.h>

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

TEST(ReportPath, SuffixIsAlwaysAppended) {
    EXPECT_EQ(reportPath("/data/cells", ReportFormat::Spreadsheet), "/data/cells.xls");
    EXPECT_EQ(reportPath("/data/cells", ReportFormat::PlainText), "/data/cells.txt");
    EXPECT_EQ(reportPath("/data/cells.txt", ReportFormat::PlainText), "/data/cells.txt.txt");
    EXPECT_EQ(reportPath("cells.xls", ReportFormat::PlainText), "cells.xls.txt");
}

}  // namespace
}  // namespace pv
