#include "app/BackgroundWindow.h"

#include <QButtonGroup>
#include <QScreen>
#include <QSignalBlocker>
#include <algorithm>

#include "app/ImageView.h"
#include "controller/PixmeraVeltroController.h"
#include "ui_BackgroundWindow.h"

namespace pv::app {

BackgroundWindow::BackgroundWindow(PixmeraVeltroController& controller, ImageView& preview,
                                   QWidget* parent)
    : QWidget(parent, Qt::Tool),
      controller_(controller),
      preview_(&preview),
      ui_(std::make_unique<Ui::BackgroundWindow>()) {
    ui_->setupUi(this);
    Ui::BackgroundWindow& u = *ui_;
    // The preset rows' ids are the rows, as the controls record them.
    u.autoSelection->setId(u.autoSelectionRow0, 0);
    u.autoSelection->setId(u.autoSelectionRow1, 1);
    u.autoSelection->setId(u.autoSelectionRow2, 2);
    showControls();
    getRGBChannel(controls_, controller_.backgroundSettings());

    connect(u.autoManualTabView, &QTabWidget::currentChanged, this, [this](int tab) {
        controls_.selectedTab = tab;
        updatePreview();
    });
    connect(u.autoSelection, &QButtonGroup::idToggled, this, [this](int row, bool checked) {
        if (checked) {
            controls_.selectedPresetRow = row;
            updatePreview();
        }
    });
    connect(u.thresholdSlider, &QSlider::valueChanged, this, [this](int value) {
        controls_.sliderValue = value;
        getThresholdSlider(controls_, controller_.backgroundSettings());
        showControls();
        updatePreview();
    });
    connect(u.thresholdEntryValue, &QSpinBox::valueChanged, this, [this](int value) {
        controls_.typedValue = value;
        getThresholdEntryValue(controls_, controller_.backgroundSettings());
        showControls();
        updatePreview();
    });
    connect(u.rgbChannelPopUpMenu, &QComboBox::currentIndexChanged, this, [this](int item) {
        controls_.channelItem = item;
        getRGBChannel(controls_, controller_.backgroundSettings());
        updatePreview();
    });
    connect(u.applyButton, &QPushButton::clicked, this, [this] {
        controller_.removeBackgroundNow(controls_);
        showControls();
        updatePreview();
    });
    connect(u.resetImageButton, &QPushButton::clicked, this,
            [this] { controller_.resetImageToOriginal(); });
    connect(u.doneButton, &QPushButton::clicked, this, &QWidget::close);
}

BackgroundWindow::~BackgroundWindow() = default;

void BackgroundWindow::showBesideParent() {
    if (!placed_ && parentWidget() != nullptr) {
        placed_ = true;
        adjustSize();
        // To the right of the main window's top edge; inside the screen where there is no room.
        const QRect main = parentWidget()->window()->frameGeometry();
        QPoint at = main.topRight() + QPoint(8, 0);
        if (const QScreen* screen = parentWidget()->screen()) {
            const QRect room = screen->availableGeometry();
            at.setX(std::min(at.x(), room.right() - frameGeometry().width()));
            at.setY(std::clamp(at.y(), room.top(), std::max(room.top(), room.bottom() - height())));
        }
        move(at);
    }
    show();
    raise();
    activateWindow();
}

void BackgroundWindow::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    updatePreview();
}

void BackgroundWindow::hideEvent(QHideEvent* event) {
    QWidget::hideEvent(event);
    if (preview_) {
        preview_->setBackgroundPreview(std::nullopt);
    }
}

void BackgroundWindow::showControls() {
    Ui::BackgroundWindow& u = *ui_;
    const QSignalBlocker tabs(u.autoManualTabView);
    const QSignalBlocker rows(u.autoSelection);
    const QSignalBlocker slider(u.thresholdSlider);
    const QSignalBlocker field(u.thresholdEntryValue);
    const QSignalBlocker channel(u.rgbChannelPopUpMenu);
    u.autoManualTabView->setCurrentIndex(controls_.selectedTab);
    if (QAbstractButton* row = u.autoSelection->button(controls_.selectedPresetRow)) {
        row->setChecked(true);
    }
    u.thresholdSlider->setValue(controls_.sliderValue);
    u.thresholdEntryValue->setValue(controls_.typedValue);
    u.rgbChannelPopUpMenu->setCurrentIndex(controls_.channelItem);
}

void BackgroundWindow::updatePreview() {
    if (preview_ && isVisible()) {
        preview_->setBackgroundPreview(controller_.backgroundSettingsToApply(controls_));
    }
}

}  // namespace pv::app
