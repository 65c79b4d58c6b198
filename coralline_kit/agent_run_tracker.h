// Which coding agents are really at work: observations of agent processes folded into runs,
// with hysteresis so that a short burst or a short pause doesn't flip what the user sees.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "process_core/activity_estimator.h"
#include "process_core/process_records.h"

namespace tidewatch {

enum class AgentRunState { candidate, active, idle, finished };
std::string_view rawValue(AgentRunState state);
// Active and idle runs count; a candidate is still deciding, a finished run is gone.
bool isCounted(AgentRunState state);

struct AgentRunIdentity {
  ProcessIdentity process;
  AgentKind kind = AgentKind::codex;  // as detected

  friend bool operator==(const AgentRunIdentity&, const AgentRunIdentity&) = default;
};

}  // namespace tidewatch

template <>
struct std::hash<tidewatch::AgentRunIdentity> {
  size_t operator()(const tidewatch::AgentRunIdentity& id) const noexcept {
    return std::hash<tidewatch::ProcessIdentity>{}(id.process) * 31 + static_cast<size_t>(id.kind);
  }
};

namespace tidewatch {

struct AgentRun {
  AgentRunIdentity identity;
  // The provider shown; a provider's desktop application as host can make it differ from the
  // detected kind.
  AgentKind provider = AgentKind::codex;
  std::optional<HostAppKind> host;  // the latest observation's
  AgentRunState state = AgentRunState::candidate;
  int consecutiveWorking = 0;
  int consecutiveQuiet = 0;

  AgentKind kind() const { return provider; }
  AgentKind detectedKind() const { return identity.kind; }
  bool isCounted() const { return tidewatch::isCounted(state); }

  friend bool operator==(const AgentRun&, const AgentRun&) = default;
};

// Provider order (codex first), then pid, then start time; stable.
void sortRuns(std::vector<AgentRun>& runs);

// One agent process at one look.
struct AgentObservation {
  ProcessIdentity identity;
  AgentKind kind = AgentKind::codex;
  std::optional<HostAppKind> host;
  std::optional<ProcessIdentity> parentIdentity;
  bool isWorking = false;

  friend bool operator==(const AgentObservation&, const AgentObservation&) = default;
};

class AgentRunTracker {
 public:
  // Working looks in a row that make a candidate active; quiet looks in a row that make an
  // active run idle. One working look wakes an idle run.
  static constexpr int workingLooksToCount = 2;
  static constexpr int quietLooksToIdle = 5;

  struct Update {
    std::vector<AgentRun> finished;  // runs that ended at this look, sorted
  };

  // Folds one look. Agents below an agent of the same provider count as their root's run; a run
  // whose process is no longer observed ends, reported as finished if it was counted.
  Update observe(const std::vector<AgentObservation>& observations);

  std::vector<AgentRun> countedRuns() const;
  // Any run at all, candidates included: they keep the tracking cadence quick while deciding.
  bool hasOpenRun() const;
  const std::unordered_map<AgentRunIdentity, AgentRun>& runs() const { return runs_; }

 private:
  std::unordered_map<AgentRunIdentity, AgentRun> runs_;
};

using AgentActivitySamples = std::unordered_map<ProcessIdentity, ActivityEstimator::Sample>;

// Everything the tracking loop carries from one look to the next.
struct AgentMonitor {
  AgentRunTracker tracker;
  AgentActivitySamples previousSamples;
};

}  // namespace tidewatch
