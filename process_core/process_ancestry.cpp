#include "process_core/process_ancestry.h"

#include <tuple>
#include <unordered_set>

#include "process_core/agent_process_detector.h"
#include "process_core/host_app_recognition.h"

namespace tidewatch::ProcessAncestry {
namespace {

// A parent that started after its child is a reused pid, not the true parent. Equal start times pass.
bool startedLater(const ProcessIdentity& parent, const ProcessIdentity& child) {
  return std::tie(parent.startTimeSeconds, parent.startTimeMicroseconds) >
         std::tie(child.startTimeSeconds, child.startTimeMicroseconds);
}

// The one walk behind every question: the owner and at most maxAncestorHops ancestors, never pid 1
// or 0, stopping at a loop, an unreadable or younger parent, or as soon as every fact asked for
// is settled. The nearest finding of each fact stands.
ProcessAncestryFacts collect(const ProcessSnapshot& owner, std::optional<int32_t> protectedRootPID,
                             const LookupSnapshot& lookupSnapshot, bool needsAgent, bool needsHost) {
  ProcessAncestryFacts facts;
  std::unordered_set<ProcessIdentity> visited;
  ProcessSnapshot current = owner;
  int hops = 0;

  while (true) {
    if (!visited.insert(current.identity).second) break;
    if (protectedRootPID && current.identity.pid == *protectedRootPID) facts.isInProtectedSubtree = true;
    if (needsAgent && !facts.attributingAgentProcess) {
      if (auto kind = AgentProcessDetector::detect(current)) {
        facts.attributingAgentProcess = AgentProcessIdentity{current.identity, *kind};
      }
    }
    if (needsHost && !facts.hostApp) {
      if (auto kind = HostAppRecognition::recognize(current)) {
        facts.hostApp = HostAppOccurrence{*kind, current.identity, current.displayName()};
      }
    }

    const bool agentSettled = !needsAgent || facts.attributingAgentProcess;
    const bool hostSettled = !needsHost || facts.hostApp;
    const bool rootSettled = !protectedRootPID || facts.isInProtectedSubtree;
    if (agentSettled && hostSettled && rootSettled) break;

    if (hops == maxAncestorHops || !current.parentPID || *current.parentPID < 2) break;
    std::optional<ProcessSnapshot> parent = lookupSnapshot(*current.parentPID);
    if (!parent || startedLater(parent->identity, current.identity)) break;
    ++hops;
    current = std::move(*parent);
  }
  return facts;
}

}  // namespace

ProcessAncestryFacts resolve(const ProcessSnapshot& owner, std::optional<int32_t> protectedRootPID,
                             const LookupSnapshot& lookupSnapshot) {
  return collect(owner, protectedRootPID, lookupSnapshot, true, true);
}

std::optional<HostAppOccurrence> nearestHostApp(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot) {
  return collect(owner, std::nullopt, lookupSnapshot, false, true).hostApp;
}

bool isInSubtree(const ProcessSnapshot& owner, int32_t rootedAt, const LookupSnapshot& lookupSnapshot) {
  return collect(owner, rootedAt, lookupSnapshot, false, false).isInProtectedSubtree;
}

std::optional<AgentKind> nearestAttributingAgent(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot) {
  auto agent = collect(owner, std::nullopt, lookupSnapshot, true, false).attributingAgentProcess;
  if (!agent) return std::nullopt;
  return agent->kind;
}

}  // namespace tidewatch::ProcessAncestry
