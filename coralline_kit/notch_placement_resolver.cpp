#include "coralline_kit/notch_placement_resolver.h"

#include <algorithm>

namespace tidewatch {

ScreenRect ScreenCoordinates::fromTopLeftOrigin(const ScreenRect& topLeftOrigin, double desktopHeight) {
  return {topLeftOrigin.x, desktopHeight - topLeftOrigin.maxY(), topLeftOrigin.width, topLeftOrigin.height};
}

ScreenRect ScreenCoordinates::toTopLeftOrigin(const ScreenRect& bottomLeftOrigin, double desktopHeight) {
  return {bottomLeftOrigin.x, desktopHeight - bottomLeftOrigin.maxY(), bottomLeftOrigin.width,
          bottomLeftOrigin.height};
}

namespace NotchPlacementResolver {

Decision resolve(const ScreenContext& context) {
  if (!context.isBuiltIn || !context.hasNotch || context.isFullScreen || !context.auxiliaryTopLeft ||
      !context.auxiliaryTopRight) {
    return MenuBarFallback{};
  }
  const double gap = context.auxiliaryTopRight->minX() - context.auxiliaryTopLeft->maxX();
  if (!(gap > minimumNotchGap)) return MenuBarFallback{};
  return ShowOverlay{
      {context.auxiliaryTopLeft->maxX(), context.screenFrame.maxY() - overlayHeight, gap, overlayHeight}};
}

IslandDecision resolveIsland(const ScreenContext& context, double visibleWingWidth, double notchOverlap) {
  const double w = visibleWingWidth;
  const double o = notchOverlap;
  if (!context.isBuiltIn || !context.hasNotch || context.isFullScreen) return MenuBarFallback{};
  if (!(w > 0) || !(o >= 0)) return MenuBarFallback{};
  if (!context.auxiliaryTopLeft || !context.auxiliaryTopRight) return MenuBarFallback{};
  const ScreenRect& left = *context.auxiliaryTopLeft;
  const ScreenRect& right = *context.auxiliaryTopRight;
  const double height = std::min(left.height, right.height);
  if (!(height > 0)) return MenuBarFallback{};
  if (w > left.width || w > right.width) return MenuBarFallback{};
  const double gap = right.minX() - left.maxX();
  if (!(gap > std::max(minimumNotchGap, 2 * o))) return MenuBarFallback{};

  const double y = context.screenFrame.maxY() - height;
  const ScreenRect leftWing{left.maxX() - w, y, w + o, height};
  const ScreenRect rightWing{right.minX() - o, y, w + o, height};
  if (leftWing.minX() < left.minX() || rightWing.maxX() > right.maxX() || !(leftWing.maxX() < rightWing.minX())) {
    return MenuBarFallback{};
  }
  return ShowIsland{{leftWing, rightWing, w, o}};
}

}  // namespace NotchPlacementResolver
}  // namespace tidewatch
