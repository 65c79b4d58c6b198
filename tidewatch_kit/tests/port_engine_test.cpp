#include "tidewatch_kit/port_engine.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>

#include "tidewatch_kit/tests/fake_process_world.h"

namespace tidewatch {
namespace {

using testing::FakeProcessWorld;

const PortListener& rowOnPort(const ScanResult& result, int port) {
  auto it = std::find_if(result.listeners.begin(), result.listeners.end(),
                         [port](const PortListener& l) { return l.port == port; });
  if (it == result.listeners.end()) throw std::runtime_error("no row on port " + std::to_string(port));
  return *it;
}

TEST(PortEngineEnumeration, NoPidsFailsTheScan) {
  FakeProcessWorld world;
  PortEngineDependencies d = world.dependencies();
  d.allPIDs = [] { return std::vector<int32_t>{}; };
  try {
    PortEngine(d).scan(true);
    FAIL() << "expected ScanError";
  } catch (const ScanError& error) {
    EXPECT_EQ(error.code(), ScanError::Code::enumerationUnavailable);
  }
}

TEST(PortEngineRows, OneRowPerPortOfTheUsersOwnListeners) {
  FakeProcessWorld world;
  world.add(10, 1, "/usr/bin/sleep");  // no socket: costs no snapshot
  world.add(30, 1, "/usr/sbin/sshd", 100, 0);
  world.listen(30, 22, "0.0.0.0");  // another user's listener is no row
  world.add(20, 1, "/opt/app/server");
  world.listen(20, 3000);
  world.listen(20, 3001, "0.0.0.0");
  for (const char* address : {"127.0.0.1", "::1", "127.0.0.1"}) world.listen(20, 8080, address);
  world.add(50, 1, "/usr/local/bin/node").argv = std::vector<std::string>{"node", "/work/site/node_modules/.bin/vite"};
  world.listen(50, 5173);
  world.add(40, 1, "/usr/lib/systemd/resolved-ish");
  world.listen(40, 53);
  world.strongSystemPaths = {"/usr/lib/systemd/resolved-ish"};

  const auto result = PortEngine(world.dependencies()).scan(true);
  ASSERT_EQ(result.listeners.size(), 5u);
  EXPECT_EQ(result.processCount, 5);
  EXPECT_EQ(result.scannedAt, world.now);
  EXPECT_EQ(world.enrichedReads, (std::map<int32_t, int>{{20, 1}, {30, 1}, {40, 1}, {50, 1}}));
  EXPECT_EQ(world.cwdReads[20], 1);
  EXPECT_EQ(rowOnPort(result, 3000).bindScope, BindScope::loopbackOnly);
  EXPECT_EQ(rowOnPort(result, 3001).bindScope, BindScope::allInterfaces);

  // The loopback pair and the repeated socket fold into one row.
  const auto& pair = rowOnPort(result, 8080);
  EXPECT_EQ(pair.endpoints, (std::vector<BoundEndpoint>{{"127.0.0.1", AddressFamily::ipv4, 8080},
                                                        {"::1", AddressFamily::ipv6, 8080}}));
  EXPECT_EQ(pair.workerPoolSize, 1);
  EXPECT_EQ(pair.identity.stableID(), "proc:20:100.0:TCP:8080:0") << "one loopback token";
  EXPECT_EQ(pair.process.residentMemoryBytes, 4096u);

  EXPECT_EQ(rowOnPort(result, 5173).classification.runtime, Runtime::node);
  EXPECT_EQ(rowOnPort(result, 5173).classification.framework, Framework::vite);

  // The strong system flags are asked once, in row order, and hide their rows.
  std::vector<std::optional<std::string>> rowPaths;
  for (const auto& row : result.listeners) rowPaths.push_back(row.process.executablePath);
  EXPECT_EQ(world.flagCalls, 1);
  EXPECT_EQ(world.flaggedPaths, rowPaths);
  EXPECT_EQ(rowOnPort(result, 53).visibility, VisibilityClass::hiddenSystemBackground);
  EXPECT_EQ(rowOnPort(result, 3000).visibility, VisibilityClass::defaultVisible);
  EXPECT_EQ(result.hiddenCount(), 1);
  EXPECT_EQ(result.visible().size(), 4u);
}

TEST(PortEngineRowsDeathTest, FlagsOfTheWrongLengthStopTheProgram) {
  FakeProcessWorld world;
  world.add(20, 1, "/opt/app/server");
  world.listen(20, 3000);
  auto d = world.dependencies();
  d.strongSystemBackgroundFlags = [](const auto&) { return std::vector<bool>{}; };
  EXPECT_DEATH(PortEngine(d).scan(true), "");
}

TEST(PortEnginePools, WorkersOfOneParentAndExecutableFoldIntoOnePoolRow) {
  FakeProcessWorld world;
  world.add(60, 1, "/opt/web/master");
  for (int32_t pid : {63, 61, 62}) {
    world.add(pid, 60, "/opt/web/worker");
    world.listen(pid, 8000, "0.0.0.0");
  }
  // Children of init, and children of one parent with different executables, stay single.
  world.add(1, 0, "/sbin/init");
  world.add(80, 1, "/opt/web/master");
  for (auto [pid, parent, path] : {std::tuple{70, 1, "/opt/web/worker"}, {71, 1, "/opt/web/worker"},
                                   {72, 80, "/opt/web/a"}, {73, 80, "/opt/web/b"}}) {
    world.add(pid, parent, path);
    world.listen(pid, 9000);
  }
  const auto result = PortEngine(world.dependencies()).scan(true);
  ASSERT_EQ(result.listeners.size(), 5u);
  const auto& pool = rowOnPort(result, 8000);
  EXPECT_EQ(pool.workerPoolSize, 3);
  EXPECT_EQ(pool.process.identity.pid, 61);
  EXPECT_EQ(pool.identity.process.pid, 60);
  EXPECT_TRUE(pool.identity.isPool);
  EXPECT_EQ(pool.identity.stableID(), "pool:60:100.0:TCP:8000:1:/opt/web/worker");
  EXPECT_EQ(pool.parentIdentity, (ProcessIdentity{60, 100, 0}));
  EXPECT_EQ(world.identityReads[60], 1) << "the parent's identity is memoised per parent pid";
  for (const auto& row : result.listeners) {
    if (row.port != 9000) continue;
    EXPECT_EQ(row.workerPoolSize, 1);
    EXPECT_FALSE(row.parentIdentity.has_value());
    EXPECT_TRUE(row.id().starts_with("proc:"));
  }
}

// A dev server started by an agent inside a terminal, in a project folder.
class PortEngineAgentWorld : public ::testing::Test {
 protected:
  void SetUp() override {
    world.add(100, 1, "/usr/libexec/gnome-terminal-server");
    world.add(101, 100, "/usr/bin/bash");
    world.add(102, 101, "/home/dev/.local/bin/claude");
    world.add(103, 102, "/usr/bin/bash");
    auto& server = world.add(104, 103, "/usr/local/bin/node");
    server.argv = std::vector<std::string>{"node", "server.js"};
    world.listen(104, 3000);
    world.setCWD(104, "/home/dev/site");
    world.setCWD(102, "/home/dev/site");
    world.existingPaths = {"/home/dev/site/package.json"};
  }

  FakeProcessWorld world;
};

TEST_F(PortEngineAgentWorld, RowsCarryTheSessionHostProjectAndFocusTarget) {
  // A sub-agent's server belongs to the top-level session.
  world.add(110, 102, "/home/dev/.local/bin/claude");
  world.add(111, 110, "/usr/local/bin/node");
  world.listen(111, 4000);
  const auto result = PortEngine(world.dependencies()).scan(true);
  ASSERT_EQ(result.listeners.size(), 2u);
  for (int port : {3000, 4000}) {
    const auto& row = rowOnPort(result, port);
    EXPECT_EQ(row.agentOrigin, AgentKind::claude) << port;
    EXPECT_EQ(row.agentProcess, (AgentProcessIdentity{{102, 100, 0}, AgentKind::claude})) << port;
    EXPECT_EQ(row.host, AgentHost{HostAppKind::terminal}) << port;
    EXPECT_FALSE(row.isInTidewatchSubtree);
  }
  EXPECT_EQ(rowOnPort(result, 3000).focusTarget, (FocusTarget{100, "gnome-terminal-server"}));
  EXPECT_EQ(rowOnPort(result, 3000).project, (ListenerProject{"site", "/home/dev/site"}));

  ASSERT_EQ(result.agentPresence.entries.size(), 1u);
  EXPECT_EQ(result.agentPresence.claudeCount(), 1);
  EXPECT_EQ(result.agentPresence.entries[0].projectName, "site");
  EXPECT_EQ(result.agentPresence.entries[0].detectedAt, world.now);

  world.selfPID = 101;
  EXPECT_TRUE(rowOnPort(PortEngine(world.dependencies()).scan(true), 3000).isInTidewatchSubtree);
}

TEST_F(PortEngineAgentWorld, EachPidIsReadAtMostOncePerScan) {
  // A second listener below the same chain walks the same ancestors again.
  world.add(105, 103, "/usr/local/bin/python3");
  world.listen(105, 8000);
  world.add(106, 1, "/opt/lonely");
  world.listen(106, 9000);
  PortEngine(world.dependencies()).scan(true);
  for (const auto& [pid, reads] : world.detectionReads) EXPECT_LE(reads, 1) << "pid " << pid;
  EXPECT_EQ(world.detectionReads.count(1), 0u) << "walks never enter pid 1";
}

TEST_F(PortEngineAgentWorld, AgentWhoseIdentityCannotBeConfirmedLosesOnlyTheAttribution) {
  world.listen(102, 7000);
  world.identityUnreadable = {102};
  const auto result = PortEngine(world.dependencies()).scan(true);
  const auto& row = rowOnPort(result, 7000);
  EXPECT_EQ(row.agentOrigin, std::nullopt);
  EXPECT_EQ(row.agentProcess, std::nullopt);
  EXPECT_EQ(row.host, AgentHost{HostAppKind::terminal});
  EXPECT_EQ(row.project->name, "site");
}

TEST(PortEngineLiveChecks, PoolMembersAreFoundAfreshAndShellsAreLeftOut) {
  FakeProcessWorld world;
  world.uid = static_cast<uint32_t>(getuid());  // members must be actionable for the real user
  world.add(60, 1, "/opt/web/master");
  for (int32_t pid : {61, 62}) {
    world.add(pid, 60, "/opt/web/worker");
    world.listen(pid, 8000, "0.0.0.0");
  }
  world.add(64, 60, "/opt/web/worker");  // same binary, another port
  world.listen(64, 8001, "0.0.0.0");
  world.add(65, 60, "/bin/bash");  // a shell holding the socket
  world.listen(65, 8000, "0.0.0.0");
  const PortEngine engine(world.dependencies());
  const WorkerPoolCollapser::Signals signals{8000, BindSignature::make({{"0.0.0.0", AddressFamily::ipv4, 8000}}),
                                             "/opt/web/worker", ProcessIdentity{60, 100, 0}, world.uid};
  EXPECT_EQ(engine.poolMemberIdentities(signals), (std::vector<ProcessIdentity>{{61, 100, 0}, {62, 100, 0}}));

  world.restart(60, 555);  // the parent was replaced: nothing matches any more
  EXPECT_TRUE(PortEngine(world.dependencies()).poolMemberIdentities(signals).empty());
}

TEST(PortEngineLiveChecks, ResolveLiveProcessCarriesTheSystemFlag) {
  FakeProcessWorld world;
  world.add(40, 1, "/usr/sbin/daemon");
  world.strongSystemPaths = {"/usr/sbin/daemon"};
  const PortEngine engine(world.dependencies());
  auto live = engine.resolveLiveProcess(40).process;
  ASSERT_TRUE(live.has_value());
  EXPECT_TRUE(live->appleSystemBinary);
  EXPECT_FALSE(live->snapshot.argv.has_value());
  EXPECT_FALSE(engine.resolveLiveProcess(41).process.has_value());
  EXPECT_EQ(engine.resolveLiveProcess(41).error, 0) << "gone";
}

TEST(PortEngineTest, OtherUsersListenersAreCarriedByPortThenAddressWithTheirNames) {
  FakeProcessWorld world;
  world.add(52, 1, "/opt/app/server");
  world.listen(52, 3000);
  world.ownedSockets = {{{5432, AddressFamily::ipv6, "::1"}, 101},
                        {{5432, AddressFamily::ipv4, "127.0.0.1"}, 101},
                        {{80, AddressFamily::ipv4, "0.0.0.0"}, 0},
                        {{3000, AddressFamily::ipv4, "127.0.0.1"}, world.uid},
                        {{9000, AddressFamily::ipv4, "0.0.0.0"}, 4242}};
  world.userNames = {{101, "postgres"}, {0, "root"}};
  const auto result = PortEngine(world.dependencies()).scan(false);
  EXPECT_EQ(result.otherUserListeners, (std::vector<OtherUserListener>{
                                           {80, AddressFamily::ipv4, "0.0.0.0", 0, "root"},
                                           {5432, AddressFamily::ipv4, "127.0.0.1", 101, "postgres"},
                                           {5432, AddressFamily::ipv6, "::1", 101, "postgres"},
                                           {9000, AddressFamily::ipv4, "0.0.0.0", 4242, "4242"},
                                       }));
  ASSERT_EQ(result.listeners.size(), 1u) << "they never become rows";
}

}  // namespace
}  // namespace tidewatch
