#pragma once

#include <optional>
#include <string>
#include <vector>

#include "controller/PixmeraVeltroController.h"
#include "output/Export.h"

namespace pv::cli {

// A region drawn on the scatter gram, as the points of the gesture that draws it: for a
// rectangle or oval the anchor and the opposite corner, for a polygon or lasso its vertices.
struct RegionOption {
    SelectionTool tool = SelectionTool::Rectangle;
    std::vector<Point> points;
};

// One press of Apply in the background window: channel popup item (0 red, 1 green, 2 blue,
// 3 all) and the threshold typed on the manual tab.
struct BackgroundStep {
    int channelItem = 3;
    int level = 0;
};

struct Options {
    std::vector<std::string> images;
    RGBCombo rgbCombo = RGBCombo::RedGreen;
    CoefficientCheckboxes checkboxes;
    std::optional<std::string> reportStem;
    ReportFormat format = ReportFormat::Spreadsheet;
    bool saveImages = false;
    std::optional<RegionOption> region;
    bool reveal = false;
    std::vector<BackgroundStep> background;
    unsigned jobs = 0;  // 0: one per core
    int depthBits = 0;  // 16-bit files scaled alike from this depth; 0: each by its brightest
    // Two single-channel files as the Y and X channels of one picture, instead of images, or
    // two channels of each image: a colour channel (1 red, 2 green, 3 blue) of a colour
    // picture, or a stack's channel by number (from 1) or by name, at a slice and frame.
    std::optional<std::string> yFile, xFile;
    std::optional<std::string> yChannel, xChannel;
    std::optional<int> slice, frame;    // from 1
    bool allSlices = false;             // each slice of each image, a row each
    bool stack = false;                 // all slices of each image as one population
    std::optional<std::string> mask;    // only the pixels where it is not 0 are analysed
    std::optional<std::string> labels;  // each labelled cell analysed on its own
    MeasureRequest measures;            // the further measures, and how the test runs
    bool help = false;
    bool version = false;
};

struct ParseResult {
    Options options;
    std::string error;  // non-empty for a usage error
};

ParseResult parseOptions(const std::vector<std::string>& args);

// "red-green" and friends, in the order of the channel popup.
const char* pairName(RGBCombo combo);

std::string usageText();

}  // namespace pv::cli
