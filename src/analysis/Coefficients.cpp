#include "analysis/Coefficients.h"

#include <cmath>
#include <cstdint>

namespace pv {

namespace {

__extension__ using Int128 = __int128;

// Exact for any pair of sums; rounds once, on the conversion.
double productAsDouble(std::int64_t a, std::int64_t b) {
    return double(Int128(a) * Int128(b));
}

}  // namespace

void computePearsons_Rr(AnalysisState& state) {
    const double n = double(state.sumPixelCount);
    const double a = double(state.sumPixelsXYAxis) -
                     productAsDouble(state.sumPixelsXAxis, state.sumPixelsYAxis) / n;
    const double b = double(state.sumPixelsXSquaredAxis) -
                     productAsDouble(state.sumPixelsXAxis, state.sumPixelsXAxis) / n;
    const double c = double(state.sumPixelsYSquaredAxis) -
                     productAsDouble(state.sumPixelsYAxis, state.sumPixelsYAxis) / n;
    state.pearsons_Rr = a / std::sqrt(b * c);
}

void computeOverlap_R(AnalysisState& state) {
    state.overlap_R =
        double(state.sumPixelsXYAxis) /
        std::sqrt(double(state.sumPixelsYSquaredAxis) * double(state.sumPixelsXSquaredAxis));
}

void computeOverlap_k1k2(AnalysisState& state) {
    state.overlap_k1 = double(state.sumPixelsXYAxis) / double(state.sumPixelsYSquaredAxis);
    state.overlap_k2 = double(state.sumPixelsXYAxis) / double(state.sumPixelsXSquaredAxis);
}

void computeOverlap_m1m2(AnalysisState& state) {
    state.overlap_m1 = double(state.sumColocPixelsYAxis) / double(state.sumPixelsYAxis);
    state.overlap_m2 = double(state.sumColocPixelsXAxis) / double(state.sumPixelsXAxis);
}

}  // namespace pv
