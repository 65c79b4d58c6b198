#include "app/notch_island.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using Context = NotchPlacementResolver::ScreenContext;

// A built-in 1512 x 982 screen with a 200-point notch between two 32-point free areas.
Context notched() {
  Context c;
  c.isBuiltIn = true;
  c.hasNotch = true;
  c.screenFrame = {0, 0, 1512, 982};
  c.auxiliaryTopLeft = ScreenRect{0, 950, 656, 32};
  c.auxiliaryTopRight = ScreenRect{856, 950, 656, 32};
  return c;
}
Context external() {
  Context c;
  c.screenFrame = {1512, 0, 2560, 1440};
  return c;
}

TEST(NotchIslandAgentState, SaysCountsEndingsAndWhatRemains) {
  const std::pair<NotchIslandAgentState, const char*> cases[] = {
      {{0, false, 0}, "0 Codex sessions"},
      {{1, true, 0}, "1 Codex session"},
      {{1, false, 1}, "1 Codex session ended; 1 session remaining"},
      {{0, false, 2}, "2 Codex sessions ended"},
      {{3, false, 2}, "2 Codex sessions ended; 3 sessions remaining"},
  };
  for (const auto& [state, expected] : cases) EXPECT_EQ(state.accessibilityDescription("Codex"), expected);
}

TEST(NotchIslandEnvironmentResolver, ShowsOnlyOnANotchedScreenWithSomethingToShow) {
  using namespace NotchIslandEnvironmentResolver;
  EXPECT_TRUE(std::holds_alternative<Hidden>(resolve(false, true, {notched()}))) << "nothing to show is not a fallback";
  EXPECT_TRUE(std::holds_alternative<Hidden>(resolve(true, false, {notched()})));
  EXPECT_TRUE(std::holds_alternative<MenuBarFallback>(resolve(true, true, {external()})));
  EXPECT_TRUE(std::holds_alternative<MenuBarFallback>(resolve(true, true, {})));
  const auto island = resolve(true, true, {external(), notched()});
  ASSERT_TRUE(std::holds_alternative<Island>(island)) << "the first notched screen, wherever it stands";
  EXPECT_EQ(std::get<Island>(island).layout.notchOverlap, 12.0);
}

// A controller over two recording wings, a manual clock and a chosen set of screens.
class NotchIslandControllerTest : public ::testing::Test {
 protected:
  NotchIslandControllerTest() {
    NotchIslandController::Dependencies d;
    d.executor = executor;
    d.leftWing = wing("codex");
    d.rightWing = wing("claude");
    d.screenContexts = [this] { return screens; };
    d.accessibilityOptions = [this] { return options; };
    controller = std::make_unique<NotchIslandController>(d);
    controller->onDispositionChange = [this](NotchIslandDisposition disposition) { announced.push_back(disposition); };
  }

  NotchIslandWingOperations wing(const std::string& name) {
    return {
        .present = [this, name](const ScreenRect&, double, const NotchIslandAgentState& state,
                                const CorallineAccessibilityOptions&) {
          log.push_back(name + " " + std::to_string(state.count));
        },
        .hide = [this, name](bool, bool, bool) { log.push_back(name + " hide"); },
        .hardHide = [this, name] { log.push_back(name + " gone"); },
        .isPresentingCompletion = [] { return false; },
        .isRetracting = [] { return false; },
    };
  }

  void working(int codex, int claude) { controller->latestPresentation = {{codex, codex > 0, 0}, {claude, claude > 0, 0}}; }
  std::vector<std::string> takeLog() { return std::exchange(log, {}); }

  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
  std::vector<Context> screens{notched()};
  CorallineAccessibilityOptions options;
  std::vector<std::string> log;
  std::vector<NotchIslandDisposition> announced;
  std::unique_ptr<NotchIslandController> controller;
};

TEST_F(NotchIslandControllerTest, PresentsBothWingsOrFallsBackAndAnnouncesOnlyChanges) {
  working(2, 1);
  EXPECT_EQ(controller->presentLatest(), NotchIslandDisposition::island);
  EXPECT_EQ(takeLog(), (std::vector<std::string>{"codex 2", "claude 1"}));
  controller->presentLatest();
  EXPECT_EQ(announced, std::vector{NotchIslandDisposition::island}) << "once";
  takeLog();

  screens = {external()};
  EXPECT_EQ(controller->presentLatest(), NotchIslandDisposition::menuBarFallback);
  EXPECT_EQ(takeLog(), (std::vector<std::string>{"codex hide", "claude hide"}));

  controller->isSynchronizingFromApp = true;
  screens = {notched()};
  controller->presentLatest();
  controller->isSynchronizingFromApp = false;
  EXPECT_EQ(announced.size(), 2u) << "the application's own draw is not announced";

  working(0, 0);
  EXPECT_EQ(controller->presentLatest(), NotchIslandDisposition::hidden);
}

TEST_F(NotchIslandControllerTest, AWorkspaceSwitchHidesThenShowsAfterTheLastOneSettles) {
  controller->activeSpaceChanged();
  EXPECT_TRUE(takeLog().empty()) << "nothing visible: nothing to hide or delay";

  working(1, 0);
  controller->presentLatest();
  takeLog();
  controller->activeSpaceChanged();
  EXPECT_EQ(takeLog(), (std::vector<std::string>{"codex gone", "claude gone"}));
  executor->advance(300ms);
  controller->activeSpaceChanged();  // a second switch: the first deferred present is void
  executor->advance(300ms);
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::hidden);
  executor->advance(120ms);
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::island) << "0.42 s after the second switch";

  options.reduceMotion = true;
  controller->activeSpaceChanged();
  executor->advance(180ms);
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::island);
}

TEST_F(NotchIslandControllerTest, SleepVoidsAPendingShowUntilWakeAndScreenChangesSettleOnTheNextTurn) {
  working(1, 1);
  controller->presentLatest();
  controller->activeSpaceChanged();
  controller->screensDidSleep();
  executor->advance(1s);
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::hidden) << "the deferred show found an old generation";

  controller->screensDidWake();
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::hidden);
  executor->runUntilIdle();
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::island);

  controller->screenParametersChanged();
  controller->screenParametersChanged();
  executor->runUntilIdle();
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::island);

  controller->hide();
  EXPECT_EQ(controller->latestPresentation, NotchIslandPresentation{});
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::hidden);
}

TEST_F(NotchIslandControllerTest, AccessibilityChangesReannounceTheFallback) {
  working(1, 0);
  screens = {external()};
  controller->presentLatest();
  announced.clear();
  controller->accessibilityDisplayOptionsChanged();
  EXPECT_EQ(announced, std::vector{NotchIslandDisposition::menuBarFallback}) << "said again, unchanged or not";
}

}  // namespace
}  // namespace tidewatch
