#include "tidewatch_kit/agent_process_presence_builder.h"

#include <gtest/gtest.h>

#include "process_core/tests/support/process_table.h"

namespace tidewatch {
namespace {

using testing::claudePath;
using testing::process;

const Date now{std::chrono::seconds(1'700'000'000)};

AgentProcessPresenceSnapshot build(const std::vector<ProcessSnapshot>& snapshots,
                                   std::map<int32_t, std::string> workingDirectories = {}) {
  testing::FakeProcessTable table(snapshots);
  table.workingDirectories = std::move(workingDirectories);
  table.existingPaths = {"/home/me/src/site/.git"};
  return AgentProcessPresenceBuilder::build(AgentProcessGraph(snapshots), table.lookup(), table.cwd(), table.exists(),
                                            "/home/me", now);
}

TEST(AgentProcessPresenceBuilderTest, NoAgentsGiveAnEmptySnapshot) {
  EXPECT_EQ(build({process(10, 1, "/usr/bin/kitty"), process(11, 10, "/bin/bash")}),
            AgentProcessPresenceSnapshot::empty());
}

TEST(AgentProcessPresenceBuilderTest, OneEntryPerSessionWithHostProjectAndTime) {
  const auto presence = build(
      {process(10, 1, "/usr/bin/kitty"), process(20, 10, claudePath), process(21, 20, claudePath)},
      {{20, "/home/me/src/site/web"}});
  EXPECT_EQ(presence.entries, (std::vector<AgentProcessPresence>{
                                  {{{20, 1000, 0}, AgentKind::claude},
                                   AgentKind::claude,
                                   HostAppOccurrence{HostAppKind::terminal, {10, 1000, 0}, "kitty"},
                                   "site",
                                   now}}));
}

TEST(AgentProcessPresenceBuilderTest, TheDesktopHostDecidesTheProviderAndEntriesSortByProviderThenPid) {
  const auto presence = build({process(10, 1, "/Applications/ChatGPT.app/Contents/MacOS/ChatGPT"),
                               process(40, 10, claudePath), process(30, 1, claudePath), process(20, 1, claudePath),
                               process(50, 1, testing::codexPath)});
  std::vector<std::pair<int32_t, AgentKind>> order;
  for (const auto& entry : presence.entries) order.emplace_back(entry.identity.process.pid, entry.provider);
  EXPECT_EQ(order, (std::vector<std::pair<int32_t, AgentKind>>{
                       {40, AgentKind::codex}, {50, AgentKind::codex}, {20, AgentKind::claude}, {30, AgentKind::claude}}));
  EXPECT_EQ(presence.entries.front().identity.kind, AgentKind::claude);
  EXPECT_EQ(presence.codexCount(), 2) << "counts go by the presented provider";
  EXPECT_EQ(presence.claudeCount(), 2);
  EXPECT_EQ(presence.totalCount(), 4);
  // Without a working directory or an absolute argument there is no project, and the entry stays.
  EXPECT_EQ(presence.entries.back().projectName, std::nullopt);
}

}  // namespace
}  // namespace tidewatch
