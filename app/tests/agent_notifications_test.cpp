#include "app/agent_notifications.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

AgentSessionSnapshot session(AgentKind provider, const std::string& id, AgentSessionState state,
                             std::optional<std::string> project) {
  AgentSessionSnapshot row;
  row.id = AgentSessionID::provider(provider, id);
  row.provider = provider;
  row.state = state;
  row.projectName = std::move(project);
  return row;
}

std::string idOf(AgentKind provider, const std::string& id) { return AgentSessionID::provider(provider, id).stableID(); }

TEST(AgentSessionNotices, OneNoticePerCompletionEdgeNamingTheProviderAndProject) {
  AgentInventorySnapshot snapshot;
  snapshot.sessions = {session(AgentKind::claude, "a", AgentSessionState::recentlyFinished, "harbour"),
                       session(AgentKind::codex, "b", AgentSessionState::recentlyFinished, std::nullopt)};
  const std::vector<AgentCompletionEdge> edges{{AgentSessionID::provider(AgentKind::claude, "a"), AgentKind::claude, {}},
                                               {AgentSessionID::provider(AgentKind::codex, "b"), AgentKind::codex, {}},
                                               {AgentSessionID::provider(AgentKind::codex, "gone"), AgentKind::codex, {}}};
  const AgentSessionNotices notices;
  EXPECT_EQ(notices.finished(edges, snapshot),
            (std::vector<AgentNotice>{
                {idOf(AgentKind::claude, "a"), "Claude Code finished", "The session in harbour is done."},
                {idOf(AgentKind::codex, "b"), "Codex finished", "A session is done."},
                {idOf(AgentKind::codex, "gone"), "Codex finished", "A session is done."},
            }));
  EXPECT_TRUE(notices.finished({}, snapshot).empty());
}

TEST(AgentSessionNotices, AttentionIsToldEachTimeASessionComesToNeedIt) {
  AgentSessionNotices notices;
  const auto with = [](AgentSessionState state) {
    AgentInventorySnapshot snapshot;
    snapshot.sessions = {session(AgentKind::codex, "c", state, "api")};
    return snapshot;
  };
  struct Step {
    AgentSessionState state;
    size_t notices;
  };
  const Step steps[] = {
      {AgentSessionState::working, 0},        {AgentSessionState::needsAttention, 1},
      {AgentSessionState::needsAttention, 0},  // still the same wait
      {AgentSessionState::working, 0},        {AgentSessionState::needsAttention, 1},  // a new one
  };
  for (const auto& step : steps) EXPECT_EQ(notices.needingAttention(with(step.state)).size(), step.notices);
  notices.needingAttention(with(AgentSessionState::working));
  EXPECT_EQ(notices.needingAttention(with(AgentSessionState::needsAttention)),
            (std::vector<AgentNotice>{{idOf(AgentKind::codex, "c"), "Codex needs your attention",
                                       "The session in api is waiting for you."}}));
}

}  // namespace
}  // namespace tidewatch
