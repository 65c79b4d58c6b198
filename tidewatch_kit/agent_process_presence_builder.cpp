#include "tidewatch_kit/agent_process_presence_builder.h"

#include <algorithm>
#include <tuple>

namespace tidewatch::AgentProcessPresenceBuilder {

AgentProcessPresenceSnapshot build(const AgentProcessGraph& graph, const LookupSnapshot& lookupSnapshot,
                                   const ProjectResolver::CWDForPID& cwdForPID,
                                   const ProjectResolver::PathExists& directoryExists,
                                   const std::string& homeDirectory, Date now) {
  AgentProcessPresenceSnapshot presence;
  for (const AgentProcessIdentity& identity : graph.topLevelAgentSessions()) {
    const auto snapshot = graph.snapshot(identity.process);
    if (!snapshot) continue;
    auto host = ProcessAncestry::nearestHostApp(*snapshot, lookupSnapshot);
    std::optional<std::string> projectName;
    if (auto seed = ProjectResolver::seedDirectory(*snapshot, cwdForPID, directoryExists)) {
      if (auto project = ProjectResolver::resolve(*seed, directoryExists, homeDirectory)) {
        projectName = project->name;
      }
    }
    std::optional<HostAppKind> hostKind;
    if (host) hostKind = host->kind;
    const AgentKind provider = AgentProviderResolver::resolve(identity.kind, hostKind, std::nullopt);
    presence.entries.push_back({identity, provider, std::move(host), std::move(projectName), now});
  }
  // Independent of the process table's order, so the same sessions compare equal between scans.
  std::sort(presence.entries.begin(), presence.entries.end(),
            [](const AgentProcessPresence& a, const AgentProcessPresence& b) {
              const ProcessIdentity& pa = a.identity.process;
              const ProcessIdentity& pb = b.identity.process;
              return std::tuple(sortOrder(a.provider), pa.pid, pa.startTimeSeconds, pa.startTimeMicroseconds) <
                     std::tuple(sortOrder(b.provider), pb.pid, pb.startTimeSeconds, pb.startTimeMicroseconds);
            });
  return presence;
}

}  // namespace tidewatch::AgentProcessPresenceBuilder
