#include "app/ScatterGramWidget.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <cmath>

#include "app/QtPictures.h"

namespace pv::app {

namespace {

constexpr int kLevels = 256;
// Room on each side of the picture for its frame.
constexpr int kInset = 2;

// The widget's side that shows the whole picture, framed, at the zoom.
constexpr int sideFor(int zoom) {
    return kLevels * zoom + 2 * kInset;
}

Modifiers modifiersOf(Qt::KeyboardModifiers keys) {
    return Modifiers{.shift = keys.testFlag(Qt::ShiftModifier),
                     .control = keys.testFlag(Qt::ControlModifier),
                     .option = keys.testFlag(Qt::AltModifier),
                     .command = keys.testFlag(Qt::MetaModifier)};
}

QPointF qtPoint(Point p) {
    return QPointF(p.x, p.y);
}

QPainterPath painterPathOf(const Path& path) {
    QPainterPath out;
    out.setFillRule(Qt::WindingFill);  // the engine's containment rule
    for (int i = 0; i < path.elementCount(); ++i) {
        const Path::Element& e = path.element(i);
        switch (e.kind) {
            case Path::ElementKind::MoveTo:
                out.moveTo(qtPoint(e.points[0]));
                break;
            case Path::ElementKind::LineTo:
                out.lineTo(qtPoint(e.points[0]));
                break;
            case Path::ElementKind::CurveTo:
                out.cubicTo(qtPoint(e.points[0]), qtPoint(e.points[1]), qtPoint(e.points[2]));
                break;
            case Path::ElementKind::ClosePath:
                out.closeSubpath();
                break;
        }
    }
    return out;
}

// The marker drawn through a painter already set to scatter-gram coordinates.
class QtMarkerPainter final : public MarkerPainter {
  public:
    explicit QtMarkerPainter(QPainter& painter) : painter_(painter) {}

    void fillPath(const Path& path, const Color& color) override {
        painter_.fillPath(painterPathOf(path), qtColor(color));
    }

    void strokePath(const Path& path, const Color& color, float lineWidth) override {
        // Cosmetic, so that at either zoom the outline is one screen pixel wide and runs
        // through the very pixels that were clicked.
        QPen pen(qtColor(color), lineWidth);
        pen.setCosmetic(true);
        painter_.strokePath(painterPathOf(path), pen);
    }

  private:
    QPainter& painter_;
};

}  // namespace

ScatterGramWidget::ScatterGramWidget(QWidget* parent) : QWidget(parent) {
    setMouseTracking(true);  // for the hovered point
}

void ScatterGramWidget::setRegionView(CROI_ScatterGramCroppingImageView* view) {
    view_ = view;
    update();
}

void ScatterGramWidget::setPicture(const Picture& scatterGram) {
    image_ = imageOf(scatterGram);
    update();
}

void ScatterGramWidget::setThresholdLines(std::optional<QPoint> levels) {
    if (levels != thresholds_) {
        thresholds_ = levels;
        update();
    }
}

int ScatterGramWidget::zoom() const {
    return width() >= sideFor(2) && height() >= sideFor(2) ? 2 : 1;
}

QPoint ScatterGramWidget::pictureOrigin() const {
    const int side = kLevels * zoom();
    return QPoint((width() - side) / 2, (height() - side) / 2);
}

QTransform ScatterGramWidget::scatterGramTransform() const {
    const qreal z = zoom();
    const QPoint o = pictureOrigin();
    return QTransform(z, 0.0, 0.0, -z, o.x(), o.y() + kLevels * z);
}

QPointF ScatterGramWidget::toScatterGram(const QPointF& p) const {
    const qreal z = zoom();
    const QPoint o = pictureOrigin();
    return QPointF((p.x() - o.x()) / z, kLevels - (p.y() - o.y()) / z);
}

QPointF ScatterGramWidget::toWidget(const QPointF& p) const {
    return scatterGramTransform().map(p);
}

QPointF ScatterGramWidget::scatterGramPointAt(const QPointF& widgetPosition) const {
    // An event's position is the top-left corner of the pixel under the pointer; its centre
    // lies inside the cell that pixel shows, where the corner would fall on the cell above.
    const qreal half = 0.5 / devicePixelRatioF();
    return toScatterGram(widgetPosition + QPointF(half, half));
}

QSize ScatterGramWidget::sizeHint() const {
    return QSize(sideFor(2), sideFor(2));
}

QSize ScatterGramWidget::minimumSizeHint() const {
    return QSize(sideFor(1), sideFor(1));
}

void ScatterGramWidget::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const QRect picture(pictureOrigin(), QSize(kLevels, kLevels) * zoom());
    painter.setPen(palette().color(QPalette::Dark));
    painter.drawRect(picture.adjusted(-1, -1, 0, 0));
    if (!image_.isNull()) {
        painter.drawImage(picture, image_);  // no smooth transform: sharp levels
    }
    if (thresholds_) {
        // Cyan stands apart from the red, green and yellow of the points.
        const QColor line(0, 200, 255);
        const int z = zoom();
        painter.fillRect(
            QRect(picture.left() + thresholds_->x() * z, picture.top(), z, picture.height()), line);
        painter.fillRect(QRect(picture.left(), picture.top() + (kLevels - 1 - thresholds_->y()) * z,
                               picture.width(), z),
                         line);
    }
    if (view_ == nullptr) {
        return;
    }
    // The region may reach past the picture; the picture is all the engine counts.
    painter.setClipRect(picture);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setTransform(scatterGramTransform());
    QtMarkerPainter marker(painter);
    view_->drawRect(marker);
}

void ScatterGramWidget::forward(MouseHandler handler, const QMouseEvent& event) {
    if (view_ == nullptr) {
        return;
    }
    const QPointF p = scatterGramPointAt(event.position());
    (view_->*handler)(MouseEvent{.location = {float(p.x()), float(p.y())},
                                 .modifiers = modifiersOf(event.modifiers()),
                                 .clickCount = clickCount_});
    update();
}

void ScatterGramWidget::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        clickCount_ = 1;
        forward(&CROI_ScatterGramCroppingImageView::mouseDown, *event);
    }
}

void ScatterGramWidget::mouseMoveEvent(QMouseEvent* event) {
    const QPointF p = scatterGramPointAt(event->position());
    const bool inside = p.x() >= 0 && p.x() < kLevels && p.y() >= 0 && p.y() < kLevels;
    setHoveredCell(inside ? QPoint(int(std::floor(p.x())), int(std::floor(p.y())))
                          : QPoint(-1, -1));
    if (event->buttons().testFlag(Qt::LeftButton)) {
        forward(&CROI_ScatterGramCroppingImageView::mouseDragged, *event);
    }
}

void ScatterGramWidget::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        forward(&CROI_ScatterGramCroppingImageView::mouseUp, *event);
    }
}

void ScatterGramWidget::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        clickCount_ = 2;
        forward(&CROI_ScatterGramCroppingImageView::mouseDown, *event);
    }
}

void ScatterGramWidget::leaveEvent(QEvent*) {
    setHoveredCell(QPoint(-1, -1));
}

void ScatterGramWidget::setHoveredCell(const QPoint& cell) {
    if (cell != hoveredCell_) {
        hoveredCell_ = cell;
        emit hovered(cell.x(), cell.y());
    }
}

}  // namespace pv::app
