// Between Qt's screen geometry (top-left origin, y down) and the placement code's (bottom-left
// origin within the whole desktop, y up).
#pragma once

#include <QRect>

#include "coralline_kit/notch_placement_resolver.h"

namespace tidewatch::ScreenGeometry {

// The height the two origins mirror within: the bottom edge of the virtual desktop.
double desktopHeight();
ScreenRect fromQt(const QRect& rect);
ScreenRect toTopLeft(const ScreenRect& bottomLeft);

}  // namespace tidewatch::ScreenGeometry
