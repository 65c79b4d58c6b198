// What the rest of the program sees of the agent inventory: one immutable picture of all agent
// sessions, and the facts that flow into it. Plain values; each copy stands alone.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "hooks/agent_provider_connection_store.h"
#include "process_core/process_records.h"
#include "tidewatch_kit/listener_records.h"

namespace tidewatch {

// A session as a provider's hooks name it.
struct ProviderSessionID {
  AgentKind provider = AgentKind::codex;
  std::string sessionID;
  friend bool operator==(const ProviderSessionID&, const ProviderSessionID&) = default;
};

// The identity of a session row: a session a provider's hooks named, or one known only from a
// detected process.
struct AgentSessionID {
  using Provider = ProviderSessionID;
  std::variant<Provider, AgentProcessIdentity> value;

  static AgentSessionID provider(AgentKind provider, std::string sessionID) {
    return {Provider{provider, std::move(sessionID)}};
  }
  static AgentSessionID process(const AgentProcessIdentity& identity) { return {identity}; }

  // "hook:<provider>:<shortHash>" or the process identity's stable id.
  std::string stableID() const;
  // 64-bit FNV-1a of the identifier's bytes as 16 lower-case hex digits.
  static std::string shortHash(std::string_view identifier);

  friend bool operator==(const AgentSessionID&, const AgentSessionID&) = default;
};

// In order of urgency.
enum class AgentSessionState { needsAttention, working, waiting, detected, recentlyFinished };
inline constexpr AgentSessionState allAgentSessionStates[] = {
    AgentSessionState::needsAttention, AgentSessionState::working, AgentSessionState::waiting,
    AgentSessionState::detected, AgentSessionState::recentlyFinished};
std::string_view badgeWord(AgentSessionState state);

enum class AgentEvidence { process, providerHook, processAndProviderHook };
std::string_view displayWords(AgentEvidence evidence);

struct AgentExecutionLocation {
  enum class Kind { remote, local, unknown };
  Kind kind = Kind::unknown;
  std::optional<std::string> providerLabel;  // remote only

  static AgentExecutionLocation local() { return {Kind::local, std::nullopt}; }
  static AgentExecutionLocation unknown() { return {Kind::unknown, std::nullopt}; }
  std::string_view displayWords() const;
  friend bool operator==(const AgentExecutionLocation&, const AgentExecutionLocation&) = default;
};

enum class PortRelationshipConfidence { exact, noneObserved, unavailable };

// The application in whose window an agent runs.
struct AgentHostDescriptor {
  HostAppKind kind = HostAppKind::terminal;
  std::string displayName;  // the kind's name, never the process's own
  ProcessIdentity identity;

  static AgentHostDescriptor of(const HostAppOccurrence& occurrence);
  friend bool operator==(const AgentHostDescriptor&, const AgentHostDescriptor&) = default;
};

// A ListenerIdentity ordered by its stable id, so rows can hold them in a set.
struct ListenerIDOrder {
  bool operator()(const ListenerIdentity& a, const ListenerIdentity& b) const { return a.stableID() < b.stableID(); }
};
using ListenerIdentitySet = std::set<ListenerIdentity, ListenerIDOrder>;

// One row of the inventory.
struct AgentSessionSnapshot {
  AgentSessionID id;
  AgentKind provider = AgentKind::codex;  // as presented to the user
  AgentSessionState state = AgentSessionState::detected;
  std::optional<std::string> stateDetail;
  std::optional<AgentHostDescriptor> controlSurface;
  AgentExecutionLocation executionLocation;
  std::optional<std::string> projectName;
  std::optional<Date> startedAt;
  Date lastEventAt;
  std::optional<AgentProcessIdentity> processIdentity;
  ListenerIdentitySet relatedListenerIDs;
  PortRelationshipConfidence portRelationship = PortRelationshipConfidence::unavailable;
  AgentEvidence evidence = AgentEvidence::process;

  // stateDetail, else the standard sentence of the state and evidence.
  std::string explanation() const;
  // "Related local listeners", "No related local listeners detected" or "Exact port relationship unavailable".
  std::string_view portDetail() const;

  friend bool operator==(const AgentSessionSnapshot&, const AgentSessionSnapshot&) = default;
};

struct InventoryFreshness {
  bool isLive = false;
  std::optional<Date> lastSuccessAt;  // stale only

  static InventoryFreshness live() { return {true, std::nullopt}; }
  static InventoryFreshness stale(std::optional<Date> lastSuccessAt) { return {false, lastSuccessAt}; }
  friend bool operator==(const InventoryFreshness&, const InventoryFreshness&) = default;
};

enum class AgentStopAvailability { available, finished, noLocalProcess, sharedProcess };
// The words a row shows for a stop it cannot offer; absent for the first two.
std::optional<std::string_view> unavailableStopWords(AgentStopAvailability availability);

struct AgentInventorySnapshot {
  std::vector<AgentSessionSnapshot> sessions;  // by stableID of id, ascending
  std::vector<AgentProviderConnection> providerConnections;
  Date capturedAt;
  InventoryFreshness freshness;

  // No sessions, no connections, the distant past, stale with no success.
  static AgentInventorySnapshot empty();

  // Sessions that have not finished, in order.
  std::vector<AgentSessionSnapshot> currentSessions() const;
  // Sessions that count for the ambient displays: needs attention, working or waiting.
  std::vector<AgentSessionSnapshot> ambientSessions() const;
  AgentStopAvailability stopAvailability(const AgentSessionSnapshot& session) const;
  // By stableID; of two sessions with one key the later stands.
  std::map<std::string, AgentStopAvailability> stopAvailabilityByID() const;

  friend bool operator==(const AgentInventorySnapshot&, const AgentInventorySnapshot&) = default;
};

// The moment a session ended for good.
struct AgentCompletionEdge {
  AgentSessionID sessionID;
  AgentKind provider = AgentKind::codex;  // the presented provider
  Date at;

  friend bool operator==(const AgentCompletionEdge&, const AgentCompletionEdge&) = default;
};

// What the tracker tells the inventory in one update.
struct AgentTrackingUpdateFacts {
  struct Counted {
    AgentProcessIdentity identity;
    AgentKind provider = AgentKind::codex;
    bool isActive = false;
    friend bool operator==(const Counted&, const Counted&) = default;
  };
  struct Finished {
    AgentProcessIdentity identity;
    AgentKind provider = AgentKind::codex;
    friend bool operator==(const Finished&, const Finished&) = default;
  };
  std::vector<Counted> counted;
  std::vector<Finished> finished;
  std::map<AgentProcessIdentity, HostAppKind> currentHosts;
  std::optional<Date> observedAt;

  friend bool operator==(const AgentTrackingUpdateFacts&, const AgentTrackingUpdateFacts&) = default;
};

// The provider a host application presents: the ChatGPT app fronts Codex, the Claude app Claude
// Code; every other host presents the process's own kind.
AgentKind impliedProvider(std::optional<HostAppKind> host, AgentKind ownKind);

// Which of a scan's listeners each agent process holds, as the inventory relates them to sessions.
std::map<AgentProcessIdentity, ListenerIdentitySet> relatedListeners(const ScanResult& result);

}  // namespace tidewatch
