// The main-thread owner of the tracking session: starts one while agent activity is on and the
// panel isn't shown, stops it otherwise, and hands its updates to the main thread, where an update
// of a session that has since been stopped or replaced reaches nobody.
#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "coralline_kit/agent_tracking_session.h"
#include "process_core/main_executor.h"

namespace tidewatch {

struct AgentTrackingLifecycleEvent {
  enum class Kind { update, started, stopped };

  Kind kind = Kind::started;
  std::optional<AgentTrackingUpdate> update;  // with `update` only

  friend bool operator==(const AgentTrackingLifecycleEvent&, const AgentTrackingLifecycleEvent&) = default;
};

// Lives on the main thread: every call is made there, and every event is delivered there. The
// session is pulled on a worker thread of its own, one update at a time: the next pull begins
// only after the main thread has taken the last update.
class AgentTrackingLifecycle {
 public:
  using MakeSession = std::function<std::shared_ptr<AgentTrackingSession>()>;
  using Deliver = std::function<void(const AgentTrackingLifecycleEvent&)>;

  AgentTrackingLifecycle(MainExecutor& mainExecutor, MakeSession makeSession, Deliver deliver);
  // Live sessions: this machine's power profile and the given battery mode.
  AgentTrackingLifecycle(MainExecutor& mainExecutor, std::function<BatteryMode()> batteryMode, Deliver deliver);
  // Delivers nothing more; waits only for the worker's pull to end, which a stop does at once.
  ~AgentTrackingLifecycle();

  AgentTrackingLifecycle(const AgentTrackingLifecycle&) = delete;
  AgentTrackingLifecycle& operator=(const AgentTrackingLifecycle&) = delete;

  // Runs a session while enabled and not suspended, and stops it in every other case.
  void synchronize(bool suspended, bool enabled);
  // Ends the current session, delivering `stopped` once; nothing when none runs.
  void stop();

 private:
  struct Core;
  std::shared_ptr<Core> core_;
};

}  // namespace tidewatch
