#include "coralline_kit/agent_tracking_lifecycle.h"

#include <gtest/gtest.h>

#include <thread>

#include "process_core/tests/support/session_test_support.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using Kind = AgentTrackingLifecycleEvent::Kind;
using Names = std::vector<std::string>;

// Sessions on a manual clock whose looks number themselves in `processCount`, across sessions.
struct Harness {
  ManualMainExecutor main;
  ManualSessionClock clock;
  std::shared_ptr<std::atomic<int>> looks = std::make_shared<std::atomic<int>>(0);
  int made = 0;
  bool drained = false;  // sessions whose stream is already taken, so it ends at once
  Names events;
  std::function<void(const std::string&)> onEvent = [](const std::string&) {};
  std::optional<AgentTrackingLifecycle> lifecycle{
      std::in_place, main,
      [this] {
        ++made;
        auto session = std::make_shared<AgentTrackingSession>(AgentTrackingSession::Dependencies{
            [looks = looks] {
              AgentTrackingUpdate update;
              update.processCount = ++*looks;
              return update;
            },
            clock.clock(), [] { return false; }, [] { return BatteryMode::balanced; }});
        if (drained) session->makeAsyncIterator();
        return session;
      },
      [this](const AgentTrackingLifecycleEvent& event) {
        events.push_back(event.kind == Kind::started   ? "started"
                         : event.kind == Kind::stopped ? "stopped"
                                                       : "update " + std::to_string(event.update->processCount));
        onEvent(events.back());
      }};

  // Polls `done` until it holds, running the main thread in between only when `runMain`.
  void await(const std::function<bool()>& done, bool runMain = true) {
    const auto limit = std::chrono::steady_clock::now() + testing::hangLimit;
    for (;;) {
      if (runMain) main.runUntilIdle();
      if (done()) return;
      ASSERT_LT(std::chrono::steady_clock::now(), limit) << events.size() << " events came";
      std::this_thread::sleep_for(100us);
    }
  }
  void runUntilEvents(size_t count) { await([&] { return events.size() >= count; }); }
  void waitForPost() { await([&] { return main.pendingCount() > 0; }, false); }
};

TEST(AgentTrackingLifecycle, RunsOneSessionWhileEnabledAndNotSuspendedAndStopsOnceEvenFromAHandler) {
  Harness h;
  h.onEvent = [&](const std::string& event) {
    if (event == "update 2") h.lifecycle->synchronize(true, true);
  };
  h.lifecycle->synchronize(true, true);
  h.lifecycle->synchronize(false, false);
  EXPECT_TRUE(h.events.empty()) << "nothing runs, nothing to stop";

  h.lifecycle->synchronize(false, true);
  h.lifecycle->synchronize(false, true);
  EXPECT_EQ(h.events, Names{"started"});
  h.runUntilEvents(2);
  ASSERT_TRUE(h.clock.waitForSleepers(1)) << "the next pull began once the update was taken";
  h.clock.advance(5s);
  h.runUntilEvents(4);
  h.lifecycle->stop();
  EXPECT_EQ(h.events, (Names{"started", "update 1", "update 2", "stopped"}));
  EXPECT_EQ(h.made, 1);
  h.lifecycle.reset();  // waits for the worker, whose pull ended on its stop
  EXPECT_EQ(h.clock.sleeperCount(), 0u);
}

TEST(AgentTrackingLifecycle, AnUpdateOfAStoppedSessionReachesNobody) {
  Harness h;
  h.lifecycle->synchronize(false, true);
  h.waitForPost();
  h.lifecycle->stop();
  h.lifecycle->synchronize(false, true);
  h.runUntilEvents(4);
  EXPECT_EQ(h.events, (Names{"started", "stopped", "started", "update 2"}));

  ASSERT_TRUE(h.clock.waitForSleepers(1));
  h.clock.advance(5s);
  h.waitForPost();  // the next update, of a lifecycle that is gone by the time it runs
  h.lifecycle.reset();
  h.main.runUntilIdle();
  EXPECT_EQ(h.events.size(), 4u);
}

TEST(AgentTrackingLifecycle, AStreamThatEndsByItselfEndsLikeAStop) {
  Harness h;
  h.drained = true;
  h.lifecycle->synchronize(false, true);
  h.runUntilEvents(2);
  h.lifecycle->stop();
  EXPECT_EQ(h.events, (Names{"started", "stopped"})) << "stopped is delivered once";
  h.lifecycle->synchronize(false, true);
  EXPECT_EQ(h.made, 2) << "and a new session can start";
}

}  // namespace
}  // namespace tidewatch
