#include <QApplication>
#include <QMouseEvent>
#include <QSignalSpy>
#include <QTest>
#include <cmath>

#include "app/ScatterGramWidget.h"
#include "core/UserPreferences.h"
#include "roi/ScatterGramView.h"

using pv::SelectionTool;
using pv::app::ScatterGramWidget;

Q_DECLARE_METATYPE(pv::SelectionTool)
Q_DECLARE_METATYPE(pv::Modifiers)

namespace {

// Lines drawn through scatter-gram cells (X, Y), one press-to-release gesture each.
using Strokes = QList<QList<QPoint>>;

// A region object and the widget that draws it and feeds it the mouse.
struct Scene {
    pv::UserPreferences prefs;
    pv::CROI_ScatterGramCroppingImageView view{prefs};
    ScatterGramWidget widget;

    Scene(int zoom, SelectionTool tool) {
        view.selectionMarkerStyle(tool);
        widget.setRegionView(&view);
        widget.resize(zoom == 2 ? QSize(561, 530) : QSize(301, 287));
    }
};

// The top-left screen pixel of those showing the cell.
QPoint screenPixelOf(const ScatterGramWidget& widget, const QPoint& cell) {
    return widget.toWidget(QPointF(cell.x(), cell.y() + 1)).toPoint();
}

// Where a click on that pixel lands in the scatter gram: the pixel's centre.
QPointF clickedPoint(const ScatterGramWidget& widget, const QPoint& pixel) {
    return widget.toScatterGram(QPointF(pixel) + QPointF(0.5, 0.5));
}

struct Move {
    QTest::MouseAction action;
    QPoint cell;
};

// A drag for the rectangle, oval and lasso; for the polygon a dragged first edge, a click per
// further vertex and a double-click on the last, which Qt reports as a press, a release, a
// double-click and a release.
QList<Move> gestureThrough(SelectionTool tool, const QList<QPoint>& cells) {
    using enum QTest::MouseAction;
    QList<Move> moves{{MousePress, cells.front()}};
    if (tool == SelectionTool::Polygon) {
        moves << Move{MouseMove, cells[1]} << Move{MouseRelease, cells[1]};
        for (qsizetype k = 2; k < cells.size(); ++k) {
            moves << Move{MousePress, cells[k]} << Move{MouseRelease, cells[k]};
        }
        return moves << Move{MouseDClick, cells.back()} << Move{MouseRelease, cells.back()};
    }
    for (qsizetype k = 1; k < cells.size(); ++k) {
        moves << Move{MouseMove, cells[k]};
    }
    return moves << Move{MouseRelease, cells.back()};
}

void playOnWidget(ScatterGramWidget& widget, const QList<Move>& moves, Qt::KeyboardModifiers keys) {
    for (const Move& m : moves) {
        // A move carries the button held since the press.
        const Qt::MouseButton button = m.action == QTest::MouseMove ? Qt::NoButton : Qt::LeftButton;
        QTest::mouseEvent(m.action, &widget, button, keys, screenPixelOf(widget, m.cell));
    }
}

// The same moves as the platform hands them to the region object: the second press of a
// double-click, and its release, have a click count of 2.
void playOnRegion(pv::CROI_ScatterGramCroppingImageView& view, const ScatterGramWidget& widget,
                  const QList<Move>& moves, const pv::Modifiers& keys) {
    int clicks = 1;
    for (const Move& m : moves) {
        if (m.action == QTest::MousePress || m.action == QTest::MouseDClick) {
            clicks = m.action == QTest::MousePress ? 1 : 2;
        }
        const QPointF p = clickedPoint(widget, screenPixelOf(widget, m.cell));
        const pv::MouseEvent e{{float(p.x()), float(p.y())}, keys, clicks};
        if (m.action == QTest::MouseMove) {
            view.mouseDragged(e);
        } else if (m.action == QTest::MouseRelease) {
            view.mouseUp(e);
        } else {
            view.mouseDown(e);
        }
    }
}

// The scatter-gram points (whole levels) inside the region's outline.
QList<QPoint> pointsInside(const pv::Path& path) {
    QList<QPoint> inside;
    for (int y = 0; y < 256; ++y) {
        for (int x = 0; x < 256; ++x) {
            if (path.containsPoint({float(x), float(y)})) {
                inside << QPoint(x, y);
            }
        }
    }
    return inside;
}

void hover(ScatterGramWidget& widget, const QPoint& at) {
    QMouseEvent move(QEvent::MouseMove, at, widget.mapToGlobal(at), Qt::NoButton, Qt::NoButton,
                     Qt::NoModifier);
    QApplication::sendEvent(&widget, &move);
}

QImage rendered(ScatterGramWidget& widget) {
    return widget.grab().toImage().convertToFormat(QImage::Format_RGB32);
}

// Black, with the cell (X = 10, Y = 200) in the colour plotting gives it for the channel pair
// red on Y, green on X; and pure green and red in the bottom-right and top-left corners.
pv::Picture plottedScatterGram() {
    auto b = pv::Bitmap::create(256, 256, 3, false, false, 0, true);
    auto plot = [&b](int x, int y, QRgb rgb) {
        std::uint8_t* px = b->row(0, 255 - y) + 3 * x;
        px[0] = std::uint8_t(qRed(rgb));
        px[1] = std::uint8_t(qGreen(rgb));
        px[2] = std::uint8_t(qBlue(rgb));
    };
    plot(10, 200, qRgb(200, 10, 0));
    plot(255, 0, qRgb(0, 255, 0));
    plot(0, 255, qRgb(255, 0, 0));
    return pv::Picture::at72dpi(std::move(*b));
}

}  // namespace

class ScatterGramWidgetTest : public QObject {
    Q_OBJECT

  private slots:
    void gestureGivesTheRegionItDrawsInLevels_data() {
        QTest::addColumn<SelectionTool>("tool");
        QTest::addColumn<int>("zoom");
        QTest::addColumn<Qt::KeyboardModifiers>("keys");
        QTest::addColumn<pv::Modifiers>("regionKeys");
        QTest::addColumn<Strokes>("strokes");
        using enum SelectionTool;
        const Qt::KeyboardModifiers none = Qt::NoModifier, shift = Qt::ShiftModifier;
        const QList<QPoint> diagonal{{20, 30}, {60, 90}, {100, 140}};
        const QList<QPoint> star{{30, 30}, {120, 40}, {200, 150}, {90, 210}, {40, 120}, {100, 100}};
        const QList<QPoint> quad{{30, 30}, {200, 40}, {180, 200}, {50, 170}};
        for (int zoom : {1, 2}) {
            QTest::addRow("rectangle at zoom %d", zoom)
                << Rectangle << zoom << none << pv::Modifiers{} << Strokes{diagonal};
            QTest::addRow("oval at zoom %d", zoom)
                << Oval << zoom << none << pv::Modifiers{} << Strokes{diagonal};
            QTest::addRow("lasso at zoom %d", zoom)
                << Lasso << zoom << none << pv::Modifiers{} << Strokes{star};
            QTest::addRow("polygon at zoom %d", zoom)
                << Polygon << zoom << none << pv::Modifiers{} << Strokes{quad};
        }
        QTest::newRow("square with Shift")
            << Rectangle << 1 << shift << pv::Modifiers{.shift = true}
            << Strokes{{{10, 10}, {40, 25}}};
        QTest::newRow("circle with Shift") << Oval << 2 << shift << pv::Modifiers{.shift = true}
                                           << Strokes{{{100, 100}, {20, 180}}};
        QTest::newRow("free rectangle with Shift and Ctrl")
            << Rectangle << 1 << (shift | Qt::ControlModifier)
            << pv::Modifiers{.shift = true, .control = true} << Strokes{diagonal};
        QTest::newRow("free oval with Shift and Alt")
            << Oval << 2 << (shift | Qt::AltModifier)
            << pv::Modifiers{.shift = true, .option = true} << Strokes{diagonal};
        QTest::newRow("rectangle reaching past the picture")
            << Rectangle << 1 << none << pv::Modifiers{} << Strokes{{{200, 200}, {270, 262}}};
        // A later stroke presses inside the region and drags it along.
        QTest::newRow("rectangle moved") << Rectangle << 2 << none << pv::Modifiers{}
                                         << Strokes{diagonal, {{50, 50}, {120, 90}}};
        QTest::newRow("polygon moved")
            << Polygon << 1 << none << pv::Modifiers{} << Strokes{quad, {{100, 100}, {130, 60}}};
    }

    void gestureGivesTheRegionItDrawsInLevels() {
        QFETCH(SelectionTool, tool);
        QFETCH(int, zoom);
        QFETCH(Qt::KeyboardModifiers, keys);
        QFETCH(pv::Modifiers, regionKeys);
        QFETCH(Strokes, strokes);
        Scene scene(zoom, tool);
        pv::CROI_ScatterGramCroppingImageView reference(scene.prefs);
        reference.selectionMarkerStyle(tool);

        for (qsizetype k = 0; k < strokes.size(); ++k) {
            const QList<Move> moves =
                gestureThrough(k == 0 ? tool : SelectionTool::Rectangle, strokes[k]);
            playOnWidget(scene.widget, moves, keys);
            playOnRegion(reference, scene.widget, moves, regionKeys);
        }

        const pv::Path& drawn = scene.view.currentlySelectedPath();
        QVERIFY(!pointsInside(drawn).isEmpty());
        QCOMPARE(pointsInside(drawn), pointsInside(reference.currentlySelectedPath()));
        QCOMPARE(drawn.isClosed(), reference.currentlySelectedPath().isClosed());
        QVERIFY(scene.view.selectedRectSize() == reference.selectedRectSize());
    }

    void zoomFollowsTheRoom_data() {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("zoom");
        const ScatterGramWidget widget;
        QTest::newRow("size hint") << widget.sizeHint() << 2;
        QTest::newRow("minimum size hint") << widget.minimumSizeHint() << 1;
        QTest::newRow("a pixel too narrow") << widget.sizeHint() - QSize(1, 0) << 1;
        QTest::newRow("a pixel too low") << widget.sizeHint() - QSize(0, 1) << 1;
        QTest::newRow("large") << QSize(901, 700) << 2;
    }

    void zoomFollowsTheRoom() {
        QFETCH(QSize, size);
        QFETCH(int, zoom);
        ScatterGramWidget widget;
        widget.resize(size);
        QCOMPARE(widget.zoom(), zoom);
        // Centred: the margins either side differ by a pixel at most.
        const QSize margins = size - QSize(256, 256) * zoom -
                              2 * QSize(widget.pictureOrigin().x(), widget.pictureOrigin().y());
        QVERIFY(std::abs(margins.width()) <= 1 && std::abs(margins.height()) <= 1);
    }

    void everyPixelOfACellPointsAtThatCell_data() {
        QTest::addColumn<int>("zoom");
        QTest::addColumn<QPoint>("cell");
        for (int zoom : {1, 2}) {
            for (const QPoint cell :
                 {QPoint(0, 0), QPoint(10, 200), QPoint(255, 255), QPoint(0, 255)}) {
                QTest::addRow("(%d, %d) at zoom %d", cell.x(), cell.y(), zoom) << zoom << cell;
            }
        }
    }

    void everyPixelOfACellPointsAtThatCell() {
        QFETCH(int, zoom);
        QFETCH(QPoint, cell);
        Scene scene(zoom, SelectionTool::Rectangle);
        ScatterGramWidget& widget = scene.widget;
        QSignalSpy hovered(&widget, &ScatterGramWidget::hovered);
        for (int dy = 0; dy < zoom; ++dy) {
            for (int dx = 0; dx < zoom; ++dx) {
                const QPoint pixel = screenPixelOf(widget, cell) + QPoint(dx, dy);
                const QPointF p = clickedPoint(widget, pixel);
                QCOMPARE(QPoint(int(std::floor(p.x())), int(std::floor(p.y()))), cell);
                QCOMPARE(widget.toWidget(p), QPointF(pixel) + QPointF(0.5, 0.5));
                hover(widget, pixel);
                QCOMPARE(hovered.last(), (QList<QVariant>{cell.x(), cell.y()}));
            }
        }
        hover(widget, widget.pictureOrigin() - QPoint(1, 1));  // on the frame
        QCOMPARE(hovered.last(), (QList<QVariant>{-1, -1}));
        hover(widget, screenPixelOf(widget, cell));
        QEvent leave(QEvent::Leave);
        QApplication::sendEvent(&widget, &leave);
        QCOMPARE(hovered.last(), (QList<QVariant>{-1, -1}));
    }

    void cellsAreDrawnSharpWhereTheyBelong_data() {
        QTest::addColumn<int>("zoom");
        QTest::addColumn<QPoint>("cell");
        QTest::addColumn<QColor>("colour");
        for (int zoom : {1, 2}) {
            QTest::addRow("plotted at zoom %d", zoom)
                << zoom << QPoint(10, 200) << QColor(200, 10, 0);
            QTest::addRow("bottom right at zoom %d", zoom)
                << zoom << QPoint(255, 0) << QColor(0, 255, 0);
            QTest::addRow("top left at zoom %d", zoom)
                << zoom << QPoint(0, 255) << QColor(255, 0, 0);
            QTest::addRow("empty at zoom %d", zoom) << zoom << QPoint(11, 200) << QColor(0, 0, 0);
        }
    }

    void cellsAreDrawnSharpWhereTheyBelong() {
        QFETCH(int, zoom);
        QFETCH(QPoint, cell);
        QFETCH(QColor, colour);
        Scene scene(zoom, SelectionTool::Rectangle);
        scene.widget.setPicture(plottedScatterGram());
        const QImage shown = rendered(scene.widget);
        for (int dy = 0; dy < zoom; ++dy) {
            for (int dx = 0; dx < zoom; ++dx) {
                QCOMPARE(shown.pixelColor(screenPixelOf(scene.widget, cell) + QPoint(dx, dy)),
                         colour);
            }
        }
        // A thin frame, then the widget's own background.
        const QPoint o = scene.widget.pictureOrigin();
        QVERIFY(shown.pixelColor(o - QPoint(1, 1)) != shown.pixelColor(o - QPoint(2, 2)));
        QCOMPARE(shown.pixelColor(o + QPoint(-1, 100)), shown.pixelColor(o - QPoint(1, 1)));
    }

    void markerIsStrokedThroughTheClickedPixelsInsideThePicture_data() {
        QTest::addColumn<int>("zoom");
        QTest::newRow("zoom 1") << 1;
        QTest::newRow("zoom 2") << 2;
    }

    void markerIsStrokedThroughTheClickedPixelsInsideThePicture() {
        QFETCH(int, zoom);
        Scene scene(zoom, SelectionTool::Rectangle);
        ScatterGramWidget& widget = scene.widget;
        widget.setPicture(plottedScatterGram());
        playOnWidget(widget, gestureThrough(SelectionTool::Rectangle, {{40, 40}, {120, 100}}), {});
        QImage shown = rendered(widget);
        const pv::Color& border = scene.prefs.roiBorderColor;
        const QColor stroke = QColor::fromRgbF(border.red, border.green, border.blue);
        // Along the edges; the corners are left to the painter's smoothing.
        for (const QPoint onEdge :
             {QPoint(80, 40), QPoint(120, 70), QPoint(80, 100), QPoint(40, 70)}) {
            QCOMPARE(shown.pixelColor(screenPixelOf(widget, onEdge)), stroke);
        }
        const QColor inside = shown.pixelColor(screenPixelOf(widget, {80, 70}));
        QVERIFY(inside != stroke && inside != QColor(Qt::black));  // the translucent fill

        // Dragged far past the top-right corner: nothing of it outside the picture.
        playOnWidget(widget, gestureThrough(SelectionTool::Rectangle, {{200, 200}, {300, 300}}),
                     {});
        shown = rendered(widget);
        QCOMPARE(shown.pixelColor(screenPixelOf(widget, {200, 230})), stroke);
        const QRect picture(widget.pictureOrigin(), QSize(256, 256) * zoom);
        for (int y = 0; y < shown.height(); ++y) {
            for (int x = 0; x < shown.width(); ++x) {
                QVERIFY(picture.contains(x, y) || shown.pixelColor(x, y) != stroke);
            }
        }
    }
};

QTEST_MAIN(ScatterGramWidgetTest)
#include "ScatterGramWidgetTest.moc"
