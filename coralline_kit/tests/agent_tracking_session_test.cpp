#include "coralline_kit/agent_tracking_session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include "process_core/tests/support/session_test_support.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using testing::resultOf;
using testing::stillWaiting;
using Harness = testing::SessionHarness<AgentTrackingSession, AgentTrackingUpdate>;
using Calls = testing::PlannedOperation<AgentTrackingUpdate>::State;
using Look = std::optional<AgentTrackingUpdate>;  // absent: the refresh throws
const Date t0 = Date(std::chrono::seconds(1'800'000'000));

// All the cadence reads of a look: how many runs count, how many ended, whether one is open.
Look look(int counted, int finished, bool open) {
  AgentTrackingUpdate update;
  update.countedRuns.resize(static_cast<size_t>(counted));
  update.finished.resize(static_cast<size_t>(finished));
  update.hasOpenRun = open;
  return update;
}

TEST(AgentTrackingSession, TheCadenceFollowsTheRunsWithABurstAfterEveryChange) {
  struct Case {
    const char* what;
    bool lowPower;
    BatteryMode mode;
    std::vector<Look> looks;
    std::vector<SessionClock::Duration> sleeps;  // before every look but the first
  };
  const Look idle = look(0, 0, false), open = look(0, 0, true), one = look(1, 0, true), two = look(2, 0, true),
             ended = look(0, 1, false), failing;
  const auto balanced = BatteryMode::balanced, saver = BatteryMode::batterySaver;
  const std::vector<Case> cases = {
      {"no open run", false, balanced, {idle, idle, idle}, {5s, 5s}},
      {"no open run on battery saver", false, saver, {idle, idle}, {15s}},
      {"an open candidate, no change whatever the states", false, saver, {open, open, open}, {2s, 2s}},
      {"a count from 0 to 1: five 1-second waits, then steady", false, balanced,
       {one, one, one, one, one, one, one}, {1s, 1s, 1s, 1s, 1s, 2s}},
      {"a finished run with an unchanged count is a change", false, balanced,
       {idle, ended, idle, idle, idle, idle, idle, idle}, {5s, 1s, 1s, 1s, 1s, 1s, 5s}},
      {"a change within a burst restarts it", false, balanced,
       {one, one, two, two, two, two, two, two, two}, {1s, 1s, 1s, 1s, 1s, 1s, 1s, 2s}},
      {"low power with an open run, also straight after a change", true, balanced, {one, one, one}, {4s, 4s}},
      {"low power without an open run", true, balanced, {ended, idle, idle}, {10s, 10s}},
      {"low power on battery saver", true, saver, {idle, idle}, {15s}},
      {"a failed first look is retried silently at the idle cadence", false, balanced, {failing, open, open}, {5s, 2s}},
      {"a failed look keeps the last good open run", false, saver, {open, failing, open}, {2s, 2s}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Harness h;
    h.lowPower = c.lowPower;
    h.mode = c.mode;
    for (const auto& planned : c.looks) h.operation.plan(planned);
    const auto good = std::count_if(c.looks.begin(), c.looks.end(), [](const Look& l) { return l.has_value(); });
    for (auto i = 0; i < good; ++i) ASSERT_TRUE(h.pullThroughSleeps());
    EXPECT_EQ(h.manual.requestedSleeps(), c.sleeps);
  }
}

TEST(AgentTrackingSession, ACancelEndsARunningRefreshsPullAndReachesOneWaitingForItsTurn) {
  Harness running;
  running.operation.hold();
  std::stop_source runningConsumer;
  auto first = running.pull(runningConsumer.get_token());
  running.operation.waitUntil(&Calls::started, 1);  // holds the process-wide turn

  Harness waiting;
  std::stop_source consumer;
  auto cancelled = waiting.pull(consumer.get_token());
  EXPECT_TRUE(stillWaiting(cancelled));
  consumer.request_stop();
  EXPECT_EQ(resultOf(cancelled), std::nullopt) << "the pull ends at once";
  runningConsumer.request_stop();
  EXPECT_EQ(resultOf(first), std::nullopt) << "also while its refresh runs";
  EXPECT_EQ(running.iterator.next(), std::nullopt) << "and the stream is over";

  running.operation.hold(false);
  // The cancelled refresh has its turn now; a wrong one would run within microseconds.
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(waiting.operation.started(), 0);
}

TEST(AgentTrackingSession, SecondIteratorsAndConcurrentPullsEndAtOnceAndOnlyAStopEndsTheStream) {
  Harness h;
  EXPECT_EQ(h.session.makeAsyncIterator().next(), std::nullopt);
  h.operation.hold();
  auto first = h.pull();
  h.operation.waitUntil(&Calls::started, 1);
  EXPECT_EQ(h.iterator.next(), std::nullopt);
  h.operation.hold(false);
  EXPECT_TRUE(resultOf(first)) << "the pull in flight goes on undisturbed";

  h.operation.plan(std::nullopt);
  std::stop_source consumer;
  auto pending = h.pull(consumer.get_token());
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  h.manual.advance(5s);
  h.operation.waitUntil(&Calls::finished, 2);
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  EXPECT_TRUE(stillWaiting(pending)) << "a failed look yields nothing and the stream goes on";
  consumer.request_stop();
  EXPECT_EQ(resultOf(pending), std::nullopt) << "a stop during a sleep ends the pull";
  EXPECT_EQ(h.iterator.next(), std::nullopt) << "and the stream";
}

// A scripted table of one claude process burning a second of CPU per second; look 2 can't
// enumerate, and at look 5 the process is gone.
TEST(AgentTrackingSession, TheLiveSourceFoldsLooksAndLeavesRunsAloneWhenALookFails) {
  int look = 0;
  ProcessSnapshot claude;
  claude.identity = {42, 5, 0};
  claude.name = "claude";
  claude.uid = 501;
  claude.sameUser = true;
  AgentScannerDependencies scanner;
  scanner.allPIDs = [&] { return look == 2 ? std::vector<int32_t>{} : std::vector<int32_t>{42}; };
  scanner.currentUID = [] { return 501u; };
  scanner.detectionSnapshot = [&](int32_t, uint32_t) { return look == 5 ? std::nullopt : std::optional(claude); };
  scanner.activitySnapshot = [&](ProcessSnapshot snapshot, uint32_t) {
    snapshot.cpuTimeNanos = static_cast<uint64_t>(look) * 1'000'000'000;
    return std::optional(snapshot);
  };
  AgentTrackingSession::LiveSource source(scanner, [&] { return t0 + std::chrono::seconds(look); });
  const auto lookAt = [&](int number) {
    look = number;
    return source.refresh();
  };

  EXPECT_TRUE(lookAt(1).hasOpenRun);
  EXPECT_THROW(lookAt(2), ScanError);
  EXPECT_TRUE(lookAt(3).countedRuns.empty()) << "the sample of look 1 still stands: one working look";
  const auto counted = lookAt(4);
  EXPECT_EQ(counted.countByKind(), (std::map<AgentKind, size_t>{{AgentKind::codex, 0}, {AgentKind::claude, 1}}));
  EXPECT_EQ(counted.processCount, 1);
  EXPECT_EQ(counted.scannedAt, t0 + 4s);
  const auto gone = lookAt(5);
  EXPECT_EQ(gone.finished.size(), 1u);
  EXPECT_FALSE(gone.hasOpenRun);
}

}  // namespace
}  // namespace tidewatch
