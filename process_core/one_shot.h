// Handing one value from a background thread to one waiter that may stop waiting.
#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <system_error>
#include <thread>
#include <utility>

namespace tidewatch {

// A single-assignment hand-over. Share it (std::shared_ptr) between the thread that produces and
// the one that waits, so either may leave first. The first of a value and a stopped wait wins.
template <typename T>
class OneShot {
 public:
  // Stores the value for the waiter; false, and the value dropped, when something came first.
  bool resume(T value) {
    std::lock_guard lock(mutex_);
    if (isResumed_) return false;
    isResumed_ = true;
    stored_ = std::move(value);
    ready_.notify_all();
    return true;
  }

  // Blocks until the value is there; absent as soon as `stop` is requested first, and then a value
  // that comes later is dropped.
  std::optional<T> value(std::stop_token stop) {
    std::unique_lock lock(mutex_);
    ready_.wait(lock, stop, [this] { return stored_.has_value(); });
    if (!stored_) {
      isResumed_ = true;
      return std::nullopt;
    }
    return std::exchange(stored_, std::nullopt);
  }

 private:
  std::mutex mutex_;
  std::condition_variable_any ready_;
  std::optional<T> stored_;
  bool isResumed_ = false;
};

// Runs `work` on a thread of its own that nobody joins, so a waiter never depends on its end.
// `work` must own everything it touches. Should no thread be available, it runs here and now.
inline void startDetached(const std::function<void()>& work) {
  try {
    std::thread(work).detach();
  } catch (const std::system_error&) {
    work();
  }
}

}  // namespace tidewatch
