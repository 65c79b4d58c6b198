// The main executor of the application: work posted from any thread runs on the thread of the
// Qt event loop that owns this object, in the order posted; timers are single-shot QTimers.
#pragma once

#include <QObject>
#include <QTimer>

#include <map>
#include <mutex>

#include "process_core/main_executor.h"

namespace tidewatch {

class QtMainExecutor final : public QObject, public MainExecutor {
  Q_OBJECT

 public:
  explicit QtMainExecutor(QObject* parent = nullptr);
  ~QtMainExecutor() override;

  void post(std::function<void()> work) override;
  TimerID postAfter(std::chrono::nanoseconds delay, std::function<void()> work) override;
  void cancel(TimerID timer) override;

 private:
  std::mutex mutex_;
  std::map<TimerID, QTimer*> timers_;
  TimerID nextTimer_ = 1;
};

}  // namespace tidewatch
