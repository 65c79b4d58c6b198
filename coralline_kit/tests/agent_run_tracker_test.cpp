#include "coralline_kit/agent_run_tracker.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tidewatch {
namespace {

using Look = std::vector<AgentObservation>;
constexpr auto codex = AgentKind::codex;
constexpr auto claude = AgentKind::claude;

ProcessIdentity id(int32_t pid) { return {pid, 1000u + static_cast<uint64_t>(pid), 7}; }

AgentObservation agent(int32_t pid, AgentKind kind, bool working, std::optional<int32_t> parent = std::nullopt,
                       std::optional<HostAppKind> host = std::nullopt) {
  AgentObservation observation;
  observation.identity = id(pid);
  observation.kind = kind;
  observation.isWorking = working;
  if (parent) observation.parentIdentity = id(*parent);
  observation.host = host;
  return observation;
}
AgentObservation busy(int32_t pid, AgentKind kind = claude) { return agent(pid, kind, true); }
AgentObservation quiet(int32_t pid, AgentKind kind = claude) { return agent(pid, kind, false); }

// "provider pid state" for every run in display order, then "| finished ..." when runs ended.
std::string describe(const AgentRunTracker& tracker, const AgentRunTracker::Update& update) {
  std::vector<AgentRun> runs;
  for (const auto& [key, run] : tracker.runs()) runs.push_back(run);
  sortRuns(runs);
  std::string text;
  const auto add = [&](const AgentRun& run) {
    if (!text.empty() && text.back() != ' ') text += ", ";
    text += std::string(rawValue(run.provider)) + " " + std::to_string(run.identity.process.pid) + " " +
            std::string(rawValue(run.state));
  };
  for (const auto& run : runs) add(run);
  if (!update.finished.empty()) text += text.empty() ? "| " : " | ";
  for (const auto& run : update.finished) add(run);
  return text;
}

struct Sequence {
  const char* what;
  std::vector<Look> looks;
  std::vector<std::string> after;  // the description after each look
};

TEST(AgentRunTracker, SequencesOfLooksMoveRunsThroughTheirStates) {
  const std::vector<Sequence> sequences = {
      {"a busy agent counts at its second working look",
       {{quiet(1)}, {busy(1)}, {busy(1)}},
       {"claude 1 candidate", "claude 1 candidate", "claude 1 active"}},
      {"a quiet look resets a candidate",
       {{busy(1)}, {quiet(1)}, {busy(1)}, {busy(1)}},
       {"claude 1 candidate", "claude 1 candidate", "claude 1 candidate", "claude 1 active"}},
      {"four quiet looks keep it active, the fifth makes it idle, one working look wakes it",
       {{busy(1)}, {busy(1)}, {quiet(1)}, {quiet(1)}, {quiet(1)}, {quiet(1)}, {quiet(1)}, {quiet(1)}, {busy(1)}},
       {"claude 1 candidate", "claude 1 active", "claude 1 active", "claude 1 active", "claude 1 active",
        "claude 1 active", "claude 1 idle", "claude 1 idle", "claude 1 active"}},
      {"a working look restarts the quiet count",
       {{busy(1)}, {busy(1)}, {quiet(1)}, {quiet(1)}, {quiet(1)}, {quiet(1)}, {busy(1)}, {quiet(1)}, {quiet(1)},
        {quiet(1)}, {quiet(1)}},
       {"claude 1 candidate", "claude 1 active", "claude 1 active", "claude 1 active", "claude 1 active",
        "claude 1 active", "claude 1 active", "claude 1 active", "claude 1 active", "claude 1 active",
        "claude 1 active"}},
      {"active and idle runs that end are finished; a candidate leaves no trace",
       {{busy(1), busy(2, codex), busy(3)}, {busy(1), busy(2, codex)}, {quiet(2, codex)}, {}},
       {"codex 2 candidate, claude 1 candidate, claude 3 candidate", "codex 2 active, claude 1 active",
        "codex 2 active | claude 1 finished", "| codex 2 finished"}},
      {"an idle run that ends is finished",
       {{busy(1)}, {busy(1)}, {quiet(1)}, {quiet(1)}, {quiet(1)}, {quiet(1)}, {quiet(1)}, {}},
       {"claude 1 candidate", "claude 1 active", "claude 1 active", "claude 1 active", "claude 1 active",
        "claude 1 active", "claude 1 idle", "| claude 1 finished"}},
      {"a working child makes its same-kind root working, and the tree is one run",
       {{quiet(1), agent(2, claude, true, 1), agent(3, claude, true, 2)},
        {quiet(1), agent(2, claude, false, 1), agent(3, claude, true, 2)}},
       {"claude 1 candidate", "claude 1 active"}},
      {"a parent of the other kind is no parent: two runs, each on its own CPU",
       {{busy(1, codex), agent(2, claude, false, 1)}, {busy(1, codex), agent(2, claude, false, 1)}},
       {"codex 1 candidate, claude 2 candidate", "codex 1 active, claude 2 candidate"}},
      {"two processes that are each other's parent both stay roots",
       {{agent(1, claude, true, 2), agent(2, claude, false, 1)}, {agent(1, claude, true, 2), agent(2, claude, false, 1)}},
       {"claude 1 candidate, claude 2 candidate", "claude 1 active, claude 2 candidate"}},
      {"a process that leads into a loop is a root as well",
       {{agent(1, claude, false, 2), agent(2, claude, false, 3), agent(3, claude, false, 2)}},
       {"claude 1 candidate, claude 2 candidate, claude 3 candidate"}},
      {"the later of two equal observations wins",
       {{quiet(1), busy(1)}, {quiet(1), busy(1)}},
       {"claude 1 candidate", "claude 1 active"}},
  };
  for (const auto& sequence : sequences) {
    SCOPED_TRACE(sequence.what);
    ASSERT_EQ(sequence.looks.size(), sequence.after.size());
    AgentRunTracker tracker;
    for (size_t look = 0; look < sequence.looks.size(); ++look) {
      const auto update = tracker.observe(sequence.looks[look]);
      EXPECT_EQ(describe(tracker, update), sequence.after[look]) << "after look " << look + 1;
    }
  }
}

TEST(AgentRunTracker, TheHostDecidesTheProviderAndAVanishedHostKeepsTheLastOne) {
  struct Case {
    AgentKind detected;
    std::vector<std::optional<HostAppKind>> hosts;  // one look each
    AgentKind shown;
  };
  const std::vector<Case> cases = {
      {claude, {HostAppKind::chatgpt}, codex},
      {codex, {HostAppKind::claudeDesktop}, claude},
      {codex, {std::nullopt}, codex},
      {claude, {HostAppKind::chatgpt, std::nullopt}, codex},
      {claude, {HostAppKind::chatgpt, HostAppKind::terminal}, claude},
  };
  for (const auto& c : cases) {
    AgentRunTracker tracker;
    for (const auto& host : c.hosts) tracker.observe({agent(1, c.detected, true, std::nullopt, host)});
    const auto& run = tracker.runs().at(AgentRunIdentity{id(1), c.detected});
    EXPECT_EQ(run.provider, c.shown) << rawValue(c.detected) << " after " << c.hosts.size() << " looks";
    EXPECT_EQ(run.detectedKind(), c.detected);
    EXPECT_EQ(run.host, c.hosts.back());
  }
}

TEST(AgentRunTracker, CountedRunsAreSortedAndACandidateIsOpenButNotCounted) {
  AgentRunTracker tracker;
  const Look look = {busy(9, claude), busy(5, claude), busy(7, codex), quiet(3, codex)};
  tracker.observe(look);
  EXPECT_TRUE(tracker.hasOpenRun());
  EXPECT_TRUE(tracker.countedRuns().empty());
  tracker.observe(look);
  std::vector<int32_t> order;
  for (const auto& run : tracker.countedRuns()) order.push_back(run.identity.process.pid);
  EXPECT_EQ(order, (std::vector<int32_t>{7, 5, 9}));

  const auto update = tracker.observe({});
  EXPECT_EQ(update.finished.size(), 3u) << "an empty look finishes every counted run";
  EXPECT_FALSE(tracker.hasOpenRun());
  EXPECT_TRUE(tracker.runs().empty());
}

}  // namespace
}  // namespace tidewatch
