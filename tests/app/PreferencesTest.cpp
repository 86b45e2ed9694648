#include <QCheckBox>
#include <QColorDialog>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QSettings>
#include <QSlider>
#include <QtTest>

#include <algorithm>

#include "MainWindowDriving.h"
#include "app/ColorButton.h"
#include "app/MainWindow.h"
#include "app/PreferencesDialog.h"
#include "app/ScatterGramWidget.h"
#include "ui_MainWindow.h"
#include "ui_PreferencesDialog.h"

using pv::app::ColorButton;
using pv::app::MainWindow;
using pv::app::PreferencesDialog;

namespace {

// Edit ▸ Preferences…, and the panel it shows.
PreferencesDialog* showPreferences(MainWindow& w) {
    w.ui().actionPreferences->trigger();
    for (QWidget* window : QApplication::topLevelWidgets()) {
        if (auto* panel = qobject_cast<PreferencesDialog*>(window); panel && panel->isVisible()) {
            return panel;
        }
    }
    return nullptr;
}

int pixelsOf(const QImage& image, QRgb colour) {
    int n = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            n += image.pixel(x, y) == colour ? 1 : 0;
        }
    }
    return n;
}

// Chooses a colour in the dialog that the button opens, as the user does.
void chooseColour(ColorButton* button, const QColor& colour) {
    QTest::mouseClick(button, Qt::LeftButton);
    auto* dialog = button->findChild<QColorDialog*>();
    QVERIFY(dialog != nullptr);
    QVERIFY(dialog->testOption(QColorDialog::ShowAlphaChannel));
    dialog->setCurrentColor(colour);
    dialog->accept();
}

}  // namespace

class PreferencesTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() {
        QStandardPaths::setTestModeEnabled(true);
        QCoreApplication::setOrganizationName("Pixmera");
    }
    // Each test starts as a first run.
    void init() {
        const QString file = QSettings().fileName();
        QFile::remove(file);
        QFile::remove(file + ".unreadable");
    }

    void firstRunShowsTheDefaults() {
        MainWindow w;
        PreferencesDialog* panel = showPreferences(w);
        QVERIFY(panel != nullptr && panel->isVisible());
        Ui::PreferencesDialog& u = panel->ui();
        QVERIFY(u.fillROI->isChecked());
        QCOMPARE(u.roiOpacitySlider->value(), 20);
        QCOMPARE(u.opacityEntryValue->text(), QString("20"));
        QCOMPARE(u.roiBorderColor->color(), QColor(255, 0, 0));
        QCOMPARE(u.roiFillColor->color(), QColor(255, 255, 255));
        QVERIFY(u.roiFillColor->isEnabled());
        u.checkUpdatesButton->click();  // does nothing, and says nothing
        const QWidgetList windows = QApplication::topLevelWidgets();
        QVERIFY(std::none_of(windows.begin(), windows.end(), [](QWidget* t) {
            return t->isVisible() && t->inherits("QMessageBox");
        }));
        panel->close();
        QCOMPARE(showPreferences(w), panel);  // kept, not built again
    }

    void closingTheWindowWritesAllSixteenAndTheNextRunReadsThem() {
        {
            MainWindow w;
            w.close();
        }
        QSettings settings;
        const pv::UserPreferences defaults =
            pv::defaultUserPreferences(QDir::homePath().toStdString());
        for (const std::string_view key : pv::preferenceKeys()) {
            QCOMPARE(
                settings.value(QString::fromUtf8(key.data(), qsizetype(key.size()))).toString(),
                QString::fromStdString(pv::preferenceText(defaults, key)));
        }

        // Components that only their shortest decimal form gives back exactly.
        settings.setValue("ROI Fill Color", "0.1 0.33333334 0.99999994 1e-45");
        settings.setValue("Opacity Value", "0.35");
        settings.setValue("Default Image Scale", "-4");
        settings.sync();
        {
            MainWindow w;
            const pv::UserPreferences& p = w.controller().userPreferences();
            QCOMPARE(p.roiFillColor, (pv::Color{0.1f, 0.33333334f, 0.99999994f, 1e-45f}));
            QCOMPARE(p.opacityValue, 0.35f);
            QCOMPARE(showPreferences(w)->ui().opacityEntryValue->text(), QString("35"));
            w.close();
        }
        settings.sync();
        QCOMPARE(settings.value("ROI Fill Color").toString(),
                 QString("0.1 0.33333334 0.99999994 1e-45"));
        QCOMPARE(settings.value("Opacity Value").toString(), QString("0.35"));
        QCOMPARE(settings.value("Default Image Scale").toString(), QString("-4"));
    }

    void unreadableSettingsFallBackToDefaults_data() {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QString>("warning");
        QTest::addColumn<float>("opacity");
        QTest::newRow("not text") << QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16)
                                  << "is not a settings file" << 0.2f;
        QTest::newRow("cut short in a section")
            << QByteArray("[General]\nOpacity%20Value=0.7\n[Gen") << "is not a settings file"
            << 0.2f;
        QTest::newRow("cut short in a value")
            << QByteArray("[General]\nOpacity%20Value=0.7\nEnable%20Fill%20ROI=fal")
            << "\"Enable Fill ROI\" holds \"fal\"" << 0.7f;
        QTest::newRow("a list for a colour")
            << QByteArray("[General]\nROI%20Border%20Color=0, 1, 0, 1\n")
            << "\"ROI Border Color\" holds \"0, 1, 0, 1\"" << 0.2f;
        QTest::newRow("another type for a colour")
            << QByteArray("[General]\nROI%20Border%20Color=@Rect(0 0 1 1)\n")
            << "\"ROI Border Color\" holds \"<QRect>\"" << 0.2f;
    }
    void unreadableSettingsFallBackToDefaults() {
        QFETCH(QByteArray, file);
        QFETCH(QString, warning);
        QFETCH(float, opacity);
        const QString path = QSettings().fileName();
        QDir().mkpath(QFileInfo(path).path());
        QFile out(path);
        QVERIFY(out.open(QIODevice::WriteOnly));
        out.write(file);
        out.close();

        QTest::ignoreMessage(QtWarningMsg,
                             QRegularExpression("^" + QRegularExpression::escape(path) + ": .*" +
                                                QRegularExpression::escape(warning)));
        MainWindow w;
        const pv::UserPreferences& p = w.controller().userPreferences();
        QCOMPARE(p.opacityValue, opacity);
        QVERIFY(p.enableFillROI);
        QCOMPARE(p.roiBorderColor, (pv::Color{1, 0, 0, 1}));
        if (warning.startsWith("is not")) {  // kept aside before it is written over
            QFile kept(path + ".unreadable");
            QVERIFY(kept.open(QIODevice::ReadOnly));
            QCOMPARE(kept.readAll(), file);
        }
        w.close();
        QSettings settings;
        QCOMPARE(settings.value("Enable Fill ROI").toString(), QString("true"));
        QCOMPARE(settings.value("ROI Border Color").toString(), QString("1 0 0 1"));
    }

    void sliderAndPercentageMoveTogether() {
        MainWindow w;
        Ui::PreferencesDialog& u = showPreferences(w)->ui();
        const pv::UserPreferences& p = w.controller().userPreferences();
        u.roiOpacitySlider->setValue(50);  // as a drag does
        QCOMPARE(u.opacityEntryValue->text(), QString("50"));
        QCOMPARE(p.opacityValue, 0.5f);

        u.opacityEntryValue->setFocus();
        u.opacityEntryValue->selectAll();
        QTest::keyClicks(u.opacityEntryValue, "35");
        QCOMPARE(p.opacityValue, 0.5f);  // nothing until the entry is ended
        QTest::keyClick(u.opacityEntryValue, Qt::Key_Return);
        QCOMPARE(u.roiOpacitySlider->value(), 35);
        QCOMPARE(p.opacityValue, 0.35f);

        QTest::keyClick(u.roiOpacitySlider, Qt::Key_Right);
        QCOMPARE(u.opacityEntryValue->text(), QString("36"));
        QCOMPARE(p.opacityValue, 0.36f);
    }

    void turningTheFillOffGreysItsControls() {
        MainWindow w;
        Ui::PreferencesDialog& u = showPreferences(w)->ui();
        QWidget* const fillControls[] = {u.roiFillColor,   u.roiOpacitySlider, u.opacityEntryValue,
                                         u.roiOpacityText, u.roiFillText,      u.percentSignText};
        QTest::mouseClick(u.fillROI, Qt::LeftButton);
        QVERIFY(!w.controller().userPreferences().enableFillROI);
        for (QWidget* control : fillControls) {
            QVERIFY2(!control->isEnabled(), qPrintable(control->objectName()));
        }
        QVERIFY(u.roiBorderColor->isEnabled());
        QTest::mouseClick(u.fillROI, Qt::LeftButton);
        QVERIFY(w.controller().userPreferences().enableFillROI);
        for (QWidget* control : fillControls) {
            QVERIFY2(control->isEnabled(), qPrintable(control->objectName()));
        }
    }

    // A new colour replaces the scatter-gram marker (and its region) by one in that colour,
    // and the scatter gram is painted again.
    void aColourChangeReachesTheScatterGramMarker() {
        MainWindow w;
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        pv::app::ScatterGramWidget* sg = w.ui().scatterGramGraph;
        pv::test::drag(sg, {60, 60}, {190, 190});
        QVERIFY(pixelsOf(sg->grab().toImage(), qRgb(255, 0, 0)) > 400);

        int paints = 0;
        struct PaintCounter : QObject {
            int& n;
            explicit PaintCounter(int& count) : n(count) {}
            bool eventFilter(QObject*, QEvent* e) override {
                n += e->type() == QEvent::Paint ? 1 : 0;
                return false;
            }
        } counter(paints);
        sg->installEventFilter(&counter);
        Ui::PreferencesDialog& u = showPreferences(w)->ui();
        chooseColour(u.roiBorderColor, QColor(0, 255, 0));
        QCOMPARE(u.roiBorderColor->color(), QColor(0, 255, 0));
        QCOMPARE(w.controller().userPreferences().roiBorderColor, (pv::Color{0, 1, 0, 1}));
        QTRY_VERIFY(paints > 0);
        sg->removeEventFilter(&counter);
        QCOMPARE(pixelsOf(sg->grab().toImage(), qRgb(255, 0, 0)), 0);  // the region is gone

        u.roiOpacitySlider->setValue(100);
        pv::test::drag(sg, {60, 60}, {190, 190});
        const QImage drawn = sg->grab().toImage();
        QVERIFY(pixelsOf(drawn, qRgb(0, 255, 0)) > 400);
        QCOMPARE(pixelsOf(drawn, qRgb(255, 0, 0)), 0);
        // Filled with opaque white now; the empty scatter gram around it stays black.
        QCOMPARE(drawn.pixel(sg->toWidget({125, 125}).toPoint()), qRgb(255, 255, 255));
        QCOMPARE(drawn.pixel(sg->toWidget({30, 30}).toPoint()), qRgb(0, 0, 0));
    }

    // Closing the main window ends the program even while the panel is open. Last, as the
    // application's event loop runs and stops here.
    void closingTheWindowQuitsWithThePanelOpen() {
        MainWindow w;
        w.show();
        QVERIFY(QTest::qWaitForWindowExposed(&w));
        QVERIFY(showPreferences(w)->isVisible());
        QTimer stillRunning;
        stillRunning.setSingleShot(true);
        connect(&stillRunning, &QTimer::timeout, qApp, &QCoreApplication::quit);
        stillRunning.start(5000);
        QTimer::singleShot(0, &w, &QWidget::close);
        QCoreApplication::exec();
        QVERIFY(stillRunning.isActive());
    }
};

QTEST_MAIN(PreferencesTest)
#include "PreferencesTest.moc"
