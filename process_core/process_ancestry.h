// One walk up a process's parents that gathers the nearest agent, the nearest host application and
// whether the chain passes through a protected root.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "process_core/process_records.h"

namespace tidewatch {

// A snapshot of the process now behind a pid; absent when it cannot be read.
using LookupSnapshot = std::function<std::optional<ProcessSnapshot>(int32_t pid)>;

struct ProcessAncestryFacts {
  std::optional<AgentProcessIdentity> attributingAgentProcess;
  std::optional<HostAppOccurrence> hostApp;
  bool isInProtectedSubtree = false;

  friend bool operator==(const ProcessAncestryFacts&, const ProcessAncestryFacts&) = default;
};

namespace ProcessAncestry {

// The owner and at most this many ancestors are examined.
inline constexpr int maxAncestorHops = 8;

// All three facts. The walk goes on past agent and host until the protected root is met.
ProcessAncestryFacts resolve(const ProcessSnapshot& owner, std::optional<int32_t> protectedRootPID,
                             const LookupSnapshot& lookupSnapshot);

std::optional<HostAppOccurrence> nearestHostApp(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot);

// Whether the owner or one of its ancestors has the pid rootedAt.
bool isInSubtree(const ProcessSnapshot& owner, int32_t rootedAt, const LookupSnapshot& lookupSnapshot);

std::optional<AgentKind> nearestAttributingAgent(const ProcessSnapshot& owner, const LookupSnapshot& lookupSnapshot);

}  // namespace ProcessAncestry
}  // namespace tidewatch
