#include <QMimeData>
#include <QSignalSpy>
#include <QtTest>
#include <functional>

#include "app/ImageView.h"

using pv::Picture;
using pv::app::ImageView;

namespace {

using Colours = std::function<QRgb(int x, int y)>;
enum Layout { MeshedRGB, MeshedRGBA, Planar };

// Every pixel tells where it is, so a misplaced one shows.
QRgb coded(int x, int y) {
    return qRgb(x % 256, y % 256, 77 + x / 256 + 2 * (y / 256));
}

// Red left half, green right half.
QRgb halves(int x, int w) {
    return 2 * x < w ? qRgb(255, 0, 0) : qRgb(0, 255, 0);
}

// An opaque picture in one of the layouts the view is handed.
Picture pictureOf(int w, int h, const Colours& colours, Layout layout = MeshedRGB) {
    auto b = pv::Bitmap::create(w, h, layout == MeshedRGBA ? 4 : 3, layout == MeshedRGBA,
                                layout == Planar, 0, true);
    const pv::WritableChannelView rgb = b->writableChannels();
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            for (int k = 0; k < 3; ++k) {
                *rgb.sample(k, y, x) = std::uint8_t(colours(x, y) >> (16 - 8 * k));
            }
            if (layout == MeshedRGBA) {
                b->row(0, y)[4 * x + 3] = 255;
            }
        }
    }
    return Picture::at72dpi(std::move(*b));
}

// The first pixel the 200 x 200 view draws wrongly: inside `drawnAt` not the colour `expected`
// gives, outside not a dark neutral grey. Empty when all are right.
QString mismatch(ImageView& view, const QRect& drawnAt, const Colours& expected) {
    const QImage grabbed = view.grab().toImage().convertToFormat(QImage::Format_RGB32);
    for (int y = 0; y < 200; ++y) {
        for (int x = 0; x < 200; ++x) {
            const QRgb c = grabbed.pixel(x, y);
            const bool grey = qRed(c) == qGreen(c) && qGreen(c) == qBlue(c) && qRed(c) < 100;
            if (drawnAt.contains(x, y) ? c != expected(x, y) : !grey) {
                return QString("pixel (%1, %2) is %3").arg(x).arg(y).arg(c, 8, 16);
            }
        }
    }
    return QString();
}

void show(ImageView& view, const Picture& picture) {
    view.resize(200, 200);
    view.setPicture(picture);
    view.show();
}

void send(ImageView& view, QEvent::Type type, QPointF at, Qt::MouseButtons buttons = {}) {
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, at, view.mapToGlobal(at), button, buttons, Qt::NoModifier);
    QApplication::sendEvent(&view, &event);
}

}  // namespace

class ImageViewTest : public QObject {
    Q_OBJECT

  private slots:
    void fitShowsWholePictureCentredNeverEnlarged_data() {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("layout");
        QTest::addColumn<double>("zoom");
        QTest::addColumn<QRect>("drawnAt");
        QTest::newRow("small: 100 %")
            << QSize(40, 20) << int(MeshedRGB) << 1.0 << QRect(80, 90, 40, 20);
        QTest::newRow("RGBA: 100 %")
            << QSize(40, 20) << int(MeshedRGBA) << 1.0 << QRect(80, 90, 40, 20);
        QTest::newRow("planar: 50 %")
            << QSize(400, 400) << int(Planar) << 0.5 << QRect(0, 0, 200, 200);
        QTest::newRow("wide: 25 %")
            << QSize(800, 200) << int(MeshedRGB) << 0.25 << QRect(0, 75, 200, 50);
    }
    void fitShowsWholePictureCentredNeverEnlarged() {
        QFETCH(QSize, size);
        QFETCH(int, layout);
        QFETCH(double, zoom);
        QFETCH(QRect, drawnAt);
        ImageView view;
        const auto colours = [&](int x, int) { return halves(x, size.width()); };
        show(view, pictureOf(size.width(), size.height(), colours, Layout(layout)));
        QVERIFY(view.fitsToView());
        QCOMPARE(view.zoom(), zoom);
        const QString wrong = mismatch(
            view, drawnAt, [&](int x, int) { return halves(x - drawnAt.left(), drawnAt.width()); });
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
    }

    void reducedPictureIsAreaSampled() {
        // Black and white one-pixel stripes average to grey; sampling would give either.
        ImageView view;
        show(view, pictureOf(400, 400, [](int x, int) { return x % 2 ? qRgb(255, 255, 255) : 0; }));
        QVERIFY2(mismatch(view, QRect(0, 0, 200, 200), [](int, int) { return qRgb(128, 128, 128); })
                     .isEmpty(),
                 "not the mean grey");
    }

    void zoomAndPanShowTheRightPart_data() {
        QTest::addColumn<int>("zoomIns");  // from 100 %
        QTest::addColumn<QLine>("drag");
        QTest::addColumn<int>("wheel");  // at (50, 60)
        QTest::addColumn<bool>("ctrl");
        QTest::addColumn<int>("zoom");
        QTest::addColumn<QPoint>("topLeft");  // the picture pixel then drawn at the top left
        QTest::newRow("100 %: the centre") << 0 << QLine() << 0 << false << 1 << QPoint(100, 100);
        QTest::newRow("dragged") << 0 << QLine(100, 100, 60, 70) << 0 << false << 1
                                 << QPoint(140, 130);
        QTest::newRow("dragged past the corner")
            << 0 << QLine(10, 10, 190, 190) << 0 << false << 1 << QPoint(0, 0);
        QTest::newRow("wheel down") << 0 << QLine() << -120 << false << 1 << QPoint(100, 160);
        QTest::newRow("200 %: sharp blocks") << 2 << QLine() << 0 << false << 2 << QPoint(150, 150);
        QTest::newRow("400 %, dragged")
            << 4 << QLine(100, 100, 60, 60) << 0 << false << 4 << QPoint(185, 185);
        QTest::newRow("ctrl+wheel: 200 % about the pointer")
            << 0 << QLine() << 240 << true << 2 << QPoint(125, 130);
    }
    void zoomAndPanShowTheRightPart() {
        QFETCH(int, zoomIns);
        QFETCH(QLine, drag);
        QFETCH(int, wheel);
        QFETCH(bool, ctrl);
        QFETCH(int, zoom);
        QFETCH(QPoint, topLeft);
        ImageView view;
        show(view, pictureOf(400, 400, coded));
        view.zoomToActualSize();
        for (int i = 0; i < zoomIns; ++i) {
            view.zoomIn();
        }
        send(view, QEvent::MouseButtonPress, drag.p1(), Qt::LeftButton);
        send(view, QEvent::MouseMove, drag.p2(), Qt::LeftButton);
        send(view, QEvent::MouseButtonRelease, drag.p2());
        QWheelEvent turn(QPointF(50, 60), view.mapToGlobal(QPointF(50, 60)), QPoint(),
                         QPoint(0, wheel), Qt::NoButton,
                         ctrl ? Qt::ControlModifier : Qt::NoModifier, Qt::NoScrollPhase, false);
        QApplication::sendEvent(&view, &turn);
        QCOMPARE(view.zoom(), double(zoom));
        // A new version of the picture keeps the place.
        view.setPicture(pictureOf(400, 400, coded, Planar));
        const QString wrong = mismatch(view, QRect(0, 0, 200, 200), [&](int x, int y) {
            return coded(topLeft.x() + x / zoom, topLeft.y() + y / zoom);
        });
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
    }

    // Let go of, a picture is held no more yet stays drawn, and pointing at it reads none of
    // its pixels; the next picture of its size is shown where the user was.
    void releasedPictureStaysDrawnUntilTheNext() {
        ImageView view;
        Picture picture = pictureOf(400, 400, coded);
        show(view, picture);
        view.zoomToActualSize();
        send(view, QEvent::MouseButtonPress, QPointF(100, 100), Qt::LeftButton);
        send(view, QEvent::MouseMove, QPointF(60, 70), Qt::LeftButton);
        send(view, QEvent::MouseButtonRelease, QPointF(60, 70));
        const auto place = [](int x, int y) { return coded(140 + x, 130 + y); };
        view.releasePicture();
        QCOMPARE(picture.bitmap.use_count(), 1L);
        QString wrong = mismatch(view, QRect(0, 0, 200, 200), place);
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
        QSignalSpy hovers(&view, &ImageView::hovered);
        send(view, QEvent::MouseMove, QPointF(50, 50));
        QCOMPARE(hovers.value(0).value(0).toInt(), -1);
        view.setPicture(picture);
        wrong = mismatch(view, QRect(0, 0, 200, 200), place);
        QVERIFY2(wrong.isEmpty(), qPrintable(wrong));
    }

    void hoverReportsPixelAndColour_data() {
        QTest::addColumn<QPointF>("pointer");  // the 40 x 20 picture is drawn at (80, 90)
        QTest::addColumn<QPoint>("pixel");
        QTest::newRow("top-left pixel") << QPointF(80, 90) << QPoint(0, 0);
        QTest::newRow("inside") << QPointF(93.5, 101.7) << QPoint(13, 11);
        QTest::newRow("bottom-right pixel") << QPointF(119.9, 109.9) << QPoint(39, 19);
        QTest::newRow("left of it") << QPointF(79.5, 95) << QPoint(-1, -1);
        QTest::newRow("below it") << QPointF(100, 110) << QPoint(-1, -1);
    }
    void hoverReportsPixelAndColour() {
        QFETCH(QPointF, pointer);
        QFETCH(QPoint, pixel);
        ImageView view;
        show(view, pictureOf(40, 20, coded, Planar));
        QSignalSpy hovers(&view, &ImageView::hovered);
        send(view, QEvent::MouseMove, pointer);
        const QList<QVariant> hovered = hovers.value(0);
        QCOMPARE(QPoint(hovered.value(0).toInt(), hovered.value(1).toInt()), pixel);
        if (pixel.x() >= 0) {
            QCOMPARE(hovered.value(2).value<QRgb>(), coded(pixel.x(), pixel.y()));
        }
    }

    void dropHandsOnFileOrPicture_data() {
        QTest::addColumn<QList<QUrl>>("urls");
        QTest::addColumn<bool>("withImage");
        QTest::addColumn<QString>("file");  // fileDropped's path; empty: not emitted
        QTest::addColumn<bool>("picture");  // pictureDropped emitted
        const QUrl a = QUrl::fromLocalFile("/pictures/a.tif");
        const QUrl web("https://example.org/c.png");
        const QList<QUrl> files{a, QUrl::fromLocalFile("/pictures/b.png")};
        QTest::newRow("files: the first") << files << false << QString("/pictures/a.tif") << false;
        QTest::newRow("a file and its image")
            << QList<QUrl>{web, a} << true << QString("/pictures/a.tif") << false;
        QTest::newRow("a picture") << QList<QUrl>{} << true << QString() << true;
        QTest::newRow("web address only") << QList<QUrl>{web} << false << QString() << false;
        QTest::newRow("text only") << QList<QUrl>{} << false << QString() << false;
    }
    void dropHandsOnFileOrPicture() {
        QFETCH(QList<QUrl>, urls);
        QFETCH(bool, withImage);
        QFETCH(QString, file);
        QFETCH(bool, picture);
        ImageView view;
        QMimeData data;
        data.setText("dropped");
        data.setUrls(urls);
        QImage image(3, 2, QImage::Format_RGB32);
        image.fill(Qt::green);
        if (withImage) {
            data.setImageData(image);
        }
        const Qt::DropActions allowed = Qt::CopyAction | Qt::MoveAction | Qt::LinkAction;
        QDragEnterEvent enter(QPoint(5, 5), allowed, &data, Qt::LeftButton, Qt::NoModifier);
        QDropEvent drop(QPointF(5, 5), allowed, &data, Qt::LeftButton, Qt::NoModifier);
        QSignalSpy files(&view, &ImageView::fileDropped);
        QSignalSpy pictures(&view, &ImageView::pictureDropped);
        for (QDropEvent* event : {static_cast<QDropEvent*>(&enter), &drop}) {
            QApplication::sendEvent(&view, event);
            QCOMPARE(event->isAccepted(), !file.isEmpty() || picture);
            QVERIFY(event->dropAction() != Qt::MoveAction);  // the source keeps its file
        }
        QCOMPARE(files.value(0).value(0).toString(), file);
        QCOMPARE(pictures.size(), int(picture));
        if (picture) {
            QCOMPARE(pictures[0][0].value<QImage>().convertToFormat(QImage::Format_RGB32), image);
        }
    }
};

QTEST_MAIN(ImageViewTest)
#include "ImageViewTest.moc"
