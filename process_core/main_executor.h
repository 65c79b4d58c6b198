// The main thread as a queue of work. Objects that live on the application's main thread take
// this, so the application binds it to its event loop and tests turn it step by step.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace tidewatch {

class MainExecutor {
 public:
  using TimerID = unsigned long long;

  virtual ~MainExecutor() = default;
  // Runs work later on the main thread, after everything posted before it. From any thread.
  virtual void post(std::function<void()> work) = 0;
  // Runs work on the main thread once the delay has passed; a delay of 0 or less is due at once.
  virtual TimerID postAfter(std::chrono::nanoseconds delay, std::function<void()> work) = 0;
  // Drops a timer that has not run yet; nothing for one that ran or an unknown id.
  virtual void cancel(TimerID timer) = 0;
};

// An executor whose work runs only when told and whose time moves only when told.
class ManualMainExecutor final : public MainExecutor {
 public:
  void post(std::function<void()> work) override;
  TimerID postAfter(std::chrono::nanoseconds delay, std::function<void()> work) override;
  void cancel(TimerID timer) override;

  // Runs what is due, in order, including what that work posts, until nothing due is left.
  // The number of pieces run.
  size_t runUntilIdle();
  // Moves time on, then runs what is due.
  size_t advance(std::chrono::nanoseconds by);
  std::chrono::nanoseconds now() const;
  // Every delay asked of postAfter, in order.
  std::vector<std::chrono::nanoseconds> requestedDelays() const;
  // Pieces waiting, due or not.
  size_t pendingCount() const;

 private:
  struct Timed {
    std::chrono::nanoseconds due;
    unsigned long long order;  // also the timer's id
    std::function<void()> work;
  };

  mutable std::mutex mutex_;
  std::vector<Timed> pending_;
  std::vector<std::chrono::nanoseconds> requestedDelays_;
  std::chrono::nanoseconds now_{0};
  unsigned long long nextOrder_ = 0;
};

}  // namespace tidewatch
