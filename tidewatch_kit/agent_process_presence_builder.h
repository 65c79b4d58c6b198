// Which coding-agent sessions run now, whether they own a port or not.
#pragma once

#include <string>

#include "process_core/agent_process_graph.h"
#include "process_core/process_ancestry.h"
#include "tidewatch_kit/listener_records.h"
#include "tidewatch_kit/project_resolver.h"

namespace tidewatch::AgentProcessPresenceBuilder {

// One entry per top-level session with its host, project and presented provider, sorted by
// provider, then pid and start time.
AgentProcessPresenceSnapshot build(const AgentProcessGraph& graph, const LookupSnapshot& lookupSnapshot,
                                   const ProjectResolver::CWDForPID& cwdForPID,
                                   const ProjectResolver::PathExists& directoryExists,
                                   const std::string& homeDirectory, Date now);

}  // namespace tidewatch::AgentProcessPresenceBuilder
