#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "cli/CliOptions.h"
#include "cli/Gestures.h"
#include "controller/ControllerPort.h"
#include "controller/PixmeraVeltroController.h"
#include "core/PixelMemory.h"
#include "image/StackLayout.h"
#include "output/Export.h"

#ifndef PV_VERSION
#define PV_VERSION "unknown"
#endif

namespace {

using namespace pv;

// File, pair, four census classes of count and per cent, six coefficients, the region's four
// classes, M1, M2, the 16-bit scale and the error.
constexpr std::size_t kTableColumns = 2 + 8 + 6 + 8 + 2 + 2;

struct ImageOutcome {
    bool ok = false;
    std::vector<std::string> failures;  // "FILE: reason"
    std::vector<std::string> cautions;  // "FILE: the green channel is constant": no failure
    std::string report;                 // printed for a single image without --report
    std::vector<std::string> rows;      // lines of the batch table: one, or one a cell
};

// The image's row of the batch table, its error column empty.
std::vector<std::string> tableRow(const std::string& image, const cli::Options& o,
                                  const ResultFields& f, const std::string& scale) {
    return {image,
            cli::pairName(o.rgbCombo),
            f.yAxisPixelCountText,
            f.yAxisPixelPercentText,
            f.xAxisPixelCountText,
            f.xAxisPixelPercentText,
            f.xyAxisPixelCountText,
            f.xyAxisPixelPercentText,
            f.pixelCountTotal,
            f.pixelPercentTotal,
            f.coefficient_Rr,
            f.coefficient_R,
            f.coefficient_k1,
            f.coefficient_k2,
            f.coefficient_m1,
            f.coefficient_m2,
            f.yAxisROIPixelCountText,
            f.yAxisROIPixelPercentText,
            f.xAxisROIPixelCountText,
            f.xAxisROIPixelPercentText,
            f.xyAxisROIPixelCountText,
            f.xyAxisROIPixelPercentText,
            f.pixelCountROITotal,
            f.pixelROIPercentTotal,
            f.coefficient_M1,
            f.coefficient_M2,
            scale,
            std::string()};
}

// The further measures' cells, before the scale and the error; empty where a row has none.
void addMeasureCells(std::vector<std::string>& row, const cli::Options& o,
                     const std::vector<ResultLine>& lines) {
    std::vector<std::string> cells(furtherMeasureNames(o.measures).size());
    for (std::size_t i = 0; i < lines.size() && i < cells.size(); ++i) {
        cells[i] = lines[i].value;
    }
    row.insert(row.end() - 2, cells.begin(), cells.end());
}

// A row all the same for a file that failed, so that the table's rows line up with the files.
std::vector<std::string> failedRow(const std::string& image, const cli::Options& o) {
    std::vector<std::string> row(kTableColumns + (o.labels ? 1 : 0), "");
    addMeasureCells(row, o, {});
    row[0] = image;
    row[1] = cli::pairName(o.rgbCombo);
    return row;
}

std::string joinRow(const std::vector<std::string>& cells) {
    std::string line;
    for (std::size_t i = 0; i < cells.size(); ++i) {
        line += (i ? "\t" : "") + cells[i];
    }
    return line + "\n";
}

// The row as a line of the table, with its error, and with --slices all its slice (0: none, for
// a file that failed as a whole) after the pair. Kept as one line: a row a cell of tens of
// thousands of cells must not cost more than their text.
std::string tableLine(std::vector<std::string> row, const cli::Options& o, int slice,
                      std::string error) {
    row.back() = std::move(error);
    if (o.allSlices) {
        row.insert(row.begin() + 2, slice > 0 ? std::to_string(slice) : "");
    }
    return joinRow(row);
}

// "cells.tif: the file ends early": what went wrong, after the image as the user named it.
std::string failureLine(const std::string& image, std::string_view what) {
    return image + ": " + std::string(what);
}

std::string reportStemFor(const cli::Options& o, const std::string& image) {
    if (o.images.size() == 1) {
        return *o.reportStem;
    }
    return *o.reportStem + "-" + std::filesystem::path(image).stem().string();
}

// layout: the image's, when already read for all its slices; slice: the one analysed, from 1.
ImageOutcome analyseOne(const cli::Options& o, const std::string& image, unsigned threads,
                        const StackLayout* layout = nullptr, int slice = 0) {
    ImageOutcome out;
    cli::BatchPort port;
    PixmeraVeltroController controller(port);
    cli::startController(controller, o, threads);

    const Status opened = cli::openImage(controller, o, image, layout);
    if (!opened) {
        // Of two channel files the one at fault names itself; a mask is named after the image.
        const Error& e = opened.error();
        const bool ofMask = o.mask && e.file == *o.mask;
        const std::string why = ofMask ? "mask " + e.message() : e.reason;
        out.failures.push_back(o.yFile && !ofMask && !e.file.empty() ? e.message()
                                                                     : failureLine(image, why));
        // A row all the same, so that the table's rows line up with the files given.
        out.rows.push_back(tableLine(failedRow(image, o), o, slice,
                                     o.yFile && !ofMask && !e.file.empty() ? e.message() : why));
        return out;
    }
    for (const std::string& line : port.log) {
        out.failures.push_back(failureLine(image, line));
    }

    if (const Status measured = cli::followRoad(controller, port, o); !measured) {
        out.failures.push_back(failureLine(image, measured.error().message()));
    }

    for (const Caution& c : controller.cautions()) {
        out.cautions.push_back(failureLine(image, c.text));
    }
    const ResultFields& f = controller.fields();
    if (o.reportStem) {
        for (const Error& e : controller.outputPixelCoefficientData(
                 reportStemFor(o, image), o.format, o.saveImages, /*allOrNothing=*/true)) {
            out.failures.push_back(failureLine(image, e.message()));
        }
    } else {
        out.report = buildReport(f);
    }
    const std::string scale =
        controller.sixteenBitTop() ? "255/" + std::to_string(*controller.sixteenBitTop()) : "";
    const auto errors = [&] {  // what the last column says of a file whose outputs failed
        std::string said;
        for (const std::string& line : out.failures) {
            said += (said.empty() ? "" : "; ") + line.substr(image.size() + 2);
        }
        return said;
    };
    if (o.labels) {
        const std::string said = errors();
        const Status cells = controller.forEachCellFields(
            *o.labels, o.measures.any(), [&](PixmeraVeltroController::CellFields&& cell) {
                std::vector<std::string> row = tableRow(image, o, cell.fields, scale);
                addMeasureCells(row, o, cell.fields.furtherMeasures);
                row.insert(row.begin() + 2, std::to_string(cell.label));
                out.rows.push_back(tableLine(std::move(row), o, slice, said));
            });
        if (!cells) {
            out.failures.push_back(failureLine(image, "labels " + cells.error().message()));
        }
    } else {
        std::vector<std::string> row = tableRow(image, o, f, scale);
        addMeasureCells(row, o, f.furtherMeasures);
        out.rows.push_back(tableLine(std::move(row), o, slice, errors()));
    }
    if (out.rows.empty()) {
        out.rows.push_back(tableLine(failedRow(image, o), o, slice, errors()));
    }
    out.ok = out.failures.empty();
    return out;
}

// One image, or with --slices all each slice of it in turn, a row each with its number after
// the pair; what is said of a slice names it.
ImageOutcome analyseImage(const cli::Options& o, const std::string& image, unsigned threads) {
    if (!o.allSlices) {
        return analyseOne(o, image, threads);
    }
    ImageOutcome out;
    Result<StackLayout> layout = readStackLayout(image);
    if (!layout) {
        out.failures.push_back(failureLine(image, layout.error().reason));
        out.rows.push_back(tableLine(failedRow(image, o), o, 0, layout.error().reason));
        return out;
    }
    // Each slice reads two pages; a few bytes must not make thousands of large slices.
    if (const Status justified = cli::slicesJustified(*layout, image); !justified) {
        out.failures.push_back(failureLine(image, justified.error().reason));
        out.rows.push_back(tableLine(failedRow(image, o), o, 0, justified.error().reason));
        return out;
    }
    out.ok = true;
    for (int slice = 1; slice <= layout->slices; ++slice) {
        cli::Options one = o;
        one.slice = slice;
        ImageOutcome part = analyseOne(one, image, threads, &*layout, slice);
        const std::string named = image + " (slice " + std::to_string(slice) + ")";
        for (auto* lines : {&part.failures, &part.cautions}) {
            for (std::string& line : *lines) {
                line = named + line.substr(std::min(line.size(), image.size()));
            }
        }
        out.failures.insert(out.failures.end(), part.failures.begin(), part.failures.end());
        out.cautions.insert(out.cautions.end(), part.cautions.begin(), part.cautions.end());
        std::move(part.rows.begin(), part.rows.end(), std::back_inserter(out.rows));
        out.ok = out.ok && part.ok;
    }
    return out;
}

std::string headerRow(const cli::Options& o) {
    const RGBCombo combo = o.rgbCombo;
    const bool cells = o.labels.has_value(), slices = o.allSlices;
    const PairLabels pair = pairLabels(combo);
    auto name = [](std::string label) {
        if (!label.empty() && label.back() == ':') {
            label.pop_back();
        }
        return label;
    };
    const std::vector<std::string> labels = {name(pair.yClass), name(pair.xClass),
                                             name(pair.xyClass), "Total"};
    std::string header =
        std::string("File\tPair") + (slices ? "\tSlice" : "") + (cells ? "\tLabel" : "");
    for (const std::string& label : labels) {
        header += "\t" + label + " count\t" + label + " %";
    }
    header += "\tRr\tR\tk1\tk2\tm1\tm2";
    for (const std::string& label : labels) {
        header += "\tRegion " + label + " count\tRegion " + label + " %";
    }
    header += "\tM1\tM2";
    for (const std::string& name : furtherMeasureNames(o.measures)) {
        header += "\t" + name;
    }
    return header + "\t16-bit scale\tError\n";
}

class Progress {
  public:
    Progress(std::size_t total, bool enabled) : total_(total), enabled_(enabled) {}
    // Makes room for a message on the progress line.
    void clearLine() {
        if (enabled_) {
            std::fputs("\r\033[K", stderr);
        }
    }
    void step() {
        if (!enabled_) {
            return;
        }
        const std::size_t done = ++done_;
        const int width = 30;
        const int filled = int(done * width / total_);
        std::fprintf(stderr, "\r[%s%s] %zu/%zu images",
                     std::string(std::size_t(filled), '#').c_str(),
                     std::string(std::size_t(width - filled), ' ').c_str(), done, total_);
        if (done == total_) {
            std::fputs("\n", stderr);
        }
        std::fflush(stderr);
    }

  private:
    std::size_t total_;
    bool enabled_;
    std::size_t done_ = 0;
};

// Results that cannot reach standard output (a full disk, a closed pipe) are lost results:
// say so and fail rather than exit 0.
int finish(int status) {
    std::cout.flush();
    if (!std::cout) {
        std::cerr << "pixmera-veltro-cli: cannot write to standard output: "
                  << std::strerror(errno != 0 ? errno : EIO) << "\n";
        return 1;
    }
    return status;
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    const cli::ParseResult parsed = cli::parseOptions(args);
    if (!parsed.error.empty()) {
        std::cerr << "pixmera-veltro-cli: " << parsed.error
                  << "\nTry 'pixmera-veltro-cli --help' for more information.\n";
        return 2;
    }
    cli::Options o = parsed.options;
    if (o.yFile) {
        // Two channel files make one picture, named after both wherever an image is named.
        o.images = {*o.yFile + " + " + *o.xFile};
    }
    if (o.help) {
        std::cout << cli::usageText();
        return finish(0);
    }
    if (o.version) {
        std::cout << "pixmera-veltro-cli " << PV_VERSION << "\n";
        return finish(0);
    }
    if (o.reportStem && o.images.size() > 1) {
        std::set<std::string> stems;
        for (const std::string& image : o.images) {
            if (!stems.insert(reportStemFor(o, image)).second) {
                std::cerr << "pixmera-veltro-cli: two images would write the same report "
                          << reportStemFor(o, image)
                          << "; give them different names or write them separately\n"
                          << "Try 'pixmera-veltro-cli --help' for more information.\n";
                return 2;
            }
        }
    }

    const std::size_t count = o.images.size();
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const unsigned jobs = unsigned(std::min<std::size_t>(o.jobs ? o.jobs : cores, count));
    // With several files at once each analysis runs on one thread; alone it takes all cores.
    const unsigned passThreads = jobs > 1 ? 1 : 0;
    // Cells and slices are always a table, a row each.
    const bool table = count > 1 || o.labels || o.allSlices;

    std::vector<ImageOutcome> outcomes(count);
    std::vector<bool> finished(count, false);
    std::size_t nextToPrint = 0;
    std::mutex mutex;
    std::atomic<std::size_t> next{0};
    Progress progress(count, table && isatty(STDERR_FILENO));
    bool allOk = true;

    if (table) {
        std::cout << headerRow(o) << std::flush;
    }
    auto worker = [&] {
        // The next file's picture takes the memory of the last one instead of faulting in its own.
        const pixel_memory::KeepFreedBlocks reuse;
        for (std::size_t i = next++; i < count; i = next++) {
            ImageOutcome outcome = analyseImage(o, o.images[i], passThreads);
            std::lock_guard<std::mutex> lock(mutex);
            if (!outcome.failures.empty() || !outcome.cautions.empty()) {
                progress.clearLine();
                for (const auto* lines : {&outcome.cautions, &outcome.failures}) {
                    for (const std::string& line : *lines) {
                        std::cerr << line << "\n";
                    }
                }
            }
            progress.step();
            allOk = allOk && outcome.ok;
            outcomes[i] = std::move(outcome);
            finished[i] = true;
            // Rows appear in input order, as soon as all earlier ones are done.
            while (nextToPrint < count && finished[nextToPrint]) {
                const ImageOutcome& done = outcomes[nextToPrint];
                if (table) {
                    for (const std::string& row : done.rows) {
                        std::cout << row;
                    }
                } else if (!table && !o.reportStem) {
                    std::cout << done.report;
                }
                std::cout.flush();
                outcomes[nextToPrint] = ImageOutcome();
                ++nextToPrint;
            }
        }
    };
    std::vector<std::thread> pool;
    for (unsigned t = 1; t < jobs; ++t) {
        pool.emplace_back(worker);
    }
    worker();
    for (std::thread& t : pool) {
        t.join();
    }
    return finish(allOk ? 0 : 1);
}
