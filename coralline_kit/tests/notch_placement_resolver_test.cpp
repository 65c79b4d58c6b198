#include "coralline_kit/notch_placement_resolver.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

using namespace NotchPlacementResolver;

// A 1512 x 982 built-in screen whose notch leaves free areas 32 high on both sides; the gap
// between them is `gap` points wide, centred.
ScreenContext notched(double gap, double leftHeight = 32, double rightHeight = 32) {
  const double leftWidth = (1512 - gap) / 2;
  return {true,
          true,
          false,
          ScreenRect{0, 982 - leftHeight, leftWidth, leftHeight},
          ScreenRect{leftWidth + gap, 982 - rightHeight, leftWidth, rightHeight},
          ScreenRect{0, 0, 1512, 982}};
}

// The notch's edges: where the left free area ends and the right one begins.
double leftEdge(double gap) { return notched(gap).auxiliaryTopLeft->maxX(); }
double rightEdge(double gap) { return notched(gap).auxiliaryTopRight->minX(); }

TEST(NotchPlacementResolver, NothingIsPlacedBesideANarrowNotchOrOnAScreenWithoutOne) {
  std::vector<ScreenContext> unusable(6, notched(200));
  unusable[0] = notched(40);
  unusable[1].isBuiltIn = false;
  unusable[2].hasNotch = false;
  unusable[3].isFullScreen = true;
  unusable[4].auxiliaryTopLeft.reset();
  unusable[5].auxiliaryTopRight.reset();
  for (size_t i = 0; i < unusable.size(); ++i) {
    EXPECT_EQ(resolve(unusable[i]), Decision{MenuBarFallback{}}) << "case " << i;
    EXPECT_EQ(resolveIsland(unusable[i], 58, 12), IslandDecision{MenuBarFallback{}}) << "case " << i;
  }
}

TEST(NotchPlacementResolver, TheOverlayCoversTheGapAtTheTopOfTheScreen) {
  EXPECT_EQ(resolve(notched(200)), (Decision{ShowOverlay{{656, 954, 200, 28}}}));
  EXPECT_EQ(resolve(notched(40.1)),
            (Decision{ShowOverlay{{leftEdge(40.1), 954, rightEdge(40.1) - leftEdge(40.1), 28}}}));
}

TEST(NotchPlacementResolver, TheIslandsWingsFlankTheNotchAndReachUnderIt) {
  struct Case {
    ScreenContext context;
    double w, o;
    IslandDecision expected;
  };
  const MenuBarFallback fallback;
  const std::vector<Case> cases = {
      {notched(200), 58, 12, ShowIsland{{{598, 950, 70, 32}, {844, 950, 70, 32}, 58, 12}}},
      {notched(200, 32, 24), 58, 12, ShowIsland{{{598, 958, 70, 24}, {844, 958, 70, 24}, 58, 12}}},
      {notched(200), 656, 0, ShowIsland{{{0, 950, 656, 32}, {856, 950, 656, 32}, 656, 0}}},
      {notched(200), 656.5, 0, fallback},
      {notched(40.1), 58, 12, ShowIsland{{{leftEdge(40.1) - 58, 950, 70, 32}, {rightEdge(40.1) - 12, 950, 70, 32}, 58, 12}}},
      {notched(50), 58, 25, fallback},
      {notched(50.1), 58, 25, ShowIsland{{{leftEdge(50.1) - 58, 950, 83, 32}, {rightEdge(50.1) - 25, 950, 83, 32}, 58, 25}}},
      {notched(200), 0, 12, fallback},
      {notched(200), 58, -1, fallback},
      {notched(200, 0, 32), 58, 12, fallback},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(resolveIsland(cases[i].context, cases[i].w, cases[i].o), cases[i].expected) << "case " << i;
  }
}

TEST(ScreenCoordinates, FramesMirrorBetweenBottomLeftAndTopLeftOrigins) {
  // On a 1080-point desktop: a wing 32 high at the very top, and a screen below the primary one.
  const std::vector<std::pair<ScreenRect, ScreenRect>> upAndDown = {
      {{598, 1048, 70, 32}, {598, 0, 70, 32}}, {{0, -768, 1024, 768}, {0, 1080, 1024, 768}}};
  for (const auto& [up, down] : upAndDown) {
    EXPECT_EQ(ScreenCoordinates::toTopLeftOrigin(up, 1080), down);
    EXPECT_EQ(ScreenCoordinates::fromTopLeftOrigin(down, 1080), up);
  }
}

}  // namespace
}  // namespace tidewatch
