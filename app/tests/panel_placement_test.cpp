#include "app/panel_placement.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

using namespace PanelPlacement;

// A 1920 x 1080 screen with a 32-point top bar: the free area ends 32 points below the top.
const ScreenRect screen{0, 0, 1920, 1080};
const ScreenRect underTopBar{0, 0, 1920, 1048};

TEST(PanelPlacement, UnderTheIconInsideTheFreeAreaOrAboveItFromTheBottom) {
  const ScreenRect bottomBar{0, 40, 1920, 1040};  // a 40-point panel at the bottom
  const ScreenRect narrow{0, 0, 600, 1048};
  struct Case {
    const char* what;
    ScreenRect icon, available;
    ScreenRect expected;
  };
  const Case cases[] = {
      {"centred under the icon", {1000, 1048, 24, 32}, underTopBar, {662, 562, 700, 480}},
      {"at the right edge, 8 points in", {1890, 1048, 24, 32}, underTopBar, {1212, 562, 700, 480}},
      {"at the left edge, 8 points in", {0, 1048, 24, 32}, underTopBar, {8, 562, 700, 480}},
      {"a screen narrower than the panel: the left inset wins", {300, 1048, 24, 32}, narrow, {8, 562, 700, 480}},
      {"a tray at the bottom opens the panel above it", {1880, 4, 32, 32}, bottomBar, {1212, 42, 700, 480}},
  };
  for (const auto& c : cases) EXPECT_EQ(frame(c.icon, 700, 480, c.available, screen), c.expected) << c.what;

  // A tall panel never leaves the free area: not below its bottom, nor above its top.
  EXPECT_EQ(frame({1000, 1048, 24, 32}, 700, 1100, underTopBar, screen).y, 8);
  EXPECT_EQ(frame({1000, 4, 24, 32}, 700, 1100, bottomBar, screen).y, 1040 + 40 - 1100 - 8);
}

TEST(PanelPlacement, TheAnchorFallsBackToThePointerThenTheTopRight) {
  const std::tuple<std::optional<ScreenRect>, std::optional<Point>, ScreenRect> cases[] = {
      {ScreenRect{1000, 1048, 24, 32}, Point{5, 5}, {1000, 1048, 24, 32}},
      {ScreenRect{0, 0, 0, 0}, Point{500, 1060}, {488, 1048, 24, 24}},  // a tray that tells no geometry
      {std::nullopt, Point{500, 1060}, {488, 1048, 24, 24}},
      {std::nullopt, std::nullopt, {1896, 1024, 24, 24}},
  };
  for (const auto& [icon, pointer, expected] : cases) EXPECT_EQ(anchor(icon, pointer, underTopBar), expected);
}

}  // namespace
}  // namespace tidewatch
