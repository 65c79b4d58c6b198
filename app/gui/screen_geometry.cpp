#include "app/gui/screen_geometry.h"

#include <QGuiApplication>
#include <QScreen>

namespace tidewatch::ScreenGeometry {

double desktopHeight() {
  const QRect desktop = QGuiApplication::primaryScreen()->virtualGeometry();
  return desktop.y() + desktop.height();
}

ScreenRect fromQt(const QRect& rect) {
  return ScreenCoordinates::fromTopLeftOrigin({static_cast<double>(rect.x()), static_cast<double>(rect.y()),
                                               static_cast<double>(rect.width()), static_cast<double>(rect.height())},
                                              desktopHeight());
}

ScreenRect toTopLeft(const ScreenRect& bottomLeft) {
  return ScreenCoordinates::toTopLeftOrigin(bottomLeft, desktopHeight());
}

}  // namespace tidewatch::ScreenGeometry
