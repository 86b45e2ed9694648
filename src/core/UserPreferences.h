#pragma once

#include <cstdint>
#include <string>

#include "core/Color.h"

namespace pv {

// The sixteen user defaults, with their registered values. Only the four ROI fields are acted
// on; the rest are carried from run to run. The two directories start empty here: the
// application fills in the user's home paths, which the engine has no business knowing.
struct UserPreferences {
    std::int32_t defaultImageScale = 1;
    bool imageDrawerOpenOnLaunch = false;
    bool useIPhoto2ImageLibraries = false;
    bool enableFillROI = true;
    float opacityValue = 0.2f;
    std::int32_t roiType = 0;
    std::int32_t exportSettings = 1;
    Color roiBorderColor{1.0f, 0.0f, 0.0f, 1.0f};
    Color roiFillColor{1.0f, 1.0f, 1.0f, 1.0f};
    bool organizeExportData = true;
    std::int32_t pdfPaperSize = 0;
    std::int32_t exportDataType = 0;
    std::int32_t exportImageType = 0;
    std::string exportDirectory;
    bool useImageDirectory = false;
    std::string imageDirectory;
};

}  // namespace pv
