// Drives the desktop program's main window through the road of one image on the sample and
// saves what the window shows at each step: the pictures in docs/ that the README shows.
#include <QAbstractButton>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QStandardPaths>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <deque>

#include "GreyPages.h"
#include "app/CellPanel.h"
#include "app/ImageView.h"
#include "app/ShuffleRun.h"
#include "app/Inputs.h"
#include "app/StackBar.h"
#include "image/ImageFile.h"

#include "app/AboutBox.h"
#include "app/BackgroundWindow.h"
#include "app/FurtherMeasuresPanel.h"
#include "app/HelpWindow.h"
#include "app/ImageInfoDialog.h"
#include "app/MainWindow.h"
#include "app/PreferencesDialog.h"
#include "ui_BackgroundWindow.h"
#include "ui_MainWindow.h"

using pv::app::MainWindow;

namespace {

bool save(QWidget& w, const QDir& dir, const QString& name) {
    QTest::qWait(200);  // let the window lay itself out and paint
    const bool ok = w.grab().save(dir.filePath(name));
    std::printf("%s %s\n", ok ? "wrote" : "could not write", qPrintable(dir.filePath(name)));
    return ok;
}

void answer(MainWindow& w, const QString& text) {
    if (QMessageBox* box = w.openQuestion()) {
        for (QAbstractButton* b : box->buttons()) {
            if (b->text() == text) {
                b->click();
            }
        }
    }
}

// From the sample: a confocal-like series of 12 slices, its red and green as two channels
// coming into focus and out again, a mask over the cells and a label image numbering them.
bool writeInputs(const std::string& sample, const QDir& dir) {
    pv::Result<pv::Picture> read = pv::readImageFile(sample);
    if (!read) {
        return false;
    }
    const pv::ChannelView rgb = read->bitmap->channels();
    const int w = int(rgb.width), h = int(rgb.height), slices = 12;
    std::vector<pv::testing::GreyPage> pages;
    for (int z = 0; z < slices; ++z) {
        for (int c = 0; c < 2; ++c) {
            // Green comes into focus a little later than red.
            const double focus = std::exp(-std::pow((z - 5.0 - c) / 3.5, 2));
            pv::testing::GreyPage page;
            for (int y = 0; y < h; ++y) {
                for (int x = 0; x < w; ++x) {
                    page.push_back(std::uint32_t(std::lround(*rgb.sample(c, y, x) * focus)));
                }
            }
            pages.push_back(std::move(page));
        }
    }
    // The cells: bright enough in either channel; each 4-connected patch its own label.
    pv::testing::GreyPage mask, labels(std::size_t(w) * std::size_t(h), 0);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            mask.push_back(*rgb.sample(0, y, x) + *rgb.sample(1, y, x) > 70 ? 255 : 0);
        }
    }
    std::uint32_t next = 0;
    for (std::size_t start = 0; start < mask.size(); ++start) {
        if (mask[start] == 0 || labels[start] != 0) {
            continue;
        }
        labels[start] = ++next;
        for (std::deque<std::size_t> todo{start}; !todo.empty(); todo.pop_front()) {
            const std::size_t i = todo.front();
            const int x = int(i % std::size_t(w)), y = int(i / std::size_t(w));
            for (const auto& [dx, dy] : {std::pair{1, 0}, {-1, 0}, {0, 1}, {0, -1}}) {
                const int nx = x + dx, ny = y + dy;
                const std::size_t n = std::size_t(ny) * std::size_t(w) + std::size_t(nx);
                if (nx >= 0 && ny >= 0 && nx < w && ny < h && mask[n] != 0 && labels[n] == 0) {
                    labels[n] = next;
                    todo.push_back(n);
                }
            }
        }
    }
    const auto path = [&](const char* name) { return dir.filePath(name).toStdString(); };
    return pv::testing::writeGreyPages(path("series.tif"), w, h, pages,
                                       pv::testing::imageJDescription(2, slices)) &&
           pv::testing::writeGreyPages(path("mask.tif"), w, h, {mask}) &&
           pv::testing::writeGreyPages(path("labels.tif"), w, h, {labels}, {}, 16);
}

// A stack at a middle slice, then with the mask and the labels over it and a cell clicked.
// The inputs are kept in `keep` when it is given (to try them in the program), else dropped.
bool saveInputs(const std::string& sample, const QDir& out, const QString& keep) {
    QTemporaryDir temporary;
    const QDir dir(keep.isEmpty() ? temporary.path() : keep);
    if (!dir.mkpath(".") || !writeInputs(sample, dir)) {
        return false;
    }
    MainWindow w;
    w.resize(1340, 720);
    w.show();
    QSignalSpy opened(&w, &MainWindow::openFinished);
    w.openFile(dir.filePath("series.tif"));
    if (!opened.wait(60000)) {
        return false;
    }
    w.inputs().stackBar()->slice()->setValue(6);
    bool ok = save(w, out, "12-stack.png");
    if (!w.inputs().setMask(dir.filePath("mask.tif").toStdString())) {
        return false;
    }
    w.ui().calculateCoefficientButton->click();
    answer(w, "Calculate Anyway");
    ok = save(w, out, "13-mask.png") && ok;

    w.controller().clearMask();
    if (!w.inputs().loadLabels(dir.filePath("labels.tif").toStdString())) {
        return false;
    }
    // A click at the middle of the largest cell.
    const pv::LabelImage& labels = w.inputs().labels().labels();
    std::vector<std::array<double, 3>> sums(
        *std::max_element(labels.labels.begin(), labels.labels.end()) + 1);
    for (std::size_t i = 0; i < labels.labels.size(); ++i) {
        auto& s = sums[labels.labels[i]];
        s = {s[0] + 1, s[1] + double(i % std::size_t(labels.wide)),
             s[2] + double(i / std::size_t(labels.wide))};
    }
    const auto largest = std::max_element(sums.begin() + 1, sums.end(),
                                          [](const auto& a, const auto& b) { return a[0] < b[0]; });
    pv::app::ImageView* view = w.ui().roiPreview;
    const double zoom = view->zoom();
    const QPoint origin((view->width() - int(std::lround(labels.wide * zoom))) / 2,
                        (view->height() - int(std::lround(labels.high * zoom))) / 2);
    QTest::mouseClick(view, Qt::LeftButton, Qt::NoModifier,
                      origin + QPoint(int((*largest)[1] / (*largest)[0] * zoom),
                                      int((*largest)[2] / (*largest)[0] * zoom)));
    w.ui().calculateCoefficientButton->click();
    answer(w, "Calculate Anyway");
    ok = save(w, out, "14-cells.png") && ok;

    // The further measures with the significance test: the chosen cell's own test follows.
    auto* significance = w.findChild<QCheckBox*>("significanceCheckBox");
    auto* panel = w.findChild<pv::app::FurtherMeasuresPanel*>();
    if (significance == nullptr || panel == nullptr) {
        return false;
    }
    significance->setChecked(true);
    QSignalSpy measured(panel, &pv::app::FurtherMeasuresPanel::calculationEnded);
    QSignalSpy cellTested(&w.inputs().cellPanel()->test(), &pv::app::ShuffleRun::ended);
    w.findChild<QPushButton*>("calculateMeasuresButton")->click();
    if ((measured.isEmpty() && !measured.wait(120000)) ||
        (cellTested.isEmpty() && !cellTested.wait(120000))) {
        return false;
    }
    ok = save(w, out, "16-cell-significance.png") && ok;
    return ok;
}

// Every further measure of the sample, the significance test included, with Costes'
// thresholds across the scatter gram.
bool saveFurtherMeasures(const char* sample, const QDir& out) {
    MainWindow w;
    w.resize(1340, 720);
    w.show();
    QSignalSpy opened(&w, &MainWindow::openFinished);
    w.openFile(QString::fromLocal8Bit(sample));
    if (!opened.wait(60000)) {
        return false;
    }
    auto* panel = w.findChild<pv::app::FurtherMeasuresPanel*>();
    auto* significance = w.findChild<QCheckBox*>("significanceCheckBox");
    if (panel == nullptr || significance == nullptr) {
        return false;
    }
    w.ui().calculateCoefficientButton->click();
    answer(w, "Calculate Anyway");
    significance->setChecked(true);
    QSignalSpy ended(panel, &pv::app::FurtherMeasuresPanel::calculationEnded);
    w.findChild<QPushButton*>("calculateMeasuresButton")->click();
    if (ended.isEmpty() && !ended.wait(120000)) {
        return false;
    }
    return save(w, out, "15-further-measures.png");
}

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QStandardPaths::setTestModeEnabled(true);  // the user's own settings stay out of it
    if (argc < 3) {
        std::fprintf(stderr, "usage: pv_screenshots IMAGE OUTPUT-FOLDER [INPUTS-FOLDER]\n");
        return 2;
    }
    const QDir out(QString::fromLocal8Bit(argv[2]));
    QDir().mkpath(out.path());
    MainWindow w;
    w.resize(1340, 720);
    w.show();
    QSignalSpy opened(&w, &MainWindow::openFinished);
    w.openFile(QString::fromLocal8Bit(argv[1]));
    if (!opened.wait(60000)) {
        return 1;
    }
    bool ok = save(w, out, "1-opened.png");

    w.ui().calculateCoefficientButton->click();
    answer(w, "Calculate Anyway");
    ok = save(w, out, "2-calculated.png") && ok;

    // A polygon around the colocalised band of the scatter gram: clicks, then a double-click.
    w.ui().selectionToolPopupMenu->setCurrentIndex(2);
    emit w.ui().selectionToolPopupMenu->activated(2);
    pv::app::ScatterGramWidget* sg = w.ui().scatterGramGraph;
    const QPointF corners[] = {{40, 30}, {230, 150}, {215, 235}, {30, 90}};
    QTest::mousePress(sg, Qt::LeftButton, Qt::NoModifier, sg->toWidget(corners[0]).toPoint());
    QTest::mouseMove(sg, sg->toWidget(corners[1]).toPoint());
    QTest::mouseRelease(sg, Qt::LeftButton, Qt::NoModifier, sg->toWidget(corners[1]).toPoint());
    QTest::mouseClick(sg, Qt::LeftButton, Qt::NoModifier, sg->toWidget(corners[2]).toPoint());
    // The last corner: a click, then the double-click's second press and its release.
    const QPoint last = sg->toWidget(corners[3]).toPoint();
    QTest::mouseClick(sg, Qt::LeftButton, Qt::NoModifier, last);
    QTest::mouseEvent(QTest::MouseDClick, sg, Qt::LeftButton, Qt::NoModifier, last);
    QTest::mouseRelease(sg, Qt::LeftButton, Qt::NoModifier, last);
    w.ui().calculateROIButton->click();
    answer(w, "Calculate");
    ok = save(w, out, "3-polygon-region.png") && ok;

    w.ui().reflectROIButton->click();
    ok = save(w, out, "4-revealed.png") && ok;

    for (int i = 0; i < 3; ++i) {
        w.ui().roiPreview->zoomIn();
    }
    ok = save(w, out, "5-revealed-zoomed.png") && ok;

    // The background window at a manual level: the view tints what Apply would black out.
    QTest::mouseClick(sg, Qt::LeftButton, Qt::NoModifier, sg->toWidget({250, 5}).toPoint());
    w.ui().roiPreview->zoomToFit();
    w.ui().backgroundButton->click();
    auto* background = w.findChild<pv::app::BackgroundWindow*>();
    if (background == nullptr) {
        return 1;
    }
    background->ui().autoManualTabView->setCurrentIndex(1);
    background->ui().rgbChannelPopUpMenu->setCurrentIndex(3);
    background->ui().thresholdSlider->setValue(30);
    ok = save(w, out, "8-background.png") && ok;
    const QString backgroundShot = out.filePath("9-background-window.png");
    const bool wrote = background->grab().save(backgroundShot);
    std::printf("%s %s\n", wrote ? "wrote" : "could not write", qPrintable(backgroundShot));
    ok = wrote && ok;

    w.ui().actionPreferences->trigger();
    ok = save(*w.findChild<pv::app::PreferencesDialog*>(), out, "6-preferences.png") && ok;
    w.ui().actionImageInfo->trigger();
    ok = save(*w.findChild<pv::app::ImageInfoDialog*>(), out, "7-image-info.png") && ok;

    // The help book on the coefficients, and the about box.
    pv::app::HelpWindow& help = pv::app::HelpWindow::instance();
    help.resize(980, 700);
    help.showPage("coefficients.html");
    ok = save(help, out, "10-help.png") && ok;
    w.ui().actionAbout->trigger();
    ok = save(pv::app::AboutBox::sharedInstance(), out, "11-about.png") && ok;
    ok = saveFurtherMeasures(argv[1], out) && ok;
    ok = saveInputs(argv[1], out, argc > 3 ? QString::fromLocal8Bit(argv[3]) : QString()) && ok;
    return ok ? 0 : 1;
}
