#include "controller/ResultTexts.h"

#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "core/Localization.h"

namespace pv {

std::string printfText(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    va_list again;
    va_copy(again, args);
    char buffer[64];
    const int n = std::vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    std::string text;
    if (n >= 0 && std::size_t(n) < sizeof buffer) {
        text.assign(buffer, std::size_t(n));
    } else if (n >= 0) {
        text.resize(std::size_t(n) + 1);
        std::vsnprintf(text.data(), text.size(), fmt, again);
        text.resize(std::size_t(n));
    }
    va_end(again);
    return text;
}

std::string numberText(const char* fmt, double value) {
    return std::isnan(value) ? std::string("nan") : printfText(fmt, value);
}

namespace {

std::string coefficientText(double value, bool ticked) {
    return ticked ? numberText("%0.4f", value) : std::string("ND");
}

std::string percentText(std::int32_t count, std::int32_t total) {
    // The quotient is single precision, widened before scaling: the texts depend on it.
    const float quotient = float(count) / float(total);
    return numberText("%.2f", double(quotient) * 100.0);
}

struct CountTexts {
    std::string* count;
    std::string* percent;
};

// Counts and percentages of the Y, X and mixed classes and of their sum.
void writeCountTexts(const std::array<CountTexts, 4>& out, const PixelCensus& census,
                     RGBCombo combo) {
    const PixelCensus::PairClasses c = census.forPair(combo);
    const std::int32_t shown[4] = {c.y, c.x, c.xy, c.y + c.x + c.xy};
    for (std::size_t i = 0; i < 4; ++i) {
        *out[i].count = printfText("%d", shown[i]);
        *out[i].percent = percentText(shown[i], census.totalPixelCount);
    }
}

}  // namespace

PairLabels pairLabels(RGBCombo combo) {
    struct English {
        const char* yAxis;
        const char* xAxis;
        const char* yClass;
        const char* xClass;
        const char* xyClass;
    };
    static constexpr English kLabels[kRGBComboCount] = {
        {"Red", "Green", "Red:", "Green:", "Yellow:"},
        {"Red", "Blue", "Red:", "Blue:", "Magenta:"},
        {"Green", "Red", "Green:", "Red:", "Yellow:"},
        {"Green", "Blue", "Green:", "Blue:", "Cyan:"},
        {"Blue", "Red", "Blue:", "Red:", "Magenta:"},
        {"Blue", "Green", "Blue:", "Green:", "Cyan:"},
    };
    const English& e = kLabels[int(combo)];
    return {tr(e.yAxis), tr(e.xAxis), tr(e.yClass), tr(e.xClass), tr(e.xyClass)};
}

ResultFields resultFields(const AnalysisState& results, const FieldsShown& shown) {
    ResultFields f;
    const PairLabels labels = pairLabels(results.rgbCombo);
    f.yAxisColorText = labels.yAxis;
    f.xAxisColorText = labels.xAxis;
    f.yAxisPixelColorText = labels.yClass;
    f.xAxisPixelColorText = labels.xClass;
    f.xyAxisPixelColorText = labels.xyClass;
    writeCountTexts({CountTexts{&f.yAxisPixelCountText, &f.yAxisPixelPercentText},
                     {&f.xAxisPixelCountText, &f.xAxisPixelPercentText},
                     {&f.xyAxisPixelCountText, &f.xyAxisPixelPercentText},
                     {&f.pixelCountTotal, &f.pixelPercentTotal}},
                    results.census, results.rgbCombo);

    f.roiColumnEnabled = shown.roiColumn;
    const std::array<CountTexts, 4> roi = {
        CountTexts{&f.yAxisROIPixelCountText, &f.yAxisROIPixelPercentText},
        {&f.xAxisROIPixelCountText, &f.xAxisROIPixelPercentText},
        {&f.xyAxisROIPixelCountText, &f.xyAxisROIPixelPercentText},
        {&f.pixelCountROITotal, &f.pixelROIPercentTotal}};
    if (shown.roiColumn) {
        writeCountTexts(roi, results.roiCensus, results.rgbCombo);
    } else {
        for (const CountTexts& t : roi) {
            *t.count = "--";
            *t.percent = "--";
        }
    }

    if (const std::optional<CoefficientCheckboxes>& boxes = shown.coefficients) {
        const ImageCoefficients& c = results.coefficients;
        f.coefficient_Rr = coefficientText(c.pearsons_Rr, boxes->checkbox_Rr);
        f.coefficient_R = coefficientText(c.overlap_R, boxes->checkbox_R);
        f.coefficient_k1 = coefficientText(c.overlap_k1, boxes->checkbox_k1);
        f.coefficient_k2 = coefficientText(c.overlap_k2, boxes->checkbox_k1);
        f.coefficient_m1 = coefficientText(c.overlap_m1, boxes->checkbox_m1);
        f.coefficient_m2 = coefficientText(c.overlap_m2, boxes->checkbox_m1);
    }
    if (shown.roiCoefficients) {
        f.coefficient_M1 = numberText("%0.4f", results.roiCoefficients.colocalization_M1);
        f.coefficient_M2 = numberText("%0.4f", results.roiCoefficients.colocalization_M2);
    }
    return f;
}

}  // namespace pv
