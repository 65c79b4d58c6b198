#include "app/notch_island_wing.h"

#include <gtest/gtest.h>

#include "app/island_environment.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using Kind = NotchIslandWingShape::PathElement::Kind;

TEST(NotchIslandWingShape, IsSquareAtTheNotchAndRoundAtTheOuterEnd) {
  const LayerRect wing{0, 0, 70, 32};
  EXPECT_DOUBLE_EQ(NotchIslandWingShape::outerRadius(wing), 12.0);
  EXPECT_DOUBLE_EQ(NotchIslandWingShape::outerRadius({0, 0, 10, 32}), 5.0);

  struct Case {
    NotchIslandSide side;
    double notchX;
    double outerX;
  };
  for (const auto& c : {Case{NotchIslandSide::left, 70, 0}, Case{NotchIslandSide::right, 0, 70}}) {
    const auto path = NotchIslandWingShape::path(wing, c.side, 12);
    ASSERT_EQ(path.size(), 7u);
    EXPECT_EQ(path.front().points.front(), std::make_pair(c.notchX, 0.0)) << "the notch side's top corner";
    EXPECT_EQ(path[5].points.front(), std::make_pair(c.notchX, 32.0)) << "and its bottom corner, square";
    EXPECT_EQ(path[2].kind, Kind::curveTo);
    EXPECT_EQ(path[2].points.back(), std::make_pair(c.outerX, 12.0)) << "a quarter round of the radius";
    EXPECT_EQ(path.back().kind, Kind::close);
    const auto border = NotchIslandWingShape::outerBorderPath(wing, c.side, 12);
    EXPECT_EQ(border.size(), 6u) << "open against the notch";
  }
}

TEST(NotchIslandWingView, LaysOutTheMatrixAtTheOuterEndAndTheCountTowardsTheNotch) {
  auto executor = std::make_shared<ManualMainExecutor>();
  const auto now = [executor] { return executor->now(); };
  NotchIslandWingView left(NotchIslandSide::left, {executor, now, AgentActivityPalette::codex(), false,
                                                   AgentActivityMatrixPattern::ring});
  NotchIslandWingView right(NotchIslandSide::right, {executor, now, AgentActivityPalette::claude(), true,
                                                     AgentActivityMatrixPattern::spark});
  right.update({2, true, 0}, 12, {}, "2 Claude Code sessions");
  const auto l = left.layout(70, 32);
  const auto r = right.layout(70, 32);
  EXPECT_EQ(l.matrix, (LayerRect{9, 12, 8, 8}));
  EXPECT_EQ(l.count, (LayerRect{21, 8, 28, 16}));
  EXPECT_EQ(r.matrix, (LayerRect{53, 12, 8, 8}));
  EXPECT_EQ(r.count, (LayerRect{21, 8, 28, 16}));
  EXPECT_EQ(r.checkmark, r.matrix);
  EXPECT_EQ(right.steadyAccessibilityLabel(), "2 Claude Code sessions");
  right.update({1, false, 0}, 12, {false, true, false, false}, "1 Claude Code session");
  EXPECT_DOUBLE_EQ(right.activityGroup().completionLineWidth, 2.15);
  EXPECT_EQ(right.steadyAccessibilityLabel(), "1 Claude Code session");
}

// A wing over a recording window and a manual clock.
class WingTest : public ::testing::Test {
 protected:
  WingTest() {
    NotchIslandWing::Setup setup;
    setup.side = NotchIslandSide::left;
    setup.executor = executor;
    setup.now = [this] { return executor->now(); };
    setup.panel.setFrame = [this](const ScreenRect& placed) { frames.push_back(placed); };
    setup.panel.orderFront = [this] { events.push_back("front"); };
    setup.panel.orderOut = [this] { events.push_back("out"); };
    wing = std::make_unique<NotchIslandWing>(setup);
    wing->onTransientEnded = [this] { ++transientEnded; };
  }
  double alpha() const { return wing->panelLayer().presentationAt(executor->now()).opacity; }
  double translation() const { return wing->surfaceLayer().presentationAt(executor->now()).translationX; }

  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
  std::unique_ptr<NotchIslandWing> wing;
  std::vector<ScreenRect> frames;
  std::vector<std::string> events;
  int transientEnded = 0;
  const ScreenRect frame{600, 1000, 70, 32};
  CorallineAccessibilityOptions options;
};

TEST_F(WingTest, ComesInFromTheNotchAndFadesUp) {
  wing->present(frame, 12, {1, true, 0}, options);
  EXPECT_EQ(events, (std::vector<std::string>{"front"}));
  EXPECT_EQ(frames, (std::vector<ScreenRect>{frame}));
  EXPECT_DOUBLE_EQ(alpha(), 0.0);
  EXPECT_DOUBLE_EQ(translation(), 6.0);
  EXPECT_EQ(wing->contentView().accessibilityLabel(), "1 Codex session");
  executor->advance(180ms);
  EXPECT_DOUBLE_EQ(alpha(), 1.0);
  EXPECT_DOUBLE_EQ(translation(), 0.0);
  wing->present(frame, 12, {2, true, 0}, options);
  EXPECT_EQ(events.size(), 1u) << "already in front";
  EXPECT_EQ(wing->contentView().activityGroup().countLayer().currentLayer()->text, "2");
}

TEST_F(WingTest, AFadeOutIsCancelledByAPresentInTime) {
  wing->present(frame, 12, {1, false, 0}, options);
  executor->advance(200ms);
  wing->present(frame, 12, {0, false, 0}, options);  // nothing left: fades out
  EXPECT_FALSE(wing->targetVisible());
  executor->advance(60ms);
  const double midFade = alpha();
  EXPECT_GT(midFade, 0.0);
  EXPECT_LT(midFade, 1.0);
  wing->present(frame, 12, {1, false, 0}, options);
  executor->advance(200ms);
  EXPECT_EQ(events, (std::vector<std::string>{"front"})) << "the stale fade never ordered it out";
  EXPECT_DOUBLE_EQ(alpha(), 1.0);

  wing->present(frame, 12, {0, false, 0}, options);
  executor->advance(129ms);
  EXPECT_TRUE(wing->isVisible());
  executor->advance(1ms);
  EXPECT_FALSE(wing->isVisible());
  EXPECT_EQ(transientEnded, 0) << "a plain hide tells nobody";
}

TEST_F(WingTest, TheLastSessionEndingPlaysTheCheckmarkThenTucksUnderTheNotch) {
  wing->present(frame, 12, {1, true, 0}, options);
  executor->advance(200ms);
  wing->present(frame, 12, {0, false, 1}, options);
  EXPECT_TRUE(wing->contentView().activityGroup().isPresentingCompletion());
  EXPECT_EQ(wing->contentView().accessibilityLabel(), "1 Codex session ended");
  wing->present(frame, 12, {0, false, 0}, options);  // the steady state arrives meanwhile
  EXPECT_TRUE(wing->isVisible()) << "the checkmark keeps it";
  executor->advance(720ms);  // the checkmark's hold
  executor->advance(180ms);  // and its fade
  EXPECT_TRUE(wing->isRetracting());
  executor->advance(90ms);
  EXPECT_GT(translation(), 6.0) << "sliding towards the notch";
  EXPECT_LT(wing->surfaceLayer().presentationAt(executor->now()).scaleX, 1.0);
  executor->advance(90ms);
  EXPECT_FALSE(wing->isVisible());
  EXPECT_FALSE(wing->isRetracting());
  EXPECT_EQ(transientEnded, 1);
}

TEST_F(WingTest, UnderReduceMotionItOnlyFades) {
  options.reduceMotion = true;
  wing->present(frame, 12, {1, true, 0}, options);
  EXPECT_DOUBLE_EQ(translation(), 0.0);
  EXPECT_FALSE(wing->contentView().activityGroup().matrix().isAnimating());
  executor->advance(120ms);
  EXPECT_DOUBLE_EQ(alpha(), 1.0);
  wing->hide(true, true, true);
  EXPECT_DOUBLE_EQ(translation(), 0.0);
  executor->advance(120ms);
  EXPECT_FALSE(wing->isVisible());
  EXPECT_EQ(transientEnded, 1);
}

TEST_F(WingTest, AHardHideIsImmediateAndSilent) {
  wing->present(frame, 12, {1, true, 1}, options);
  wing->hardHide();
  EXPECT_EQ(events, (std::vector<std::string>{"front", "out"}));
  EXPECT_DOUBLE_EQ(alpha(), 0.0);
  EXPECT_FALSE(wing->contentView().activityGroup().isPresentingCompletion());
  executor->advance(5s);
  EXPECT_EQ(transientEnded, 0);
  EXPECT_FALSE(wing->isMoving(executor->now()));
}

// The island as the application runs it: both wings under the controller, on the screens given.
class IslandTest : public ::testing::Test {
 protected:
  IslandTest() {
    const auto wingSetup = [this](NotchIslandSide side, std::vector<std::string>& log) {
      NotchIslandWing::Setup setup;
      setup.side = side;
      setup.executor = executor;
      setup.now = [this] { return executor->now(); };
      setup.panel.orderFront = [&log] { log.push_back("front"); };
      setup.panel.orderOut = [&log] { log.push_back("out"); };
      return setup;
    };
    left = std::make_unique<NotchIslandWing>(wingSetup(NotchIslandSide::left, leftLog));
    right = std::make_unique<NotchIslandWing>(wingSetup(NotchIslandSide::right, rightLog));
    NotchIslandController::Dependencies d;
    d.executor = executor;
    d.leftWing = left->operations();
    d.rightWing = right->operations();
    d.screenContexts = [this] { return screens; };
    d.accessibilityOptions = [] { return CorallineAccessibilityOptions{}; };
    controller = std::make_unique<NotchIslandController>(d);
    left->onTransientEnded = [this] { controller->transientEnded(); };
    right->onTransientEnded = [this] { controller->transientEnded(); };
  }
  // As the application draws it: the steady state stored, the real one presented.
  NotchIslandDisposition show(NotchIslandPresentation shown) {
    auto steady = shown;
    steady.codex.finishedCount = steady.claude.finishedCount = 0;
    controller->latestPresentation = steady;
    return controller->presentLatest(shown);
  }

  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
  std::vector<NotchPlacementResolver::ScreenContext> screens{
      IslandEnvironment::virtualNotch({0, 0, 1920, 1048}, false)};
  std::vector<std::string> leftLog, rightLog;
  std::unique_ptr<NotchIslandWing> left, right;
  std::unique_ptr<NotchIslandController> controller;
};

TEST_F(IslandTest, StandsBesideTheVirtualNotchOnlyWhereThereIsOne) {
  struct Case {
    const char* name;
    std::vector<NotchPlacementResolver::ScreenContext> screens;
    NotchIslandDisposition expected;
  };
  const Case cases[] = {
      {"a virtual notch", {IslandEnvironment::virtualNotch({0, 0, 1920, 1048}, false)}, NotchIslandDisposition::island},
      {"in full-screen use", {IslandEnvironment::virtualNotch({0, 0, 1920, 1048}, true)},
       NotchIslandDisposition::menuBarFallback},
      {"no notch", {IslandEnvironment::plainScreen({0, 0, 1920, 1080})}, NotchIslandDisposition::menuBarFallback},
      {"no screen", {}, NotchIslandDisposition::menuBarFallback},
  };
  for (const auto& c : cases) {
    screens = c.screens;
    EXPECT_EQ(show({{0, false, 0}, {1, true, 0}}), c.expected) << c.name;
  }
  screens = {IslandEnvironment::virtualNotch({0, 0, 1920, 1048}, false)};
  show({{0, false, 0}, {1, true, 0}});
  EXPECT_EQ(right->frame(), (ScreenRect{984 - 12, 1016, 70, 32})) << "right of the 48-point notch, at the top";
  EXPECT_TRUE(right->isVisible());
  EXPECT_FALSE(left->isVisible()) << "no Codex session, no left wing";
  EXPECT_EQ(show({}), NotchIslandDisposition::hidden) << "nothing to show is not a fallback";
}

TEST_F(IslandTest, ACompletionFlashesOnceThenTheIslandGoes) {
  show({{0, false, 0}, {1, true, 0}});
  executor->advance(200ms);
  // The session ends: one completion edge, drawn once; the next snapshots carry none.
  show({{0, false, 0}, {0, false, 1}});
  show({{0, false, 0}, {0, false, 0}});
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::island) << "the checkmark is still playing";
  EXPECT_TRUE(right->isVisible());
  for (const auto step : {720ms, 180ms, 180ms}) executor->advance(step);  // hold, fade, retraction
  EXPECT_FALSE(right->isVisible());
  EXPECT_EQ(controller->disposition(), NotchIslandDisposition::hidden);
  EXPECT_EQ(rightLog, (std::vector<std::string>{"front", "out"}));
}

TEST_F(IslandTest, TheCountRollsAsSessionsComeAndGo) {
  show({{1, true, 0}, {0, false, 0}});
  show({{2, true, 0}, {0, false, 0}});
  const auto& count = left->contentView().activityGroup().countLayer();
  EXPECT_EQ(count.currentLayer()->text, "2");
  EXPECT_EQ(count.outgoingLayers().size(), 1u);
  executor->advance(200ms);
  EXPECT_TRUE(count.outgoingLayers().empty());
}

TEST_F(IslandTest, AWorkspaceSwitchHidesAtOnceAndReturnsAfterItsAnimation) {
  show({{1, true, 0}, {1, false, 0}});
  controller->activeSpaceChanged();
  EXPECT_FALSE(left->isVisible());
  executor->advance(200ms);
  controller->activeSpaceChanged();  // a second switch: the first return is cancelled
  executor->advance(300ms);
  EXPECT_FALSE(left->isVisible());
  executor->advance(120ms);
  EXPECT_TRUE(left->isVisible());
  EXPECT_TRUE(right->isVisible());
}

}  // namespace
}  // namespace tidewatch
