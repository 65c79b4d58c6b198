#include "app/island_environment.h"

namespace tidewatch::IslandEnvironment {

namespace {

constexpr const char* appearance = "org.freedesktop.appearance";
constexpr const char* gnomeAccessibility = "org.gnome.desktop.a11y.interface";
constexpr const char* gnomeInterface = "org.gnome.desktop.interface";

const SettingValue* find(const DesktopSettings& settings, const char* nameSpace, const char* key) {
  const auto found = settings.find({nameSpace, key});
  return found == settings.end() ? nullptr : &found->second;
}

// The portal's enumerations: 1 asks for the option, 0 and anything unknown do not.
std::optional<bool> portalChoice(const DesktopSettings& settings, const char* key) {
  const auto* value = find(settings, appearance, key);
  if (!value || !std::holds_alternative<int64_t>(*value)) return std::nullopt;
  return std::get<int64_t>(*value) == 1;
}

std::optional<bool> flag(const DesktopSettings& settings, const char* nameSpace, const char* key) {
  const auto* value = find(settings, nameSpace, key);
  if (!value || !std::holds_alternative<bool>(*value)) return std::nullopt;
  return std::get<bool>(*value);
}

}  // namespace

NotchPlacementResolver::ScreenContext virtualNotch(const ScreenRect& available, bool isFullScreen) {
  NotchPlacementResolver::ScreenContext context;
  context.isBuiltIn = true;
  context.hasNotch = true;
  context.isFullScreen = isFullScreen;
  context.screenFrame = available;
  const double notchLeft = available.x + (available.width - virtualNotchWidth) / 2;
  const double top = available.maxY() - auxiliaryAreaHeight;
  context.auxiliaryTopLeft = ScreenRect{available.x, top, notchLeft - available.x, auxiliaryAreaHeight};
  context.auxiliaryTopRight =
      ScreenRect{notchLeft + virtualNotchWidth, top, available.maxX() - notchLeft - virtualNotchWidth, auxiliaryAreaHeight};
  return context;
}

NotchPlacementResolver::ScreenContext plainScreen(const ScreenRect& frame) {
  NotchPlacementResolver::ScreenContext context;
  context.screenFrame = frame;
  return context;
}

bool screenInFullScreenUse(const std::vector<WindowFacts>& windows, const ScreenRect& screen) {
  const double middleX = screen.x + screen.width / 2;
  const double middleY = screen.y + screen.height / 2;
  for (const auto& window : windows) {
    if (!window.fullScreen || window.hidden || !window.onCurrentDesktop) continue;
    if (middleX >= window.frame.minX() && middleX < window.frame.maxX() && middleY >= window.frame.minY() &&
        middleY < window.frame.maxY()) {
      return true;
    }
  }
  return false;
}

CorallineAccessibilityOptions accessibilityOptions(const DesktopSettings& settings) {
  CorallineAccessibilityOptions options;
  options.increaseContrast = portalChoice(settings, "contrast")
                                 .value_or(flag(settings, gnomeAccessibility, "high-contrast").value_or(false));
  const auto animations = flag(settings, gnomeInterface, "enable-animations");
  options.reduceMotion = portalChoice(settings, "reduced-motion").value_or(animations && !*animations);
  // No desktop publishes these two yet; absent means off.
  options.reduceTransparency = false;
  options.differentiateWithoutColor = false;
  return options;
}

const std::vector<std::string>& settingNamespaces() {
  static const std::vector<std::string> namespaces{appearance, gnomeAccessibility, gnomeInterface};
  return namespaces;
}

}  // namespace tidewatch::IslandEnvironment
