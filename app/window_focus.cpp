#include "app/window_focus.h"

namespace tidewatch::WindowFocus {

std::optional<ClientWindow> choose(const std::vector<ClientWindow>& stacking, int32_t pid,
                                   const std::function<std::optional<int32_t>(int32_t pid)>& parentOf) {
  std::optional<int32_t> current = pid;
  for (int step = 0; step <= ancestorSteps && current && *current > 1; ++step) {
    const ClientWindow* minimised = nullptr;
    for (auto window = stacking.rbegin(); window != stacking.rend(); ++window) {
      if (window->pid != *current) continue;
      if (!window->hidden) return *window;
      if (!minimised) minimised = &*window;
    }
    if (minimised) return *minimised;
    current = parentOf ? parentOf(*current) : std::nullopt;
  }
  return std::nullopt;
}

std::optional<uint32_t> desktopToShow(const ClientWindow& window, std::optional<uint32_t> currentDesktop) {
  if (!window.desktop || *window.desktop == everyDesktop || window.desktop == currentDesktop) return std::nullopt;
  return window.desktop;
}

}  // namespace tidewatch::WindowFocus
