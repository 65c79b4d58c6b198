#include "process_core/agent_process_graph.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "process_core/agent_process_detector.h"
#include "process_core/host_app_recognition.h"

namespace tidewatch {
namespace {

bool startedLater(const ProcessIdentity& parent, const ProcessIdentity& child) {
  return std::tie(parent.startTimeSeconds, parent.startTimeMicroseconds) >
         std::tie(child.startTimeSeconds, child.startTimeMicroseconds);
}

bool agentOrder(const AgentProcessIdentity& a, const AgentProcessIdentity& b) {
  return std::tuple(sortOrder(a.kind), a.process.pid, a.process.startTimeSeconds, a.process.startTimeMicroseconds) <
         std::tuple(sortOrder(b.kind), b.process.pid, b.process.startTimeSeconds, b.process.startTimeMicroseconds);
}

}  // namespace

AgentProcessGraph::AgentProcessGraph(const std::vector<ProcessSnapshot>& snapshots) {
  for (const auto& snapshot : snapshots) {
    const ProcessIdentity& identity = snapshot.identity;
    snapshotsByIdentity_.insert_or_assign(identity, snapshot);
    // Two incarnations of one pid: the first keeps the pid, and no walk trusts it as a parent.
    auto [known, inserted] = identityByPID_.try_emplace(identity.pid, identity);
    if (!inserted && known->second != identity) ambiguousPIDs_.insert(identity.pid);
    if (auto kind = AgentProcessDetector::detect(snapshot)) agentKinds_.insert_or_assign(identity, *kind);
  }
}

std::optional<ProcessSnapshot> AgentProcessGraph::snapshot(const ProcessIdentity& identity) const {
  auto it = snapshotsByIdentity_.find(identity);
  if (it == snapshotsByIdentity_.end()) return std::nullopt;
  return it->second;
}

std::optional<AgentKind> AgentProcessGraph::agentKind(const ProcessSnapshot& snapshot) const {
  auto it = agentKinds_.find(snapshot.identity);
  if (it == agentKinds_.end()) return std::nullopt;
  return it->second;
}

std::vector<AgentProcessIdentity> AgentProcessGraph::detectedAgents() const {
  std::vector<AgentProcessIdentity> agents;
  agents.reserve(agentKinds_.size());
  for (const auto& [identity, kind] : agentKinds_) agents.push_back({identity, kind});
  std::sort(agents.begin(), agents.end(), agentOrder);
  return agents;
}

std::vector<AgentProcessIdentity> AgentProcessGraph::topLevelAgentSessions() const {
  std::set<AgentProcessIdentity, decltype(&agentOrder)> sessions(agentOrder);
  for (const auto& [identity, kind] : agentKinds_) sessions.insert({topLevelSessionIdentity(identity), kind});
  return {sessions.begin(), sessions.end()};
}

ProcessIdentity AgentProcessGraph::topLevelSessionIdentity(const ProcessIdentity& identity) const {
  auto agent = agentKinds_.find(identity);
  if (agent == agentKinds_.end()) return identity;
  const AgentKind kind = agent->second;
  std::unordered_set<ProcessIdentity> visited;
  ProcessIdentity current = identity;
  // No hop limit: an agent's own helpers can nest deeply, and the visited set ends a loop.
  while (true) {
    auto currentSnapshot = snapshotsByIdentity_.find(current);
    if (currentSnapshot == snapshotsByIdentity_.end()) return current;
    const ProcessSnapshot* parent = parentSnapshot(currentSnapshot->second);
    if (!parent) return current;
    auto parentAgent = agentKinds_.find(parent->identity);
    if (parentAgent == agentKinds_.end() || parentAgent->second != kind) return current;
    if (!visited.insert(current).second) return identity;
    current = parent->identity;
  }
}

const ProcessSnapshot* AgentProcessGraph::parentSnapshot(const ProcessSnapshot& snapshot) const {
  if (!snapshot.parentPID || *snapshot.parentPID < 2) return nullptr;
  if (ambiguousPIDs_.contains(*snapshot.parentPID)) return nullptr;
  auto parentIdentity = identityByPID_.find(*snapshot.parentPID);
  if (parentIdentity == identityByPID_.end()) return nullptr;
  if (startedLater(parentIdentity->second, snapshot.identity)) return nullptr;
  auto parent = snapshotsByIdentity_.find(parentIdentity->second);
  if (parent == snapshotsByIdentity_.end()) return nullptr;
  return &parent->second;
}

std::optional<ProcessIdentity> AgentProcessGraph::parentIdentity(const ProcessSnapshot& snapshot) const {
  const ProcessSnapshot* parent = parentSnapshot(snapshot);
  if (!parent) return std::nullopt;
  return parent->identity;
}

std::optional<ProcessIdentity> AgentProcessGraph::owningAgentIdentity(const ProcessSnapshot& snapshot) const {
  if (!snapshot.sameUser) return std::nullopt;
  const ProcessSnapshot* current = &snapshot;
  for (int hops = 0;; ++hops) {
    if (agentKinds_.contains(current->identity)) return current->identity;
    const ProcessSnapshot* parent = parentSnapshot(*current);
    if (!parent || hops == ProcessAncestry::maxAncestorHops) return std::nullopt;
    current = parent;
  }
}

std::optional<HostAppOccurrence> AgentProcessGraph::nearestHostApp(const ProcessSnapshot& snapshot) const {
  std::unordered_set<ProcessIdentity> visited;
  const ProcessSnapshot* current = &snapshot;
  for (int hops = 0;; ++hops) {
    if (!visited.insert(current->identity).second) return std::nullopt;
    if (auto kind = HostAppRecognition::recognize(*current)) {
      return HostAppOccurrence{*kind, current->identity, current->displayName()};
    }
    const ProcessSnapshot* parent = parentSnapshot(*current);
    if (!parent || hops == ProcessAncestry::maxAncestorHops) return std::nullopt;
    current = parent;
  }
}

std::unordered_set<int32_t> AgentProcessGraph::agentSubtreePIDs() const {
  std::unordered_set<int32_t> pids;
  for (const auto& [identity, snapshot] : snapshotsByIdentity_) {
    if (snapshot.sameUser && owningAgentIdentity(snapshot)) pids.insert(identity.pid);
  }
  return pids;
}

namespace AgentProviderResolver {

AgentKind resolve(AgentKind detected, std::optional<HostAppKind> host, std::optional<AgentKind> previous) {
  if (!host) return previous.value_or(detected);
  if (*host == HostAppKind::chatgpt) return AgentKind::codex;
  if (*host == HostAppKind::claudeDesktop) return AgentKind::claude;
  return detected;
}

}  // namespace AgentProviderResolver

namespace AgentAttributor {

std::optional<AgentKind> attribute(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot) {
  return ProcessAncestry::nearestAttributingAgent(owner, lookupSnapshot);
}

}  // namespace AgentAttributor
}  // namespace tidewatch
