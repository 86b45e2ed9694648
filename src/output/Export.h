#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "image/Bitmap.h"
#include "image/Result.h"
#include "output/ResultFields.h"

namespace pv {

// The tab-separated report built from the field texts, byte for byte.
std::string buildReport(const ResultFields& fields);

enum class ReportFormat { Spreadsheet, PlainText };  // ".xls" or ".txt"

// The suffix is appended to whatever the user typed, even when it already ends in one.
std::string reportPath(const std::string& stem, ReportFormat format);

// Writes through a temporary file in the same folder, then renames it into place; on failure
// nothing is left behind and the error names the file and the reason.
Status writeFileAtomically(const std::string& path, std::string_view bytes);

// Writes any 8-bit bitmap as an 8-bit RGB TIFF at 72 dpi (alpha dropped, planar meshed),
// atomically.
Status writeTiffAtomically(const std::string& path, const Bitmap& bitmap);

struct ExportRequest {
    std::string stem;  // the chosen path without suffix
    ReportFormat format = ReportFormat::Spreadsheet;
    bool saveImages = false;
    const Bitmap* currentDisplayedImage = nullptr;  // "_Image.tif"
    const Bitmap* scatterGram = nullptr;            // "_SGram.tif"
    const Bitmap* revealedImage = nullptr;          // "_ImgReflect.tif", only when valid
};

// Writes the report and, when asked, the pictures, in that order. A failed file does not stop
// the others; every failure is returned.
std::vector<Error> outputPixelCoefficientData(const ResultFields& fields,
                                              const ExportRequest& request);

}  // namespace pv
