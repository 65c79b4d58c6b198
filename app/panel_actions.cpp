#include "app/panel_actions.h"

namespace tidewatch::PanelActions {

int sessionsOnProcess(const AgentInventorySnapshot& inventory, int32_t pid) {
  int count = 0;
  for (const auto& session : inventory.currentSessions()) {
    if (session.processIdentity && session.processIdentity->process.pid == pid) ++count;
  }
  return count;
}

std::optional<std::string_view> stopAgentRefusal(const AgentSessionSnapshot& session,
                                                 const AgentInventorySnapshot& inventory) {
  if (session.state == AgentSessionState::recentlyFinished) return agentAlreadyFinished;
  if (!session.processIdentity) return noLocalAgentProcess;
  int sharing = 0;
  for (const auto& other : inventory.currentSessions()) {
    if (other.processIdentity == session.processIdentity) ++sharing;
  }
  if (sharing >= 2) return processBacksSessions;
  return std::nullopt;
}

}  // namespace tidewatch::PanelActions
