#include <QAction>
#include <QMessageBox>
#include <QPageSetupDialog>
#include <QPrintDialog>
#include <QPrinter>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "app/ImagePrinter.h"
#include "app/MainWindow.h"
#include "ui_MainWindow.h"

using pv::app::MainWindow;

namespace {

// A4 with margins of 60 (left), 40 (top), 20 (right) and 100 (bottom) points: a printable
// area of 515.28 x 701.89 points whose centre is not the page's.
const QPageLayout kLayout(QPageSize(QPageSize::A4), QPageLayout::Portrait,
                          QMarginsF(60, 40, 20, 100), QPageLayout::Point);

pv::Picture solid(int w, int h) {
    auto b = pv::Bitmap::create(w, h, 3, false, false);
    for (std::size_t i = 0; i < std::size_t(w) * std::size_t(h); ++i) {
        b->bitmapData()[3 * i] = 200;
        b->bitmapData()[3 * i + 1] = 30;
        b->bitmapData()[3 * i + 2] = 30;
    }
    return pv::Picture::at72dpi(std::move(*b));
}

void printToPdf(QPrinter& printer, const QString& path) {
    printer.setOutputFormat(QPrinter::PdfFormat);
    printer.setOutputFileName(path);
    printer.setPageLayout(kLayout);
}

bool havePoppler() {
    return !QStandardPaths::findExecutable("pdfinfo").isEmpty() &&
           !QStandardPaths::findExecutable("pdftoppm").isEmpty();
}

int pageCount(const QString& pdf) {
    QProcess info;
    info.start("pdfinfo", {pdf});
    info.waitForFinished(30000);
    const QString out = QString::fromUtf8(info.readAllStandardOutput());
    const QRegularExpressionMatch m = QRegularExpression("Pages:\\s+(\\d+)").match(out);
    return m.hasMatch() ? m.captured(1).toInt() : -1;
}

// The first page at 72 dpi, one pixel per point, and the box of its non-white pixels.
QRectF printedBox(const QString& pdf) {
    QProcess render;
    const QString stem = pdf + "-page";
    render.start("pdftoppm", {"-r", "72", "-png", "-singlefile", pdf, stem});
    render.waitForFinished(60000);
    const QImage page(stem + ".png");
    if (page.isNull()) {
        return QRectF();
    }
    QRect box;
    for (int y = 0; y < page.height(); ++y) {
        for (int x = 0; x < page.width(); ++x) {
            if (qRed(page.pixel(x, y)) < 250 || qGreen(page.pixel(x, y)) < 250) {
                box |= QRect(x, y, 1, 1);
            }
        }
    }
    return box;
}

bool near(const QRectF& got, const QRectF& want) {
    const double slack = 1.5;  // a point of rounding at each edge of the 72-dpi raster
    return std::abs(got.left() - want.left()) <= slack &&
           std::abs(got.top() - want.top()) <= slack &&
           std::abs(got.right() - want.right()) <= slack &&
           std::abs(got.bottom() - want.bottom()) <= slack;
}

QString describe(const QRectF& r) {
    return QString("(%1, %2) %3 x %4").arg(r.x()).arg(r.y()).arg(r.width()).arg(r.height());
}

}  // namespace

class PrintTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() {
        QStandardPaths::setTestModeEnabled(true);
        if (!havePoppler()) {
            QSKIP("pdfinfo and pdftoppm (poppler-utils) are needed to read the printouts");
        }
    }

    // One page; a picture that fits keeps its size, a larger one is scaled down to the
    // printable area keeping its proportions; both centred on that area, not on the paper.
    // (A wide picture is printed from the window below.)
    void onePageFittedAndCentred_data() {
        QTest::addColumn<QSize>("pixels");
        QTest::addColumn<QRectF>("onPage");  // in points from the page's top left
        QTest::newRow("small: own size") << QSize(100, 60) << QRectF(267.64, 360.95, 100, 60);
        QTest::newRow("tall: fits the height")
            << QSize(300, 1500) << QRectF(247.45, 40, 140.38, 701.89);
    }
    void onePageFittedAndCentred() {
        QFETCH(QSize, pixels);
        QFETCH(QRectF, onPage);
        QTemporaryDir dir;
        const QString pdf = dir.filePath("print.pdf");
        QPrinter printer(QPrinter::HighResolution);
        printToPdf(printer, pdf);
        QVERIFY(pv::app::printPicture(printer, solid(pixels.width(), pixels.height())));
        QCOMPARE(pageCount(pdf), 1);
        const QRectF box = printedBox(pdf);
        QVERIFY2(near(box, onPage), qPrintable(describe(box)));
    }

    // Print from the window: the picture as analysed goes to the PDF chosen in the print
    // dialog; Page Setup edits the same settings, so its margins change the next printout.
    void printAndPageSetupShareTheirSettings() {
        MainWindow w;
        w.controller().takePictureFromView(solid(2000, 500), std::nullopt);
        QVERIFY(w.ui().actionPrint->isEnabled());
        QTemporaryDir dir;

        w.ui().actionPrint->trigger();
        auto* print = w.findChild<QPrintDialog*>();
        QVERIFY(print != nullptr);
        QPrinter* shared = print->printer();
        printToPdf(*shared, dir.filePath("first.pdf"));
        print->done(QDialog::Accepted);
        QCOMPARE(pageCount(dir.filePath("first.pdf")), 1);
        const QRectF first = printedBox(dir.filePath("first.pdf"));
        QVERIFY2(near(first, QRectF(60, 326.53, 515.28, 128.82)), qPrintable(describe(first)));

        w.ui().actionPageSetup->trigger();
        auto* setup = w.findChild<QPageSetupDialog*>();
        QVERIFY(setup != nullptr);
        QCOMPARE(setup->printer(), shared);
        setup->printer()->setPageMargins(QMarginsF(100, 40, 100, 100), QPageLayout::Point);
        setup->done(QDialog::Accepted);

        w.ui().actionPrint->trigger();
        print = w.findChild<QPrintDialog*>();
        QVERIFY(print != nullptr);
        QCOMPARE(print->printer(), shared);
        shared->setOutputFileName(dir.filePath("second.pdf"));
        print->done(QDialog::Accepted);
        const QRectF second = printedBox(dir.filePath("second.pdf"));
        // 395.28 points wide now: scaled by 395.28 / 2000.
        QVERIFY2(near(second, QRectF(100, 341.53, 395.28, 98.82)), qPrintable(describe(second)));
    }

    // A printout that cannot be written says where it was going and why.
    void unwritableFileSaysWhy() {
        MainWindow w;
        w.controller().takePictureFromView(solid(10, 10), std::nullopt);
        w.ui().actionPrint->trigger();
        auto* print = w.findChild<QPrintDialog*>();
        QVERIFY(print != nullptr);
        printToPdf(*print->printer(), "/nonexistent/folder/print.pdf");
        print->done(QDialog::Accepted);
        const auto boxes = w.findChildren<QMessageBox*>();
        QVERIFY(!boxes.isEmpty());
        QVERIFY2(boxes.last()->text().startsWith("/nonexistent/folder/print.pdf: "),
                 qPrintable(boxes.last()->text()));
    }
};

QTEST_MAIN(PrintTest)
#include "PrintTest.moc"
