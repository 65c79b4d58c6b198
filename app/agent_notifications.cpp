#include "app/agent_notifications.h"

#include <algorithm>

namespace tidewatch {

namespace {

std::string providerName(AgentKind provider) { return std::string(displayName(provider)); }

std::string where(const std::optional<std::string>& project) {
  return project && !project->empty() ? "The session in " + *project : "A session";
}

const AgentSessionSnapshot* find(const AgentInventorySnapshot& snapshot, const std::string& id) {
  const auto found = std::find_if(snapshot.sessions.begin(), snapshot.sessions.end(),
                                  [&](const AgentSessionSnapshot& session) { return session.id.stableID() == id; });
  return found == snapshot.sessions.end() ? nullptr : &*found;
}

}  // namespace

std::vector<AgentNotice> AgentSessionNotices::finished(const std::vector<AgentCompletionEdge>& edges,
                                                       const AgentInventorySnapshot& snapshot) const {
  std::vector<AgentNotice> notices;
  for (const auto& edge : edges) {
    const std::string id = edge.sessionID.stableID();
    const auto* session = find(snapshot, id);
    notices.push_back({id, providerName(edge.provider) + " finished",
                       where(session ? session->projectName : std::nullopt) + " is done."});
  }
  return notices;
}

std::vector<AgentNotice> AgentSessionNotices::needingAttention(const AgentInventorySnapshot& snapshot) {
  std::vector<AgentNotice> notices;
  std::set<std::string> now;
  for (const auto& session : snapshot.sessions) {
    if (session.state != AgentSessionState::needsAttention) continue;
    const std::string id = session.id.stableID();
    now.insert(id);
    if (needingAttention_.contains(id)) continue;
    notices.push_back({id, providerName(session.provider) + " needs your attention",
                       where(session.projectName) + " is waiting for you."});
  }
  needingAttention_ = std::move(now);
  return notices;
}

}  // namespace tidewatch
