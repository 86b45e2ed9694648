#pragma once

#include <QImage>
#include <QTransform>
#include <QWidget>
#include <optional>

#include "image/Picture.h"
#include "roi/ScatterGramView.h"

namespace pv::app {

// The scatter-gram view (`scatterGramGraph`): draws the 256 x 256 scatter gram at an integer
// zoom (1x, or 2x when there is room), sharp pixels, origin at the bottom left, with the
// region's marker on top, and forwards the mouse to the region object in scatter-gram
// coordinates (one unit per intensity level, y up), so that what the engine counts is exactly
// what is drawn. It decides nothing: the region object and the controller do.
class ScatterGramWidget : public QWidget {
    Q_OBJECT

  public:
    explicit ScatterGramWidget(QWidget* parent = nullptr);

    // The region object the mouse goes to; owned by the controller, which outlives the window.
    void setRegionView(CROI_ScatterGramCroppingImageView* view);
    void setPicture(const Picture& scatterGram);
    // Lines across the picture at an X and a Y intensity (x, y), each covering that level's
    // cells so that what lies beyond it is what the threshold keeps; none without.
    void setThresholdLines(std::optional<QPoint> levels);
    std::optional<QPoint> thresholdLines() const { return thresholds_; }

    // 1 or 2, from the widget's size.
    int zoom() const;
    // Where the scatter gram's top-left corner is drawn, in widget pixels.
    QPoint pictureOrigin() const;
    // Widget position to scatter-gram coordinates (X intensity, Y intensity), and back.
    QPointF toScatterGram(const QPointF& widgetPosition) const;
    QPointF toWidget(const QPointF& scatterGramPoint) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

  signals:
    // The pointer is over the scatter-gram point (x, y), or has left it (-1, -1).
    void hovered(int x, int y);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;

  private:
    using MouseHandler = void (CROI_ScatterGramCroppingImageView::*)(const MouseEvent&);

    // Scatter-gram coordinates to widget pixels, for painting and toWidget alike.
    QTransform scatterGramTransform() const;
    // The scatter-gram point under the centre of the screen pixel at the event's position.
    QPointF scatterGramPointAt(const QPointF& widgetPosition) const;
    void forward(MouseHandler handler, const QMouseEvent& event);
    void setHoveredCell(const QPoint& cell);

    CROI_ScatterGramCroppingImageView* view_ = nullptr;
    QImage image_;
    // Qt reports the second press of a double-click as a double-click event, and its release
    // as a plain one; the marker wants both with a click count of 2.
    int clickCount_ = 1;
    QPoint hoveredCell_{-1, -1};
    std::optional<QPoint> thresholds_;
};

}  // namespace pv::app
