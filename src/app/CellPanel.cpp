#include "app/CellPanel.h"

#include <QGridLayout>
#include <QLabel>

namespace pv::app {

namespace {

constexpr int kPairsPerLine = 4;

}  // namespace

CellPanel::CellPanel(QWidget* parent)
    : QWidget(parent),
      grid_(new QGridLayout(this)),
      hint_(new QLabel(tr("Click inside a cell to see its results."), this)) {
    setObjectName("cellPanel");
    setAccessibleName(tr("Cell results"));
    hint_->setObjectName("cellHint");
    grid_->setContentsMargins(4, 4, 4, 0);
    grid_->setHorizontalSpacing(8);
    grid_->addWidget(hint_, 0, 0, 1, 2 * kPairsPerLine);
    grid_->setColumnStretch(2 * kPairsPerLine, 1);  // the pairs keep to the left
    hide();
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
