#include "app/island_environment.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

using namespace IslandEnvironment;

TEST(IslandEnvironment, TheVirtualNotchStandsAtTheTopCentreOfTheAvailableArea) {
  // A 1920 x 1080 screen under a 32-point top panel: the available area in bottom-left coordinates.
  const auto context = virtualNotch({0, 0, 1920, 1048}, false);
  EXPECT_TRUE(context.isBuiltIn);
  EXPECT_TRUE(context.hasNotch);
  EXPECT_EQ(context.auxiliaryTopLeft, (ScreenRect{0, 1016, 936, 32}));
  EXPECT_EQ(context.auxiliaryTopRight, (ScreenRect{984, 1016, 936, 32}));
  const auto island = NotchPlacementResolver::resolveIsland(context, 58, 12);
  ASSERT_TRUE(std::holds_alternative<NotchPlacementResolver::ShowIsland>(island));
  const auto& layout = std::get<NotchPlacementResolver::ShowIsland>(island).layout;
  EXPECT_EQ(layout.leftWingFrame, (ScreenRect{878, 1016, 70, 32}));
  EXPECT_EQ(layout.rightWingFrame, (ScreenRect{972, 1016, 70, 32}));
  EXPECT_TRUE(virtualNotch({0, 0, 1920, 1048}, true).isFullScreen);
  EXPECT_FALSE(plainScreen({0, 0, 800, 600}).hasNotch);
}

TEST(IslandEnvironment, AScreenIsInFullScreenUseOnlyByAShownFullScreenWindowOverIt) {
  const ScreenRect screen{0, 0, 1920, 1080};
  struct Case {
    const char* name;
    WindowFacts window;
    bool expected;
  };
  const Case cases[] = {
      {"full screen", {{0, 0, 1920, 1080}, true, false, true}, true},
      {"maximised only", {{0, 0, 1920, 1080}, false, false, true}, false},
      {"minimised", {{0, 0, 1920, 1080}, true, true, true}, false},
      {"on another desktop", {{0, 0, 1920, 1080}, true, false, false}, false},
      {"on the other screen", {{1920, 0, 2560, 1440}, true, false, true}, false},
  };
  for (const auto& c : cases) EXPECT_EQ(screenInFullScreenUse({c.window}, screen), c.expected) << c.name;
  EXPECT_FALSE(screenInFullScreenUse({}, screen));
}

TEST(IslandEnvironment, AccessibilityFollowsThePortalThenTheDesktopsOwnKeys) {
  const std::pair<std::string, std::string> contrast{"org.freedesktop.appearance", "contrast"};
  const std::pair<std::string, std::string> motion{"org.freedesktop.appearance", "reduced-motion"};
  const std::pair<std::string, std::string> highContrast{"org.gnome.desktop.a11y.interface", "high-contrast"};
  const std::pair<std::string, std::string> animations{"org.gnome.desktop.interface", "enable-animations"};
  struct Case {
    const char* name;
    DesktopSettings settings;
    bool increaseContrast;
    bool reduceMotion;
  };
  const Case cases[] = {
      {"nothing published", {}, false, false},
      {"portal asks for both", {{contrast, int64_t{1}}, {motion, int64_t{1}}}, true, true},
      {"portal has no preference", {{contrast, int64_t{0}}, {highContrast, true}}, false, false},
      {"an unknown portal value", {{contrast, int64_t{7}}}, false, false},
      {"desktop keys alone", {{highContrast, true}, {animations, false}}, true, true},
      {"animations on", {{animations, true}}, false, false},
      {"a value of the wrong type", {{highContrast, std::string("true")}, {motion, true}}, false, false},
  };
  for (const auto& c : cases) {
    const auto options = accessibilityOptions(c.settings);
    EXPECT_EQ(options.increaseContrast, c.increaseContrast) << c.name;
    EXPECT_EQ(options.reduceMotion, c.reduceMotion) << c.name;
    EXPECT_FALSE(options.reduceTransparency);
    EXPECT_FALSE(options.differentiateWithoutColor);
  }
  EXPECT_EQ(settingNamespaces().size(), 3u);
}

}  // namespace
}  // namespace tidewatch
