#include "app/activity_visuals.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

using namespace std::chrono_literals;

TEST(TimingCurve, KeepsItsEndsAndEasesBetween) {
  struct Case {
    TimingCurve curve;
    double progress;
    double low;
    double high;
  };
  const Case cases[] = {
      {TimingCurves::linear, 0.5, 0.4999, 0.5001},
      {TimingCurves::easeInEaseOut, 0.5, 0.4999, 0.5001},
      {TimingCurves::easeInEaseOut, 0.1, 0.0, 0.05},
      {TimingCurves::surface, 0.2, 0.6, 1.0},  // most of the way at once
      {TimingCurves::roll, 0.2, 0.0, 0.1},     // slow to start
      {TimingCurves::surface, 0.0, 0.0, 0.0},
      {TimingCurves::roll, 1.0, 1.0, 1.0},
      {TimingCurves::roll, 1.7, 1.0, 1.0},
  };
  for (const auto& c : cases) {
    const double value = c.curve.valueAt(c.progress);
    EXPECT_GE(value, c.low) << c.progress;
    EXPECT_LE(value, c.high) << c.progress;
  }
}

TEST(MotionLayer, AnimationsOverrideTheRestingValueUntilTheyEnd) {
  MotionLayer layer;
  layer.opacity = 0.3;
  layer.add("fade", {basicAnimation(LayerProperty::opacity, 1, 0.3, 0ms, 100ms, TimingCurves::linear)});
  EXPECT_DOUBLE_EQ(layer.presentationAt(50ms).opacity, 0.65);
  EXPECT_TRUE(layer.isMoving(99ms));
  EXPECT_DOUBLE_EQ(layer.presentationAt(100ms).opacity, 0.3);
  EXPECT_FALSE(layer.isMoving(100ms));
  EXPECT_FALSE(layer.has("fade")) << "finished animations are forgotten";

  // The later key wins on the same property; removing it uncovers the earlier one.
  layer.add("a", {basicAnimation(LayerProperty::translationX, 0, 10, 0ms, 1s, TimingCurves::linear)});
  layer.add("b", {basicAnimation(LayerProperty::translationX, 0, -10, 0ms, 1s, TimingCurves::linear)});
  EXPECT_DOUBLE_EQ(layer.presentationAt(500ms).translationX, -5);
  layer.remove("b");
  EXPECT_DOUBLE_EQ(layer.presentationAt(500ms).translationX, 5);
}

TEST(MotionLayer, RepeatingKeyFramesCycleFromTheirPhase) {
  LayerAnimation wave;
  wave.values = {0.2, 1.0, 0.2};
  wave.duration = 1s;
  wave.repeats = true;
  MotionLayer layer;
  layer.add("wave", {wave});
  EXPECT_NEAR(layer.presentationAt(250ms).opacity, 0.6, 1e-6);
  EXPECT_NEAR(layer.presentationAt(1500ms).opacity, 1.0, 1e-6) << "again in the next cycle";
  EXPECT_TRUE(layer.isMoving(1h));
  wave.phase = -0.25;  // a quarter of a cycle behind
  layer.add("wave", {wave});
  EXPECT_NEAR(layer.presentationAt(500ms).opacity, 0.6, 1e-6);
}

TEST(AgentActivityPalette, RunsFromTheFirstColorToTheThird) {
  const auto codex = AgentActivityPalette::codex();
  EXPECT_EQ(codex.gradientAt(0), (ActivityColor{82 / 255.0, 185 / 255.0, 151 / 255.0, 1}));
  EXPECT_EQ(codex.gradientAt(0.5), codex.colors[1]);
  EXPECT_EQ(AgentActivityPalette::claude().gradientAt(1), (ActivityColor{1, 202 / 255.0, 151 / 255.0, 1}));
}

class MatrixTest : public ::testing::Test {
 protected:
  MotionTime now{0};
  GradientActivityMatrix left{AgentActivityPalette::codex(), false, AgentActivityMatrixPattern::ring,
                              [this] { return now; }};
  GradientActivityMatrix right{AgentActivityPalette::claude(), true, AgentActivityMatrixPattern::spark,
                               [this] { return now; }};
};

TEST_F(MatrixTest, RestsBrighterTowardsTheNotchAndWithContrast) {
  struct Case {
    bool working;
    bool reduceMotion;
    bool contrast;
    double cornerAwayFromNotch;  // cell 0 of the left wing
    double cornerByTheNotch;     // cell 8 of the left wing
  };
  const Case cases[] = {
      {false, false, false, 0.62, 0.62 + 0.035 * 4},
      {false, false, true, 0.76, 0.76 + 0.035 * 4},
      {true, true, false, 0.82, 0.82 + 0.035 * 4},
      {true, true, true, 0.9, 1.0},  // capped
  };
  for (const auto& c : cases) {
    left.update(c.working, c.reduceMotion, c.contrast, false);
    EXPECT_FALSE(left.isAnimating());
    EXPECT_NEAR(left.cells()[0].presentationAt(now).opacity, c.cornerAwayFromNotch, 1e-9);
    EXPECT_NEAR(left.cells()[8].presentationAt(now).opacity, c.cornerByTheNotch, 1e-9);
  }
  right.update(false, false, false, false);
  EXPECT_GT(right.cells()[0].opacity, right.cells()[2].opacity) << "the right wing's notch is on its left";
}

TEST_F(MatrixTest, KeepsItsShapeWhenColorMayNotTellTheAgentsApart) {
  left.update(false, false, false, true);
  right.update(true, false, false, true);
  for (int cell = 0; cell < 9; ++cell) {
    EXPECT_EQ(left.cells()[static_cast<size_t>(cell)].presentationAt(now).opacity == 0, cell == 4) << cell;
    EXPECT_EQ(right.cells()[static_cast<size_t>(cell)].presentationAt(now + 300ms).opacity == 0, cell % 2 == 1)
        << cell;
  }
}

TEST_F(MatrixTest, BreathesWhileWorkingWithTheWaveLeavingTheNotch) {
  left.update(true, false, false, false);
  ASSERT_TRUE(left.isAnimating());
  EXPECT_TRUE(left.cells()[2].has(GradientActivityMatrix::motionKey));
  // The cell by the notch reaches full brightness before the one at the far end.
  MotionTime nearPeak{0}, farPeak{0};
  double nearBest = 0, farBest = 0;
  for (MotionTime t = 0ms; t < 1400ms; t += 10ms) {
    if (const double v = left.cells()[2].presentationAt(t).opacity; v > nearBest) nearBest = v, nearPeak = t;
    if (const double v = left.cells()[0].presentationAt(t).opacity; v > farBest) farBest = v, farPeak = t;
  }
  EXPECT_NEAR(nearBest, 1.0, 0.01);
  EXPECT_LT(nearPeak, farPeak);
  double lowest = 1;
  for (MotionTime t = 0ms; t < 1400ms; t += 10ms) lowest = std::min(lowest, left.cells()[2].presentationAt(t).opacity);
  EXPECT_NEAR(lowest, 0.2, 0.01);

  now = 500ms;
  left.update(true, false, true, false);  // contrast changed: the wave starts again with its higher floor
  lowest = 1;
  for (MotionTime t = 500ms; t < 1900ms; t += 10ms) lowest = std::min(lowest, left.cells()[2].presentationAt(t).opacity);
  EXPECT_NEAR(lowest, 0.42, 0.01);

  left.update(true, true, true, false);  // reduce motion: still
  EXPECT_FALSE(left.isAnimating());
  EXPECT_FALSE(left.cells()[2].has(GradientActivityMatrix::motionKey));
}

class CountTest : public ::testing::Test {
 protected:
  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
  RollingAgentCountLayer count{executor, [this] { return executor->now(); }};
  const ActivityColor white{1, 1, 1, 1};
};

TEST_F(CountTest, TheFirstValueAppearsWithoutMotion) {
  count.update(3, white, false, true);
  ASSERT_TRUE(count.currentLayer());
  EXPECT_EQ(count.currentLayer()->text, "3");
  EXPECT_TRUE(count.outgoingLayers().empty());
  EXPECT_EQ(executor->pendingCount(), 0u);
}

TEST_F(CountTest, RisingNumbersRollUpAndFallingOnesDown) {
  struct Case {
    int from;
    int to;
    bool reduceMotion;
    double incomingStart;  // translation of the new number at the start, top-left coordinates
    MotionTime duration;
  };
  const Case cases[] = {{1, 2, false, 9.0, 200ms}, {2, 1, false, -9.0, 200ms}, {1, 2, true, 0.0, 140ms}};
  for (const auto& c : cases) {
    count.reset();
    count.update(c.from, white, c.reduceMotion, true);
    const MotionTime start = executor->now();
    count.update(c.to, white, c.reduceMotion, true);
    ASSERT_EQ(count.outgoingLayers().size(), 1u);
    EXPECT_EQ(count.outgoingLayers()[0].text, std::to_string(c.from));
    EXPECT_DOUBLE_EQ(count.currentLayer()->layer.presentationAt(start).translationY, c.incomingStart);
    EXPECT_DOUBLE_EQ(count.currentLayer()->layer.presentationAt(start).opacity, 0.0);
    executor->advance(c.duration - 1ms);
    ASSERT_EQ(count.outgoingLayers().size(), 1u);
    EXPECT_NEAR(count.outgoingLayers()[0].layer.presentationAt(executor->now()).translationY, -c.incomingStart, 0.01)
        << "the old number leaves the other way";
    executor->advance(1ms);
    EXPECT_TRUE(count.outgoingLayers().empty()) << "settled";
    EXPECT_DOUBLE_EQ(count.currentLayer()->layer.presentationAt(executor->now()).opacity, 1.0);
  }
}

TEST_F(CountTest, AChangeDuringARollTakesTheOlderLayersWithIt) {
  count.update(1, white, false, true);
  count.update(2, white, false, true);
  executor->advance(100ms);
  count.update(3, white, false, true);
  executor->advance(100ms);  // the first roll's end: stale, nothing settles
  EXPECT_EQ(count.outgoingLayers().size(), 2u);
  executor->advance(100ms);
  EXPECT_TRUE(count.outgoingLayers().empty());
  EXPECT_EQ(count.currentLayer()->text, "3");
}

TEST_F(CountTest, AnUnchangedValueOnlyRecolors) {
  count.update(2, white, false, true);
  count.update(2, {1, 0, 0, 1}, false, true);
  EXPECT_TRUE(count.outgoingLayers().empty());
  EXPECT_EQ(count.foregroundColor(), (ActivityColor{1, 0, 0, 1}));
  count.update(5, white, false, false);  // not animated: replaced
  EXPECT_EQ(count.currentLayer()->text, "5");
  EXPECT_TRUE(count.outgoingLayers().empty());
}

class GroupTest : public ::testing::Test {
 protected:
  GroupTest() {
    group.onCompletionEnded = [this] { ++ended; };
  }
  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
  AgentActivityGroupLayer group{{executor, [this] { return executor->now(); }, AgentActivityPalette::claude(), true,
                                 AgentActivityMatrixPattern::spark}};
  int ended = 0;
};

TEST_F(GroupTest, ACompletionShowsTheCheckmarkOnceThenTheMatrixAgain) {
  group.latestCount = 1;
  group.latestWorking = true;
  group.updateMatrix();
  group.setSteadyLayers();
  ASSERT_TRUE(group.matrix().isAnimating());
  group.beginCompletion();
  EXPECT_TRUE(group.isPresentingCompletion());
  EXPECT_FALSE(group.matrix().isAnimating()) << "the wave stops for the checkmark";
  EXPECT_DOUBLE_EQ(group.completionLayer().presentationAt(executor->now()).scaleX, 0.9);
  EXPECT_DOUBLE_EQ(group.countOpacityLayer().opacity, 1.0) << "a session remains: its count stays";
  executor->advance(160ms);
  EXPECT_DOUBLE_EQ(group.completionLayer().presentationAt(executor->now()).opacity, 1.0);
  EXPECT_DOUBLE_EQ(group.matrixLayer().presentationAt(executor->now()).opacity, 0.0);
  group.beginCompletion();  // a second finish meanwhile changes nothing
  executor->advance(720ms - 160ms);
  EXPECT_TRUE(group.isPresentingCompletion());
  executor->advance(180ms);
  EXPECT_FALSE(group.isPresentingCompletion());
  EXPECT_EQ(ended, 1);
  EXPECT_DOUBLE_EQ(group.completionLayer().presentationAt(executor->now()).opacity, 0.0);
  EXPECT_DOUBLE_EQ(group.countOpacityLayer().presentationAt(executor->now()).opacity, 1.0);
  EXPECT_TRUE(group.matrix().isAnimating()) << "working again";
  executor->runUntilIdle();
  EXPECT_EQ(ended, 1);
}

TEST_F(GroupTest, TheLastSessionsCountLeavesWithTheMatrix) {
  group.latestCount = 1;
  group.setSteadyLayers();
  group.latestCount = 0;
  group.beginCompletion();
  executor->advance(160ms);
  EXPECT_DOUBLE_EQ(group.countOpacityLayer().presentationAt(executor->now()).opacity, 0.0);
  EXPECT_DOUBLE_EQ(group.completionLayer().presentationAt(executor->now()).opacity, 1.0);
}

TEST_F(GroupTest, AResetDuringACompletionLeavesItsTimersStale) {
  group.beginCompletion();
  executor->advance(300ms);
  group.reset();
  executor->advance(2s);
  EXPECT_EQ(ended, 0);
  EXPECT_FALSE(group.isPresentingCompletion());
  EXPECT_DOUBLE_EQ(group.countOpacityLayer().opacity, 0.0) << "no sessions, no number";
  EXPECT_FALSE(group.isMoving(executor->now()));
}

}  // namespace
}  // namespace tidewatch
