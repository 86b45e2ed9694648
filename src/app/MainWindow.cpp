#include "app/MainWindow.h"

#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QCloseEvent>
#include <QComboBox>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QFutureWatcher>
#include <QGridLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressDialog>
#include <QPushButton>
#include <QResizeEvent>
#include <QScreen>
#include <QSettings>
#include <QTimer>
#include <QUrl>
#include <QtConcurrent/QtConcurrentRun>
#include <map>

#include "analysis/ScatterGram.h"
#include "app/AboutBox.h"
#include "app/BackgroundWindow.h"
#include "app/FurtherMeasuresPanel.h"
#include "app/HelpWindow.h"
#include "app/ImageInfoDialog.h"
#include "app/ImagePrinter.h"
#include "app/Inputs.h"
#include "app/PreferencesDialog.h"
#include "app/QtPictures.h"
#include "app/SettingsStore.h"
#include "image/ImageFile.h"
#include "ui_MainWindow.h"

namespace pv::app {

namespace {

constexpr int kMaxRecentFiles = 10;

QString toQString(std::string_view s) {
    return QString::fromUtf8(s.data(), qsizetype(s.size()));
}

QColor channelColour(int channel) {
    static const QColor colours[3] = {QColor(200, 0, 0), QColor(0, 140, 0), QColor(0, 0, 220)};
    return colours[channel >= 0 && channel < 3 ? channel : 0];
}

}  // namespace

// The controller's port: each call shows something in this window or asks the user.
class MainWindow::Port : public ControllerPort {
  public:
    explicit Port(MainWindow& window) : w_(window) {}

    void showImage(const Picture& picture) override { w_.ui_->roiPreview->setPicture(picture); }
    void releaseImage() override { w_.ui_->roiPreview->releasePicture(); }
    void showScatterGram(const Picture& picture) override {
        w_.ui_->scatterGramGraph->setPicture(picture);
    }
    void showColorBars(const std::array<std::string_view, 4>& names) override {
        w_.showColorBars(names);
    }
    void refreshControls() override { w_.refreshControls(); }

    void askBackgroundCorrectionWarning(const WarningQuestion& q) override {
        w_.askQuestion(q, [this](int code) {
            if (const auto answer = backgroundWarningAnswerForTag(code)) {
                w_.controller_->colocalizationWarningSheetDidEnd(*answer);
            }
        });
    }
    void askScatterGramWarning(const WarningQuestion& q) override {
        w_.askQuestion(q, [this](int code) {
            w_.controller_->colocalizationScatterGramWarningSheetDidEnd(
                scatterGramWarningAnswerForReturnCode(code));
        });
    }
    void scatterGramNeedsDisplay() override { w_.ui_->scatterGramGraph->update(); }
    void setFocusForPasting(bool) override {}
    void performBackgroundCorrection() override {
        if (background_ == nullptr) {
            background_ = new BackgroundWindow(*w_.controller_, *w_.ui_->roiPreview, &w_);
        }
        background_->showBesideParent();
    }
    void showHelpPage(std::string_view page) override {
        HelpWindow::instance().showPage(toQString(page));
    }
    void openURL(std::string_view url) override { QDesktopServices::openUrl(QUrl(toQString(url))); }
    void showError(const Error& error) override {
        w_.showMessage(QObject::tr("Pixmera Veltro"), toQString(error.message()));
    }
    void logMessage(std::string_view message) override {
        qWarning("%s", std::string(message).c_str());
    }
    void noteRecentDocument(const std::string& path) override {
        w_.noteRecentFile(QString::fromStdString(path));
    }

  private:
    MainWindow& w_;
    BackgroundWindow* background_ = nullptr;  // made on first use, kept with its settings
};

MainWindow::MainWindow(QWidget* parent)
    : QMainWindow(parent),
      ui_(std::make_unique<Ui::MainWindow>()),
      port_(std::make_unique<Port>(*this)),
      controller_(std::make_unique<PixmeraVeltroController>(*port_)) {
    ui_->setupUi(this);
    inputs_ = new Inputs(*controller_, *ui_, this);
    connect(inputs_, &Inputs::failed, this, &MainWindow::showMessage);
    furtherMeasures_ = new FurtherMeasuresPanel(*controller_, *ui_->scatterGramGraph, this);
    ui_->resultsColumn->insertWidget(ui_->resultsColumn->indexOf(ui_->roiBox) + 1, furtherMeasures_,
                                     1);
    connect(furtherMeasures_, &FurtherMeasuresPanel::failed, this, &MainWindow::showMessage);
    imageStatus_ = new QLabel(this);
    hoverStatus_ = new QLabel(this);
    cautionStatus_ = new QLabel(this);
    cautionStatus_->setObjectName("cautionStatus");
    cautionStatus_->setStyleSheet("color: #a04000;");
    cautionStatus_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    // However long the words, they take the room there is and never widen the window; the
    // tooltip holds them whole.
    cautionStatus_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    statusBar()->addWidget(hoverStatus_, 1);
    statusBar()->addWidget(cautionStatus_, 2);
    statusBar()->addPermanentWidget(imageStatus_);

    // Items 2 and 5 are separators, so that an item's index is the pair's popup index.
    const QStringList pairs = {tr("Red (Y) / Green (X)"), tr("Red (Y) / Blue (X)"),
                               tr("Green (Y) / Red (X)"), tr("Green (Y) / Blue (X)"),
                               tr("Blue (Y) / Red (X)"),  tr("Blue (Y) / Green (X)")};
    for (int i = 0; i < pairs.size(); ++i) {
        if (i == 2 || i == 4) {
            ui_->channelsPopupMenu->insertSeparator(ui_->channelsPopupMenu->count());
        }
        ui_->channelsPopupMenu->addItem(pairs.at(i));
    }
    ui_->selectionToolPopupMenu->addItems(
        {tr("Rectangle"), tr("Oval"), tr("Polygon"), tr("Lasso")});
    ui_->scatterGramGraph->setRegionView(&controller_->scatterGramGraph());
    // The controls keep their natural width; the picture takes what the window has left.
    ui_->controlsPanel->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Preferred);
    ui_->scatterGramBox->setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Maximum);
    ui_->splitter->setStretchFactor(0, 1);
    ui_->splitter->setStretchFactor(1, 0);
    for (QLineEdit* field :
         {ui_->coefficient_Rr, ui_->coefficient_R, ui_->coefficient_k1, ui_->coefficient_k2,
          ui_->coefficient_m1, ui_->coefficient_m2, ui_->coefficient_M1, ui_->coefficient_M2}) {
        field->setMaximumWidth(field->fontMetrics().horizontalAdvance("-0.00000") + 16);
    }
    for (QWidget* w : {static_cast<QWidget*>(ui_->xBar1), static_cast<QWidget*>(ui_->xBar2),
                       static_cast<QWidget*>(ui_->xAxisColorText)}) {
        ui_->scatterGramLayout->setAlignment(w, Qt::AlignHCenter);
    }

    // The room a 2x scatter gram needs beside a picture, measured once; the window itself may
    // always shrink to what the 1x layout needs.
    ensurePolished();  // the style's margins count
    setScatterGramZoom(2);
    controlsAt2x_ = ui_->controlsPanel->minimumSizeHint();
    setScatterGramZoom(1);
    setMinimumSize(minimumSizeHint());
    ui_->splitter->installEventFilter(this);

    connectControls();
    connectMenus();
    // Tab goes through the controls in the order of the road of one image.
    QList<QWidget*> order = {
        ui_->roiPreview,         ui_->channelsPopupMenu, ui_->selectionToolPopupMenu,
        ui_->continuousCheckBox, ui_->checkbox_Rr,       ui_->checkbox_R,
        ui_->checkbox_k1,        ui_->checkbox_m1,       ui_->calculateCoefficientButton,
        ui_->selectAllButton,    ui_->clearAllButton,    ui_->calculateROIButton,
        ui_->reflectROIButton,   ui_->backgroundButton,  ui_->saveButton};
    for (QWidget* w : furtherMeasures_->tabOrder()) {
        order.insert(order.indexOf(ui_->backgroundButton), w);
    }
    for (qsizetype i = 1; i < order.size(); ++i) {
        QWidget::setTabOrder(order[i - 1], order[i]);
    }

    controller_->awakeFromNib();
    controller_->applicationDidFinishLaunching();
    restoreUserPreferences(*controller_);
    controller_->getSelectionTool(ui_->selectionToolPopupMenu->currentIndex());

    QSettings settings;
    recentFiles_ = settings.value("recentFiles").toStringList();
    rebuildRecentMenu();
    if (!restoreGeometry(settings.value("mainWindow/geometry").toByteArray())) {
        // Most of the screen, but never less than the controls need beside a picture.
        const QSize room =
            screen() != nullptr ? screen()->availableGeometry().size() * 0.85 : QSize(1340, 720);
        resize(room.expandedTo(QSize(1340, 720)));
    }
    if (!ui_->splitter->restoreState(settings.value("mainWindow/splitter").toByteArray())) {
        // Once laid out, the controls get their natural width and the picture the rest.
        QTimer::singleShot(0, this, [this] {
            const int panel = ui_->controlsPanel->sizeHint().width();
            ui_->splitter->setSizes({std::max(200, ui_->splitter->width() - panel), panel});
        });
    }
}

MainWindow::~MainWindow() = default;

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
    // The splitter is resized once the window's layout has placed it for a new window size.
    // Two screen pixels per level when the controls fit at that zoom beside a picture of
    // useful width, otherwise one.
    if (watched == ui_->splitter && event->type() == QEvent::Resize) {
        constexpr int kPictureWidth = 400;
        const QSize room = static_cast<QResizeEvent*>(event)->size();
        const bool roomy =
            room.height() >= controlsAt2x_.height() &&
            room.width() >= controlsAt2x_.width() + ui_->splitter->handleWidth() + kPictureWidth;
        setScatterGramZoom(roomy ? 2 : 1);
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::setScatterGramZoom(int zoom) {
    ScatterGramWidget* graph = ui_->scatterGramGraph;
    const QSize size = zoom == 2 ? graph->sizeHint() : graph->minimumSizeHint();
    if (graph->size() == size && graph->minimumSize() == size) {
        return;
    }
    graph->setFixedSize(size);
    // The bars run along the picture's edges.
    const int side = kScatterGramSize * zoom;
    for (QLabel* bar : {ui_->yBar1, ui_->yBar2}) {
        bar->setFixedSize(8, side);
    }
    for (QLabel* bar : {ui_->xBar1, ui_->xBar2}) {
        bar->setFixedSize(side, 8);
    }
    // Nested layouts keep their measures until told, and the window measures through them.
    for (QWidget* w = graph->parentWidget(); w != nullptr; w = w->parentWidget()) {
        if (QLayout* layout = w->layout()) {
            for (QLayout* nested : layout->findChildren<QLayout*>()) {
                nested->invalidate();
            }
            layout->invalidate();
        }
        w->updateGeometry();
    }
    // The controls take their natural width at the new zoom; the picture the rest.
    if (isVisible()) {
        const int panel = ui_->controlsPanel->minimumSizeHint().width();
        ui_->splitter->setSizes({std::max(0, ui_->splitter->width() - panel), panel});
    }
}

void MainWindow::closeEvent(QCloseEvent* event) {
    QSettings settings;
    settings.setValue("mainWindow/geometry", saveGeometry());
    settings.setValue("mainWindow/splitter", ui_->splitter->saveState());
    settings.setValue("recentFiles", recentFiles_);
    saveUserPreferences(*controller_);
    event->accept();
}

void MainWindow::connectControls() {
    Ui::MainWindow& u = *ui_;
    connect(u.channelsPopupMenu, &QComboBox::activated, this,
            [this](int index) { controller_->getChannelsRGBCombo(index); });
    connect(u.selectionToolPopupMenu, &QComboBox::activated, this, [this](int index) {
        controller_->getSelectionTool(index);
        ui_->scatterGramGraph->update();
    });
    connect(u.continuousCheckBox, &QCheckBox::toggled, this,
            [this](bool on) { controller_->scatterGramGraph().setContinuous(on); });
    for (QCheckBox* box : {u.checkbox_Rr, u.checkbox_R, u.checkbox_k1, u.checkbox_m1}) {
        connect(box, &QCheckBox::clicked, this, [this] {
            controller_->setCheckboxes({ui_->checkbox_Rr->isChecked(), ui_->checkbox_R->isChecked(),
                                        ui_->checkbox_k1->isChecked(),
                                        ui_->checkbox_m1->isChecked()});
        });
    }
    connect(u.calculateCoefficientButton, &QPushButton::clicked, this,
            [this] { controller_->calculateCoefficientsNow(); });
    connect(u.selectAllButton, &QPushButton::clicked, this,
            [this] { controller_->selectAllCoefficients(); });
    connect(u.clearAllButton, &QPushButton::clicked, this,
            [this] { controller_->clearAllCoefficients(); });
    connect(u.calculateROIButton, &QPushButton::clicked, this,
            [this] { controller_->calculateROINow(); });
    connect(u.reflectROIButton, &QPushButton::clicked, this,
            [this] { controller_->reflectWhitePixels(); });
    connect(u.backgroundButton, &QPushButton::clicked, this,
            [this] { port_->performBackgroundCorrection(); });
    connect(u.saveButton, &QPushButton::clicked, this, &MainWindow::saveDocument);

    connect(u.roiPreview, &ImageView::fileDropped, this,
            [this](const QString& path) { openFile(path); });
    connect(u.roiPreview, &ImageView::pictureDropped, this, [this](const QImage& image) {
        controller_->takePictureFromView(pictureOf(image), std::nullopt);
    });
    connect(u.roiPreview, &ImageView::hovered, this, [this](int x, int y, QRgb rgb) {
        hoverStatus_->setText(x < 0 ? QString()
                                    : tr("Pixel (%1, %2): red %3, green %4, blue %5")
                                          .arg(x)
                                          .arg(y)
                                          .arg(qRed(rgb))
                                          .arg(qGreen(rgb))
                                          .arg(qBlue(rgb)));
    });
    connect(u.scatterGramGraph, &ScatterGramWidget::hovered, this, [this](int x, int y) {
        hoverStatus_->setText(x < 0 ? QString()
                                    : tr("Scatter gram (X %1, Y %2): %3 pixels")
                                          .arg(x)
                                          .arg(y)
                                          .arg(controller_->pixelsWithPair(x, y)));
    });
}

void MainWindow::connectMenus() {
    Ui::MainWindow& u = *ui_;
    connect(u.actionOpen, &QAction::triggered, this, &MainWindow::openDocument);
    connect(u.actionSave, &QAction::triggered, this, &MainWindow::saveDocument);
    connect(u.actionQuit, &QAction::triggered, this, &QWidget::close);
    connect(u.actionPaste, &QAction::triggered, this, &MainWindow::pastePicture);
    connect(u.actionRestore, &QAction::triggered, this,
            [this] { controller_->restoreImageToOriginal(); });
    connect(u.actionBackground, &QAction::triggered, this,
            [this] { port_->performBackgroundCorrection(); });
    connect(u.actionZoomFit, &QAction::triggered, u.roiPreview, &ImageView::zoomToFit);
    connect(u.actionZoomActual, &QAction::triggered, u.roiPreview, &ImageView::zoomToActualSize);
    connect(u.actionZoomIn, &QAction::triggered, u.roiPreview, &ImageView::zoomIn);
    connect(u.actionZoomOut, &QAction::triggered, u.roiPreview, &ImageView::zoomOut);
    connect(u.actionPreferences, &QAction::triggered, this, [this] {
        if (preferences_ == nullptr) {
            preferences_ = new PreferencesDialog(*controller_, this);
        }
        preferences_->show();
        preferences_->raise();
        preferences_->activateWindow();
    });
    connect(u.actionImageInfo, &QAction::triggered, this, [this] {
        if (imageInfo_.isNull()) {
            imageInfo_ = new ImageInfoDialog(controller_->workingImage().imageFileInfo, this);
        }
        imageInfo_->show();
        imageInfo_->raise();
        imageInfo_->activateWindow();
    });
    auto* printing = new ImagePrinter(this);
    connect(u.actionPageSetup, &QAction::triggered, this,
            [this, printing] { printing->pageSetup(this); });
    connect(u.actionPrint, &QAction::triggered, this,
            [this, printing] { printing->print(this, controller_->currentDisplayedImage()); });
    connect(printing, &ImagePrinter::failed, this,
            [this](const QString& message) { showMessage(tr("Print"), message); });
    const std::pair<QAction*, void (PixmeraVeltroController::*)()> helpItems[] = {
        {u.actionHelp, &PixmeraVeltroController::showHelp},
        {u.actionKeyboardShortcuts, &PixmeraVeltroController::showKeyboardShortcutHelp},
        {u.actionHotTips, &PixmeraVeltroController::showHotTipsHelp},
        {u.actionHotTipsWebSite, &PixmeraVeltroController::openHotTipsWebSite},
        {u.actionVisitWebSite, &PixmeraVeltroController::visitWebsite},
        {u.actionFeedback, &PixmeraVeltroController::provideFeedbackViaEmail},
    };
    for (const auto& [action, item] : helpItems) {
        connect(action, &QAction::triggered, this, [this, item] { (*controller_.*item)(); });
    }
    connect(u.actionAbout, &QAction::triggered, this,
            [] { AboutBox::sharedInstance().showPanel(); });
    for (QMenu* menu : {u.menuFile, u.menuImage}) {
        connect(menu, &QMenu::aboutToShow, this, &MainWindow::validateMenus);
    }
    validateMenus();
}

void MainWindow::validateMenus() {
    const PixmeraVeltroController& c = *controller_;
    Ui::MainWindow& u = *ui_;
    const std::pair<QAction*, MenuAction> items[] = {
        {u.actionImageInfo, MenuAction::ImageInfo},
        {u.actionBackground, MenuAction::BackgroundCorrection},
        {u.actionRestore, MenuAction::RestoreOriginal},
        {u.actionPageSetup, MenuAction::PageLayout},
        {u.actionPrint, MenuAction::Print},
    };
    for (const auto& [action, kind] : items) {
        action->setEnabled(c.validateMenuItem(kind));
    }
}

void MainWindow::openFile(const QString& path) {
    if (reading_ != nullptr) {
        return;  // one file at a time
    }
    using Read = std::shared_ptr<Result<Picture>>;
    auto* watcher = new QFutureWatcher<Read>(this);
    reading_ = watcher;
    readCancelled_ = false;
    auto* progress = new QProgressDialog(tr("Opening %1…").arg(QFileInfo(path).fileName()),
                                         tr("Cancel"), 0, 0, this);
    progress->setWindowModality(Qt::WindowModal);
    progress->setMinimumDuration(500);  // a quick open shows nothing
    connect(progress, &QProgressDialog::canceled, this, [this] { readCancelled_ = true; });
    connect(watcher, &QFutureWatcherBase::finished, this, [this, watcher, progress, path] {
        const Read read = watcher->result();
        watcher->deleteLater();
        reading_ = nullptr;
        // Closing the progress window counts as Cancel to it, so it is let go silently.
        progress->disconnect(this);
        delete progress;
        // The reader cannot be stopped midway; a cancelled read is simply not taken.
        if (readCancelled_) {
            emit openFinished(false);
            return;
        }
        const bool opened = controller_->openReadPicture(path.toStdString(), *read).ok();
        if (opened) {
            inputs_->fileOpened(path);
        }
        ui_->roiPreview->zoomToFit();  // a new file is seen whole first
        emit openFinished(opened);
    });
    const std::string file = path.toStdString();
    watcher->setFuture(QtConcurrent::run(
        [file] { return std::make_shared<Result<Picture>>(readImageFile(file)); }));
}

void MainWindow::openDocument() {
    QStringList patterns;
    for (const std::string& type : controller_->supportedImageFileTypes()) {
        if (!type.empty() && type.front() != '\'') {
            patterns << "*." + QString::fromStdString(type);
        }
    }
    const QString path =
        QFileDialog::getOpenFileName(this, tr("Open Image"), QString(),
                                     tr("Images (%1);;All files (*)").arg(patterns.join(' ')));
    if (!path.isEmpty()) {
        openFile(path);
    }
}

bool MainWindow::saveResults(const QString& stem, ReportFormat format, bool saveImages) {
    const std::vector<Error> errors =
        controller_->outputPixelCoefficientData(stem.toStdString(), format, saveImages);
    QStringList lines;
    for (const Error& e : errors) {
        lines << toQString(e.message());
    }
    if (!lines.isEmpty()) {
        showMessage(tr("Results Not Saved"), lines.join('\n'));
    }
    return errors.empty();
}

void MainWindow::saveDocument() {
    // Qt's own dialog, so that the format and the pictures can be chosen in it.
    QFileDialog dialog(this, tr("Save Results"));
    dialog.setOption(QFileDialog::DontUseNativeDialog);
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.selectFile("untitled");
    auto* format = new QComboBox(&dialog);
    format->addItems({tr("Excel (.xls)"), tr("Text (.txt)")});
    auto* images = new QCheckBox(tr("Save images"), &dialog);
    if (auto* grid = qobject_cast<QGridLayout*>(dialog.layout())) {
        const int row = grid->rowCount();
        grid->addWidget(new QLabel(tr("Format:"), &dialog), row, 0);
        grid->addWidget(format, row, 1);
        grid->addWidget(images, row + 1, 1);
    }
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty()) {
        return;
    }
    saveResults(dialog.selectedFiles().constFirst(),
                format->currentIndex() == 0 ? ReportFormat::Spreadsheet : ReportFormat::PlainText,
                images->isChecked());
}

void MainWindow::pastePicture() {
    const QImage image = QApplication::clipboard()->image();
    if (image.isNull()) {
        showMessage(tr("Paste"), tr("The clipboard holds no picture."));
        return;
    }
    controller_->takePictureFromView(pictureOf(image), std::nullopt);
}

void MainWindow::refreshControls() {
    const ResultFields& f = controller_->fields();
    Ui::MainWindow& u = *ui_;
    const auto set = [](QWidget* w, const std::string& text) {
        if (auto* label = qobject_cast<QLabel*>(w)) {
            label->setText(QString::fromStdString(text));
        } else if (auto* line = qobject_cast<QLineEdit*>(w)) {
            line->setText(QString::fromStdString(text));
        }
    };
    const std::pair<QWidget*, const std::string*> texts[] = {
        {u.yAxisColorText, &f.yAxisColorText},
        {u.xAxisColorText, &f.xAxisColorText},
        {u.yAxisPixelColorText, &f.yAxisPixelColorText},
        {u.xAxisPixelColorText, &f.xAxisPixelColorText},
        {u.xyAxisPixelColorText, &f.xyAxisPixelColorText},
        {u.yAxisPixelCountText, &f.yAxisPixelCountText},
        {u.xAxisPixelCountText, &f.xAxisPixelCountText},
        {u.xyAxisPixelCountText, &f.xyAxisPixelCountText},
        {u.yAxisPixelPercentText, &f.yAxisPixelPercentText},
        {u.xAxisPixelPercentText, &f.xAxisPixelPercentText},
        {u.xyAxisPixelPercentText, &f.xyAxisPixelPercentText},
        {u.pixelCountTotal, &f.pixelCountTotal},
        {u.pixelPercentTotal, &f.pixelPercentTotal},
        {u.yAxisROIPixelCountText, &f.yAxisROIPixelCountText},
        {u.xAxisROIPixelCountText, &f.xAxisROIPixelCountText},
        {u.xyAxisROIPixelCountText, &f.xyAxisROIPixelCountText},
        {u.yAxisROIPixelPercentText, &f.yAxisROIPixelPercentText},
        {u.xAxisROIPixelPercentText, &f.xAxisROIPixelPercentText},
        {u.xyAxisROIPixelPercentText, &f.xyAxisROIPixelPercentText},
        {u.pixelCountROITotal, &f.pixelCountROITotal},
        {u.pixelROIPercentTotal, &f.pixelROIPercentTotal},
        {u.coefficient_Rr, &f.coefficient_Rr},
        {u.coefficient_R, &f.coefficient_R},
        {u.coefficient_k1, &f.coefficient_k1},
        {u.coefficient_k2, &f.coefficient_k2},
        {u.coefficient_m1, &f.coefficient_m1},
        {u.coefficient_m2, &f.coefficient_m2},
        {u.coefficient_M1, &f.coefficient_M1},
        {u.coefficient_M2, &f.coefficient_M2},
    };
    for (const auto& [widget, text] : texts) {
        set(widget, *text);
    }
    // The region's column greys while no region result applies.
    for (QWidget* w :
         {u.pixelScatterGramTitle, u.pixelScatterGramCountTitle, u.pixelScatterGramPercentTitle,
          u.yAxisROIPixelCountText, u.xAxisROIPixelCountText, u.xyAxisROIPixelCountText,
          u.yAxisROIPixelPercentText, u.xAxisROIPixelPercentText, u.xyAxisROIPixelPercentText,
          u.pixelCountROITotal, u.pixelROIPercentTotal}) {
        w->setEnabled(f.roiColumnEnabled);
    }
    const AxisLabelColors colours = controller_->axisLabelColors();
    for (const auto& [label, channel] :
         {std::pair<QLabel*, int>{u.yAxisColorText, colours.yAxisColorText},
          {u.xAxisColorText, colours.xAxisColorText}}) {
        QPalette palette = label->palette();
        palette.setColor(QPalette::WindowText, channelColour(channel));
        label->setPalette(palette);
        label->update();
    }
    const ButtonStates& b = controller_->buttons();
    u.backgroundButton->setEnabled(b.backgroundButton);
    u.calculateCoefficientButton->setEnabled(b.calculateCoefficientButton);
    u.saveButton->setEnabled(b.saveButton);
    u.actionSave->setEnabled(b.saveButton);
    u.calculateROIButton->setEnabled(b.calculateROIButton);
    u.reflectROIButton->setEnabled(b.reflectROIButton);
    const CoefficientCheckboxes& boxes = controller_->checkboxes();
    u.checkbox_Rr->setChecked(boxes.checkbox_Rr);
    u.checkbox_R->setChecked(boxes.checkbox_R);
    u.checkbox_k1->setChecked(boxes.checkbox_k1);
    u.checkbox_m1->setChecked(boxes.checkbox_m1);
    u.channelsPopupMenu->setCurrentIndex(popupIndexForRGBCombo(controller_->analysis().rgbCombo));
    // The picture and its file may have changed with the action too.
    if (inputs_ != nullptr) {
        inputs_->refresh();
    }
    if (furtherMeasures_ != nullptr) {
        furtherMeasures_->refresh();
    }
    validateMenus();
    updateWindowTitle();
    showStatus();
}

void MainWindow::showColorBars(const std::array<std::string_view, 4>& names) {
    // Bars y1, x1, y2, x2: the vertical ones run beside the Y axis, the horizontal ones below X.
    QLabel* bars[4] = {ui_->yBar1, ui_->xBar1, ui_->yBar2, ui_->xBar2};
    for (std::size_t i = 0; i < 4; ++i) {
        const bool vertical = names[i].size() > 2 && names[i][2] == 'v';
        if (std::optional<Bitmap> g =
                makeColorBarGradient(names[i], vertical ? 8 : 256, vertical ? 256 : 8)) {
            bars[i]->setPixmap(QPixmap::fromImage(imageOf(Picture::at72dpi(std::move(*g))).copy()));
        }
    }
}

void MainWindow::askQuestion(const WarningQuestion& q, const std::function<void(int)>& answered) {
    // Window-modal and without a nested event loop: the answer arrives through finished().
    auto* box = new QMessageBox(QMessageBox::Warning, toQString(q.title), toQString(q.message),
                                QMessageBox::NoButton, this);
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    const std::pair<const std::string*, int> buttons[] = {
        {&q.defaultButton, 1}, {&q.otherButton, -1}, {&q.alternateButton, 0}};
    std::vector<std::pair<QAbstractButton*, int>> answers;
    for (const auto& [label, answer] : buttons) {
        if (label->empty()) {
            continue;
        }
        QPushButton* button = box->addButton(toQString(*label), QMessageBox::ActionRole);
        answers.emplace_back(button, answer);
        if (answer == 1) {
            box->setDefaultButton(button);
        }
    }
    connect(box, &QMessageBox::finished, this, [this, box, answers, answered] {
        question_ = nullptr;
        for (const auto& [button, answer] : answers) {
            if (box->clickedButton() == button) {
                answered(answer);
                return;
            }
        }
    });
    question_ = box;
    box->open();
}

void MainWindow::showMessage(const QString& title, const QString& text) {
    auto* box = new QMessageBox(QMessageBox::Warning, title, text, QMessageBox::Ok, this);
    box->setWindowModality(Qt::WindowModal);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

void MainWindow::noteRecentFile(const QString& path) {
    const QString absolute = QFileInfo(path).absoluteFilePath();
    recentFiles_.removeAll(absolute);
    recentFiles_.prepend(absolute);
    while (recentFiles_.size() > kMaxRecentFiles) {
        recentFiles_.removeLast();
    }
    QSettings().setValue("recentFiles", recentFiles_);
    rebuildRecentMenu();
}

void MainWindow::rebuildRecentMenu() {
    QMenu* menu = ui_->menuOpenRecent;
    menu->clear();
    for (const QString& path : recentFiles_) {
        QAction* action = menu->addAction(QFileInfo(path).fileName());
        action->setToolTip(path);
        connect(action, &QAction::triggered, this, [this, path] {
            if (!QFileInfo::exists(path)) {
                recentFiles_.removeAll(path);
                rebuildRecentMenu();
                showMessage(tr("Open Recent"), tr("%1 no longer exists.").arg(path));
                return;
            }
            openFile(path);
        });
    }
    menu->setEnabled(!recentFiles_.isEmpty());
}

void MainWindow::updateWindowTitle() {
    const ImageFileInfo& info = controller_->workingImage().imageFileInfo;
    setWindowTitle(info.fileName
                       ? tr("%1 — Pixmera Veltro").arg(QString::fromStdString(*info.fileName))
                       : tr("Pixmera Veltro"));
}

void MainWindow::showStatus() {
    // Results without an answer say why: all of it in the status bar, each coefficient's own
    // reason on its field.
    QStringList cautions;
    std::map<std::string, QString> reasons;
    for (const Caution& c : controller_->cautions()) {
        QString text = toQString(c.text);
        text[0] = text[0].toUpper();
        cautions << (text.endsWith('?') ? text : text + '.');
        for (const std::string& name : c.coefficients) {
            reasons[name] = text;
        }
    }
    cautionStatus_->setText(cautions.join(' '));
    cautionStatus_->setToolTip(cautions.join('\n'));
    Ui::MainWindow& u = *ui_;
    const std::pair<QLineEdit*, const char*> fields[] = {
        {u.coefficient_Rr, "Rr"}, {u.coefficient_R, "R"},   {u.coefficient_k1, "k1"},
        {u.coefficient_k2, "k2"}, {u.coefficient_m1, "m1"}, {u.coefficient_m2, "m2"},
        {u.coefficient_M1, "M1"}, {u.coefficient_M2, "M2"}};
    for (const auto& [field, name] : fields) {
        const auto reason = reasons.find(name);
        field->setToolTip(reason == reasons.end() ? QString() : reason->second);
    }

    const Picture& p = controller_->currentDisplayedImage();
    const ImageFileInfo& info = controller_->workingImage().imageFileInfo;
    imageStatus_->setText(p.isEmpty() ? tr("No image")
                                      : tr("%1 × %2 pixels, %3 bits")
                                            .arg(p.pixelsWide())
                                            .arg(p.pixelsHigh())
                                            .arg(info.bitDepth));
}

}  // namespace pv::app
