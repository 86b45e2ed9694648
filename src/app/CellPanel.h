#pragma once

#include <QWidget>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class QGridLayout;
class QLabel;
class QProgressBar;
class QPushButton;
class QScrollArea;

namespace pv {
class BlockShuffleTest;
}

namespace pv::app {

class ShuffleRun;

// Under the image view while labels are shown: the results of the cell last clicked, name and
// value in pairs, or how to get them. Hidden otherwise. While the cell's own significance test
// runs, its progress and Cancel show under the rows.
class CellPanel : public QWidget {
    Q_OBJECT

  public:
    explicit CellPanel(QWidget* parent = nullptr);

    // The rows of one cell; none: the hint.
    void showRows(const std::vector<std::pair<std::string, std::string>>& rows);
    // The value shown for a row's name; empty when there is no such row.
    QString value(const QString& name) const;
    // The cell's test, run on a worker; whoever starts it hears from test() how it ended.
    void startTest(BlockShuffleTest test, int shuffles, std::uint64_t seed);
    ShuffleRun& test() const { return *run_; }

  private:
    void updateTestControls();

    QScrollArea* scroll_;
    QGridLayout* grid_;
    QLabel* hint_;
    QProgressBar* progress_;
    QPushButton* cancel_;
    ShuffleRun* run_;
    std::vector<std::pair<QLabel*, QLabel*>> rows_;
};

}  // namespace pv::app
