#include "app/PreferencesDialog.h"

#include <QSignalBlocker>

#include "app/QtPictures.h"
#include "ui_PreferencesDialog.h"

namespace pv::app {

namespace {

// The slider runs from 0 to kSliderSteps for opacities 0 to 1.
constexpr int kSliderSteps = 100;

}  // namespace

PreferencesDialog::PreferencesDialog(PixmeraVeltroController& controller, QWidget* parent)
    : QDialog(parent), ui_(std::make_unique<Ui::PreferencesDialog>()), controller_(controller) {
    ui_->setupUi(this);
    ui_->roiOpacitySlider->setMaximum(kSliderSteps);
    setupROIViewVariables();
    Ui::PreferencesDialog& u = *ui_;
    connect(u.fillROI, &QCheckBox::toggled, this, &PreferencesDialog::getFillROISetting);
    connect(u.roiBorderColor, &ColorButton::colorChosen, this,
            [this](const QColor& c) { controller_.setROIBorderColor(colorOf(c)); });
    connect(u.roiFillColor, &ColorButton::colorChosen, this,
            [this](const QColor& c) { controller_.setROIFillColor(colorOf(c)); });
    connect(u.roiOpacitySlider, &QSlider::valueChanged, this, &PreferencesDialog::getROIOpacity);
    connect(u.opacityEntryValue, &QDoubleSpinBox::valueChanged, this,
            &PreferencesDialog::getEnteredROIOpacity);
    connect(u.checkUpdatesButton, &QPushButton::clicked, this, &PreferencesDialog::checkUpdatesNow);
}

PreferencesDialog::~PreferencesDialog() = default;

void PreferencesDialog::setupROIViewVariables() {
    const UserPreferences& prefs = controller_.userPreferences();
    Ui::PreferencesDialog& u = *ui_;
    const QSignalBlocker fill(u.fillROI), slider(u.roiOpacitySlider), field(u.opacityEntryValue);
    u.fillROI->setChecked(prefs.enableFillROI);
    showFillControls(prefs.enableFillROI);
    u.roiFillColor->setColor(qtColor(prefs.roiFillColor));
    u.roiBorderColor->setColor(qtColor(prefs.roiBorderColor));
    u.roiOpacitySlider->setValue(qRound(prefs.opacityValue * kSliderSteps));
    u.opacityEntryValue->setValue(100.0 * double(prefs.opacityValue));
}

void PreferencesDialog::showFillControls(bool enabled) {
    Ui::PreferencesDialog& u = *ui_;
    for (QWidget* w :
         {static_cast<QWidget*>(u.roiFillColor), static_cast<QWidget*>(u.roiOpacitySlider),
          static_cast<QWidget*>(u.opacityEntryValue), static_cast<QWidget*>(u.roiFillText),
          static_cast<QWidget*>(u.roiOpacityText), static_cast<QWidget*>(u.percentSignText)}) {
        w->setEnabled(enabled);
    }
    u.opacityEntryValue->selectAll();
}

void PreferencesDialog::getFillROISetting(bool on) {
    controller_.setFillROI(on);
    showFillControls(on);
}

void PreferencesDialog::getROIOpacity(int sliderValue) {
    const float opacity = float(sliderValue) / float(kSliderSteps);
    {
        const QSignalBlocker blocker(ui_->opacityEntryValue);
        ui_->opacityEntryValue->setValue(100.0 * double(opacity));
    }
    controller_.setROIOpacity(opacity);
}

void PreferencesDialog::getEnteredROIOpacity(double percent) {
    const float opacity = float(percent / 100.0);
    {
        const QSignalBlocker blocker(ui_->roiOpacitySlider);
        ui_->roiOpacitySlider->setValue(qRound(opacity * kSliderSteps));
    }
    controller_.setROIOpacity(opacity);
}

}  // namespace pv::app
