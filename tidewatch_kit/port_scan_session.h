// The loop behind the open panel: a pulled, single-consumer stream of scan frames. Each pull waits
// for a trigger (the first pull, a cadence tick or a poke), runs one scan on a thread of its own,
// folds processor activity across frames and hands back one frame. Nothing is scanned unless
// somebody pulls, so a consumer that stops pulling stops the scans.
//
// A pull is a blocking `next(std::stop_token)` made on a worker thread. Stopping that token ends the
// pull at once, also while a scan runs (the scan then finishes on its own thread and its value is
// dropped), and ends the stream for good.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <unordered_map>
#include <variant>

#include "process_core/activity_estimator.h"
#include "process_core/session_clock.h"
#include "tidewatch_kit/listener_list_model.h"
#include "tidewatch_kit/listener_records.h"
#include "tidewatch_kit/port_engine.h"

namespace tidewatch {

struct ScanFrame {
  // What caused the scan.
  enum class Trigger { initial, cadence, poke };

  struct Activity {
    ActivityLevel level = ActivityLevel::unknown;
    std::optional<double> cpuPercent;
    friend bool operator==(const Activity&, const Activity&) = default;
  };

  // `scanned` with a result, or `failed` with the scan's error.
  using Payload = std::variant<ScanResult, ScanError>;

  Payload payload;
  Trigger trigger = Trigger::initial;
  // The filter the panel starts with; on the first successful frame of a session only.
  std::optional<FilterCategory> startingFilter;
  // By listener stableID. Pools have no entry; a failed frame has none at all.
  std::unordered_map<std::string, Activity> activity;

  const ScanResult* scanned() const { return std::get_if<ScanResult>(&payload); }
  const ScanError* failed() const { return std::get_if<ScanError>(&payload); }
};

using ActivitySamples = std::unordered_map<std::string, ActivityEstimator::Sample>;

namespace ListenerActivityFold {

struct Step {
  std::unordered_map<std::string, ScanFrame::Activity> activity;  // this frame's
  ActivitySamples samples;                                         // for the next step
};

// Over every listener, hidden ones too: pools are skipped; a listener without a CPU time is unknown
// and leaves no sample; the others are compared with their previous sample. The next samples hold
// only what this step saw, so a listener that vanishes for one frame starts again as unknown.
Step step(const ScanResult& result, const ActivitySamples& previousSamples);

}  // namespace ListenerActivityFold

class PortScanSession {
  class Driver;
  struct Shared;

 public:
  struct Dependencies {
    // One full scan; may throw (any throw reads as enumerationUnavailable). Called on a thread of
    // its own, one at a time.
    std::function<ScanResult()> scan;
    SessionClock clock;
    // Asked before every sleep, so a change applies from the next one.
    std::function<bool()> isLowPowerModeEnabled;
    std::function<BatteryMode()> batteryMode;

    // The engine's scan with argv, the continuous clock and this machine's power profile.
    static Dependencies live(PortEngine engine, std::function<BatteryMode()> batteryMode);
  };

  class AsyncIterator {
   public:
    // Blocks until the next frame. Absent is end of stream, and final: after a stop of `stop`, for
    // the iterator of a second makeAsyncIterator, and for a pull made while another is in flight
    // (that one goes on undisturbed).
    std::optional<ScanFrame> next(std::stop_token stop = {});

   private:
    friend class PortScanSession;
    std::shared_ptr<Driver> driver_;
  };

  PortScanSession(Dependencies dependencies, std::optional<DefaultFilterSetting> setting,
                  std::optional<FilterCategory> lastUsed);
  // The live wiring.
  PortScanSession(PortEngine engine, std::optional<DefaultFilterSetting> setting,
                  std::optional<FilterCategory> lastUsed, std::function<BatteryMode()> batteryMode);
  ~PortScanSession();

  PortScanSession(const PortScanSession&) = delete;
  PortScanSession& operator=(const PortScanSession&) = delete;

  // The first call gets the stream; every later one an iterator that ends at once.
  AsyncIterator makeAsyncIterator();

  // Asks for a scan now, from any thread. It ends a sleep at once, or, during a scan, yields one
  // more scan right after it, however many pokes came. Dropped before the first pull reaches its
  // wait and after the stream ended.
  void poke();

  // The sleep before a cadence scan: 10 seconds in low power or on battery saver, else 1 second.
  static SessionClock::Duration cadenceInterval(bool lowPower, BatteryMode mode);

 private:
  std::shared_ptr<Shared> shared_;
};

}  // namespace tidewatch
