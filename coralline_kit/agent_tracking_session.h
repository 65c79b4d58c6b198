// The loop behind the closed panel: a pulled, single-consumer stream of agent tracking updates.
// Each pull waits for the cadence (not on the first pull), runs one light scan and run-tracker
// fold on a thread of its own and hands back one update. The cadence follows the agents: quick
// while a run is open, slow when none is, and a burst of one-second looks after every change.
//
// A pull is a blocking `next(std::stop_token)` made on a worker thread. Stopping that token ends
// the pull at once and the stream for good; a refresh already running finishes on its own thread
// and its value is dropped, and one still waiting for its turn doesn't run at all.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <vector>

#include "coralline_kit/agent_run_tracker.h"
#include "coralline_kit/agent_scanner.h"
#include "process_core/session_clock.h"

namespace tidewatch {

struct AgentTrackingUpdate {
  std::vector<AgentRun> countedRuns;  // sorted
  std::vector<AgentRun> finished;     // ended at this look, sorted
  Date scannedAt;
  int processCount = 0;
  bool hasOpenRun = false;

  size_t totalCount() const { return countedRuns.size(); }
  size_t count(AgentKind kind) const;
  // Every kind, zero counts included.
  std::map<AgentKind, size_t> countByKind() const;

  friend bool operator==(const AgentTrackingUpdate&, const AgentTrackingUpdate&) = default;
};

struct AgentCadenceState {
  int burstTicksRemaining = 0;
};

namespace AgentTrackingCadence {

// Looks at one-second spacing after a change: the one that follows it and four more.
inline constexpr int burstTicks = 5;

// The sleep before the next look. A transition (re)starts the burst; the battery mode only
// stretches the idle cadence, and low power overrides the burst.
SessionClock::Duration nextSleep(AgentCadenceState& state, bool transitionObserved, bool hasOpenRun, bool lowPower,
                                 BatteryMode mode);

}  // namespace AgentTrackingCadence

class AgentTrackingSession {
  class Driver;
  struct Shared;

 public:
  struct Dependencies {
    // One look; may throw, and a look that throws yields nothing and is tried again at the
    // cadence. Called on a thread of its own, one at a time across every session.
    std::function<AgentTrackingUpdate()> refresh;
    SessionClock clock;
    // Asked before every sleep, so a change applies from the next one.
    std::function<bool()> isLowPowerModeEnabled;
    std::function<BatteryMode()> batteryMode;

    // A fresh live source, the continuous clock and this machine's power profile.
    static Dependencies live(std::function<BatteryMode()> batteryMode);
  };

  // The light scans of one session and the runs they fold into; every session has its own, so
  // runs begin again as candidates after a stop.
  class LiveSource {
   public:
    explicit LiveSource(AgentScannerDependencies scanner = AgentScannerDependencies::live(),
                        std::function<Date()> now = nullptr);
    // One look. Throws ScanError when the process table can't be enumerated; the runs are then
    // left as they were.
    AgentTrackingUpdate refresh();

   private:
    std::mutex mutex_;
    AgentScannerDependencies scanner_;
    std::function<Date()> now_;
    AgentMonitor monitor_;
    AgentDetectionRecords records_;
  };

  class AsyncIterator {
   public:
    // Blocks until the next update. Absent is end of stream, and final: after a stop of `stop`,
    // for the iterator of a second makeAsyncIterator, and for a pull made while another is in
    // flight (that one goes on undisturbed).
    std::optional<AgentTrackingUpdate> next(std::stop_token stop = {});

   private:
    friend class AgentTrackingSession;
    std::shared_ptr<Driver> driver_;
  };

  explicit AgentTrackingSession(Dependencies dependencies);
  // The live wiring.
  explicit AgentTrackingSession(std::function<BatteryMode()> batteryMode);
  ~AgentTrackingSession();

  AgentTrackingSession(const AgentTrackingSession&) = delete;
  AgentTrackingSession& operator=(const AgentTrackingSession&) = delete;

  // The first call gets the stream; every later one an iterator that ends at once.
  AsyncIterator makeAsyncIterator();

 private:
  std::shared_ptr<Shared> shared_;
};

}  // namespace tidewatch
