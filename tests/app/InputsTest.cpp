#include <QAccessible>
#include <QComboBox>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProgressBar>
#include <QPushButton>
#include <QSlider>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <array>
#include <functional>
#include <optional>

#include "GreyPages.h"
#include "MainWindowDriving.h"
#include "app/CellPanel.h"
#include "app/ImageView.h"
#include "app/Inputs.h"
#include "app/OpenChannelsDialog.h"
#include "app/ShuffleRun.h"
#include "app/StackBar.h"
#include "ui_MainWindow.h"

using pv::app::MainWindow;
using pv::app::OpenChannelsDialog;
using pv::test::kSample;
using pv::test::open;
using pv::test::shownCensus;
using pv::test::unnamedControl;
using pv::testing::GreyPage;

namespace {

constexpr int kWide = 9, kHigh = 6, kSlices = 5;

// Channel c of slice z; zeros in places so that every census class occurs.
GreyPage page(int c, int z) {
    GreyPage p;
    for (int i = 0; i < kWide * kHigh; ++i) {
        const int v = (c * 41 + z * 23 + i * (c + 2)) % 89;
        p.push_back(v % (3 + c + z) == 0 ? 0u : std::uint32_t(v * 2 + 1));
    }
    return p;
}

// The census a red-green analysis gives of (Y, X), as the window shows it: Y only, X only,
// both; only the pixels `inside` when given.
std::array<QString, 3> census(const GreyPage& y, const GreyPage& x,
                              const std::function<bool(std::size_t)>& inside = {}) {
    std::array<int, 3> n{};
    for (std::size_t i = 0; i < y.size(); ++i) {
        if (inside && !inside(i)) {
            continue;
        }
        n[0] += y[i] > 0 && x[i] == 0;
        n[1] += y[i] == 0 && x[i] > 0;
        n[2] += y[i] > 0 && x[i] > 0;
    }
    return {QString::number(n[0]), QString::number(n[1]), QString::number(n[2])};
}

// Runs `drive` on the modal dialog that `open` brings up, once it is up.
template <class Dialog>
void withDialog(const std::function<void()>& open, const std::function<void(Dialog&)>& drive) {
    QTimer::singleShot(0, [drive] {
        auto* dialog = qobject_cast<Dialog*>(QApplication::activeModalWidget());
        QVERIFY(dialog != nullptr);
        drive(*dialog);
    });
    open();
}

// Picks `path` in the file dialog that `item` opens.
void chooseFile(QAction* item, const QString& path) {
    withDialog<QFileDialog>([item] { item->trigger(); },
                            [path](QFileDialog& d) {
                                d.selectFile(path);
                                static_cast<QDialog&>(d).accept();
                            });
}

// Where picture pixel (x, y) is drawn in the view, for a picture shown at 100 %.
QPoint drawnAt(pv::app::ImageView* view, int x, int y) {
    return QPoint((view->width() - kWide) / 2 + x, (view->height() - kHigh) / 2 + y);
}

// The text of the message box the window shows, closing it; empty when there is none.
QString takeMessage(MainWindow& w) {
    for (QMessageBox* box : w.findChildren<QMessageBox*>()) {
        if (box->isVisible()) {
            const QString text = box->text();
            box->close();
            return text;
        }
    }
    return QString();
}

}  // namespace

class InputsTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() {
        QStandardPaths::setTestModeEnabled(true);
        QVERIFY(dir.isValid());
        std::vector<GreyPage> pages;
        for (int z = 0; z < kSlices; ++z) {
            pages.push_back(page(0, z));
            pages.push_back(page(1, z));
        }
        QVERIFY(pv::testing::writeGreyPages(path("series.tif"), kWide, kHigh, pages,
                                            pv::testing::imageJDescription(2, kSlices)));
        QVERIFY(pv::testing::writeGreyPages(path("C1.tif"), kWide, kHigh, {page(0, 3)}));
        QVERIFY(pv::testing::writeGreyPages(path("C2.tif"), kWide, kHigh, {page(1, 3)}));
        QVERIFY(pv::testing::writeGreyPages(path("narrow.tif"), kWide - 1, kHigh,
                                            {GreyPage((kWide - 1) * kHigh, 7)}));
        // The mask: a block of rows 1 to 4 and columns 2 to 6.
        GreyPage mask, labels;
        for (int i = 0; i < kWide * kHigh; ++i) {
            mask.push_back(inMask(std::size_t(i)) ? 255 : 0);
            labels.push_back(labelOf(std::size_t(i)));
        }
        QVERIFY(pv::testing::writeGreyPages(path("mask.tif"), kWide, kHigh, {mask}));
        QVERIFY(pv::testing::writeGreyPages(path("labels.tif"), kWide, kHigh, {labels}, {}, 16));
    }

    // Two grey files become the pair; OK waits for both, and a pair that cannot be taken is
    // said in the dialog, naming the file, with the window as it was.
    void openChannelsTakesTwoGreyFiles() {
        MainWindow w;
        QVERIFY(open(w, kSample));
        const std::array<QString, 3> sample = shownCensus(w);
        bool okAtFirst = true, okWithOne = true, okWithBoth = false, stayed = false;
        QString error;
        std::array<QString, 3> behindError;
        QString unnamed = "not looked at";
        withDialog<OpenChannelsDialog>(
            [&] { w.inputs().openChannelsAction()->trigger(); },
            [&](OpenChannelsDialog& d) {
                unnamed = unnamedControl(d);
                okAtFirst = d.okButton()->isEnabled();
                QTest::keyClicks(d.y().path, file("C1.tif"));
                okWithOne = d.okButton()->isEnabled();
                QTest::keyClicks(d.x().path, file("narrow.tif"));
                okWithBoth = d.okButton()->isEnabled();
                QTest::mouseClick(d.okButton(), Qt::LeftButton);
                stayed = d.isVisible();
                error = d.errorText()->isVisible() ? d.errorText()->text() : QString();
                behindError = shownCensus(w);
                d.x().path->clear();
                QTest::keyClicks(d.x().path, file("C2.tif"));
                QTest::mouseClick(d.okButton(), Qt::LeftButton);
            });
        QCOMPARE(unnamed, QString());
        QVERIFY(!okAtFirst);
        QVERIFY(!okWithOne);
        QVERIFY(okWithBoth);
        QVERIFY(stayed);
        QVERIFY2(error.contains("narrow.tif"), qPrintable(error));
        QCOMPARE(behindError, sample);
        QCOMPARE(shownCensus(w), census(page(0, 3), page(1, 3)));
        QVERIFY(w.windowTitle().startsWith("C1.tif"));
        QVERIFY(w.inputs().stackBar()->isHidden());
    }

    // A hyperstack shows its channels and a slice slider; the census and the picture follow
    // the slider and the choosers. A plain RGB picture shows none of it.
    void stackSliderAndChoosersDriveTheAnalysis() {
        MainWindow w;
        w.show();
        QVERIFY(open(w, kSample));
        QVERIFY(w.inputs().stackBar()->isHidden());
        QVERIFY(w.inputs().cellPanel()->isHidden());
        QVERIFY(!w.inputs().nextSliceAction()->isEnabled());

        QVERIFY(open(w, file("series.tif")));
        pv::app::StackBar* bar = w.inputs().stackBar();
        QVERIFY(bar->isVisible());
        QVERIFY(bar->frame()->isHidden());
        QCOMPARE(bar->sliceNumber()->text(), QString("Slice 1 / 5"));
        QCOMPARE(bar->yChannel()->currentText(), QString("Channel 1"));
        QCOMPARE(bar->xChannel()->currentText(), QString("Channel 2"));
        QCOMPARE(shownCensus(w), census(page(0, 0), page(1, 0)));
        QCOMPARE(unnamedControl(w), QString());

        bar->slice()->setFocus();
        QTest::keyClick(bar->slice(), Qt::Key_Right);
        QTest::keyClick(bar->slice(), Qt::Key_Right);
        QCOMPARE(bar->sliceNumber()->text(), QString("Slice 3 / 5"));
        QCOMPARE(shownCensus(w), census(page(0, 2), page(1, 2)));
        // The view shows the slice: Y in red, X in green.
        const pv::ChannelView shown = w.ui().roiPreview->picture().bitmap->channels();
        for (const std::size_t i :
             {std::size_t(0), std::size_t(17), std::size_t(kWide * kHigh - 1)}) {
            const auto x = std::int64_t(i % kWide), y = std::int64_t(i / kWide);
            QCOMPARE(std::uint32_t(*shown.sample(0, y, x)), page(0, 2)[i]);
            QCOMPARE(std::uint32_t(*shown.sample(1, y, x)), page(1, 2)[i]);
        }

        QTest::keyClick(bar->yChannel(), Qt::Key_Down);
        QTest::keyClick(bar->xChannel(), Qt::Key_Up);
        QCOMPARE(shownCensus(w), census(page(1, 2), page(0, 2)));
        w.inputs().nextSliceAction()->trigger();
        QCOMPARE(bar->sliceNumber()->text(), QString("Slice 4 / 5"));
        QCOMPARE(shownCensus(w), census(page(1, 3), page(0, 3)));
        w.inputs().nextSliceAction()->trigger();
        QVERIFY(!w.inputs().nextSliceAction()->isEnabled());
        QVERIFY(w.inputs().previousSliceAction()->isEnabled());

        QVERIFY(open(w, kSample));
        QVERIFY(bar->isHidden());
    }

    // Reduced four times, a one-pixel line over the picture still shows along its whole length;
    // an outline of another size than the picture shows nothing.
    void reducedViewKeepsOnePixelLines() {
        pv::app::ImageView view;
        view.resize(100, 100);
        std::optional<pv::Bitmap> black = pv::Bitmap::create(400, 400, 3, false, false, 0, true);
        QVERIFY(black.has_value());
        view.setPicture(pv::Picture::at72dpi(std::move(*black)));
        view.show();
        QImage outline(400, 400, QImage::Format_Indexed8);
        outline.setColorTable({qRgba(0, 0, 0, 0), qRgb(255, 0, 0)});
        outline.fill(0);
        for (int y = 0; y < 400; ++y) {
            outline.scanLine(y)[201] = 1;
        }
        view.setOutline(outline);
        QImage drawn = view.grab().toImage();
        for (int y = 0; y < 100; ++y) {
            QCOMPARE(drawn.pixel(50, y), qRgb(255, 0, 0));  // picture columns 200 to 203
            QCOMPARE(drawn.pixel(49, y), qRgb(0, 0, 0));
            QCOMPARE(drawn.pixel(51, y), qRgb(0, 0, 0));
        }
        view.setOutline(outline.copy(0, 0, 399, 400));
        QCOMPARE(view.grab().toImage().pixel(50, 50), qRgb(0, 0, 0));
    }

    // Time frames get a slider of their own; the census follows it.
    void framesHaveASliderOfTheirOwn() {
        // Two channels, two slices, three frames: page c + 2 * (z + 2 * t) is page(c, z + 2 * t).
        std::vector<GreyPage> pages;
        for (int i = 0; i < 12; ++i) {
            pages.push_back(page(i % 2, i / 2));
        }
        QVERIFY(pv::testing::writeGreyPages(path("movie.tif"), kWide, kHigh, pages,
                                            pv::testing::imageJDescription(2, 2, 3)));
        MainWindow w;
        w.show();
        QVERIFY(open(w, file("movie.tif")));
        pv::app::StackBar* bar = w.inputs().stackBar();
        QVERIFY(bar->frame()->isVisible());
        QCOMPARE(bar->frameNumber()->text(), QString("Frame 1 / 3"));
        QCOMPARE(bar->sliceNumber()->text(), QString("Slice 1 / 2"));
        QTest::keyClick(bar->frame(), Qt::Key_End);
        QTest::keyClick(bar->slice(), Qt::Key_Right);
        QCOMPARE(bar->frameNumber()->text(), QString("Frame 3 / 3"));
        QCOMPARE(shownCensus(w), census(page(0, 1 + 2 * 2), page(1, 1 + 2 * 2)));
        QCOMPARE(unnamedControl(w), QString());
    }

    // A mask narrows the census to its pixels and is outlined over the picture; one of another
    // size is refused by name; Clear Mask brings the whole picture back.
    void maskNarrowsTheCensusAndIsOutlined() {
        MainWindow w;
        w.show();
        QVERIFY(open(w, file("series.tif")));
        QVERIFY(!w.inputs().clearMaskAction()->isEnabled());
        const std::array<QString, 3> whole = census(page(0, 0), page(1, 0));
        QCOMPARE(shownCensus(w), whole);

        chooseFile(w.inputs().maskAction(), file("narrow.tif"));
        QVERIFY(takeMessage(w).contains("narrow.tif"));
        QCOMPARE(shownCensus(w), whole);

        chooseFile(w.inputs().maskAction(), file("mask.tif"));
        QCOMPARE(takeMessage(w), QString());
        QCOMPARE(shownCensus(w), census(page(0, 0), page(1, 0), inMask));
        QVERIFY(w.inputs().clearMaskAction()->isEnabled());
        pv::app::ImageView* view = w.ui().roiPreview;
        const QImage grabbed = view->grab().toImage();
        const QRgb magenta = qRgb(255, 0, 255);
        QCOMPARE(grabbed.pixel(drawnAt(view, 2, 1)), magenta);  // the block's corner
        QCOMPARE(grabbed.pixel(drawnAt(view, 6, 4)), magenta);
        QVERIFY(grabbed.pixel(drawnAt(view, 4, 2)) != magenta);  // inside
        QVERIFY(grabbed.pixel(drawnAt(view, 0, 0)) != magenta);  // outside

        QTest::keyClick(w.inputs().stackBar()->slice(), Qt::Key_End);
        QCOMPARE(shownCensus(w), census(page(0, 4), page(1, 4), inMask));

        w.inputs().clearMaskAction()->trigger();
        QCOMPARE(shownCensus(w), census(page(0, 4), page(1, 4)));
        QVERIFY(!w.inputs().clearMaskAction()->isEnabled());
        QVERIFY(view->grab().toImage().pixel(drawnAt(view, 2, 1)) != magenta);
    }

    // Clicking inside a labelled cell shows that cell's pixel count and census in the panel.
    void clickInACellShowsItsResults() {
        MainWindow w;
        w.show();
        QVERIFY(open(w, file("series.tif")));
        chooseFile(w.inputs().labelsAction(), file("labels.tif"));
        QCOMPARE(takeMessage(w), QString());
        pv::app::CellPanel* panel = w.inputs().cellPanel();
        QVERIFY(panel->isVisible());
        QVERIFY(w.inputs().clearLabelsAction()->isEnabled());
        pv::app::ImageView* view = w.ui().roiPreview;
        const QRgb kChosen = qRgb(0, 255, 255), kOther = qRgb(255, 255, 255);
        for (const std::uint32_t label : {3u, 8u}) {
            // The cell's first pixel, and its count over the label image.
            std::size_t first = 0;
            int pixels = 0;
            for (std::size_t i = kWide * kHigh; i-- > 0;) {
                if (labelOf(i) == label) {
                    first = i;
                    ++pixels;
                }
            }
            QTest::mouseClick(view, Qt::LeftButton, Qt::NoModifier,
                              drawnAt(view, int(first % kWide), int(first / kWide)));
            QCOMPARE(panel->value("Label:"), QString::number(label));
            QCOMPARE(unnamedControl(w), QString());
            // The chosen cell's edge stands out from the others'.
            const QImage grabbed = view->grab().toImage();
            QCOMPARE(grabbed.pixel(drawnAt(view, 0, 1)), label == 3 ? kChosen : kOther);
            QCOMPARE(grabbed.pixel(drawnAt(view, 7, 0)), label == 8 ? kChosen : kOther);
            QCOMPARE(panel->value("Pixels:"), QString::number(pixels));
            const auto in = [label](std::size_t i) { return labelOf(i) == label; };
            const std::array<QString, 3> n = census(page(0, 0), page(1, 0), in);
            for (const auto& [name, count] :
                 {std::pair{"Red:", n[0]}, {"Green:", n[1]}, {"Yellow:", n[2]}}) {
                QVERIFY2(panel->value(name).startsWith(count + " ("),
                         qPrintable(panel->value(name)));
            }
        }
        w.inputs().clearLabelsAction()->trigger();
        QVERIFY(panel->isHidden());
    }

    // Once the further measures hold a significance test, the chosen cell's follow in its panel:
    // its own test on a worker with progress and Cancel, its lines those the controller gives
    // the cell. A cancelled test leaves the lines out; new measures test the cell again.
    void chosenCellsOwnTestRunsWithProgressAndCancel() {
        MainWindow w;
        w.show();
        QVERIFY(open(w, file("series.tif")));
        chooseFile(w.inputs().labelsAction(), file("labels.tif"));
        pv::PixmeraVeltroController& c = w.controller();
        pv::MeasureRequest request{true, false, false, false, true, 1000000, 3, 1};
        QVERIFY(c.calculateFurtherMeasures(request));
        pv::app::CellPanel* panel = w.inputs().cellPanel();
        auto* progress = panel->findChild<QProgressBar*>("cellTestProgress");
        auto* cancel = panel->findChild<QPushButton*>("cancelCellTestButton");
        QTest::mouseClick(w.ui().roiPreview, Qt::LeftButton, Qt::NoModifier,
                          drawnAt(w.ui().roiPreview, 0, 3));
        QVERIFY(!panel->value("Spearman").isEmpty());
        QVERIFY(panel->test().running());
        QVERIFY(progress->isVisible() && cancel->isVisible());
        QCOMPARE(progress->maximum(), 1000000);
        QTest::mouseClick(cancel, Qt::LeftButton);
        QTRY_VERIFY_WITH_TIMEOUT(!panel->test().running(), 60000);
        QVERIFY(progress->isHidden() && cancel->isHidden());
        QCOMPARE(panel->value("P-value"), QString());

        request.shuffles = 50;
        QVERIFY(c.calculateFurtherMeasures(request));
        QTRY_VERIFY_WITH_TIMEOUT(!panel->value("P-value").isEmpty(), 60000);
        const auto cells = c.cellFields(w.inputs().labels().labels(), path("labels.tif"), true);
        QVERIFY(cells && cells->front().label == 3);
        for (const pv::ResultLine& line : cells->front().fields.furtherMeasures) {
            QCOMPARE(panel->value(QString::fromStdString(line.name)),
                     QString::fromStdString(line.value));
        }
        QVERIFY(progress->isHidden());
    }

  private:
    static bool inMask(std::size_t i) {
        const std::size_t x = i % kWide, y = i / kWide;
        return x >= 2 && x <= 6 && y >= 1 && y <= 4;
    }
    // Cell 3 the left columns, cell 8 two pieces on the right; 0 elsewhere.
    static std::uint32_t labelOf(std::size_t i) {
        const std::size_t x = i % kWide, y = i / kWide;
        return x <= 2 && y >= 1 ? 3u : x >= 7 && y != 2 ? 8u : 0u;
    }
    QString file(const QString& name) const { return dir.filePath(name); }
    std::string path(const QString& name) const { return file(name).toStdString(); }

    QTemporaryDir dir;
};

QTEST_MAIN(InputsTest)
#include "InputsTest.moc"
