#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QStringList>
#include <memory>

#include "controller/ControllerPort.h"
#include "controller/PixmeraVeltroController.h"

namespace Ui {
class MainWindow;
}

class QLabel;
class QMessageBox;
class QProgressDialog;

namespace pv::app {

class FurtherMeasuresPanel;
class ImageInfoDialog;
class Inputs;
class PreferencesDialog;

// The main window: shows the controller's state and hands it the user's actions. Every
// decision (which pass runs, which text a field shows, what is enabled) is the controller's.
class MainWindow : public QMainWindow {
    Q_OBJECT

  public:
    explicit MainWindow(QWidget* parent = nullptr);
    ~MainWindow() override;

    // Opens a picture file as every route does (open panel, command line, Open Recent, drop).
    // The file is read off the event loop, with a progress window and Cancel when it takes a
    // while; openFinished tells when the picture has been taken (or the open cancelled).
    void openFile(const QString& path);
    // Writes the report (and the pictures) for the chosen path without suffix, as Save does
    // after its dialog; failures are shown. True when everything was written.
    bool saveResults(const QString& stem, ReportFormat format, bool saveImages);

    PixmeraVeltroController& controller() { return *controller_; }
    Ui::MainWindow& ui() { return *ui_; }
    Inputs& inputs() { return *inputs_; }
    // The question on screen, if any (for the tests and for closing it with the window).
    QMessageBox* openQuestion() const { return question_; }

  signals:
    void openFinished(bool opened);

  protected:
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    class Port;
    friend class Port;

    // 1 or 2 screen pixels per intensity level, with the colour bars to match.
    void setScatterGramZoom(int zoom);
    void connectControls();
    void connectMenus();
    void refreshControls();
    void showColorBars(const std::array<std::string_view, 4>& names);
    // Puts the question as a window-modal message box; `answered` gets the button's code.
    void askQuestion(const WarningQuestion& q, const std::function<void(int)>& answered);
    void showMessage(const QString& title, const QString& text);
    void validateMenus();
    void noteRecentFile(const QString& path);
    void rebuildRecentMenu();
    void openDocument();
    void saveDocument();
    void pastePicture();
    void updateWindowTitle();
    void showStatus();

    std::unique_ptr<Ui::MainWindow> ui_;
    std::unique_ptr<Port> port_;
    std::unique_ptr<PixmeraVeltroController> controller_;  // after the port it talks to
    QStringList recentFiles_;
    QMessageBox* question_ = nullptr;
    QObject* reading_ = nullptr;  // the read in progress, if any
    bool readCancelled_ = false;
    QLabel* imageStatus_ = nullptr;
    QLabel* hoverStatus_ = nullptr;
    QLabel* cautionStatus_ = nullptr;           // why results have no answer
    QSize controlsAt2x_;                        // the controls' minimum size with a 2x scatter gram
    PreferencesDialog* preferences_ = nullptr;  // made on first use, kept
    QPointer<ImageInfoDialog> imageInfo_;       // made at each opening, gone when closed
    Inputs* inputs_ = nullptr;  // channel files, stacks, mask and labels; made with the ui
    FurtherMeasuresPanel* furtherMeasures_ = nullptr;  // beside the coefficients; made with the ui
};

}  // namespace pv::app
