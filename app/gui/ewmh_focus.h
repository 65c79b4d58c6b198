// Bringing a host application forward on an EWMH desktop: its window is found by the pid it
// declares (the host's or an ancestor's), its workspace shown, and the window manager asked to
// activate it. Every call reads the X server, so it keeps a connection of its own and is used
// from one worker thread only, never the main thread.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "app/window_focus.h"

namespace tidewatch {

class EwmhFocus {
 public:
  EwmhFocus() = default;
  ~EwmhFocus();
  EwmhFocus(const EwmhFocus&) = delete;
  EwmhFocus& operator=(const EwmhFocus&) = delete;

  // Whether the desktop can bring the pid's application forward.
  bool hasWindow(int32_t pid);
  // Shows its workspace and activates its window; false when there is none.
  bool activate(int32_t pid);

 private:
  bool connect();
  std::optional<WindowFocus::ClientWindow> windowFor(int32_t pid);
  void sendToRoot(uint32_t window, uint32_t type, std::vector<uint32_t> data);

  void* connection_ = nullptr;
  uint32_t root_ = 0;
  struct Atoms {
    uint32_t stacking, pid, desktop, state, hidden, currentDesktop, activeWindow;
  } atoms_{};
  bool failed_ = false;
};

}  // namespace tidewatch
