#include "inventory/agent_inventory_coordinator.h"

#include <gtest/gtest.h>

#include <mutex>

#include "inventory/tests/inventory_script.h"

namespace tidewatch {
namespace {

using namespace testing;
using namespace std::chrono_literals;

// A coordinator on a manual executor, whose background work runs only when told.
class CoordinatorTest : public ::testing::Test {
 protected:
  CoordinatorTest() {
    AgentInventoryCoordinator::Dependencies d;
    d.now = [this] { return now; };
    d.isProcessCurrent = [this](const ProcessIdentity& identity) {
      std::lock_guard lock(mutex);
      probed.push_back(identity);
      return current.contains(identity.pid);
    };
    d.runInBackground = [this](std::function<void()> work) {
      std::lock_guard lock(mutex);
      background.push_back(std::move(work));
    };
    coordinator = std::make_unique<AgentInventoryCoordinator>(executor, d);
    coordinator->onSnapshotPublished = [this] { published.push_back(rows(coordinator->snapshot())); };
    coordinator->onCompletionEdges = [this](const std::vector<AgentCompletionEdge>& edges) {
      for (const auto& edge : edges) handedOut.push_back(describe(edge.sessionID));
    };
  }

  void runBackground() {
    std::vector<std::function<void()>> work;
    {
      std::lock_guard lock(mutex);
      work.swap(background);
    }
    for (auto& job : work) job();
  }

  void event(EventKind kind, const std::string& session, Reducer::HookOrigin origin = {}, Date at = {}) {
    coordinator->applyHookEnvelope(envelope(kind, session), origin, at == Date{} ? now : at);
  }

  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
  Date now = at(1000);
  std::mutex mutex;
  std::vector<std::function<void()>> background;
  std::vector<ProcessIdentity> probed;
  std::set<int32_t> current;
  std::unique_ptr<AgentInventoryCoordinator> coordinator;
  std::vector<std::vector<std::string>> published;
  std::vector<std::string> handedOut;
};

const ProcessIdentity shell{900, 1'700'000'900, 0};

TEST_F(CoordinatorTest, ASlowProbeDelaysLaterStepsButNeverReordersThem) {
  event(EventKind::promptSubmitted, "r", from(std::nullopt, {}, shell));
  EXPECT_TRUE(coordinator->snapshot().sessions.empty()) << "nothing applies before the main executor runs";
  executor->runUntilIdle();
  ASSERT_EQ(published.size(), 1u);

  ScanResult scan;
  scan.scannedAt = now;
  coordinator->applyScan(scan);
  size_t publishedWhenSettled = 0;
  coordinator->whenSettled([&] { publishedWhenSettled = published.size(); });
  event(EventKind::promptSubmitted, "after");
  executor->runUntilIdle();
  EXPECT_EQ(published.size(), 1u) << "the scan waits for its probe, and the event waits behind it";
  EXPECT_EQ(publishedWhenSettled, 0u) << "settled only once the scan applied";
  ASSERT_EQ(background.size(), 1u);

  runBackground();  // the shell has gone
  EXPECT_EQ(probed, std::vector<ProcessIdentity>{shell});
  executor->runUntilIdle();
  EXPECT_EQ(publishedWhenSettled, 2u) << "after the scan, before the event queued behind it";
  ASSERT_EQ(published.size(), 3u);
  EXPECT_EQ(published[1], std::vector<std::string>{"hook:r finished hook claude"}) << "the scan first";
  EXPECT_EQ(published[2], (std::vector<std::string>{"hook:after working hook claude", "hook:r finished hook claude"}));
  EXPECT_EQ(handedOut, std::vector<std::string>{"hook:r"});
  EXPECT_EQ(coordinator->snapshot().freshness, InventoryFreshness::live());
}

TEST_F(CoordinatorTest, ShutDownDuringAProbeVoidsTheScanAndAllThatIsQueued) {
  event(EventKind::promptSubmitted, "r", from(std::nullopt, {}, shell));
  executor->runUntilIdle();
  coordinator->applyScan(ScanResult{});
  executor->runUntilIdle();
  event(EventKind::promptSubmitted, "queued");
  bool settled = false;
  coordinator->whenSettled([&] { settled = true; });
  coordinator->shutDown();
  runBackground();
  executor->runUntilIdle();
  EXPECT_EQ(published.size(), 1u);
  EXPECT_FALSE(settled);
  EXPECT_EQ(rows(coordinator->snapshot()), std::vector<std::string>{"hook:r working hook claude"});
  coordinator->applyScanFailure();
  executor->runUntilIdle();
  EXPECT_EQ(published.size(), 1u) << "final";
}

TEST_F(CoordinatorTest, TheExpiryTimerFollowsTheNextDeadline) {
  event(EventKind::promptSubmitted, "s");
  event(EventKind::sessionEnded, "s");
  executor->runUntilIdle();
  EXPECT_EQ(handedOut, std::vector<std::string>{"hook:s"});
  EXPECT_EQ(executor->requestedDelays().back(), 30s) << "the finished row's expiry";
  EXPECT_EQ(executor->pendingCount(), 1u) << "one timer: the earlier one was cancelled";

  now += 30s;
  executor->advance(30s);
  EXPECT_TRUE(coordinator->snapshot().sessions.empty());
  EXPECT_EQ(executor->pendingCount(), 0u) << "nothing left to expire, no timer";
  EXPECT_EQ(handedOut.size(), 1u) << "an edge is handed out once";

  // An ending reported late has a deadline already past: it fires at once.
  event(EventKind::promptSubmitted, "late", {}, now - 100s);
  event(EventKind::sessionEnded, "late", {}, now - 100s);
  executor->runUntilIdle();
  EXPECT_TRUE(coordinator->snapshot().sessions.empty());
  EXPECT_EQ(executor->requestedDelays().back(), 0s);
}

TEST_F(CoordinatorTest, ConnectionsTrackingAndFailuresEachPublish) {
  coordinator->setProviderConnections({{AgentKind::claude, AgentProviderConnectionStatus::of({}), true}});
  coordinator->applyTrackingUpdate({{{agent(5), AgentKind::claude, true}}, {}, {}, std::nullopt});
  coordinator->applyScanFailure();
  executor->runUntilIdle();
  ASSERT_EQ(published.size(), 3u);
  EXPECT_EQ(published[1], std::vector<std::string>{"proc:5 working process claude"});
  EXPECT_EQ(coordinator->snapshot().providerConnections.size(), 1u);
  EXPECT_EQ(coordinator->snapshot().freshness, InventoryFreshness::stale(std::nullopt));
  EXPECT_EQ(coordinator->presentedProviderEvidence().at(agent(5)), AgentKind::claude);

  event(EventKind::promptSubmitted, "s", from(agent(5)));
  coordinator->providerDisconnected(AgentKind::claude);
  executor->runUntilIdle();
  EXPECT_EQ(published.back(), std::vector<std::string>{"proc:5 working process claude"});
}

// A process table for hook origins: a terminal, a shell, Claude Code with a sub-agent, and the
// hook's shell below it.
std::map<int32_t, ProcessSnapshot> table(std::initializer_list<std::tuple<int32_t, int32_t, std::string>> rows) {
  std::map<int32_t, ProcessSnapshot> processes;
  for (const auto& [pid, parent, path] : rows) {
    ProcessSnapshot snapshot;
    snapshot.identity = {pid, static_cast<uint64_t>(1'700'000'000 + pid), 0};
    snapshot.parentPID = parent;
    snapshot.executablePath = path;
    snapshot.name = lastPathComponent(path);
    snapshot.uid = 1000;
    snapshot.sameUser = true;
    processes.emplace(pid, snapshot);
  }
  return processes;
}

TEST(HookOrigins, WalkUpToTheSessionAndItsHostWithinNineReads) {
  const auto processes = table({{60, 1, "/usr/bin/xterm"},
                                {61, 60, "/usr/bin/bash"},
                                {62, 61, "/home/dev/.local/bin/claude"},
                                {63, 62, "/home/dev/.local/bin/claude"},
                                {64, 63, "/usr/bin/dash"}});
  int reads = 0;
  const auto read = [&](int32_t pid) -> std::optional<ProcessSnapshot> {
    ++reads;
    auto found = processes.find(pid);
    return found == processes.end() ? std::nullopt : std::optional(found->second);
  };
  const auto origin = AgentInventoryCoordinator::hookOrigin(64, read);
  EXPECT_EQ(origin.agentProcess, (AgentProcessIdentity{processes.at(62).identity, AgentKind::claude}))
      << "the sub-agent folds into its session";
  ASSERT_TRUE(origin.host.has_value());
  EXPECT_EQ(origin.host->kind, HostAppKind::terminal);
  EXPECT_EQ(origin.runtime, processes.at(64).identity);
  EXPECT_EQ(reads, 5);

  // No agent on the way: the host alone; a deep chain stops after 8 parents; a loop ends.
  std::map<int32_t, ProcessSnapshot> deep;
  for (int32_t pid = 100; pid < 130; ++pid) deep.merge(table({{pid, pid + 1, "/usr/bin/bash"}}));
  reads = 0;
  const auto deepRead = [&](int32_t pid) -> std::optional<ProcessSnapshot> {
    ++reads;
    auto found = deep.find(pid);
    return found == deep.end() ? std::nullopt : std::optional(found->second);
  };
  EXPECT_EQ(AgentInventoryCoordinator::hookOrigin(100, deepRead).agentProcess, std::nullopt);
  EXPECT_EQ(reads, 9);
  const auto loop = table({{70, 71, "/usr/bin/bash"}, {71, 70, "/usr/bin/xterm"}});
  const auto origin2 = AgentInventoryCoordinator::hookOrigin(70, [&](int32_t pid) -> std::optional<ProcessSnapshot> {
    return loop.at(pid);
  });
  EXPECT_EQ(origin2.agentProcess, std::nullopt);
  EXPECT_EQ(origin2.runtime, loop.at(70).identity);

  for (int32_t parent : {0, 1}) {
    EXPECT_EQ(AgentInventoryCoordinator::hookOrigin(parent, read), AgentInventoryCoordinator::HookOrigin{});
  }
}

}  // namespace
}  // namespace tidewatch
