#include "controller/PixmeraVeltroController.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include "analysis/Coefficients.h"
#include "analysis/ScatterGram.h"
#include "core/Localization.h"
#include "image/FileFacts.h"
#include "image/ImageFile.h"
#include "image/Normalization.h"

namespace pv {

namespace {

std::string format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* fmt, ...) {
    char buffer[64];
    va_list args;
    va_start(args, fmt);
    const int n = std::vsnprintf(buffer, sizeof buffer, fmt, args);
    va_end(args);
    return n < 0 ? std::string()
                 : std::string(buffer,
                               std::size_t(n) < sizeof buffer ? std::size_t(n) : sizeof buffer - 1);
}

std::string coefficientText(double value, bool ticked) {
    return ticked ? format("%0.4f", value) : std::string("ND");
}

// Labels of one channel pair: axis names, the three class labels, and the channels of the
// Y class, X class and mixed class.
struct PairLabels {
    const char* yAxis;
    const char* xAxis;
    const char* yClass;
    const char* xClass;
    const char* xyClass;
};

constexpr PairLabels kPairLabels[6] = {
    {"Red", "Green", "Red:", "Green:", "Yellow:"}, {"Red", "Blue", "Red:", "Blue:", "Magenta:"},
    {"Green", "Red", "Green:", "Red:", "Yellow:"}, {"Green", "Blue", "Green:", "Blue:", "Cyan:"},
    {"Blue", "Red", "Blue:", "Red:", "Magenta:"},  {"Blue", "Green", "Blue:", "Green:", "Cyan:"},
};

// The Y class, X class and mixed class of a pair, from a census of six classes given in the
// order red, green, blue, yellow, magenta, cyan.
std::array<std::int32_t, 3> pairClassCounts(int rgbCombo, const std::array<std::int32_t, 6>& c) {
    const ChannelPair pair = channelPairFor(rgbCombo);
    // The mixed class of a pair is named by the channel it lacks: blue → yellow, green → magenta.
    return {c[std::size_t(pair.y)], c[std::size_t(pair.x)], c[std::size_t(5 - pair.third)]};
}

}  // namespace

void PixmeraController::loadSupportedFileTypes() {
    supportedImageFileTypes_ =
        pv::loadSupportedFileTypes(declaredDocumentTypes(), supportedImageFileTypes_);
}

PixmeraVeltroController::PixmeraVeltroController(ControllerPort& port) : port_(port) {
    scatterGramGraph_.onScatterGramROISelected = [this] { scatterGramROISelected(); };
    scatterGramGraph_.onNeedsDisplay = [this] { port_.scatterGramNeedsDisplay(); };
}

void PixmeraVeltroController::awakeFromNib() {
    selectionTool_ = 0;
    scatterGramGraph_.selectionMarkerStyle(0);
    drawEmptyScatterGram();
    drawColorBars();
    buttons_.calculateROIButton = false;
    buttons_.reflectROIButton = false;
    prepareForCalculatingCoefficients();
    setROIPixelInfo(false);
    buttons_.saveButton = false;
    buttons_.backgroundButton = false;
    buttons_.calculateCoefficientButton = false;
    refresh();
}

void PixmeraVeltroController::applicationDidFinishLaunching() {
    loadSupportedFileTypes();
}

// ---------------------------------------------------------------------------------------------
// Working image

Status PixmeraVeltroController::openImageFile(const std::string& path) {
    setImageInfoNamePath(image_.imageFileInfo, path);
    setImageFileType(image_.imageFileInfo, supportedImageFileTypes_, path);
    Status loaded = loadImageFromThisPath(path);
    createCopyOfOriginal();
    imageChanged(false);
    if (loaded.ok()) {
        port_.noteRecentDocument(path);
    }
    return loaded;
}

void PixmeraVeltroController::takePictureFromView(Picture picture,
                                                  std::optional<std::string> draggedPath) {
    image_.viewPicture = std::move(picture);
    imageChanged(true, draggedPath);
}

void PixmeraVeltroController::selectedNewImage() {
    setImageInfoNamePath(image_.imageFileInfo, std::nullopt);
    setImageFileType(image_.imageFileInfo, supportedImageFileTypes_, std::nullopt);
    loadImageFromThisPath(std::nullopt);
    createCopyOfOriginal();
    imageChanged(false);
}

void PixmeraVeltroController::imageChanged(bool fromView,
                                           const std::optional<std::string>& draggedPath) {
    if (fromView) {
        setImageInfoNamePath(image_.imageFileInfo, draggedPath);
        setImageFileType(image_.imageFileInfo, supportedImageFileTypes_, draggedPath);
        loadImageFromThisPath(std::nullopt);
        createCopyOfOriginal();
        if (draggedPath) {
            port_.noteRecentDocument(*draggedPath);
        }
    }

    // Rebuild the working bitmap from the view's picture.
    image_.currentDisplayedImage = image_.viewPicture;
    ImageFileInfo& info = image_.imageFileInfo;
    info.width = image_.currentDisplayedImage.size.width;
    info.height = image_.currentDisplayedImage.size.height;
    image_.currentImageRect = makeRect(0.0f, 0.0f, info.width, info.height);

    image_.currentDisplayedBitmap = Bitmap();
    if (!image_.currentDisplayedImage.isEmpty()) {
        if (auto copy = image_.currentDisplayedImage.bitmap->copy()) {
            image_.currentDisplayedBitmap = std::move(*copy);
        } else {
            port_.showError(Error{tr("There is not enough memory to analyse this picture.")});
            image_.currentImageRect = Rect();
        }
    }
    const Bitmap& b = image_.currentDisplayedBitmap;
    BitmapInfo& geometry = image_.bitmapInfo;
    geometry.bytesPerRow = b.bytesPerRow();
    geometry.samplesPerPixel = b.samplesPerPixel();
    geometry.bitsPerPixel = b.bitsPerPixel();
    geometry.bytesPerPlane = std::int32_t(b.bytesPerPlane());
    geometry.numberOfPlanes = b.numberOfPlanes();
    geometry.isPlanar = b.isPlanar() ? 1 : 0;
    geometry.height = info.height;
    geometry.width = info.width;
    image_.currentDisplayedBitmapArray = image_.currentDisplayedBitmap.planes();
    info.bitDepth = geometry.bitsPerPixel * geometry.numberOfPlanes;

    prepareForCalculatingCoefficients();
    setROIPixelInfo(false);
    buttons_.backgroundButton = true;
    buttons_.calculateCoefficientButton = true;
    refresh();
}

Status PixmeraVeltroController::loadImageFromThisPath(const std::optional<std::string>& path) {
    image_.modifiedImageDisplayed = false;
    Status status;
    Picture read;
    if (path) {
        Result<Picture> decoded = readImageFile(*path);
        if (decoded) {
            read = std::move(decoded).value();
        } else {
            status = Status(decoded.error());
        }
    } else {
        read = image_.viewPicture;
    }

    Picture shown;
    Result<Picture> at72 = convertNon72dpiImages(read, image_.imageFileInfo);
    if (at72) {
        shown = std::move(at72).value();
        Result<std::optional<Picture>> meshed = convertPlanarImageToNonPlanar(shown);
        if (!meshed) {
            status = Status(meshed.error());
            shown = Picture();
        } else if (meshed.value()) {
            shown = std::move(*meshed.value());
        }
    } else {
        status = Status(at72.error());
    }

    image_.viewPicture = std::move(shown);
    port_.showImage(image_.viewPicture);
    if (!status.ok()) {
        port_.showError(status.error());
    }
    return status;
}

void PixmeraVeltroController::createCopyOfOriginal() {
    image_.originalImage = image_.viewPicture;
    image_.imageFileInfo.backgroundCorrected = 0;
    image_.initialImageHasBeenSelected = true;
}

void PixmeraVeltroController::updateDisplayedImage() {
    if (!image_.restoreOriginalRequested) {
        image_.imageFileInfo.backgroundCorrected = 1;
        std::optional<Bitmap> copy = image_.currentDisplayedBitmap.copy();
        image_.modifiedDisplayedImage =
            copy ? Picture::at72dpi(std::move(*copy)) : image_.currentDisplayedImage;
        image_.modifiedImageDisplayed = true;
        image_.viewPicture = image_.modifiedDisplayedImage;
        port_.showImage(image_.viewPicture);
        // Pictures are immutable, so sharing is the copy.
        image_.currentDisplayedImage = image_.modifiedDisplayedImage;
    } else {
        image_.imageFileInfo.backgroundCorrected = 0;
        image_.modifiedImageDisplayed = false;
        image_.viewPicture = image_.originalImage;
        port_.showImage(image_.viewPicture);
        image_.restoreOriginalRequested = false;
        if (!image_.originalImage.isEmpty()) {
            if (auto copy = image_.originalImage.bitmap->copy()) {
                image_.currentDisplayedBitmap = std::move(*copy);
            }
        }
        image_.currentDisplayedBitmapArray = image_.currentDisplayedBitmap.planes();
        image_.currentDisplayedImage = image_.originalImage;
    }
    prepareForCalculatingCoefficients();
    setROIPixelInfo(false);
}

void PixmeraVeltroController::restoreImageToOriginal() {
    image_.restoreOriginalRequested = true;
    updateDisplayedImage();
}

// ---------------------------------------------------------------------------------------------
// Analysis

void PixmeraVeltroController::getChannelsRGBCombo(int popupIndex) {
    analysis_.rgbCombo = rgbComboForPopupIndex(popupIndex);
    drawColorBars();
    prepareForCalculatingCoefficients();
    setROIPixelInfo(false);
}

void PixmeraVeltroController::prepareForCalculatingCoefficients() {
    clearCoefficientsTextResults();
    calculateScatterGram();
    displayPixelInformation(analysis_.rgbCombo);
    drawScatterGram();
    displayROIPreview();
    buttons_.saveButton = false;
    refresh();
}

void PixmeraVeltroController::calculateScatterGram() {
    resetPassResults(analysis_);

    scatterGramBitmap_ = makeEmptyScatterGram();
    if (!scatterGramBitmap_) {
        scatterGramData_ = nullptr;
        histogram_.counts.clear();
        port_.logMessage(kInitializationError);
        return;
    }
    scatterGramData_ = scatterGramBitmap_->bitmapData();
    if (!runAnalysisPass(image_.bitmapInfo, image_.currentDisplayedBitmapArray,
                         image_.currentImageRect, analysis_, scatterGramData_, histogram_,
                         analysisThreads_)) {
        port_.logMessage(kInitializationError);
    }
}

void PixmeraVeltroController::writeCountTexts(const std::array<std::string*, 4>& counts,
                                              const std::array<std::string*, 4>& percents,
                                              const std::array<std::int32_t, 3>& classes,
                                              std::int32_t total) {
    const std::int32_t shown[4] = {classes[0], classes[1], classes[2],
                                   classes[0] + classes[1] + classes[2]};
    for (std::size_t i = 0; i < 4; ++i) {
        *counts[i] = format("%d", shown[i]);
        *percents[i] = percentText(shown[i], total);
    }
}

std::string PixmeraVeltroController::percentText(std::int32_t count, std::int32_t total) const {
    // The quotient is single precision, widened before scaling: the texts depend on it.
    const float quotient = float(count) / float(total);
    return format("%.2f", double(quotient) * 100.0);
}

void PixmeraVeltroController::displayPixelInformation(int rgbCombo) {
    const int p = normalizedRGBCombo(rgbCombo);
    const PairLabels& labels = kPairLabels[p];
    const ChannelPair pair = channelPairFor(p);
    fields_.yAxisColorText = tr(labels.yAxis);
    fields_.xAxisColorText = tr(labels.xAxis);
    fields_.yAxisPixelColorText = tr(labels.yClass);
    fields_.xAxisPixelColorText = tr(labels.xClass);
    fields_.xyAxisPixelColorText = tr(labels.xyClass);
    axisLabelColors_.yAxisColorText = pair.y;
    axisLabelColors_.xAxisColorText = pair.x;

    const AnalysisState& a = analysis_;
    writeCountTexts({&fields_.yAxisPixelCountText, &fields_.xAxisPixelCountText,
                     &fields_.xyAxisPixelCountText, &fields_.pixelCountTotal},
                    {&fields_.yAxisPixelPercentText, &fields_.xAxisPixelPercentText,
                     &fields_.xyAxisPixelPercentText, &fields_.pixelPercentTotal},
                    pairClassCounts(p, {a.redPixelCount, a.greenPixelCount, a.bluePixelCount,
                                        a.yellowPixelCount, a.magentaPixelCount, a.cyanPixelCount}),
                    a.totalPixelCount);
    refresh();
}

void PixmeraVeltroController::setROIPixelInfo(bool enabled) {
    fields_.roiColumnEnabled = enabled;
    if (!enabled) {
        for (std::string* f : {&fields_.xAxisROIPixelCountText, &fields_.xAxisROIPixelPercentText,
                               &fields_.yAxisROIPixelCountText, &fields_.yAxisROIPixelPercentText,
                               &fields_.xyAxisROIPixelCountText, &fields_.xyAxisROIPixelPercentText,
                               &fields_.pixelCountROITotal, &fields_.pixelROIPercentTotal}) {
            *f = "--";
        }
        fields_.coefficient_M1.clear();
        fields_.coefficient_M2.clear();
    }
    refresh();
}

void PixmeraVeltroController::calculateCoefficientsNow() {
    if (image_.imageFileInfo.backgroundCorrected) {
        calculateCoefficients();
        return;
    }
    port_.askBackgroundCorrectionWarning();
}

void PixmeraVeltroController::colocalizationWarningSheetDidEnd(int tag) {
    switch (tag) {
        case 1:
            calculateCoefficients();
            break;
        case -1:
            port_.performBackgroundCorrection();
            break;
        case 0:
            port_.showHelpPage(kCalculateHelpPage);
            break;
        default:
            break;
    }
}

void PixmeraVeltroController::calculateCoefficients() {
    calculatePearsons_Rr();
    calculateOverlap_R();
    calculateOverlap_k1k2();
    calculateOverlap_m1m2();
    analysis_.coefficientsCalculated = true;
    buttons_.saveButton = true;
    refresh();
}

void PixmeraVeltroController::calculatePearsons_Rr() {
    computePearsons_Rr(analysis_);
    fields_.coefficient_Rr = coefficientText(analysis_.pearsons_Rr, checkboxes_.checkbox_Rr);
}

void PixmeraVeltroController::calculateOverlap_R() {
    computeOverlap_R(analysis_);
    fields_.coefficient_R = coefficientText(analysis_.overlap_R, checkboxes_.checkbox_R);
}

void PixmeraVeltroController::calculateOverlap_k1k2() {
    computeOverlap_k1k2(analysis_);
    fields_.coefficient_k1 = coefficientText(analysis_.overlap_k1, checkboxes_.checkbox_k1);
    fields_.coefficient_k2 = coefficientText(analysis_.overlap_k2, checkboxes_.checkbox_k1);
}

void PixmeraVeltroController::calculateOverlap_m1m2() {
    computeOverlap_m1m2(analysis_);
    fields_.coefficient_m1 = coefficientText(analysis_.overlap_m1, checkboxes_.checkbox_m1);
    fields_.coefficient_m2 = coefficientText(analysis_.overlap_m2, checkboxes_.checkbox_m1);
}

void PixmeraVeltroController::clearCoefficientsTextResults() {
    for (std::string* f :
         {&fields_.coefficient_Rr, &fields_.coefficient_R, &fields_.coefficient_k1,
          &fields_.coefficient_k2, &fields_.coefficient_m1, &fields_.coefficient_m2}) {
        f->clear();
    }
    refresh();
}

void PixmeraVeltroController::selectAllCoefficients() {
    checkboxes_ = CoefficientCheckboxes{true, true, true, true};
    clearCoefficientsTextResults();
}

void PixmeraVeltroController::clearAllCoefficients() {
    clearCoefficientsTextResults();
    analysis_.coefficientsCalculated = false;
    refresh();
}

void PixmeraVeltroController::setCheckboxes(const CoefficientCheckboxes& boxes) {
    checkboxes_ = boxes;
    refresh();
}

// ---------------------------------------------------------------------------------------------
// Scatter gram

void PixmeraVeltroController::drawEmptyScatterGram() {
    scatterGramBitmap_ = makeEmptyScatterGram();
    if (!scatterGramBitmap_) {
        scatterGramData_ = nullptr;
        return;
    }
    scatterGramData_ = scatterGramBitmap_->bitmapData();
    drawScatterGram();
    displayROIPreview();
}

void PixmeraVeltroController::drawScatterGram() {
    if (!scatterGramBitmap_) {
        return;
    }
    // The view keeps a snapshot; later plotting shows only after the next call.
    if (std::optional<Bitmap> snapshot = scatterGramBitmap_->copy()) {
        port_.showScatterGram(Picture::at72dpi(std::move(*snapshot)));
    }
}

void PixmeraVeltroController::drawColorBars() {
    port_.showColorBars(colorBarNames(analysis_.rgbCombo));
}

void PixmeraVeltroController::displayROIPreview() {
    image_.viewPicture = image_.currentDisplayedImage;
    port_.showImage(image_.viewPicture);
}

// ---------------------------------------------------------------------------------------------
// Scatter-gram region, M1/M2, reveal

void PixmeraVeltroController::getSelectionTool(int popupIndex) {
    selectionTool_ = popupIndex >= 0 && popupIndex <= 3 ? popupIndex : 0;
    scatterGramGraph_.selectionMarkerStyle(selectionTool_);
}

void PixmeraVeltroController::changeROIColorPrefs() {
    scatterGramGraph_.setROIColors(userPreferences_.roiBorderColor, userPreferences_.roiFillColor,
                                   userPreferences_.opacityValue);
    getSelectionTool(selectionTool_);
}

void PixmeraVeltroController::scatterGramROISelected() {
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
        return RegionSelection::singleColor(mouseUpHere_);
    }
    const Path& outline = scatterGramGraph_.currentlySelectedPath();
    return RegionSelection::fromPairTest([&outline](Point p) { return outline.containsPoint(p); });
}

void PixmeraVeltroController::calculateROIPixelCount() {
    resetRegionResults(analysis_);
    // The counts come from the last pass's histogram of the working bitmap, so no copy of the
    // bitmap is made and no pixel is read here.
    if (!scatterGramBitmap_) {
        port_.logMessage(kInitializationError);
        return;
    }
    if (!histogram_.counts.empty()) {
        countRegion(histogram_, currentRegionSelection(), analysis_);
    }
    displayROIPixelCount();
}

void PixmeraVeltroController::displayROIPixelCount() {
    const AnalysisState& a = analysis_;
    writeCountTexts({&fields_.yAxisROIPixelCountText, &fields_.xAxisROIPixelCountText,
                     &fields_.xyAxisROIPixelCountText, &fields_.pixelCountROITotal},
                    {&fields_.yAxisROIPixelPercentText, &fields_.xAxisROIPixelPercentText,
                     &fields_.xyAxisROIPixelPercentText, &fields_.pixelROIPercentTotal},
                    pairClassCounts(a.rgbCombo, {a.roiRedPixelCount, a.roiGreenPixelCount,
                                                 a.roiBluePixelCount, a.roiYellowPixelCount,
                                                 a.roiMagentaPixelCount, a.roiCyanPixelCount}),
                    a.roiTotalPixelCount);
    setROIPixelInfo(true);
}

void PixmeraVeltroController::calculateROINow() {
    if (image_.imageFileInfo.backgroundCorrected) {
        calculateROI();
        return;
    }
    port_.askScatterGramWarning(WarningQuestion{
        tr("Warning"),
        tr("Before running the colocalization calculations the background should first be "
           "corrected."),
        tr("Calculate"), tr("Background...")});
}

void PixmeraVeltroController::colocalizationScatterGramWarningSheetDidEnd(int returnCode) {
    if (returnCode == 0) {
        port_.performBackgroundCorrection();
    } else {
        calculateROI();
    }
}

void PixmeraVeltroController::calculateROI() {
    calculateColocalization_M1M2();
    analysis_.roiCoefficientsCalculated = true;
    buttons_.saveButton = true;
    refresh();
}

void PixmeraVeltroController::calculateColocalization_M1M2() {
    computeColocalization_M1M2(analysis_);
    fields_.coefficient_M1 = format("%0.4f", analysis_.colocalization_M1);
    fields_.coefficient_M2 = format("%0.4f", analysis_.colocalization_M2);
}

void PixmeraVeltroController::clearROICalculations() {
    setROIPixelInfo(false);
    fields_.coefficient_M1.clear();
    fields_.coefficient_M2.clear();
    analysis_.roiCoefficientsCalculated = false;
    analysis_.reflectedImageValid = false;
    image_.revealCleared = true;
    displayWhitePixelImage();
    refresh();
}

void PixmeraVeltroController::reflectWhitePixels() {
    if (!scatterGramBitmap_) {
        port_.logMessage(kInitializationError);
        return;
    }
    // The copy is painted as it is made; it becomes the revealed picture itself, since the
    // bitmap would be let go right after anyway.
    std::optional<Bitmap> painted =
        revealedCopy(image_.currentDisplayedBitmap, image_.bitmapInfo, image_.currentImageRect,
                     currentRegionSelection(), analysis_, analysisThreads_);
    if (!painted) {
        port_.showError(Error{tr("There is not enough memory to reveal the pixels.")});
        return;
    }
    image_.revealedImage = painted->isEmpty() ? Picture() : Picture::at72dpi(std::move(*painted));
    image_.modifiedDisplayedBitmap = Bitmap();
    image_.modifiedDisplayedBitmapArray = PlaneArray{};
    image_.revealCleared = false;
    displayWhitePixelImage();
    analysis_.reflectedImageValid = true;
    refresh();
}

void PixmeraVeltroController::colorThePixelWhite(Point p) {
    paintPixel(image_.bitmapInfo, image_.modifiedDisplayedBitmapArray, p,
               analysis_.redRevealPixelValue, analysis_.greenRevealPixelValue,
               analysis_.blueRevealPixelValue);
}

void PixmeraVeltroController::displayWhitePixelImage() {
    if (image_.revealCleared) {
        if (image_.restoreOriginalRequested) {
            image_.modifiedImageDisplayed = false;
            image_.viewPicture = image_.originalImage;
            port_.showImage(image_.viewPicture);
            return;
        }
        // The working bitmap's pixels are those of the picture under analysis.
        image_.modifiedDisplayedImage = image_.currentDisplayedImage;
    } else {
        image_.modifiedDisplayedImage = image_.revealedImage;
    }
    image_.modifiedImageDisplayed = true;
    image_.viewPicture = image_.modifiedDisplayedImage;
    port_.showImage(image_.viewPicture);
}

// ---------------------------------------------------------------------------------------------
// Background correction

void PixmeraVeltroController::removeBackgroundNow(BackgroundControls& controls) {
    const int width = int(image_.currentDisplayedImage.size.width);
    const int height = int(image_.currentDisplayedImage.size.height);
    getBackgroundMethod(controls, backgroundSettings_);
    removeBackground(image_.bitmapInfo, image_.currentDisplayedBitmapArray, width, height,
                     backgroundSettings_);
    image_.restoreOriginalRequested = false;
    updateDisplayedImage();
}

void PixmeraVeltroController::resetImageToOriginal() {
    restoreImageToOriginal();
}

// ---------------------------------------------------------------------------------------------
// Output

std::vector<Error> PixmeraVeltroController::outputPixelCoefficientData(const std::string& stem,
                                                                       ReportFormat format_,
                                                                       bool saveImages) {
    ExportRequest request;
    request.stem = stem;
    request.format = format_;
    request.saveImages = saveImages;
    request.currentDisplayedImage = image_.currentDisplayedImage.bitmap.get();
    request.scatterGram = scatterGramBitmap_ ? &*scatterGramBitmap_ : nullptr;
    if (analysis_.reflectedImageValid) {
        request.revealedImage = image_.revealedImage.bitmap.get();
    }
    return pv::outputPixelCoefficientData(fields_, request);
}

}  // namespace pv
