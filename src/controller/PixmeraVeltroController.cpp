#include "controller/PixmeraVeltroController.h"

#include <set>
#include <utility>

#include "analysis/AnalysisPass.h"
#include "analysis/Coefficients.h"
#include "analysis/LabelAnalysis.h"
#include "analysis/ScatterGram.h"
#include "controller/CellMeasures.h"
#include "core/Localization.h"
#include "image/FileFacts.h"
#include "image/ImageFile.h"
#include "image/Normalization.h"

namespace pv {

namespace {

// Both warnings say the same: the coefficients of an uncorrected image count its background.
std::string backgroundWarningText() {
    return tr(
        "Before running the colocalization calculations the background should first be "
        "corrected.");
}

}  // namespace

std::optional<BackgroundWarningAnswer> backgroundWarningAnswerForTag(int tag) {
    switch (tag) {
        case -1:
            return BackgroundWarningAnswer::CorrectFirst;
        case 0:
            return BackgroundWarningAnswer::Help;
        case 1:
            return BackgroundWarningAnswer::CalculateAnyway;
        default:
            return std::nullopt;
    }
}

ScatterGramWarningAnswer scatterGramWarningAnswerForReturnCode(int returnCode) {
    return returnCode == 0 ? ScatterGramWarningAnswer::Background
                           : ScatterGramWarningAnswer::Calculate;
}

void PixmeraController::loadSupportedFileTypes() {
    supportedImageFileTypes_ =
        pv::loadSupportedFileTypes(declaredDocumentTypes(), supportedImageFileTypes_);
}

PixmeraVeltroController::Action::~Action() {
    if (--c_.actionDepth_ > 0) {
        return;
    }
    // Flags first: the port may call back into the controller.
    const bool image = std::exchange(c_.imagePending_, false);
    const bool scatterGram = std::exchange(c_.scatterGramPending_, false);
    const bool controls = std::exchange(c_.refreshPending_, false);
    if (image) {
        c_.port_.showImage(c_.image_.viewPicture());
    }
    if (scatterGram && c_.scatterGramBitmap_) {
        // The view keeps a snapshot; later plotting shows only after the next action.
        if (std::optional<Bitmap> snapshot = c_.scatterGramBitmap_->copy()) {
            c_.port_.showScatterGram(Picture::at72dpi(std::move(*snapshot)));
        }
    }
    if (controls) {
        c_.fields_ = resultFields(c_.analysis_, c_.shown_);
        if (c_.further_) {
            c_.fields_.furtherMeasures = furtherMeasureLines(*c_.further_);
        }
        c_.port_.refreshControls();
    }
}

PixmeraVeltroController::PixmeraVeltroController(ControllerPort& port) : port_(port) {
    scatterGramGraph_.onScatterGramROISelected = [this] { scatterGramROISelected(); };
    scatterGramGraph_.onNeedsDisplay = [this] { port_.scatterGramNeedsDisplay(); };
}

void PixmeraVeltroController::awakeFromNib() {
    const Action action(*this);
    selectionTool_ = SelectionTool::Rectangle;
    scatterGramGraph_.selectionMarkerStyle(selectionTool_);
    drawEmptyScatterGram();
    drawColorBars();
    buttons_.calculateROIButton = false;
    buttons_.reflectROIButton = false;
    reanalyse();
    buttons_.saveButton = false;
    buttons_.backgroundButton = false;
    buttons_.calculateCoefficientButton = false;
    refresh();
}

void PixmeraVeltroController::applicationDidFinishLaunching() {
    loadSupportedFileTypes();
}

AxisLabelColors PixmeraVeltroController::axisLabelColors() const {
    const ChannelPair pair = channelPairFor(analysis_.rgbCombo);
    return {pair.y, pair.x};
}

bool PixmeraVeltroController::validateMenuItem(MenuAction action) const {
    if (action == MenuAction::Other) {
        return true;
    }
    if (!image_.initialImageHasBeenSelected()) {
        return false;
    }
    return action != MenuAction::RestoreOriginal || image_.imageFileInfo.backgroundCorrected != 0;
}

std::vector<Caution> PixmeraVeltroController::cautions() const {
    if (currentDisplayedImage().isEmpty()) {
        return {};
    }
    std::vector<Caution> out =
        analysisCautions({.analysis = analysis_,
                          .fields = fields_,
                          .histogram = histogram_,
                          .backgroundCorrected = image_.imageFileInfo.backgroundCorrected != 0,
                          .pages = loadedPages_,
                          .masked = mask_.has_value()});
    // An empty mask has said all there is to say.
    if (further_ && !(mask_ && analysis_.census.totalPixelCount == 0)) {
        for (Caution& c : furtherMeasureCautions(*further_, analysis_.rgbCombo)) {
            out.push_back(std::move(c));
        }
    }
    return out;
}

std::uint64_t PixmeraVeltroController::pixelsWithPair(int x, int y) const {
    if (x < 0 || x > 255 || y < 0 || y > 255 ||
        histogram_.counts.size() != std::size_t(PairHistogram::kBins)) {
        return 0;
    }
    std::uint64_t n = 0;
    for (int t = 0; t < PairHistogram::kThirdStates; ++t) {
        n += histogram_.count(t, y, x);
    }
    return n;
}

// ---------------------------------------------------------------------------------------------
// Working image

Status PixmeraVeltroController::openImageFile(const std::string& path) {
    return openReadPicture(path, readImageFile(path, readOptions_));
}

Status PixmeraVeltroController::openChannelFiles(const ChannelSource& y, const ChannelSource& x) {
    const ChannelPair pair = channelPairFor(analysis_.rgbCombo);
    return openReadPicture(y.path, readChannelPair(y, x, {int(pair.y), int(pair.x)}, readOptions_));
}

Status PixmeraVeltroController::replaceWithChannelFiles(const ChannelSource& y,
                                                        const ChannelSource& x, bool anotherSlice) {
    const Action action(*this);
    const ChannelPair pair = channelPairFor(analysis_.rgbCombo);
    Result<Picture> read = readChannelPair(y, x, {int(pair.y), int(pair.x)}, readOptions_);
    if (!read) {
        return Status(read.error());
    }
    std::optional<Bitmap> mask = std::move(mask_);
    const std::vector<BackgroundSettings> corrections = corrections_;
    const Status opened = openReadPicture(y.path, std::move(read));
    if (!opened || !anotherSlice) {
        return opened;
    }
    const Picture& now = image_.currentDisplayedImage();
    if (mask && mask->pixelsWide() == now.pixelsWide() && mask->pixelsHigh() == now.pixelsHigh()) {
        mask_ = std::move(mask);
    }
    for (const BackgroundSettings& s : corrections) {
        if (!image_.applyBackgroundCorrection(s, analysisThreads_)) {
            port_.showError(
                Error{y.path, tr("There is not enough memory to correct the background.")});
            break;
        }
        corrections_.push_back(s);
    }
    imageShown();
    reanalyse();
    return opened;
}

Status PixmeraVeltroController::setMaskFile(const std::string& path) {
    const Action action(*this);
    const Picture& picture = image_.currentDisplayedImage();
    ReadOptions reading = readOptions_;
    reading.sizeCheck = sizeMustBe(picture.pixelsWide(), picture.pixelsHigh(),
                                   "the mask is %1 x %2 pixels but the picture is %3 x %4");
    Result<Picture> read = readImageFile(path, reading);
    if (!read) {
        return Status(read.error());
    }
    std::optional<Bitmap> mask =
        Bitmap::create(read->pixelsWide(), read->pixelsHigh(), 1, false, false);
    if (!mask) {
        return Status(Error{path, tr("there is not enough memory to open the picture (%1 pixels)",
                                     {std::to_string(read->pixelsWide()) + " x " +
                                      std::to_string(read->pixelsHigh())})});
    }
    const ChannelView from = read->bitmap->channels();
    for (std::int64_t r = 0; r < from.height; ++r) {
        std::uint8_t* row = mask->row(0, int(r));
        for (std::int64_t c = 0; c < from.width; ++c) {
            const bool inside = *from.sample(0, r, c) != 0 || *from.sample(1, r, c) != 0 ||
                                *from.sample(2, r, c) != 0;
            row[c] = inside ? 255 : 0;
        }
    }
    mask_ = std::move(mask);
    reanalyse();
    return Status();
}

Result<std::vector<PixmeraVeltroController::CellFields>> PixmeraVeltroController::cellFields(
    const std::string& labelPath, bool withFurtherMeasures) {
    std::vector<CellFields> cells;
    const Status done = forEachCellFields(labelPath, withFurtherMeasures,
                                          [&](CellFields&& cell) { cells.push_back(cell); });
    if (!done) {
        return done.error();
    }
    return cells;
}

Status PixmeraVeltroController::forEachCellFields(const std::string& labelPath,
                                                  bool withFurtherMeasures, const TakeCell& take) {
    const Picture& picture = image_.currentDisplayedImage();
    Result<LabelImage> labels = readLabelImage(
        labelPath, sizeMustBe(picture.pixelsWide(), picture.pixelsHigh(), kLabelSizeDiffers));
    if (!labels) {
        return Status(labels.error());
    }
    return forEachCellFields(*labels, labelPath, withFurtherMeasures, {}, take);
}

Status PixmeraVeltroController::labelsFit(const LabelImage& labels,
                                          const std::string& labelPath) const {
    const Picture& picture = image_.currentDisplayedImage();
    if (auto why = sizeMustBe(picture.pixelsWide(), picture.pixelsHigh(), kLabelSizeDiffers)(
            std::uint64_t(labels.wide), std::uint64_t(labels.high))) {
        return Status(Error{labelPath, std::move(*why)});
    }
    return Status();
}

Result<std::vector<PixmeraVeltroController::CellFields>> PixmeraVeltroController::cellFields(
    const LabelImage& labels, const std::string& labelPath, bool withFurtherMeasures,
    const CellMeasureOptions& options) {
    std::vector<CellFields> cells;
    const Status done =
        forEachCellFields(labels, labelPath, withFurtherMeasures, options,
                          [&](CellFields&& cell) { cells.push_back(std::move(cell)); });
    if (!done) {
        return done.error();
    }
    return cells;
}

Status PixmeraVeltroController::forEachCellFields(const LabelImage& labels,
                                                  const std::string& labelPath,
                                                  bool withFurtherMeasures,
                                                  const CellMeasureOptions& options,
                                                  const TakeCell& take) {
    if (const Status fits = labelsFit(labels, labelPath); !fits) {
        return fits;
    }
    const RegionSelection region = currentRegionSelection();
    const MaskView mask = maskView();
    const std::vector<LabelResult> results =
        analyseLabels(image_.channels(), labels, analysis_.rgbCombo, analysis_.levels,
                      shown_.roiColumn ? &region : nullptr, mask, analysisThreads_);
    std::optional<std::vector<FurtherMeasureResults>> measures;
    if (withFurtherMeasures && further_) {
        std::vector<std::uint32_t> numbers;
        for (const LabelResult& cell : results) {
            numbers.push_back(cell.label);
        }
        Result<std::vector<FurtherMeasureResults>> measured =
            cellFurtherMeasures(*further_, image_.channels(), labels, numbers, analysis_.rgbCombo,
                                mask, labelPath, analysisThreads_, options);
        if (!measured) {
            return Status(measured.error());
        }
        measures = std::move(measured).value();
    }
    for (std::size_t i = 0; i < results.size(); ++i) {
        const LabelResult& cell = results[i];
        AnalysisState state = analysis_;
        state.census = cell.census;
        state.sums = cell.sums;
        state.coefficients = imageCoefficients(cell.sums);
        state.roiCensus = cell.roiCensus;
        state.roiSums = cell.roiSums;
        state.roiCoefficients = colocalization_M1M2(cell.roiSums);
        CellFields fields{cell.label, cell.census.totalPixelCount, resultFields(state, shown_)};
        if (measures) {
            fields.fields.furtherMeasures = furtherMeasureLines((*measures)[i]);
        }
        take(std::move(fields));
    }
    return Status();
}

Result<BlockShuffleTest> PixmeraVeltroController::cellSignificanceTest(
    const LabelImage& labels, std::uint32_t label, const std::string& labelPath) {
    if (!further_ || !further_->asked.significance) {
        return Error{labelPath, tr("There is no significance test to repeat for the cell.")};
    }
    if (const Status fits = labelsFit(labels, labelPath); !fits) {
        return fits.error();
    }
    const MaskView mask = maskView();
    const std::vector<CellBox> boxes = cellBoxes(image_.channels(), labels, mask);
    std::optional<BlockShuffleTest> test =
        label < boxes.size()
            ? cellShuffleTest(image_.channels(), labels, label, boxes[label], analysis_.rgbCombo,
                              mask, further_->significance.psfSize)
            : std::nullopt;
    if (!test) {
        return Error{labelPath, tr("There is not enough memory for the cells' further measures.")};
    }
    return std::move(*test);
}

void PixmeraVeltroController::clearMask() {
    const Action action(*this);
    if (mask_) {
        mask_.reset();
        reanalyse();
    }
}

Status PixmeraVeltroController::openReadPicture(const std::string& path, Result<Picture> read) {
    const Action action(*this);
    // The file facts are read from the path before the picture is taken.
    setImageInfoNamePath(image_.imageFileInfo, path);
    setImageFileType(image_.imageFileInfo, supportedImageFileTypes_, path);
    if (!read) {
        const Status failed(read.error());
        takeNewPicture(Picture(), failed);
        return failed;
    }
    const Status loaded = takeNewPicture(std::move(read).value(), Status());
    if (loaded) {
        port_.noteRecentDocument(path);
    }
    return loaded;
}

void PixmeraVeltroController::takePictureFromView(Picture picture,
                                                  std::optional<std::string> draggedPath) {
    const Action action(*this);
    setImageInfoNamePath(image_.imageFileInfo, draggedPath);
    setImageFileType(image_.imageFileInfo, supportedImageFileTypes_, draggedPath);
    takeNewPicture(std::move(picture), Status());
    if (draggedPath) {
        port_.noteRecentDocument(*draggedPath);
    }
}

void PixmeraVeltroController::selectedNewImage() {
    const Action action(*this);
    setImageInfoNamePath(image_.imageFileInfo, std::nullopt);
    setImageFileType(image_.imageFileInfo, supportedImageFileTypes_, std::nullopt);
    takeNewPicture(image_.viewPicture(), Status());
}

Status PixmeraVeltroController::takeNewPicture(Picture read, Status status) {
    // Even a failed read is normalised (as nothing), so the file facts read as for no picture.
    Picture normalised;
    mask_.reset();  // made for another picture
    stack_.clear();
    corrections_.clear();
    loadedPages_ = read.pageCount;
    loadedSixteenBitTop_ = read.sixteenBitTop;
    Result<Picture> at72 = convertNon72dpiImages(read, image_.imageFileInfo);
    read = Picture();  // kept only if normalisation had nothing to change
    if (at72) {
        normalised = std::move(at72).value();
        Result<std::optional<Picture>> meshed = convertPlanarImageToNonPlanar(normalised);
        if (!meshed) {
            status = Status(meshed.error());
            normalised = Picture();
        } else if (meshed.value()) {
            normalised = std::move(*meshed.value());
        }
    } else {
        status = Status(at72.error());
    }
    if (!status) {
        port_.showError(status.error());
    }
    image_.load(std::move(normalised));
    imageShown();
    reanalyse();
    buttons_.backgroundButton = true;
    buttons_.calculateCoefficientButton = true;
    refresh();
    return status;
}

void PixmeraVeltroController::restoreImageToOriginal() {
    const Action action(*this);
    image_.restore();
    corrections_.clear();
    imageShown();
    reanalyse();
}

// ---------------------------------------------------------------------------------------------
// Analysis

void PixmeraVeltroController::reanalyse() {
    further_.reset();
    ++analysisGeneration_;
    prepareForCalculatingCoefficients();
    setROIPixelInfo(false);
}

void PixmeraVeltroController::getChannelsRGBCombo(int popupIndex) {
    const Action action(*this);
    analysis_.rgbCombo = rgbComboForPopupIndex(popupIndex);
    drawColorBars();
    reanalyse();
}

void PixmeraVeltroController::prepareForCalculatingCoefficients() {
    clearCoefficientsTextResults();
    calculateScatterGram();
    drawScatterGram();
    image_.showAnalysedPicture();
    imageShown();
    buttons_.saveButton = false;
    refresh();
}

void PixmeraVeltroController::calculateScatterGram() {
    analysis_.census = {};
    analysis_.sums = {};
    if (!scatterGramBitmap_) {
        scatterGramBitmap_ = makeEmptyScatterGram();
    }
    if (!scatterGramBitmap_) {
        histogram_.counts.clear();
        port_.logMessage(kInitializationError);
        return;
    }
    const MaskView mask = maskView();
    if (!stack_.empty()) {
        countStack(mask);
        return;
    }
    if (!runAnalysisPass(image_.channels(), analysis_, scatterGramBitmap_->bitmapData(), histogram_,
                         analysisThreads_, {}, mask)) {
        port_.logMessage(kInitializationError);
    }
}

Result<Picture> PixmeraVeltroController::stackSlice(std::size_t i) {
    // The first slice is the picture under analysis, corrected already.
    const Picture& first = image_.currentDisplayedImage();
    if (i == 0) {
        return first;
    }
    const ChannelPair pair = channelPairFor(analysis_.rgbCombo);
    Result<Picture> next = readChannelPair(stack_[i].first, stack_[i].second,
                                           {int(pair.y), int(pair.x), true}, readOptions_);
    // Every slice is read against the first one's mask, and pooled pixel by pixel with it.
    if (next &&
        (next->pixelsWide() != first.pixelsWide() || next->pixelsHigh() != first.pixelsHigh())) {
        return Error{stack_[i].first.path,
                     tr("slice %1 is %2 x %3 pixels but slice 1 is %4 x %5: the slices of a "
                        "pooled stack must be the same size",
                        {std::to_string(i + 1), std::to_string(next->pixelsWide()),
                         std::to_string(next->pixelsHigh()), std::to_string(first.pixelsWide()),
                         std::to_string(first.pixelsHigh())})};
    }
    if (!next || corrections_.empty()) {
        return next;
    }
    std::optional<Bitmap> corrected = next->bitmap->copy();
    if (!corrected) {
        return Error{stack_[i].first.path,
                     tr("There is not enough memory to correct the background.")};
    }
    for (const BackgroundSettings& s : corrections_) {
        removeBackground(corrected->writableChannels(), s, analysisThreads_);
    }
    return Picture::at72dpi(std::move(*corrected));
}

void PixmeraVeltroController::countStack(const MaskView& mask) {
    stackStatus_ = Status();
    histogram_ = {};
    for (std::size_t i = 0; i < stack_.size() && stackStatus_; ++i) {
        Result<Picture> read = stackSlice(i);
        if (!read) {
            stackStatus_ = Status(read.error());
            break;
        }
        if (!countPairs(read->bitmap->channels(), analysis_.rgbCombo, analysis_.levels, histogram_,
                        analysisThreads_, {}, mask, i > 0)) {
            stackStatus_ = Status(Error{stack_[i].first.path, tr(kInitializationError)});
            break;
        }
    }
    if (!stackStatus_) {
        histogram_ = {};
        port_.showError(stackStatus_.error());
    }
    summariseHistogram(histogram_, analysis_, scatterGramBitmap_->bitmapData());
}

Status PixmeraVeltroController::openStack(const std::vector<SlicePair>& slices) {
    if (slices.empty()) {
        return Status(Error{{}, tr("the stack has no slice")});
    }
    // A few bytes must not stand for thousands of large slices.
    std::set<std::uint32_t> pages;
    for (const auto& [y, x] : slices) {
        for (const ChannelSource* s : {&y, &x}) {
            if (s->path == slices.front().first.path) {
                pages.insert(s->page);
            }
        }
    }
    if (Status justified = pagesJustified(slices.front().first, pages.size()); !justified) {
        return openReadPicture(slices.front().first.path, Result<Picture>(justified.error()));
    }
    const Status first = openChannelFiles(slices.front().first, slices.front().second);
    if (!first) {
        return first;
    }
    const Action action(*this);
    stack_ = slices;
    reanalyse();
    return stackStatus_;
}

void PixmeraVeltroController::setROIPixelInfo(bool enabled) {
    shown_.roiColumn = enabled;
    if (!enabled) {
        shown_.roiCoefficients = false;
    }
    refresh();
}

void PixmeraVeltroController::calculateCoefficientsNow() {
    const Action action(*this);
    if (image_.imageFileInfo.backgroundCorrected) {
        calculateCoefficients();
        return;
    }
    // The button order follows the tags: 1 calculates, 0 opens help, -1 corrects first.
    port_.askBackgroundCorrectionWarning(
        WarningQuestion{.title = tr("Warning"),
                        .message = backgroundWarningText(),
                        .defaultButton = tr("Calculate Anyway"),
                        .alternateButton = tr("Help"),
                        .otherButton = tr("Correct Background...")});
}

void PixmeraVeltroController::colocalizationWarningSheetDidEnd(BackgroundWarningAnswer answer) {
    const Action action(*this);
    switch (answer) {
        case BackgroundWarningAnswer::CalculateAnyway:
            calculateCoefficients();
            break;
        case BackgroundWarningAnswer::CorrectFirst:
            port_.performBackgroundCorrection();
            break;
        case BackgroundWarningAnswer::Help:
            port_.showHelpPage(kCalculateHelpPage);
            break;
    }
}

void PixmeraVeltroController::calculateCoefficients() {
    const Action action(*this);
    analysis_.coefficients = imageCoefficients(analysis_.sums);
    shown_.coefficients = checkboxes_;
    analysis_.coefficientsCalculated = true;
    buttons_.saveButton = true;
    refresh();
}

void PixmeraVeltroController::clearCoefficientsTextResults() {
    shown_.coefficients.reset();
    refresh();
}

void PixmeraVeltroController::selectAllCoefficients() {
    const Action action(*this);
    checkboxes_ = CoefficientCheckboxes{true, true, true, true};
    clearCoefficientsTextResults();
}

void PixmeraVeltroController::clearAllCoefficients() {
    const Action action(*this);
    clearCoefficientsTextResults();
    analysis_.coefficientsCalculated = false;
}

void PixmeraVeltroController::setCheckboxes(const CoefficientCheckboxes& boxes) {
    const Action action(*this);
    checkboxes_ = boxes;
    refresh();
}

// ---------------------------------------------------------------------------------------------
// Scatter gram

void PixmeraVeltroController::drawEmptyScatterGram() {
    scatterGramBitmap_ = makeEmptyScatterGram();
    drawScatterGram();
    image_.showAnalysedPicture();
    imageShown();
}

void PixmeraVeltroController::drawScatterGram() {
    scatterGramPending_ = true;
}

void PixmeraVeltroController::drawColorBars() {
    port_.showColorBars(colorBarNames(analysis_.rgbCombo));
}

// ---------------------------------------------------------------------------------------------
// Scatter-gram region, M1/M2, reveal

void PixmeraVeltroController::getSelectionTool(int popupIndex) {
    selectionTool_ = selectionToolForPopupIndex(popupIndex);
    scatterGramGraph_.selectionMarkerStyle(selectionTool_);
}

void PixmeraVeltroController::changeROIColorPrefs() {
    scatterGramGraph_.setROIColors(userPreferences_.roiBorderColor, userPreferences_.roiFillColor,
                                   userPreferences_.opacityValue);
    getSelectionTool(popupIndexForSelectionTool(selectionTool_));
}

void PixmeraVeltroController::scatterGramROISelected() {
    const Action action(*this);
    const Rect region = scatterGramGraph_.selectedRectSize();
    port_.setFocusForPasting(false);
    calculateROIPixelCount();
    const bool hasRegion = !region.isEmpty();
    buttons_.calculateROIButton = hasRegion;
    buttons_.reflectROIButton = hasRegion;
    if (!hasRegion) {
        clearROICalculations();
    }
    refresh();
}

RegionSelection PixmeraVeltroController::currentRegionSelection() {
    if (scatterGramGraph_.selectedRectSize().isEmpty()) {
        return RegionSelection::singleColor();
    }
    const Path& outline = scatterGramGraph_.currentlySelectedPath();
    return RegionSelection::fromPairTest([&outline](Point p) { return outline.containsPoint(p); });
}

void PixmeraVeltroController::calculateROIPixelCount() {
    analysis_.roiCensus = {};
    analysis_.roiSums = {};
    // The counts come from the last pass's histogram, so no pixel is read here.
    if (!scatterGramBitmap_) {
        port_.logMessage(kInitializationError);
        return;
    }
    const RegionCount count = countRegion(histogram_, currentRegionSelection());
    analysis_.roiCensus = count.census;
    analysis_.roiSums = count.sums;
    setROIPixelInfo(true);
}

void PixmeraVeltroController::calculateROINow() {
    const Action action(*this);
    if (image_.imageFileInfo.backgroundCorrected) {
        calculateROI();
        return;
    }
    port_.askScatterGramWarning(WarningQuestion{.title = tr("Warning"),
                                                .message = backgroundWarningText(),
                                                .defaultButton = tr("Calculate"),
                                                .alternateButton = tr("Background..."),
                                                .otherButton = {}});
}

void PixmeraVeltroController::colocalizationScatterGramWarningSheetDidEnd(
    ScatterGramWarningAnswer answer) {
    const Action action(*this);
    if (answer == ScatterGramWarningAnswer::Background) {
        port_.performBackgroundCorrection();
    } else {
        calculateROI();
    }
}

void PixmeraVeltroController::calculateROI() {
    const Action action(*this);
    analysis_.roiCoefficients = colocalization_M1M2(analysis_.roiSums);
    shown_.roiCoefficients = true;
    analysis_.roiCoefficientsCalculated = true;
    buttons_.saveButton = true;
    refresh();
}

void PixmeraVeltroController::clearROICalculations() {
    setROIPixelInfo(false);
    analysis_.roiCoefficientsCalculated = false;
    image_.clearReveal();
    imageShown();
    refresh();
}

void PixmeraVeltroController::reflectWhitePixels() {
    const Action action(*this);
    if (!scatterGramBitmap_) {
        port_.logMessage(kInitializationError);
        return;
    }
    // With the view's hold on the last revealed picture gone, the reveal can paint over its
    // memory instead of allocating another picture. The view gets its picture back at the end
    // of the action, whatever happens.
    port_.releaseImage();
    imageShown();
    if (!image_.reveal(currentRegionSelection(), analysis_, analysisThreads_, maskView())) {
        port_.showError(Error{.reason = tr("There is not enough memory to reveal the pixels.")});
        return;
    }
    refresh();
}

// ---------------------------------------------------------------------------------------------
// Further measures

Result<BlockShuffleTest> PixmeraVeltroController::significanceTest(const MeasureRequest& request) {
    const Picture& first = image_.currentDisplayedImage();
    if (first.isEmpty()) {
        return Error{{}, tr("There is no picture to test.")};
    }
    const ChannelPair pair = channelPairFor(analysis_.rgbCombo);
    const int side =
        request.psfSize ? *request.psfSize : estimatePsfSize(first.bitmap->channels(), pair.y);
    BlockShuffleTest test(side);
    const MaskView mask = maskView();
    const std::size_t slices = std::max<std::size_t>(stack_.size(), 1);
    const auto blocksAt = [&](int s) {
        return BlockShuffleTest(s).blocksIn(first.pixelsWide(), first.pixelsHigh()) * slices;
    };
    if (const std::uint64_t blocks = blocksAt(test.blockSize());
        blocks > BlockShuffleTest::kMostBlocks) {
        int fits = test.blockSize();
        while (blocksAt(fits) > BlockShuffleTest::kMostBlocks && fits < 128) {
            ++fits;
        }
        const std::string remedy =
            blocksAt(fits) > BlockShuffleTest::kMostBlocks
                ? tr("the picture is too large for the test")
                : tr("give a PSF size of at least %1 pixels", {std::to_string(fits)});
        return Error{image_.imageFileInfo.filePath.value_or(""),
                     tr("the significance test would shuffle %1 blocks of %2 x %2 pixels, more "
                        "than its limit of %3: %4",
                        {std::to_string(blocks), std::to_string(test.blockSize()),
                         std::to_string(BlockShuffleTest::kMostBlocks), remedy})};
    }
    for (std::size_t i = 0; i < slices; ++i) {
        Result<Picture> read = stack_.empty() ? Result<Picture>(first) : stackSlice(i);
        if (!read) {
            return read.error();
        }
        if (!test.addPlane(read->bitmap->channels(), analysis_.rgbCombo, mask)) {
            return significanceMemoryError();
        }
    }
    return test;
}

Error PixmeraVeltroController::significanceMemoryError() const {
    return Error{image_.imageFileInfo.filePath.value_or(""),
                 tr("There is not enough memory for the significance test.")};
}

bool PixmeraVeltroController::takeFurtherMeasures(
    const MeasureRequest& request, const std::optional<SignificanceResult>& significance,
    std::optional<std::uint64_t> madeIn) {
    if (madeIn && *madeIn != analysisGeneration_) {
        return false;
    }
    const Action action(*this);
    further_ = histogramMeasures(request, jointCountsOf(histogram_));
    if (significance) {
        further_->significance = *significance;
    }
    further_->asked.significance = significance.has_value();
    refresh();
    return true;
}

Status PixmeraVeltroController::calculateFurtherMeasures(const MeasureRequest& request) {
    std::optional<SignificanceResult> significance;
    if (request.significance) {
        Result<BlockShuffleTest> test = significanceTest(request);
        if (!test) {
            return Status(test.error());
        }
        significance = test->run(request.shuffles, request.seed, analysisThreads_);
        if (!significance) {
            return Status(significanceMemoryError());
        }
    }
    takeFurtherMeasures(request, significance);
    return Status();
}

bool PixmeraVeltroController::applyCostesThresholds() {
    const Action action(*this);
    const CostesResult costes = costesThresholds(jointCountsOf(histogram_));
    if (!costes.thresholds || image_.currentDisplayedImage().isEmpty()) {
        return false;
    }
    const ChannelPair pair = channelPairFor(analysis_.rgbCombo);
    applyBackgroundLevel(pair.y, costes.thresholds->y);
    applyBackgroundLevel(pair.x, costes.thresholds->x);
    return true;
}

// ---------------------------------------------------------------------------------------------
// Background correction

void PixmeraVeltroController::removeBackgroundNow(BackgroundControls& controls) {
    const Action action(*this);
    getBackgroundMethod(controls, backgroundSettings_);
    if (!image_.applyBackgroundCorrection(backgroundSettings_, analysisThreads_)) {
        port_.showError(
            Error{.reason = tr("There is not enough memory to correct the background.")});
        return;
    }
    corrections_.push_back(backgroundSettings_);
    imageShown();
    reanalyse();
}

void PixmeraVeltroController::applyBackgroundLevel(int channelItem, int level) {
    const Action action(*this);
    BackgroundControls controls;
    controls.selectedTab = 1;
    controls.typedValue = level;
    getThresholdEntryValue(controls, backgroundSettings_);
    controls.channelItem = channelItem;
    getRGBChannel(controls, backgroundSettings_);
    removeBackgroundNow(controls);
}

BackgroundSettings PixmeraVeltroController::backgroundSettingsToApply(
    BackgroundControls controls) const {
    BackgroundSettings settings = backgroundSettings_;
    getBackgroundMethod(controls, settings);
    return settings;
}

void PixmeraVeltroController::resetImageToOriginal() {
    restoreImageToOriginal();
}

// ---------------------------------------------------------------------------------------------
// User preferences

void PixmeraVeltroController::registerDefaults(const std::string& homeDirectory) {
    registeredDefaults_ = defaultUserPreferences(homeDirectory);
    userPreferences_ = registeredDefaults_;
}

void PixmeraVeltroController::restoreUserPreferences(const PreferenceStore& store) {
    userPreferences_ = registeredDefaults_;
    if (const Status readable = store.readStatus(); !readable) {
        port_.logMessage(
            tr("%1; every preference takes its default.", {readable.error().message()}));
    } else {
        for (const std::string_view key : preferenceKeys()) {
            const std::optional<std::string> text = store.value(std::string(key));
            if (text && !readPreference(userPreferences_, key, *text)) {
                // A long piece of garbage is cut short: the line only has to point at it.
                const Error unreadable{
                    store.location(),
                    tr("\"%1\" holds \"%2\", which is not one of its values; it takes its "
                       "default, \"%3\".",
                       {key, std::string_view(*text).substr(0, 60),
                        preferenceText(registeredDefaults_, key)})};
                port_.logMessage(unreadable.message());
            }
        }
    }
    scatterGramGraph_.setROIColors(userPreferences_.roiBorderColor, userPreferences_.roiFillColor,
                                   userPreferences_.opacityValue);
}

Status PixmeraVeltroController::saveUserPreferences(PreferenceStore& store) {
    for (const std::string_view key : preferenceKeys()) {
        store.setValue(std::string(key), preferenceText(userPreferences_, key));
    }
    Status written = store.sync();
    if (!written) {
        port_.logMessage(written.error().message());
    }
    return written;
}

void PixmeraVeltroController::setFillROI(bool on) {
    userPreferences_.enableFillROI = on;
    port_.scatterGramNeedsDisplay();
}

void PixmeraVeltroController::setROIBorderColor(const Color& colour) {
    userPreferences_.roiBorderColor = colour;
    changeROIColorPrefs();
}

void PixmeraVeltroController::setROIFillColor(const Color& colour) {
    userPreferences_.roiFillColor = colour;
    changeROIColorPrefs();
}

void PixmeraVeltroController::setROIOpacity(float opacity) {
    userPreferences_.opacityValue = opacity;
    changeROIColorPrefs();
}

// ---------------------------------------------------------------------------------------------
// Output

std::vector<Error> PixmeraVeltroController::outputPixelCoefficientData(const std::string& stem,
                                                                       ReportFormat format,
                                                                       bool saveImages,
                                                                       bool allOrNothing) {
    ExportRequest request;
    request.stem = stem;
    request.format = format;
    request.saveImages = saveImages;
    request.allOrNothing = allOrNothing;
    request.currentDisplayedImage = image_.currentDisplayedImage().bitmap.get();
    request.scatterGram = scatterGramBitmap_ ? &*scatterGramBitmap_ : nullptr;
    if (image_.reflectedImageValid()) {
        request.revealedImage = image_.revealedImage().bitmap.get();
    }
    return pv::outputPixelCoefficientData(fields_, request);
}

}  // namespace pv
