#include "app/CellPanel.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <QVBoxLayout>
#include <algorithm>

#include "app/ShuffleRun.h"

namespace pv::app {

namespace {

// Three pairs keep the report's longest names ("Costes Y threshold") whole beside the image at
// 1366 x 768; a cell with its further measures scrolls past the lines that fit.
constexpr int kPairsPerLine = 3;
constexpr int kLinesShown = 7;

}  // namespace

CellPanel::CellPanel(QWidget* parent)
    : QWidget(parent),
      scroll_(new QScrollArea(this)),
      grid_(new QGridLayout(new QWidget(scroll_))),
      hint_(new QLabel(tr("Click inside a cell to see its results."), this)),
      progress_(new QProgressBar(this)),
      cancel_(new QPushButton(tr("Cancel"), this)),
      run_(new ShuffleRun(progress_, this)) {
    setObjectName("cellPanel");
    setAccessibleName(tr("Cell results"));
    hint_->setObjectName("cellHint");
    grid_->setContentsMargins(4, 4, 4, 0);
    grid_->setHorizontalSpacing(8);
    grid_->addWidget(hint_, 0, 0, 1, 2 * kPairsPerLine);
    grid_->setColumnStretch(2 * kPairsPerLine, 1);  // the pairs keep to the left
    grid_->setRowStretch(100, 1);                   // and to the top
    scroll_->setWidget(grid_->parentWidget());
    scroll_->setWidgetResizable(true);
    scroll_->setFrameShape(QFrame::NoFrame);
    scroll_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(0, 0, 0, 0);
    column->addWidget(scroll_);
    // The test's row stays at the bottom, however many rows the cell has.
    auto* testRow = new QHBoxLayout;
    progress_->setObjectName("cellTestProgress");
    progress_->setAccessibleName(tr("Cell significance test progress"));
    progress_->setFormat(tr("%v of %m shuffles"));
    cancel_->setObjectName("cancelCellTestButton");
    cancel_->setAccessibleName(tr("Cancel the cell's significance test"));
    testRow->addWidget(progress_, 1);
    testRow->addWidget(cancel_);
    column->addLayout(testRow);
    connect(cancel_, &QPushButton::clicked, run_, &ShuffleRun::cancel);
    connect(run_, &ShuffleRun::ended, this, &CellPanel::updateTestControls);
    updateTestControls();
    hide();
}

void CellPanel::startTest(BlockShuffleTest test, int shuffles, std::uint64_t seed) {
    run_->start(std::move(test), shuffles, seed);
    updateTestControls();
}

void CellPanel::updateTestControls() {
    progress_->setVisible(run_->running());
    cancel_->setVisible(run_->running());
}

void CellPanel::showRows(const std::vector<std::pair<std::string, std::string>>& rows) {
    for (auto& [name, value] : rows_) {
        delete name;
        delete value;
    }
    rows_.clear();
    hint_->setVisible(rows.empty());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        auto* name = new QLabel(QString::fromStdString(rows[i].first), grid_->parentWidget());
        auto* value = new QLabel(QString::fromStdString(rows[i].second), grid_->parentWidget());
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        name->setBuddy(value);
        const int line = 1 + int(i) / kPairsPerLine, column = 2 * (int(i) % kPairsPerLine);
        grid_->addWidget(name, line, column, Qt::AlignRight);
        grid_->addWidget(value, line, column + 1);
        rows_.emplace_back(name, value);
    }
    const int lines =
        std::min(kLinesShown, 1 + (int(rows.size()) + kPairsPerLine - 1) / kPairsPerLine);
    const int lineHeight = fontMetrics().height() + grid_->verticalSpacing();
    scroll_->setFixedHeight(grid_->contentsMargins().top() + lines * lineHeight);
    updateTestControls();
}

QString CellPanel::value(const QString& name) const {
    for (const auto& [n, v] : rows_) {
        if (n->text() == name) {
            return v->text();
        }
    }
    return QString();
}

}  // namespace pv::app
