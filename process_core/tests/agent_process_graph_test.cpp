#include "process_core/agent_process_graph.h"

#include <gtest/gtest.h>

#include "process_core/tests/support/process_table.h"

namespace tidewatch {
namespace {

using testing::id;
using testing::process;
const std::string claude = testing::claudePath;
const std::string codex = testing::codexPath;

TEST(AgentProcessGraphTest, SubAgentsOfOneProviderFoldIntoTheTopmostSession) {
  // claude 10 > claude 11 > claude 12; claude 20 > zsh 21 > claude 22; codex 30 > claude 31.
  const AgentProcessGraph graph({process(12, 11, claude), process(11, 10, claude), process(10, 1, claude),
                                 process(20, 1, claude), process(21, 20, "/bin/zsh"), process(22, 21, claude),
                                 process(30, 1, codex), process(31, 30, claude)});
  EXPECT_EQ(graph.topLevelSessionIdentity(id(12)), id(10));
  EXPECT_EQ(graph.topLevelSessionIdentity(id(22)), id(22));
  EXPECT_EQ(graph.topLevelSessionIdentity(id(31)), id(31));
  EXPECT_EQ(graph.topLevelSessionIdentity(id(21)), id(21));  // no agent: unchanged
  EXPECT_EQ(graph.topLevelAgentSessions(),
            (std::vector<AgentProcessIdentity>{{id(30), AgentKind::codex},
                                               {id(10), AgentKind::claude},
                                               {id(20), AgentKind::claude},
                                               {id(22), AgentKind::claude},
                                               {id(31), AgentKind::claude}}));
  EXPECT_EQ(graph.detectedAgents().size(), 7u);
  EXPECT_EQ(graph.detectedAgents().front(), (AgentProcessIdentity{id(30), AgentKind::codex}));
}

TEST(AgentProcessGraphTest, ASessionLoopAnswersWithTheIdentityAsked) {
  // 12 hangs below the loop 10 <-> 11.
  const AgentProcessGraph graph({process(10, 11, claude), process(11, 10, claude), process(12, 10, claude)});
  EXPECT_EQ(graph.topLevelSessionIdentity(id(12)), id(12));
  EXPECT_EQ(graph.topLevelSessionIdentity(id(11)), id(11));
  EXPECT_EQ(graph.topLevelAgentSessions().size(), 3u);
}

TEST(AgentProcessGraphTest, AReusedPidIsAmbiguousAndTrustedByNoWalk) {
  const AgentProcessGraph graph({process(10, 1, claude, 900), process(10, 1, codex, 950),
                                 process(11, 10, claude, 1000)});
  EXPECT_TRUE(graph.snapshot(id(10, 900)).has_value());
  EXPECT_EQ(graph.agentKind(*graph.snapshot(id(10, 950))), AgentKind::codex);
  EXPECT_EQ(graph.parentIdentity(*graph.snapshot(id(11))), std::nullopt);
  EXPECT_EQ(graph.topLevelSessionIdentity(id(11)), id(11));
}

TEST(AgentProcessGraphTest, ParentLinksRefuseYoungerParentsButAcceptEqualStartTimes) {
  const AgentProcessGraph graph({process(10, 1, claude, 1001), process(11, 10, claude, 1000),
                                 process(20, 1, claude, 1000), process(21, 20, claude, 1000)});
  EXPECT_EQ(graph.parentIdentity(*graph.snapshot(id(11))), std::nullopt);
  EXPECT_EQ(graph.topLevelSessionIdentity(id(11)), id(11));
  EXPECT_EQ(graph.parentIdentity(*graph.snapshot(id(21))), id(20));
  EXPECT_EQ(graph.topLevelSessionIdentity(id(21)), id(20));
}

TEST(AgentProcessGraphTest, OwningAgentLooksAtTheSnapshotAndEightAncestors) {
  std::vector<ProcessSnapshot> snapshots{process(100, 1, claude), process(50, 1, "/usr/bin/kitty")};
  for (int32_t pid = 101; pid <= 109; ++pid) snapshots.push_back(process(pid, pid - 1, "/usr/bin/tool"));
  ProcessSnapshot stranger = process(60, 100, "/usr/bin/tool");
  stranger.sameUser = false;
  snapshots.push_back(stranger);
  const AgentProcessGraph graph(snapshots);

  EXPECT_EQ(graph.owningAgentIdentity(*graph.snapshot(id(100))), id(100));
  EXPECT_EQ(graph.owningAgentIdentity(*graph.snapshot(id(108))), id(100));
  EXPECT_EQ(graph.owningAgentIdentity(*graph.snapshot(id(109))), std::nullopt);
  EXPECT_EQ(graph.owningAgentIdentity(stranger), std::nullopt);

  const auto subtree = graph.agentSubtreePIDs();
  EXPECT_EQ(subtree.size(), 9u);
  EXPECT_TRUE(subtree.contains(100) && subtree.contains(108));
  EXPECT_FALSE(subtree.contains(109) || subtree.contains(50) || subtree.contains(60));
}

TEST(AgentProcessGraphTest, NearestHostAppIgnoresOwnershipAndStopsAtLoops) {
  ProcessSnapshot agent = process(11, 10, claude);
  ProcessSnapshot host = process(10, 1, "/usr/bin/konsole");
  host.sameUser = false;
  const AgentProcessGraph graph({host, agent, process(20, 21, "/usr/bin/a"), process(21, 20, "/usr/bin/b")});
  EXPECT_EQ(graph.nearestHostApp(agent), (HostAppOccurrence{HostAppKind::terminal, id(10), "konsole"}));
  EXPECT_EQ(graph.nearestHostApp(*graph.snapshot(id(20))), std::nullopt);
}

TEST(AgentProviderResolverTest, ADesktopHostDecidesAndAnUnknownHostKeepsThePrevious) {
  using AgentProviderResolver::resolve;
  EXPECT_EQ(resolve(AgentKind::claude, HostAppKind::chatgpt, AgentKind::claude), AgentKind::codex);
  EXPECT_EQ(resolve(AgentKind::codex, HostAppKind::claudeDesktop, std::nullopt), AgentKind::claude);
  EXPECT_EQ(resolve(AgentKind::codex, std::nullopt, AgentKind::claude), AgentKind::claude);
  EXPECT_EQ(resolve(AgentKind::codex, std::nullopt, std::nullopt), AgentKind::codex);
  EXPECT_EQ(resolve(AgentKind::claude, HostAppKind::vscode, AgentKind::codex), AgentKind::claude);
}

TEST(AgentAttributorTest, FindsTheNearestAgentThroughTheLookup) {
  testing::FakeProcessTable table({process(10, 1, codex)});
  EXPECT_EQ(AgentAttributor::attribute(process(11, 10, "/usr/bin/python3"), table.lookup()), AgentKind::codex);
  EXPECT_EQ(AgentAttributor::attribute(process(12, 99, "/usr/bin/python3"), table.lookup()), std::nullopt);
}

}  // namespace
}  // namespace tidewatch
