// `tidewatch agents`: the agent sessions as the running application's inventory holds them, hook
// states included, asked over the session bus; without a running application, the sessions one
// look at the process table shows, and a line saying that hook states need the application.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/tidewatch_cli.h"
#include "inventory/agent_inventory_records.h"
#include "inventory/agent_sessions_document.h"

namespace tidewatch::TidewatchCLI {

struct AgentsDependencies {
  // The running application's document (AgentSessionsDocument); absent when none answers.
  std::function<std::optional<std::string>()> askApplication;
  // The sessions the process table alone shows now.
  std::function<AgentInventorySnapshot()> processTableSessions;
  std::function<Date()> now;

  static AgentsDependencies live();
};

inline constexpr std::string_view hookStatesNote =
    "Hook states (working, waiting, needs attention) need the running application; "
    "these are the sessions the process table alone shows.";

// The table of a decoded document, every line ending in a line feed.
std::string agentsTable(const AgentSessionsDocument::Decoded& document, Date now,
                        const std::function<std::string(Date)>& localTime);

int32_t runAgents(const std::vector<std::string>& arguments, const AgentsDependencies& dependencies,
                  const Output& output, const std::function<std::string(Date)>& localTime);
int32_t runAgents(const std::vector<std::string>& arguments);

}  // namespace tidewatch::TidewatchCLI
