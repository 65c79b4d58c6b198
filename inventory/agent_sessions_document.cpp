#include "inventory/agent_sessions_document.h"

#include <algorithm>
#include <set>

#include "process_core/process_json.h"

namespace tidewatch::AgentSessionsDocument {
namespace {

std::string_view stateKey(AgentSessionState state) {
  switch (state) {
    case AgentSessionState::needsAttention: return "needsAttention";
    case AgentSessionState::working: return "working";
    case AgentSessionState::waiting: return "waiting";
    case AgentSessionState::detected: return "detected";
    case AgentSessionState::recentlyFinished: return "recentlyFinished";
  }
  return "detected";
}

std::string_view sourceKey(Source source) {
  return source == Source::application ? "application" : "processTable";
}

nlohmann::json encodeSession(const AgentSessionSnapshot& session) {
  nlohmann::json j = nlohmann::json::object();
  j["id"] = session.id.stableID();
  j["provider"] = displayName(session.provider);
  j["providerKey"] = session.provider;
  j["state"] = stateKey(session.state);
  j["stateWords"] = badgeWord(session.state);
  j["detail"] = session.explanation();
  j["evidence"] = displayWords(session.evidence);
  j["location"] = session.executionLocation.displayWords();
  j["lastEventAt"] = iso8601(session.lastEventAt);
  if (session.startedAt) j["startedAt"] = iso8601(*session.startedAt);
  if (session.projectName) j["project"] = *session.projectName;
  if (session.controlSurface) {
    j["host"] = session.controlSurface->displayName;
    j["hostPID"] = session.controlSurface->identity.pid;
  }
  if (session.processIdentity) j["pid"] = session.processIdentity->process.pid;
  std::set<int> ports;
  for (const auto& listener : session.relatedListenerIDs) ports.insert(listener.port);
  j["ports"] = std::vector<int>(ports.begin(), ports.end());
  return j;
}

template <typename T>
std::optional<T> member(const nlohmann::json& j, const char* key) {
  const auto found = j.find(key);
  if (found == j.end() || found->is_null()) return std::nullopt;
  return found->get<T>();
}

}  // namespace

nlohmann::json encode(const AgentInventorySnapshot& snapshot, Source source) {
  std::vector<const AgentSessionSnapshot*> ordered;
  for (const auto& session : snapshot.sessions) ordered.push_back(&session);
  // The urgent first; within one state the longest-running first, sessions of unknown start last.
  std::stable_sort(ordered.begin(), ordered.end(), [](const auto* a, const auto* b) {
    if (a->state != b->state) return a->state < b->state;
    const Date aStart = a->startedAt.value_or(a->lastEventAt);
    const Date bStart = b->startedAt.value_or(b->lastEventAt);
    return aStart < bStart;
  });
  nlohmann::json sessions = nlohmann::json::array();
  for (const auto* session : ordered) sessions.push_back(encodeSession(*session));
  return nlohmann::json{{"capturedAt", iso8601(snapshot.capturedAt)},
                        {"source", sourceKey(source)},
                        {"sessions", std::move(sessions)}};
}

std::optional<Decoded> decode(const nlohmann::json& document) {
  try {
    Decoded decoded;
    const auto source = document.at("source").get<std::string>();
    if (source == sourceKey(Source::application)) {
      decoded.source = Source::application;
    } else if (source == sourceKey(Source::processTable)) {
      decoded.source = Source::processTable;
    } else {
      return std::nullopt;
    }
    for (const auto& session : document.at("sessions")) {
      Row row;
      row.provider = session.at("provider").get<std::string>();
      row.state = session.at("stateWords").get<std::string>();
      row.detail = member<std::string>(session, "detail").value_or("");
      row.project = member<std::string>(session, "project");
      row.host = member<std::string>(session, "host");
      row.pid = member<int32_t>(session, "pid");
      if (const auto started = member<std::string>(session, "startedAt")) {
        row.since = dateFromISO8601(*started);
      } else if (const auto last = member<std::string>(session, "lastEventAt")) {
        row.since = dateFromISO8601(*last);
      }
      row.ports = member<std::vector<int>>(session, "ports").value_or(std::vector<int>{});
      decoded.rows.push_back(std::move(row));
    }
    return decoded;
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

}  // namespace tidewatch::AgentSessionsDocument
