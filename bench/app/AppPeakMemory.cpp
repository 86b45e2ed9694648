// Peak memory of the desktop program opening a large TIFF and calculating its coefficients, as
// a multiple of the picture's working bitmap: the window on the offscreen platform, driven as
// a user drives it.
#include <QAbstractButton>
#include <QApplication>
#include <QEventLoop>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QStandardPaths>
#include <QTimer>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "app/MainWindow.h"
#include "peak-memory/PeakMemory.h"
#include "ui_MainWindow.h"

namespace {

int openAndCalculate(const std::string& path) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    int argc = 1;
    char name[] = "pv_app_peak_memory";
    char* argv[] = {name, nullptr};
    QApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);  // leave the user's recent files alone

    pv::app::MainWindow w;
    w.resize(1340, 720);
    w.show();
    bool opened = false;
    QEventLoop loop;
    QObject::connect(&w, &pv::app::MainWindow::openFinished, &loop, [&](bool ok) {
        opened = ok;
        loop.quit();
    });
    QTimer::singleShot(300000, &loop, &QEventLoop::quit);
    w.openFile(QString::fromStdString(path));
    loop.exec();
    if (!opened) {
        std::fprintf(stderr, "the window did not open %s\n", path.c_str());
        return 1;
    }
    w.ui().calculateCoefficientButton->click();
    QMessageBox* question = w.openQuestion();
    if (question == nullptr) {
        std::fprintf(stderr, "Calculate asked nothing\n");
        return 1;
    }
    for (QAbstractButton* button : question->buttons()) {
        if (button->text() == QObject::tr("Calculate Anyway")) {
            button->click();
            break;
        }
    }
    // Whatever the results cost to show counts too.
    QApplication::processEvents();
    if (w.ui().coefficient_Rr->text().isEmpty()) {
        std::fprintf(stderr, "Calculate Anyway left the coefficients empty\n");
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    return pv::bench::reportPeakMemory(argc > 1 ? std::atoi(argv[1]) : 64, openAndCalculate);
}
