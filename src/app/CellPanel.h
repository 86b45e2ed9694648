#pragma once

#include <QWidget>
#include <string>
#include <utility>
#include <vector>

class QGridLayout;
class QLabel;

namespace pv::app {

// Under the image view while labels are shown: the results of the cell last clicked, name and
// value in pairs, or how to get them. Hidden otherwise.
class CellPanel : public QWidget {
    Q_OBJECT

  public:
    explicit CellPanel(QWidget* parent = nullptr);

    // The rows of one cell; none: the hint.
    void showRows(const std::vector<std::pair<std::string, std::string>>& rows);
    // The value shown for a row's name; empty when there is no such row.
    QString value(const QString& name) const;

  private:
    QGridLayout* grid_;
    QLabel* hint_;
    std::vector<std::pair<QLabel*, QLabel*>> rows_;
};

}  // namespace pv::app
