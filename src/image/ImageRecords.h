#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace pv {

// The working bitmap's layout as the information panel and the texts speak of it. Pixels are
// never addressed through it: loops take the bitmap's channel view.
struct BitmapInfo {
    std::int32_t bytesPerRow = 0;
    std::int32_t samplesPerPixel = 0;
    std::int32_t bitsPerPixel = 0;
    std::int32_t bytesPerPlane = 0;
    std::int32_t numberOfPlanes = 0;
    std::uint8_t isPlanar = 0;
    float height = 0.0f;
    float width = 0.0f;
};

// Facts of the loaded file, shown by the information panel. Absent strings mean "none".
struct ImageFileInfo {
    std::optional<std::string> fileName;
    std::optional<std::string> fileType;
    std::optional<std::string> filePath;
    float width = 0.0f;
    float height = 0.0f;
    float horizontalDPI = 0.0f;
    float verticalDPI = 0.0f;
    std::int32_t bitDepth = 0;
    std::int32_t fileSizeKB = 0;
    std::uint8_t backgroundCorrected = 0;
};

}  // namespace pv
