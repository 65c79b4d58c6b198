#include "coralline_kit/agent_tracking_session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <thread>

#include "process_core/manual_session_clock.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using Pull = std::future<std::optional<AgentTrackingUpdate>>;
using Sleeps = std::vector<SessionClock::Duration>;

constexpr auto hangLimit = 10s;  // reached only when something hangs
const Date t0 = Date(std::chrono::seconds(1'800'000'000));

template <typename T>
T resultOf(std::future<T>& future) {
  if (future.wait_for(hangLimit) != std::future_status::ready) {
    ADD_FAILURE() << "the pull never ended";
    std::abort();
  }
  return future.get();
}

// What one refresh answers: counted runs, runs finished at this look and whether a run is open;
// `fails` makes it throw.
struct Look {
  int counted = 0;
  int finished = 0;
  bool open = false;
  bool fails = false;
};
const Look failing{0, 0, false, true};

AgentTrackingUpdate updateOf(const Look& look) {
  AgentTrackingUpdate update;
  for (int i = 0; i < look.counted; ++i) {
    update.countedRuns.push_back(AgentRun{{{100 + i, 1, 0}, AgentKind::claude}, AgentKind::claude, std::nullopt,
                                          AgentRunState::active, 2, 0});
  }
  update.finished.resize(static_cast<size_t>(look.finished));
  update.scannedAt = t0;
  update.hasOpenRun = look.open;
  return update;
}

// A refresh that answers from a plan (a quiet look when it is empty) and can be held. Its state
// is shared with the refresh's own thread, which may outlive the session.
class FakeRefresh {
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    std::deque<Look> plan;
    bool holding = false;
    int started = 0;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
  template <typename F>
  auto locked(F f) {
    std::lock_guard lock(state_->mutex);
    state_->changed.notify_all();
    return f();
  }

 public:
  std::function<AgentTrackingUpdate()> operation() {
    return [s = state_] {
      std::unique_lock lock(s->mutex);
      ++s->started;
      s->changed.notify_all();
      s->changed.wait(lock, [&] { return !s->holding; });
      const Look look = s->plan.empty() ? Look{} : s->plan.front();
      if (!s->plan.empty()) s->plan.pop_front();
      if (look.fails) throw ScanError(ScanError::Code::enumerationUnavailable);
      return updateOf(look);
    };
  }
  void plan(const std::vector<Look>& looks) { locked([&] { state_->plan.assign(looks.begin(), looks.end()); }); }
  void hold(bool holding) { locked([&] { state_->holding = holding; }); }
  int started() { return locked([&] { return state_->started; }); }
  void waitForStarted(int count) {
    std::unique_lock lock(state_->mutex);
    ASSERT_TRUE(state_->changed.wait_for(lock, hangLimit, [&] { return state_->started >= count; }));
  }

};

struct Harness {
  ManualSessionClock manual;
  FakeRefresh refresh;
  std::atomic<bool> lowPower = false;
  std::atomic<BatteryMode> mode = BatteryMode::balanced;
  AgentTrackingSession session{{refresh.operation(), manual.clock(), [this] { return lowPower.load(); },
                                [this] { return mode.load(); }}};
  AgentTrackingSession::AsyncIterator iterator = session.makeAsyncIterator();

  Pull pull(std::stop_token stop = {}) {
    return std::async(std::launch::async, [this, stop] { return iterator.next(stop); });
  }
  // A pull with every sleep on its way let run out.
  std::optional<AgentTrackingUpdate> pullThroughSleeps() {
    auto pending = pull();
    const auto limit = std::chrono::steady_clock::now() + hangLimit;
    while (pending.wait_for(0ms) != std::future_status::ready) {
      if (std::chrono::steady_clock::now() > limit) std::abort();
      if (manual.waitForSleepers(1, 5ms)) manual.advance(60s);
    }
    return pending.get();
  }
};

bool stillWaiting(Pull& pull) { return pull.wait_for(1ms) == std::future_status::timeout; }

TEST(AgentTrackingSession, TheCadenceFollowsTheRunsWithABurstAfterEveryChange) {
  struct Case {
    const char* what;
    bool lowPower;
    BatteryMode mode;
    std::vector<Look> looks;
    Sleeps sleeps;  // before every look but the first
  };
  const Look idle{0, 0, false}, open{0, 0, true}, one{1, 0, true}, two{2, 0, true}, ended{0, 1, false};
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
      {"a failed first look takes the idle cadence", false, balanced, {failing, open, open}, {5s, 2s}},
      {"a failed look keeps the last good open run", false, saver, {open, failing, open}, {2s, 2s}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    Harness h;
    h.lowPower = c.lowPower;
    h.mode = c.mode;
    h.refresh.plan(c.looks);
    int goodLooks = 0;
    for (const auto& look : c.looks) goodLooks += look.fails ? 0 : 1;
    for (int i = 0; i < goodLooks; ++i) ASSERT_TRUE(h.pullThroughSleeps());
    EXPECT_EQ(h.manual.requestedSleeps(), c.sleeps);
  }
}

TEST(AgentTrackingSession, UpdatesCountRunsByProvider) {
  AgentTrackingUpdate update = updateOf({2, 0, true});
  update.countedRuns[1].provider = AgentKind::codex;
  EXPECT_EQ(update.totalCount(), 2u);
  EXPECT_EQ(update.count(AgentKind::codex), 1u);
  EXPECT_EQ(update.countByKind(), (std::map<AgentKind, size_t>{{AgentKind::codex, 1}, {AgentKind::claude, 1}}));
  EXPECT_EQ(updateOf({}).countByKind(), (std::map<AgentKind, size_t>{{AgentKind::codex, 0}, {AgentKind::claude, 0}}));
}

TEST(AgentTrackingSession, AlwaysFailingRefreshesKeepThePullWaitingUntilCancelled) {
  Harness h;
  h.refresh.plan(std::vector<Look>(100, failing));
  std::stop_source consumer;
  auto pending = h.pull(consumer.get_token());
  for (int look = 2; look <= 4; ++look) {
    ASSERT_TRUE(h.manual.waitForSleepers(1));
    h.manual.advance(5s);
    h.refresh.waitForStarted(look);
  }
  EXPECT_TRUE(stillWaiting(pending));
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  consumer.request_stop();
  EXPECT_EQ(resultOf(pending), std::nullopt) << "a stop during a sleep ends the pull";
  EXPECT_EQ(h.iterator.next(), std::nullopt) << "and the stream";
}

TEST(AgentTrackingSession, ACancelEndsARunningRefreshsPullAndReachesOneWaitingForItsTurn) {
  Harness running;
  running.refresh.hold(true);
  std::stop_source runningConsumer;
  auto first = running.pull(runningConsumer.get_token());
  running.refresh.waitForStarted(1);  // holds the process-wide turn

  Harness waiting;
  std::stop_source consumer;
  auto cancelled = waiting.pull(consumer.get_token());
  EXPECT_TRUE(stillWaiting(cancelled));
  consumer.request_stop();
  EXPECT_EQ(resultOf(cancelled), std::nullopt) << "the pull ends at once";
  runningConsumer.request_stop();
  EXPECT_EQ(resultOf(first), std::nullopt) << "also while its refresh runs";
  EXPECT_EQ(running.iterator.next(), std::nullopt) << "and the stream is over";

  running.refresh.hold(false);
  // The cancelled refresh has its turn now; a wrong one would run within microseconds.
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(waiting.refresh.started(), 0);
}

TEST(AgentTrackingSession, SecondIteratorsAndConcurrentPullsEndAtOnceAndDisturbNothing) {
  Harness h;
  EXPECT_EQ(h.session.makeAsyncIterator().next(), std::nullopt);
  h.refresh.hold(true);
  auto first = h.pull();
  h.refresh.waitForStarted(1);
  EXPECT_EQ(h.iterator.next(), std::nullopt);
  h.refresh.hold(false);
  EXPECT_TRUE(resultOf(first));
  EXPECT_TRUE(h.pullThroughSleeps());
}

// The live source over a scripted table: one claude process burning a second of CPU per second.
TEST(AgentTrackingSession, TheLiveSourceFoldsLooksAndLeavesRunsAloneWhenALookFails) {
  int look = 0;
  bool present = true;
  AgentScannerDependencies scanner;
  scanner.allPIDs = [&] { return look == 2 ? std::vector<int32_t>{} : std::vector<int32_t>{42}; };
  scanner.currentUID = [] { return 501u; };
  scanner.detectionSnapshot = [&](int32_t pid, uint32_t) -> std::optional<ProcessSnapshot> {
    if (!present) return std::nullopt;
    ProcessSnapshot snapshot;
    snapshot.identity = {pid, 5, 0};
    snapshot.name = "claude";
    snapshot.sameUser = true;
    snapshot.uid = 501;
    return snapshot;
  };
  scanner.activitySnapshot = [&](const ProcessSnapshot& snapshot, uint32_t) -> std::optional<ProcessSnapshot> {
    ProcessSnapshot read = snapshot;
    read.cpuTimeNanos = static_cast<uint64_t>(look) * 1'000'000'000;
    return read;
  };
  AgentTrackingSession::LiveSource source(scanner, [&] { return t0 + std::chrono::seconds(look); });

  look = 1;
  EXPECT_TRUE(source.refresh().hasOpenRun);
  look = 2;
  EXPECT_THROW(source.refresh(), ScanError);
  look = 3;
  EXPECT_TRUE(source.refresh().countedRuns.empty()) << "the sample of look 1 still stands: one working look";
  look = 4;
  const auto counted = source.refresh();
  ASSERT_EQ(counted.totalCount(), 1u);
  EXPECT_EQ(counted.processCount, 1);
  EXPECT_EQ(counted.scannedAt, t0 + 4s);
  present = false;
  look = 5;
  const auto gone = source.refresh();
  EXPECT_EQ(gone.finished.size(), 1u);
  EXPECT_FALSE(gone.hasOpenRun);
}

}  // namespace
}  // namespace tidewatch
