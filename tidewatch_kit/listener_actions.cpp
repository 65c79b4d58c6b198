#include "tidewatch_kit/listener_actions.h"

#include <unordered_set>

#include "process_core/agent_process_detector.h"

namespace tidewatch {
namespace {

// Typographic apostrophe and em dash, as the user reads them.
#define APOSTROPHE "\xE2\x80\x99"
#define EM_DASH "\xE2\x80\x94"

std::string plural(int count, const std::string& word) {
  return std::to_string(count) + " " + word + (count == 1 ? "" : "s");
}

template <class... Ts>
struct Overloaded : Ts... {
  using Ts::operator()...;
};
template <class... Ts>
Overloaded(Ts...) -> Overloaded<Ts...>;

// The conditions a single row must meet to offer a kill.
bool offersProcessAction(const PortListener& listener, const SafetyContext& context) {
  return listener.workerPoolSize < 2 && listener.visibility == VisibilityClass::defaultVisible &&
         ProcessSafetyClassifier::classify(listener.process, false, listener.isInTidewatchSubtree, context)
             .isActionable();
}

template <typename Request>
std::optional<Request> processRequest(const PortListener& listener, const SafetyContext& context) {
  if (!offersProcessAction(listener, context)) return std::nullopt;
  Request request;
  request.id = listener.id();
  request.displayName = listener.process.displayName();
  request.pid = listener.process.identity.pid;
  request.port = listener.port;
  request.target = listener.process.identity;
  return request;
}

// One "|"-separated key of a visible request's id.
void appendTargetKey(std::string& id, const char* kind, int32_t pid, const std::string& requestID) {
  if (!id.empty()) id += '|';
  id += kind;
  id += std::to_string(pid);
  id += ':';
  id += requestID;
}

}  // namespace

std::string blockedMessage(ProtectionReason reason) {
  switch (reason) {
    case ProtectionReason::tidewatchSelf:
      return "Tidewatch won" APOSTROPHE "t signal itself or a process it launched.";
    case ProtectionReason::hostApp:
      return "That" APOSTROPHE "s a host app (editor or terminal) " EM_DASH " Tidewatch won" APOSTROPHE "t stop it.";
    case ProtectionReason::loginShell:
      return "That" APOSTROPHE "s a login shell " EM_DASH " Tidewatch won" APOSTROPHE "t stop it.";
    case ProtectionReason::appleSystemProcess:
      return "That" APOSTROPHE "s a system process " EM_DASH " Tidewatch won" APOSTROPHE "t stop it.";
    case ProtectionReason::unconfirmedOwner:
      return "Tidewatch can" APOSTROPHE "t confirm you own that process " EM_DASH " it won" APOSTROPHE "t signal it.";
  }
  return {};
}

std::optional<KillRequest> KillRequest::request(const PortListener& listener, const SafetyContext& context) {
  return processRequest<KillRequest>(listener, context);
}

std::optional<ForceKillRequest> ForceKillRequest::request(const PortListener& listener,
                                                          const SafetyContext& context) {
  return processRequest<ForceKillRequest>(listener, context);
}

ConfirmationText KillRequest::confirmation() const {
  return {"Kill " + displayName + " (PID " + std::to_string(pid) + ")?",
          "Sends " + signalName + " to the process listening on port " + std::to_string(port) +
              ". Protected system processes are never terminated.",
          "Kill Process"};
}

ConfirmationText ForceKillRequest::confirmation() const {
  return {"Force Kill " + displayName + " (PID " + std::to_string(pid) + ")?",
          "Sends " + signalName + " to the process listening on port " + std::to_string(port) +
              ". This cannot be undone and may lose unsaved work.",
          "Force Kill"};
}

std::string KillOutcome::message() const {
  return std::visit(
      Overloaded{[](const Blocked& b) { return blockedMessage(b.reason); },
                 [](const SignalFailed& f) {
                   return "Couldn" APOSTROPHE "t send " + f.signalName + ": " + f.detail + ".";
                 },
                 [](const Signaled&) { return std::string("Sent SIGTERM."); },
                 [](const SignaledForce&) { return std::string("Sent SIGKILL."); },
                 [](const AlreadyExited&) { return std::string("That process had already exited."); },
                 [](const IdentityChanged&) {
                   return std::string("That PID now belongs to a different process " EM_DASH " nothing was signaled.");
                 }},
      value);
}

bool KillOutcome::isSuccess() const {
  return std::holds_alternative<Signaled>(value) || std::holds_alternative<SignaledForce>(value) ||
         std::holds_alternative<AlreadyExited>(value);
}

std::optional<StopPoolRequest> StopPoolRequest::request(const PortListener& listener, const SafetyContext& context) {
  const auto& process = listener.process;
  if (listener.workerPoolSize < 2 || listener.visibility != VisibilityClass::defaultVisible ||
      !listener.parentIdentity || !process.executablePath || !process.uid ||
      !ProcessSafetyClassifier::classify(process, false, listener.isInTidewatchSubtree, context).isActionable()) {
    return std::nullopt;
  }
  StopPoolRequest request;
  request.id = listener.id();
  request.displayName = process.displayName();
  request.representativePID = process.identity.pid;
  request.port = listener.port;
  request.poolSize = listener.workerPoolSize;
  request.supervisor = *listener.parentIdentity;
  request.poolSignals = {listener.port, listener.bindSignature, *process.executablePath, *listener.parentIdentity,
                         *process.uid};
  return request;
}

ConfirmationText StopPoolRequest::confirmation() const {
  return {"Stop " + displayName + " worker pool?",
          "Sends " + signalName + " to the pool serving port " + std::to_string(port) + " (\xC3\x97" +
              std::to_string(poolSize) + "). Protected processes are never terminated.",
          "Stop Pool"};
}

std::string StopPoolOutcome::message() const {
  return std::visit(
      Overloaded{[](const SignaledMembers& m) { return "Sent SIGTERM to " + plural(m.count, "pool worker") + "."; },
                 [](const Blocked& b) { return blockedMessage(b.reason); },
                 [](const SignalFailed& f) { return "Couldn" APOSTROPHE "t stop the pool: " + f.detail + "."; },
                 [](const SignaledSupervisor&) { return std::string("Sent SIGTERM to the pool supervisor."); },
                 [](const AlreadyExited&) { return std::string("That pool had already stopped."); },
                 [](const IdentityChanged&) {
                   return std::string("The pool supervisor" APOSTROPHE
                                      "s PID now belongs to a different process " EM_DASH " nothing was signaled.");
                 },
                 [](const NoActionableTarget&) {
                   return std::string("Tidewatch couldn" APOSTROPHE "t safely stop this pool.");
                 }},
      value);
}

bool StopPoolOutcome::isSuccess() const {
  return std::holds_alternative<SignaledMembers>(value) || std::holds_alternative<SignaledSupervisor>(value) ||
         std::holds_alternative<AlreadyExited>(value);
}

std::optional<StopAgentRequest> StopAgentRequest::request(const std::string& id, AgentKind provider,
                                                          const AgentProcessIdentity& identity,
                                                          const std::optional<ProcessSnapshot>& live,
                                                          bool appleSystemBinary, bool inTidewatchSubtree,
                                                          const SafetyContext& context) {
  if (!live || live->identity != identity.process) return std::nullopt;
  if (!ProcessSafetyClassifier::classify(*live, appleSystemBinary, inTidewatchSubtree, context).isActionable()) {
    return std::nullopt;
  }
  if (AgentProcessDetector::detect(*live) != identity.kind) return std::nullopt;
  return StopAgentRequest{id, std::string(displayName(provider)), identity.process.pid, "SIGTERM", identity};
}

ConfirmationText StopAgentRequest::confirmation() const {
  return {"Stop " + providerName + " agent (PID " + std::to_string(pid) + ")?",
          "Sends " + signalName +
              " only to the verified local agent process. Its Terminal, editor, and other host apps remain open.",
          "Stop Agent"};
}

std::string StopAgentOutcome::message() const {
  return std::visit(
      Overloaded{[](const Blocked& b) { return blockedMessage(b.reason); },
                 [](const SignalFailed& f) { return "Couldn" APOSTROPHE "t stop the agent: " + f.detail + "."; },
                 [](const Signaled&) { return std::string("Sent SIGTERM to the verified agent process."); },
                 [](const AlreadyExited&) { return std::string("That agent had already stopped."); },
                 [](const IdentityChanged&) {
                   return std::string("That PID now belongs to a different process " EM_DASH " nothing was signaled.");
                 },
                 [](const NoLongerAgent&) {
                   return std::string("That process is no longer a verified agent " EM_DASH " nothing was signaled.");
                 }},
      value);
}

bool StopAgentOutcome::isSuccess() const {
  return std::holds_alternative<Signaled>(value) || std::holds_alternative<AlreadyExited>(value);
}

std::optional<StopVisibleRequest> StopVisibleRequest::request(const std::vector<PortListener>& listeners,
                                                              const SafetyContext& context) {
  StopVisibleRequest request;
  std::unordered_set<ProcessIdentity> seen;
  std::string id;
  for (const auto& listener : listeners) {
    if (listener.workerPoolSize < 2) {
      auto kill = KillRequest::request(listener, context);
      if (!kill) continue;
      ++request.listenerCount;
      if (!seen.insert(kill->target).second) continue;
      appendTargetKey(id, "process:", kill->pid, kill->id);
      request.targets.emplace_back(std::move(*kill));
    } else {
      auto pool = StopPoolRequest::request(listener, context);
      if (!pool) continue;
      ++request.listenerCount;
      if (!seen.insert(pool->supervisor).second) continue;
      appendTargetKey(id, "pool:", pool->supervisor.pid, pool->id);
      request.targets.emplace_back(std::move(*pool));
    }
  }
  if (request.targets.empty()) return std::nullopt;
  request.id = std::move(id);
  return request;
}

ConfirmationText StopVisibleRequest::confirmation() const {
  return {"Stop " + plural(targetCount(), "visible target") + "?",
          "Sends SIGTERM once to each verified process or worker pool behind " +
              plural(listenerCount, "actionable visible listener") +
              ". Background, protected, changed, and no-longer-owned processes are skipped.",
          "Stop Visible"};
}

std::string StopVisibleOutcome::message() const {
  std::vector<std::string> parts;
  if (stoppedCount >= 1) parts.push_back("Stopped " + plural(stoppedCount, "target"));
  if (alreadyExitedCount >= 1) parts.push_back(std::to_string(alreadyExitedCount) + " already exited");
  if (skippedCount >= 1) parts.push_back(std::to_string(skippedCount) + " safely skipped");
  if (failedCount >= 1) parts.push_back(std::to_string(failedCount) + " failed");
  if (parts.empty()) return "Nothing needed stopping.";
  std::string text;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) text += " \xC2\xB7 ";
    text += parts[i];
  }
  return text + ".";
}

}  // namespace tidewatch
