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

template <typename F>
ScreenContext with(ScreenContext context, F change) {
  change(context);
  return context;
}

TEST(NotchPlacementResolver, TheOverlayCoversTheGapAtTheTopOfTheScreen) {
  const std::vector<std::pair<ScreenContext, Decision>> cases = {
      {notched(200), ShowOverlay{{656, 954, 200, 28}}},
      {notched(40.1), ShowOverlay{{leftEdge(40.1), 954, rightEdge(40.1) - leftEdge(40.1), 28}}},
      {notched(40), MenuBarFallback{}},
      {with(notched(200), [](auto& c) { c.isBuiltIn = false; }), MenuBarFallback{}},
      {with(notched(200), [](auto& c) { c.hasNotch = false; }), MenuBarFallback{}},
      {with(notched(200), [](auto& c) { c.isFullScreen = true; }), MenuBarFallback{}},
      {with(notched(200), [](auto& c) { c.auxiliaryTopLeft.reset(); }), MenuBarFallback{}},
      {with(notched(200), [](auto& c) { c.auxiliaryTopRight.reset(); }), MenuBarFallback{}},
  };
  for (size_t i = 0; i < cases.size(); ++i) EXPECT_EQ(resolve(cases[i].first), cases[i].second) << "case " << i;
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
      {notched(40), 58, 12, fallback},
      {notched(40.1), 58, 12, ShowIsland{{{leftEdge(40.1) - 58, 950, 70, 32}, {rightEdge(40.1) - 12, 950, 70, 32}, 58, 12}}},
      {notched(50), 58, 25, fallback},
      {notched(50.1), 58, 25, ShowIsland{{{leftEdge(50.1) - 58, 950, 83, 32}, {rightEdge(50.1) - 25, 950, 83, 32}, 58, 25}}},
      {notched(200), 0, 12, fallback},
      {notched(200), 58, -1, fallback},
      {notched(200, 0, 32), 58, 12, fallback},
      {with(notched(200), [](auto& c) { c.isFullScreen = true; }), 58, 12, fallback},
      {with(notched(200), [](auto& c) { c.hasNotch = false; }), 58, 12, fallback},
      {with(notched(200), [](auto& c) { c.auxiliaryTopRight.reset(); }), 58, 12, fallback},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(resolveIsland(cases[i].context, cases[i].w, cases[i].o), cases[i].expected) << "case " << i;
  }
}

TEST(ScreenCoordinates, FramesMirrorBetweenBottomLeftAndTopLeftOrigins) {
  // On a 1080-point desktop, a wing 32 high at the very top starts at y 1048 going up, 0 going down.
  const ScreenRect up{598, 1048, 70, 32};
  const ScreenRect down{598, 0, 70, 32};
  EXPECT_EQ(ScreenCoordinates::toTopLeftOrigin(up, 1080), down);
  EXPECT_EQ(ScreenCoordinates::fromTopLeftOrigin(down, 1080), up);
  // A screen below the primary one has negative y going up.
  const ScreenRect lower{0, -768, 1024, 768};
  EXPECT_EQ(ScreenCoordinates::toTopLeftOrigin(lower, 1080), (ScreenRect{0, 1080, 1024, 768}));
  EXPECT_EQ(ScreenCoordinates::fromTopLeftOrigin(ScreenCoordinates::toTopLeftOrigin(lower, 1080), 1080), lower);
}

}  // namespace
}  // namespace tidewatch
