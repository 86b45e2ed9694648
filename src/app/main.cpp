#include <QApplication>
#include <QCommandLineParser>
#include <QFileInfo>
#include <QIcon>
#include <QUrl>

#include "app/MainWindow.h"

#ifndef PV_VERSION
#define PV_VERSION "unknown"
#endif

namespace {

constexpr const char* kAppId = "com.pixmera.Veltro";

// The installed theme icon follows the desktop's theme; the bundled copy covers a program run
// from its build folder or a desktop without the hicolor theme.
QIcon applicationIcon() {
    QIcon bundled;
    for (int size : {16, 32, 48, 64, 128, 256}) {
        bundled.addFile(QStringLiteral(":/icons/%1x%1/apps/%2.png").arg(size).arg(kAppId));
    }
    return QIcon::fromTheme(kAppId, bundled);
}

// File managers may hand over a file: URL instead of a path.
QString localPath(const QString& argument) {
    const QUrl url(argument);
    const QString path = url.isLocalFile() ? url.toLocalFile() : argument;
    return QFileInfo(path).absoluteFilePath();
}

void nameTheProgram() {
    QCoreApplication::setApplicationName("Pixmera Veltro");
    QCoreApplication::setOrganizationName("Pixmera");
    QCoreApplication::setApplicationVersion(PV_VERSION);
}

void describeArguments(QCommandLineParser& parser) {
    parser.setApplicationDescription(
        QCoreApplication::translate("main",
                                    "Colocalization analysis of two-colour fluorescence "
                                    "images."));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.addPositionalArgument("file", QCoreApplication::translate("main", "The image to open."),
                                 "[FILE]");
}

// --help and --version are answered on the terminal, without a display to open a window on.
bool asksForTextOnly(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const QByteArray a(argv[i]);
        if (a == "--help" || a == "-h" || a == "--help-all" || a == "--version" || a == "-v") {
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    if (asksForTextOnly(argc, argv)) {
        QCoreApplication core(argc, argv);
        nameTheProgram();
        QCommandLineParser parser;
        describeArguments(parser);
        parser.process(core);  // prints and exits
        return 0;
    }
    QApplication application(argc, argv);
    nameTheProgram();
    // Ties the windows to com.pixmera.Veltro.desktop, whose icon and name the desktop shows.
    QGuiApplication::setDesktopFileName(kAppId);
    QApplication::setWindowIcon(applicationIcon());

    QCommandLineParser parser;
    describeArguments(parser);
    parser.process(application);

    pv::app::MainWindow window;
    window.show();
    const QStringList files = parser.positionalArguments();
    if (!files.isEmpty()) {
        window.openFile(localPath(files.first()));
    }
    return QApplication::exec();
}
