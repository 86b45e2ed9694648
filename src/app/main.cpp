#include <QApplication>

#include "app/MainWindow.h"

#ifndef PV_VERSION
#define PV_VERSION "unknown"
#endif

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QApplication::setApplicationName("Pixmera Veltro");
    QApplication::setOrganizationName("Pixmera");
    QApplication::setApplicationVersion(PV_VERSION);
    pv::app::MainWindow window;
    window.show();
    const QStringList arguments = QApplication::arguments();
    if (arguments.size() > 1) {
        window.openFile(arguments.at(1));
    }
    return QApplication::exec();
}
