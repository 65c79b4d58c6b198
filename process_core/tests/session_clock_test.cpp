#include "process_core/session_clock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>

#include "process_core/one_shot.h"
#include "process_core/tests/support/session_test_support.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using WakeReason = PokeableWait::WakeReason;

using testing::hangLimit;
using testing::resultOf;

struct Sleeping {
  ManualSessionClock manual;
  SessionClock clock = manual.clock();
  PokeableWait wait;

  std::future<WakeReason> sleep(SessionClock::Duration interval, std::stop_token stop = {}) {
    return std::async(std::launch::async, [this, interval, stop] { return wait.sleep(clock, interval, stop); });
  }
};

TEST(PokeableWait, PokesAreDroppedBeforeBeginAndKeptOnceAfter) {
  PokeableWait wait;
  wait.poke();
  wait.begin();
  EXPECT_FALSE(wait.takePendingPoke()) << "a poke before the first wait is not remembered";

  wait.poke();
  wait.poke();
  EXPECT_TRUE(wait.takePendingPoke());
  EXPECT_FALSE(wait.takePendingPoke()) << "two pokes are one";

  wait.poke();
  EXPECT_TRUE(wait.beginWork());
  EXPECT_FALSE(wait.takePendingPoke()) << "work that starts satisfies the poke";

  ManualSessionClock manual;
  wait.poke();
  EXPECT_EQ(wait.sleep(manual.clock(), 1s, {}), WakeReason::poked);
  EXPECT_TRUE(manual.requestedSleeps().empty()) << "a kept poke ends the next sleep before it starts";
}

TEST(PokeableWait, AStopOrACloseEndsTheSleepForGood) {
  Sleeping s;
  s.wait.begin();
  std::stop_source consumer;
  auto stopped = s.sleep(10s, consumer.get_token());
  ASSERT_TRUE(s.manual.waitForSleepers(1));
  consumer.request_stop();
  EXPECT_EQ(resultOf(stopped), WakeReason::cancelled);
  EXPECT_EQ(s.manual.sleeperCount(), 0u) << "the clock's sleep was stopped too";
  EXPECT_FALSE(s.wait.beginWork()) << "a cancelled consumer starts no work";

  Sleeping c;
  c.wait.begin();
  auto closed = c.sleep(10s);
  ASSERT_TRUE(c.manual.waitForSleepers(1));
  c.wait.close();
  EXPECT_EQ(resultOf(closed), WakeReason::cancelled);
  EXPECT_FALSE(c.wait.begin());
  c.wait.poke();
  EXPECT_FALSE(c.wait.takePendingPoke()) << "pokes after the close are dropped";
  EXPECT_EQ(c.wait.sleep(c.clock, 1s, {}), WakeReason::cancelled);
  EXPECT_EQ(c.manual.requestedSleeps().size(), 1u) << "a closed wait never reaches the clock";
}

TEST(PokeableWait, AClockFailingOnItsOwnLeavesTheSleepToAPoke) {
  PokeableWait wait;
  wait.begin();
  std::atomic<bool> clockReturned = false;
  SessionClock failing{[&](SessionClock::Duration, std::stop_token) {
    clockReturned = true;
    return false;
  }};
  auto reason = std::async(std::launch::async, [&] { return wait.sleep(failing, 1s, {}); });
  while (!clockReturned) std::this_thread::yield();
  EXPECT_TRUE(testing::stillWaiting(reason));
  wait.poke();
  EXPECT_EQ(resultOf(reason), WakeReason::poked);
}

// Pokes race ticks and a final stop; every sleep must end with one reason and nothing may hang.
TEST(PokeableWait, PokesRacingTicksAndAStopNeverHang) {
  Sleeping s;
  s.wait.begin();
  std::stop_source consumer;
  std::atomic<int> wakes = 0;
  std::atomic<bool> done = false;
  auto sleeper = std::async(std::launch::async, [&] {
    while (s.wait.sleep(s.clock, 1ms, consumer.get_token()) != WakeReason::cancelled) ++wakes;
  });
  auto poker = std::async(std::launch::async, [&] {
    while (!done) s.wait.poke();
  });
  const auto giveUp = std::chrono::steady_clock::now() + hangLimit;
  while (wakes < 500 && std::chrono::steady_clock::now() < giveUp) s.manual.advance(1ms);
  consumer.request_stop();
  resultOf(sleeper);
  done = true;
  resultOf(poker);
  EXPECT_GE(wakes, 500);
  EXPECT_EQ(s.manual.sleeperCount(), 0u);
}

TEST(OneShot, TheFirstOfAValueAndAStoppedWaitWins) {
  OneShot<int> early;
  EXPECT_TRUE(early.resume(1));
  EXPECT_FALSE(early.resume(2));
  EXPECT_EQ(early.value({}), 1);

  auto late = std::make_shared<OneShot<int>>();
  auto waiting = std::async(std::launch::async, [late] { return late->value({}); });
  startDetached([late] { late->resume(7); });
  EXPECT_EQ(resultOf(waiting), 7);

  auto abandoned = std::make_shared<OneShot<int>>();
  std::stop_source stop;
  auto gaveUp = std::async(std::launch::async, [abandoned, token = stop.get_token()] { return abandoned->value(token); });
  stop.request_stop();
  EXPECT_EQ(resultOf(gaveUp), std::nullopt);
  EXPECT_FALSE(abandoned->resume(3)) << "a value after the waiter left is dropped";
}

TEST(ContinuousClock, SleepsTheDurationAndEndsAtOnceOnAStop) {
  const SessionClock clock = SessionClock::continuous();
  const auto started = std::chrono::steady_clock::now();
  EXPECT_TRUE(clock.sleep(2ms, {}));
  EXPECT_GE(std::chrono::steady_clock::now() - started, 2ms);
  EXPECT_TRUE(clock.sleep(-1s, {}));

  std::stop_source stop;
  auto sleeping = std::async(std::launch::async, [&] { return clock.sleep(1h, stop.get_token()); });
  stop.request_stop();
  EXPECT_FALSE(resultOf(sleeping));
}

}  // namespace
}  // namespace tidewatch
