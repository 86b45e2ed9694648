#pragma once

#include <optional>
#include <string>

#include "analysis/AnalysisState.h"
#include "output/ResultFields.h"

namespace pv {

// The four coefficient check boxes; k1/k2 and m1/m2 share one each.
struct CoefficientCheckboxes {
    bool checkbox_Rr = true;
    bool checkbox_R = true;
    bool checkbox_k1 = true;
    bool checkbox_m1 = true;
};

// What the result fields show besides the numbers, as the user's actions left it.
struct FieldsShown {
    // The check boxes as they were at the last Calculate; none while the coefficients are
    // cleared. Ticking a box later changes nothing until the next Calculate.
    std::optional<CoefficientCheckboxes> coefficients;
    // The region's column holds its counts; otherwise it reads "--", greyed.
    bool roiColumn = false;
    // M1 and M2 hold the last calculated values; otherwise they are blank.
    bool roiCoefficients = false;
};

// Names of a pair as the window shows them: the axes, and the Y, X and mixed classes.
struct PairLabels {
    std::string yAxis;
    std::string xAxis;
    std::string yClass;
    std::string xClass;
    std::string xyClass;
};
PairLabels pairLabels(RGBCombo combo);

// printf into a string of whatever length it needs.
std::string printfText(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

// A number as printf gives it with a format of one double, except that NaN, whatever
// arithmetic made it, reads "nan": printf would give "-nan" for 0 / 0.
std::string numberText(const char* fmt, double value);

// Every result field's text, from the results and what is shown: counts "%d", percentages
// "%.2f" of the single-precision quotient, coefficients "%0.4f" or "ND" for an unticked box.
// Undefined values read "nan", infinity as printf gives it.
ResultFields resultFields(const AnalysisState& results, const FieldsShown& shown);

}  // namespace pv
