#pragma once

#include <string>
#include <vector>

namespace pv {

// A line of the report: a name, a tab, the value's text.
struct ResultLine {
    std::string name;
    std::string value;

    friend bool operator==(const ResultLine&, const ResultLine&) = default;
};

// The texts of the main window's result fields, exactly as shown. The report copies these; it
// never recomputes.
struct ResultFields {
    // Axis labels of the scatter gram.
    std::string yAxisColorText;
    std::string xAxisColorText;

    // Pixel information, image column.
    std::string yAxisPixelColorText;
    std::string xAxisPixelColorText;
    std::string xyAxisPixelColorText;
    std::string yAxisPixelCountText;
    std::string xAxisPixelCountText;
    std::string xyAxisPixelCountText;
    std::string yAxisPixelPercentText;
    std::string xAxisPixelPercentText;
    std::string xyAxisPixelPercentText;
    std::string pixelCountTotal;
    std::string pixelPercentTotal;

    // Scatter-gram-selection column.
    std::string yAxisROIPixelCountText;
    std::string xAxisROIPixelCountText;
    std::string xyAxisROIPixelCountText;
    std::string yAxisROIPixelPercentText;
    std::string xAxisROIPixelPercentText;
    std::string xyAxisROIPixelPercentText;
    std::string pixelCountROITotal;
    std::string pixelROIPercentTotal;
    // Greyed (disabled text colour) while no selection result applies.
    bool roiColumnEnabled = false;

    // Coefficients.
    std::string coefficient_Rr;
    std::string coefficient_R;
    std::string coefficient_k1;
    std::string coefficient_k2;
    std::string coefficient_m1;
    std::string coefficient_m2;
    std::string coefficient_M1;
    std::string coefficient_M2;

    // The further measures asked for, in report order; none unless asked.
    std::vector<ResultLine> furtherMeasures;

    friend bool operator==(const ResultFields&, const ResultFields&) = default;
};

}  // namespace pv
