#include "app/panel_controller.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tidewatch {
namespace {

using namespace std::chrono_literals;

const ScreenRect screen{0, 0, 1920, 1080};
const ScreenRect available{0, 0, 1920, 1048};
const ScreenRect icon{1000, 1048, 24, 32};

// A window that records what is done to it; the fades finish when the test says.
class PanelControllerTest : public ::testing::Test {
 protected:
  PanelControllerTest()
      : controller(PanelSurface{
                       .isVisible = [this] { return visible; },
                       .setFrame = [this](const ScreenRect& frame) { log.push_back("frame " + std::to_string(int(frame.x))); },
                       .orderFront =
                           [this] {
                             visible = true;
                             log.push_back("front");
                           },
                       .makeKey = [this] { log.push_back("key"); },
                       .orderOut =
                           [this] {
                             visible = false;
                             log.push_back("out");
                           },
                   },
                   700, 480) {
    controller.onDidShow = [this] { log.push_back("didShow"); };
    controller.onDidClose = [this] { log.push_back("didClose"); };
    controller.onDismissRequested = [this](DismissalMode mode, std::function<void()> completion) {
      log.push_back(mode == DismissalMode::animated ? "fade" : "cut");
      fades.push_back(std::move(completion));
    };
  }

  bool show() { return controller.show(icon, available, screen); }
  void finishFade(size_t index) { fades.at(index)(); }

  bool visible = false;
  std::vector<std::string> log;
  std::vector<std::function<void()>> fades;
  PanelController controller;
};

TEST_F(PanelControllerTest, OpensPlacedUnderTheIconAndClosesAfterItsFade) {
  ASSERT_TRUE(show());
  EXPECT_FALSE(show()) << "already open";
  controller.outsideInteraction(PanelPlacement::Point{1010, 1060});
  EXPECT_TRUE(controller.isPresented()) << "a click on the icon is the icon's own toggle";
  controller.outsideInteraction(PanelPlacement::Point{10, 10});
  EXPECT_FALSE(controller.isPresented());
  EXPECT_TRUE(visible) << "still fading";
  finishFade(0);
  EXPECT_EQ(log, (std::vector<std::string>{"frame 662", "front", "key", "didShow", "fade", "out", "didClose"}));
}

TEST_F(PanelControllerTest, ReopeningDuringTheFadeKeepsTheWindowAndPublishesNothing) {
  show();
  controller.outsideInteraction(std::nullopt);
  ASSERT_TRUE(show()) << "reopened while fading";
  finishFade(0);  // the first fade ends late: a stale generation
  EXPECT_TRUE(visible);
  EXPECT_EQ(log, (std::vector<std::string>{"frame 662", "front", "key", "didShow", "fade", "frame 662", "key"}));
}

TEST_F(PanelControllerTest, EscapeCutsAFadeShortAndOnlyTheLastDismissalFinishes) {
  show();
  controller.outsideInteraction(std::nullopt);
  controller.dismissNow();  // Escape while it fades
  finishFade(0);
  EXPECT_TRUE(visible) << "the first dismissal is stale";
  finishFade(1);
  EXPECT_FALSE(visible);
  EXPECT_EQ(std::count(log.begin(), log.end(), "didClose"), 1);
  log.clear();
  controller.dismissNow();
  EXPECT_TRUE(log.empty()) << "Escape on a closed panel does nothing";
}

TEST(PopoverRevealState, RevealsAndConcealsWithTheirOwnPaceAndCompletesOnTime) {
  for (const bool reduced : {false, true}) {
    auto executor = std::make_shared<ManualMainExecutor>();
    PopoverRevealState reveal(executor, [reduced] { return reduced; });
    int changes = 0;
    reveal.onChange = [&] { ++changes; };
    bool completed = false;
    reveal.conceal([&] { completed = true; });
    EXPECT_TRUE(completed) << "nothing to conceal";

    reveal.reveal();
    EXPECT_EQ(reveal.duration(), reduced ? 120ms : 240ms);
    EXPECT_EQ(reveal.curve(), reduced ? PopoverRevealState::Curve::easeOut : PopoverRevealState::Curve::reveal);
    completed = false;
    reveal.conceal([&] { completed = true; });
    EXPECT_FALSE(reveal.isRevealed());
    EXPECT_EQ(reveal.curve(), reduced ? PopoverRevealState::Curve::easeOut : PopoverRevealState::Curve::easeIn);
    executor->advance(reveal.duration() - 1ms);
    EXPECT_FALSE(completed);
    executor->advance(1ms);
    EXPECT_TRUE(completed);
    EXPECT_EQ(changes, 2);
  }
}

}  // namespace
}  // namespace tidewatch
