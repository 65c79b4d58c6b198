#include "tidewatch_kit/agent_process_presence_builder.h"

#include <gtest/gtest.h>

#include <map>

namespace tidewatch {
namespace {

ProcessSnapshot process(int32_t pid, int32_t parentPID, std::string path) {
  ProcessSnapshot snapshot;
  snapshot.identity = {pid, 1000, 0};
  snapshot.executablePath = std::move(path);
  snapshot.parentPID = parentPID;
  snapshot.sameUser = true;
  return snapshot;
}

const std::string claude = "/home/me/.local/bin/claude";
const std::string codex = "/home/me/.local/bin/codex";
const Date now{std::chrono::seconds(1'700'000'000)};

AgentProcessPresenceSnapshot build(const std::vector<ProcessSnapshot>& table,
                                   std::map<int32_t, std::string> workingDirectories = {}) {
  std::map<int32_t, ProcessSnapshot> byPID;
  for (const auto& snapshot : table) byPID.insert_or_assign(snapshot.identity.pid, snapshot);
  const AgentProcessGraph graph(table);
  auto lookup = [&byPID](int32_t pid) -> std::optional<ProcessSnapshot> {
    auto it = byPID.find(pid);
    return it == byPID.end() ? std::nullopt : std::optional(it->second);
  };
  auto cwd = [&workingDirectories](int32_t pid) -> std::optional<std::string> {
    auto it = workingDirectories.find(pid);
    return it == workingDirectories.end() ? std::nullopt : std::optional(it->second);
  };
  auto exists = [](const std::string& path) { return path == "/home/me/src/site/.git"; };
  return AgentProcessPresenceBuilder::build(graph, lookup, cwd, exists, "/home/me", now);
}

TEST(AgentProcessPresenceBuilderTest, NoAgentsGiveAnEmptySnapshot) {
  const auto presence = build({process(10, 1, "/usr/bin/kitty"), process(11, 10, "/bin/bash")});
  EXPECT_EQ(presence, AgentProcessPresenceSnapshot::empty());
  EXPECT_EQ(presence.totalCount(), 0);
}

TEST(AgentProcessPresenceBuilderTest, OneEntryPerSessionWithHostProjectAndTime) {
  const auto presence = build({process(10, 1, "/usr/bin/kitty"), process(20, 10, claude), process(21, 20, claude)},
                              {{20, "/home/me/src/site/web"}});
  ASSERT_EQ(presence.entries.size(), 1u);
  const AgentProcessPresence& entry = presence.entries.front();
  EXPECT_EQ(entry.identity, (AgentProcessIdentity{{20, 1000, 0}, AgentKind::claude}));
  EXPECT_EQ(entry.provider, AgentKind::claude);
  EXPECT_EQ(entry.host, (HostAppOccurrence{HostAppKind::terminal, {10, 1000, 0}, "kitty"}));
  EXPECT_EQ(entry.projectName, "site");
  EXPECT_EQ(entry.detectedAt, now);
}

TEST(AgentProcessPresenceBuilderTest, TheDesktopHostDecidesTheProviderAndEntriesSortByProviderThenPid) {
  const auto presence = build({process(10, 1, "/Applications/ChatGPT.app/Contents/MacOS/ChatGPT"),
                               process(40, 10, claude), process(30, 1, claude), process(20, 1, claude),
                               process(50, 1, codex)});
  std::vector<std::pair<int32_t, AgentKind>> order;
  for (const auto& entry : presence.entries) order.emplace_back(entry.identity.process.pid, entry.provider);
  EXPECT_EQ(order, (std::vector<std::pair<int32_t, AgentKind>>{
                       {40, AgentKind::codex}, {50, AgentKind::codex}, {20, AgentKind::claude}, {30, AgentKind::claude}}));
  EXPECT_EQ(presence.entries.front().identity.kind, AgentKind::claude);
  EXPECT_EQ(presence.codexCount(), 2);
  EXPECT_EQ(presence.claudeCount(), 2);
  // Without a working directory or an absolute argument there is no project, and the entry stays.
  EXPECT_EQ(presence.entries.back().projectName, std::nullopt);
}

}  // namespace
}  // namespace tidewatch
