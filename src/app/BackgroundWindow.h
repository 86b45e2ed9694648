#pragma once

#include <QPointer>
#include <QWidget>
#include <memory>

#include "background/BackgroundCorrection.h"

namespace Ui {
class BackgroundWindow;
}

namespace pv {
class PixmeraVeltroController;
}

namespace pv::app {

class ImageView;

// The Background Correction window: a tool window beside the main window, made on first use
// and kept (with its controls as the user left them) until the program ends. While it is open
// the image view tints what Apply would black out; only Apply and Reset change the picture,
// through the controller.
class BackgroundWindow : public QWidget {
    Q_OBJECT

  public:
    BackgroundWindow(PixmeraVeltroController& controller, ImageView& preview, QWidget* parent);
    ~BackgroundWindow() override;

    // Shows the window and brings it to the front; the first time beside the main window,
    // later where the user left it.
    void showBesideParent();

    Ui::BackgroundWindow& ui() { return *ui_; }

  protected:
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

  private:
    // The controls' values into the widgets, which must not answer them back.
    void showControls();
    void updatePreview();

    PixmeraVeltroController& controller_;
    QPointer<ImageView> preview_;  // the main window's view, which may go first at exit
    std::unique_ptr<Ui::BackgroundWindow> ui_;
    BackgroundControls controls_;
    bool placed_ = false;
};

}  // namespace pv::app
