#include "app/ShuffleRun.h"

#include <QProgressBar>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>

namespace pv::app {

ShuffleRun::ShuffleRun(QProgressBar* progress, QObject* parent)
    : QObject(parent), progress_(progress), timer_(new QTimer(this)) {
    connect(&watcher_, &QFutureWatcherBase::finished, this, &ShuffleRun::finished);
    connect(timer_, &QTimer::timeout, this, [this] {
        if (shared_) {
            progress_->setValue(shared_->done.load());
        }
    });
}

ShuffleRun::~ShuffleRun() {
    if (shared_) {
        shared_->cancelled = true;
        watcher_.disconnect(this);
        watcher_.waitForFinished();
    }
}

void ShuffleRun::start(BlockShuffleTest test, int shuffles, std::uint64_t seed) {
    shared_ = std::make_shared<Shared>();
    progress_->setRange(0, shuffles);
    progress_->setValue(0);
    timer_->start(100);
    auto owned = std::make_shared<BlockShuffleTest>(std::move(test));
    watcher_.setFuture(QtConcurrent::run([owned, shared = shared_, shuffles, seed] {
        return owned->run(
            shuffles, seed, 0, [&shared] { return shared->cancelled.load(); },
            [&shared](int done) {
                // Workers finish shuffles out of order; the bar only moves forward.
                int seen = shared->done.load();
                while (done > seen && !shared->done.compare_exchange_weak(seen, done)) {
                }
            });
    }));
}

void ShuffleRun::cancel() {
    if (shared_) {
        shared_->cancelled = true;
    }
}

void ShuffleRun::finished() {
    const std::shared_ptr<Shared> ended = std::move(shared_);
    timer_->stop();
    emit this->ended(watcher_.result(), ended->cancelled);
}

}  // namespace pv::app
