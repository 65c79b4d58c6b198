#include "tidewatch_kit/port_scan_session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <mutex>

#include "process_core/manual_session_clock.h"
#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using testing::Row;
using Trigger = ScanFrame::Trigger;
using Pull = std::future<std::optional<ScanFrame>>;

// Generous: only reached when something hangs.
constexpr auto hangLimit = 10s;
const Date t0 = Date(std::chrono::seconds(1'800'000'000));

template <typename T>
T resultOf(std::future<T>& future) {
  if (future.wait_for(hangLimit) != std::future_status::ready) {
    ADD_FAILURE() << "the pull never ended";
    std::abort();
  }
  return future.get();
}

// A scan that answers from a plan, can fail, and can be held until released. It is shared with the
// scan's own thread, which may outlive the session.
class FakeScan {
 public:
  struct Failure {};
  using Outcome = std::variant<ScanResult, Failure>;

  std::function<ScanResult()> operation() {
    return [state = state_] {
      std::unique_lock lock(state->mutex);
      ++state->started;
      state->changed.notify_all();
      state->changed.wait(lock, [&] { return !state->holding || state->releases > 0; });
      if (state->holding) --state->releases;
      Outcome outcome = state->plan.empty() ? Outcome(state->fallback) : state->plan.front();
      if (!state->plan.empty()) state->plan.pop_front();
      ++state->finished;
      state->changed.notify_all();
      if (std::holds_alternative<Failure>(outcome)) throw ScanError(ScanError::Code::enumerationUnavailable);
      return std::get<ScanResult>(outcome);
    };
  }

  void plan(Outcome outcome) {
    std::lock_guard lock(state_->mutex);
    state_->plan.push_back(std::move(outcome));
  }
  void hold() {
    std::lock_guard lock(state_->mutex);
    state_->holding = true;
  }
  void release() {
    std::lock_guard lock(state_->mutex);
    ++state_->releases;
    state_->changed.notify_all();
  }
  void waitForStarted(int count) { waitFor([&] { return state_->started >= count; }); }
  void waitForFinished(int count) { waitFor([&] { return state_->finished >= count; }); }
  int started() const {
    std::lock_guard lock(state_->mutex);
    return state_->started;
  }

 private:
  struct State {
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::deque<Outcome> plan;
    ScanResult fallback;
    bool holding = false;
    int releases = 0;
    int started = 0;
    int finished = 0;
  };

  template <typename Predicate>
  void waitFor(Predicate predicate) {
    std::unique_lock lock(state_->mutex);
    ASSERT_TRUE(state_->changed.wait_for(lock, hangLimit, predicate)) << "the scan never got there";
  }

  std::shared_ptr<State> state_ = std::make_shared<State>();
};

ScanResult scanAt(Date at, std::vector<PortListener> listeners = {}) {
  ScanResult result;
  result.listeners = std::move(listeners);
  result.scannedAt = at;
  result.processCount = 100;
  return result;
}

struct Harness {
  ManualSessionClock manual;
  FakeScan scan;
  std::atomic<bool> lowPower = false;
  std::atomic<BatteryMode> mode = BatteryMode::balanced;
  std::optional<PortScanSession> session;
  std::optional<PortScanSession::AsyncIterator> iterator;

  explicit Harness(std::optional<DefaultFilterSetting> setting = std::nullopt,
                   std::optional<FilterCategory> lastUsed = std::nullopt) {
    PortScanSession::Dependencies dependencies{scan.operation(), manual.clock(), [this] { return lowPower.load(); },
                                               [this] { return mode.load(); }};
    session.emplace(std::move(dependencies), setting, lastUsed);
    iterator = session->makeAsyncIterator();
  }

  Pull pull(std::stop_token stop = {}) {
    return std::async(std::launch::async, [this, stop] { return iterator->next(stop); });
  }
  std::optional<ScanFrame> pullNow(std::stop_token stop = {}) {
    auto pending = pull(stop);
    return resultOf(pending);
  }
  // A pull that has to wait out a sleep of `interval` on the clock.
  std::optional<ScanFrame> pullAfter(SessionClock::Duration interval) {
    auto pending = pull();
    EXPECT_TRUE(manual.waitForSleepers(1));
    manual.advance(interval);
    return resultOf(pending);
  }
};

bool stillWaiting(Pull& pull) { return pull.wait_for(1ms) == std::future_status::timeout; }

TEST(PortScanSession, TheFirstPullScansAtOnceEvenOnBatterySaver) {
  Harness h;
  h.mode = BatteryMode::batterySaver;
  h.lowPower = true;
  const auto frame = h.pullNow();
  ASSERT_TRUE(frame && frame->scanned());
  EXPECT_EQ(frame->trigger, Trigger::initial);
  EXPECT_TRUE(h.manual.requestedSleeps().empty());
}

TEST(PortScanSession, APokeBeforeTheFirstPullIsNotRemembered) {
  Harness h;
  h.session->poke();
  EXPECT_EQ(h.pullNow()->trigger, Trigger::initial);
  auto second = h.pull();
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  h.manual.advance(999ms);
  EXPECT_TRUE(stillWaiting(second));
  h.manual.advance(1ms);
  EXPECT_EQ(resultOf(second)->trigger, Trigger::cadence);
  EXPECT_EQ(h.scan.started(), 2);
}

TEST(PortScanSession, APokeDuringASleepEndsItAndItsTickNeverComes) {
  Harness h;
  h.pullNow();
  auto second = h.pull();
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  h.session->poke();
  EXPECT_EQ(resultOf(second)->trigger, Trigger::poke);
  EXPECT_EQ(h.manual.sleeperCount(), 0u);

  auto third = h.pull();
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  EXPECT_TRUE(stillWaiting(third)) << "no stale tick of the poked sleep";
  h.manual.advance(1s);
  EXPECT_EQ(resultOf(third)->trigger, Trigger::cadence);
  EXPECT_EQ(h.manual.requestedSleeps(), (std::vector<SessionClock::Duration>{1s, 1s}));
}

TEST(PortScanSession, PokesDuringAScanYieldOneMoreScanWithoutSleeping) {
  Harness h;
  h.scan.hold();
  auto first = h.pull();
  h.scan.waitForStarted(1);
  h.session->poke();
  h.session->poke();
  h.scan.release();
  EXPECT_EQ(resultOf(first)->trigger, Trigger::initial);

  h.scan.release();
  EXPECT_EQ(h.pullNow()->trigger, Trigger::poke);
  EXPECT_TRUE(h.manual.requestedSleeps().empty());

  h.scan.release();
  EXPECT_EQ(h.pullAfter(1s)->trigger, Trigger::cadence) << "two pokes made one extra scan, not two";
  EXPECT_EQ(h.scan.started(), 3);
}

TEST(PortScanSession, APokeRacingTheWakeIsAbsorbedByThatScan) {
  Harness h;
  h.pullNow();
  h.manual.onElapsed([&] { h.session->poke(); });
  const auto woken = h.pullAfter(1s);
  ASSERT_TRUE(woken);
  h.manual.onElapsed(nullptr);
  EXPECT_EQ(h.scan.started(), 2);
  EXPECT_EQ(h.pullAfter(1s)->trigger, Trigger::cadence) << "the next pull sleeps: no scan was left owed";
}

TEST(PortScanSession, ASecondIteratorEndsAtOnceAndTheFirstGoesOn) {
  Harness h;
  auto second = h.session->makeAsyncIterator();
  EXPECT_EQ(second.next(), std::nullopt);
  EXPECT_EQ(h.pullNow()->trigger, Trigger::initial);
  EXPECT_EQ(second.next(), std::nullopt);
  EXPECT_EQ(h.pullAfter(1s)->trigger, Trigger::cadence);
}

TEST(PortScanSession, AConcurrentPullGetsEndOfStreamAndDisturbsNothing) {
  Harness h;
  h.scan.hold();
  auto first = h.pull();
  h.scan.waitForStarted(1);
  EXPECT_EQ(h.iterator->next(), std::nullopt);
  h.scan.release();
  EXPECT_EQ(resultOf(first)->trigger, Trigger::initial);
  h.scan.release();
  EXPECT_EQ(h.pullAfter(1s)->trigger, Trigger::cadence);
}

TEST(PortScanSession, CancellingDuringAScanEndsThePullAtOnceAndDropsTheLateValue) {
  Harness h;
  h.scan.hold();
  std::stop_source consumer;
  auto pending = h.pull(consumer.get_token());
  h.scan.waitForStarted(1);
  consumer.request_stop();
  EXPECT_EQ(resultOf(pending), std::nullopt) << "ended while the scan still runs";

  h.scan.release();
  h.scan.waitForFinished(1);
  h.session->poke();
  EXPECT_EQ(h.pullNow(), std::nullopt) << "the stream is over for good";
  EXPECT_EQ(h.scan.started(), 1);
}

TEST(PortScanSession, CancellingDuringASleepEndsTheStream) {
  Harness h;
  h.pullNow();
  std::stop_source consumer;
  auto pending = h.pull(consumer.get_token());
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  consumer.request_stop();
  EXPECT_EQ(resultOf(pending), std::nullopt);
  EXPECT_EQ(h.manual.sleeperCount(), 0u);
  EXPECT_EQ(h.pullNow(), std::nullopt);

  Harness stoppedFirst;
  std::stop_source already;
  already.request_stop();
  EXPECT_EQ(stoppedFirst.pullNow(already.get_token()), std::nullopt);
  EXPECT_EQ(stoppedFirst.scan.started(), 0);
}

TEST(PortScanSession, FailedFramesKeepTheCadenceAndTheStartingFilterArmed) {
  Harness h(DefaultFilterSetting::agents);
  const std::vector<PortListener> rows = {Row(40, 3000).cpu(1'000'000'000).agent(AgentKind::codex)};
  h.scan.plan(FakeScan::Failure{});
  h.scan.plan(scanAt(t0, rows));
  h.scan.plan(scanAt(t0 + 1s, rows));

  const auto failed = h.pullNow();
  ASSERT_TRUE(failed && failed->failed());
  EXPECT_EQ(failed->failed()->code(), ScanError::Code::enumerationUnavailable);
  EXPECT_EQ(failed->trigger, Trigger::initial);
  EXPECT_EQ(failed->startingFilter, std::nullopt);
  EXPECT_TRUE(failed->activity.empty());

  const auto good = h.pullAfter(1s);
  ASSERT_TRUE(good && good->scanned());
  EXPECT_EQ(good->trigger, Trigger::cadence);
  EXPECT_EQ(good->startingFilter, FilterCategory::agents);

  EXPECT_EQ(h.pullAfter(1s)->startingFilter, std::nullopt) << "resolved once per session";
}

TEST(PortScanSession, AnyThrowOfTheScanIsAFailedFrame) {
  Harness h;
  h.session.emplace(
      PortScanSession::Dependencies{[]() -> ScanResult { throw std::runtime_error("boom"); }, h.manual.clock(),
                                    [] { return false; }, [] { return BatteryMode::balanced; }},
      std::nullopt, std::nullopt);
  auto iterator = h.session->makeAsyncIterator();
  const auto frame = iterator.next();
  ASSERT_TRUE(frame && frame->failed());
  EXPECT_EQ(frame->failed()->code(), ScanError::Code::enumerationUnavailable);
}

TEST(PortScanSession, TheStartingFilterLooksAtVisibleAttributedRowsOnly) {
  const std::vector<PortListener> hiddenAgent = {Row(1, 1).agent(AgentKind::claude).hidden()};
  struct Case {
    std::optional<DefaultFilterSetting> setting;
    std::optional<FilterCategory> lastUsed;
    std::vector<PortListener> rows;
    FilterCategory expected;
  };
  const Case cases[] = {
      {std::nullopt, std::nullopt, hiddenAgent, FilterCategory::all},
      {std::nullopt, std::nullopt, {Row(1, 1).agent(AgentKind::claude)}, FilterCategory::agents},
      {DefaultFilterSetting::lastUsed, FilterCategory::go, hiddenAgent, FilterCategory::go},
      {DefaultFilterSetting::all, std::nullopt, {Row(1, 1).agent(AgentKind::claude)}, FilterCategory::all},
  };
  for (const auto& c : cases) {
    Harness h(c.setting, c.lastUsed);
    h.scan.plan(scanAt(t0, c.rows));
    EXPECT_EQ(h.pullNow()->startingFilter, c.expected);
  }
}

TEST(PortScanSession, PowerModesApplyFromTheNextSleep) {
  Harness h;
  h.mode = BatteryMode::batterySaver;
  h.pullNow();
  auto second = h.pull();
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  h.mode = BatteryMode::balanced;
  h.manual.advance(1s);
  EXPECT_TRUE(stillWaiting(second)) << "a sleep in progress keeps its length";
  h.manual.advance(9s);
  EXPECT_EQ(resultOf(second)->trigger, Trigger::cadence);

  h.pullAfter(1s);
  h.lowPower = true;
  h.pullAfter(10s);
  h.lowPower = false;
  h.pullAfter(1s);
  EXPECT_EQ(h.manual.requestedSleeps(), (std::vector<SessionClock::Duration>{10s, 1s, 10s, 1s}));
  EXPECT_EQ(PortScanSession::cadenceInterval(true, BatteryMode::balanced), 10s);
  EXPECT_EQ(PortScanSession::cadenceInterval(false, BatteryMode::batterySaver), 10s);
  EXPECT_EQ(PortScanSession::cadenceInterval(false, BatteryMode::balanced), 1s);
}

TEST(PortScanSession, ActivityFoldsAcrossFrames) {
  Harness h;
  const auto rows = [](uint64_t cpu) {
    return std::vector<PortListener>{Row(1, 3000).cpu(cpu), Row(2, 4000), Row(3, 5000).cpu(cpu).pool(3),
                                     Row(4, 631).cpu(cpu / 2).hidden()};
  };
  h.scan.plan(scanAt(t0, rows(1'000'000'000)));
  h.scan.plan(scanAt(t0 + 2s, rows(2'000'000'000)));
  const PortListener single = rows(0)[0];
  const PortListener hidden = rows(0)[3];

  const auto first = h.pullNow();
  EXPECT_EQ(first->activity.size(), 3u) << "pools have no entry";
  EXPECT_EQ(first->activity.at(single.id()), ScanFrame::Activity{});
  const auto second = h.pullAfter(1s);
  EXPECT_EQ(second->activity.at(single.id()), (ScanFrame::Activity{ActivityLevel::medium, 50.0}));
  EXPECT_EQ(second->activity.at(hidden.id()), (ScanFrame::Activity{ActivityLevel::medium, 25.0}));
  EXPECT_EQ(second->activity.at(static_cast<PortListener>(Row(2, 4000)).id()), ScanFrame::Activity{});
  EXPECT_EQ(second->activity.count(static_cast<PortListener>(rows(0)[2]).id()), 0u);
}

TEST(ListenerActivityFold, AListenerThatVanishesStartsAgainAsUnknown) {
  const PortListener busy = Row(1, 3000).cpu(0);
  const PortListener other = Row(2, 4000).cpu(0);
  auto step1 = ListenerActivityFold::step(scanAt(t0, {busy, other}), {});
  EXPECT_EQ(step1.samples.size(), 2u);

  PortListener later = busy;
  later.process.cpuTimeNanos = 3'000'000'000;
  auto step2 = ListenerActivityFold::step(scanAt(t0 + 1s, {later}), step1.samples);
  EXPECT_EQ(step2.activity.at(busy.id()), (ScanFrame::Activity{ActivityLevel::high, 300.0}));
  EXPECT_EQ(step2.samples.count(other.id()), 0u) << "only what this step saw";

  auto step3 = ListenerActivityFold::step(scanAt(t0 + 2s, {busy, other}), step2.samples);
  EXPECT_EQ(step3.activity.at(other.id()), ScanFrame::Activity{});
  EXPECT_EQ(step3.activity.at(busy.id()), (ScanFrame::Activity{ActivityLevel::low, 0.0})) << "counter fell";
}

// Pokes from another thread race pulls, sleeps and scans; run under ThreadSanitizer as well.
TEST(PortScanSession, PokesFromAnotherThreadRacingThePullsStayConsistent) {
  Harness h;
  std::atomic<bool> done = false;
  auto poker = std::async(std::launch::async, [&] {
    while (!done) h.session->poke();
  });
  int frames = 0;
  std::stop_source consumer;
  auto puller = std::async(std::launch::async, [&] {
    while (h.iterator->next(consumer.get_token())) ++frames;
  });
  while (h.scan.started() < 200) h.manual.advance(1s);
  consumer.request_stop();
  resultOf(puller);
  done = true;
  resultOf(poker);
  EXPECT_GE(frames, 199);
  EXPECT_EQ(h.iterator->next(), std::nullopt);
}

TEST(PortScanSession, LiveFirstFrameScansThisMachine) {
  PortScanSession session(PortEngine(), std::nullopt, std::nullopt, [] { return BatteryMode::balanced; });
  auto iterator = session.makeAsyncIterator();
  const auto frame = iterator.next();
  ASSERT_TRUE(frame && frame->scanned());
  EXPECT_EQ(frame->trigger, Trigger::initial);
  EXPECT_GT(frame->scanned()->processCount, 0);
  EXPECT_TRUE(frame->startingFilter.has_value());
}

}  // namespace
}  // namespace tidewatch
