#pragma once

#include <cstdint>

namespace pv {

// Everything the analysis computes. Counts are signed 32-bit and sums signed 64-bit because
// the texts and the coefficients are defined on exactly those types.
struct AnalysisState {
    bool coefficientsCalculated = false;
    bool roiCoefficientsCalculated = false;
    std::int32_t rgbCombo = 0;
    std::int32_t redMinimumLevel = 0;
    std::int32_t greenMinimumLevel = 0;
    std::int32_t blueMinimumLevel = 0;

    std::int32_t redPixelCount = 0;
    std::int32_t greenPixelCount = 0;
    std::int32_t bluePixelCount = 0;
    std::int32_t yellowPixelCount = 0;
    std::int32_t magentaPixelCount = 0;
    std::int32_t cyanPixelCount = 0;
    std::int32_t totalPixelCount = 0;

    std::int32_t roiRedPixelCount = 0;
    std::int32_t roiGreenPixelCount = 0;
    std::int32_t roiBluePixelCount = 0;
    std::int32_t roiYellowPixelCount = 0;
    std::int32_t roiMagentaPixelCount = 0;
    std::int32_t roiCyanPixelCount = 0;
    std::int32_t roiTotalPixelCount = 0;

    std::int64_t sumPixelsXYAxis = 0;
    std::int64_t sumPixelsXAxis = 0;
    std::int64_t sumPixelsXSquaredAxis = 0;
    std::int64_t sumPixelsYAxis = 0;
    std::int64_t sumPixelsYSquaredAxis = 0;
    std::int64_t sumPixelCount = 0;
    std::int64_t sumColocPixelsXAxis = 0;
    std::int64_t sumColocPixelsYAxis = 0;

    std::int64_t sumROIColocPixelsXAxis = 0;
    std::int64_t sumROIColocPixelsYAxis = 0;
    std::int64_t sumROIPixelsYAxis = 0;
    std::int64_t sumROIPixelsXAxis = 0;

    double pearsons_Rr = 0.0;
    double overlap_R = 0.0;
    double overlap_k1 = 0.0;
    double overlap_k2 = 0.0;
    double overlap_m1 = 0.0;
    double overlap_m2 = 0.0;
    double colocalization_M1 = 0.0;
    double colocalization_M2 = 0.0;

    bool reflectedImageValid = false;
    std::uint8_t redRevealPixelValue = 255;
    std::uint8_t greenRevealPixelValue = 255;
    std::uint8_t blueRevealPixelValue = 255;
};

}  // namespace pv
