#pragma once

#include "analysis/AnalysisState.h"

namespace pv {

// The colocalization coefficients of Manders, Verbeek and Aten, "Measurement of
// co-localization of objects in dual-colour confocal images", J. Microsc. 169 (1993) 375-382,
// as pure functions of the pass's sums. Y and X are the two channels' 8-bit samples; n counts
// the pixels with Y > 0 or X > 0, and every sum runs over those pixels unless it says
// otherwise. No denominator is guarded: a picture without signal gives NaN or infinity by
// IEEE rules, which the result fields show as such.

// Pearson's correlation coefficient, -1 ... +1:
//   Rr = (ΣXY - ΣX·ΣY/n) / sqrt((ΣX² - (ΣX)²/n) · (ΣY² - (ΣY)²/n))
// The products of two sums are formed in 128-bit integers, so that Rr stays exact (one
// rounding, at the conversion) for any picture size.
double pearsons_Rr(const PairSums& s);

// Overlap coefficient, 0 ... 1, insensitive to a common scaling of the channels:
//   R = ΣXY / sqrt(ΣY² · ΣX²)
double overlap_R(const PairSums& s);

// The overlap split into the share of each channel (R² = k1 · k2):
//   k1 = ΣXY / ΣY²,  k2 = ΣXY / ΣX²
double overlap_k1(const PairSums& s);
double overlap_k2(const PairSums& s);

// Colocalization coefficients over the whole picture, 0 ... 1: the fraction of the Y signal
// found where X is present, and of the X signal where Y is present:
//   m1 = Σ(Y where X > 0) / ΣY,  m2 = Σ(X where Y > 0) / ΣX
double overlap_m1(const PairSums& s);
double overlap_m2(const PairSums& s);

ImageCoefficients imageCoefficients(const PairSums& s);

// M1 and M2 of the pixels a scatter-gram region stands for, 0 ... 1:
//   M1 = Σ(Y where X > 0 and Y > 0) / Σ(Y where Y > 0),  M2 likewise for X,
// in double precision; an empty denominator gives NaN or infinity.
RegionCoefficients colocalization_M1M2(const RegionSums& s);

}  // namespace pv
