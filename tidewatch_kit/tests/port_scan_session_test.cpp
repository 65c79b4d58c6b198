#include "tidewatch_kit/port_scan_session.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>

#include "process_core/tests/support/session_test_support.h"
#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using testing::Row;
using Trigger = ScanFrame::Trigger;
using testing::resultOf;
using testing::stillWaiting;

const Date t0 = Date(std::chrono::seconds(1'800'000'000));

ScanResult scanAt(Date at, std::vector<PortListener> listeners = {}) {
  return ScanResult{std::move(listeners), {}, at, 100, {}};
}

using Calls = testing::PlannedOperation<ScanResult>::State;

struct Harness : testing::SessionHarness<PortScanSession, ScanResult> {
  explicit Harness(std::optional<DefaultFilterSetting> setting = std::nullopt,
                   std::optional<FilterCategory> lastUsed = std::nullopt)
      : SessionHarness(setting, lastUsed) {}
};

TEST(PortScanSession, TheFirstPullScansAtOnceAndAnEarlierPokeIsForgotten) {
  Harness h;
  h.mode = BatteryMode::batterySaver;
  h.session.poke();
  const auto first = h.pullNow();
  ASSERT_TRUE(first && first->scanned());
  EXPECT_EQ(first->trigger, Trigger::initial);
  EXPECT_TRUE(h.manual.requestedSleeps().empty());

  auto second = h.pull();
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  h.manual.advance(9999ms);
  EXPECT_TRUE(stillWaiting(second)) << "the poke before the first pull was not kept";
  h.manual.advance(1ms);
  EXPECT_EQ(resultOf(second)->trigger, Trigger::cadence);
}

TEST(PortScanSession, APokeDuringASleepEndsItAndItsTickNeverComes) {
  Harness h;
  h.pullNow();
  auto second = h.pull();
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  h.session.poke();
  EXPECT_EQ(resultOf(second)->trigger, Trigger::poke);
  EXPECT_EQ(h.manual.sleeperCount(), 0u);

  auto third = h.pull();
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  EXPECT_TRUE(stillWaiting(third)) << "no stale tick of the poked sleep";
  h.manual.advance(1s);
  EXPECT_EQ(resultOf(third)->trigger, Trigger::cadence);
}

TEST(PortScanSession, PokesDuringAScanYieldOneMoreScanWithoutSleeping) {
  Harness h;
  h.operation.hold();
  auto first = h.pull();
  h.operation.waitUntil(&Calls::started, 1);
  h.session.poke();
  h.session.poke();
  h.operation.release();
  EXPECT_EQ(resultOf(first)->trigger, Trigger::initial);
  h.operation.release();
  EXPECT_EQ(h.pullNow()->trigger, Trigger::poke);
  EXPECT_TRUE(h.manual.requestedSleeps().empty());
  h.operation.release();
  EXPECT_EQ(h.pullAfter(1s)->trigger, Trigger::cadence) << "two pokes made one extra scan, not two";
}

TEST(PortScanSession, APokeRacingTheWakeIsAbsorbedByThatScan) {
  Harness h;
  h.pullNow();
  h.manual.onElapsed([&] { h.session.poke(); });
  ASSERT_TRUE(h.pullAfter(1s));
  h.manual.onElapsed(nullptr);
  EXPECT_EQ(h.operation.started(), 2);
  EXPECT_EQ(h.pullAfter(1s)->trigger, Trigger::cadence) << "no scan was left owed";
}

TEST(PortScanSession, SecondIteratorsAndConcurrentPullsEndAtOnceAndDisturbNothing) {
  Harness h;
  auto second = h.session.makeAsyncIterator();
  EXPECT_EQ(second.next(), std::nullopt);
  h.operation.hold();
  auto first = h.pull();
  h.operation.waitUntil(&Calls::started, 1);
  EXPECT_EQ(h.iterator.next(), std::nullopt);
  h.operation.release();
  EXPECT_EQ(resultOf(first)->trigger, Trigger::initial);
  h.operation.release();
  EXPECT_EQ(h.pullAfter(1s)->trigger, Trigger::cadence);
  EXPECT_EQ(second.next(), std::nullopt);
}

TEST(PortScanSession, CancellingDuringAScanEndsThePullAtOnceAndDropsTheLateValue) {
  Harness h;
  h.operation.hold();
  std::stop_source consumer;
  auto pending = h.pull(consumer.get_token());
  h.operation.waitUntil(&Calls::started, 1);
  consumer.request_stop();
  EXPECT_EQ(resultOf(pending), std::nullopt) << "ended while the scan still runs";
  h.operation.release();
  h.operation.waitUntil(&Calls::finished, 1);
  h.session.poke();
  EXPECT_EQ(h.pullNow(), std::nullopt) << "the stream is over for good";
  EXPECT_EQ(h.operation.started(), 1);
}

TEST(PortScanSession, CancellingBeforeOrDuringASleepEndsTheStream) {
  Harness h;
  h.pullNow();
  std::stop_source consumer;
  auto pending = h.pull(consumer.get_token());
  ASSERT_TRUE(h.manual.waitForSleepers(1));
  consumer.request_stop();
  EXPECT_EQ(resultOf(pending), std::nullopt);
  EXPECT_EQ(h.manual.sleeperCount(), 0u);
  EXPECT_EQ(h.pullNow(), std::nullopt);

  Harness early;
  EXPECT_EQ(early.pullNow(consumer.get_token()), std::nullopt);
  EXPECT_EQ(early.operation.started(), 0);
}

TEST(PortScanSession, FailedFramesKeepTheCadenceAndTheStartingFilterArmed) {
  Harness h(DefaultFilterSetting::agents);
  const std::vector<PortListener> rows = {Row(40, 3000).agent(AgentKind::codex)};
  h.operation.plan(std::nullopt);
  h.operation.plan(scanAt(t0, rows));
  h.operation.plan(scanAt(t0 + 1s, rows));

  const auto failed = h.pullNow();
  ASSERT_TRUE(failed && failed->failed()) << "any throw of the scan is a failed frame";
  EXPECT_EQ(failed->failed()->code(), ScanError::Code::enumerationUnavailable);
  EXPECT_EQ(failed->startingFilter, std::nullopt);
  EXPECT_TRUE(failed->activity.empty());

  const auto good = h.pullAfter(1s);
  ASSERT_TRUE(good && good->scanned());
  EXPECT_EQ(good->trigger, Trigger::cadence);
  EXPECT_EQ(good->startingFilter, FilterCategory::agents);
  EXPECT_EQ(h.pullAfter(1s)->startingFilter, std::nullopt) << "resolved once per session";
}

TEST(PortScanSession, TheStartingFilterCountsVisibleAttributedRowsOnly) {
  const PortListener hiddenAgent = Row(1, 1).agent(AgentKind::claude).hidden();
  const PortListener visibleAgent = Row(1, 1).agent(AgentKind::claude);
  Harness withHidden;
  withHidden.operation.plan(scanAt(t0, {hiddenAgent}));
  EXPECT_EQ(withHidden.pullNow()->startingFilter, FilterCategory::all);
  Harness withVisible;
  withVisible.operation.plan(scanAt(t0, {visibleAgent}));
  EXPECT_EQ(withVisible.pullNow()->startingFilter, FilterCategory::agents);
  Harness remembered(DefaultFilterSetting::lastUsed, FilterCategory::go);
  EXPECT_EQ(remembered.pullNow()->startingFilter, FilterCategory::go);
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
  EXPECT_EQ(h.manual.requestedSleeps(), (std::vector<SessionClock::Duration>{10s, 1s, 10s}));
}

TEST(PortScanSession, ActivityFoldsAcrossFramesWithoutPools) {
  Harness h;
  const auto rows = [](uint64_t cpu) {
    return std::vector<PortListener>{Row(1, 3000).cpu(cpu), Row(2, 4000), Row(3, 5000).cpu(cpu).pool(3),
                                     Row(4, 631).cpu(cpu / 2).hidden()};
  };
  h.operation.plan(scanAt(t0, rows(1'000'000'000)));
  h.operation.plan(scanAt(t0 + 2s, rows(2'000'000'000)));
  const auto ids = rows(0);

  const auto first = h.pullNow();
  EXPECT_EQ(first->activity.size(), 3u) << "pools have no entry";
  EXPECT_EQ(first->activity.at(ids[0].id()), ScanFrame::Activity{});
  const auto second = h.pullAfter(1s);
  EXPECT_EQ(second->activity.at(ids[0].id()), (ScanFrame::Activity{ActivityLevel::medium, 50.0}));
  EXPECT_EQ(second->activity.at(ids[1].id()), ScanFrame::Activity{}) << "no CPU time";
  EXPECT_EQ(second->activity.at(ids[3].id()), (ScanFrame::Activity{ActivityLevel::medium, 25.0}));
  EXPECT_EQ(second->activity.count(ids[2].id()), 0u);
}

TEST(ListenerActivityFold, AListenerThatVanishesStartsAgainAsUnknown) {
  const PortListener busy = Row(1, 3000).cpu(3'000'000'000);
  const PortListener other = Row(2, 4000).cpu(0);
  const auto step1 = ListenerActivityFold::step(scanAt(t0, {Row(1, 3000).cpu(0), other}), {});
  const auto step2 = ListenerActivityFold::step(scanAt(t0 + 1s, {busy}), step1.samples);
  EXPECT_EQ(step2.activity.at(busy.id()), (ScanFrame::Activity{ActivityLevel::high, 300.0}));
  EXPECT_EQ(step2.samples.count(other.id()), 0u) << "only what this step saw";
  const auto step3 = ListenerActivityFold::step(scanAt(t0 + 2s, {Row(1, 3000).cpu(0), other}), step2.samples);
  EXPECT_EQ(step3.activity.at(other.id()), ScanFrame::Activity{});
  EXPECT_EQ(step3.activity.at(busy.id()), (ScanFrame::Activity{ActivityLevel::low, 0.0})) << "counter fell";
}

// Pokes from another thread race pulls, sleeps and scans; run under ThreadSanitizer as well.
TEST(PortScanSession, PokesFromAnotherThreadRacingThePullsStayConsistent) {
  Harness h;
  std::atomic<bool> done = false;
  auto poker = std::async(std::launch::async, [&] {
    while (!done) h.session.poke();
  });
  std::atomic<int> frames = 0;
  std::stop_source consumer;
  auto puller = std::async(std::launch::async, [&] {
    while (h.iterator.next(consumer.get_token())) ++frames;
  });
  while (h.operation.started() < 200) h.manual.advance(1s);
  consumer.request_stop();
  resultOf(puller);
  done = true;
  resultOf(poker);
  EXPECT_GE(frames, 199);
}

TEST(PortScanSession, LiveFirstFrameScansThisMachine) {
  PortScanSession session(PortEngine(), std::nullopt, std::nullopt, [] { return BatteryMode::balanced; });
  const auto frame = session.makeAsyncIterator().next();
  ASSERT_TRUE(frame && frame->scanned());
  EXPECT_GT(frame->scanned()->processCount, 0);
}

}  // namespace
}  // namespace tidewatch
