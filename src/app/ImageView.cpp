#include "app/ImageView.h"

#include <QPainter>

#include "app/QtPictures.h"

namespace pv::app {

ImageView::ImageView(QWidget* parent) : QWidget(parent) {
    setAcceptDrops(true);
}

void ImageView::setPicture(const Picture& picture) {
    picture_ = picture;
    image_ = imageOf(picture);
    update();
}

double ImageView::zoom() const {
    return zoom_;
}

void ImageView::zoomToFit() {}
void ImageView::zoomToActualSize() {}
void ImageView::zoomIn() {}
void ImageView::zoomOut() {}

QSize ImageView::sizeHint() const {
    return QSize(512, 512);
}

void ImageView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), palette().dark());
    if (!image_.isNull()) {
        const QSize shown = image_.size().scaled(size(), Qt::KeepAspectRatio);
        painter.drawImage(QRect(QPoint(0, 0), shown), image_);
    }
}

void ImageView::resizeEvent(QResizeEvent*) {}
void ImageView::wheelEvent(QWheelEvent*) {}
void ImageView::mousePressEvent(QMouseEvent*) {}
void ImageView::mouseMoveEvent(QMouseEvent*) {}
void ImageView::mouseReleaseEvent(QMouseEvent*) {}
void ImageView::leaveEvent(QEvent*) {}
void ImageView::dragEnterEvent(QDragEnterEvent*) {}
void ImageView::dropEvent(QDropEvent*) {}

}  // namespace pv::app
