#include "app/panel_placement.h"

#include <algorithm>

namespace tidewatch::PanelPlacement {

ScreenRect anchor(const std::optional<ScreenRect>& icon, const std::optional<Point>& pointer,
                  const ScreenRect& available) {
  if (icon && icon->width > 0 && icon->height > 0) return *icon;
  if (pointer) {
    return {pointer->x - pointerAnchor / 2, pointer->y - pointerAnchor / 2, pointerAnchor, pointerAnchor};
  }
  return {available.maxX() - pointerAnchor, available.maxY() - pointerAnchor, pointerAnchor, pointerAnchor};
}

ScreenRect frame(const ScreenRect& anchor, double width, double height, const ScreenRect& available,
                 const ScreenRect& screen) {
  // Centred on the anchor; on a screen narrower than the panel the left inset wins.
  const double low = available.minX() + edgeInset;
  const double high = available.maxX() - width - edgeInset;
  const double x = std::min(std::max(anchor.minX() + anchor.width / 2 - width / 2, low), std::max(low, high));

  const bool inLowerHalf = anchor.minY() + anchor.height / 2 < screen.minY() + screen.height / 2;
  const double y = inLowerHalf
                       ? std::min(anchor.maxY() + anchorGap, available.maxY() - height - edgeInset)
                       : std::max(anchor.minY() - height - anchorGap, available.minY() + edgeInset);
  return {x, y, width, height};
}

}  // namespace tidewatch::PanelPlacement
