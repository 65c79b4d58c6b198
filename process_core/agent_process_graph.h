// A table of snapshots that answers agent questions across parents and children: which processes
// are agents, which of them are sessions of their own, and who owns a given process.
#pragma once

#include <cstdint>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "process_core/process_ancestry.h"
#include "process_core/process_records.h"

namespace tidewatch {

class AgentProcessGraph {
 public:
  explicit AgentProcessGraph(const std::vector<ProcessSnapshot>& snapshots);

  std::optional<ProcessSnapshot> snapshot(const ProcessIdentity& identity) const;
  std::optional<AgentKind> agentKind(const ProcessSnapshot& snapshot) const;

  // Every detected agent, by provider order, then pid and start time.
  std::vector<AgentProcessIdentity> detectedAgents() const;
  // One entry per session: agents folded into the topmost agent of the same provider above them.
  std::vector<AgentProcessIdentity> topLevelAgentSessions() const;
  // The topmost agent of the same kind reached by unbroken agent parents; the identity itself
  // when it is no agent.
  ProcessIdentity topLevelSessionIdentity(const ProcessIdentity& identity) const;

  // The parent when it is known, unambiguous and not younger than the child.
  std::optional<ProcessIdentity> parentIdentity(const ProcessSnapshot& snapshot) const;
  // The nearest agent on the chain starting at the snapshot itself; none for other users.
  std::optional<ProcessIdentity> owningAgentIdentity(const ProcessSnapshot& snapshot) const;
  std::optional<HostAppOccurrence> nearestHostApp(const ProcessSnapshot& snapshot) const;
  // Pids of the user's processes that have an owning agent, the agents included.
  std::unordered_set<int32_t> agentSubtreePIDs() const;

 private:
  // The parent's snapshot when the parent link holds (see parentIdentity).
  const ProcessSnapshot* parentSnapshot(const ProcessSnapshot& snapshot) const;

  std::unordered_map<ProcessIdentity, ProcessSnapshot> snapshotsByIdentity_;
  std::unordered_map<int32_t, ProcessIdentity> identityByPID_;
  std::unordered_set<int32_t> ambiguousPIDs_;
  std::unordered_map<ProcessIdentity, AgentKind> agentKinds_;
};

namespace AgentProviderResolver {

// The provider to present: a provider's desktop application decides; without a known host the
// provider presented before stands.
AgentKind resolve(AgentKind detected, std::optional<HostAppKind> host, std::optional<AgentKind> previous);

}  // namespace AgentProviderResolver

namespace AgentAttributor {

inline constexpr int maxAncestorHops = ProcessAncestry::maxAncestorHops;

// The kind of the nearest agent on the owner's chain.
std::optional<AgentKind> attribute(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot);

}  // namespace AgentAttributor
}  // namespace tidewatch
