#include "app/ScatterGramWidget.h"

#include <QPainter>

#include "app/QtPictures.h"

namespace pv::app {

ScatterGramWidget::ScatterGramWidget(QWidget* parent) : QWidget(parent) {}

void ScatterGramWidget::setRegionView(CROI_ScatterGramCroppingImageView* view) {
    view_ = view;
}

void ScatterGramWidget::setPicture(const Picture& scatterGram) {
    image_ = imageOf(scatterGram);
    update();
}

int ScatterGramWidget::zoom() const {
    return 1;
}

QPoint ScatterGramWidget::pictureOrigin() const {
    return QPoint(0, 0);
}

QPointF ScatterGramWidget::toScatterGram(const QPointF& p) const {
    return QPointF(p.x(), 256.0 - p.y());
}

QPointF ScatterGramWidget::toWidget(const QPointF& p) const {
    return QPointF(p.x(), 256.0 - p.y());
}

QSize ScatterGramWidget::sizeHint() const {
    return QSize(256, 256);
}

QSize ScatterGramWidget::minimumSizeHint() const {
    return QSize(256, 256);
}

void ScatterGramWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.drawImage(pictureOrigin(), image_);
}

void ScatterGramWidget::mousePressEvent(QMouseEvent*) {}
void ScatterGramWidget::mouseMoveEvent(QMouseEvent*) {}
void ScatterGramWidget::mouseReleaseEvent(QMouseEvent*) {}
void ScatterGramWidget::mouseDoubleClickEvent(QMouseEvent*) {}
void ScatterGramWidget::leaveEvent(QEvent*) {}

}  // namespace pv::app
