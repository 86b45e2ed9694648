#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>

#include "analysis/Significance.h"

class QProgressBar;
class QTimer;

namespace pv::app {

// A significance test on a worker thread while the window stays usable: its shuffles counted on
// a progress bar, stopped by cancel(). The test goes to the worker with its own pixels.
class ShuffleRun : public QObject {
    Q_OBJECT

  public:
    ShuffleRun(QProgressBar* progress, QObject* parent);
    // A test still running is cancelled and waited for: it must not outlive its window.
    ~ShuffleRun() override;

    void start(BlockShuffleTest test, int shuffles, std::uint64_t seed);
    void cancel();
    bool running() const { return shared_ != nullptr; }

  signals:
    // The test ended: with its result, or without when cancelled or memory was short.
    void ended(const std::optional<SignificanceResult>& result, bool cancelled);

  private:
    // What a test shares with its worker.
    struct Shared {
        std::atomic<bool> cancelled{false};
        std::atomic<int> done{0};
    };
    using Outcome = std::optional<SignificanceResult>;

    void finished();

    QProgressBar* progress_;
    QTimer* timer_;
    QFutureWatcher<Outcome> watcher_;
    std::shared_ptr<Shared> shared_;  // of the test under way, if any
};

}  // namespace pv::app
