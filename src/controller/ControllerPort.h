#pragma once

#include <array>
#include <string>
#include <string_view>

#include "core/Result.h"
#include "image/Picture.h"

namespace pv {

// A warning with two answers, put to the user as a question.
struct WarningQuestion {
    std::string title;
    std::string message;
    std::string defaultButton;    // answered with return code 1
    std::string alternateButton;  // answered with return code 0
};

// What the controller needs from whatever shows it (the desktop window, the command line, a
// test). Every call has a do-nothing default so a front end implements only what it shows.
class ControllerPort {
  public:
    virtual ~ControllerPort() = default;

    // The main image view's picture.
    virtual void showImage(const Picture&) {}
    // The scatter-gram view's picture (a snapshot of the scatter-gram bitmap).
    virtual void showScatterGram(const Picture&) {}
    // Gradient names for the bars y1, x1, y2, x2.
    virtual void showColorBars(const std::array<std::string_view, 4>&) {}
    // Field texts, colours, check boxes or button states changed; read them from the controller.
    virtual void refreshControls() {}

    // Ask the background-correction question. The answer comes back through
    // colocalizationWarningSheetDidEnd(tag): 1 calculate anyway, -1 correct first, 0 help.
    virtual void askBackgroundCorrectionWarning() {}
    // Ask the scatter-gram background question; the answer comes back through
    // colocalizationScatterGramWarningSheetDidEnd(returnCode).
    virtual void askScatterGramWarning(const WarningQuestion&) {}
    // The scatter-gram region or its marker changed; redraw the scatter-gram view.
    virtual void scatterGramNeedsDisplay() {}
    // The main image view gives up its focus for pasting.
    virtual void setFocusForPasting(bool) {}
    // Open the background-correction window.
    virtual void performBackgroundCorrection() {}
    // Open a page of the help book.
    virtual void showHelpPage(std::string_view) {}

    // A file could not be opened or written.
    virtual void showError(const Error&) {}
    // Messages for the system log.
    virtual void logMessage(std::string_view) {}
    virtual void noteRecentDocument(const std::string&) {}
};

}  // namespace pv
