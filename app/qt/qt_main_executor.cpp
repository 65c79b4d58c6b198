#include "app/qt/qt_main_executor.h"

#include <QMetaObject>

#include <algorithm>

namespace tidewatch {

QtMainExecutor::QtMainExecutor(QObject* parent) : QObject(parent) {}

QtMainExecutor::~QtMainExecutor() = default;  // the timers are children and go with it

void QtMainExecutor::post(std::function<void()> work) {
  QMetaObject::invokeMethod(this, std::move(work), Qt::QueuedConnection);
}

MainExecutor::TimerID QtMainExecutor::postAfter(std::chrono::nanoseconds delay, std::function<void()> work) {
  TimerID id = 0;
  {
    std::lock_guard lock(mutex_);
    id = nextTimer_++;
  }
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(std::max(delay, std::chrono::nanoseconds(0)));
  // Timers belong to the executor's thread: the timer is made there, also when asked from elsewhere.
  post([this, id, milliseconds, work = std::move(work)]() mutable {
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    timer->setTimerType(Qt::CoarseTimer);
    connect(timer, &QTimer::timeout, this, [this, id, timer, work = std::move(work)] {
      {
        std::lock_guard lock(mutex_);
        timers_.erase(id);
      }
      timer->deleteLater();
      work();
    });
    {
      std::lock_guard lock(mutex_);
      timers_[id] = timer;
    }
    timer->start(static_cast<int>(std::min<long long>(milliseconds.count(), INT32_MAX)));
  });
  return id;
}

void QtMainExecutor::cancel(TimerID timer) {
  // Runs after any pending creation of the same timer, which was posted before.
  post([this, timer] {
    QTimer* found = nullptr;
    {
      std::lock_guard lock(mutex_);
      auto it = timers_.find(timer);
      if (it == timers_.end()) return;
      found = it->second;
      timers_.erase(it);
    }
    found->stop();
    found->deleteLater();
  });
}

}  // namespace tidewatch
