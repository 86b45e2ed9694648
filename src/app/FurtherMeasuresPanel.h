#pragma once

#include <QGroupBox>
#include <cstdint>
#include <optional>

#include "controller/PixmeraVeltroController.h"

class QCheckBox;
class QLabel;
class QProgressBar;
class QPushButton;
class QSpinBox;
class QTreeWidget;

namespace pv::app {

class ScatterGramWidget;
class ShuffleRun;

// The further measures beside the coefficients: what to calculate, its own Calculate, the
// results as the report gives them, and Apply Costes Thresholds. The significance test runs on
// a worker thread with a progress bar and Cancel while the window stays usable; the results
// and whether they still apply are the controller's.
class FurtherMeasuresPanel : public QGroupBox {
    Q_OBJECT

  public:
    FurtherMeasuresPanel(PixmeraVeltroController& controller, ScatterGramWidget& scatterGram,
                         QWidget* parent);

    // The controller's state changed (once an action): the results, the lines, the buttons.
    void refresh();
    bool testRunning() const;
    // The controls in the order Tab goes through them.
    QList<QWidget*> tabOrder() const;

  signals:
    // Something failed; the message names the file.
    void failed(const QString& title, const QString& message);
    // A press of Calculate has ended: with results, cancelled, dropped or failed.
    void calculationEnded();

  private:
    MeasureRequest request() const;
    void calculate();
    void startTest(const MeasureRequest& request);
    void testEnded(const std::optional<SignificanceResult>& result, bool cancelled);
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
    ShuffleRun* run_;
    MeasureRequest runRequest_;        // of the test under way
    std::uint64_t runGeneration_ = 0;  // the analysis it tests
};

}  // namespace pv::app
