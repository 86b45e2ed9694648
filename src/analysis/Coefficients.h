#pragma once

#include "analysis/AnalysisState.h"

namespace pv {

// The six image coefficients from the sums of the last pass, stored into state. No denominator
// is guarded: IEEE rules give NaN or infinity. Rr forms its products of two sums in 128-bit
// integers so that it stays exact for any image size.
void computePearsons_Rr(AnalysisState& state);
void computeOverlap_R(AnalysisState& state);
void computeOverlap_k1k2(AnalysisState& state);
void computeOverlap_m1m2(AnalysisState& state);

}  // namespace pv
