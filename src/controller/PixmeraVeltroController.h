#pragma once

#include <optional>
#include <string>
#include <vector>

#include "analysis/AnalysisState.h"
#include "analysis/PairHistogram.h"
#include "analysis/RegionCensus.h"
#include "background/BackgroundCorrection.h"
#include "controller/Cautions.h"
#include "controller/CellMeasures.h"
#include "controller/ControllerPort.h"
#include "controller/MeasureTexts.h"
#include "controller/Preferences.h"
#include "controller/ResultTexts.h"
#include "controller/WorkingImage.h"
#include "core/Result.h"
#include "core/UserPreferences.h"
#include "image/Bitmap.h"
#include "image/ChannelFiles.h"
#include "image/ImageFile.h"
#include "image/LabelImage.h"
#include "output/Export.h"
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

// Channel whose display colour an axis label takes: 0 red, 1 green, 2 blue.
struct AxisLabelColors {
    int yAxisColorText = 0;
    int xAxisColorText = 1;
};

// Menu items whose enabled state depends on the working image; every other item is enabled.
enum class MenuAction {
    Histogram,
    ImageInfo,
    BackgroundCorrection,
    RestoreOriginal,
    PageLayout,
    Print,
    Other
};

// The base of the main controller: the document types the open panel accepts.
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
// result field shows, which button is enabled, and when to ask the background question. Each
// public operation is one user action; the port hears of its effects once, when it ends.
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
    // The desktop hands over a file (open panel, Open Recent, command line). A file that cannot
    // be read leaves an empty picture; the failure has gone to the port and is answered too.
    Status openImageFile(const std::string& path);
    // Two single-channel files (or a channel of each) as the current pair's Y and X channels
    // of one picture, which is then taken as an opened file is; the file facts are the Y file's.
    Status openChannelFiles(const ChannelSource& y, const ChannelSource& x);
    // The same, except that a pair that cannot be read changes nothing (the failure is only
    // answered), and that for another slice of the same stack the mask (when it fits) and the
    // background corrections stay.
    Status replaceWithChannelFiles(const ChannelSource& y, const ChannelSource& x,
                                   bool anotherSlice);
    // The slices of a stack as one population: each slice's pair (read as openChannelFiles reads
    // it, corrected as the picture is) counted into one histogram, so that the census, sums,
    // scatter gram, coefficients and region speak of every voxel; the first slice is the picture
    // shown. Slices are read one at a time. A slice that cannot be read, or is not the first
    // one's size, fails it all, named.
    using SlicePair = std::pair<ChannelSource, ChannelSource>;
    Status openStack(const std::vector<SlicePair>& slices);
    // Only the pixels where the mask file is not 0 (in any channel) are analysed from now on:
    // census, sums, scatter gram, region and reveal; percentages refer to them. Refused, naming
    // the file, when it cannot be read or is not the picture's size. A new picture drops it.
    Status setMaskFile(const std::string& path);
    void clearMask();
    // One byte a pixel, 0 outside; nothing without a mask.
    const Bitmap* mask() const { return mask_ ? &*mask_ : nullptr; }
    MaskView maskView() const {
        return mask_ ? MaskView{mask_->bitmapData(), mask_->bytesPerRow(), mask_->pixelsWide(),
                                mask_->pixelsHigh()}
                     : MaskView{};
    }
    // The result fields of each cell of a label image of the picture's size, as the fields of a
    // picture of only that cell's pixels would read after the actions taken so far (the pair,
    // the corrections, Calculate, the region); inside the mask, when there is one.
    struct CellFields {
        std::uint32_t label = 0;
        std::int32_t pixels = 0;  // of the cell (inside the mask)
        ResultFields fields;
    };
    // With withFurtherMeasures, the further measures calculated so far are worked out for
    // each cell too, over its pixels (those of the significance test over its bounding box),
    // as cellFurtherMeasures does with the options.
    Result<std::vector<CellFields>> cellFields(const std::string& labelPath,
                                               bool withFurtherMeasures = false);
    // The same of labels already read from labelPath, for front ends that keep them.
    Result<std::vector<CellFields>> cellFields(const LabelImage& labels,
                                               const std::string& labelPath,
                                               bool withFurtherMeasures = false,
                                               const CellMeasureOptions& options = {});
    // The same handed to `take` a cell at a time, by increasing label, for front ends that do
    // not keep them all: the fields of tens of thousands of cells take more memory than a
    // picture. Nothing is taken when it fails.
    using TakeCell = std::function<void(CellFields&&)>;
    Status forEachCellFields(const std::string& labelPath, bool withFurtherMeasures,
                             const TakeCell& take);
    Status forEachCellFields(const LabelImage& labels, const std::string& labelPath,
                             bool withFurtherMeasures, const CellMeasureOptions& options,
                             const TakeCell& take);
    // For front ends that test the cell they show off their event loop: the significance test
    // of one cell as cellFields runs it, with its own copy of the cell's box, to run on any
    // thread with the shuffles and seed of furtherMeasures(). Fails, naming labelPath, when
    // the further measures hold no test, the labels are not the picture's size or memory is
    // short.
    Result<BlockShuffleTest> cellSignificanceTest(const LabelImage& labels, std::uint32_t label,
                                                  const std::string& labelPath);
    // The same with the file already read (readImageFile may run on another thread; this must
    // not): for front ends that keep reading a large file off their event loop.
    Status openReadPicture(const std::string& path, Result<Picture> read);
    // A picture dropped on or pasted into the image view; the path is the dropped file, if any.
    void takePictureFromView(Picture picture, std::optional<std::string> draggedPath);
    // The view's current picture as a new image without a file.
    void selectedNewImage();
    void restoreImageToOriginal();

    // --- Analysis ---
    void getChannelsRGBCombo(int popupIndex);
    void calculateCoefficientsNow();
    void colocalizationWarningSheetDidEnd(BackgroundWarningAnswer answer);
    void calculateCoefficients();
    void selectAllCoefficients();
    void clearAllCoefficients();
    void setCheckboxes(const CoefficientCheckboxes& boxes);

    // --- Scatter-gram region, M1/M2, reveal ---
    // The selection-tool popup: 0 rectangle, 1 oval, 2 polygon, 3 lasso; others rectangle.
    void getSelectionTool(int popupIndex);
    // "ScatterGramROISelected": the region may have changed; recount.
    void scatterGramROISelected();
    void calculateROINow();
    void colocalizationScatterGramWarningSheetDidEnd(ScatterGramWarningAnswer answer);
    void calculateROI();
    void reflectWhitePixels();
    // New preference colours for the markers; the region is discarded.
    void changeROIColorPrefs();

    // --- Further measures ---
    // Calculate of the further measures: those of the joint histogram at once, the significance
    // test over the pixels the analysis reads (the picture inside the mask, or every slice of a
    // pooled stack), on this thread. The results stay until the analysis starts over and the
    // report carries them. Fails, naming the file, when a slice cannot be read again or memory
    // is short; the results are then unchanged.
    Status calculateFurtherMeasures(const MeasureRequest& request);
    // For front ends that run the significance test off their event loop: the test with its
    // own copy of the pixels, to run on any thread, ...
    Result<BlockShuffleTest> significanceTest(const MeasureRequest& request);
    // ... and its result handed back (nothing when the request asks for no significance, or the
    // test was cancelled). With the analysis generation the test was made in, a result that
    // arrives after the analysis started over is dropped: false, and nothing changes.
    bool takeFurtherMeasures(const MeasureRequest& request,
                             const std::optional<SignificanceResult>& significance,
                             std::optional<std::uint64_t> madeIn = std::nullopt);
    // What a test that ended without a result, though not cancelled, says: memory was short.
    Error significanceMemoryError() const;
    // The test shuffles at most BlockShuffleTest::kMostBlocks blocks; beyond, it is refused
    // with the number and the smallest PSF size that fits.
    // Changes whenever the analysis starts over (new picture, pair, correction or mask).
    std::uint64_t analysisGeneration() const { return analysisGeneration_; }
    const std::optional<FurtherMeasureResults>& furtherMeasures() const { return further_; }
    // The Costes thresholds among the results (asked for, and defined): what the scatter gram
    // marks and Apply Costes Thresholds would apply.
    std::optional<CostesResult::Thresholds> costesThresholdsShown() const {
        return further_ && further_->asked.costes ? further_->costes.thresholds : std::nullopt;
    }
    // Costes' thresholds applied as two background corrections, the Y channel at its threshold
    // and the X channel at its own, so that Restore Original undoes them. False when there are
    // no thresholds to apply.
    bool applyCostesThresholds();

    // --- Background correction ---
    // Apply: thresholds from the window's controls, then the corrected picture is analysed.
    void removeBackgroundNow(BackgroundControls& controls);
    // Apply with the manual tab's level typed in and the channel popup's item (0 red, 1 green,
    // 2 blue, 3 all) chosen.
    void applyBackgroundLevel(int channelItem, int level);
    void resetImageToOriginal();
    BackgroundSettings& backgroundSettings() { return backgroundSettings_; }
    // The settings Apply would use with the window's controls as they stand: what the window
    // shows before anything is applied.
    BackgroundSettings backgroundSettingsToApply(BackgroundControls controls) const;

    // --- User preferences ---
    // The defaults every key falls back to; the directories are under the user's home.
    void registerDefaults(const std::string& homeDirectory);
    // Reads every key; one the store lacks takes its default, and one it holds in a form that
    // cannot be read takes its default with a line in the log, as do all when the store
    // itself cannot be read. The marker takes the colours read.
    void restoreUserPreferences(const PreferenceStore& store);
    // Writes all sixteen in one go; a failure goes to the log, as nobody is left to see it.
    Status saveUserPreferences(PreferenceStore& store);
    // The preference panel's edits. Colours and opacity are "ROIColorChanged"; the fill only
    // needs a redraw, as markers read it when they draw.
    void setFillROI(bool on);
    void setROIBorderColor(const Color& colour);
    void setROIFillColor(const Color& colour);
    void setROIOpacity(float opacity);

    // --- Output ---
    // Writes the report (and the pictures when asked) for the chosen path without suffix; all
    // or nothing puts none in place unless every one could be written.
    std::vector<Error> outputPixelCoefficientData(const std::string& stem, ReportFormat format,
                                                  bool saveImages, bool allOrNothing = false);

    // --- Read-outs for the front ends ---
    const ResultFields& fields() const { return fields_; }
    const ButtonStates& buttons() const { return buttons_; }
    const CoefficientCheckboxes& checkboxes() const { return checkboxes_; }
    AxisLabelColors axisLabelColors() const;
    const AnalysisState& analysis() const { return analysis_; }
    const WorkingImage& workingImage() const { return image_; }
    const std::optional<Bitmap>& scatterGramBitmap() const { return scatterGramBitmap_; }
    const PairHistogram& pairHistogram() const { return histogram_; }
    CROI_ScatterGramCroppingImageView& scatterGramGraph() { return scatterGramGraph_; }
    UserPreferences& userPreferences() { return userPreferences_; }
    SelectionTool selectionTool() const { return selectionTool_; }
    bool initialImageHasBeenSelected() const { return image_.initialImageHasBeenSelected(); }
    const Picture& currentDisplayedImage() const { return image_.currentDisplayedImage(); }

    // What the results as shown call for a word about: identical channels, and the reason
    // each undefined coefficient has no answer.
    std::vector<Caution> cautions() const;

    // Whether a menu item is enabled: nothing that needs a picture before the first one, and
    // Restore Original only while the picture is background-corrected.
    bool validateMenuItem(MenuAction action) const;
    // How many pixels of the picture have the scatter-gram pair (X, Y), whatever the third
    // channel; 0 outside the scatter gram or before a pass.
    std::uint64_t pixelsWithPair(int x, int y) const;

    // The Help menu: pages of the help book (the start page, keyboard shortcuts, hot tips),
    // and the web and mail items, which the port opens with the system's handler.
    void showHelp();
    void showKeyboardShortcutHelp();
    void showHotTipsHelp();
    void openHotTipsWebSite();
    void visitWebsite();
    void provideFeedbackViaEmail();

    // How files are read from now on (the 16-bit scale).
    void setReadOptions(const ReadOptions& options) { readOptions_ = options; }
    // Of a 16-bit file, the sample value that became 255; nothing for other pictures.
    std::optional<std::uint32_t> sixteenBitTop() const { return loadedSixteenBitTop_; }

    // Worker threads of the long operations (0: one per core).
    void setAnalysisThreads(unsigned threads) { analysisThreads_ = threads; }

  private:
    // Opened by every public operation: the port hears of the changes once, when the
    // outermost one ends, however many steps an action takes.
    class Action {
      public:
        explicit Action(PixmeraVeltroController& c) : c_(c) { ++c_.actionDepth_; }
        ~Action();
        Action(const Action&) = delete;
        Action& operator=(const Action&) = delete;

      private:
        PixmeraVeltroController& c_;
    };

    void refresh() { refreshPending_ = true; }
    void imageShown() { imagePending_ = true; }
    // A new picture (or none) under analysis, from a load of any route.
    // Normalises the picture (empty after a failed read, whose failure is status), makes it the
    // picture under analysis and starts the analysis over. Answers status or the failure.
    Status takeNewPicture(Picture read, Status status);
    // The analysis starts over for the picture under analysis: the pass, the texts, the view.
    void reanalyse();
    void prepareForCalculatingCoefficients();
    void calculateScatterGram();
    // The pooled pass over the stack's slices into one histogram.
    void countStack(const MaskView& mask);
    // Slice i of the pooled stack as analysed: read again and corrected as the picture was, and
    // refused, naming both sizes, when it is not the first slice's size.
    Result<Picture> stackSlice(std::size_t i);
    // Refuses labels that are not the picture's size, naming both sizes.
    Status labelsFit(const LabelImage& labels, const std::string& labelPath) const;
    void setROIPixelInfo(bool enabled);
    void clearCoefficientsTextResults();
    void drawEmptyScatterGram();
    void drawScatterGram();
    void drawColorBars();
    void calculateROIPixelCount();
    void clearROICalculations();
    // The bins the view's current region stands for (the single-colour test without one).
    RegionSelection currentRegionSelection();

    ControllerPort& port_;
    AnalysisState analysis_;
    WorkingImage image_;
    std::optional<Bitmap> scatterGramBitmap_;
    PairHistogram histogram_;
    FieldsShown shown_;
    ResultFields fields_;
    ButtonStates buttons_;
    CoefficientCheckboxes checkboxes_;
    ReadOptions readOptions_;
    std::optional<Bitmap> mask_;
    std::vector<SlicePair> stack_;                 // pooled slices; empty for one picture
    std::vector<BackgroundSettings> corrections_;  // applied since the picture was loaded
    Status stackStatus_;                           // of the last pooled pass
    std::uint32_t loadedPages_ = 1;                // of the file the picture came from
    std::optional<std::uint32_t> loadedSixteenBitTop_;
    unsigned analysisThreads_ = 0;
    int actionDepth_ = 0;
    bool refreshPending_ = false;
    bool imagePending_ = false;
    bool scatterGramPending_ = false;

    UserPreferences userPreferences_;
    UserPreferences registeredDefaults_;
    CROI_ScatterGramCroppingImageView scatterGramGraph_{userPreferences_};
    SelectionTool selectionTool_ = SelectionTool::Rectangle;
    BackgroundSettings backgroundSettings_;
    std::optional<FurtherMeasureResults> further_;
    std::uint64_t analysisGeneration_ = 0;
};

}  // namespace pv
