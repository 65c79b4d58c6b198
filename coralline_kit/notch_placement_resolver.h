// Whether something can sit beside the camera notch of a screen, and where. Pure: it is told
// the screen, never asks for it. Geometry is in points, in the window system's screen
// coordinates: origin at the bottom left, y growing upwards.
#pragma once

#include <optional>
#include <variant>

namespace tidewatch {

struct ScreenRect {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  double minX() const { return x; }
  double maxX() const { return x + width; }
  double minY() const { return y; }
  double maxY() const { return y + height; }

  friend bool operator==(const ScreenRect&, const ScreenRect&) = default;
};

// X11 places windows from the top left with y growing downwards. Both conversions mirror a
// rectangle within a desktop `desktopHeight` points high (the height of the reference whose
// bottom-left corner is the origin of the other convention), and each undoes the other.
namespace ScreenCoordinates {

ScreenRect fromTopLeftOrigin(const ScreenRect& topLeftOrigin, double desktopHeight);
ScreenRect toTopLeftOrigin(const ScreenRect& bottomLeftOrigin, double desktopHeight);

}  // namespace ScreenCoordinates

namespace NotchPlacementResolver {

struct ScreenContext {
  bool isBuiltIn = false;
  bool hasNotch = false;
  bool isFullScreen = false;
  std::optional<ScreenRect> auxiliaryTopLeft;   // the free area left of the notch
  std::optional<ScreenRect> auxiliaryTopRight;  // the free area right of it
  ScreenRect screenFrame;
};

struct ShowOverlay {
  ScreenRect frame;
  friend bool operator==(const ShowOverlay&, const ShowOverlay&) = default;
};
struct MenuBarFallback {
  friend bool operator==(const MenuBarFallback&, const MenuBarFallback&) = default;
};
using Decision = std::variant<ShowOverlay, MenuBarFallback>;

struct IslandLayout {
  ScreenRect leftWingFrame;
  ScreenRect rightWingFrame;
  double visibleWingWidth = 0;
  double notchOverlap = 0;
  friend bool operator==(const IslandLayout&, const IslandLayout&) = default;
};
struct ShowIsland {
  IslandLayout layout;
  friend bool operator==(const ShowIsland&, const ShowIsland&) = default;
};
using IslandDecision = std::variant<ShowIsland, MenuBarFallback>;

// The narrowest notch anything is placed beside, and the height of the plain overlay.
inline constexpr double minimumNotchGap = 40.0;
inline constexpr double overlayHeight = 28.0;

// An overlay over the notch itself, the width of the gap between the free areas, at the top.
Decision resolve(const ScreenContext& context);

// Two wings, each `visibleWingWidth` points wide beside the notch and reaching `notchOverlap`
// points in under it, as high as the lower free area and aligned to the top of the screen.
IslandDecision resolveIsland(const ScreenContext& context, double visibleWingWidth, double notchOverlap);

}  // namespace NotchPlacementResolver
}  // namespace tidewatch
