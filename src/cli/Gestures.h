#pragma once

#include "cli/CliOptions.h"
#include "controller/ControllerPort.h"
#include "controller/PixmeraVeltroController.h"
#include "image/StackLayout.h"

namespace pv::cli {

// Draws the region with the tool a user would pick, through the same mouse events, so that the
// outline is exactly the one the desktop program builds: press, drag and release for a
// rectangle, an oval or a lasso; for a polygon a dragged first edge, a click per further vertex
// and a double-click on the last.
void drawRegion(PixmeraVeltroController& controller, const RegionOption& region);

// A front end that answers the controller's questions once the action that asked has ended,
// and collects what would be shown.
class BatchPort : public NullControllerPort {
  public:
    void askBackgroundCorrectionWarning(const WarningQuestion&) override { warningAsked = true; }
    void askScatterGramWarning(const WarningQuestion&) override { scatterGramWarningAsked = true; }
    void logMessage(std::string_view message) override { log.emplace_back(message); }

    bool warningAsked = false;
    bool scatterGramWarningAsked = false;
    std::vector<std::string> log;
};

// The program started and the window's controls set as the options ask, before any picture;
// threads as setAnalysisThreads takes them.
void startController(PixmeraVeltroController& controller, const Options& o, unsigned threads);

// What a user does after opening the picture: each background correction, Calculate (going on
// without a correction when asked), then the region, its Calculate and Reveal, and the further
// measures' Calculate; answers how that went.
Status followRoad(PixmeraVeltroController& controller, BatchPort& port, const Options& o);

// Opens what the options ask of one image: the image itself, the two channel files, or two
// channels of the image (pages of a stack at the slice and frame, or colours of a picture);
// then the mask, when one is given. The image's stack layout, when already read, is not read
// again.
Status openImage(PixmeraVeltroController& controller, const Options& o, const std::string& image,
                 const StackLayout* layout = nullptr);

// With --slices all each slice reads two pages of the file, one analysis after another: refused,
// naming the file, when they are more than its bytes justify.
Status slicesJustified(const StackLayout& layout, const std::string& image);

}  // namespace pv::cli
