#include "cli/CliOptions.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <set>
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
    if (list.find_first_not_of(',') == std::string_view::npos) {
        error = "--coefficients needs at least one of Rr, R, k, m";
        return false;
    }
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

bool parseMeasures(std::string_view list, MeasureRequest& m, std::string& error) {
    for (std::string_view item : splitList(list)) {
        const bool all = item == "all";
        bool known = all;
        for (auto [name, flag] : {std::pair("spearman", &m.spearman),
                                  {"kendall", &m.kendall},
                                  {"icq", &m.icq},
                                  {"costes", &m.costes},
                                  {"significance", &m.significance}}) {
            if (all || item == name) {
                *flag = true;
                known = true;
            }
        }
        if (!known && !item.empty()) {
            error = "unknown measure '" + std::string(item) +
                    "' in --measures (expected a comma-separated list of spearman, kendall, icq, "
                    "costes, significance, or all)";
            return false;
        }
    }
    if (!m.any()) {
        error = "--measures needs at least one of spearman, kendall, icq, costes, significance";
        return false;
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
    for (float v : n) {
        if (v < 0.0f || v > 256.0f) {
            error = "--roi " + std::string(text) + " reaches outside the scatter gram; " + kForms;
            return false;
        }
    }
    region.points.clear();
    if (kind == "rect" || kind == "oval") {
        if (n.size() != 4) {
            error = "--roi " + std::string(kind) + " needs four numbers X,Y,W,H; " + kForms;
            return false;
        }
        region.tool = kind == "rect" ? SelectionTool::Rectangle : SelectionTool::Oval;
        region.points = {{n[0], n[1]}, {n[0] + n[2], n[1] + n[3]}};
        if (n[2] == 0.0f || n[3] == 0.0f || n[0] + n[2] > 256.0f || n[1] + n[3] > 256.0f) {
            error = "--roi " + std::string(text) +
                    (n[2] == 0.0f || n[3] == 0.0f ? " holds no area; "
                                                  : " reaches outside the scatter gram; ") +
                    kForms;
            return false;
        }
        return true;
    }
    if (kind == "polygon" || kind == "lasso") {
        if (n.size() % 2 != 0 || n.size() < 6) {
            error = "--roi " + std::string(kind) +
                    " needs an even count of numbers, at least three X,Y points; " + kForms;
            return false;
        }
        region.tool = kind == "polygon" ? SelectionTool::Polygon : SelectionTool::Lasso;
        double twiceArea = 0.0;  // the shoelace formula: zero for points on one line
        for (std::size_t i = 0; i < n.size(); i += 2) {
            region.points.push_back({n[i], n[i + 1]});
            const std::size_t j = (i + 2) % n.size();
            twiceArea += double(n[i]) * n[j + 1] - double(n[j]) * n[i + 1];
        }
        if (twiceArea == 0.0) {
            error = "--roi " + std::string(text) + " holds no area; " + kForms;
            return false;
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

// The options that take a value, in their long form.
constexpr std::string_view kValueOptions[] = {
    "--pair",     "--coefficients", "--report", "--roi",       "--background", "--jobs",
    "--depth",    "--y-file",       "--x-file", "--y-channel", "--x-channel",  "--mask",
    "--measures", "--shuffles",     "--seed",   "--psf"};

// The whole number of text within lo..hi, if it is one.
std::optional<int> wholeNumber(std::string_view text, int lo, int hi) {
    int n = 0;
    auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
    if (ec != std::errc() || end != text.data() + text.size() || n < lo || n > hi) {
        return std::nullopt;
    }
    return n;
}

bool takesValue(std::string_view option) {
    return std::find(std::begin(kValueOptions), std::end(kValueOptions), option) !=
           std::end(kValueOptions);
}

// GNU forms as separate words: --pair=red-blue as --pair red-blue, -j2 as -j 2. Everything
// after "--" is left alone. A value given to an option that takes none is an error.
std::vector<std::string> separateValues(const std::vector<std::string>& args, std::string& error) {
    std::vector<std::string> out;
    bool onlyImages = false;
    for (const std::string& a : args) {
        const std::size_t equals = a.find('=');
        if (onlyImages || a.size() < 2 || a[0] != '-') {
            out.push_back(a);
        } else if (a == "--") {
            onlyImages = true;
            out.push_back(a);
        } else if (a.rfind("--", 0) == 0 && equals != std::string::npos) {
            if (!takesValue(std::string_view(a).substr(0, equals))) {
                error = a.substr(0, equals) + " takes no value";
                return {};
            }
            out.push_back(a.substr(0, equals));
            out.push_back(a.substr(equals + 1));
        } else if (a.rfind("-j", 0) == 0 && a.size() > 2) {
            out.push_back("-j");
            out.push_back(a.substr(2));
        } else {
            out.push_back(a);
        }
    }
    return out;
}

// The stem without a suffix that the format would add again: "r.xls" writes r.xls, not
// r.xls.xls.
std::string stemWithoutSuffix(std::string stem, ReportFormat format) {
    const std::string_view suffix = format == ReportFormat::Spreadsheet ? ".xls" : ".txt";
    if (stem.size() > suffix.size() && stem.ends_with(suffix)) {
        stem.resize(stem.size() - suffix.size());
    }
    return stem;
}

}  // namespace

const char* pairName(RGBCombo combo) {
    return kPairNames[int(combo)];
}

ParseResult parseOptions(const std::vector<std::string>& rawArgs) {
    ParseResult result;
    Options& o = result.options;
    const std::vector<std::string> args = separateValues(rawArgs, result.error);
    if (!result.error.empty()) {
        return result;
    }
    std::set<std::string> given;  // options that cannot repeat, once seen
    std::optional<std::string> formatOption;
    bool onlyImages = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (!onlyImages && a.size() > 1 && a[0] == '-' && a != "--background" && a != "--") {
            // One word for each option, whatever form it came in.
            const std::string name = a == "-j" ? "--jobs" : a == "-h" ? "--help" : a;
            const bool format = name == "--xls" || name == "--txt";
            if (!given.insert(format ? "--xls/--txt" : name).second) {
                result.error = format && formatOption != name
                                   ? "--xls and --txt cannot be given together"
                                   : name + " can be given only once";
                return result;
            }
            if (format) {
                formatOption = name;
            }
        }
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
            const auto n = wholeNumber(*v, 1, 1024);
            if (!n) {
                result.error = "--jobs needs a whole number from 1 to 1024, not '" + *v + "'";
                return result;
            }
            o.jobs = unsigned(*n);
        } else if (a == "--depth") {
            auto v = value("--depth");
            if (!v) {
                return result;
            }
            const auto bits = wholeNumber(*v, 1, 16);
            if (!bits) {
                result.error =
                    "--depth needs the bits of the raw data, from 1 to 16 (for example "
                    "12), not '" +
                    *v + "'";
                return result;
            }
            o.depthBits = *bits;
        } else if (a == "--mask" || a == "--labels") {
            auto v = value(a.c_str());
            if (!v) {
                return result;
            }
            (a == "--mask" ? o.mask : o.labels) = *v;
        } else if (a == "--y-file" || a == "--x-file") {
            auto v = value(a.c_str());
            if (!v) {
                return result;
            }
            (a == "--y-file" ? o.yFile : o.xFile) = *v;
        } else if (a == "--y-channel" || a == "--x-channel") {
            auto v = value(a.c_str());
            if (!v) {
                return result;
            }
            if (v->empty()) {
                result.error = a + " needs a channel number or name";
                return result;
            }
            (a == "--y-channel" ? o.yChannel : o.xChannel) = *v;
        } else if (a == "--measures") {
            auto v = value("--measures");
            if (!v || !parseMeasures(*v, o.measures, result.error)) {
                return result;
            }
        } else if (a == "--shuffles" || a == "--psf") {
            auto v = value(a.c_str());
            if (!v) {
                return result;
            }
            const bool shuffles = a == "--shuffles";
            const auto n = wholeNumber(*v, 1, shuffles ? 1000000 : 128);
            if (!n) {
                result.error =
                    shuffles ? "--shuffles needs a whole number from 1 to 1000000, not '" + *v + "'"
                             : "--psf needs the point-spread function's size in pixels, from 1 to "
                               "128, not '" +
                                   *v + "'";
                return result;
            }
            if (shuffles) {
                o.measures.shuffles = *n;
            } else {
                o.measures.psfSize = *n;
            }
        } else if (a == "--seed") {
            auto v = value("--seed");
            if (!v) {
                return result;
            }
            auto [end, ec] = std::from_chars(v->data(), v->data() + v->size(), o.measures.seed);
            if (v->empty() || ec != std::errc() || end != v->data() + v->size()) {
                result.error =
                    "--seed needs a whole number from 0 to 18446744073709551615, not '" + *v + "'";
                return result;
            }
        } else if (a == "--stack") {
            o.stack = true;
        } else if (a == "--slices") {
            auto v = value("--slices");
            if (!v) {
                return result;
            }
            if (*v != "all") {
                result.error = "--slices takes 'all', not '" + *v + "'";
                return result;
            }
            o.allSlices = true;
        } else if (a == "--slice" || a == "--frame") {
            auto v = value(a.c_str());
            if (!v) {
                return result;
            }
            const auto n = wholeNumber(*v, 1, 1 << 24);
            if (!n) {
                result.error = a + " needs a number from 1, not '" + *v + "'";
                return result;
            }
            (a == "--slice" ? o.slice : o.frame) = *n;
        } else {
            result.error = "unknown option '" + a + "'";
            return result;
        }
    }
    if (o.help || o.version) {
        return result;
    }
    if (o.reportStem) {
        o.reportStem = stemWithoutSuffix(*o.reportStem, o.format);
        const std::filesystem::path stem(*o.reportStem);
        std::error_code ec;
        if (!stem.has_filename() || std::filesystem::is_directory(stem, ec)) {
            result.error = "--report needs a file name, not the folder '" + *o.reportStem +
                           "' (for example " + (stem / "results").string() + ")";
            return result;
        }
    }
    const bool channelFiles = o.yFile || o.xFile;
    if (channelFiles && !(o.yFile && o.xFile)) {
        result.error = "--y-file and --x-file go together: give both";
    } else if (channelFiles && !o.images.empty()) {
        result.error = "--y-file and --x-file take the place of an image; give no image besides";
    } else if (channelFiles && ((o.yChannel && !wholeNumber(*o.yChannel, 1, 3)) ||
                                (o.xChannel && !wholeNumber(*o.xChannel, 1, 3)))) {
        result.error = "--y-channel and --x-channel of a colour file are 1 red, 2 green, 3 blue";
    } else if (!channelFiles && (o.yChannel.has_value() != o.xChannel.has_value())) {
        result.error = "--y-channel and --x-channel go together: give both";
    } else if (!channelFiles && (o.slice || o.frame || o.allSlices || o.stack) && !o.yChannel) {
        result.error = "--slice, --slices, --stack and --frame need --y-channel and --x-channel";
    } else if (o.stack && (o.slice || o.allSlices || o.labels)) {
        result.error =
            "--stack analyses every slice as one; it goes with neither --slice, "
            "--slices nor --labels";
    } else if (o.allSlices && (o.slice || o.reportStem)) {
        result.error =
            "--slices all gives a table of every slice; it goes with neither --slice "
            "nor --report";
    } else if (channelFiles && (o.slice || o.frame)) {
        result.error = "--slice and --frame choose a page of an image, not of --y-file or --x-file";
    } else if (o.images.empty() && !channelFiles) {
        result.error = "no image given";
    } else if (formatOption && !o.reportStem) {
        result.error = *formatOption + " needs --report STEM";
    } else if (o.saveImages && !o.reportStem) {
        result.error = "--images needs --report STEM";
    } else if (o.reveal && !o.region) {
        result.error = "--reveal needs a region: give --roi";
    } else if ((given.count("--shuffles") || given.count("--seed") || given.count("--psf")) &&
               !o.measures.significance) {
        result.error =
            "--shuffles, --seed and --psf set the significance test: give --measures significance";
    }
    return result;
}

std::string usageText() {
    return R"(Usage: pixmera-veltro-cli [options] IMAGE...
       pixmera-veltro-cli [options] --y-file FILE --x-file FILE

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
  --y-file FILE, --x-file FILE
                       analyse two single-channel files, as microscopes save each channel,
                       as the pair's Y and X channels of one picture (the third channel 0);
                       16-bit files are scaled by one factor, that of the brighter file
  --y-channel C, --x-channel C
                       the two channels of each image to analyse as the pair: of a stack
                       (an ImageJ hyperstack, an OME-TIFF, or pages of single channels) by
                       number from 1 or by the name the file gives it; of a colour picture
                       or of a colour --y-file or --x-file, 1 red, 2 green, 3 blue
  --slice N, --frame N of a stack, the slice and the time frame to analyse, from 1
                       (default 1)
  --slices all         every slice of each stack, a row each in the table (its number after
                       the pair)
  --stack              every slice of each stack (at --frame) as one population: the census,
                       sums, scatter gram, coefficients and region over all its voxels
  --mask FILE          analyse only the pixels where FILE (a picture of the same size, for
                       example a segmentation of the cells) is not 0: census, sums, scatter
                       gram, region and reveal; percentages then refer to those pixels
  --labels FILE        analyse each cell of the label image FILE (a grey TIFF or PNG of the
                       image's size, a whole number a pixel: the cell's label, 0 for the
                       background; at most 65535) in one pass: a table of one row per cell,
                       its label after the pair, with the census, the coefficients, with --roi
                       M1 and M2, and with --measures each cell's further measures (the
                       significance test over the cell's bounding box, the cell as its mask)
  --depth BITS         read every 16-bit file as raw data of BITS bits (for example 12):
                       samples are scaled by 255 / (2^BITS - 1) in every file alike, so a
                       --background level means the same raw level throughout a batch;
                       by default each 16-bit file is scaled by its own brightest sample
  --measures LIST      the further measures, from spearman,kendall,icq,costes,significance
                       (or all): a "Further Measures" block after the scatter-gram block of
                       the report, and a column for each of its lines in the table
  --shuffles N         shuffles of the significance test (default 200)
  --seed N             seed of the significance test's shuffles (default 1): the same seed
                       gives the same numbers on any machine and any number of cores
  --psf PIXELS         the point-spread function's size, the side of the shuffled blocks
                       (1 to 128); by default estimated from the Y channel's autocorrelation
  --jobs N, -j N       analyse N files at a time (default: one per processor core)
  --help, -h           show this help
  --version            show the program's version

An option's value may also follow it after "=" (--pair=red-blue, --jobs=2, -j2). Only
--background may be given more than once.

Without --report, one image's report is printed on standard output; several images give one
tab-separated table on standard output, a header row and one row per image, in input order:
its last two columns give the scale of a 16-bit file (255/TOP: the raw value TOP became 255)
and, for a file that failed, why. With --report, a file's report and pictures are written all
or none.

Exit status: 0 all went well, 1 some file could not be read or written (each failure is
printed as "FILE: reason" on standard error while the others go on), 2 usage error.
)";
}

}  // namespace pv::cli
