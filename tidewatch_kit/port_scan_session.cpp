#include "tidewatch_kit/port_scan_session.h"

#include <algorithm>

#include "process_core/power_profile.h"
#include "process_core/pulled_stream.h"

namespace tidewatch {

ListenerActivityFold::Step ListenerActivityFold::step(const ScanResult& result, const ActivitySamples& previousSamples) {
  Step step;
  for (const PortListener& listener : result.listeners) {
    if (listener.workerPoolSize > 1) continue;  // pools show no CPU
    std::string id = listener.id();
    if (!listener.process.cpuTimeNanos) {
      step.activity[std::move(id)] = ScanFrame::Activity{};
      continue;
    }
    const ActivityEstimator::Sample current{*listener.process.cpuTimeNanos, result.scannedAt};
    std::optional<ActivityEstimator::Sample> previous;
    if (auto found = previousSamples.find(id); found != previousSamples.end()) previous = found->second;
    const auto percent = ActivityEstimator::cpuPercent(previous, current);
    step.samples[id] = current;
    step.activity[std::move(id)] =
        percent ? ScanFrame::Activity{ActivityEstimator::bucket(*percent), percent} : ScanFrame::Activity{};
  }
  return step;
}

// What the consumer and every poker share. The wait holds the flags that pokes and cancellation
// touch.
struct PortScanSession::Shared {
  Dependencies dependencies;
  std::optional<DefaultFilterSetting> setting;
  std::optional<FilterCategory> lastUsed;
  PokeableWait wait;
  SingleIteratorGate iterators;

  std::optional<ScanFrame::Trigger> awaitNextTrigger(bool isFirst, std::stop_token stop) {
    if (!wait.begin()) return std::nullopt;
    if (stop.stop_requested()) {
      wait.close();
      return std::nullopt;
    }
    if (isFirst) return ScanFrame::Trigger::initial;
    if (wait.takePendingPoke()) return ScanFrame::Trigger::poke;
    const bool lowPower = dependencies.isLowPowerModeEnabled();
    const auto interval = cadenceInterval(lowPower, lowPower ? BatteryMode::balanced : dependencies.batteryMode());
    switch (wait.sleep(dependencies.clock, interval, stop)) {
      case PokeableWait::WakeReason::ticked: return ScanFrame::Trigger::cadence;
      case PokeableWait::WakeReason::poked: return ScanFrame::Trigger::poke;
      case PokeableWait::WakeReason::cancelled: break;
    }
    wait.close();
    return std::nullopt;
  }

  // Absent when the stream ends here; a scan still running then finishes on its own thread.
  std::optional<ScanFrame::Payload> performScan(std::stop_token stop) {
    // Every poke so far is satisfied by this scan; one that comes during it yields one more.
    if (!wait.beginWork() || stop.stop_requested()) {
      wait.close();
      return std::nullopt;
    }
    auto payload = awaitDetached<ScanFrame::Payload>(
        [scan = dependencies.scan]() -> ScanFrame::Payload {
          try {
            return scan();
          } catch (...) {
            return ScanError(ScanError::Code::enumerationUnavailable);
          }
        },
        stop);
    if (!payload) {
      wait.close();
      return std::nullopt;
    }
    return payload;
  }
};

// One pull at a time; the fields below `turns_` belong to the pull in flight.
class PortScanSession::Driver {
 public:
  explicit Driver(std::shared_ptr<Shared> session) : session_(std::move(session)) {}

  std::optional<ScanFrame> next(std::stop_token stop) {
    return turns_.run([&] { return pull(stop); });
  }

 private:
  std::optional<ScanFrame> pull(const std::stop_token& stop) {
    const auto trigger = session_->awaitNextTrigger(isFirst_, stop);
    if (!trigger) return std::nullopt;
    isFirst_ = false;
    auto payload = session_->performScan(stop);
    if (!payload) return std::nullopt;

    ScanFrame frame{std::move(*payload), *trigger, std::nullopt, {}};
    if (const ScanResult* result = frame.scanned()) {
      auto step = ListenerActivityFold::step(*result, previousSamples_);
      previousSamples_ = std::move(step.samples);
      frame.activity = std::move(step.activity);
      if (startingFilterArmed_) {
        startingFilterArmed_ = false;
        const bool hasAttributedListeners =
            std::any_of(result->listeners.begin(), result->listeners.end(), [](const PortListener& listener) {
              return listener.visibility == VisibilityClass::defaultVisible && listener.agentOrigin.has_value();
            });
        frame.startingFilter =
            ListenerDefaultFilterResolver::resolve(session_->setting, hasAttributedListeners, session_->lastUsed);
      }
    }
    // A failed frame keeps the samples and the starting filter armed for the next good one.
    return frame;
  }

  std::shared_ptr<Shared> session_;
  PullTurns turns_;
  bool isFirst_ = true;
  ActivitySamples previousSamples_;
  bool startingFilterArmed_ = true;
};

std::optional<ScanFrame> PortScanSession::AsyncIterator::next(std::stop_token stop) {
  if (!driver_) return std::nullopt;
  return driver_->next(std::move(stop));
}

PortScanSession::Dependencies PortScanSession::Dependencies::live(PortEngine engine,
                                                                  std::function<BatteryMode()> batteryMode) {
  return Dependencies{[engine = std::move(engine)] { return engine.scan(true); }, SessionClock::continuous(),
                      [] { return PowerProfile::isLowPowerModeEnabled(); }, std::move(batteryMode)};
}

PortScanSession::PortScanSession(Dependencies dependencies, std::optional<DefaultFilterSetting> setting,
                                 std::optional<FilterCategory> lastUsed)
    : shared_(std::make_shared<Shared>()) {
  shared_->dependencies = std::move(dependencies);
  shared_->setting = setting;
  shared_->lastUsed = lastUsed;
}

PortScanSession::PortScanSession(PortEngine engine, std::optional<DefaultFilterSetting> setting,
                                 std::optional<FilterCategory> lastUsed, std::function<BatteryMode()> batteryMode)
    : PortScanSession(Dependencies::live(std::move(engine), std::move(batteryMode)), setting, lastUsed) {}

PortScanSession::~PortScanSession() = default;

PortScanSession::AsyncIterator PortScanSession::makeAsyncIterator() {
  AsyncIterator iterator;
  if (shared_->iterators.claim()) iterator.driver_ = std::make_shared<Driver>(shared_);
  return iterator;
}

void PortScanSession::poke() { shared_->wait.poke(); }

SessionClock::Duration PortScanSession::cadenceInterval(bool lowPower, BatteryMode mode) {
  using std::chrono::seconds;
  if (lowPower || mode == BatteryMode::batterySaver) return seconds(10);
  return seconds(1);
}

}  // namespace tidewatch
