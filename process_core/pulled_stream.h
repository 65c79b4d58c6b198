// The bookkeeping every pulled session shares: one iterator per session, one pull in flight per
// iterator, a stream that ends for good, and work handed over from a thread nobody waits for.
// What a pull does between its start and its element is the session's own.
#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <utility>

#include "process_core/one_shot.h"

namespace tidewatch {

// Who gets the stream: the first iterator made. Later ones are handed out all the same and end
// at once, so the rule is silent and the first iterator is not disturbed.
class SingleIteratorGate {
 public:
  // True exactly once.
  bool claim() {
    std::lock_guard lock(mutex_);
    return !std::exchange(claimed_, true);
  }

 private:
  std::mutex mutex_;
  bool claimed_ = false;
};

// The pulls of one iterator, one at a time. A pull that ends without an element ends the stream
// for good, whatever way it leaves (an early return or an exception).
class PullTurns {
 public:
  // Runs `body` as the pull in flight and returns what it gives, an optional element. Absent at
  // once, marking nothing, while another pull is in flight or once the stream has ended.
  template <typename Body>
  auto run(Body&& body) -> decltype(body()) {
    {
      std::lock_guard lock(mutex_);
      if (terminated_ || inFlight_) return std::nullopt;
      inFlight_ = true;
    }
    Turn turn{*this};
    auto element = body();
    turn.delivered = element.has_value();
    return element;
  }

  bool isTerminated() const {
    std::lock_guard lock(mutex_);
    return terminated_;
  }

 private:
  struct Turn {
    PullTurns& turns;
    bool delivered = false;
    ~Turn() {
      std::lock_guard lock(turns.mutex_);
      if (!delivered) turns.terminated_ = true;
      turns.inFlight_ = false;
    }
  };

  mutable std::mutex mutex_;
  bool inFlight_ = false;
  bool terminated_ = false;
};

// Runs `work` on a detached thread and waits for its value, or for `stop`, whichever comes first.
// On a stop the work runs on to its end and its value is dropped, so a stop never waits for the
// work. `work` must own everything it touches and must not throw.
template <typename T, typename Work>
std::optional<T> awaitDetached(Work work, std::stop_token stop) {
  auto handOver = std::make_shared<OneShot<T>>();
  startDetached([work = std::move(work), handOver]() mutable { handOver->resume(work()); });
  auto value = handOver->value(stop);
  if (stop.stop_requested()) return std::nullopt;  // a value that came too late is dropped
  return value;
}

}  // namespace tidewatch
