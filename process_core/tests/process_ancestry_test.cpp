#include "process_core/process_ancestry.h"

#include <gtest/gtest.h>

#include "process_core/tests/support/process_table.h"

namespace tidewatch {
namespace {

using testing::FakeProcessTable;
using testing::process;

// Owner pid 100, ancestors 101, 102, ... each the parent of the one before; the top's parent is 1.
FakeProcessTable chain(int ancestors) {
  FakeProcessTable table;
  for (int i = 0; i <= ancestors; ++i) {
    const int32_t pid = 100 + i;
    table.add(process(pid, i == ancestors ? 1 : pid + 1, "/usr/bin/tool" + std::to_string(i)));
  }
  return table;
}

TEST(ProcessAncestryTest, OwnerUnderPidOneIsTheWholeWalk) {
  FakeProcessTable table;
  EXPECT_EQ(ProcessAncestry::resolve(process(100, 1, "/usr/bin/python3"), 7, table.lookup()), ProcessAncestryFacts{});
  EXPECT_TRUE(table.asked.empty());
}

TEST(ProcessAncestryTest, HostAtTheEighthAncestorIsFoundButNotAtTheNinth) {
  FakeProcessTable eight = chain(8);
  eight.byPID[108].executablePath = "/usr/bin/konsole";
  EXPECT_EQ(ProcessAncestry::nearestHostApp(eight.byPID[100], eight.lookup()),
            (HostAppOccurrence{HostAppKind::terminal, {108, 1000, 0}, "konsole"}));

  FakeProcessTable nine = chain(9);
  nine.byPID[109].executablePath = "/usr/bin/konsole";
  EXPECT_EQ(ProcessAncestry::nearestHostApp(nine.byPID[100], nine.lookup()), std::nullopt);
  EXPECT_EQ(nine.asked.size(), static_cast<size_t>(ProcessAncestry::maxAncestorHops));
}

TEST(ProcessAncestryTest, WithoutARootTheWalkStopsOnceAgentAndHostAreFound) {
  FakeProcessTable table = chain(6);
  table.byPID[101].executablePath = testing::codexPath;
  table.byPID[102].executablePath = "/usr/bin/kitty";
  table.byPID[103].executablePath = testing::claudePath;  // farther agent: never reached
  const auto facts = ProcessAncestry::resolve(table.byPID[100], std::nullopt, table.lookup());
  EXPECT_EQ(facts.attributingAgentProcess, (AgentProcessIdentity{{101, 1000, 0}, AgentKind::codex}));
  EXPECT_EQ(facts.hostApp->identity.pid, 102);
  EXPECT_FALSE(facts.isInProtectedSubtree);
  EXPECT_EQ(table.asked, (std::vector<int32_t>{101, 102}));
}

TEST(ProcessAncestryTest, WithARootTheWalkGoesOnUntilTheRootOrTheEnd) {
  FakeProcessTable table = chain(6);
  table.byPID[100].executablePath = "/usr/bin/kitty";  // the owner is its own host
  table.byPID[102].executablePath = testing::claudePath;
  const auto facts = ProcessAncestry::resolve(table.byPID[100], 104, table.lookup());
  EXPECT_TRUE(facts.isInProtectedSubtree);
  EXPECT_EQ(facts.hostApp->identity.pid, 100);
  EXPECT_EQ(facts.attributingAgentProcess->process.pid, 102);
  EXPECT_EQ(table.asked, (std::vector<int32_t>{101, 102, 103, 104}));

  table.asked.clear();
  EXPECT_FALSE(ProcessAncestry::isInSubtree(table.byPID[100], 999, table.lookup()));
  EXPECT_EQ(table.asked.size(), 6u);

  table.asked.clear();
  EXPECT_TRUE(ProcessAncestry::isInSubtree(table.byPID[100], 100, table.lookup()));
  EXPECT_TRUE(table.asked.empty());
}

TEST(ProcessAncestryTest, AYoungerParentIsAReusedPidAndEndsTheWalk) {
  FakeProcessTable table({process(101, 1, testing::claudePath, 1000, 1)});
  const ProcessSnapshot owner = process(100, 101, "/usr/bin/python3", 1000, 0);
  EXPECT_EQ(ProcessAncestry::nearestAttributingAgent(owner, table.lookup()), std::nullopt);

  table.byPID[101].identity.startTimeMicroseconds = 0;  // equal start times pass
  EXPECT_EQ(ProcessAncestry::nearestAttributingAgent(owner, table.lookup()), AgentKind::claude);
}

TEST(ProcessAncestryTest, ALoopOrAnUnreadableParentEndsTheWalkQuietly) {
  FakeProcessTable table({process(100, 101, "/usr/bin/python3"), process(101, 100, "/usr/bin/make")});
  EXPECT_EQ(ProcessAncestry::resolve(table.byPID[100], 5, table.lookup()), ProcessAncestryFacts{});
  EXPECT_EQ(table.asked, (std::vector<int32_t>{101, 100}));

  table.asked.clear();
  EXPECT_EQ(ProcessAncestry::resolve(process(200, 300, "/usr/bin/python3"), 5, table.lookup()), ProcessAncestryFacts{});
  EXPECT_EQ(table.asked, (std::vector<int32_t>{300}));
}

}  // namespace
}  // namespace tidewatch
