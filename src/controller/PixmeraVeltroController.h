#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "analysis/AnalysisPass.h"
#include "analysis/AnalysisState.h"
#include "analysis/RegionSelection.h"
#include "background/BackgroundCorrection.h"
#include "controller/ControllerPort.h"
#include "core/Result.h"
#include "core/UserPreferences.h"
#include "image/Bitmap.h"
#include "image/WorkingImage.h"
#include "output/Export.h"
#include "output/ResultFields.h"
#include "roi/ScatterGramView.h"

namespace pv {

// Enabled states of the main window's buttons.
struct ButtonStates {
    bool backgroundButton = false;
    bool calculateCoefficientButton = false;
    bool saveButton = false;
    bool calculateROIButton = false;
    bool reflectROIButton = false;
};

// The four coefficient check boxes; k1/k2 and m1/m2 share one each.
struct CoefficientCheckboxes {
    bool checkbox_Rr = true;
    bool checkbox_R = true;
    bool checkbox_k1 = true;
    bool checkbox_m1 = true;
};

// Channel whose display colour an axis label takes: 0 red, 1 green, 2 blue.
struct AxisLabelColors {
    int yAxisColorText = 0;
    int xAxisColorText = 1;
};

// The base of the main controller: the supported document types and the plane pointers that
// other windows reach through the application's delegate.
class PixmeraController {
  public:
    virtual ~PixmeraController() = default;

    void loadSupportedFileTypes();
    const std::vector<std::string>& supportedImageFileTypes() const {
        return supportedImageFileTypes_;
    }
    void setSupportedImageFileTypes(std::vector<std::string> types) {
        supportedImageFileTypes_ = std::move(types);
    }

  protected:
    std::vector<std::string> supportedImageFileTypes_;
};

// Everything the main window does, without the window: which pass runs when, which text each
// result field shows, which button is enabled, and when to ask the background question.
class PixmeraVeltroController : public PixmeraController {
  public:
    static constexpr const char* kInitializationError = "Error initializing Colocalization";
    static constexpr const char* kCalculateHelpPage = "src/PixmeraVeltro206.html";

    explicit PixmeraVeltroController(ControllerPort& port);
    // The scatter-gram view calls back into this object.
    PixmeraVeltroController(const PixmeraVeltroController&) = delete;
    PixmeraVeltroController& operator=(const PixmeraVeltroController&) = delete;

    // The start-up sequence: empty scatter gram, colour bars, reset analysis, disabled buttons,
    // supported types.
    void awakeFromNib();
    void applicationDidFinishLaunching();

    // --- Working image ---
    // The desktop hands over a file (open panel, Open Recent, command line). Answers whether a
    // picture could be read; the failure has already gone to the port.
    Status openImageFile(const std::string& path);
    // A picture dropped on or pasted into the image view; the path is the dropped file, if any.
    void takePictureFromView(Picture picture, std::optional<std::string> draggedPath);
    // The view's current picture as a new image without a file.
    void selectedNewImage();
    void imageChanged(bool fromView, const std::optional<std::string>& draggedPath = std::nullopt);
    Status loadImageFromThisPath(const std::optional<std::string>& path);
    void createCopyOfOriginal();
    // After background correction wrote into the working bitmap, or with
    // restoreOriginalRequested set, back to the picture as loaded.
    void updateDisplayedImage();
    void restoreImageToOriginal();

    // --- Analysis ---
    void getChannelsRGBCombo(int popupIndex);
    void prepareForCalculatingCoefficients();
    void calculateScatterGram();
    void displayPixelInformation(int rgbCombo);
    void setROIPixelInfo(bool enabled);
    void calculateCoefficientsNow();
    void colocalizationWarningSheetDidEnd(int tag);
    void calculateCoefficients();
    void calculatePearsons_Rr();
    void calculateOverlap_R();
    void calculateOverlap_k1k2();
    void calculateOverlap_m1m2();
    void clearCoefficientsTextResults();
    void selectAllCoefficients();
    void clearAllCoefficients();
    void setCheckboxes(const CoefficientCheckboxes& boxes);

    // --- Scatter gram ---
    void drawEmptyScatterGram();
    void drawScatterGram();
    void drawColorBars();
    void displayROIPreview();

    // --- Scatter-gram region, M1/M2, reveal ---
    // The selection-tool popup: 0 rectangle, 1 oval, 2 polygon, 3 lasso; others rectangle.
    void getSelectionTool(int popupIndex);
    void scatterGramROISelected();
    void calculateROIPixelCount();
    void displayROIPixelCount();
    void calculateROINow();
    void colocalizationScatterGramWarningSheetDidEnd(int returnCode);
    void calculateROI();
    void calculateColocalization_M1M2();
    void clearROICalculations();
    void reflectWhitePixels();
    void colorThePixelWhite(Point p);
    void displayWhitePixelImage();
    // New preference colours for the markers; the region is discarded.
    void changeROIColorPrefs();

    // --- Background correction ---
    // Apply: thresholds from the window's controls, then the corrected picture is analysed.
    void removeBackgroundNow(BackgroundControls& controls);
    void resetImageToOriginal();
    BackgroundSettings& backgroundSettings() { return backgroundSettings_; }

    // --- Output ---
    // Writes the report (and the pictures when asked) for the chosen path without suffix.
    std::vector<Error> outputPixelCoefficientData(const std::string& stem, ReportFormat format,
                                                  bool saveImages);

    // --- Read-outs for the front ends ---
    const ResultFields& fields() const { return fields_; }
    const ButtonStates& buttons() const { return buttons_; }
    const CoefficientCheckboxes& checkboxes() const { return checkboxes_; }
    const AxisLabelColors& axisLabelColors() const { return axisLabelColors_; }
    const AnalysisState& analysis() const { return analysis_; }
    const WorkingImage& workingImage() const { return image_; }
    WorkingImage& workingImage() { return image_; }
    const std::optional<Bitmap>& scatterGramBitmap() const { return scatterGramBitmap_; }
    const PairHistogram& pairHistogram() const { return histogram_; }
    CROI_ScatterGramCroppingImageView& scatterGramGraph() { return scatterGramGraph_; }
    UserPreferences& userPreferences() { return userPreferences_; }
    int selectionTool() const { return selectionTool_; }
    bool initialImageHasBeenSelected() const { return image_.initialImageHasBeenSelected; }
    const Picture& currentDisplayedImage() const { return image_.currentDisplayedImage; }

    // Worker threads of the analysis pass (0: one per core).
    void setAnalysisThreads(unsigned threads) { analysisThreads_ = threads; }

  private:
    void refresh() { port_.refreshControls(); }
    std::string percentText(std::int32_t count, std::int32_t total) const;
    // Counts and percentages of the Y, X and mixed classes and of their sum.
    void writeCountTexts(const std::array<std::string*, 4>& counts,
                         const std::array<std::string*, 4>& percents,
                         const std::array<std::int32_t, 3>& classes, std::int32_t total);
    // The bins the view's current region stands for (the single-colour test without one).
    RegionSelection currentRegionSelection();

    ControllerPort& port_;
    AnalysisState analysis_;
    WorkingImage image_;
    std::optional<Bitmap> scatterGramBitmap_;
    std::uint8_t* scatterGramData_ = nullptr;
    PairHistogram histogram_;
    ResultFields fields_;
    ButtonStates buttons_;
    CoefficientCheckboxes checkboxes_;
    AxisLabelColors axisLabelColors_;
    unsigned analysisThreads_ = 0;

    UserPreferences userPreferences_;
    CROI_ScatterGramCroppingImageView scatterGramGraph_{userPreferences_};
    int selectionTool_ = 0;
    // Nothing moves this point; it keeps the single-colour test on the Y channel.
    Point mouseUpHere_;
    BackgroundSettings backgroundSettings_;
};

}  // namespace pv
