#pragma once

#include <QDialog>
#include <memory>

#include "controller/PixmeraVeltroController.h"

namespace Ui {
class PreferencesDialog;
}

namespace pv::app {

// The preference panel: how the scatter-gram region is drawn. It shows the controller's
// preferences and hands each edit to it; the slider and the percentage field move together.
class PreferencesDialog : public QDialog {
    Q_OBJECT

  public:
    PreferencesDialog(PixmeraVeltroController& controller, QWidget* parent);
    ~PreferencesDialog() override;

    Ui::PreferencesDialog& ui() { return *ui_; }

  private:
    void setupROIViewVariables();
    // The fill's own controls and their labels follow the check box.
    void showFillControls(bool enabled);
    void getFillROISetting(bool on);
    void getROIOpacity(int sliderValue);
    void getEnteredROIOpacity(double percent);
    // Software updates come through the distribution's package manager, not the program.
    void checkUpdatesNow() {}

    std::unique_ptr<Ui::PreferencesDialog> ui_;
    PixmeraVeltroController& controller_;
};

}  // namespace pv::app
