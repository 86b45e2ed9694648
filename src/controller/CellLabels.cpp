#include "controller/CellLabels.h"

#include <algorithm>

#include "core/Localization.h"

namespace pv {

namespace {

// Every cell's histogram measures; the front end tests the cell it shows, alone.
CellMeasureOptions withoutTests() {
    CellMeasureOptions options;
    options.significance = false;
    return options;
}

}  // namespace

std::vector<std::uint8_t> maskOutline(const PixmeraVeltroController& controller) {
    const Bitmap* mask = controller.mask();
    if (mask == nullptr) {
        return {};
    }
    const std::uint8_t* data = mask->bitmapData();
    const auto stride = std::size_t(mask->bytesPerRow());
    return outlineOf(mask->pixelsWide(), mask->pixelsHigh(),
                     [&](int x, int y) { return data[std::size_t(y) * stride + std::size_t(x)]; });
}

Status CellLabels::load(const std::string& path) {
    const Picture& picture = controller_.currentDisplayedImage();
    Result<LabelImage> read = readLabelImage(
        path, sizeMustBe(picture.pixelsWide(), picture.pixelsHigh(), kLabelSizeDiffers));
    if (!read) {
        return Status(read.error());
    }
    // Worked out now, so that a label image of another size is refused before it replaces one.
    Result<std::vector<PixmeraVeltroController::CellFields>> cells =
        controller_.cellFields(*read, path, true, withoutTests());
    if (!cells) {
        return Status(cells.error());
    }
    labels_ = std::move(read).value();
    path_ = path;
    picture_ = controller_.workingImage().originalImage().bitmap;
    stackPath_ = stack_.active() ? stack_.path() : std::string();
    cells_ = std::move(cells).value();
    basis_ = basis();
    restamp();
    const LabelImage::Labels& v = labels_.labels;
    const auto wide = std::size_t(labels_.wide);
    outline_ = outlineOf(labels_.wide, labels_.high,
                         [&](int x, int y) { return v[std::size_t(y) * wide + std::size_t(x)]; });
    return Status();
}

void CellLabels::clear() {
    labels_ = {};
    path_.clear();
    picture_.reset();
    stackPath_.clear();
    outline_.clear();
    cells_.clear();
    basis_ = {};
    restamp();
}

void CellLabels::restamp() {
    ++stamp_;
    tested_.clear();
    untested_ = 0;
}

bool CellLabels::shown() const {
    const Picture& p = controller_.workingImage().originalImage();
    const bool samePicture = !picture_.expired() && picture_.lock() == p.bitmap;
    const bool sameStack = !stackPath_.empty() && stack_.active() && stack_.path() == stackPath_;
    return !labels_.labels.empty() && labels_.wide == p.pixelsWide() &&
           labels_.high == p.pixelsHigh() && (samePicture || sameStack);
}

std::uint32_t CellLabels::labelAt(int x, int y) const {
    if (!shown() || x < 0 || y < 0 || x >= labels_.wide || y >= labels_.high) {
        return 0;
    }
    return labels_.labels[std::size_t(y) * std::size_t(labels_.wide) + std::size_t(x)];
}

CellLabels::Basis CellLabels::basis() const {
    const Bitmap* mask = controller_.mask();
    return {controller_.fields(), controller_.currentDisplayedImage().bitmap,
            mask != nullptr ? mask->bitmapData() : nullptr};
}

bool CellLabels::current() const {
    const Basis now = basis();
    return !basis_.picture.expired() && basis_.picture.lock() == now.picture.lock() &&
           basis_.mask == now.mask && basis_.fields == now.fields;
}

const PixmeraVeltroController::CellFields* CellLabels::cell(std::uint32_t label) {
    if (label == 0 || !shown()) {
        return nullptr;
    }
    if (!current()) {
        Result<std::vector<PixmeraVeltroController::CellFields>> cells =
            controller_.cellFields(labels_, path_, true, withoutTests());
        cells_ =
            cells ? std::move(cells).value() : std::vector<PixmeraVeltroController::CellFields>{};
        basis_ = basis();
        restamp();
    }
    const auto at = std::lower_bound(
        cells_.begin(), cells_.end(), label,
        [](const PixmeraVeltroController::CellFields& c, std::uint32_t l) { return c.label < l; });
    return at != cells_.end() && at->label == label ? &*at : nullptr;
}

std::vector<std::pair<std::string, std::string>> CellLabels::cellRows(std::uint32_t label) {
    const PixmeraVeltroController::CellFields* c = cell(label);
    if (c == nullptr) {
        return {};
    }
    const ResultFields& f = c->fields;
    const auto percent = [](const std::string& count, const std::string& per) {
        return per.empty() ? count : count + " (" + per + " %)";
    };
    // The class names end in a colon, as the main window's labels do.
    std::vector<std::pair<std::string, std::string>> rows = {
        {tr("Label:"), std::to_string(c->label)},
        {tr("Pixels:"), std::to_string(c->pixels)},
        {f.yAxisPixelColorText, percent(f.yAxisPixelCountText, f.yAxisPixelPercentText)},
        {f.xAxisPixelColorText, percent(f.xAxisPixelCountText, f.xAxisPixelPercentText)},
        {f.xyAxisPixelColorText, percent(f.xyAxisPixelCountText, f.xyAxisPixelPercentText)},
        {tr("Total:"), percent(f.pixelCountTotal, f.pixelPercentTotal)},
    };
    const std::pair<const char*, const std::string*> coefficients[] = {
        {"Rr", &f.coefficient_Rr}, {"R", &f.coefficient_R},   {"k1", &f.coefficient_k1},
        {"k2", &f.coefficient_k2}, {"m1", &f.coefficient_m1}, {"m2", &f.coefficient_m2}};
    if (std::all_of(std::begin(coefficients), std::end(coefficients),
                    [](const auto& c) { return c.second->empty(); })) {
        rows.push_back({tr("Coefficients:"), tr("after Calculate")});
    } else {
        for (const auto& [name, text] : coefficients) {
            rows.push_back({name, *text});
        }
    }
    if (!f.coefficient_M1.empty() || !f.coefficient_M2.empty()) {
        rows.push_back({"M1", f.coefficient_M1});
        rows.push_back({"M2", f.coefficient_M2});
    }
    std::vector<ResultLine> further = f.furtherMeasures;
    if (const auto tested = tested_.find(label); tested != tested_.end()) {
        FurtherMeasureResults test;
        test.asked.significance = true;
        test.significance = tested->second;
        for (ResultLine& line : furtherMeasureLines(test)) {
            further.push_back(std::move(line));
        }
    }
    for (ResultLine& line : further) {
        rows.push_back({std::move(line.name), std::move(line.value)});
    }
    return rows;
}

bool CellLabels::testDue(std::uint32_t label) {
    const std::optional<FurtherMeasureResults>& picture = controller_.furtherMeasures();
    return cell(label) != nullptr && picture && picture->asked.significance &&
           !tested_.contains(label) && untested_ != label;
}

Result<BlockShuffleTest> CellLabels::significanceTest(std::uint32_t label) {
    return controller_.cellSignificanceTest(labels_, label, path_);
}

bool CellLabels::takeSignificance(std::uint32_t label, std::uint64_t stamp,
                                  const std::optional<SignificanceResult>& result) {
    if (stamp != stamp_ || !current()) {
        return false;
    }
    if (result) {
        tested_[label] = *result;
    } else {
        untested_ = label;
    }
    return true;
}

void CellLabels::chose(std::uint32_t label) {
    if (untested_ == label) {
        untested_ = 0;
    }
}

}  // namespace pv
