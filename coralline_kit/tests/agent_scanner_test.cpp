#include "coralline_kit/agent_scanner.h"

#include <gtest/gtest.h>

#include <functional>
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

// A process table that changes between looks: each process has a start time, a short name, an
// executable, argv and a parent, and the world counts the full detection reads.
struct ChangingWorld {
  struct Process {
    uint64_t started;
    std::string name, executable;
    std::vector<std::string> argv;
    int32_t parent;
  };
  std::map<int32_t, Process> table = {
      {10, {1, "gnome-terminal-", "/usr/bin/gnome-terminal-server", {}, 1}},
      {20, {2, "bash", "/usr/bin/bash", {}, 10}},
      {21, {3, "claude", "/opt/x/claude", {"claude"}, 20}},
      {22, {4, "bash", "/usr/bin/bash", {}, 21}},
      {30, {5, "node", "/usr/bin/node", {"node", "server.js"}, 20}},
      {40, {6, "vim", "/usr/bin/vim", {}, 20}},
  };
  int detectionReads = 0;

  AgentScannerDependencies dependencies() {
    AgentScannerDependencies d;
    d.allPIDs = [this] {
      std::vector<int32_t> pids;
      for (const auto& [pid, process] : table) pids.push_back(pid);
      return pids;
    };
    d.currentUID = [] { return me; };
    d.statSnapshot = [this](int32_t pid) -> std::optional<ProcessSnapshot> {
      const auto found = table.find(pid);
      if (found == table.end()) return std::nullopt;
      ProcessSnapshot snapshot;
      snapshot.identity = {pid, found->second.started, 0};
      snapshot.name = found->second.name;
      snapshot.parentPID = found->second.parent;
      return snapshot;
    };
    d.detectionSnapshot = [this, stat = d.statSnapshot](int32_t pid, uint32_t) {
      ++detectionReads;
      auto snapshot = stat(pid);
      if (!snapshot) return snapshot;
      const auto& process = table.at(pid);
      snapshot->executablePath = process.executable;
      if (!process.argv.empty()) snapshot->argv = process.argv;
      snapshot->uid = me;
      snapshot->sameUser = true;
      return snapshot;
    };
    d.activitySnapshot = [](const ProcessSnapshot&, uint32_t) { return std::nullopt; };
    return d;
  }
};

TEST(AgentScanner, KeptRecordsGiveWhatAFullReadGivesWithOneStatReadPerUnchangedProcess) {
  struct Step {
    const char* change;
    std::function<void(ChangingWorld&)> apply;
    std::chrono::seconds at;
    int detectionReads;
    bool sameAsFullRead;
  };
  const std::vector<Step> steps = {
      {"the first look reads everything", [](ChangingWorld&) {}, 0s, 6, true},
      {"nothing changed", [](ChangingWorld&) {}, 5s, 0, true},
      {"a claude starts in a new terminal tab",
       [](ChangingWorld& w) { w.table[50] = {7, "claude", "/opt/x/claude", {"claude"}, 10}; }, 10s, 1, true},
      {"a shell execs codex: the kernel renames it",
       [](ChangingWorld& w) { w.table[22] = {4, "codex", "/opt/x/codex", {"codex"}, 21}; }, 11s, 1, true},
      {"the shell under the first claude exits: claude is reparented",
       [](ChangingWorld& w) {
         w.table.erase(20);
         w.table[21].parent = 1;
       },
       12s, 0, true},
      {"a pid comes back as another process",
       [](ChangingWorld& w) { w.table[40] = {8, "vim", "/usr/bin/vim", {}, 10}; }, 13s, 1, true},
      {"node execs node running the claude script: same name, told only by a reread",
       [](ChangingWorld& w) { w.table[30].argv = {"node", "/opt/x/claude"}; }, 14s, 0, false},
      {"still within the reread interval of the records", [](ChangingWorld&) {}, 29s, 0, false},
      {"the first records are read again", [](ChangingWorld&) {}, 30s, 3, true},
      {"and the later ones", [](ChangingWorld&) {}, 43s, 3, true},
      {"a clock set back rereads everything", [](ChangingWorld&) {}, 20s, 6, true},
  };
  ChangingWorld world;
  AgentDetectionRecords records;
  const auto d = world.dependencies();
  for (const auto& step : steps) {
    step.apply(world);
    world.detectionReads = 0;
    const auto kept = AgentScanner::scanLightweight(d, {}, t0 + step.at, records);
    EXPECT_EQ(world.detectionReads, step.detectionReads) << step.change;
    EXPECT_EQ(records.size(), world.table.size()) << step.change;

    const auto full = AgentScanner::scanLightweight(d, {}, t0 + step.at);
    EXPECT_EQ(kept.observations == full.observations, step.sameAsFullRead) << step.change;
  }
}

}  // namespace
}  // namespace tidewatch
