#include "cli/CliOptions.h"

#include <charconv>
#include <string_view>

namespace pv::cli {

namespace {

constexpr const char* kPairNames[6] = {"red-green",  "red-blue", "green-red",
                                       "green-blue", "blue-red", "blue-green"};

bool parseCoefficients(std::string_view list, CoefficientCheckboxes& boxes, std::string& error) {
    boxes = CoefficientCheckboxes{false, false, false, false};
    std::size_t start = 0;
    while (start <= list.size()) {
        std::size_t comma = list.find(',', start);
        if (comma == std::string_view::npos) {
            comma = list.size();
        }
        const std::string_view item = list.substr(start, comma - start);
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
        start = comma + 1;
    }
    return true;
}

}  // namespace

const char* pairName(int rgbCombo) {
    return kPairNames[normalizedRGBCombo(rgbCombo)];
}

int popupIndexForRGBCombo(int rgbCombo) {
    constexpr int kIndex[6] = {0, 1, 3, 4, 6, 7};
    return kIndex[normalizedRGBCombo(rgbCombo)];
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
                    o.rgbCombo = p;
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
    }
    return result;
}

std::string usageText() {
    return R"(Usage: pixmera-veltro-cli [options] IMAGE...

Colocalization analysis of two-colour fluorescence images. For each IMAGE it does what a user
does in the desktop program: open it, let the automatic pass run, press Calculate (answering
the background warning with "calculate anyway") and save.

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
