#include "app/ColorButton.h"

#include <QColorDialog>
#include <QPainter>
#include <QPixmap>

namespace pv::app {

ColorButton::ColorButton(QWidget* parent) : QPushButton(parent) {
    setIconSize(QSize(44, 14));
    connect(this, &QPushButton::clicked, this, &ColorButton::chooseColor);
    updateSwatch();
}

void ColorButton::setColor(const QColor& color) {
    color_ = color;
    updateSwatch();
}

void ColorButton::chooseColor() {
    // Window-modal, without a nested event loop; the answer arrives through colorSelected.
    auto* dialog = new QColorDialog(color_, this);
    dialog->setOptions(QColorDialog::ShowAlphaChannel | QColorDialog::DontUseNativeDialog);
    dialog->setWindowTitle(toolTip().isEmpty() ? tr("Colour") : toolTip());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    connect(dialog, &QColorDialog::colorSelected, this, [this](const QColor& chosen) {
        setColor(chosen);
        emit colorChosen(chosen);
    });
    dialog->open();
}

void ColorButton::updateSwatch() {
    const QSize size = iconSize();
    QPixmap swatch(size);
    QPainter p(&swatch);
    const int square = 5;
    for (int y = 0; y < size.height(); y += square) {
        for (int x = 0; x < size.width(); x += square) {
            p.fillRect(x, y, square, square,
                       ((x + y) / square) % 2 == 0 ? QColor(255, 255, 255) : QColor(200, 200, 200));
        }
    }
    p.fillRect(swatch.rect(), color_);
    p.setPen(QColor(90, 90, 90));
    p.drawRect(swatch.rect().adjusted(0, 0, -1, -1));
    p.end();
    setIcon(QIcon(swatch));
}

}  // namespace pv::app
