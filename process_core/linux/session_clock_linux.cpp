// The continuous clock on Linux: CLOCK_BOOTTIME, which keeps counting through a suspend.
#include <time.h>

#include <algorithm>
#include <condition_variable>
#include <mutex>

#include "process_core/session_clock.h"

namespace tidewatch {
namespace {

struct BootClock {
  using rep = int64_t;
  using period = std::nano;
  using duration = std::chrono::nanoseconds;
  using time_point = std::chrono::time_point<BootClock>;
  static constexpr bool is_steady = true;

  static time_point now() noexcept {
    timespec ts{};
    ::clock_gettime(CLOCK_BOOTTIME, &ts);
    return time_point(std::chrono::seconds(ts.tv_sec) + std::chrono::nanoseconds(ts.tv_nsec));
  }
};

// Far beyond any cadence, and far from the overflow of a nanosecond time point.
constexpr SessionClock::Duration longestSleep = std::chrono::hours(24 * 365);

}  // namespace

// The condition variable measures its timeout on its own monotonic clock, which stands still during
// a suspend; the deadline is checked on BootClock, so a sleep that spans a suspend ends at the
// latest one interval after the machine wakes.
SessionClock SessionClock::continuous() {
  return SessionClock{[](Duration duration, std::stop_token stop) {
    const auto deadline = BootClock::now() + std::clamp(duration, Duration::zero(), longestSleep);
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    wake.wait_until(lock, stop, deadline, [] { return false; });
    return BootClock::now() >= deadline;
  }};
}

}  // namespace tidewatch
