// A SessionClock whose time moves only when told, for driving sessions step by step. Waits for
// sleepers block on a condition (with a generous real-time limit as a guard against a hang), so a
// test never sleeps for real.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <vector>

#include "process_core/session_clock.h"

namespace tidewatch {

class ManualSessionClock {
 public:
  using Duration = SessionClock::Duration;

  ManualSessionClock();

  // Shares this clock's time; usable after this object is gone.
  SessionClock clock() const;

  // Moves time on and wakes every sleep that has run out.
  void advance(Duration by);
  Duration now() const;

  // Every duration asked of `sleep`, in order.
  std::vector<Duration> requestedSleeps() const;
  // Sleeps in progress now.
  size_t sleeperCount() const;
  // Blocks until exactly `count` sleeps are in progress; false when `limit` of real time passes first.
  bool waitForSleepers(size_t count, std::chrono::milliseconds limit = std::chrono::seconds(10)) const;

  // Runs on the sleeping thread when a sleep has run out, just before it returns.
  void onElapsed(std::function<void()> hook);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tidewatch
