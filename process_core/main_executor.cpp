#include "process_core/main_executor.h"

#include <algorithm>
#include <tuple>

namespace tidewatch {

void ManualMainExecutor::post(std::function<void()> work) {
  std::lock_guard lock(mutex_);
  pending_.push_back({now_, nextOrder_++, std::move(work)});
}

MainExecutor::TimerID ManualMainExecutor::postAfter(std::chrono::nanoseconds delay, std::function<void()> work) {
  std::lock_guard lock(mutex_);
  requestedDelays_.push_back(delay);
  const TimerID id = nextOrder_++;
  pending_.push_back({now_ + std::max(delay, std::chrono::nanoseconds(0)), id, std::move(work)});
  return id;
}

void ManualMainExecutor::cancel(TimerID timer) {
  std::lock_guard lock(mutex_);
  std::erase_if(pending_, [timer](const Timed& timed) { return timed.order == timer; });
}

size_t ManualMainExecutor::runUntilIdle() {
  size_t count = 0;
  for (;;) {
    std::function<void()> work;
    {
      std::lock_guard lock(mutex_);
      // The earliest due piece, first posted first among equals.
      auto next = pending_.end();
      for (auto it = pending_.begin(); it != pending_.end(); ++it) {
        if (it->due > now_) continue;
        if (next == pending_.end() || std::tie(it->due, it->order) < std::tie(next->due, next->order)) next = it;
      }
      if (next == pending_.end()) return count;
      work = std::move(next->work);
      pending_.erase(next);
    }
    work();
    ++count;
  }
}

size_t ManualMainExecutor::advance(std::chrono::nanoseconds by) {
  {
    std::lock_guard lock(mutex_);
    now_ += by;
  }
  return runUntilIdle();
}

std::chrono::nanoseconds ManualMainExecutor::now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

std::vector<std::chrono::nanoseconds> ManualMainExecutor::requestedDelays() const {
  std::lock_guard lock(mutex_);
  return requestedDelays_;
}

size_t ManualMainExecutor::pendingCount() const {
  std::lock_guard lock(mutex_);
  return pending_.size();
}

}  // namespace tidewatch
