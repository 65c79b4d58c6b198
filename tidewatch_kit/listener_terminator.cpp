#include "tidewatch_kit/listener_terminator.h"

#include <signal.h>

#include <cerrno>
#include <cstring>

#include "process_core/agent_process_detector.h"

namespace tidewatch {

ListenerTerminator::ListenerTerminator(PortEngine engine, SafetyContext context, ProcessSignals signals)
    : engine_(std::move(engine)), context_(context), signals_(std::move(signals)) {}

namespace {

// The detail of a refusal to act on what could not be read: not knowing is not "exited".
std::string uncheckedDetail(int error) {
  return "Tidewatch couldn\u2019t check that process (" + std::string(std::strerror(error)) + ")";
}

}  // namespace

ListenerTerminator::FreshRead ListenerTerminator::readFresh(int32_t pid) const {
  auto live = engine_.resolveLiveProcess(pid);
  if (!live.process) return {std::nullopt, live.error};
  const auto subtree = engine_.isInProcessSubtree(live.process->snapshot, context_.selfPID);
  if (subtree.error != 0) return {std::nullopt, subtree.error};
  FreshProcess fresh;
  fresh.appleSystemBinary = live.process->appleSystemBinary;
  fresh.inTidewatchSubtree = subtree.inSubtree;
  fresh.safety = ProcessSafetyClassifier::classify(live.process->snapshot, fresh.appleSystemBinary,
                                                   fresh.inTidewatchSubtree, context_);
  fresh.snapshot = std::move(live.process->snapshot);
  return {std::move(fresh), 0};
}

KillOutcome ListenerTerminator::sendSignal(const PinnedSignal& pinned, int signal, int32_t pid, bool force) const {
  const std::string name = force ? "SIGKILL" : "SIGTERM";
  // The last guard in front of the system call, whatever the checks before it said.
  if (pid < 1) return {KillOutcome::SignalFailed{name, "refused to signal a non-positive PID"}};
  const int error = pinned(signal);
  if (error == 0) return force ? KillOutcome{KillOutcome::SignaledForce{}} : KillOutcome{KillOutcome::Signaled{}};
  if (error == EPERM) return {KillOutcome::Blocked{ProtectionReason::unconfirmedOwner}};
  if (error == ESRCH) return {KillOutcome::AlreadyExited{}};
  return {KillOutcome::SignalFailed{name, std::strerror(error)}};
}

KillOutcome ListenerTerminator::guardedSignal(int32_t pid, const ProcessIdentity& target, int signal,
                                              bool force) const {
  const PinnedSignal pinned = signals_.pin(pid);
  const auto read = readFresh(pid);
  if (read.error != 0) return {KillOutcome::SignalFailed{force ? "SIGKILL" : "SIGTERM", uncheckedDetail(read.error)}};
  const auto& fresh = read.process;
  if (!fresh) return {KillOutcome::AlreadyExited{}};
  if (fresh->snapshot.identity != target) return {KillOutcome::IdentityChanged{}};
  if (auto reason = fresh->safety.reason()) return {KillOutcome::Blocked{*reason}};
  return sendSignal(pinned, signal, pid, force);
}

KillOutcome ListenerTerminator::kill(const KillRequest& request) const {
  return guardedSignal(request.pid, request.target, SIGTERM, false);
}

KillOutcome ListenerTerminator::forceKill(const ForceKillRequest& request) const {
  return guardedSignal(request.pid, request.target, SIGKILL, true);
}

int ListenerTerminator::signalPoolMembers(const WorkerPoolCollapser::Signals& signals) const {
  int count = 0;
  for (const auto& member : engine_.poolMemberIdentities(signals)) {
    const PinnedSignal pinned = signals_.pin(member.pid);
    const auto fresh = readFresh(member.pid).process;
    if (!fresh || fresh->snapshot.identity != member || !fresh->safety.isActionable() || member.pid < 1) continue;
    // A refusal leaves no trace: the member is simply not counted.
    if (pinned(SIGTERM) == 0) ++count;
  }
  return count;
}

StopPoolOutcome ListenerTerminator::stopPool(const StopPoolRequest& request) const {
  const int32_t pid = request.supervisor.pid;
  const PinnedSignal pinned = signals_.pin(pid);
  const auto read = readFresh(pid);
  if (read.error != 0) return {StopPoolOutcome::SignalFailed{uncheckedDetail(read.error)}};
  const auto& fresh = read.process;
  if (!fresh) return {StopPoolOutcome::AlreadyExited{}};
  if (fresh->snapshot.identity != request.supervisor) return {StopPoolOutcome::IdentityChanged{}};
  if (fresh->safety.isProtected()) {
    // A shell or an editor that started the workers stays; the workers are stopped one by one.
    const int count = signalPoolMembers(request.poolSignals);
    if (count > 0) return {StopPoolOutcome::SignaledMembers{count}};
    return {StopPoolOutcome::NoActionableTarget{}};
  }
  const KillOutcome outcome = sendSignal(pinned, SIGTERM, pid, false);
  if (std::holds_alternative<KillOutcome::Signaled>(outcome.value) ||
      std::holds_alternative<KillOutcome::SignaledForce>(outcome.value)) {
    return {StopPoolOutcome::SignaledSupervisor{}};
  }
  if (auto* blocked = std::get_if<KillOutcome::Blocked>(&outcome.value)) return {StopPoolOutcome::Blocked{blocked->reason}};
  if (auto* failed = std::get_if<KillOutcome::SignalFailed>(&outcome.value)) {
    return {StopPoolOutcome::SignalFailed{failed->detail}};
  }
  if (std::holds_alternative<KillOutcome::AlreadyExited>(outcome.value)) return {StopPoolOutcome::AlreadyExited{}};
  return {StopPoolOutcome::IdentityChanged{}};
}

std::optional<StopAgentRequest> ListenerTerminator::stopAgentRequest(const std::string& id, AgentKind provider,
                                                                     const AgentProcessIdentity& identity) const {
  const auto fresh = readFresh(identity.process.pid).process;
  if (!fresh) return std::nullopt;
  return StopAgentRequest::request(id, provider, identity, fresh->snapshot, fresh->appleSystemBinary,
                                   fresh->inTidewatchSubtree, context_);
}

StopAgentOutcome ListenerTerminator::stopAgent(const StopAgentRequest& request) const {
  const int32_t pid = request.target.process.pid;
  const PinnedSignal pinned = signals_.pin(pid);
  const auto read = readFresh(pid);
  if (read.error != 0) return {StopAgentOutcome::SignalFailed{uncheckedDetail(read.error)}};
  const auto& fresh = read.process;
  if (!fresh) return {StopAgentOutcome::AlreadyExited{}};
  if (fresh->snapshot.identity != request.target.process) return {StopAgentOutcome::IdentityChanged{}};
  if (auto reason = fresh->safety.reason()) return {StopAgentOutcome::Blocked{*reason}};
  if (AgentProcessDetector::detect(fresh->snapshot) != request.target.kind) return {StopAgentOutcome::NoLongerAgent{}};
  const KillOutcome outcome = sendSignal(pinned, SIGTERM, pid, false);
  if (auto* blocked = std::get_if<KillOutcome::Blocked>(&outcome.value)) return {StopAgentOutcome::Blocked{blocked->reason}};
  if (auto* failed = std::get_if<KillOutcome::SignalFailed>(&outcome.value)) {
    return {StopAgentOutcome::SignalFailed{failed->detail}};
  }
  if (std::holds_alternative<KillOutcome::Signaled>(outcome.value) ||
      std::holds_alternative<KillOutcome::SignaledForce>(outcome.value)) {
    return {StopAgentOutcome::Signaled{}};
  }
  if (std::holds_alternative<KillOutcome::AlreadyExited>(outcome.value)) return {StopAgentOutcome::AlreadyExited{}};
  return {StopAgentOutcome::IdentityChanged{}};
}

StopVisibleOutcome ListenerTerminator::stopVisible(const StopVisibleRequest& request) const {
  StopVisibleOutcome summary;
  // One counter for each target: how the guarded signal ended.
  auto count = [&summary](const KillOutcome& outcome) {
    if (std::holds_alternative<KillOutcome::Signaled>(outcome.value) ||
        std::holds_alternative<KillOutcome::SignaledForce>(outcome.value)) {
      ++summary.stoppedCount;
    } else if (std::holds_alternative<KillOutcome::AlreadyExited>(outcome.value)) {
      ++summary.alreadyExitedCount;
    } else if (std::holds_alternative<KillOutcome::SignalFailed>(outcome.value)) {
      ++summary.failedCount;
    } else {
      ++summary.skippedCount;  // changed identity, protected, or refused by the kernel (EPERM)
    }
  };
  for (const auto& target : request.targets) {
    if (const auto* process = std::get_if<KillRequest>(&target)) {
      count(guardedSignal(process->pid, process->target, SIGTERM, false));
      continue;
    }
    const auto& pool = std::get<StopPoolRequest>(target);
    const int32_t pid = pool.supervisor.pid;
    const PinnedSignal pinned = signals_.pin(pid);
    const auto read = readFresh(pid);
    const auto& fresh = read.process;
    if (read.error != 0) {
      ++summary.failedCount;
    } else if (!fresh) {
      ++summary.alreadyExitedCount;
    } else if (fresh->snapshot.identity != pool.supervisor) {
      ++summary.skippedCount;
    } else if (fresh->safety.isProtected()) {
      ++(signalPoolMembers(pool.poolSignals) > 0 ? summary.stoppedCount : summary.skippedCount);
    } else {
      count(sendSignal(pinned, SIGTERM, pid, false));
    }
  }
  return summary;
}

}  // namespace tidewatch
