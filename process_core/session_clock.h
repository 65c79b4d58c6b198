// Waiting for the next tick of a pulled session. A session's pull blocks on a worker thread with
// a std::stop_token of its consumer; every wait here ends at once on a stop, so a consumer that
// goes away never waits out an interval, and a poke ends a sleep at once as well.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <stop_token>

namespace tidewatch {

// The one way sessions measure time, so that tests put a manual clock in its place.
struct SessionClock {
  using Duration = std::chrono::nanoseconds;

  // Blocks for `duration`, or less when `stop` is requested; true when the whole duration
  // passed. It returns false only for a stop, never on its own.
  std::function<bool(Duration duration, std::stop_token stop)> sleep;

  // Sleeps on the monotonic clock that keeps counting while the machine is suspended.
  static SessionClock continuous();
};

// A sleep that others can cut short, for one sleeper at a time. A poke ends it with `poked`, or,
// when nobody sleeps, is kept (once) for the next sleep; the sleeper's own stop ends it with
// `cancelled`. Exactly one of tick, poke, stop and close wins a given sleep, decided under one lock;
// the clock is stopped only after that lock is released.
class PokeableWait {
 public:
  enum class WakeReason { ticked, poked, cancelled };

  // A pull has reached its wait for work: from now on pokes count. False once closed.
  bool begin();
  // Ends for good: pokes are dropped from now on, a sleep in progress ends with `cancelled`, and
  // so does every later one.
  void close();
  bool isClosed() const;

  // From any thread at any time. Before the first `begin` or after `close` it is dropped without
  // trace; during a sleep it ends that sleep; otherwise it is kept for the next one.
  void poke();
  // Takes a kept poke.
  bool takePendingPoke();
  // The work that starts now satisfies every poke so far, so a kept one is forgotten. False when
  // closed or when a sleeper's stop has cancelled the wait.
  bool beginWork();

  // Sleeps `interval` on `clock`. Ends at once with `cancelled` when closed or stopped, and with
  // `poked` when a poke was kept. A clock that fails without being stopped leaves the sleep
  // waiting for a poke, a stop or a close.
  WakeReason sleep(const SessionClock& clock, SessionClock::Duration interval, std::stop_token stop);

 private:
  struct Sleeper {
    std::stop_source clockStop;
    WakeReason reason = WakeReason::cancelled;
  };

  // Under the lock: the current sleep, if any, ends for `reason`. The caller stops the returned
  // source after releasing the lock.
  std::stop_source takeSleeper(WakeReason reason);
  void cancelFromStop();

  mutable std::mutex mutex_;
  std::condition_variable taken_;
  bool begun_ = false;
  bool closed_ = false;
  bool cancelled_ = false;
  bool pokePending_ = false;
  Sleeper* sleeper_ = nullptr;
};

}  // namespace tidewatch
