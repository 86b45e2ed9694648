#include "app/ImageView.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QRegion>
#include <QUrl>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "app/QtPictures.h"
#include "core/ParallelRows.h"

namespace pv::app {

namespace {

const QColor kBackground(48, 48, 48);
constexpr double kMinZoom = 1.0 / 64.0;
constexpr double kMaxZoom = 32.0;
const double kZoomStep = std::sqrt(2.0);
// One wheel notch (120 eighths of a degree) zooms one step or pans 60 display pixels.
constexpr double kAnglePerStep = 120.0;
constexpr double kPanPerAngle = 0.5;

// The source pixels [begin, end) behind one drawn pixel along one axis.
struct Span {
    int begin;
    int end;
};

// The picture pixel nearest the centre of drawn pixel i, when `length` picture pixels are
// drawn `shown` pixels long; integer arithmetic, so that drawing and pointing agree exactly.
int centreOf(std::int64_t i, std::int64_t length, std::int64_t shown) {
    return int((2 * i + 1) * length / (2 * shown));
}

// For `count` drawn pixels from index `first`: reduced, each covers its whole box of picture
// pixels (area sampling); enlarged, the one nearest its centre (sharp blocks).
std::vector<Span> spansOf(int first, int count, int length, int shown) {
    std::vector<Span> spans(std::size_t(std::max(count, 0)));
    for (int k = 0; k < count; ++k) {
        const std::int64_t i = first + k;
        if (shown < length) {
            spans[std::size_t(k)] = {int(i * length / shown), int((i + 1) * length / shown)};
        } else {
            const int c = centreOf(i, length, shown);
            spans[std::size_t(k)] = {c, c + 1};
        }
    }
    return spans;
}

// Sample by sample, the sums over the rows `y` of `source` of the bytes from `first` on.
// A plain loop over contiguous bytes, which the compiler vectorises: the step that reads every
// byte of the picture.
void sumRows(const QImage& source, Span y, std::ptrdiff_t first, std::vector<std::uint32_t>& sums) {
    std::fill(sums.begin(), sums.end(), 0u);
    for (int row = y.begin; row < y.end; ++row) {
        const uchar* line = source.constScanLine(row) + first;
        std::uint32_t* s = sums.data();
        for (std::size_t i = 0; i < sums.size(); ++i) {
            s[i] += line[i];
        }
    }
}

// One drawn pixel per box of `xs`, the mean of the column sums that `rows` rows gave.
template <int Bytes>
void writeMeans(const std::vector<std::uint32_t>& sums, const std::vector<Span>& xs, int rows,
                QRgb* out) {
    const int first = xs.front().begin;
    for (const Span& x : xs) {
        const std::uint64_t n = std::uint64_t(x.end - x.begin) * std::uint64_t(rows);
        std::uint64_t t[4] = {0, 0, 0, Bytes == 4 ? 0 : 255 * n};
        const std::uint32_t* p = sums.data() + std::ptrdiff_t(x.begin - first) * Bytes;
        for (int c = x.begin; c < x.end; ++c, p += Bytes) {
            for (int k = 0; k < Bytes; ++k) {
                t[k] += p[k];
            }
        }
        const double inverse = 1.0 / double(n);
        auto mean = [&](int k) { return int(double(t[k]) * inverse + 0.5); };
        *out++ = qRgba(mean(0), mean(1), mean(2), mean(3));
    }
}

// The mean of each box of `source` (meshed 8-bit RGB or RGBA, `Bytes` a pixel) as one pixel
// of the result. Reads each source pixel once, in row order, on all cores: this is what keeps
// the fit view of a 100-megapixel picture quick, where a smooth QImage::scaled is not.
template <int Bytes>
QImage boxMeans(const QImage& source, const std::vector<Span>& xs, const std::vector<Span>& ys) {
    QImage out(int(xs.size()), int(ys.size()),
               Bytes == 4 ? QImage::Format_ARGB32 : QImage::Format_RGB32);
    if (out.isNull()) {
        return out;
    }
    uchar* outBits = out.bits();
    const qsizetype outStride = out.bytesPerLine();
    const std::size_t width = std::size_t(xs.back().end - xs.front().begin);
    const std::int64_t boxRows = ys.front().end - ys.front().begin;
    const unsigned workers = workersFor(std::int64_t(ys.size()), boxRows * std::int64_t(width), 0);
    auto work = [&](unsigned, std::int64_t firstRow, std::int64_t endRow) {
        std::vector<std::uint32_t> sums(width * Bytes);
        for (std::int64_t r = firstRow; r < endRow; ++r) {
            const Span y = ys[std::size_t(r)];
            sumRows(source, y, std::ptrdiff_t(xs.front().begin) * Bytes, sums);
            writeMeans<Bytes>(sums, xs, y.end - y.begin,
                              reinterpret_cast<QRgb*>(outBits + r * outStride));
        }
    };
    forEachRowBlock(std::int64_t(ys.size()), workers, work);
    return out;
}

// Boxes of one or two pixels would look ragged: reductions milder than 50 % go to Qt's smooth
// scaling, cheap there because the region read is at most twice the drawn size.
bool isMildlyReduced(int length, int shown) {
    return shown < length && 2 * shown > length;
}

// The pixels `part` (from the drawn picture's top left) of `source` drawn `shown` large, ready
// to paint without conversion.
QImage rendering(const QImage& source, QSize shown, const QRect& part) {
    const std::vector<Span> xs = spansOf(part.left(), part.width(), source.width(), shown.width());
    const std::vector<Span> ys =
        spansOf(part.top(), part.height(), source.height(), shown.height());
    QImage out;
    if (isMildlyReduced(source.width(), shown.width())) {
        const QRect region(QPoint(xs.front().begin, ys.front().begin),
                           QPoint(xs.back().end - 1, ys.back().end - 1));
        const QImage read = region == source.rect() ? source : source.copy(region);
        out = read.scaled(part.size(), Qt::IgnoreAspectRatio, Qt::SmoothTransformation);
    } else if (source.hasAlphaChannel()) {
        out = boxMeans<4>(source, xs, ys);
    } else {
        out = boxMeans<3>(source, xs, ys);
    }
    return out.convertToFormat(source.hasAlphaChannel() ? QImage::Format_ARGB32_Premultiplied
                                                        : QImage::Format_RGB32);
}

// The next zoom on the grid of powers of sqrt(2), `steps` steps up (or down when negative).
double steppedZoom(double zoom, int steps) {
    const double at = 2.0 * std::log2(zoom);
    const double grid = steps > 0 ? std::floor(at + 1e-6) : std::ceil(at - 1e-6);
    return std::exp2((grid + steps) / 2.0);
}

// The pan along one axis: centred when the picture fits, else kept from showing beyond it.
double clampedPan(double pan, int length, int shown, int view, double zoom) {
    if (shown <= view) {
        return length / 2.0;
    }
    const double half = view / (2.0 * zoom);
    return std::clamp(pan, half, length - half);
}

// Where the picture's first pixel is drawn along one axis.
int originOf(double pan, int shown, int view, double zoom) {
    if (shown <= view) {
        return (view - shown) / 2;
    }
    return std::clamp(int(std::lround(view / 2.0 - pan * zoom)), view - shown, 0);
}

// The first local file among the drag's URLs, or an empty string.
QString firstLocalFile(const QMimeData* data) {
    for (const QUrl& url : data->urls()) {
        if (url.isLocalFile()) {
            return url.toLocalFile();
        }
    }
    return QString();
}

// Takes a drag that carries a local file or a picture. The view only reads what is dropped, so
// it never takes a move (that would let the source delete its file): copy or link, whichever
// the source proposes or allows.
bool accepted(QDropEvent* event) {
    const QMimeData* data = event->mimeData();
    Qt::DropAction action = Qt::IgnoreAction;
    if (data != nullptr && (!firstLocalFile(data).isEmpty() || data->hasImage())) {
        for (const Qt::DropAction a : {event->proposedAction(), Qt::CopyAction, Qt::LinkAction}) {
            if ((a == Qt::CopyAction || a == Qt::LinkAction) && event->possibleActions() & a) {
                action = a;
                break;
            }
        }
    }
    if (action == Qt::IgnoreAction) {
        event->ignore();
        return false;
    }
    event->setDropAction(action);
    event->accept();
    return true;
}

}  // namespace

ImageView::ImageView(QWidget* parent) : QWidget(parent) {
    setAcceptDrops(true);
    setMouseTracking(true);
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void ImageView::setPicture(const Picture& picture) {
    // A new version of the same picture (corrected, revealed) keeps the user's place in it.
    const QSize size(picture.pixelsWide(), picture.pixelsHigh());
    if (size != pictureSize_) {
        pan_ = QPointF(size.width() / 2.0, size.height() / 2.0);
    }
    pictureSize_ = size;
    picture_ = picture;
    image_ = imageOf(picture);
    cache_ = QImage();
    relayout();
}

void ImageView::releasePicture() {
    // The cache and the tint are renderings of their own, not views of the picture's pixels.
    picture_ = Picture();
    image_ = QImage();
}

double ImageView::zoom() const {
    if (!fit_) {
        return zoom_;
    }
    if (image_.isNull()) {
        return 1.0;
    }
    return std::min({1.0, double(width()) / image_.width(), double(height()) / image_.height()});
}

void ImageView::zoomToFit() {
    fit_ = true;
    relayout();
}

void ImageView::zoomToActualSize() {
    zoomAbout(1.0, viewCentre());
}

void ImageView::zoomIn() {
    zoomAbout(steppedZoom(zoom(), 1), viewCentre());
}

void ImageView::zoomOut() {
    zoomAbout(steppedZoom(zoom(), -1), viewCentre());
}

QSize ImageView::sizeHint() const {
    return QSize(640, 480);
}

void ImageView::setBackgroundPreview(const std::optional<BackgroundSettings>& settings) {
    preview_ = settings;
    renderPreview();
    update();
}

void ImageView::setOutline(const QImage& outline) {
    outline_ = outline;
    renderOutline();
    update();
}

void ImageView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.fillRect(rect(), kBackground);
    painter.drawImage(origin_ + cachePart_.topLeft(), cache_);
    if (!previewTint_.isNull()) {
        painter.drawImage(origin_ + cachePart_.topLeft(), previewTint_);
    }
    if (!outlineDrawn_.isNull()) {
        painter.drawImage(origin_ + cachePart_.topLeft(), outlineDrawn_);
    }
}

void ImageView::resizeEvent(QResizeEvent*) {
    relayout();
}

void ImageView::wheelEvent(QWheelEvent* event) {
    if (image_.isNull()) {
        event->ignore();
        return;
    }
    if (event->modifiers().testFlag(Qt::ControlModifier)) {
        const double steps = event->angleDelta().y() / kAnglePerStep;
        zoomAbout(zoom() * std::pow(kZoomStep, steps), event->position());
    } else {
        const QPointF delta = event->pixelDelta().isNull()
                                  ? QPointF(event->angleDelta()) * kPanPerAngle
                                  : QPointF(event->pixelDelta());
        pan_ -= delta / zoom();
        relayout();
    }
    event->accept();
}

void ImageView::mousePressEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        pressedAt_ = event->position();
    }
    const bool larger = shown_.width() > width() || shown_.height() > height();
    if (event->button() == Qt::LeftButton && !image_.isNull() && larger) {
        dragFrom_ = event->position();
        dragPan_ = pan_;
        setCursor(Qt::ClosedHandCursor);
    }
}

void ImageView::mouseMoveEvent(QMouseEvent* event) {
    if (dragFrom_) {
        pan_ = dragPan_ - (event->position() - *dragFrom_) / zoom();
        relayout();
    }
    reportHover(event->position());
}

void ImageView::mouseReleaseEvent(QMouseEvent* event) {
    // A pointer that stayed within a few pixels clicked; one that went further dragged.
    if (event->button() == Qt::LeftButton && pressedAt_ &&
        (event->position() - *pressedAt_).manhattanLength() <= 3) {
        if (const std::optional<QPoint> at = pixelAt(event->position())) {
            emit clicked(at->x(), at->y());
        }
    }
    pressedAt_.reset();
    if (event->button() == Qt::LeftButton && dragFrom_) {
        dragFrom_.reset();
        unsetCursor();
    }
}

void ImageView::leaveEvent(QEvent*) {
    emit hovered(-1, -1, 0);
}

void ImageView::dragEnterEvent(QDragEnterEvent* event) {
    accepted(event);
}

void ImageView::dropEvent(QDropEvent* event) {
    if (!accepted(event)) {
        return;
    }
    const QString path = firstLocalFile(event->mimeData());
    if (!path.isEmpty()) {
        emit fileDropped(path);
    } else {
        emit pictureDropped(qvariant_cast<QImage>(event->mimeData()->imageData()));
    }
}

QPointF ImageView::viewCentre() const {
    return QPointF(width() / 2.0, height() / 2.0);
}

void ImageView::zoomAbout(double zoom, const QPointF& anchor) {
    // The picture point under the anchor stays under it. Worked out from the pan, not from the
    // rounded drawing, so that zooming in and out again comes back to the same place.
    const QPointF offset = anchor - viewCentre();
    const QPointF at = pan_ + offset / this->zoom();
    zoom_ = std::clamp(zoom, kMinZoom, kMaxZoom);
    pan_ = at - offset / zoom_;
    fit_ = false;
    relayout();
}

void ImageView::relayout() {
    if (image_.isNull()) {
        cache_ = QImage();
        update();
        return;
    }
    const double z = zoom();
    const int w = image_.width();
    const int h = image_.height();
    const QSize shown(std::max(1, int(std::lround(w * z))), std::max(1, int(std::lround(h * z))));
    pan_ = QPointF(clampedPan(pan_.x(), w, shown.width(), width(), z),
                   clampedPan(pan_.y(), h, shown.height(), height(), z));
    origin_ = QPoint(originOf(pan_.x(), shown.width(), width(), z),
                     originOf(pan_.y(), shown.height(), height(), z));
    const QRect part = (QRect(origin_, shown) & rect()).translated(-origin_);
    const bool sameScale =
        !cache_.isNull() && shown == shown_ && !isMildlyReduced(w, shown.width());
    if (part.isEmpty()) {
        cache_ = QImage();
    } else {
        cache_ = sameScale ? panned(part) : rendering(image_, shown, part);
    }
    shown_ = shown;
    cachePart_ = part;
    renderPreview();
    renderOutline();
    update();
}

void ImageView::renderPreview() {
    if (!preview_ || cache_.isNull() || picture_.isEmpty()) {
        previewTint_ = QImage();
        return;
    }
    // Each drawn pixel stands for the picture pixel nearest its centre, as pointing at it
    // reports: reading one pixel per drawn pixel keeps a slider step display-sized.
    const QRect part = cachePart_;
    std::vector<std::int64_t> columns(std::size_t(part.width()));
    for (int i = 0; i < part.width(); ++i) {
        columns[std::size_t(i)] = centreOf(part.left() + i, image_.width(), shown_.width());
    }
    QImage tint(part.size(), QImage::Format_ARGB32_Premultiplied);
    if (tint.isNull()) {
        previewTint_ = QImage();
        return;
    }
    // Rows are written through one pointer taken here: scanLine() on several threads would
    // race on the image's bookkeeping.
    uchar* const bits = tint.bits();
    const qsizetype stride = tint.bytesPerLine();
    const ChannelView rgb = picture_.bitmap->channels();
    const BackgroundSettings settings = *preview_;
    const QRgb on = qPremultiply(kPreviewTint);
    auto work = [&](unsigned, std::int64_t first, std::int64_t end) {
        for (std::int64_t line = first; line < end; ++line) {
            const std::int64_t y = centreOf(part.top() + line, image_.height(), shown_.height());
            const std::uint8_t* red = rgb.sample(0, y, 0);
            const std::uint8_t* green = rgb.sample(1, y, 0);
            const std::uint8_t* blue = rgb.sample(2, y, 0);
            auto* out = reinterpret_cast<QRgb*>(bits + line * stride);
            for (std::size_t i = 0; i < columns.size(); ++i) {
                const std::ptrdiff_t at = columns[i] * rgb.pixelStride;
                out[i] = backgroundCovers(settings, red[at], green[at], blue[at]) ? on : 0;
            }
        }
    };
    forEachRowBlock(part.height(), workersFor(part.height(), part.width(), 0), work);
    previewTint_ = std::move(tint);
}

QImage ImageView::panned(const QRect& part) const {
    // At the same scale a drawn pixel renders the same wherever it is: keep the overlap and
    // render only the strips that panning reveals.
    QImage next(part.size(), cache_.format());
    QPainter painter(&next);
    painter.setCompositionMode(QPainter::CompositionMode_Source);
    painter.drawImage(cachePart_.topLeft() - part.topLeft(), cache_);
    for (const QRect& strip : QRegion(part).subtracted(cachePart_)) {
        painter.drawImage(strip.topLeft() - part.topLeft(), rendering(image_, shown_, strip));
    }
    painter.end();
    return next;
}

std::optional<QPoint> ImageView::pixelAt(const QPointF& position) const {
    const int column = int(std::floor(position.x())) - origin_.x();
    const int line = int(std::floor(position.y())) - origin_.y();
    if (image_.isNull() || column < 0 || line < 0 || column >= shown_.width() ||
        line >= shown_.height()) {
        return std::nullopt;
    }
    return QPoint(centreOf(column, image_.width(), shown_.width()),
                  centreOf(line, image_.height(), shown_.height()));
}

void ImageView::renderOutline() {
    if (outline_.isNull() || cache_.isNull() || outline_.size() != pictureSize_) {
        outlineDrawn_ = QImage();
        return;
    }
    const QRect part = cachePart_;
    const std::vector<Span> xs =
        spansOf(part.left(), part.width(), pictureSize_.width(), shown_.width());
    const std::vector<Span> ys =
        spansOf(part.top(), part.height(), pictureSize_.height(), shown_.height());
    QImage drawn(part.size(), QImage::Format_ARGB32_Premultiplied);
    if (drawn.isNull()) {
        outlineDrawn_ = QImage();
        return;
    }
    QList<QRgb> colours = outline_.colorTable();
    for (QRgb& c : colours) {
        c = qPremultiply(c);
    }
    if (!colours.isEmpty()) {
        colours[0] = 0;
    }
    uchar* const bits = drawn.bits();
    const qsizetype stride = drawn.bytesPerLine();
    const uchar* const from = outline_.constBits();
    const qsizetype fromStride = outline_.bytesPerLine();
    auto work = [&](unsigned, std::int64_t first, std::int64_t end) {
        for (std::int64_t line = first; line < end; ++line) {
            const Span y = ys[std::size_t(line)];
            auto* out = reinterpret_cast<QRgb*>(bits + line * stride);
            for (std::size_t i = 0; i < xs.size(); ++i) {
                uchar most = 0;
                for (int r = y.begin; r < y.end; ++r) {
                    const uchar* row = from + r * fromStride;
                    for (int c = xs[i].begin; c < xs[i].end; ++c) {
                        most = std::max(most, row[c]);
                    }
                }
                out[i] = most < colours.size() ? colours[most] : 0;
            }
        }
    };
    forEachRowBlock(part.height(), workersFor(part.height(), part.width(), 0), work);
    outlineDrawn_ = std::move(drawn);
}

void ImageView::reportHover(const QPointF& position) {
    const std::optional<QPoint> at = pixelAt(position);
    if (!at) {
        emit hovered(-1, -1, 0);
        return;
    }
    const int x = at->x();
    const int y = at->y();
    const ChannelView rgb = picture_.bitmap->channels();
    emit hovered(x, y, qRgb(*rgb.sample(0, y, x), *rgb.sample(1, y, x), *rgb.sample(2, y, x)));
}

}  // namespace pv::app
