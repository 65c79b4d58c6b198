// Scripts of timed inputs for the inventory's reducer: hook events, scans, tracker updates and
// the clock, each step followed by the rows and edges it must leave. Rows read as
// "<id> <state> <evidence> <provider>", e.g. "hook:s1 working hook+process claude" or
// "proc:42 waiting process codex", compared as sets (the order is checked on its own).
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "inventory/agent_inventory_reducer.h"

namespace tidewatch::testing {

using EventKind = AgentHookProtocol::EventKind;
using Reducer = AgentInventoryReducer;

inline Date at(int64_t seconds) { return Date(std::chrono::seconds(1'800'000'000 + seconds)); }

// An agent process whose start time follows from its pid, so each pid is one incarnation.
inline AgentProcessIdentity agent(int32_t pid, AgentKind kind = AgentKind::claude) {
  return {{pid, static_cast<uint64_t>(1'700'000'000 + pid), 0}, kind};
}

inline HostAppOccurrence host(HostAppKind kind, int32_t pid = 7) {
  return {kind, {pid, 1'600'000'000, 0}, std::string(displayName(kind))};
}

inline AgentHookProtocol::Envelope envelope(EventKind event, std::string session, AgentKind provider = AgentKind::claude,
                                            std::optional<std::string> project = std::nullopt) {
  return {AgentHookProtocol::protocolVersion, provider, event, std::move(session), std::move(project), 0};
}

inline Reducer::HookOrigin from(std::optional<AgentProcessIdentity> process,
                                std::optional<HostAppOccurrence> hostApp = std::nullopt,
                                std::optional<ProcessIdentity> runtime = std::nullopt) {
  return {process, hostApp, runtime};
}

inline AgentProcessPresence present(const AgentProcessIdentity& identity,
                                    std::optional<HostAppOccurrence> hostApp = std::nullopt,
                                    std::optional<AgentKind> provider = std::nullopt,
                                    std::optional<std::string> project = std::nullopt) {
  return {identity, provider.value_or(identity.kind), std::move(hostApp), std::move(project), at(0)};
}

// A listener of the process on the port, as a row's identity names it.
inline ListenerIdentity listenerOn(int32_t pid, int port) {
  ListenerIdentity identity;
  identity.process = {pid, 1, 0};
  identity.port = port;
  return identity;
}

inline std::string describe(const AgentSessionID& id) {
  if (const auto* process = std::get_if<AgentProcessIdentity>(&id.value)) {
    return "proc:" + std::to_string(process->process.pid);
  }
  return "hook:" + std::get<ProviderSessionID>(id.value).sessionID;
}

inline std::string describe(const AgentSessionSnapshot& row) {
  static constexpr const char* states[] = {"attention", "working", "waiting", "detected", "finished"};
  static constexpr const char* evidence[] = {"process", "hook", "hook+process"};
  return describe(row.id) + " " + states[static_cast<int>(row.state)] + " " +
         evidence[static_cast<int>(row.evidence)] + " " + std::string(rawValue(row.provider));
}

inline std::vector<std::string> rows(const AgentInventorySnapshot& snapshot) {
  std::vector<std::string> described;
  for (const auto& row : snapshot.sessions) described.push_back(describe(row));
  std::sort(described.begin(), described.end());
  return described;
}

// The row of an id, which must stand exactly once among the live rows.
inline AgentSessionSnapshot row(const AgentInventorySnapshot& snapshot, const std::string& id) {
  for (const auto& session : snapshot.sessions) {
    if (describe(session.id) == id && session.state != AgentSessionState::recentlyFinished) return session;
  }
  ADD_FAILURE() << "no live row " << id;
  return {};
}

struct Step {
  std::string what;
  std::function<void(Reducer&)> input;
  std::vector<std::string> rows;
  std::vector<std::string> edges = {};  // "<id> <provider>" of the edges the step hands out
};

inline void run(Reducer& reducer, const std::vector<Step>& steps) {
  for (const auto& step : steps) {
    SCOPED_TRACE(step.what);
    step.input(reducer);
    auto expected = step.rows;
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(rows(reducer.snapshot({})), expected);
    std::vector<std::string> edges;
    for (const auto& edge : reducer.takeCompletionEdges()) {
      edges.push_back(describe(edge.sessionID) + " " + std::string(rawValue(edge.provider)));
    }
    EXPECT_EQ(edges, step.edges);
  }
}

// Step inputs.
inline std::function<void(Reducer&)> hook(EventKind event, std::string session, int64_t time,
                                          Reducer::HookOrigin origin = {}, AgentKind provider = AgentKind::claude) {
  return [=](Reducer& r) { r.applyHookEvent(envelope(event, session, provider), origin, at(time)); };
}

inline std::function<void(Reducer&)> scan(std::vector<AgentProcessPresence> entries, int64_t observed,
                                          std::map<ProcessIdentity, bool> runtimeCurrent = {},
                                          std::map<AgentProcessIdentity, ListenerIdentitySet> listeners = {}) {
  return [=](Reducer& r) { r.applyPanelScan({entries}, listeners, runtimeCurrent, at(observed), at(observed)); };
}

inline std::function<void(Reducer&)> track(std::vector<AgentTrackingUpdateFacts::Counted> counted, int64_t observed,
                                           std::vector<AgentTrackingUpdateFacts::Finished> finished = {},
                                           std::map<AgentProcessIdentity, HostAppKind> hosts = {}) {
  return [=](Reducer& r) {
    r.applyPresentedTrackingUpdate({counted, finished, hosts, at(observed)}, at(observed));
  };
}

inline std::function<void(Reducer&)> clock(int64_t time) {
  return [=](Reducer& r) { r.expireTransients(at(time)); };
}

}  // namespace tidewatch::testing
