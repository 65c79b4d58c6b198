#include "inventory/agent_inventory_records.h"

#include <cinttypes>
#include <cstdio>

namespace tidewatch {

std::string AgentSessionID::shortHash(std::string_view identifier) {
  uint64_t hash = 0xCBF29CE484222325ULL;
  for (unsigned char byte : identifier) {
    hash ^= byte;
    hash *= 0x100000001B3ULL;
  }
  char text[17];
  std::snprintf(text, sizeof text, "%016" PRIx64, hash);
  return text;
}

std::string AgentSessionID::stableID() const {
  if (const auto* process = std::get_if<AgentProcessIdentity>(&value)) return process->stableID();
  const auto& hook = std::get<Provider>(value);
  return "hook:" + std::string(rawValue(hook.provider)) + ":" + shortHash(hook.sessionID);
}

std::string_view badgeWord(AgentSessionState state) {
  switch (state) {
    case AgentSessionState::needsAttention: return "Needs attention";
    case AgentSessionState::working: return "Working";
    case AgentSessionState::waiting: return "Waiting";
    case AgentSessionState::detected: return "Detected";
    case AgentSessionState::recentlyFinished: return "Finished";
  }
  return {};
}

std::string_view displayWords(AgentEvidence evidence) {
  switch (evidence) {
    case AgentEvidence::process: return "Process detected";
    case AgentEvidence::providerHook: return "Provider";
    case AgentEvidence::processAndProviderHook: return "Provider event + local process";
  }
  return {};
}

std::string_view AgentExecutionLocation::displayWords() const {
  switch (kind) {
    case Kind::remote: return "Remote";
    case Kind::local: return "Local";
    case Kind::unknown: return "Location unknown";
  }
  return {};
}

AgentHostDescriptor AgentHostDescriptor::of(const HostAppOccurrence& occurrence) {
  return {occurrence.kind, std::string(tidewatch::displayName(occurrence.kind)), occurrence.identity};
}

std::string AgentSessionSnapshot::explanation() const {
  if (stateDetail) return *stateDetail;
  const bool hookOnly = evidence == AgentEvidence::providerHook;
  switch (state) {
    case AgentSessionState::needsAttention: return "The agent is blocked on your input or approval.";
    case AgentSessionState::working: return "The agent reported or showed active work.";
    case AgentSessionState::waiting:
      return hookOnly ? "The session is open \u2014 the provider reported the last turn completed."
                      : "The agent is running and recently idle.";
    case AgentSessionState::detected:
      return hookOnly ? "A provider session was reported. No local agent process has been confirmed."
                      : "A local agent process is running. Tidewatch can\u2019t yet tell working from waiting for it.";
    case AgentSessionState::recentlyFinished: return "This session ended a moment ago.";
  }
  return {};
}

std::string_view AgentSessionSnapshot::portDetail() const {
  switch (portRelationship) {
    case PortRelationshipConfidence::exact: return "Related local listeners";
    case PortRelationshipConfidence::noneObserved: return "No related local listeners detected";
    case PortRelationshipConfidence::unavailable: return "Exact port relationship unavailable";
  }
  return {};
}

std::optional<std::string_view> unavailableStopWords(AgentStopAvailability availability) {
  switch (availability) {
    case AgentStopAvailability::noLocalProcess: return "Stop unavailable \u2014 no local agent process to signal.";
    case AgentStopAvailability::sharedProcess:
      return "Stop unavailable \u2014 this process backs multiple agent sessions.";
    case AgentStopAvailability::available:
    case AgentStopAvailability::finished: return std::nullopt;
  }
  return std::nullopt;
}

AgentInventorySnapshot AgentInventorySnapshot::empty() {
  // The distant past: the first day of year 1.
  return {{}, {}, Date(std::chrono::seconds(-62135596800LL)), InventoryFreshness::stale(std::nullopt)};
}

std::vector<AgentSessionSnapshot> AgentInventorySnapshot::currentSessions() const {
  std::vector<AgentSessionSnapshot> current;
  for (const auto& session : sessions) {
    if (session.state != AgentSessionState::recentlyFinished) current.push_back(session);
  }
  return current;
}

std::vector<AgentSessionSnapshot> AgentInventorySnapshot::ambientSessions() const {
  std::vector<AgentSessionSnapshot> ambient;
  for (const auto& session : sessions) {
    if (session.state == AgentSessionState::needsAttention || session.state == AgentSessionState::working ||
        session.state == AgentSessionState::waiting) {
      ambient.push_back(session);
    }
  }
  return ambient;
}

namespace {

// The one rule, given how many current sessions the session's process backs.
AgentStopAvailability stopAvailabilityOf(const AgentSessionSnapshot& session, int sessionsOnProcess) {
  if (session.state == AgentSessionState::recentlyFinished) return AgentStopAvailability::finished;
  if (!session.processIdentity) return AgentStopAvailability::noLocalProcess;
  return sessionsOnProcess == 1 ? AgentStopAvailability::available : AgentStopAvailability::sharedProcess;
}

// Current sessions by process, counted in one pass.
std::map<AgentProcessIdentity, int> sessionsByProcess(const std::vector<AgentSessionSnapshot>& sessions) {
  std::map<AgentProcessIdentity, int> counts;
  for (const auto& session : sessions) {
    if (session.state != AgentSessionState::recentlyFinished && session.processIdentity) {
      ++counts[*session.processIdentity];
    }
  }
  return counts;
}

}  // namespace

AgentStopAvailability AgentInventorySnapshot::stopAvailability(const AgentSessionSnapshot& session) const {
  const auto counts = sessionsByProcess(sessions);
  const auto found = session.processIdentity ? counts.find(*session.processIdentity) : counts.end();
  return stopAvailabilityOf(session, found == counts.end() ? 0 : found->second);
}

std::map<std::string, AgentStopAvailability> AgentInventorySnapshot::stopAvailabilityByID() const {
  const auto counts = sessionsByProcess(sessions);
  std::map<std::string, AgentStopAvailability> byID;
  for (const auto& session : sessions) {
    const auto found = session.processIdentity ? counts.find(*session.processIdentity) : counts.end();
    byID.insert_or_assign(session.id.stableID(),
                          stopAvailabilityOf(session, found == counts.end() ? 0 : found->second));
  }
  return byID;
}

AgentKind impliedProvider(std::optional<HostAppKind> host, AgentKind ownKind) {
  if (host == HostAppKind::chatgpt) return AgentKind::codex;
  if (host == HostAppKind::claudeDesktop) return AgentKind::claude;
  return ownKind;
}

std::map<AgentProcessIdentity, ListenerIdentitySet> relatedListeners(const ScanResult& result) {
  std::map<AgentProcessIdentity, ListenerIdentitySet> related;
  for (const auto& listener : result.listeners) {
    if (listener.agentProcess) related[*listener.agentProcess].insert(listener.identity);
  }
  return related;
}

}  // namespace tidewatch
