#pragma once

#include <QFutureWatcher>
#include <QGroupBox>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "controller/PixmeraVeltroController.h"

class QCheckBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QTimer;
class QTreeWidget;

namespace pv::app {

class ScatterGramWidget;

// The further measures beside the coefficients: what to calculate, its own Calculate, the
// results as the report gives them, and Apply Costes Thresholds. The significance test runs on
// a worker thread with a progress bar and Cancel while the window stays usable; the results
// and whether they still apply are the controller's.
class FurtherMeasuresPanel : public QGroupBox {
    Q_OBJECT

  public:
    FurtherMeasuresPanel(PixmeraVeltroController& controller, ScatterGramWidget& scatterGram,
                         QWidget* parent);
    // A test still running is cancelled and waited for: it must not outlive its window.
    ~FurtherMeasuresPanel() override;

    // The controller's state changed (once an action): the results, the lines, the buttons.
    void refresh();
    bool testRunning() const { return running_ != nullptr; }
    // The controls in the order Tab goes through them.
    QList<QWidget*> tabOrder() const;

  signals:
    // Something failed; the message names the file.
    void failed(const QString& title, const QString& message);
    // A press of Calculate has ended: with results, cancelled, dropped or failed.
    void calculationEnded();

  private:
    // What one significance test shares with its worker.
    struct Running {
        MeasureRequest request;
        std::uint64_t generation = 0;
        std::atomic<bool> cancelled{false};
        std::atomic<int> done{0};
    };
    using Outcome = std::optional<SignificanceResult>;

    MeasureRequest request() const;
    void calculate();
    void startTest(const MeasureRequest& request);
    void testEnded();
    void cancelTest();
    void updateControls();

    PixmeraVeltroController& controller_;
    ScatterGramWidget& scatterGram_;
    QCheckBox* spearman_;
    QCheckBox* kendall_;
    QCheckBox* icq_;
    QCheckBox* costes_;
    QCheckBox* significance_;
    QSpinBox* shuffles_;
    QSpinBox* psf_;
    QSpinBox* seed_;
    QPushButton* calculate_;
    QPushButton* applyCostes_;
    QProgressBar* progress_;
    QPushButton* cancel_;
    QTreeWidget* results_;
    QLabel* emptyHint_ = nullptr;
    QTimer* progressTimer_;
    QFutureWatcher<Outcome> watcher_;
    std::shared_ptr<Running> running_;  // the test under way, if any
};

}  // namespace pv::app
