#include "coralline_kit/agent_tracking_session.h"

#include <algorithm>
#include <utility>
#include <variant>

#include "process_core/power_profile.h"
#include "process_core/pulled_stream.h"

namespace tidewatch {
namespace {

using std::chrono::seconds;

struct RefreshFailed {};
struct RefreshCancelled {};
using RefreshOutcome = std::variant<AgentTrackingUpdate, RefreshFailed, RefreshCancelled>;

// Whether a session's refresh may still run: a cancel takes the permission away, also from a
// refresh that is still waiting for its turn.
struct RefreshPermission {
  std::mutex mutex;
  bool allowed = true;
};

// One refresh at a time in the whole process: the refresh of a cancelled session may still be
// running when the next session starts, and the two must not read and fold at once.
std::mutex& refreshSerializationLock() {
  static std::mutex lock;
  return lock;
}

}  // namespace

size_t AgentTrackingUpdate::count(AgentKind kind) const {
  return static_cast<size_t>(
      std::count_if(countedRuns.begin(), countedRuns.end(), [kind](const AgentRun& run) { return run.provider == kind; }));
}

std::map<AgentKind, size_t> AgentTrackingUpdate::countByKind() const {
  std::map<AgentKind, size_t> counts;
  for (AgentKind kind : allAgentKinds) counts[kind] = count(kind);
  return counts;
}

SessionClock::Duration AgentTrackingCadence::nextSleep(AgentCadenceState& state, bool transitionObserved,
                                                       bool hasOpenRun, bool lowPower, BatteryMode mode) {
  const auto idle = [&] {
    const auto interval = mode == BatteryMode::batterySaver ? seconds(15) : seconds(5);
    return lowPower ? std::max(interval, seconds(10)) : interval;
  };
  if (transitionObserved) {
    state.burstTicksRemaining = burstTicks;
    if (!lowPower) return seconds(1);
    return hasOpenRun ? seconds(4) : idle();
  }
  if (state.burstTicksRemaining > 0) {
    // The last tick of a burst already takes the steady value.
    const int remaining = state.burstTicksRemaining--;
    if (remaining >= 2 && !lowPower) return seconds(1);
  }
  if (hasOpenRun) return lowPower ? seconds(4) : seconds(2);
  return idle();
}

AgentTrackingSession::LiveSource::LiveSource(AgentScannerDependencies scanner, std::function<Date()> now)
    : scanner_(std::move(scanner)), now_(std::move(now)) {
  if (!now_) now_ = [] { return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()); };
}

AgentTrackingUpdate AgentTrackingSession::LiveSource::refresh() {
  std::lock_guard lock(mutex_);
  auto scan = AgentScanner::scanLightweight(scanner_, monitor_.previousSamples, now_(), records_);
  monitor_.previousSamples = std::move(scan.nextSamples);
  auto folded = monitor_.tracker.observe(scan.observations);
  return AgentTrackingUpdate{monitor_.tracker.countedRuns(), std::move(folded.finished), scan.scannedAt,
                             scan.processCount, monitor_.tracker.hasOpenRun()};
}

struct AgentTrackingSession::Shared {
  Dependencies dependencies;
  SingleIteratorGate iterators;
  std::shared_ptr<RefreshPermission> permission = std::make_shared<RefreshPermission>();

  // Absent when the pull ends here; a refresh still running then finishes on its own thread.
  std::optional<RefreshOutcome> performRefresh(const std::stop_token& stop) {
    if (stop.stop_requested()) return std::nullopt;
    std::stop_callback revoke(stop, [permission = permission] {
      std::lock_guard lock(permission->mutex);
      permission->allowed = false;
    });
    return awaitDetached<RefreshOutcome>(
        [refresh = dependencies.refresh, permission = permission]() -> RefreshOutcome {
          std::lock_guard serial(refreshSerializationLock());
          {
            std::lock_guard lock(permission->mutex);
            if (!permission->allowed) return RefreshCancelled{};
          }
          try {
            return refresh();
          } catch (...) {
            return RefreshFailed{};
          }
        },
        stop);
  }
};

// One pull at a time; the fields below `turns_` belong to the pull in flight.
class AgentTrackingSession::Driver {
 public:
  explicit Driver(std::shared_ptr<Shared> session) : session_(std::move(session)) {}

  std::optional<AgentTrackingUpdate> next(std::stop_token stop) {
    return turns_.run([&] { return pull(stop); });
  }

 private:
  std::optional<AgentTrackingUpdate> pull(const std::stop_token& stop) {
    if (stop.stop_requested()) return std::nullopt;
    const Dependencies& dependencies = session_->dependencies;
    // A failed refresh yields nothing: the same pull sleeps and tries again.
    for (;;) {
      if (isFirst_) {
        isFirst_ = false;
      } else {
        const bool lowPower = dependencies.isLowPowerModeEnabled();
        const auto interval =
            AgentTrackingCadence::nextSleep(cadence_, std::exchange(transitionObserved_, false),
                                            lastSuccessful_ && lastSuccessful_->hasOpenRun, lowPower,
                                            dependencies.batteryMode());
        if (!dependencies.clock.sleep(interval, stop) || stop.stop_requested()) return std::nullopt;
      }
      auto outcome = session_->performRefresh(stop);
      if (!outcome || std::holds_alternative<RefreshCancelled>(*outcome)) return std::nullopt;
      if (auto* update = std::get_if<AgentTrackingUpdate>(&*outcome)) {
        const size_t previousCount = lastSuccessful_ ? lastSuccessful_->countedRuns.size() : 0;
        // One run ending as another starts leaves the count alone and is a change all the same.
        transitionObserved_ = !update->finished.empty() || update->countedRuns.size() != previousCount;
        lastSuccessful_ = *update;
        return std::move(*update);
      }
      if (stop.stop_requested()) return std::nullopt;
    }
  }

  std::shared_ptr<Shared> session_;
  PullTurns turns_;
  bool isFirst_ = true;
  std::optional<AgentTrackingUpdate> lastSuccessful_;
  bool transitionObserved_ = false;
  AgentCadenceState cadence_;
};

std::optional<AgentTrackingUpdate> AgentTrackingSession::AsyncIterator::next(std::stop_token stop) {
  if (!driver_) return std::nullopt;
  return driver_->next(std::move(stop));
}

AgentTrackingSession::Dependencies AgentTrackingSession::Dependencies::live(std::function<BatteryMode()> batteryMode) {
  auto source = std::make_shared<LiveSource>();
  return Dependencies{[source] { return source->refresh(); }, SessionClock::continuous(),
                      [] { return PowerProfile::isLowPowerModeEnabled(); }, std::move(batteryMode)};
}

AgentTrackingSession::AgentTrackingSession(Dependencies dependencies) : shared_(std::make_shared<Shared>()) {
  shared_->dependencies = std::move(dependencies);
}

AgentTrackingSession::AgentTrackingSession(std::function<BatteryMode()> batteryMode)
    : AgentTrackingSession(Dependencies::live(std::move(batteryMode))) {}

AgentTrackingSession::~AgentTrackingSession() = default;

AgentTrackingSession::AsyncIterator AgentTrackingSession::makeAsyncIterator() {
  AsyncIterator iterator;
  if (shared_->iterators.claim()) iterator.driver_ = std::make_shared<Driver>(shared_);
  return iterator;
}

}  // namespace tidewatch
