#include "app/VerticalLabel.h"

#include <QPainter>

namespace pv::app {

VerticalLabel::VerticalLabel(QWidget* parent) : QLabel(parent) {}

QSize VerticalLabel::sizeHint() const {
    return QLabel::sizeHint().transposed();
}

QSize VerticalLabel::minimumSizeHint() const {
    return QLabel::minimumSizeHint().transposed();
}

void VerticalLabel::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setPen(palette().color(foregroundRole()));
    painter.translate(0, height());
    painter.rotate(-90);
    painter.drawText(QRect(0, 0, height(), width()), Qt::AlignCenter, text());
}

}  // namespace pv::app
