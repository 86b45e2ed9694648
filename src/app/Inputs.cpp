#include "app/Inputs.h"

#include <QAction>
#include <QFileDialog>
#include <QMenu>
#include <QSlider>
#include <QSplitter>
#include <QVBoxLayout>
#include <algorithm>

#include "app/CellPanel.h"
#include "app/ImageView.h"
#include "app/OpenChannelsDialog.h"
#include "app/ShuffleRun.h"
#include "app/StackBar.h"
#include "controller/InputMenus.h"
#include "ui_MainWindow.h"

namespace pv::app {

namespace {

// Colours of the edges over the picture; the mask's over the cells' where both run.
constexpr QRgb kCellEdge = qRgb(255, 255, 255);
constexpr QRgb kMaskEdge = qRgb(255, 0, 255);
constexpr QRgb kChosenCellEdge = qRgb(0, 255, 255);
// Their indices in the outline; where lines meet, the view draws the highest.
enum EdgeIndex : uchar { kNoEdge, kCell, kMask, kChosenCell };

QString messageOf(const Status& status) {
    return QString::fromStdString(status.error().message());
}

}  // namespace

Inputs::Inputs(PixmeraVeltroController& controller, Ui::MainWindow& ui, QWidget* window)
    : QObject(window),
      controller_(controller),
      ui_(ui),
      window_(window),
      stack_(controller),
      labels_(controller, stack_) {
    // The image view gets a column of its own, with the stack bar and the cell panel below.
    auto* column = new QWidget;
    column->setObjectName("imageColumn");
    column->setSizePolicy(ui.roiPreview->sizePolicy());
    ui.splitter->insertWidget(ui.splitter->indexOf(ui.roiPreview), column);
    auto* layout = new QVBoxLayout(column);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    layout->addWidget(ui.roiPreview, 1);
    stackBar_ = new StackBar(column);
    cellPanel_ = new CellPanel(column);
    layout->addWidget(stackBar_);
    layout->addWidget(cellPanel_);
    connect(&cellPanel_->test(), &ShuffleRun::ended, this, &Inputs::cellTestEnded);

    // A step that fails says why; the bar goes back to what is shown.
    const auto stepOrSay = [this](const std::function<Status()>& act) {
        if (const Status s = step(act); !s) {
            emit failed(tr("Stack"), messageOf(s));
        }
    };
    connect(stackBar_, &StackBar::sliceChosen, this,
            [this, stepOrSay](int z) { stepOrSay([&] { return stack_.showSlice(z); }); });
    connect(stackBar_, &StackBar::frameChosen, this,
            [this, stepOrSay](int t) { stepOrSay([&] { return stack_.showFrame(t); }); });
    connect(stackBar_, &StackBar::channelsChosen, this, [this, stepOrSay](int y, int x) {
        stepOrSay([&] { return stack_.chooseChannels(y, x); });
    });
    connect(ui.roiPreview, &ImageView::clicked, this, &Inputs::showCell);
    addMenuItems();
    refresh();
}

Inputs::~Inputs() = default;

void Inputs::addMenuItems() {
    QWidget* w = window_;
    openChannels_ = new QAction(tr("Open &Channels…"), w);
    openChannels_->setShortcut(QKeySequence(tr("Ctrl+Shift+O")));
    ui_.menuFile->insertAction(ui_.menuOpenRecent->menuAction(), openChannels_);
    connect(openChannels_, &QAction::triggered, this, [this] {
        OpenChannelsDialog dialog(
            [this](const std::string& y, int yc, const std::string& x, int xc) {
                const Status s = step([&] { return stack_.openChannels(y, yc, x, xc); });
                if (s) {
                    ui_.roiPreview->zoomToFit();
                }
                return s;
            },
            window_);
        dialog.exec();
    });

    ui_.menuImage->addSeparator();
    mask_ = ui_.menuImage->addAction(tr("&Mask…"), QKeySequence(tr("Ctrl+M")), this,
                                     &Inputs::chooseMask);
    clearMask_ = ui_.menuImage->addAction(tr("Clear Mas&k"), QKeySequence(tr("Ctrl+Shift+M")), this,
                                          [this] { controller_.clearMask(); });
    labelsItem_ = ui_.menuImage->addAction(tr("&Labels…"), QKeySequence(tr("Ctrl+L")), this,
                                           &Inputs::chooseLabels);
    clearLabels_ = ui_.menuImage->addAction(tr("Clear L&abels"), QKeySequence(tr("Ctrl+Shift+L")),
                                            this, [this] {
                                                labels_.clear();
                                                refresh();
                                            });
    ui_.menuImage->addSeparator();
    nextSlice_ =
        ui_.menuImage->addAction(tr("&Next Slice"), QKeySequence(tr("Alt+Right")), this,
                                 [this] { stackBar_->slice()->setValue(stack_.slice() + 2); });
    previousSlice_ =
        ui_.menuImage->addAction(tr("&Previous Slice"), QKeySequence(tr("Alt+Left")), this,
                                 [this] { stackBar_->slice()->setValue(stack_.slice()); });
    connect(ui_.menuImage, &QMenu::aboutToShow, this, &Inputs::updateMenus);
}

void Inputs::fileOpened(const QString& path) {
    labels_.clear();
    // A file that is no stack stays the picture it was opened as.
    step([&] {
        stack_.open(path.toStdString());
        return Status();
    });
}

Status Inputs::step(const std::function<Status()>& act) {
    stepping_ = true;
    const Status s = act();
    stepping_ = false;
    refresh();
    return s;
}

void Inputs::chooseFile(const QString& title, const QString& filter, const QString& what,
                        const std::function<Status(const std::string&)>& take) {
    const QString path = QFileDialog::getOpenFileName(window_, title, QString(), filter);
    if (path.isEmpty()) {
        return;
    }
    if (const Status taken = take(path.toStdString()); !taken) {
        emit failed(what, messageOf(taken));
    }
}

void Inputs::chooseMask() {
    chooseFile(tr("Choose a Mask"), tr("Images (*.tif *.tiff *.png *.bmp);;All files (*)"),
               tr("Mask"), [this](const std::string& path) { return setMask(path); });
}

void Inputs::chooseLabels() {
    chooseFile(tr("Choose a Label Image"), tr("TIFF files (*.tif *.tiff);;All files (*)"),
               tr("Labels"), [this](const std::string& path) { return loadLabels(path); });
}

Status Inputs::setMask(const std::string& path) {
    // Kept while the file is refused; made again by the refresh once a new mask is taken.
    std::vector<std::uint8_t> before = std::move(maskEdges_);
    maskEdges_.clear();
    const Status set = controller_.setMaskFile(path);
    if (!set) {
        maskEdges_ = std::move(before);
    }
    return set;
}

Status Inputs::loadLabels(const std::string& path) {
    const Status loaded = labels_.load(path);
    if (loaded) {
        cellShown_ = 0;
        outlineStale_ = true;
        refresh();
    }
    return loaded;
}

void Inputs::showCell(int x, int y) {
    if (!labels_.shown()) {
        return;
    }
    markCell(cellShown_, kCell);
    cellShown_ = labels_.labelAt(x, y);
    labels_.chose(cellShown_);
    markCell(cellShown_, kChosenCell);
    ui_.roiPreview->setOutline(outline_);
    showCellRows();
}

void Inputs::showCellRows() {
    cellPanel_->showRows(labels_.cellRows(cellShown_));
    ShuffleRun& test = cellPanel_->test();
    if (test.running()) {
        // Another cell chosen, or results worked out again: the test has nothing left to say.
        if (cellTested_ != cellShown_ || cellTestStamp_ != labels_.stamp()) {
            test.cancel();
        }
        return;  // the next test starts when this one has ended
    }
    if (!labels_.testDue(cellShown_)) {
        return;
    }
    Result<BlockShuffleTest> made = labels_.significanceTest(cellShown_);
    if (!made) {
        labels_.takeSignificance(cellShown_, labels_.stamp(), std::nullopt);
        emit failed(tr("Cell"), QString::fromStdString(made.error().message()));
        return;
    }
    cellTested_ = cellShown_;
    cellTestStamp_ = labels_.stamp();
    const MeasureRequest& asked = controller_.furtherMeasures()->asked;  // due only with one
    cellPanel_->startTest(std::move(*made), asked.shuffles, asked.seed);
}

void Inputs::cellTestEnded(const std::optional<SignificanceResult>& result, bool cancelled) {
    labels_.takeSignificance(cellTested_, cellTestStamp_, result);
    if (!result && !cancelled) {
        emit failed(tr("Cell"),
                    QString::fromStdString(controller_.significanceMemoryError().message()));
    }
    if (labels_.shown()) {
        showCellRows();
    }
}

void Inputs::refresh() {
    if (stepping_) {
        return;  // the step refreshes once it knows what it showed
    }
    if (!labels_.shown() && !labels_.path().empty()) {
        labels_.clear();  // of a picture no longer shown
    }
    if (controller_.mask() == nullptr) {
        maskEdges_.clear();
    } else if (maskEdges_.empty()) {
        maskEdges_ = maskOutline(controller_);
        outlineStale_ = true;
    }
    stackBar_->showState(stack_);
    cellPanel_->setVisible(labels_.shown());
    if (labels_.shown()) {
        showCellRows();
    } else {
        cellShown_ = 0;
        cellPanel_->test().cancel();
    }
    updateOutline();
    updateMenus();
}

void Inputs::updateOutline() {
    const Picture& picture = controller_.currentDisplayedImage();
    const int w = picture.pixelsWide(), h = picture.pixelsHigh();
    const bool withMask = maskEdges_.size() == std::size_t(w) * std::size_t(h) && w > 0;
    const bool withLabels = labels_.shown();
    const std::tuple key{withMask, withLabels, w, h};
    if (key == outlined_ && !outlineStale_) {
        return;
    }
    outlined_ = key;
    outlineStale_ = false;
    cellEdges_.clear();
    if (!withMask && !withLabels) {
        outline_ = QImage();
    } else {
        outline_ = QImage(w, h, QImage::Format_Indexed8);
        outline_.setColorTable({qRgba(0, 0, 0, 0), kCellEdge, kMaskEdge, kChosenCellEdge});
        const std::vector<std::uint8_t>& cells = labels_.outline();
        const LabelImage::Labels& label = labels_.labels().labels;
        for (int y = 0; y < h; ++y) {
            uchar* row = outline_.scanLine(y);
            const std::size_t at = std::size_t(y) * std::size_t(w);
            for (int x = 0; x < w; ++x) {
                const std::size_t i = at + std::size_t(x);
                const bool maskEdge = withMask && maskEdges_[i] != 0;
                const bool cellEdge = withLabels && cells[i] != 0;
                row[x] = maskEdge ? kMask : cellEdge ? kCell : kNoEdge;
                if (cellEdge) {
                    cellEdges_.emplace_back(label[i], i);
                }
            }
        }
        std::sort(cellEdges_.begin(), cellEdges_.end());
        markCell(cellShown_, kChosenCell);
    }
    ui_.roiPreview->setOutline(outline_);
}

void Inputs::markCell(std::uint32_t label, uchar index) {
    if (label == 0 || outline_.isNull()) {
        return;
    }
    const auto first = std::lower_bound(cellEdges_.begin(), cellEdges_.end(),
                                        std::pair<std::uint32_t, std::size_t>(label, 0));
    const auto wide = std::size_t(outline_.width());
    for (auto e = first; e != cellEdges_.end() && e->first == label; ++e) {
        uchar& at = outline_.scanLine(int(e->second / wide))[e->second % wide];
        // The mask's line stays where it runs along a cell that is not chosen.
        const bool maskLine = maskEdges_.size() > e->second && maskEdges_[e->second] != 0;
        at = index == kCell && maskLine ? uchar(kMask) : index;
    }
}

void Inputs::updateMenus() {
    const InputMenuStates states = inputMenuStates(controller_, stack_, labels_);
    mask_->setEnabled(states.mask);
    clearMask_->setEnabled(states.clearMask);
    labelsItem_->setEnabled(states.labels);
    clearLabels_->setEnabled(states.clearLabels);
    nextSlice_->setEnabled(states.nextSlice);
    previousSlice_->setEnabled(states.previousSlice);
}

}  // namespace pv::app
