// The one state machine of the agent inventory: a plain value with no clock, no threads and no
// input or output of its own. Hook events, panel scans and tracker updates change it; each step
// takes its time from the caller. It merges sources that disagree in timing and reliability under
// one rule: a source only removes or overwrites what is not newer than its own observation.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "hooks/agent_hook_protocol.h"
#include "hooks/agent_provider_connection_store.h"
#include "inventory/agent_inventory_records.h"
#include "process_core/process_records.h"
#include "tidewatch_kit/listener_records.h"

namespace tidewatch {

class AgentInventoryReducer {
 public:
  static constexpr std::chrono::seconds finishedRowLifetime{30};
  static constexpr std::chrono::seconds staleEvidenceAge{43200};
  static constexpr std::chrono::seconds orphanAge{86400};
  static constexpr std::chrono::seconds continuousScanGap{10};
  static constexpr std::string_view staleDetail = "No provider events for a while \u2014 state unknown.";

  struct HookKey {
    AgentKind provider = AgentKind::codex;
    std::string sessionID;
    friend bool operator==(const HookKey&, const HookKey&) = default;
    friend auto operator<=>(const HookKey&, const HookKey&) = default;
  };

  // Where a hook event came from in the process table.
  struct HookOrigin {
    std::optional<AgentProcessIdentity> agentProcess;
    std::optional<HostAppOccurrence> host;
    std::optional<ProcessIdentity> runtime;  // the process that ran the hook
    friend bool operator==(const HookOrigin&, const HookOrigin&) = default;
  };

  struct HookRecord {
    AgentKind provider = AgentKind::codex;
    AgentKind presentedProvider = AgentKind::codex;
    std::string sessionID;
    AgentSessionState state = AgentSessionState::detected;
    std::optional<std::string> stateDetail;
    std::optional<HostAppOccurrence> host;
    std::optional<std::string> projectName;
    std::optional<AgentProcessIdentity> agentProcess;
    std::optional<ProcessIdentity> runtime;
    Date firstEventAt;
    Date lastEventAt;
    bool staleEvidence = false;
    bool wasAmbientEligible = false;
  };

  struct ProcessRecord {
    AgentProcessPresence presence;
    AgentKind provider = AgentKind::codex;
    ListenerIdentitySet relatedListenerIDs;
    Date lastSeenAt;
    bool scanObserved = false;
    bool wasAmbientEligible = false;
  };

  struct FinishedRecord {
    AgentSessionSnapshot session;
    Date expiresAt;
  };

  struct ProcessFallbackSuppression {
    std::set<AgentKind> sourceProviders;
    Date changedAt;
  };

  struct ProviderPresentationEvidence {
    AgentKind provider = AgentKind::codex;
    Date observedAt;
    bool isAuthoritative = false;  // rests on a host application
    std::optional<HostAppKind> hostKind;
  };

  // Hook events.
  void applyHookEvent(const AgentHookProtocol::Envelope& envelope, const HookOrigin& origin, Date at);

  // Panel scans: `runtimeCurrent` answers for the runtimes of hookRuntimeProbeIdentities.
  void applyPanelScan(const AgentProcessPresenceSnapshot& presence,
                      const std::map<AgentProcessIdentity, ListenerIdentitySet>& relatedListeners,
                      const std::map<ProcessIdentity, bool>& runtimeCurrent, std::optional<Date> observedAt, Date at);
  // A scan that failed: the rows stay, marked stale.
  void applyScanFailure(Date at);

  void applyPresentedTrackingUpdate(const AgentTrackingUpdateFacts& facts, Date at);
  void providerDisconnected(AgentKind provider, Date at);
  void expireTransients(Date at);

  std::optional<Date> nextTransientDeadline() const;
  AgentInventorySnapshot snapshot(const std::vector<AgentProviderConnection>& connections) const;
  // The runtime of every hook record that has one but no agent process: to be probed before a scan.
  std::vector<ProcessIdentity> hookRuntimeProbeIdentities() const;
  // Which provider each known process presents (read by the panel's provider fold).
  std::map<AgentProcessIdentity, AgentKind> presentedProviderEvidence() const;
  // The completion edges not yet handed out, leaving none behind.
  std::vector<AgentCompletionEdge> takeCompletionEdges();

  Date capturedAt() const { return capturedAt_; }

 private:
  AgentKind reconcileProviderPresentation(const AgentProcessIdentity& identity, std::optional<HostAppKind> host,
                                          std::optional<AgentKind> fallback, Date observedAt);
  void refreshMappedHookPresentation(const AgentProcessIdentity& identity, AgentKind provider);
  void refreshMappedHookPresentation();
  std::optional<HostAppKind> expectedHostKind(const AgentProcessIdentity& identity) const;
  std::optional<AgentKind> evidenceProvider(const AgentProcessIdentity& identity) const;
  std::map<AgentProcessIdentity, int> mappedSessionCounts() const;
  AgentSessionState effectiveHookState(const HookRecord& record) const;
  bool hookEligibility(const HookRecord& record) const;
  AgentSessionSnapshot hookSessionSnapshot(const HookRecord& record,
                                           const std::map<AgentProcessIdentity, int>& counts) const;
  AgentSessionSnapshot processSessionSnapshot(const ProcessRecord& record, const AgentProcessIdentity& identity) const;
  void finishProcessSession(const ProcessRecord& record, const AgentProcessIdentity& identity, Date at);
  // Removes a hook record, tombstones its key, and when it counted gives it a finished row and an edge.
  void endHookSession(const HookKey& key, bool announce, Date at);
  void addFinishedRow(AgentSessionSnapshot session, Date at);
  void rebuildPresence(ProcessRecord& record, const AgentProcessIdentity& identity, AgentKind provider) const;

  std::map<AgentProcessIdentity, ProcessRecord> processRecords_;
  std::map<HookKey, HookRecord> hookRecords_;
  std::vector<FinishedRecord> finishedRecords_;
  std::map<HookKey, Date> terminatedGenerations_;
  std::map<AgentProcessIdentity, ProcessFallbackSuppression> suppressedProcessFallbacks_;
  std::map<AgentProcessIdentity, ProviderPresentationEvidence> providerPresentationEvidence_;
  std::vector<AgentCompletionEdge> pendingCompletionEdges_;
  std::map<AgentProcessIdentity, bool> trackedActivity_;
  std::optional<Date> lastSuccessfulScanAt_;
  bool scanIsStale_ = false;
  Date capturedAt_ = AgentInventorySnapshot::empty().capturedAt;
};

}  // namespace tidewatch
