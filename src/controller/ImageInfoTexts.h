#pragma once

#include <string>

#include "image/ImageRecords.h"

namespace pv {

// What the image information panel shows, one text per fact.
struct ImageInfoTexts {
    std::string filePath;
    std::string fileName;
    std::string fileType;
    std::string fileSize;
    std::string size;
    std::string bitDepth;
    std::string resolution;
    std::string backgroundCorrected;
};

// The facts of the loaded file as the panel writes them: "Not available" for what a pasted
// picture lacks, "%d KB", "%d x %d pixels" (truncated), "%.1f x %.1f dpi" of the file's own
// resolution, and "Yes" or "No" for the background correction.
ImageInfoTexts imageInfoTexts(const ImageFileInfo& info);

}  // namespace pv
