// The panel's decisions about guarded actions that are not the terminator's: which outcome leaves
// a notice, and when an agent's stop can be offered at all. Plain functions over values, so the
// view model only routes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "inventory/agent_inventory_records.h"
#include "tidewatch_kit/listener_actions.h"

namespace tidewatch::PanelActions {

// A success says nothing (the row's vanishing is the feedback); anything else says its message.
template <typename Outcome>
std::optional<std::string> notice(const Outcome& outcome) {
  if (outcome.isSuccess()) return std::nullopt;
  return outcome.message();
}

inline constexpr std::string_view agentAlreadyFinished = "That agent already finished.";
inline constexpr std::string_view noLocalAgentProcess = "Stop is unavailable because no local agent process was confirmed.";
inline constexpr std::string_view processBacksSessions = "Stop is unavailable because this process backs multiple agent sessions.";
inline constexpr std::string_view processNowBacksSessions =
    "Stop is unavailable because this process now backs multiple agent sessions. Nothing was signaled.";
inline constexpr std::string_view agentChangedBeforeVerify =
    "That agent changed or stopped before Tidewatch could verify it. Nothing was signaled.";
inline constexpr std::string_view scanFailed = "Couldn\u2019t read local ports.";

// How many of the inventory's current sessions run in the process with this pid.
int sessionsOnProcess(const AgentInventorySnapshot& inventory, int32_t pid);

// Why a stop cannot be offered for this session now; absent when the request may be prepared.
std::optional<std::string_view> stopAgentRefusal(const AgentSessionSnapshot& session,
                                                 const AgentInventorySnapshot& inventory);

}  // namespace tidewatch::PanelActions
