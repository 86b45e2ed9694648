#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QProgressDialog>
#include <QPushButton>
#include <QTemporaryDir>
#include <QtTest>

#include "app/MainWindow.h"
#include "ui_MainWindow.h"

using pv::app::MainWindow;

namespace {

const QString kSample = QStringLiteral(PV_SOURCE_DIR "/resources/sample-cells.tif");

// Opens a file as the user does and waits until the window has taken it.
bool open(MainWindow& w, const QString& path) {
    QSignalSpy finished(&w, &MainWindow::openFinished);
    w.openFile(path);
    return finished.wait(30000) && finished.at(0).at(0).toBool();
}

// Presses the button of the open question whose text is `text`.
void answer(MainWindow& w, const QString& text) {
    QMessageBox* box = w.openQuestion();
    QVERIFY(box != nullptr);
    for (QAbstractButton* b : box->buttons()) {
        if (b->text() == text) {
            QTest::mouseClick(b, Qt::LeftButton);
            return;
        }
    }
    QFAIL(qPrintable("no button " + text));
}

}  // namespace

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

    void changingThePairRelabels() {
        MainWindow w;
        QVERIFY(open(w, kSample));
        QComboBox* pairs = w.ui().channelsPopupMenu;
        QCOMPARE(pairs->count(), 8);  // six pairs, two separators
        pairs->setCurrentIndex(6);
        emit pairs->activated(6);  // "Blue (Y) / Red (X)"
        QCOMPARE(w.ui().yAxisColorText->text(), QString("Blue"));
        QCOMPARE(w.ui().xAxisColorText->text(), QString("Red"));
        QCOMPARE(w.ui().xyAxisPixelColorText->text(), QString("Magenta:"));
    }

    // Calculate asks first; each answer does what it says.
    void calculateAsksAboutTheBackground() {
        MainWindow w;
        QVERIFY(open(w, kSample));
        QTest::mouseClick(w.ui().calculateCoefficientButton, Qt::LeftButton);
        QVERIFY(w.openQuestion() != nullptr);
        QCOMPARE(w.openQuestion()->buttons().size(), 3);
        QCOMPARE(w.ui().coefficient_Rr->text(), QString());
        answer(w, "Calculate Anyway");
        QCOMPARE(w.ui().coefficient_Rr->text(), QString("0.2570"));
        QCOMPARE(w.ui().coefficient_k2->text(), QString("0.4835"));
        QVERIFY(w.ui().saveButton->isEnabled());

        // An unticked box shows ND after the next Calculate.
        QTest::mouseClick(w.ui().checkbox_k1, Qt::LeftButton);
        QTest::mouseClick(w.ui().calculateCoefficientButton, Qt::LeftButton);
        answer(w, "Calculate Anyway");
        QCOMPARE(w.ui().coefficient_k1->text(), QString("ND"));
        QCOMPARE(w.ui().coefficient_k2->text(), QString("ND"));
        QCOMPARE(w.ui().coefficient_m1->text(), QString("1.0000"));
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
