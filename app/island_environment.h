// What the island needs to know of a Linux desktop, decided without touching it: the virtual
// notch that stands in for a camera housing, whether a screen is in full-screen use, and the
// accessibility options the desktop publishes. The window side reads the facts; these decide.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "app/notch_island.h"
#include "coralline_kit/notch_placement_resolver.h"

namespace tidewatch::IslandEnvironment {

inline constexpr double virtualNotchWidth = 48.0;
inline constexpr double auxiliaryAreaHeight = 32.0;

// The primary screen as one with a notch at the top centre of its available area, so below any
// top panel. The area stands for the screen, so the wings hang from its top edge. Bottom-left
// coordinates.
NotchPlacementResolver::ScreenContext virtualNotch(const ScreenRect& available, bool isFullScreen);
// Any other screen: nothing to stand beside.
NotchPlacementResolver::ScreenContext plainScreen(const ScreenRect& frame);

// A top-level window as the window manager tells it.
struct WindowFacts {
  ScreenRect frame;  // top-left coordinates
  bool fullScreen = false;
  bool hidden = false;            // minimised or withdrawn
  bool onCurrentDesktop = true;   // or on every desktop
};

// Whether a shown full-screen window covers the middle of the screen (top-left coordinates).
bool screenInFullScreenUse(const std::vector<WindowFacts>& windows, const ScreenRect& screen);

// A desktop setting as the settings portal or the desktop's own schema publishes it.
using SettingValue = std::variant<bool, int64_t, std::string>;
using DesktopSettings = std::map<std::pair<std::string, std::string>, SettingValue>;

// The portal's appearance keys first, the desktop's own keys where the portal says nothing; a
// setting that is absent or of another type means off.
CorallineAccessibilityOptions accessibilityOptions(const DesktopSettings& settings);

// The namespaces whose keys `accessibilityOptions` reads.
const std::vector<std::string>& settingNamespaces();

}  // namespace tidewatch::IslandEnvironment
