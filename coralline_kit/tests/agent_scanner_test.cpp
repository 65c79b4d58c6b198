#include "coralline_kit/agent_scanner.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
constexpr uint32_t me = 501;
const Date t0 = Date(std::chrono::seconds(1'800'000'000));

ProcessIdentity id(int32_t pid) { return {pid, 100u + static_cast<uint64_t>(pid), 0}; }

// terminal 10 > claude 20 > bash 21, claude 22 and codex 30; an editor 40 and another user's
// claude 50 beside them; pid 60 is enumerated but can't be read. CPU counters are set per look,
// and the world records whose activity was read.
struct World {
  std::vector<int32_t> pids = {10, 20, 21, 22, 30, 40, 50, 60};
  std::map<int32_t, uint64_t> cpuNanos;
  std::set<int32_t> activityRead;

  AgentScanner::Result look(const AgentActivitySamples& previous, Date now) {
    static const std::map<int32_t, std::pair<const char*, int32_t>> table = {
        {10, {"gnome-terminal-server", 1}}, {20, {"claude", 10}}, {21, {"bash", 20}}, {22, {"claude", 20}},
        {30, {"codex", 20}},                {40, {"vim", 10}},    {50, {"claude", 1}}};
    AgentScannerDependencies d;
    d.allPIDs = [this] { return pids; };
    d.currentUID = [] { return me; };
    d.detectionSnapshot = [](int32_t pid, uint32_t) -> std::optional<ProcessSnapshot> {
      auto found = table.find(pid);
      if (found == table.end()) return std::nullopt;
      ProcessSnapshot snapshot;
      snapshot.identity = id(pid);
      snapshot.name = found->second.first;
      snapshot.executablePath = std::string("/opt/bin/") + found->second.first;
      snapshot.parentPID = found->second.second;
      snapshot.uid = pid == 50 ? 0 : me;
      snapshot.sameUser = pid != 50;
      return snapshot;
    };
    d.activitySnapshot = [this](ProcessSnapshot snapshot, uint32_t uid) -> std::optional<ProcessSnapshot> {
      EXPECT_EQ(uid, me);
      activityRead.insert(snapshot.identity.pid);
      auto cpu = cpuNanos.find(snapshot.identity.pid);
      if (cpu == cpuNanos.end()) return std::nullopt;
      snapshot.cpuTimeNanos = cpu->second;
      return snapshot;
    };
    return AgentScanner::scanLightweight(d, previous, now);
  }
};

std::map<int32_t, AgentObservation> byPid(const AgentScanner::Result& result) {
  std::map<int32_t, AgentObservation> observations;
  for (const auto& observation : result.observations) observations.emplace(observation.identity.pid, observation);
  return observations;
}

TEST(AgentScanner, ReadsActivityOnlyInsideAgentTreesAndCountsEveryPID) {
  World world;
  world.cpuNanos = {{20, 1}, {21, 1}, {30, 1}};  // 22 unreadable now: keeps its detection snapshot
  const auto result = world.look({}, t0);
  EXPECT_EQ(world.activityRead, (std::set<int32_t>{20, 21, 22, 30}));
  EXPECT_EQ(result.processCount, 8);
  EXPECT_EQ(result.nextSamples.size(), 3u);
  const auto seen = byPid(result);

  EXPECT_EQ(seen.size(), 3u) << "another user's claude is no agent";
  EXPECT_EQ(seen.at(20).host, HostAppKind::terminal);
  EXPECT_EQ(seen.at(20).parentIdentity, id(10));
  EXPECT_FALSE(seen.at(20).isWorking) << "a first look has no previous sample";
  EXPECT_EQ(seen.at(22).parentIdentity, id(20));

  world.pids.clear();
  EXPECT_THROW(world.look({}, t0), ScanError) << "an empty process list is the one failure";
}

TEST(AgentScanner, ATreeIsWorkingFromTenPercentOfOneCoreSummedOverItsProcesses) {
  struct Case {
    uint64_t rootNanos, childNanos, nestedAgentNanos, codexNanos;  // CPU over one second
    bool rootWorking, codexWorking;
  };
  const std::vector<Case> cases = {
      {99'900'000, 0, 0, 100'000'000, false, true},  // 9.99% is quiet, 10.0% working
      {40'000'000, 60'000'000, 0, 0, true, false},   // the child's CPU counts for the tree
      {0, 0, 100'000'000, 0, true, false},           // so does a nested same-kind agent's
      {0, 0, 0, 99'999'999, false, false},
  };
  for (const auto& c : cases) {
    World world;
    world.cpuNanos = {{20, 0}, {21, 0}, {22, 0}, {30, 0}};
    const auto first = world.look({}, t0);
    world.cpuNanos = {{20, c.rootNanos}, {21, c.childNanos}, {22, c.nestedAgentNanos}, {30, c.codexNanos}};
    const auto second = byPid(world.look(first.nextSamples, t0 + 1s));
    EXPECT_EQ(second.at(20).isWorking, c.rootWorking) << c.rootNanos << " " << c.childNanos;
    EXPECT_EQ(second.at(30).isWorking, c.codexWorking) << c.codexNanos;
    EXPECT_FALSE(second.at(22).isWorking) << "an agent below its root is never working by itself";
  }
}

}  // namespace
}  // namespace tidewatch
