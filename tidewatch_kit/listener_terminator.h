// Signals the processes behind rows, under a guard repeated immediately before every signal:
// pin the process, read it afresh, check system binary and subtree, compare identity with what
// the user confirmed, classify, and only then signal. Holds no mutable state; the calls block
// and belong off the main thread.
#pragma once

#include "process_core/process_signals.h"
#include "tidewatch_kit/listener_actions.h"
#include "tidewatch_kit/port_engine.h"

namespace tidewatch {

class ListenerTerminator {
 public:
  ListenerTerminator(PortEngine engine, SafetyContext context, ProcessSignals signals = ProcessSignals::live());

  KillOutcome kill(const KillRequest& request) const;
  KillOutcome forceKill(const ForceKillRequest& request) const;
  StopPoolOutcome stopPool(const StopPoolRequest& request) const;
  std::optional<StopAgentRequest> stopAgentRequest(const std::string& id, AgentKind provider,
                                                   const AgentProcessIdentity& identity) const;
  StopAgentOutcome stopAgent(const StopAgentRequest& request) const;
  StopVisibleOutcome stopVisible(const StopVisibleRequest& request) const;

 private:
  struct FreshProcess {
    ProcessSnapshot snapshot;
    bool appleSystemBinary = false;
    bool inTidewatchSubtree = false;
    ProcessSafetyClass safety = ProcessSafetyClass::actionable();
  };
  // The fresh read and its two flags and class; absent with error 0 when the process is gone,
  // absent with an errno when it could not be checked.
  struct FreshRead {
    std::optional<FreshProcess> process;
    int error = 0;
  };
  FreshRead readFresh(int32_t pid) const;
  KillOutcome sendSignal(const PinnedSignal& pinned, int signal, int32_t pid, bool force) const;
  KillOutcome guardedSignal(int32_t pid, const ProcessIdentity& target, int signal, bool force) const;
  // SIGTERM to each live, unchanged, actionable member; the number that accepted it.
  int signalPoolMembers(const WorkerPoolCollapser::Signals& signals) const;

  PortEngine engine_;
  SafetyContext context_;
  ProcessSignals signals_;
};

}  // namespace tidewatch
