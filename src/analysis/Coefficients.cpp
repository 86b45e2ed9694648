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

double pearsons_Rr(const PairSums& s) {
    const double n = double(s.sumPixelCount);
    const double a =
        double(s.sumPixelsXYAxis) - productAsDouble(s.sumPixelsXAxis, s.sumPixelsYAxis) / n;
    const double b =
        double(s.sumPixelsXSquaredAxis) - productAsDouble(s.sumPixelsXAxis, s.sumPixelsXAxis) / n;
    const double c =
        double(s.sumPixelsYSquaredAxis) - productAsDouble(s.sumPixelsYAxis, s.sumPixelsYAxis) / n;
    return a / std::sqrt(b * c);
}

double overlap_R(const PairSums& s) {
    return double(s.sumPixelsXYAxis) /
           std::sqrt(double(s.sumPixelsYSquaredAxis) * double(s.sumPixelsXSquaredAxis));
}

double overlap_k1(const PairSums& s) {
    return double(s.sumPixelsXYAxis) / double(s.sumPixelsYSquaredAxis);
}

double overlap_k2(const PairSums& s) {
    return double(s.sumPixelsXYAxis) / double(s.sumPixelsXSquaredAxis);
}

double overlap_m1(const PairSums& s) {
    return double(s.sumColocPixelsYAxis) / double(s.sumPixelsYAxis);
}

double overlap_m2(const PairSums& s) {
    return double(s.sumColocPixelsXAxis) / double(s.sumPixelsXAxis);
}

ImageCoefficients imageCoefficients(const PairSums& s) {
    return {pearsons_Rr(s), overlap_R(s),  overlap_k1(s),
            overlap_k2(s),  overlap_m1(s), overlap_m2(s)};
}

RegionCoefficients colocalization_M1M2(const RegionSums& s) {
    return {double(s.sumROIColocPixelsYAxis) / double(s.sumROIPixelsYAxis),
            double(s.sumROIColocPixelsXAxis) / double(s.sumROIPixelsXAxis)};
}

}  // namespace pv
