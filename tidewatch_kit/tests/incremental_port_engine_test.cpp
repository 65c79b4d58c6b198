// The incremental engine against a cold one over the same changing fake world, and what it
// spares: descriptor walks and agent reads of processes that did not change.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "tidewatch_kit/port_engine.h"
#include "tidewatch_kit/socket_owner_map.h"
#include "tidewatch_kit/tests/fake_process_world.h"

namespace tidewatch {
namespace {

using testing::FakeProcessWorld;

// What a scan says, beside when it was taken.
struct Said {
  std::vector<PortListener> listeners;
  AgentProcessPresenceSnapshot agents;
  int processCount = 0;
  std::vector<OtherUserListener> others;
  friend bool operator==(const Said&, const Said&) = default;
};
Said rows(const ScanResult& result) {
  return {result.listeners, result.agentPresence, result.processCount, result.otherUserListeners};
}

struct IncrementalEngineTest : ::testing::Test {
  FakeProcessWorld world;
  PortEngine cold{world.dependencies()};
  PortEngine incremental = PortEngine::incremental(world.dependencies());

  void SetUp() override {
    for (int32_t pid = 100; pid < 140; ++pid) world.add(pid, 1, "/usr/bin/idle" + std::to_string(pid));
    world.add(200, 1, "/usr/bin/python3");
    world.listen(200, 8000);
    world.add(300, 1, "/usr/sbin/sshd", 100, 0);
    world.ownedSockets.push_back({{22, AddressFamily::ipv4, "0.0.0.0"}, 0});
  }

  // One second later, both engines scan; the incremental one must agree.
  void step() {
    world.now += std::chrono::seconds(1);
    const auto expected = rows(cold.scan(true));
    world.descriptorWalks.clear();
    world.presenceReads.clear();
    world.descriptorReads = 0;
    EXPECT_TRUE(rows(incremental.scan(true)) == expected);
  }
  int walks() const {
    int total = 0;
    for (const auto& [pid, count] : world.descriptorWalks) total += count;
    return total;
  }
};

TEST_F(IncrementalEngineTest, AgreesWithAColdScanThroughEveryChange) {
  struct Change {
    const char* what;
    std::function<void(FakeProcessWorld&)> apply;
    int walks;  // descriptor walks the incremental scan makes
  };
  const Change changes[] = {
      {"nothing", [](FakeProcessWorld&) {}, 0},
      {"a new process listens", [](FakeProcessWorld& w) { w.add(400, 1, "/usr/bin/node"); w.listen(400, 3000); },
       1},
      {"a process seen before listens late", [](FakeProcessWorld& w) { w.listen(120, 9000); }, 43},
      {"a worker pool forks", [](FakeProcessWorld& w) {
         for (int32_t pid = 401; pid < 404; ++pid) {
           w.add(pid, 400, "/usr/bin/node");
           w.share(400, 3000, pid);
         }
       }, 3},
      {"a worker exits", [](FakeProcessWorld& w) { w.exit(402); }, 0},
      {"a listener closes", [](FakeProcessWorld& w) { w.close(120, 9000); }, 0},
      {"a holder's pid is reused", [](FakeProcessWorld& w) { w.restart(200, 900); }, 1},
      {"a holder closes its socket while a sibling keeps it", [](FakeProcessWorld& w) { w.close(401, 3000); }, 1},
      {"another user's server starts", [](FakeProcessWorld& w) {
         w.ownedSockets.push_back({{5432, AddressFamily::ipv4, "127.0.0.1"}, 105});
       }, 45},
      {"nothing again: the unplaceable socket is not looked for twice", [](FakeProcessWorld&) {}, 0},
  };
  step();
  for (const Change& change : changes) {
    SCOPED_TRACE(change.what);
    change.apply(world);
    step();
    EXPECT_EQ(walks(), change.walks);
  }
}

TEST_F(IncrementalEngineTest, ASocketPassedToAProcessSeenBeforeShowsFromTheNextCompleteWalk) {
  step();
  world.share(200, 8000, 110);  // handed over a Unix socket: no new listener anywhere
  world.now += std::chrono::seconds(1);
  const auto passed = rows(cold.scan(true));
  EXPECT_FALSE(rows(incremental.scan(true)) == passed);
  for (int second = 2; second < SocketOwnerMap::safetyNetInterval.count(); ++second) {
    world.now += std::chrono::seconds(1);
    (void)incremental.scan(true);
  }
  step();
  EXPECT_EQ(walks(), 42);
}

TEST_F(IncrementalEngineTest, UnchangedProcessesAreNotReadAgainForAgents) {
  step();
  EXPECT_TRUE(world.presenceReads.contains(110));  // the first scan reads everyone
  step();
  EXPECT_FALSE(world.presenceReads.contains(110));
  world.add(500, 1, "/usr/bin/bash");
  step();
  EXPECT_TRUE(world.presenceReads.contains(500));
  EXPECT_FALSE(world.presenceReads.contains(110));
  EXPECT_EQ(world.descriptorReads, 1);  // the python server's one descriptor, checked
}

TEST_F(IncrementalEngineTest, APauseLongerThanAReusedPidCouldHideInWalksEverything) {
  step();
  world.now += SocketOwnerMap::longestPause + std::chrono::seconds(1);
  const auto expected = rows(cold.scan(true));
  world.descriptorWalks.clear();
  EXPECT_TRUE(rows(incremental.scan(true)) == expected);
  EXPECT_EQ(walks(), 42);
}

TEST_F(IncrementalEngineTest, AnEmptyProcessListFailsTheScanAsAColdOneDoes) {
  FakeProcessWorld empty;
  const auto engine = PortEngine::incremental(empty.dependencies());
  EXPECT_TRUE(engine.isIncremental());
  EXPECT_THROW((void)engine.scan(false), ScanError);
}

}  // namespace
}  // namespace tidewatch
