#include "app/CellPanel.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>

#include "app/ShuffleRun.h"

namespace pv::app {

namespace {

constexpr int kPairsPerLine = 4;

}  // namespace

CellPanel::CellPanel(QWidget* parent)
    : QWidget(parent),
      grid_(new QGridLayout(this)),
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
    // The test's row stays at the bottom, however many rows the cell has.
    auto* testRow = new QHBoxLayout;
    progress_->setObjectName("cellTestProgress");
    progress_->setAccessibleName(tr("Cell significance test progress"));
    progress_->setFormat(tr("%v of %m shuffles"));
    cancel_->setObjectName("cancelCellTestButton");
    cancel_->setAccessibleName(tr("Cancel the cell's significance test"));
    testRow->addWidget(progress_, 1);
    testRow->addWidget(cancel_);
    grid_->addLayout(testRow, 100, 0, 1, 2 * kPairsPerLine);
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
        auto* name = new QLabel(QString::fromStdString(rows[i].first), this);
        auto* value = new QLabel(QString::fromStdString(rows[i].second), this);
        value->setTextInteractionFlags(Qt::TextSelectableByMouse);
        name->setBuddy(value);
        const int line = 1 + int(i) / kPairsPerLine, column = 2 * (int(i) % kPairsPerLine);
        grid_->addWidget(name, line, column, Qt::AlignRight);
        grid_->addWidget(value, line, column + 1);
        rows_.emplace_back(name, value);
    }
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
