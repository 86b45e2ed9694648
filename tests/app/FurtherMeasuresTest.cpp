#include <QCheckBox>
#include <QClipboard>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTemporaryDir>
#include <QTreeWidget>
#include <QtTest>

#include <array>
#include <random>
#include <utility>
#include <vector>

#include "BruteMeasures.h"
#include "MainWindowDriving.h"
#include "app/FurtherMeasuresPanel.h"
#include "ui_MainWindow.h"

using pv::app::FurtherMeasuresPanel;
using pv::app::MainWindow;
using pv::test::shownCensus;
using pv::test::unnamedControl;

namespace {

const QColor kLineColour(0, 200, 255);

// A picture of red (Y) and green (X) samples, blue 0: green follows red with noise, and about
// a fifth of each channel is 0, so that every census class occurs.
struct Pair {
    int w = 0, h = 0;
    std::vector<int> y, x;

    QImage image() const {
        QImage out(w, h, QImage::Format_RGB888);
        for (int i = 0; i < w * h; ++i) {
            out.setPixelColor(i % w, i / w, QColor(y[i], x[i], 0));
        }
        return out;
    }
};

Pair randomPair(int w, int h, unsigned seed) {
    std::mt19937 rng(seed);
    Pair p{w, h, {}, {}};
    for (int i = 0; i < w * h; ++i) {
        const int red = rng() % 5 == 0 ? 0 : int(rng() % 220);
        p.y.push_back(red);
        p.x.push_back(rng() % 5 == 0 ? 0 : std::min(255, red / 2 + int(rng() % 80)));
    }
    return p;
}

// The census the window shows of (Y, X) with samples at or below (ty, tx) set to 0: Y only,
// X only, both.
std::array<QString, 3> census(const Pair& p, int ty = 0, int tx = 0) {
    std::array<int, 3> n{};
    for (std::size_t i = 0; i < p.y.size(); ++i) {
        const bool y = p.y[i] > ty, x = p.x[i] > tx;
        n[0] += y && !x;
        n[1] += !y && x;
        n[2] += y && x;
    }
    return {QString::number(n[0]), QString::number(n[1]), QString::number(n[2])};
}

void paste(MainWindow& w, const Pair& p) {
    QApplication::clipboard()->setImage(p.image());
    w.ui().actionPaste->trigger();
}

template <class T>
T* control(MainWindow& w, const char* name) {
    T* c = w.findChild<T*>(name);
    if (c == nullptr) {
        qFatal("no control %s", name);
    }
    return c;
}

FurtherMeasuresPanel& panel(MainWindow& w) {
    return *control<FurtherMeasuresPanel>(w, "furtherMeasuresBox");
}

// Ticks exactly the named measures.
void ask(MainWindow& w, const QStringList& measures) {
    for (const char* box : {"spearmanCheckBox", "kendallCheckBox", "icqCheckBox", "costesCheckBox",
                            "significanceCheckBox"}) {
        QCheckBox* c = control<QCheckBox>(w, box);
        c->setChecked(measures.contains(QString(box).remove("CheckBox")));
    }
}

// Presses the panel's Calculate and waits until it has ended.
bool calculate(MainWindow& w) {
    QSignalSpy ended(&panel(w), &FurtherMeasuresPanel::calculationEnded);
    QTest::mouseClick(control<QPushButton>(w, "calculateMeasuresButton"), Qt::LeftButton);
    return !ended.isEmpty() || ended.wait(60000);
}

// The results list as (name, value) rows.
std::vector<std::pair<QString, QString>> shownResults(MainWindow& w) {
    auto* list = control<QTreeWidget>(w, "furtherMeasuresResults");
    std::vector<std::pair<QString, QString>> rows;
    for (int i = 0; i < list->topLevelItemCount(); ++i) {
        rows.emplace_back(list->topLevelItem(i)->text(0), list->topLevelItem(i)->text(1));
    }
    return rows;
}

QString shown(MainWindow& w, const QString& name) {
    for (const auto& [n, v] : shownResults(w)) {
        if (n == name) {
            return v;
        }
    }
    return "(none)";
}

// How many screen pixels of the scatter gram's column for X level `x` (or row for Y level `y`)
// have the threshold lines' colour.
int lineCoverage(pv::app::ScatterGramWidget* sg, std::optional<int> x, std::optional<int> y) {
    const QImage shot = sg->grab().toImage();
    const QPoint o = sg->pictureOrigin();
    const int z = sg->zoom();
    int n = 0;
    for (int i = 0; i < 256 * z; ++i) {
        const QPoint at =
            x ? QPoint(o.x() + *x * z, o.y() + i) : QPoint(o.x() + i, o.y() + (255 - *y) * z);
        n += shot.pixelColor(at) == kLineColour;
    }
    return n;
}

// Starts a significance test that would take far longer than any test runs.
void startLongTest(MainWindow& w) {
    ask(w, {"significance"});
    control<QSpinBox>(w, "shufflesSpinBox")->setValue(1000000);
    control<QSpinBox>(w, "psfSpinBox")->setValue(2);
    QTest::mouseClick(control<QPushButton>(w, "calculateMeasuresButton"), Qt::LeftButton);
}

}  // namespace

class FurtherMeasuresTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    // The list shows the report's lines in its order; the values are those of the pixels.
    void resultsAreTheReportLinesOfThePixels() {
        MainWindow w;
        const Pair p = randomPair(40, 30, 1);
        paste(w, p);
        ask(w, {"spearman", "kendall", "icq", "costes", "significance"});
        control<QSpinBox>(w, "shufflesSpinBox")->setValue(30);
        control<QSpinBox>(w, "psfSpinBox")->setValue(3);
        QVERIFY(calculate(w));
        QStringList names;
        for (const auto& row : shownResults(w)) {
            names << row.first;
        }
        QCOMPARE(names, QStringList({"Spearman", "Kendall", "ICQ", "Costes Y threshold",
                                     "Costes X threshold", "Costes slope", "Costes intercept",
                                     "Costes Rr", "tM1", "tM2", "Observed r", "Shuffled r mean",
                                     "Shuffled r SD", "P-value", "PSF size"}));

        // Spearman over the pixels Rr uses, ranks by sorting; the observed r over all.
        pv::test::Values y, x, allY, allX;
        for (std::size_t i = 0; i < p.y.size(); ++i) {
            allY.push_back(p.y[i]);
            allX.push_back(p.x[i]);
            if (p.y[i] > 0 || p.x[i] > 0) {
                y.push_back(p.y[i]);
                x.push_back(p.x[i]);
            }
        }
        const auto text = [](double v) { return QString::asprintf("%0.4f", v); };
        QCOMPARE(shown(w, "Spearman"),
                 text(pv::test::pearson(pv::test::ranks(y), pv::test::ranks(x))));
        QCOMPARE(shown(w, "Observed r"), text(pv::test::pearson(allY, allX)));
        QCOMPARE(shown(w, "PSF size"), QString("3"));
    }

    // Costes' thresholds are drawn as two lines while the results hold them; Apply Costes
    // Thresholds keeps only the pixels above them, and Restore Original brings back the rest.
    void costesThresholdsAreDrawnAndApplied() {
        MainWindow w;
        w.resize(1340, 720);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        const Pair p = randomPair(60, 40, 2);
        paste(w, p);
        QCOMPARE(shownCensus(w), census(p));
        auto* apply = control<QPushButton>(w, "applyCostesButton");
        pv::app::ScatterGramWidget* sg = w.ui().scatterGramGraph;

        ask(w, {"spearman"});
        QVERIFY(calculate(w));
        QVERIFY(!apply->isEnabled());
        QVERIFY(!sg->thresholdLines());

        ask(w, {"costes"});
        QVERIFY(calculate(w));
        QVERIFY(apply->isEnabled());
        bool ok = false;
        const int ty = shown(w, "Costes Y threshold").toInt(&ok);
        QVERIFY(ok);
        const int tx = shown(w, "Costes X threshold").toInt(&ok);
        QVERIFY(ok);
        QVERIFY(tx > 0 && ty > 0);
        for (const QSize size : {QSize(1340, 720), QSize(2400, 1300)}) {  // at 1x and 2x
            w.resize(size);
            QTRY_COMPARE(sg->zoom(), size.width() / 1200);
            QCOMPARE(lineCoverage(sg, tx, std::nullopt), 256 * sg->zoom());
            QCOMPARE(lineCoverage(sg, std::nullopt, ty), 256 * sg->zoom());
            // Crossed only by the other line.
            QCOMPARE(lineCoverage(sg, tx + 1, std::nullopt), sg->zoom());
        }

        QTest::mouseClick(apply, Qt::LeftButton);
        QCOMPARE(shownCensus(w), census(p, ty, tx));
        QVERIFY(shownResults(w).empty());  // the analysis started over
        QVERIFY(!apply->isEnabled());
        QCOMPARE(lineCoverage(sg, tx, std::nullopt), 0);
        QCOMPARE(lineCoverage(sg, std::nullopt, ty), 0);

        QVERIFY(w.ui().actionRestore->isEnabled());
        w.ui().actionRestore->trigger();
        QCOMPARE(shownCensus(w), census(p));
    }

    // The report saved while the panel has results carries its block after the scatter-gram
    // block; without results it is left out.
    void savedReportCarriesTheBlock() {
        QTemporaryDir dir;
        MainWindow w;
        const Pair p = randomPair(30, 20, 4);
        paste(w, p);
        const auto report = [&](const QString& name) {
            const QString stem = dir.filePath(name);
            if (!w.saveResults(stem, pv::ReportFormat::PlainText, false)) {
                return QString("(not saved)");
            }
            QFile f(stem + ".txt");
            return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll())
                                               : QString("(unreadable)");
        };
        QVERIFY(!report("plain").contains("Further Measures"));

        ask(w, {"spearman", "icq"});
        QVERIFY(calculate(w));
        const QString block = "\nFurther Measures\nSpearman\t" + shown(w, "Spearman") + "\nICQ\t" +
                              shown(w, "ICQ") + "\n\n";
        const QString saved = report("further");
        QVERIFY2(saved.endsWith(block), qPrintable(saved));
        QVERIFY(saved.indexOf("Scatter Gram ROI") < saved.indexOf(block));
    }

    // The test runs on a worker: the progress moves while the window answers, Cancel stops it
    // and leaves no results, and the panel is ready again.
    void significanceTestRunsOffTheEventLoopAndCancels() {
        MainWindow w;
        w.resize(1340, 720);
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        paste(w, randomPair(512, 512, 5));
        auto* progress = control<QProgressBar>(w, "significanceProgress");
        auto* cancel = control<QPushButton>(w, "cancelMeasuresButton");
        auto* calc = control<QPushButton>(w, "calculateMeasuresButton");
        QVERIFY(!progress->isVisible() && !cancel->isVisible());

        QSignalSpy ended(&panel(w), &FurtherMeasuresPanel::calculationEnded);
        startLongTest(w);
        QVERIFY(panel(w).testRunning());
        QVERIFY(progress->isVisible() && cancel->isVisible() && cancel->isEnabled());
        QVERIFY(!calc->isVisible());             // the progress takes its place
        QCOMPARE(unnamedControl(w), QString());  // the running controls too
        QTRY_VERIFY_WITH_TIMEOUT(progress->value() > 0, 20000);
        // The window still answers: the coefficients calculate meanwhile.
        QTest::mouseClick(w.ui().calculateCoefficientButton, Qt::LeftButton);
        pv::test::answer(w, "Calculate Anyway");
        QVERIFY(!w.ui().coefficient_R->text().isEmpty());

        QTest::mouseClick(cancel, Qt::LeftButton);
        QVERIFY(ended.wait(20000));
        QVERIFY(!panel(w).testRunning());
        QVERIFY(!progress->isVisible() && !cancel->isVisible());
        QVERIFY(shownResults(w).empty());
        QVERIFY(calc->isVisible() && calc->isEnabled());
    }

    // Another picture, or another pair, while the test runs: the test stops and its result is
    // not taken for the new analysis; the panel then calculates the new one.
    void anotherPictureWhileTheTestRunsDropsIt() {
        QTemporaryDir dir;
        const QString other = dir.filePath("other.png");
        QVERIFY(randomPair(30, 20, 6).image().save(other));
        for (const bool openAnother : {true, false}) {
            MainWindow w;
            paste(w, randomPair(512, 512, 7));
            QSignalSpy ended(&panel(w), &FurtherMeasuresPanel::calculationEnded);
            startLongTest(w);
            QVERIFY(panel(w).testRunning());
            if (openAnother) {
                QVERIFY(pv::test::open(w, other));
            } else {
                w.ui().channelsPopupMenu->setCurrentIndex(1);
                emit w.ui().channelsPopupMenu->activated(1);
            }
            QVERIFY(ended.wait(20000));
            QVERIFY(shownResults(w).empty());

            control<QSpinBox>(w, "shufflesSpinBox")->setValue(10);
            QVERIFY(calculate(w));
            QCOMPARE(shownResults(w).size(), std::size_t(5));
        }
    }

    // Closing the window while the test runs stops the test and waits for it.
    void closingTheWindowWhileTheTestRunsEndsIt() {
        auto* w = new MainWindow;
        w->show();
        paste(*w, randomPair(512, 512, 8));
        startLongTest(*w);
        QVERIFY(panel(*w).testRunning());
        w->close();
        delete w;  // returns only once the worker has stopped
    }

    // Every control has a name a screen reader says, the panel fits the window at the size it
    // opens at, and Tab and the mnemonics reach it.
    void panelIsReachableAndFits() {
        MainWindow w;
        w.resize(1340, 720);
        w.show();
        w.activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(&w));
        paste(w, randomPair(20, 20, 9));
        ask(w, {"significance"});
        QCOMPARE(unnamedControl(panel(w)), QString());
        // At the size the window opens at on a 1366 x 768 screen, the list shows three lines.
        QVERIFY(panel(w).height() >= panel(w).minimumSizeHint().height());
        auto* list = control<QTreeWidget>(w, "furtherMeasuresResults");
        QVERIFY(list->viewport()->height() >= 3 * list->fontMetrics().lineSpacing());

        auto* kendall = control<QCheckBox>(w, "kendallCheckBox");
        QVERIFY(!kendall->isChecked());
        QTest::keyClick(&w, Qt::Key_K, Qt::AltModifier);
        QTRY_VERIFY(kendall->isChecked());  // a mnemonic's click is animated
        QTest::keyClick(&w, Qt::Key_D, Qt::AltModifier);
        QVERIFY(control<QSpinBox>(w, "seedSpinBox")->hasFocus());

        w.ui().reflectROIButton->setEnabled(true);
        w.ui().reflectROIButton->setFocus();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QVERIFY(control<QCheckBox>(w, "spearmanCheckBox")->hasFocus());
        control<QTreeWidget>(w, "furtherMeasuresResults")->setFocus();
        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
        QVERIFY(w.ui().backgroundButton->hasFocus());
    }
};

QTEST_MAIN(FurtherMeasuresTest)
#include "FurtherMeasuresTest.moc"
