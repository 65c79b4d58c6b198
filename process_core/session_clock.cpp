#include "process_core/session_clock.h"

#include <utility>

namespace tidewatch {

std::stop_source PokeableWait::takeSleeper(WakeReason reason) {
  if (sleeper_ == nullptr) return std::stop_source(std::nostopstate);
  sleeper_->reason = reason;
  std::stop_source clockStop = sleeper_->clockStop;
  sleeper_ = nullptr;
  taken_.notify_all();
  return clockStop;
}

bool PokeableWait::begin() {
  std::lock_guard lock(mutex_);
  begun_ = true;
  return !closed_;
}

void PokeableWait::close() {
  std::stop_source clockStop(std::nostopstate);
  {
    std::lock_guard lock(mutex_);
    closed_ = true;
    pokePending_ = false;
    clockStop = takeSleeper(WakeReason::cancelled);
  }
  clockStop.request_stop();
}

bool PokeableWait::isClosed() const {
  std::lock_guard lock(mutex_);
  return closed_;
}

void PokeableWait::poke() {
  std::stop_source clockStop(std::nostopstate);
  {
    std::lock_guard lock(mutex_);
    if (!begun_ || closed_) return;
    clockStop = takeSleeper(WakeReason::poked);
    if (!clockStop.stop_possible()) pokePending_ = true;
  }
  clockStop.request_stop();
}

bool PokeableWait::takePendingPoke() {
  std::lock_guard lock(mutex_);
  return std::exchange(pokePending_, false);
}

bool PokeableWait::beginWork() {
  std::lock_guard lock(mutex_);
  pokePending_ = false;
  return !closed_ && !cancelled_;
}

void PokeableWait::cancelFromStop() {
  std::stop_source clockStop(std::nostopstate);
  {
    std::lock_guard lock(mutex_);
    cancelled_ = true;
    clockStop = takeSleeper(WakeReason::cancelled);
  }
  clockStop.request_stop();
}

PokeableWait::WakeReason PokeableWait::sleep(const SessionClock& clock, SessionClock::Duration interval,
                                             std::stop_token stop) {
  Sleeper me;
  {
    std::lock_guard lock(mutex_);
    if (stop.stop_requested()) cancelled_ = true;
    if (closed_ || cancelled_) return WakeReason::cancelled;
    if (std::exchange(pokePending_, false)) return WakeReason::poked;
    if (sleeper_ != nullptr) return WakeReason::cancelled;  // one sleeper at a time
    sleeper_ = &me;
  }
  {
    // Runs at once when the stop came already; never while this thread holds the lock.
    std::stop_callback onStop(stop, [this] { cancelFromStop(); });
    if (!clock.sleep(interval, me.clockStop.get_token())) {
      std::unique_lock lock(mutex_);
      taken_.wait(lock, [&] { return sleeper_ != &me; });
    }
  }
  std::lock_guard lock(mutex_);
  if (sleeper_ == &me) {
    sleeper_ = nullptr;
    return WakeReason::ticked;
  }
  return me.reason;
}

}  // namespace tidewatch
