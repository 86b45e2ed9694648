#include <QButtonGroup>
#include <QComboBox>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSlider>
#include <QSpinBox>
#include <QTabWidget>
#include <QtTest>

#include <array>
#include <vector>

#include "MainWindowDriving.h"
#include "app/BackgroundWindow.h"
#include "app/ImageView.h"
#include "app/MainWindow.h"
#include "ui_BackgroundWindow.h"
#include "ui_MainWindow.h"

using pv::app::BackgroundWindow;
using pv::app::ImageView;
using pv::app::MainWindow;

namespace {

using pv::test::kSample;

using RGB = std::array<int, 3>;
using Pixels = std::vector<RGB>;  // rows top to bottom

// Two colours: red rises to the right, green downwards, blue is 0. Every level of both
// occurs, and no pixel has the grey of the view's surround.
pv::Picture twoColourPicture(int w, int h) {
    auto b = pv::Bitmap::create(w, h, 3, false, false);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            std::uint8_t* p = b->bitmapData() + (y * w + x) * 3;
            p[0] = std::uint8_t(x * 255 / (w - 1));
            p[1] = std::uint8_t(y * 255 / (h - 1));
            p[2] = 0;
        }
    }
    return pv::Picture::at72dpi(std::move(*b));
}

Pixels pixelsOf(const pv::Picture& p) {
    Pixels out;
    const pv::ChannelView rgb = p.bitmap->channels();
    for (int y = 0; y < p.pixelsHigh(); ++y) {
        for (int x = 0; x < p.pixelsWide(); ++x) {
            out.push_back({*rgb.sample(0, y, x), *rgb.sample(1, y, x), *rgb.sample(2, y, x)});
        }
    }
    return out;
}

// Popup items: red, green, blue, all channels.
bool chosen(int channelItem, int k) {
    return channelItem == 3 || channelItem == k;
}

// Every sample of the chosen channels at or below the level becomes 0.
Pixels thresholded(Pixels pixels, int channelItem, int level) {
    for (RGB& p : pixels) {
        for (int k = 0; k < 3; ++k) {
            if (chosen(channelItem, k) && p[std::size_t(k)] <= level) {
                p[std::size_t(k)] = 0;
            }
        }
    }
    return pixels;
}

// Whether the window should tint the pixel: its chosen sample at or below the level, or for
// all channels every sample.
bool blackedOut(const RGB& p, int channelItem, int level) {
    bool all = true;
    for (int k = 0; k < 3; ++k) {
        if (chosen(channelItem, k)) {
            all = all && p[std::size_t(k)] <= level;
        }
    }
    return all;
}

struct Window {
    MainWindow main;
    BackgroundWindow* background = nullptr;

    explicit Window(const pv::Picture& picture) {
        main.resize(1340, 720);
        main.show();
        main.controller().takePictureFromView(picture, std::nullopt);
    }
    void open() {
        QTest::mouseClick(main.ui().backgroundButton, Qt::LeftButton);
        background = main.findChild<BackgroundWindow*>();
    }
    Pixels analysed() { return pixelsOf(main.controller().currentDisplayedImage()); }
    void manual(int channelItem, int level) {
        Ui::BackgroundWindow& u = background->ui();
        u.autoManualTabView->setCurrentIndex(1);
        u.rgbChannelPopUpMenu->setCurrentIndex(channelItem);
        u.thresholdSlider->setValue(level);
    }
    void apply() { QTest::mouseClick(background->ui().applyButton, Qt::LeftButton); }
    bool restoreEnabled() {
        emit main.ui().menuImage->aboutToShow();  // as the menu bar does before showing it
        return main.ui().actionRestore->isEnabled();
    }
};

// Where the picture is drawn in the view: the box of pixels that are not the surround's grey.
QRect drawnPicture(ImageView& view) {
    const QImage shot = view.grab().toImage().convertToFormat(QImage::Format_RGB32);
    QRect box;
    for (int y = 0; y < shot.height(); ++y) {
        for (int x = 0; x < shot.width(); ++x) {
            if (shot.pixel(x, y) != qRgb(48, 48, 48)) {
                box |= QRect(x, y, 1, 1);
            }
        }
    }
    return box;
}

// Which drawn pixels of `at` carry the tint: blue, which the pictures here do not have.
std::vector<bool> tinted(ImageView& view, const QRect& at) {
    const QImage shot = view.grab().toImage().convertToFormat(QImage::Format_RGB32);
    std::vector<bool> out;
    for (int y = at.top(); y <= at.bottom(); ++y) {
        for (int x = at.left(); x <= at.right(); ++x) {
            out.push_back(qBlue(shot.pixel(x, y)) > 100);
        }
    }
    return out;
}

// The census of the image column, counted pixel by pixel: red, green and yellow classes.
std::array<int, 3> census(const Pixels& pixels) {
    std::array<int, 3> n{};
    for (const RGB& p : pixels) {
        if (p[2] != 0) {
            continue;
        }
        if (p[0] > 0 && p[1] == 0) {
            ++n[0];
        } else if (p[0] == 0 && p[1] > 0) {
            ++n[1];
        } else if (p[0] > 0 && p[1] > 0) {
            ++n[2];
        }
    }
    return n;
}

}  // namespace

class BackgroundWindowTest : public QObject {
    Q_OBJECT

  private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }

    // A tool window beside the main one, and one window for every way of asking for it, kept
    // with its settings when closed.
    void everyRouteOpensTheOneWindow() {
        Window w(twoColourPicture(64, 48));
        w.open();
        QVERIFY(w.background != nullptr);
        Ui::BackgroundWindow& u = w.background->ui();
        QVERIFY(w.background->isVisible());
        QVERIFY(w.background->windowFlags().testFlag(Qt::Tool));
        QCOMPARE(w.background->windowModality(), Qt::NonModal);
        QVERIFY(w.main.isEnabled());
        QCOMPARE(u.rgbChannelPopUpMenu->currentText(), QString("All Channels"));

        w.manual(1, 40);
        QTest::mouseClick(u.doneButton, Qt::LeftButton);
        QVERIFY(!w.background->isVisible());

        // The menu item, and the answers of both warnings.
        w.main.ui().actionBackground->trigger();
        QVERIFY(w.background->isVisible());
        w.background->close();
        QTest::mouseClick(w.main.ui().calculateCoefficientButton, Qt::LeftButton);
        pv::test::answer(w.main, "Correct Background...");
        QVERIFY(w.background->isVisible());
        w.background->close();
        pv::test::drag(w.main.ui().scatterGramGraph, {10, 10}, {100, 100});
        QTest::mouseClick(w.main.ui().calculateROIButton, Qt::LeftButton);
        pv::test::answer(w.main, "Background...");
        QVERIFY(w.background->isVisible());

        QCOMPARE(w.main.findChildren<BackgroundWindow*>().size(), 1);
        QCOMPARE(u.autoManualTabView->currentIndex(), 1);
        QCOMPARE(u.rgbChannelPopUpMenu->currentText(), QString("Green"));
        QCOMPARE(u.thresholdEntryValue->value(), 40);
    }

    // The slider and the number field follow each other.
    void sliderAndFieldInStep() {
        Window w(twoColourPicture(64, 48));
        w.open();
        Ui::BackgroundWindow& u = w.background->ui();
        u.autoManualTabView->setCurrentIndex(1);
        const int steps[][2] = {{0, 100}, {1, 37}, {0, 255}, {1, 0}, {0, 12}};
        for (const auto& [typed, value] : steps) {
            if (typed) {
                u.thresholdEntryValue->setFocus();
                u.thresholdEntryValue->selectAll();
                QTest::keyClicks(u.thresholdEntryValue, QString::number(value));
            } else {
                u.thresholdSlider->setValue(value);
            }
            QCOMPARE(u.thresholdSlider->value(), value);
            QCOMPARE(u.thresholdEntryValue->value(), value);
        }
        QTest::keyClick(u.thresholdSlider, Qt::Key_Right);
        QCOMPARE(u.thresholdEntryValue->value(), 13);
    }

    // Apply with each preset row, each channel and the manual level changes exactly the
    // samples at or below the level; Reset brings back the picture as loaded.
    void applyThresholdsWhatTheControlsSay_data() {
        QTest::addColumn<int>("tab");
        QTest::addColumn<int>("row");
        QTest::addColumn<int>("channel");
        QTest::addColumn<int>("level");
        QTest::newRow("preset 25, all") << 0 << 0 << 3 << 25;
        QTest::newRow("preset 50, red") << 0 << 1 << 0 << 50;
        QTest::newRow("preset 75, green") << 0 << 2 << 1 << 75;
        QTest::newRow("manual 130, red") << 1 << 0 << 0 << 130;
        QTest::newRow("manual 200, green") << 1 << 2 << 1 << 200;
        QTest::newRow("manual 0, all") << 1 << 1 << 3 << 0;
        QTest::newRow("manual 255, blue") << 1 << 0 << 2 << 255;
    }
    void applyThresholdsWhatTheControlsSay() {
        QFETCH(int, tab);
        QFETCH(int, row);
        QFETCH(int, channel);
        QFETCH(int, level);
        Window w(twoColourPicture(64, 48));
        const Pixels loaded = w.analysed();
        w.open();
        Ui::BackgroundWindow& u = w.background->ui();
        u.thresholdSlider->setValue(tab == 1 ? level : 222);  // the preset wins on its tab
        u.autoSelection->button(row)->click();
        u.rgbChannelPopUpMenu->setCurrentIndex(channel);
        u.autoManualTabView->setCurrentIndex(tab);
        QVERIFY(!w.restoreEnabled());
        w.apply();
        QVERIFY(w.analysed() == thresholded(loaded, channel, level));
        QCOMPARE(w.main.ui().roiPreview->picture().bitmap,
                 w.main.controller().currentDisplayedImage().bitmap);
        QVERIFY(w.restoreEnabled());
        QTest::mouseClick(u.resetImageButton, Qt::LeftButton);
        QVERIFY(w.analysed() == loaded);
        QVERIFY(!w.restoreEnabled());
    }

    // While the window is open the view tints what Apply would black out, and nothing else;
    // the picture stays as it is until Apply. Closing the window takes the tint away.
    void previewTintsWhatApplyWouldRemove() {
        Window w(twoColourPicture(64, 48));
        ImageView& view = *w.main.ui().roiPreview;
        const Pixels loaded = w.analysed();
        const QRect at = drawnPicture(view);
        QCOMPARE(at.size(), QSize(64, 48));  // drawn at 100 %: one drawn pixel per pixel
        const std::vector<bool> none(std::size_t(64 * 48), false);
        QVERIFY(tinted(view, at) == none);

        w.open();
        const int cases[][2] = {{0, 100}, {1, 30}, {2, 0}, {3, 128}, {3, 0}, {0, 255}};
        for (const auto& [channel, level] : cases) {
            w.manual(channel, level);
            std::vector<bool> want;
            for (const RGB& p : loaded) {
                want.push_back(blackedOut(p, channel, level));
            }
            QVERIFY2(tinted(view, at) == want,
                     qPrintable(QString("channel %1 level %2").arg(channel).arg(level)));
        }
        // The automatic tab previews its preset, not the slider.
        w.background->ui().autoManualTabView->setCurrentIndex(0);
        w.background->ui().autoSelection->button(2)->click();
        std::vector<bool> want;
        for (const RGB& p : loaded) {
            want.push_back(blackedOut(p, 0, 75));
        }
        QVERIFY(tinted(view, at) == want);

        QVERIFY(w.analysed() == loaded);
        QCOMPARE(w.main.controller().workingImage().imageFileInfo.backgroundCorrected, 0);
        QVERIFY(!w.restoreEnabled());

        w.apply();  // red at or below 75 is 0 now, and still tinted
        QVERIFY(w.analysed() == thresholded(loaded, 0, 75));
        QVERIFY(tinted(view, at) == want);

        QTest::mouseClick(w.background->ui().doneButton, Qt::LeftButton);
        QVERIFY(tinted(view, at) == none);
    }

    // On a picture drawn reduced, a drawn pixel is tinted when the picture pixels it stands
    // for would be blacked out: blocks of 10 x 10 pixels drawn as one pixel each.
    void previewOnAReducedPicture() {
        ImageView view;
        view.resize(200, 200);
        auto b = pv::Bitmap::create(2000, 1000, 3, false, false);
        const auto level = [](int x, int y) { return (x / 10 * 7 + y / 10 * 13) % 256; };
        for (int y = 0; y < 1000; ++y) {
            for (int x = 0; x < 2000; ++x) {
                std::uint8_t* p = b->bitmapData() + (std::size_t(y) * 2000 + x) * 3;
                p[0] = std::uint8_t(level(x, y));
                p[1] = 255;
                p[2] = 0;
            }
        }
        view.setPicture(pv::Picture::at72dpi(std::move(*b)));
        view.show();
        QCOMPARE(view.zoom(), 0.1);
        pv::BackgroundSettings settings;
        settings.channel = pv::BackgroundChannel::Red;
        settings.redThreshold = 90;
        view.setBackgroundPreview(settings);
        const QRect at(0, 50, 200, 100);
        std::vector<bool> want;
        for (int y = 0; y < 100; ++y) {
            for (int x = 0; x < 200; ++x) {
                want.push_back(level(x * 10, y * 10) <= 90);
            }
        }
        QVERIFY(tinted(view, at) == want);
        view.setBackgroundPreview(std::nullopt);
        QVERIFY(tinted(view, at) == std::vector<bool>(want.size(), false));
    }

    // Apply on the sample: the pixel information then counts the corrected pixels, as a count
    // over the pixels says; corrections accumulate; Restore Original counts the original again.
    void applyRecountsAndCorrectionsAccumulate() {
        MainWindow main;
        QVERIFY(pv::test::open(main, kSample));
        QTest::mouseClick(main.ui().backgroundButton, Qt::LeftButton);
        auto* background = main.findChild<BackgroundWindow*>();
        QVERIFY(background != nullptr);
        Ui::BackgroundWindow& u = background->ui();
        const Pixels loaded = pixelsOf(main.controller().currentDisplayedImage());
        const auto shown = [&] {
            return std::array<int, 3>{main.ui().yAxisPixelCountText->text().toInt(),
                                      main.ui().xAxisPixelCountText->text().toInt(),
                                      main.ui().xyAxisPixelCountText->text().toInt()};
        };
        QCOMPARE(shown(), census(loaded));

        u.autoManualTabView->setCurrentIndex(1);
        u.rgbChannelPopUpMenu->setCurrentIndex(0);
        u.thresholdSlider->setValue(60);
        QTest::mouseClick(u.applyButton, Qt::LeftButton);
        const Pixels red60 = thresholded(loaded, 0, 60);
        QVERIFY(red60 != loaded);
        QCOMPARE(shown(), census(red60));
        QCOMPARE(main.ui().pixelCountTotal->text().toInt(),
                 census(red60)[0] + census(red60)[1] + census(red60)[2]);

        // Then green at 40 works on what red at 60 left.
        u.rgbChannelPopUpMenu->setCurrentIndex(1);
        u.thresholdEntryValue->setValue(40);
        QTest::mouseClick(u.applyButton, Qt::LeftButton);
        const Pixels both = thresholded(red60, 1, 40);
        QVERIFY(pixelsOf(main.controller().currentDisplayedImage()) == both);
        QCOMPARE(shown(), census(both));

        // Restore Original recounts the picture as loaded.
        main.ui().actionRestore->trigger();
        QVERIFY(pixelsOf(main.controller().currentDisplayedImage()) == loaded);
        QCOMPARE(shown(), census(loaded));
    }
};

QTEST_MAIN(BackgroundWindowTest)
#include "BackgroundWindowTest.moc"
