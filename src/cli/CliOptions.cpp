#include "cli/CliOptions.h"

#include <charconv>
#include <cmath>
#include <cstdlib>
#include <string_view>

namespace pv::cli {

namespace {

constexpr const char* kPairNames[6] = {"red-green",  "red-blue", "green-red",
                                       "green-blue", "blue-red", "blue-green"};

// The comma-separated items of a list, empty ones included.
std::vector<std::string_view> splitList(std::string_view list) {
    std::vector<std::string_view> items;
    std::size_t start = 0;
    for (std::size_t comma; (comma = list.find(',', start)) != std::string_view::npos;
         start = comma + 1) {
        items.push_back(list.substr(start, comma - start));
    }
    items.push_back(list.substr(start));
    return items;
}

bool parseCoefficients(std::string_view list, CoefficientCheckboxes& boxes, std::string& error) {
    boxes = CoefficientCheckboxes{false, false, false, false};
    for (std::string_view item : splitList(list)) {
        if (item == "Rr") {
            boxes.checkbox_Rr = true;
        } else if (item == "R") {
            boxes.checkbox_R = true;
        } else if (item == "k" || item == "k1" || item == "k2") {
            boxes.checkbox_k1 = true;
        } else if (item == "m" || item == "m1" || item == "m2") {
            boxes.checkbox_m1 = true;
        } else if (!item.empty()) {
            error = "unknown coefficient '" + std::string(item) +
                    "' in --coefficients (expected a comma-separated list of Rr, R, k, m)";
            return false;
        }
    }
    return true;
}

// Numbers separated by commas, each a whole or decimal number.
bool parseNumbers(std::string_view text, std::vector<float>& numbers) {
    numbers.clear();
    for (std::string_view part : splitList(text)) {
        const std::string item(part);
        char* end = nullptr;
        const float v = std::strtof(item.c_str(), &end);
        if (item.empty() || end != item.c_str() + item.size() || !std::isfinite(v)) {
            return false;
        }
        numbers.push_back(v);
    }
    return true;
}

bool parseRegion(std::string_view text, RegionOption& region, std::string& error) {
    static constexpr const char* kForms =
        "expected --roi rect:X,Y,W,H, oval:X,Y,W,H, polygon:X1,Y1,X2,Y2,X3,Y3,... or "
        "lasso:X1,Y1,X2,Y2,X3,Y3,... in scatter-gram coordinates (0 to 256)";
    const std::size_t colon = text.find(':');
    const std::string_view kind = text.substr(0, colon);
    std::vector<float> n;
    if (colon == std::string_view::npos || !parseNumbers(text.substr(colon + 1), n)) {
        error = "cannot read --roi '" + std::string(text) + "': " + kForms;
        return false;
    }
    region.points.clear();
    if (kind == "rect" || kind == "oval") {
        if (n.size() != 4) {
            error = "--roi " + std::string(kind) + " needs four numbers X,Y,W,H; " + kForms;
            return false;
        }
        region.tool = kind == "rect" ? SelectionTool::Rectangle : SelectionTool::Oval;
        region.points = {{n[0], n[1]}, {n[0] + n[2], n[1] + n[3]}};
        return true;
    }
    if (kind == "polygon" || kind == "lasso") {
        if (n.size() % 2 != 0 || n.size() < 6) {
            error = "--roi " + std::string(kind) +
                    " needs an even count of numbers, at least three X,Y points; " + kForms;
            return false;
        }
        region.tool = kind == "polygon" ? SelectionTool::Polygon : SelectionTool::Lasso;
        for (std::size_t i = 0; i < n.size(); i += 2) {
            region.points.push_back({n[i], n[i + 1]});
        }
        return true;
    }
    error = "unknown region kind '" + std::string(kind) + "'; " + kForms;
    return false;
}

bool parseBackground(std::string_view text, BackgroundStep& step, std::string& error) {
    static constexpr const char* kForm =
        "expected --background CHANNEL:LEVEL with CHANNEL red, green, blue or all and LEVEL a "
        "whole number from 0 to 255";
    const std::size_t colon = text.find(':');
    const std::string_view channel = text.substr(0, colon);
    constexpr const char* kChannels[4] = {"red", "green", "blue", "all"};
    step.channelItem = -1;
    for (int c = 0; c < 4; ++c) {
        if (channel == kChannels[c]) {
            step.channelItem = c;
        }
    }
    if (colon == std::string_view::npos || step.channelItem < 0) {
        error = "cannot read --background '" + std::string(text) + "': " + kForm;
        return false;
    }
    const std::string_view level = text.substr(colon + 1);
    auto [end, ec] = std::from_chars(level.data(), level.data() + level.size(), step.level);
    if (level.empty() || ec != std::errc() || end != level.data() + level.size() ||
        step.level < 0 || step.level > 255) {
        error = "cannot read --background '" + std::string(text) + "': " + kForm;
        return false;
    }
    return true;
}

}  // namespace

const char* pairName(RGBCombo combo) {
    return kPairNames[int(combo)];
}

ParseResult parseOptions(const std::vector<std::string>& args) {
    ParseResult result;
    Options& o = result.options;
    bool onlyImages = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](const char* name) -> std::optional<std::string> {
            if (i + 1 >= args.size()) {
                result.error = std::string(name) + " needs a value";
                return std::nullopt;
            }
            return args[++i];
        };
        if (onlyImages || a.empty() || a[0] != '-' || a == "-") {
            o.images.push_back(a);
        } else if (a == "--") {
            onlyImages = true;
        } else if (a == "--help" || a == "-h") {
            o.help = true;
        } else if (a == "--version") {
            o.version = true;
        } else if (a == "--pair") {
            auto v = value("--pair");
            if (!v) {
                return result;
            }
            bool found = false;
            for (int p = 0; p < 6; ++p) {
                if (*v == kPairNames[p]) {
                    o.rgbCombo = RGBCombo(p);
                    found = true;
                }
            }
            if (!found) {
                result.error = "unknown pair '" + *v +
                               "' (expected red-green, red-blue, green-red, green-blue, "
                               "blue-red or blue-green)";
                return result;
            }
        } else if (a == "--coefficients") {
            auto v = value("--coefficients");
            if (!v || !parseCoefficients(*v, o.checkboxes, result.error)) {
                return result;
            }
        } else if (a == "--report") {
            auto v = value("--report");
            if (!v) {
                return result;
            }
            if (v->empty()) {
                result.error = "--report needs a file name stem";
                return result;
            }
            o.reportStem = *v;
        } else if (a == "--roi") {
            auto v = value("--roi");
            RegionOption region;
            if (!v || !parseRegion(*v, region, result.error)) {
                return result;
            }
            o.region = region;
        } else if (a == "--reveal") {
            o.reveal = true;
        } else if (a == "--background") {
            auto v = value("--background");
            BackgroundStep step;
            if (!v || !parseBackground(*v, step, result.error)) {
                return result;
            }
            o.background.push_back(step);
        } else if (a == "--xls") {
            o.format = ReportFormat::Spreadsheet;
        } else if (a == "--txt") {
            o.format = ReportFormat::PlainText;
        } else if (a == "--images") {
            o.saveImages = true;
        } else if (a == "--jobs" || a == "-j") {
            auto v = value("--jobs");
            if (!v) {
                return result;
            }
            unsigned n = 0;
            auto [end, ec] = std::from_chars(v->data(), v->data() + v->size(), n);
            if (ec != std::errc() || end != v->data() + v->size() || n == 0 || n > 1024) {
                result.error = "--jobs needs a whole number from 1 to 1024, not '" + *v + "'";
                return result;
            }
            o.jobs = n;
        } else {
            result.error = "unknown option '" + a + "'";
            return result;
        }
    }
    if (o.help || o.version) {
        return result;
    }
    if (o.images.empty()) {
        result.error = "no image given";
    } else if (o.saveImages && !o.reportStem) {
        result.error = "--images needs --report STEM";
    } else if (o.reveal && !o.region) {
        result.error = "--reveal needs a region: give --roi";
    }
    return result;
}

std::string usageText() {
    return R"(Usage: pixmera-veltro-cli [options] IMAGE...

Colocalization analysis of two-colour fluorescence images. For each IMAGE it does what a user
does in the desktop program: open it, correct the background if asked, let the automatic pass
run, press Calculate (answering the background warning with "calculate anyway"), draw the
region on the scatter gram and press its Calculate, and save.

Options:
  --pair PAIR          channel pair, Y channel first: red-green (default), red-blue,
                       green-red, green-blue, blue-red, blue-green
  --coefficients LIST  coefficients to calculate, from Rr,R,k,m (default: all);
                       the others show "ND"
  --report STEM        write the report to STEM.xls (or STEM.txt); with several images,
                       each image's report goes to STEM-NAME, NAME being the image's file
                       name without its extension
  --xls                report as a spreadsheet file, STEM.xls (default)
  --txt                report as a plain text file, STEM.txt
  --images             with --report, also write STEM_Image.tif and STEM_SGram.tif
  --roi KIND:NUMBERS   draw a region on the scatter gram, in scatter-gram coordinates
                       (X intensity, Y intensity, 0 to 256), with the tool a user would:
                         rect:X,Y,W,H     rectangle from corner (X,Y), W wide, H high
                         oval:X,Y,W,H     oval inscribed in that rectangle
                         polygon:X1,Y1,X2,Y2,X3,Y3,...   closed polygon through the points
                         lasso:X1,Y1,X2,Y2,X3,Y3,...     freehand outline through the points
                       the pixels it stands for are counted and M1, M2 calculated
  --reveal             paint the region's pixels white; with --images also write
                       STEM_ImgReflect.tif
  --background CHANNEL:LEVEL
                       before the analysis, set every sample of CHANNEL (red, green, blue
                       or all) at or below LEVEL (0 to 255) to 0, as the background
                       window's Apply does; may be given several times, applied in order
  --jobs N, -j N       analyse N files at a time (default: one per processor core)
  --help, -h           show this help
  --version            show the program's version

Without --report, one image's report is printed on standard output; several images give one
tab-separated table on standard output, a header row and one row per image.

Exit status: 0 all went well, 1 some file could not be read or written (each failure is
printed as "FILE: reason" on standard error while the others go on), 2 usage error.
)";
}

}  // namespace pv::cli
