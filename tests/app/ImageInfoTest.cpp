#include <QFile>
#include <QFileInfo>
#include <QLabel>
#include <QTemporaryDir>
#include <QtTest>

#include "MainWindowDriving.h"
#include "app/ImageInfoDialog.h"
#include "app/MainWindow.h"
#include "ui_ImageInfoDialog.h"
#include "ui_MainWindow.h"

using pv::app::ImageInfoDialog;
using pv::app::MainWindow;

namespace {

using pv::test::kSample;
using pv::test::open;

// Image ▸ Image Info, and the panel it shows.
ImageInfoDialog* showInfo(MainWindow& w) {
    w.ui().actionImageInfo->trigger();
    return w.findChild<ImageInfoDialog*>();
}

// The eight texts as the panel shows them, top to bottom.
QStringList shown(ImageInfoDialog* panel) {
    const Ui::ImageInfoDialog& u = panel->ui();
    QStringList texts;
    for (const QLabel* l : {u.filePath, u.fileName, u.fileType, u.fileSize, u.size, u.bitDepth,
                            u.resolution, u.backgroundCorrected}) {
        texts << l->text();
    }
    return texts;
}

// Closes the panel as the user does and waits until it is gone.
bool closeInfo(MainWindow& w, ImageInfoDialog* panel) {
    panel->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    return w.findChild<ImageInfoDialog*>() == nullptr;
}

}  // namespace

class ImageInfoTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() {
        QStandardPaths::setTestModeEnabled(true);
        QCoreApplication::setOrganizationName("Pixmera");
    }

    // The texts themselves, pasted and corrected pictures too, are the controller's tests; here
    // each lands in its field.
    void showsTheFactsOfTheOpenedFile() {
        MainWindow w;
        QVERIFY(!w.ui().actionImageInfo->isEnabled());
        QVERIFY(open(w, kSample));
        ImageInfoDialog* panel = showInfo(w);
        QVERIFY(panel != nullptr);
        QVERIFY(panel->isVisible());
        QVERIFY(!panel->isModal());
        const QFileInfo file(kSample);
        const QStringList texts = shown(panel);
        QCOMPARE(texts.mid(0, 6),
                 QStringList({file.absolutePath(), "sample-cells.tif", "TIFF Image",
                              QString("%1 KB").arg(file.size() / 1024), "512 x 384 pixels", "24"}));
        QVERIFY2(QRegularExpression("^\\d+\\.\\d x \\d+\\.\\d dpi$").match(texts[6]).hasMatch(),
                 qPrintable(texts[6]));
        QCOMPARE(texts[7], QString("No"));
        // Asked again while it is open, the same panel comes to the front.
        QCOMPARE(showInfo(w), panel);
    }

    // The panel keeps the facts it was opened with; once closed, the next one is built anew.
    void eachOpeningShowsTheImageLoadedInBetween() {
        QTemporaryDir dir;
        const QString copy = dir.filePath("copy.TIF");
        QVERIFY(QFile::copy(kSample, copy));
        MainWindow w;
        QVERIFY(open(w, kSample));
        ImageInfoDialog* panel = showInfo(w);
        QVERIFY(open(w, copy));
        QCOMPARE(shown(panel)[1], QString("sample-cells.tif"));
        QVERIFY(closeInfo(w, panel));
        panel = showInfo(w);
        QCOMPARE(shown(panel).mid(0, 3), QStringList({dir.path(), "copy.TIF", "TIFF Image"}));
        // Escape closes it too, and lets it go likewise.
        QTest::keyClick(panel, Qt::Key_Escape);
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(w.findChild<ImageInfoDialog*>() == nullptr);
    }
};

QTEST_MAIN(ImageInfoTest)
#include "ImageInfoTest.moc"
