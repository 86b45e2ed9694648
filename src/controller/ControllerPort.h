#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "core/Result.h"
#include "image/Picture.h"

namespace pv {

// A warning put to the user as a question with two or three answers.
struct WarningQuestion {
    std::string title;
    std::string message;
    std::string defaultButton;    // answered with return code 1
    std::string alternateButton;  // answered with return code 0
    std::string otherButton;      // answered with return code -1; none when empty
};

// Answers to the background-correction warning; the numbers are the tags of its buttons.
enum class BackgroundWarningAnswer { CorrectFirst = -1, Help = 0, CalculateAnyway = 1 };
// Answers to the scatter-gram warning: its default and its alternate button.
enum class ScatterGramWarningAnswer { Background, Calculate };

// The one place where the buttons' numbers become answers; an unknown tag answers nothing.
std::optional<BackgroundWarningAnswer> backgroundWarningAnswerForTag(int tag);
// Return code 0 is the alternate button; every other code the default one.
ScatterGramWarningAnswer scatterGramWarningAnswerForReturnCode(int returnCode);

// What the controller needs from whatever shows it (the desktop window, the command line, a
// test). Every call must be implemented, so a front end cannot forget one; NullControllerPort
// is the front end that shows nothing.
class ControllerPort {
  public:
    virtual ~ControllerPort() = default;

    // The main image view's picture.
    virtual void showImage(const Picture&) = 0;
    // The main image view lets go of its picture until the next showImage, which follows
    // before the action ends; it may keep what it has drawn on screen meanwhile.
    virtual void releaseImage() = 0;
    // The scatter-gram view's picture (a snapshot of the scatter-gram bitmap).
    virtual void showScatterGram(const Picture&) = 0;
    // Gradient names for the bars y1, x1, y2, x2.
    virtual void showColorBars(const std::array<std::string_view, 4>&) = 0;
    // Field texts, colours, check boxes or button states changed; read them from the
    // controller. Called once at the end of each action that changed any of them.
    virtual void refreshControls() = 0;

    // Ask the background-correction question; the answer comes back through
    // colocalizationWarningSheetDidEnd, with the button's return code as its tag.
    virtual void askBackgroundCorrectionWarning(const WarningQuestion&) = 0;
    // Ask the scatter-gram background question; the answer comes back through
    // colocalizationScatterGramWarningSheetDidEnd.
    virtual void askScatterGramWarning(const WarningQuestion&) = 0;
    // The scatter-gram region or its marker changed; redraw the scatter-gram view.
    virtual void scatterGramNeedsDisplay() = 0;
    // The main image view gives up its focus for pasting.
    virtual void setFocusForPasting(bool) = 0;
    // Open the background-correction window.
    virtual void performBackgroundCorrection() = 0;
    // Open a page of the help book.
    virtual void showHelpPage(std::string_view) = 0;
    // Open a web page or a mailto: URL with the system's handler.
    virtual void openURL(std::string_view) = 0;

    // A file could not be opened or written, or memory ran short.
    virtual void showError(const Error&) = 0;
    // Messages for the system log.
    virtual void logMessage(std::string_view) = 0;
    virtual void noteRecentDocument(const std::string&) = 0;
};

// Shows nothing and answers nothing: the base of the command line's and the tests' ports,
// which override what they care about.
class NullControllerPort : public ControllerPort {
  public:
    void showImage(const Picture&) override {}
    void releaseImage() override {}
    void showScatterGram(const Picture&) override {}
    void showColorBars(const std::array<std::string_view, 4>&) override {}
    void refreshControls() override {}
    void askBackgroundCorrectionWarning(const WarningQuestion&) override {}
    void askScatterGramWarning(const WarningQuestion&) override {}
    void scatterGramNeedsDisplay() override {}
    void setFocusForPasting(bool) override {}
    void performBackgroundCorrection() override {}
    void showHelpPage(std::string_view) override {}
    void openURL(std::string_view) override {}
    void showError(const Error&) override {}
    void logMessage(std::string_view) override {}
    void noteRecentDocument(const std::string&) override {}
};

}  // namespace pv
