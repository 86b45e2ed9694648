// The desktop program's interactions on large pictures, in a window shown on the offscreen
// platform: a region drawn on the scatter gram, a drag in continuous mode, and a repaint of the
// image view. Each time prints against the 16 ms of a frame, at 64 MP against the same
// interaction at 1 MP, and the repaint against painting one view-sized picture, all measured
// in the same run. Opening a file until its census shows is measured against the command line
// opening and analysing the same file, also in the same run.
#include <benchmark/benchmark.h>

#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QEventLoop>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QSlider>
#include <QStandardPaths>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "BenchFiles.h"
#include "BenchImages.h"
#include "app/BackgroundWindow.h"
#include "app/MainWindow.h"
#include "ui_BackgroundWindow.h"
#include "ui_MainWindow.h"

namespace {

using pv::app::MainWindow;
using pv::app::ScatterGramWidget;

constexpr double kFrameMs = 16.0;

pv::bench::Launcher launcher;  // before any bench picture exists

// The bench picture of a size as an uncompressed TIFF at 300 dpi, written once.
const std::string& tiffOf(int megapixels) {
    static struct Files {
        std::map<int, std::string> paths;
        ~Files() {
            for (const auto& [mp, path] : paths) {
                std::remove(path.c_str());
            }
        }
    } files;
    std::string& path = files.paths[megapixels];
    if (path.empty()) {
        path = pv::bench::scratchPath(std::to_string(megapixels) + "MP.tif");
        if (!pv::bench::writeTiff(path, pv::bench::fluorescenceImage(megapixels).bitmap, {})) {
            path.clear();
        }
    }
    return path;
}

// A window sized as on a small laptop screen, shown.
void showAsOnALaptop(MainWindow& window) {
    window.resize(1340, 720);
    window.show();
    QApplication::processEvents();
}

// File > Open as the user has it, until the picture, the census and the coefficients' fields
// are shown; false when the file did not open.
bool openAndWait(MainWindow& window, const std::string& path) {
    QEventLoop loop;
    bool opened = false;
    QObject::connect(&window, &MainWindow::openFinished, &loop, [&](bool ok) {
        opened = ok;
        loop.quit();
    });
    window.openFile(QString::fromStdString(path));
    loop.exec();
    QApplication::processEvents();
    return opened;
}

void BM_AppOpen(benchmark::State& state) {
    const std::string& path = tiffOf(int(state.range(0)));
    MainWindow window;
    showAsOnALaptop(window);
    for (auto _ : state) {
        if (!openAndWait(window, path)) {
            state.SkipWithError("the file did not open");
            return;
        }
    }
}

// The command line opening and analysing the same file, as its own process.
void BM_CliOpen(benchmark::State& state) {
    const std::string& path = tiffOf(int(state.range(0)));
    long peak = 0;
    for (auto _ : state) {
        if (path.empty() || !launcher.run({path}, peak)) {
            state.SkipWithError("the command line failed");
            return;
        }
    }
}

// One window per size, sized as on a small laptop screen, with the oval tool picked.
std::map<int, std::unique_ptr<MainWindow>>& windows() {
    static std::map<int, std::unique_ptr<MainWindow>> all;
    return all;
}

MainWindow& windowWith(int megapixels) {
    std::unique_ptr<MainWindow>& w = windows()[megapixels];
    if (!w) {
        w = std::make_unique<MainWindow>();
        showAsOnALaptop(*w);
        // A fresh picture rather than a copy of the cached one: the window keeps it.
        pv::bench::BenchImage image = pv::bench::makeFluorescenceImage(megapixels);
        w->controller().takePictureFromView(pv::Picture::at72dpi(std::move(image.bitmap)),
                                            std::nullopt);
        w->ui().roiPreview->zoomToFit();
        w->ui().selectionToolPopupMenu->setCurrentIndex(1);
        emit w->ui().selectionToolPopupMenu->activated(1);
        QApplication::processEvents();
    }
    return *w;
}

// A mouse event at a scatter-gram point, on the screen pixel a user would point at.
void sendMouse(ScatterGramWidget* graph, QEvent::Type type, QPointF point, Qt::MouseButtons held) {
    const QPointF at = graph->toWidget(point).toPoint();
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, at, graph->mapToGlobal(at), button, held, Qt::NoModifier);
    QApplication::sendEvent(graph, &event);
}

template <typename Work>
double secondsOf(Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The two opens above, taken in turns: each app open is followed at once by the command line on
// the same file, so that whatever else the machine does at a moment weighs on both. Reports the
// median of the per-turn ratios.
void BM_AppOpenPaired(benchmark::State& state) {
    const std::string& path = tiffOf(int(state.range(0)));
    MainWindow window;
    showAsOnALaptop(window);
    std::vector<double> ratios;
    long peak = 0;
    for (auto _ : state) {
        bool opened = false;
        const double app = secondsOf([&] { opened = openAndWait(window, path); });
        bool ran = false;
        const double cli = secondsOf([&] { ran = launcher.run({path}, peak); });
        if (!opened || !ran) {
            state.SkipWithError("the file did not open");
            return;
        }
        state.SetIterationTime(app);
        ratios.push_back(app / cli);
    }
    std::sort(ratios.begin(), ratios.end());
    state.counters["median_vs_cli"] = ratios.empty() ? 0 : ratios[ratios.size() / 2];
    state.counters["worst_vs_cli"] = ratios.empty() ? 0 : ratios.back();
}

// A click outside every oval below: the region goes, and its fields read "--".
void clearRegion(ScatterGramWidget* graph) {
    sendMouse(graph, QEvent::MouseButtonPress, {250, 5}, Qt::LeftButton);
    sendMouse(graph, QEvent::MouseButtonRelease, {250, 5}, Qt::NoButton);
    QApplication::processEvents();
}

struct Drag {
    QPointF from;
    QPointF to;
};
// Each starts outside the other's box, so that its press draws a new oval instead of moving
// the last one.
const Drag kOvals[2] = {{{40, 30}, {200, 190}}, {{230, 220}, {70, 50}}};

// Times `act(0)`, `act(1)`, `act(0)`, ... (each returns its own timed seconds), once it has
// seen, untimed, that each of the two gives `field` a new text.
template <typename Act>
void timeAlternately(benchmark::State& state, const QLabel* field, Act act) {
    const QString before = field->text();
    act(0);
    const QString first = field->text();
    act(1);
    if (first == before || field->text() == first) {
        state.SkipWithError("the field did not change: nothing was recounted");
        return;
    }
    int n = 0;
    for (auto _ : state) {
        state.SetIterationTime(act(n));
        n = 1 - n;
    }
}

// The release that ends an oval: the recount and the new field texts happen within it.
// Untimed, or timed too when `painted`: the repaint it asks for, until the window shows them.
void mouseUp(benchmark::State& state, bool painted) {
    MainWindow& w = windowWith(int(state.range(0)));
    ScatterGramWidget* graph = w.ui().scatterGramGraph;
    clearRegion(graph);
    timeAlternately(state, w.ui().pixelCountROITotal, [&](int k) {
        sendMouse(graph, QEvent::MouseButtonPress, kOvals[k].from, Qt::LeftButton);
        sendMouse(graph, QEvent::MouseMove, kOvals[k].to, Qt::LeftButton);
        const double seconds = secondsOf(
            [&] { sendMouse(graph, QEvent::MouseButtonRelease, kOvals[k].to, Qt::NoButton); });
        const double repaint = secondsOf([] { QApplication::processEvents(); });
        return painted ? seconds + repaint : seconds;
    });
}

void BM_ScatterGramMouseUp(benchmark::State& state) {
    mouseUp(state, false);
}
void BM_ScatterGramMouseUpPainted(benchmark::State& state) {
    mouseUp(state, true);
}

// One step of a drag in continuous mode, where every step recounts the region.
void BM_ContinuousDrag(benchmark::State& state) {
    MainWindow& w = windowWith(int(state.range(0)));
    ScatterGramWidget* graph = w.ui().scatterGramGraph;
    w.ui().continuousCheckBox->setChecked(true);
    clearRegion(graph);
    const QPointF ends[2] = {{200, 190}, {180, 215}};
    sendMouse(graph, QEvent::MouseButtonPress, {40, 30}, Qt::LeftButton);
    timeAlternately(state, w.ui().pixelCountROITotal, [&](int k) {
        const double seconds =
            secondsOf([&] { sendMouse(graph, QEvent::MouseMove, ends[k], Qt::LeftButton); });
        QApplication::processEvents();
        return seconds;
    });
    sendMouse(graph, QEvent::MouseButtonRelease, ends[0], Qt::NoButton);
    w.ui().continuousCheckBox->setChecked(false);
    QApplication::processEvents();
}

class PaintCounter : public QObject {
  public:
    int paints = 0;

  protected:
    bool eventFilter(QObject*, QEvent* event) override {
        paints += event->type() == QEvent::Paint ? 1 : 0;
        return false;
    }
};

// The image view painted again at fit zoom, as when a window over it moves away.
void BM_ImageViewRepaint(benchmark::State& state) {
    MainWindow& w = windowWith(int(state.range(0)));
    pv::app::ImageView* view = w.ui().roiPreview;
    PaintCounter counter;
    view->installEventFilter(&counter);
    view->repaint();
    view->removeEventFilter(&counter);
    if (counter.paints == 0 || !view->fitsToView()) {
        state.SkipWithError("the view did not paint at fit zoom");
        return;
    }
    state.SetLabel(std::to_string(view->width()) + "x" + std::to_string(view->height()) + " view");
    for (auto _ : state) {
        view->repaint();
    }
}

// One step of the background window's slider, until the view shows the new tint: the
// overlay is worked out for the drawn pixels only, so it should cost about the same at any
// picture size.
void BM_BackgroundPreviewStep(benchmark::State& state) {
    MainWindow& w = windowWith(int(state.range(0)));
    w.ui().actionBackground->trigger();
    auto* background = w.findChild<pv::app::BackgroundWindow*>();
    if (background == nullptr) {
        state.SkipWithError("no background window");
        return;
    }
    background->ui().autoManualTabView->setCurrentIndex(1);
    QSlider* slider = background->ui().thresholdSlider;
    int level = 0;
    for (auto _ : state) {
        level = (level + 7) % 256;
        slider->setValue(level);
        w.ui().roiPreview->repaint();
    }
    background->close();
}

// What any repaint of that view costs at the least: one view-sized picture drawn and shown.
class PlainPicture : public QWidget {
  public:
    explicit PlainPicture(QSize size) : image_(size, QImage::Format_RGB32) {
        image_.fill(QColor(90, 40, 20));
        resize(size);
    }

  protected:
    void paintEvent(QPaintEvent*) override { QPainter(this).drawImage(0, 0, image_); }

  private:
    QImage image_;
};

void BM_ViewSizedPaint(benchmark::State& state) {
    PlainPicture plain(windowWith(1).ui().roiPreview->size());
    plain.show();
    QApplication::processEvents();
    for (auto _ : state) {
        plain.repaint();
    }
}

// "BM_Name/64/manual_time" -> {"BM_Name", "64"}.
std::pair<std::string, std::string> nameAndSize(const std::string& name) {
    const auto slash = name.find('/');
    if (slash == std::string::npos) {
        return {name, {}};
    }
    return {name.substr(0, slash), name.substr(slash + 1, name.find('/', slash + 1) - slash - 1)};
}

class FrameReporter : public benchmark::ConsoleReporter {
  public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
                const double ms = run.GetAdjustedRealTime() /
                                  benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e3;
                times_.emplace_back(run.benchmark_name(), ms);
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    void printRatios() const {
        std::map<std::string, double> oneMegapixel;
        double plainPaint = 0;
        std::map<std::string, double> cli;
        for (const auto& [name, ms] : times_) {
            const auto [base, size] = nameAndSize(name);
            if (base == "BM_CliOpen") {
                cli[size] = ms;
            }
            if (size == "1") {
                oneMegapixel[base] = ms;
            }
            if (base == "BM_ViewSizedPaint") {
                plainPaint = ms;
            }
        }
        std::printf(
            "\nTime / 16 ms frame; time / the same at 1 MP; repaint / BM_ViewSizedPaint; "
            "open / BM_CliOpen:\n");
        for (const auto& [name, ms] : times_) {
            const auto [base, size] = nameAndSize(name);
            std::printf("  %-46s %8.3f ms %7.3fx frame", name.c_str(), ms, ms / kFrameMs);
            const auto one = oneMegapixel.find(base);
            if (size != "1" && one != oneMegapixel.end() && one->second > 0) {
                std::printf(" %7.2fx 1 MP", ms / one->second);
            }
            if (base == "BM_ImageViewRepaint" && plainPaint > 0) {
                std::printf(" %7.2fx plain paint", ms / plainPaint);
            }
            if (base == "BM_AppOpen" && cli.count(size) && cli.at(size) > 0) {
                std::printf(" %7.2fx command line", ms / cli.at(size));
            }
            std::printf("\n");
        }
    }

  private:
    std::vector<std::pair<std::string, double>> times_;
};

}  // namespace

BENCHMARK(BM_ScatterGramMouseUp)->Arg(1)->Arg(64)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_ScatterGramMouseUpPainted)
    ->Arg(1)
    ->Arg(64)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();
BENCHMARK(BM_ContinuousDrag)->Arg(1)->Arg(64)->Unit(benchmark::kMillisecond)->UseManualTime();
BENCHMARK(BM_ImageViewRepaint)->Arg(1)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BackgroundPreviewStep)->Arg(1)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ViewSizedPaint)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_AppOpen)->Arg(64)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_CliOpen)->Arg(64)->Unit(benchmark::kMillisecond)->MinTime(2.0)->UseRealTime();
BENCHMARK(BM_AppOpenPaired)->Arg(64)->Unit(benchmark::kMillisecond)->MinTime(4.0)->UseManualTime();

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    QStandardPaths::setTestModeEnabled(true);  // leave the user's settings alone
    FrameReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.printRatios();
    windows().clear();  // while the application still exists
    benchmark::Shutdown();
    return 0;
}
