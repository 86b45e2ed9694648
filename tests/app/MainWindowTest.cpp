#include <QAccessible>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QProcess>
#include <QProgressDialog>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

#include <array>

#include "MainWindowDriving.h"
#include "app/BackgroundWindow.h"
#include "app/HelpWindow.h"
#include "app/MainWindow.h"
#include "background/BackgroundCorrection.h"
#include "ui_MainWindow.h"

using pv::app::HelpWindow;
using pv::app::MainWindow;
using pv::test::answer;
using pv::test::kSample;
using pv::test::open;

class MainWindowTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    // What a user sees after opening the sample: its census and a scatter gram, and the
    // commands that need a picture enabled.
    void openingShowsTheCensus() {
        MainWindow w;
        QVERIFY(!w.ui().actionImageInfo->isEnabled());
        QVERIFY(!w.ui().calculateCoefficientButton->isEnabled());
        QVERIFY(open(w, kSample));
        QCOMPARE(w.ui().xyAxisPixelColorText->text(), QString("Yellow:"));
        QCOMPARE(w.ui().xyAxisPixelCountText->text(), QString("196262"));
        QCOMPARE(w.ui().pixelPercentTotal->text(), QString("99.82"));
        QCOMPARE(w.ui().yAxisROIPixelCountText->text(), QString("--"));
        QVERIFY(!w.ui().yAxisROIPixelCountText->isEnabled());
        QVERIFY(w.ui().calculateCoefficientButton->isEnabled());
        QVERIFY(w.ui().actionImageInfo->isEnabled());
        QVERIFY(!w.ui().actionRestore->isEnabled());  // nothing corrected yet
        QVERIFY(w.windowTitle().startsWith("sample-cells.tif"));
    }

    // A new pair relabels the axes, redraws the bars and recounts the classes, as a count over
    // the picture's pixels says.
    void changingThePairRedrawsBarsLabelsAndCounts() {
        MainWindow w;
        QVERIFY(open(w, kSample));
        const QImage barBefore = w.ui().yBar1->pixmap().toImage();
        QComboBox* pairs = w.ui().channelsPopupMenu;
        pairs->setCurrentIndex(6);
        emit pairs->activated(6);  // "Blue (Y) / Red (X)"
        QCOMPARE(w.ui().yAxisColorText->text(), QString("Blue"));
        QCOMPARE(w.ui().xAxisColorText->text(), QString("Red"));
        QCOMPARE(w.ui().xyAxisPixelColorText->text(), QString("Magenta:"));
        QVERIFY(w.ui().yBar1->pixmap().toImage() != barBefore);

        // A class counts a pixel only where the third channel (green) is 0.
        const pv::Picture p = w.controller().currentDisplayedImage();
        long yOnly = 0, xOnly = 0, both = 0;
        for (int r = 0; r < p.pixelsHigh(); ++r) {
            const std::uint8_t* px = p.bitmap->row(0, r);
            for (int c = 0; c < p.pixelsWide(); ++c, px += 3) {
                const int red = px[0], green = px[1], blue = px[2];
                if (green == 0) {
                    yOnly += blue > 0 && red == 0;
                    xOnly += red > 0 && blue == 0;
                    both += blue > 0 && red > 0;
                }
            }
        }
        QCOMPARE(w.ui().yAxisPixelCountText->text(), QString::number(yOnly));
        QCOMPARE(w.ui().xAxisPixelCountText->text(), QString::number(xOnly));
        QCOMPARE(w.ui().xyAxisPixelCountText->text(), QString::number(both));
    }

    // Each answer to Calculate's background question does what it says: calculate, or open
    // the background correction or the help page that explains it, calculating nothing.
    void calculatesQuestionHasThreeAnswers() {
        const QString answers[] = {"Calculate Anyway", "Correct Background...", "Help"};
        for (const QString& text : answers) {
            MainWindow w;
            w.show();
            QVERIFY(open(w, kSample));
            HelpWindow::instance().showPage("index.html");
            HelpWindow::instance().close();
            QTest::mouseClick(w.ui().calculateCoefficientButton, Qt::LeftButton);
            answer(w, text);
            QVERIFY(w.openQuestion() == nullptr);
            const bool calculated = text == answers[0];
            QCOMPARE(w.ui().coefficient_Rr->text(), calculated ? QString("0.2570") : QString());
            QCOMPARE(w.ui().saveButton->isEnabled(), calculated);
            auto* background = w.findChild<pv::app::BackgroundWindow*>();
            QCOMPARE(background != nullptr && background->isVisible(), text == answers[1]);
            QCOMPARE(HelpWindow::instance().isVisible(), text == answers[2]);
            if (text == answers[2]) {
                QCOMPARE(HelpWindow::instance().currentPage(),
                         QString("src/PixmeraVeltro206.html"));
            }
        }
    }

    // Commands that need a picture are enabled once there is one; Restore Original only while
    // the picture is background-corrected.
    void menuStatesFollowThePicture() {
        MainWindow w;
        Ui::MainWindow& u = w.ui();
        const auto states = [&u] {
            QString s;
            for (QAction* a :
                 {u.actionOpen, u.actionPaste, u.actionQuit, u.actionImageInfo, u.actionBackground,
                  u.actionRestore, u.actionPageSetup, u.actionPrint, u.actionAbout}) {
                s += a->isEnabled() ? '1' : '0';
            }
            return s;
        };
        QCOMPARE(states(), QString("111000001"));
        QVERIFY(open(w, kSample));
        QCOMPARE(states(), QString("111110111"));
        pv::BackgroundControls controls;  // automatic, first preset row
        controls.channelItem = 3;         // all channels
        pv::getRGBChannel(controls, w.controller().backgroundSettings());
        w.controller().removeBackgroundNow(controls);
        QCOMPARE(states(), QString("111111111"));
        w.controller().restoreImageToOriginal();
        QCOMPARE(states(), QString("111110111"));
    }

    // At 1366 x 768 the scatter gram is drawn at 1x; on a big screen at 2x, its bars along
    // its edges; the window shrinks back, and at its minimum size no control is cut.
    void scatterGramZoomFollowsTheRoom() {
        MainWindow w;
        w.show();
        QVERIFY(w.minimumSize().width() <= 1366 && w.minimumSize().height() <= 700);
        pv::app::ScatterGramWidget* sg = w.ui().scatterGramGraph;
        const struct {
            QSize window;
            int zoom;
        } cases[] = {{{1366, 700}, 1}, {{1920, 1040}, 2}, {w.minimumSize(), 1}, {{2400, 1300}, 2}};
        for (const auto& c : cases) {
            w.resize(c.window);
            QTRY_COMPARE(sg->zoom(), c.zoom);
            QCOMPARE(w.ui().yBar1->height(), 256 * c.zoom);
            QCOMPARE(w.ui().xBar2->width(), 256 * c.zoom);
        }
        w.resize(w.minimumSize());
        QTRY_COMPARE(sg->zoom(), 1);
        QApplication::sendPostedEvents(nullptr, QEvent::LayoutRequest);
        for (QWidget* c : w.findChildren<QWidget*>()) {
            // A spin box's own line edit is the style's to size, inside the box checked here.
            const bool control = qobject_cast<QLabel*>(c) || qobject_cast<QAbstractButton*>(c) ||
                                 qobject_cast<QComboBox*>(c) ||
                                 qobject_cast<QAbstractSpinBox*>(c) ||
                                 (qobject_cast<QLineEdit*>(c) &&
                                  !qobject_cast<QAbstractSpinBox*>(c->parentWidget()));
            if (control && c->isVisible()) {
                const QSize need = c->minimumSizeHint();
                QVERIFY2(c->width() >= need.width() && c->height() >= need.height(),
                         qPrintable(c->objectName()));
            }
        }
    }

    // A screen reader can name every control that takes the keyboard focus.
    void everyFocusableControlHasAName() {
        MainWindow w;
        w.show();
        for (QWidget* c : w.findChildren<QWidget*>()) {
            if (!c->isVisible() || !(c->focusPolicy() & Qt::TabFocus)) {
                continue;
            }
            QAccessibleInterface* a = QAccessible::queryAccessibleInterface(c);
            QVERIFY(a != nullptr);
            QVERIFY2(!a->text(QAccessible::Name).isEmpty(), qPrintable(c->objectName()));
        }
    }

    // Saving writes what the command line writes for the same actions.
    void saveWritesTheCommandLinesReport() {
        MainWindow w;
        QVERIFY(open(w, kSample));
        QTest::mouseClick(w.ui().calculateCoefficientButton, Qt::LeftButton);
        answer(w, "Calculate Anyway");
        QTemporaryDir dir;
        QVERIFY(w.saveResults(dir.filePath("run"), pv::ReportFormat::Spreadsheet, true));
        QFile saved(dir.filePath("run.xls"));
        QVERIFY(saved.open(QIODevice::ReadOnly));
        QProcess cli;
        cli.start(PV_CLI_PATH, {kSample});
        QVERIFY(cli.waitForFinished(60000));
        QCOMPARE(saved.readAll(), cli.readAllStandardOutput());
        QVERIFY(QFile::exists(dir.filePath("run_Image.tif")));
        QVERIFY(QFile::exists(dir.filePath("run_SGram.tif")));
        QVERIFY(!QFile::exists(dir.filePath("run_ImgReflect.tif")));
    }

    // A rectangle dragged on the scatter gram, counted and revealed: exactly the pixels whose
    // pair the drawn outline contains turn white. A second region's reveal paints over the
    // first one's picture (the view lets go of it) and shows nothing of the first region; the
    // plain picture comes back when the region is clicked away.
    void revealPaintsTheRegionsPixels() {
        MainWindow w;
        w.resize(1340, 720);
        w.show();
        QVERIFY(open(w, kSample));
        pv::app::ScatterGramWidget* sg = w.ui().scatterGramGraph;
        const pv::Picture plain = w.controller().currentDisplayedImage();
        const auto reveal = [&](QPointF from, QPointF to) {
            pv::test::drag(sg, from, to);
            QVERIFY(w.ui().reflectROIButton->isEnabled());
            QTest::mouseClick(w.ui().reflectROIButton, Qt::LeftButton);
            const pv::Path& outline = w.controller().scatterGramGraph().currentlySelectedPath();
            const pv::Picture& shown = w.ui().roiPreview->picture();
            QVERIFY(!shown.isEmpty() && shown.bitmap != plain.bitmap);
            long white = 0;
            for (int r = 0; r < plain.pixelsHigh(); ++r) {
                const std::uint8_t* in = plain.bitmap->row(0, r);
                const std::uint8_t* out = shown.bitmap->row(0, r);
                for (int c = 0; c < plain.pixelsWide(); ++c, in += 3, out += 3) {
                    const bool inside = outline.containsPoint({float(in[1]), float(in[0])});
                    const std::array<int, 3> want = inside
                                                        ? std::array<int, 3>{255, 255, 255}
                                                        : std::array<int, 3>{in[0], in[1], in[2]};
                    QCOMPARE((std::array<int, 3>{out[0], out[1], out[2]}), want);
                    white += inside ? 1 : 0;
                }
            }
            QVERIFY(white > 0);
            QCOMPARE(long(w.controller().analysis().roiCensus.totalPixelCount), white);
        };
        reveal({30, 20}, {140, 160});
        const pv::Bitmap* first = w.ui().roiPreview->picture().bitmap.get();
        reveal({5, 60}, {60, 200});
        QCOMPARE(w.ui().roiPreview->picture().bitmap.get(), first);

        QTest::mouseClick(sg, Qt::LeftButton, Qt::NoModifier, sg->toWidget({250, 5}).toPoint());
        QCOMPARE(w.ui().roiPreview->picture().bitmap, plain.bitmap);
        QCOMPARE(w.ui().pixelCountROITotal->text(), QString("--"));
    }

    // A file dropped on the image is opened like any other.
    void droppedFileOpens() {
        MainWindow w;
        w.show();
        QSignalSpy finished(&w, &MainWindow::openFinished);
        QMimeData data;
        data.setUrls({QUrl::fromLocalFile(kSample)});
        const Qt::DropActions allowed = Qt::CopyAction | Qt::LinkAction;
        QDragEnterEvent enter(QPoint(20, 20), allowed, &data, Qt::LeftButton, Qt::NoModifier);
        QDropEvent drop(QPointF(20, 20), allowed, &data, Qt::LeftButton, Qt::NoModifier);
        QApplication::sendEvent(w.ui().roiPreview, &enter);
        QApplication::sendEvent(w.ui().roiPreview, &drop);
        QVERIFY(finished.wait(30000));
        QCOMPARE(w.ui().xyAxisPixelCountText->text(), QString("196262"));
    }

    // A pasted picture is analysed like an opened one, without a file.
    void pastedPictureIsAnalysed() {
        MainWindow w;
        QImage image(3, 1, QImage::Format_RGB888);
        image.setPixelColor(0, 0, QColor(100, 0, 0));
        image.setPixelColor(1, 0, QColor(0, 50, 0));
        image.setPixelColor(2, 0, QColor(100, 50, 0));
        QApplication::clipboard()->setImage(image);
        w.ui().actionPaste->trigger();
        QCOMPARE(w.ui().yAxisPixelCountText->text(), QString("1"));
        QCOMPARE(w.ui().xAxisPixelCountText->text(), QString("1"));
        QCOMPARE(w.ui().xyAxisPixelCountText->text(), QString("1"));
        QCOMPARE(w.windowTitle(), QString("Pixmera Veltro"));
    }

    // A result without an answer says why, in the status bar and on its field.
    void undefinedResultsSayWhy() {
        MainWindow w;
        QImage image(2, 1, QImage::Format_RGB888);
        image.setPixelColor(0, 0, QColor(100, 0, 0));
        image.setPixelColor(1, 0, QColor(50, 0, 0));
        QApplication::clipboard()->setImage(image);
        w.ui().actionPaste->trigger();
        auto* status = w.findChild<QLabel*>("cautionStatus");
        QVERIFY(status != nullptr);
        QCOMPARE(status->text(), QString());
        QTest::mouseClick(w.ui().calculateCoefficientButton, Qt::LeftButton);
        answer(w, "Calculate Anyway");
        const QString why = "Rr, R, k2 and m2 are undefined: the green channel is 0 in every pixel";
        QCOMPARE(status->text(), why + ".");
        QCOMPARE(w.ui().coefficient_k2->toolTip(), why);
        QCOMPARE(w.ui().coefficient_k1->toolTip(), QString());  // k1 has its answer
    }

    // A cancelled open leaves the picture and its results as they were.
    void cancelledOpenChangesNothing() {
        MainWindow w;
        QVERIFY(open(w, kSample));
        QSignalSpy finished(&w, &MainWindow::openFinished);
        w.openFile("/nonexistent/other.tif");
        auto* progress = w.findChild<QProgressDialog*>();
        QVERIFY(progress != nullptr);
        emit progress->canceled();  // what its Cancel button sends
        QVERIFY(finished.wait(30000));
        QCOMPARE(finished.at(0).at(0).toBool(), false);
        QCOMPARE(w.ui().xyAxisPixelCountText->text(), QString("196262"));
        QVERIFY(w.findChildren<QMessageBox*>().isEmpty());
    }

    // A file that cannot be read says why and names it.
    void unreadableFileSaysWhy() {
        MainWindow w;
        QVERIFY(!open(w, "/nonexistent/cells.tif"));
        const auto boxes = w.findChildren<QMessageBox*>();
        QVERIFY(!boxes.isEmpty());
        QVERIFY(boxes.last()->text().contains("/nonexistent/cells.tif: the file does not exist"));
    }
};

QTEST_MAIN(MainWindowTest)
#include "MainWindowTest.moc"
