#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/Result.h"
#include "image/Bitmap.h"
#include "output/ResultFields.h"

namespace pv {

// The tab-separated report built from the field texts, byte for byte.
std::string buildReport(const ResultFields& fields);

enum class ReportFormat { Spreadsheet, PlainText };  // ".xls" or ".txt"

// The suffix is appended to whatever the user typed, even when it already ends in one.
std::string reportPath(const std::string& stem, ReportFormat format);

// Writes through a temporary file in the same folder, then renames it into place; on failure
// nothing is left behind and the error names the file and the reason. A new file gets the
// permissions of an ordinarily created one (0666 less the umask); a replaced file keeps its own.
Status writeFileAtomically(const std::string& path, std::string_view bytes);

// Writes any 8-bit bitmap as an 8-bit RGB TIFF at 72 dpi (alpha dropped, planar meshed, grey
// repeated into red, green and blue), uncompressed, atomically. An empty bitmap is an error.
Status writeTiffAtomically(const std::string& path, const Bitmap& bitmap);

// Names of the pictures written beside the report.
inline constexpr const char* kImageSuffix = "_Image.tif";
inline constexpr const char* kScatterGramSuffix = "_SGram.tif";
inline constexpr const char* kRevealedImageSuffix = "_ImgReflect.tif";

struct ExportRequest {
    std::string stem;  // the chosen path without suffix
    ReportFormat format = ReportFormat::Spreadsheet;
    bool saveImages = false;
    const Bitmap* currentDisplayedImage = nullptr;  // "_Image.tif"
    const Bitmap* scatterGram = nullptr;            // "_SGram.tif"
    const Bitmap* revealedImage = nullptr;          // "_ImgReflect.tif", only when valid
    // Put none of the files in place unless all could be written (for batch work, where a
    // half set of outputs is easily taken for a whole one).
    bool allOrNothing = false;
};

// Writes the report and, when asked, the pictures, in that order. A failed file does not stop
// the others (unless the request is all or nothing, when none is put in place); every failure
// is returned. A missing image or scatter gram fails like an empty one; a missing revealed
// image is simply not written.
std::vector<Error> outputPixelCoefficientData(const ResultFields& fields,
                                              const ExportRequest& request);

}  // namespace pv
