// Where the panel opens: under the tray icon, centred on it and kept 8 points inside the screen's
// free area, or above it when the icon sits in the lower half of its screen. Linux trays do not
// always tell where their icon is, so the anchor falls back to the pointer at the click, then to
// the top right of the free area. Pure; bottom-left coordinates, as the notch placement uses.
#pragma once

#include <optional>

#include "coralline_kit/notch_placement_resolver.h"

namespace tidewatch::PanelPlacement {

inline constexpr double edgeInset = 8.0;     // from the free area's edges
inline constexpr double anchorGap = 6.0;     // between the icon and the panel
inline constexpr double pointerAnchor = 24.0;  // the size of a stand-in for an icon

struct Point {
  double x = 0;
  double y = 0;
};

// The icon's rectangle when the tray gives a non-empty one; else a small square centred on the
// pointer; else one in the top right corner of the free area.
ScreenRect anchor(const std::optional<ScreenRect>& icon, const std::optional<Point>& pointer,
                  const ScreenRect& available);

// The panel's frame for a panel `width` by `height` points.
ScreenRect frame(const ScreenRect& anchor, double width, double height, const ScreenRect& available,
                 const ScreenRect& screen);

}  // namespace tidewatch::PanelPlacement
