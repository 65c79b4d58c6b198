// Requests for the guarded actions and their outcomes, with the words the user reads. A request
// is built from a scanned row and can wait any time for confirmation; it holds no live resource.
#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "process_core/process_safety_classifier.h"
#include "tidewatch_kit/listener_records.h"
#include "tidewatch_kit/worker_pool_collapser.h"

namespace tidewatch {

using SafetyContext = ProcessSafetyClassifier::Context;

// Why a protected process is never signalled, shared by every outcome.
std::string blockedMessage(ProtectionReason reason);

struct ConfirmationText {
  std::string title;
  std::string message;
  std::string button;
};

struct KillRequest {
  std::string id;
  std::string displayName;
  int32_t pid = 0;
  int port = 0;
  std::string signalName = "SIGTERM";
  ProcessIdentity target;

  static std::optional<KillRequest> request(const PortListener& listener, const SafetyContext& context);
  ConfirmationText confirmation() const;
  friend bool operator==(const KillRequest&, const KillRequest&) = default;
};

struct ForceKillRequest {
  std::string id;
  std::string displayName;
  int32_t pid = 0;
  int port = 0;
  std::string signalName = "SIGKILL";
  ProcessIdentity target;

  static std::optional<ForceKillRequest> request(const PortListener& listener, const SafetyContext& context);
  ConfirmationText confirmation() const;
  friend bool operator==(const ForceKillRequest&, const ForceKillRequest&) = default;
};

struct KillOutcome {
  struct Blocked {
    ProtectionReason reason;
  };
  struct SignalFailed {
    std::string signalName;
    std::string detail;
  };
  struct Signaled {};
  struct SignaledForce {};
  struct AlreadyExited {};
  struct IdentityChanged {};
  std::variant<Blocked, SignalFailed, Signaled, SignaledForce, AlreadyExited, IdentityChanged> value;

  std::string message() const;
  bool isSuccess() const;
};

struct StopPoolRequest {
  std::string id;
  std::string displayName;
  int32_t representativePID = 0;
  int port = 0;
  int poolSize = 0;
  std::string signalName = "SIGTERM";
  ProcessIdentity supervisor;
  WorkerPoolCollapser::Signals poolSignals;

  static std::optional<StopPoolRequest> request(const PortListener& listener, const SafetyContext& context);
  ConfirmationText confirmation() const;
  friend bool operator==(const StopPoolRequest&, const StopPoolRequest&) = default;
};

struct StopPoolOutcome {
  struct SignaledMembers {
    int count = 0;
  };
  struct Blocked {
    ProtectionReason reason;
  };
  struct SignalFailed {
    std::string detail;
  };
  struct SignaledSupervisor {};
  struct AlreadyExited {};
  struct IdentityChanged {};
  struct NoActionableTarget {};
  std::variant<SignaledMembers, Blocked, SignalFailed, SignaledSupervisor, AlreadyExited, IdentityChanged,
               NoActionableTarget>
      value;

  std::string message() const;
  bool isSuccess() const;
};

struct StopAgentRequest {
  std::string id;
  std::string providerName;
  int32_t pid = 0;
  std::string signalName = "SIGTERM";
  AgentProcessIdentity target;

  // The pure form: the process as read live, with its two flags.
  static std::optional<StopAgentRequest> request(const std::string& id, AgentKind provider,
                                                 const AgentProcessIdentity& identity,
                                                 const std::optional<ProcessSnapshot>& live, bool appleSystemBinary,
                                                 bool inTidewatchSubtree, const SafetyContext& context);
  ConfirmationText confirmation() const;
  friend bool operator==(const StopAgentRequest&, const StopAgentRequest&) = default;
};

struct StopAgentOutcome {
  struct Blocked {
    ProtectionReason reason;
  };
  struct SignalFailed {
    std::string detail;
  };
  struct Signaled {};
  struct AlreadyExited {};
  struct IdentityChanged {};
  struct NoLongerAgent {};
  std::variant<Blocked, SignalFailed, Signaled, AlreadyExited, IdentityChanged, NoLongerAgent> value;

  std::string message() const;
  bool isSuccess() const;
};

using StopVisibleTarget = std::variant<KillRequest, StopPoolRequest>;

struct StopVisibleRequest {
  std::string id;
  int listenerCount = 0;
  std::vector<StopVisibleTarget> targets;

  int targetCount() const { return static_cast<int>(targets.size()); }
  static std::optional<StopVisibleRequest> request(const std::vector<PortListener>& listeners,
                                                   const SafetyContext& context);
  ConfirmationText confirmation() const;
};

struct StopVisibleOutcome {
  int stoppedCount = 0;
  int alreadyExitedCount = 0;
  int skippedCount = 0;
  int failedCount = 0;

  bool isSuccess() const { return skippedCount == 0 && failedCount == 0; }
  std::string message() const;
  friend bool operator==(const StopVisibleOutcome&, const StopVisibleOutcome&) = default;
};

}  // namespace tidewatch
