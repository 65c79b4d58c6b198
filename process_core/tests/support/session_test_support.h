// Fixtures for pulled sessions: a bounded wait for a pull, a fake of the session's one injected
// operation that answers from a plan and can be held, and a session wired to both on a manual clock.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <utility>

#include "process_core/manual_session_clock.h"
#include "process_core/process_records.h"

namespace tidewatch::testing {

// Reached only when something hangs.
inline constexpr std::chrono::seconds hangLimit{10};

// A hang aborts: a blocked future would otherwise block the test binary for good.
template <typename T>
T resultOf(std::future<T>& future) {
  if (future.wait_for(hangLimit) != std::future_status::ready) {
    ADD_FAILURE() << "the wait never ended";
    std::abort();
  }
  return future.get();
}

template <typename T>
bool stillWaiting(std::future<T>& future) {
  return future.wait_for(std::chrono::milliseconds(1)) == std::future_status::timeout;
}

// Answers from a plan (an absent entry throws, an empty plan answers a default value). While held, each
// call waits for a release of its own. The state is shared with the calling thread, which may
// outlive the session.
template <typename T>
class PlannedOperation {
 public:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<std::optional<T>> plan;
    bool holding = false;
    int releases = 0, started = 0, finished = 0;
  };

  std::function<T()> operation() const {
    return [s = state_] {
      std::unique_lock lock(s->mutex);
      ++s->started;
      s->changed.notify_all();
      s->changed.wait(lock, [&] { return !s->holding || s->releases > 0; });
      if (s->holding) --s->releases;
      auto outcome = s->plan.empty() ? std::optional<T>(T{}) : s->plan.front();
      if (!s->plan.empty()) s->plan.pop_front();
      ++s->finished;
      s->changed.notify_all();
      if (!outcome) throw std::runtime_error("planned failure");
      return *outcome;
    };
  }

  void plan(std::optional<T> outcome) { locked([&] { state_->plan.push_back(std::move(outcome)); }); }
  void hold(bool holding = true) { locked([&] { state_->holding = holding; }); }
  void release() { locked([&] { ++state_->releases; }); }
  int started() { return locked([&] { return state_->started; }); }
  void waitUntil(int State::*counter, int count) {
    std::unique_lock lock(state_->mutex);
    ASSERT_TRUE(state_->changed.wait_for(lock, hangLimit, [&] { return (*state_).*counter >= count; }));
  }

 private:
  template <typename F>
  auto locked(F f) {
    std::lock_guard lock(state_->mutex);
    state_->changed.notify_all();
    return f();
  }

  std::shared_ptr<State> state_ = std::make_shared<State>();
};

// A session whose dependencies are {operation, clock, low power, battery mode}, driven by a
// planned operation, a manual clock and power settings a test may switch at any time.
template <typename Session, typename Value>
struct SessionHarness {
  ManualSessionClock manual;
  PlannedOperation<Value> operation;
  std::atomic<bool> lowPower = false;
  std::atomic<BatteryMode> mode = BatteryMode::balanced;
  Session session;
  typename Session::AsyncIterator iterator = session.makeAsyncIterator();

  template <typename... Rest>
  explicit SessionHarness(Rest&&... rest)
      : session(typename Session::Dependencies{operation.operation(), manual.clock(), [this] { return lowPower.load(); },
                                               [this] { return mode.load(); }},
                std::forward<Rest>(rest)...) {}

  auto pull(std::stop_token stop = {}) {
    return std::async(std::launch::async, [this, stop] { return iterator.next(stop); });
  }
  auto pullNow(std::stop_token stop = {}) {
    auto pending = pull(std::move(stop));
    return resultOf(pending);
  }
  // A pull that has to wait out one sleep of `interval`.
  auto pullAfter(SessionClock::Duration interval) {
    auto pending = pull();
    EXPECT_TRUE(manual.waitForSleepers(1));
    manual.advance(interval);
    return resultOf(pending);
  }
  // A pull with every sleep on its way let run out, however many failed calls it retries.
  auto pullThroughSleeps() {
    auto pending = pull();
    const auto limit = std::chrono::steady_clock::now() + hangLimit;
    while (pending.wait_for(std::chrono::milliseconds(0)) != std::future_status::ready) {
      if (std::chrono::steady_clock::now() > limit) std::abort();
      if (manual.waitForSleepers(1, std::chrono::milliseconds(5))) manual.advance(std::chrono::minutes(1));
    }
    return pending.get();
  }
};

}  // namespace tidewatch::testing
