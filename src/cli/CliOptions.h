#pragma once

#include <optional>
#include <string>
#include <vector>

#include "controller/PixmeraVeltroController.h"
#include "output/Export.h"

namespace pv::cli {

struct Options {
    std::vector<std::string> images;
    int rgbCombo = 0;
    CoefficientCheckboxes checkboxes;
    std::optional<std::string> reportStem;
    ReportFormat format = ReportFormat::Spreadsheet;
    bool saveImages = false;
    unsigned jobs = 0;  // 0: one per core
    bool help = false;
    bool version = false;
};

struct ParseResult {
    Options options;
    std::string error;  // non-empty for a usage error
};

ParseResult parseOptions(const std::vector<std::string>& args);

// "red-green" and friends, in the order of the channel popup.
const char* pairName(int rgbCombo);
// The popup item that selects a pair (items 2 and 5 are separators).
int popupIndexForRGBCombo(int rgbCombo);

std::string usageText();

}  // namespace pv::cli
