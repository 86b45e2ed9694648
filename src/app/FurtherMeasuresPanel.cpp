#include "app/FurtherMeasuresPanel.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QSpinBox>
#include <QTreeWidget>
#include <QVBoxLayout>

#include "app/ScatterGramWidget.h"
#include "app/ShuffleRun.h"

namespace pv::app {

namespace {

QString toQString(const std::string& s) {
    return QString::fromStdString(s);
}

// A spin box with a label that gives it a mnemonic and a name a screen reader says.
QSpinBox* addSpinBox(QHBoxLayout* row, const QString& title, const QString& name, int from, int to,
                     int value, QWidget* parent) {
    auto* label = new QLabel(title, parent);
    auto* box = new QSpinBox(parent);
    box->setObjectName(name);
    box->setRange(from, to);
    box->setValue(value);
    label->setBuddy(box);
    // The focus goes to the box's own line edit, which is what a screen reader then names.
    for (QWidget* w : std::initializer_list<QWidget*>{box, box->findChild<QLineEdit*>()}) {
        w->setAccessibleName(QString(title).remove('&').remove(':'));
    }
    row->addWidget(label);
    row->addWidget(box);
    return box;
}

}  // namespace

FurtherMeasuresPanel::FurtherMeasuresPanel(PixmeraVeltroController& controller,
                                           ScatterGramWidget& scatterGram, QWidget* parent)
    : QGroupBox(tr("Further Measures"), parent),
      controller_(controller),
      scatterGram_(scatterGram),
      spearman_(new QCheckBox(tr("Spear&man"), this)),
      kendall_(new QCheckBox(tr("&Kendall"), this)),
      icq_(new QCheckBox(tr("IC&Q"), this)),
      costes_(new QCheckBox(tr("C&ostes"), this)),
      significance_(new QCheckBox(tr("Si&gnificance"), this)),
      calculate_(new QPushButton(tr("Ca&lculate"), this)),
      applyCostes_(new QPushButton(tr("&Apply Costes Thresholds"), this)),
      progress_(new QProgressBar(this)),
      cancel_(new QPushButton(tr("Ca&ncel"), this)),
      results_(new QTreeWidget(this)),
      run_(new ShuffleRun(progress_, this)) {
    setObjectName("furtherMeasuresBox");
    auto* layout = new QGridLayout(this);
    // Tight rows keep the panel low enough for a 768-pixel screen. A grid whose spacings differ
    // hands its nested rows none, so they are given the style's own.
    layout->setVerticalSpacing(4);
    const std::pair<QCheckBox*, const char*> boxes[] = {{spearman_, "spearmanCheckBox"},
                                                        {kendall_, "kendallCheckBox"},
                                                        {icq_, "icqCheckBox"},
                                                        {costes_, "costesCheckBox"},
                                                        {significance_, "significanceCheckBox"}};
    for (int i = 0; i < 5; ++i) {
        QCheckBox* box = boxes[i].first;
        box->setObjectName(boxes[i].second);
        box->setAccessibleName(box->text().remove('&'));
        box->setChecked(box != significance_);  // the test takes a while; the rest is instant
        layout->addWidget(box, i / 3, i % 3);
        connect(box, &QCheckBox::toggled, this, &FurtherMeasuresPanel::updateControls);
    }
    spearman_->setToolTip(tr("Spearman's rank correlation of the pixels Rr uses"));
    kendall_->setToolTip(tr("Kendall's tau-b of the pixels Rr uses"));
    icq_->setToolTip(tr("Li's intensity correlation quotient of the pixels Rr uses"));
    costes_->setToolTip(tr("Costes' automatic thresholds, with Rr and tM1, tM2 above them"));
    significance_->setToolTip(tr("Costes' test of the correlation against shuffled blocks"));

    // The test's settings beside and under its check box, so that the panel stays low enough
    // for a 768-pixel screen.
    auto* seedRow = new QHBoxLayout;
    seedRow->setSpacing(layout->horizontalSpacing());
    seed_ = addSpinBox(seedRow, tr("See&d:"), "seedSpinBox", 0, 999999, int(MeasureRequest{}.seed),
                       this);
    seed_->setToolTip(tr("The same seed gives the same shuffles"));
    layout->addLayout(seedRow, 1, 2);
    auto* parameters = new QHBoxLayout;
    parameters->setSpacing(layout->horizontalSpacing());
    shuffles_ = addSpinBox(parameters, tr("Sh&uffles:"), "shufflesSpinBox", 1, 1000000,
                           MeasureRequest{}.shuffles, this);
    // 0 stands for the size estimated from the picture.
    psf_ = addSpinBox(parameters, tr("&PSF:"), "psfSpinBox", 0, 128, 0, this);
    psf_->setSpecialValueText(tr("Auto"));
    psf_->setToolTip(
        tr("The side of the shuffled blocks in pixels; Auto estimates it from the "
           "Y channel"));
    parameters->addStretch();
    layout->addLayout(parameters, 2, 0, 1, 3);

    // While the test runs, its progress and Cancel take the place of the buttons.
    auto* buttons = new QHBoxLayout;
    buttons->setSpacing(layout->horizontalSpacing());
    calculate_->setObjectName("calculateMeasuresButton");
    calculate_->setAccessibleName(tr("Calculate further measures"));
    applyCostes_->setObjectName("applyCostesButton");
    applyCostes_->setAccessibleName(tr("Apply Costes Thresholds"));
    applyCostes_->setToolTip(
        tr("Sets each channel to 0 at and below its Costes threshold; "
           "Restore Original undoes it"));
    progress_->setObjectName("significanceProgress");
    progress_->setAccessibleName(tr("Significance test progress"));
    progress_->setFormat(tr("%v of %m shuffles"));
    cancel_->setObjectName("cancelMeasuresButton");
    cancel_->setAccessibleName(tr("Cancel the significance test"));
    buttons->addWidget(calculate_);
    buttons->addWidget(applyCostes_);
    buttons->addWidget(progress_, 1);
    buttons->addWidget(cancel_);
    buttons->addStretch();
    layout->addLayout(buttons, 3, 0, 1, 3);
    progress_->hide();
    cancel_->hide();

    results_->setObjectName("furtherMeasuresResults");
    results_->setAccessibleName(tr("Further measures results"));
    results_->setColumnCount(2);
    results_->setHeaderHidden(true);
    results_->setRootIsDecorated(false);
    results_->setUniformRowHeights(true);
    results_->setSelectionMode(QAbstractItemView::NoSelection);
    results_->header()->setStretchLastSection(false);
    results_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
    results_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
    results_->setMinimumHeight(results_->fontMetrics().lineSpacing() * 3 + 8);
    // Until there are results, the list says how to get them.
    emptyHint_ = new QLabel(tr("Tick measures and press Calculate."), results_->viewport());
    emptyHint_->setEnabled(false);
    auto* hintLayout = new QVBoxLayout(results_->viewport());
    hintLayout->addWidget(emptyHint_, 0, Qt::AlignCenter);
    layout->addWidget(results_, 4, 0, 1, 3);
    layout->setRowStretch(4, 1);

    connect(calculate_, &QPushButton::clicked, this, &FurtherMeasuresPanel::calculate);
    connect(applyCostes_, &QPushButton::clicked, this,
            [this] { controller_.applyCostesThresholds(); });
    connect(cancel_, &QPushButton::clicked, run_, &ShuffleRun::cancel);
    connect(run_, &ShuffleRun::ended, this, &FurtherMeasuresPanel::testEnded);
    updateControls();
}

bool FurtherMeasuresPanel::testRunning() const {
    return run_->running();
}

QList<QWidget*> FurtherMeasuresPanel::tabOrder() const {
    return {spearman_, kendall_, icq_,       costes_, significance_, shuffles_,
            psf_,      seed_,    calculate_, cancel_, applyCostes_,  results_};
}

MeasureRequest FurtherMeasuresPanel::request() const {
    MeasureRequest r;
    r.spearman = spearman_->isChecked();
    r.kendall = kendall_->isChecked();
    r.icq = icq_->isChecked();
    r.costes = costes_->isChecked();
    r.significance = significance_->isChecked();
    r.shuffles = shuffles_->value();
    r.seed = std::uint64_t(seed_->value());
    if (psf_->value() > 0) {
        r.psfSize = psf_->value();
    }
    return r;
}

void FurtherMeasuresPanel::calculate() {
    const MeasureRequest r = request();
    if (r.significance) {
        startTest(r);
        return;
    }
    const Status status = controller_.calculateFurtherMeasures(r);
    if (!status.ok()) {
        emit failed(tr("Further Measures"), toQString(status.error().message()));
    }
    emit calculationEnded();
}

void FurtherMeasuresPanel::startTest(const MeasureRequest& r) {
    Result<BlockShuffleTest> test = controller_.significanceTest(r);
    if (!test) {
        emit failed(tr("Further Measures"), toQString(test.error().message()));
        emit calculationEnded();
        return;
    }
    runRequest_ = r;
    runGeneration_ = controller_.analysisGeneration();
    const bool keys = calculate_->hasFocus();  // the keyboard stays with the panel
    run_->start(std::move(*test), r.shuffles, r.seed);
    updateControls();
    if (keys) {
        cancel_->setFocus();
    }
}

void FurtherMeasuresPanel::testEnded(const std::optional<SignificanceResult>& result,
                                     bool cancelled) {
    const bool keys = cancel_->hasFocus();
    if (!cancelled) {
        if (result) {
            // Dropped by the controller when the analysis has started over since.
            controller_.takeFurtherMeasures(runRequest_, result, runGeneration_);
        } else {
            emit failed(tr("Further Measures"),
                        toQString(controller_.significanceMemoryError().message()));
        }
    }
    updateControls();
    if (keys) {
        calculate_->setFocus();
    }
    emit calculationEnded();
}

void FurtherMeasuresPanel::refresh() {
    // A test of a picture, pair or mask no longer analysed has nothing left to say.
    if (run_->running() && runGeneration_ != controller_.analysisGeneration()) {
        run_->cancel();
    }
    results_->clear();
    for (const ResultLine& line : controller_.fields().furtherMeasures) {
        auto* item = new QTreeWidgetItem(results_, {toQString(line.name), toQString(line.value)});
        item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
    }
    emptyHint_->setVisible(results_->topLevelItemCount() == 0);
    const auto thresholds = controller_.costesThresholdsShown();
    scatterGram_.setThresholdLines(thresholds ? std::optional(QPoint(thresholds->x, thresholds->y))
                                              : std::nullopt);
    updateControls();
}

void FurtherMeasuresPanel::updateControls() {
    const bool idle = !run_->running();
    for (QWidget* w : {static_cast<QWidget*>(spearman_), static_cast<QWidget*>(kendall_),
                       static_cast<QWidget*>(icq_), static_cast<QWidget*>(costes_),
                       static_cast<QWidget*>(significance_)}) {
        w->setEnabled(idle);
    }
    for (QSpinBox* box : {shuffles_, psf_, seed_}) {
        box->setEnabled(idle && significance_->isChecked());
    }
    calculate_->setEnabled(idle && controller_.buttons().calculateCoefficientButton &&
                           request().any());
    applyCostes_->setEnabled(idle && controller_.costesThresholdsShown().has_value());
    cancel_->setEnabled(!idle);
    calculate_->setVisible(idle);
    applyCostes_->setVisible(idle);
    progress_->setVisible(!idle);
    cancel_->setVisible(!idle);
}

}  // namespace pv::app
