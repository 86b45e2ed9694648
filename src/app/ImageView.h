#pragma once

#include <QImage>
#include <QWidget>
#include <optional>
#include <string>

#include "background/BackgroundCorrection.h"
#include "image/Picture.h"

namespace pv::app {

// The main image view (`roiPreview`, the image cropping view): shows the controller's picture
// at fit zoom or any zoom the user picks, panned by dragging or scrolling, from one cached,
// display-sized rendering (a repaint never converts the full-size bitmap). Accepts a dropped
// image file or picture and hands it on; it keeps no picture of its own beyond what it shows.
class ImageView : public QWidget {
    Q_OBJECT

  public:
    explicit ImageView(QWidget* parent = nullptr);

    void setPicture(const Picture& picture);
    const Picture& picture() const { return picture_; }
    // Lets go of the picture (so that its memory may be painted over) but keeps what is drawn
    // of it on screen, reading no pixel, until the next setPicture; that one keeps the user's
    // place when the size is the same.
    void releasePicture();

    // Fit: the whole picture in the view, never enlarged beyond 100 %.
    bool fitsToView() const { return fit_; }
    double zoom() const;  // display pixels per picture pixel
    void zoomToFit();
    void zoomToActualSize();
    void zoomIn();
    void zoomOut();

    QSize sizeHint() const override;

    // Tints the pixels that a background correction with these settings would black out, over
    // the picture, without changing it; none: no tint. Worked out for the drawn pixels only,
    // so that a slider can drive it on any size of picture.
    void setBackgroundPreview(const std::optional<BackgroundSettings>& settings);
    const std::optional<BackgroundSettings>& backgroundPreview() const { return preview_; }
    static constexpr QRgb kPreviewTint = qRgba(0, 255, 255, 150);

    // Lines over the picture: an 8-bit indexed image of the picture's size whose colour table
    // gives each index its colour (index 0 transparent). A drawn pixel takes the colour of the
    // highest index among the picture pixels it stands for, so that a reduced view keeps
    // one-pixel lines. A null image, or one of another size than the picture, draws nothing.
    void setOutline(const QImage& outline);

  signals:
    // A file was dropped (its path), or a picture without a file.
    void fileDropped(const QString& path);
    void pictureDropped(const QImage& image);
    // The pointer is over picture pixel (x, y) from the top left, whose colour is rgb; or has
    // left the picture (x = -1).
    void hovered(int x, int y, QRgb rgb);
    // A click (a press and release without dragging) on picture pixel (x, y).
    void clicked(int x, int y);

  protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void leaveEvent(QEvent* event) override;
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dropEvent(QDropEvent* event) override;

  private:
    QPointF viewCentre() const;
    void zoomAbout(double zoom, const QPointF& anchor);
    // Places the picture for the zoom, pan and size, and renders what of it is visible.
    void relayout();
    QImage panned(const QRect& part) const;
    void reportHover(const QPointF& position);
    // The tint over cachePart_, for the preview settings.
    void renderPreview();
    // The outline over cachePart_.
    void renderOutline();
    // The picture pixel under a point of the view; nothing outside the picture.
    std::optional<QPoint> pixelAt(const QPointF& position) const;

    Picture picture_;
    QImage image_;       // wraps the picture's pixels
    QSize pictureSize_;  // kept while the picture is let go of
    bool fit_ = true;
    double zoom_ = 1.0;
    QPointF pan_;      // picture point shown at the view's centre
    QPoint origin_;    // where the picture's top-left corner is drawn
    QSize shown_;      // the picture's drawn size
    QImage cache_;     // the visible part, drawn: all that a repaint touches
    QRect cachePart_;  // which part, from the drawn picture's top left
    std::optional<BackgroundSettings> preview_;
    QImage previewTint_;   // over cache_, the same size
    QImage outline_;       // indexed, the picture's size
    QImage outlineDrawn_;  // over cache_, the same size
    std::optional<QPointF> pressedAt_;
    std::optional<QPointF> dragFrom_;
    QPointF dragPan_;
};

}  // namespace pv::app
