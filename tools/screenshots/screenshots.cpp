// Drives the desktop program's main window through the road of one image on the sample and
// saves what the window shows at each step: the pictures in docs/ that the README shows.
#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QSlider>
#include <QStandardPaths>
#include <QTabWidget>
#include <QTest>
#include <cstdio>

#include "app/AboutBox.h"
#include "app/BackgroundWindow.h"
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

}  // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QStandardPaths::setTestModeEnabled(true);  // the user's own settings stay out of it
    if (argc < 3) {
        std::fprintf(stderr, "usage: pv_screenshots IMAGE OUTPUT-FOLDER\n");
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
    return ok ? 0 : 1;
}
