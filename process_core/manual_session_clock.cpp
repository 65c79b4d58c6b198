#include "process_core/manual_session_clock.h"

#include <condition_variable>
#include <mutex>

namespace tidewatch {

struct ManualSessionClock::State {
  mutable std::mutex mutex;
  mutable std::condition_variable_any changed;
  Duration now{0};
  size_t sleepers = 0;
  std::vector<Duration> requests;
  std::function<void()> elapsedHook;
};

ManualSessionClock::ManualSessionClock() : state_(std::make_shared<State>()) {}

SessionClock ManualSessionClock::clock() const {
  return SessionClock{[state = state_](Duration duration, std::stop_token stop) {
    std::unique_lock lock(state->mutex);
    state->requests.push_back(duration);
    const Duration deadline = state->now + duration;
    ++state->sleepers;
    state->changed.notify_all();
    const bool elapsed = state->changed.wait(lock, stop, [&] { return state->now >= deadline; });
    --state->sleepers;
    state->changed.notify_all();
    const auto hook = elapsed ? state->elapsedHook : nullptr;
    lock.unlock();
    if (hook) hook();
    return elapsed;
  }};
}

void ManualSessionClock::advance(Duration by) {
  std::lock_guard lock(state_->mutex);
  state_->now += by;
  state_->changed.notify_all();
}

ManualSessionClock::Duration ManualSessionClock::now() const {
  std::lock_guard lock(state_->mutex);
  return state_->now;
}

std::vector<ManualSessionClock::Duration> ManualSessionClock::requestedSleeps() const {
  std::lock_guard lock(state_->mutex);
  return state_->requests;
}

size_t ManualSessionClock::sleeperCount() const {
  std::lock_guard lock(state_->mutex);
  return state_->sleepers;
}

bool ManualSessionClock::waitForSleepers(size_t count, std::chrono::milliseconds limit) const {
  std::unique_lock lock(state_->mutex);
  return state_->changed.wait_for(lock, limit, [&] { return state_->sleepers == count; });
}

void ManualSessionClock::onElapsed(std::function<void()> hook) {
  std::lock_guard lock(state_->mutex);
  state_->elapsedHook = std::move(hook);
}

}  // namespace tidewatch
