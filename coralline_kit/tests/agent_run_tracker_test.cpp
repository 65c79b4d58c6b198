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
  return {id(pid), kind, host, parent ? std::optional(id(*parent)) : std::nullopt, working};
}
AgentObservation busy(int32_t pid, AgentKind kind = claude) { return agent(pid, kind, true); }

// One claude agent per look: B working, q quiet, - not seen. After each look: the first letter
// of its run's state, - for no run, F for a run reported finished at that look.
TEST(AgentRunTracker, OneAgentsRunMovesThroughItsStatesWithHysteresis) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"qBB", "cca"},                  // counts at its second working look
      {"BqBB", "ccca"},                // a quiet look resets a candidate
      {"BBqqqqqqB", "caaaaaiia"},      // four quiet looks keep it active, the fifth makes it idle, one wakes it
      {"BBqqqqBqqqq", "caaaaaaaaaa"},  // a working look restarts the quiet count
      {"BB-", "caF"},                  // an active run that ends is finished
      {"BBqqqqq-", "caaaaaiF"},        // so is an idle one
      {"B-B", "c-c"},                  // a candidate that ends leaves no trace, and starts over
  };
  for (const auto& [looks, expected] : cases) {
    AgentRunTracker tracker;
    std::string states;
    for (char look : looks) {
      const auto update = tracker.observe(look == '-' ? Look{} : Look{agent(1, claude, look == 'B')});
      if (!update.finished.empty()) {
        states += update.finished.front().state == AgentRunState::finished ? 'F' : '?';
      } else {
        states += tracker.runs().empty() ? '-' : rawValue(tracker.runs().begin()->second.state)[0];
      }
    }
    EXPECT_EQ(states, expected) << looks;
  }
}

// The counted runs as "provider pid state[@host] " in display order, "| " and the runs finished
// at the look, and "(open)" while any run is open.
std::string describe(const AgentRunTracker& tracker, const AgentRunTracker::Update& update) {
  std::string text;
  const auto add = [&text](const std::vector<AgentRun>& runs) {
    for (const auto& run : runs) {
      text += std::string(rawValue(run.provider)) + " " + std::to_string(run.identity.process.pid) + " " +
              std::string(rawValue(run.state)) + (run.host ? "@" + std::string(rawValue(*run.host)) : "") + " ";
    }
  };
  add(tracker.countedRuns());
  if (!update.finished.empty()) text += "| ";
  add(update.finished);
  return tracker.hasOpenRun() ? text + "(open)" : text;
}

TEST(AgentRunTracker, AgentsFoldIntoOneRunPerSameProviderTree) {
  struct Sequence {
    const char* what;
    std::vector<Look> looks;
    std::vector<std::string> after;  // the description after each look
  };
  const std::vector<Sequence> sequences = {
      {"candidates are open, not counted; ended counted runs are finished, an ended candidate leaves no trace",
       {{busy(9), busy(5), busy(7, codex), agent(3, codex, false)}, {busy(9), busy(5), busy(7, codex)},
        {agent(7, codex, false)}, {}},
       {"(open)", "codex 7 active claude 5 active claude 9 active (open)",
        "codex 7 active | claude 5 finished claude 9 finished (open)", "| codex 7 finished "}},
      {"a working child makes its same-kind root working, and the tree is one run",
       {{agent(1, claude, false), agent(2, claude, true, 1), agent(3, claude, true, 2)},
        {agent(1, claude, false), agent(2, claude, false, 1), agent(3, claude, true, 2)}},
       {"(open)", "claude 1 active (open)"}},
      {"a parent of the other kind is no parent: two runs, each on its own CPU",
       {{agent(1, codex, false), agent(2, claude, true, 1)}, {agent(1, codex, false), agent(2, claude, true, 1)}},
       {"(open)", "claude 2 active (open)"}},
      {"two processes that are each other's parent both stay roots, each on its own CPU",
       {{agent(1, claude, true, 2), agent(2, claude, false, 1)}, {agent(1, claude, true, 2), agent(2, claude, false, 1)}},
       {"(open)", "claude 1 active (open)"}},
      {"a process that leads into a loop is a root as well",
       {{agent(1, claude, true, 2), agent(2, claude, true, 3), agent(3, claude, true, 2)},
        {agent(1, claude, true, 2), agent(2, claude, true, 3), agent(3, claude, true, 2)}},
       {"(open)", "claude 1 active claude 2 active claude 3 active (open)"}},
      {"the host decides the provider, and a vanished host keeps the last one",
       {{agent(1, claude, true, {}, HostAppKind::chatgpt), agent(2, codex, true, {}, HostAppKind::claudeDesktop)},
        {busy(1), busy(2, codex)}, {agent(1, claude, true, {}, HostAppKind::terminal), busy(2, codex)}},
       {"(open)", "codex 1 active claude 2 active (open)", "claude 1 active@terminal claude 2 active (open)"}},
      {"the later of two equal observations wins",
       {{agent(1, claude, false), busy(1)}, {agent(1, claude, false), busy(1)}},
       {"(open)", "claude 1 active (open)"}},
  };
  for (const auto& sequence : sequences) {
    SCOPED_TRACE(sequence.what);
    AgentRunTracker tracker;
    for (size_t look = 0; look < sequence.looks.size(); ++look) {
      EXPECT_EQ(describe(tracker, tracker.observe(sequence.looks[look])), sequence.after.at(look)) << look + 1;
    }
  }
}

}  // namespace
}  // namespace tidewatch
