// Which window brings an application forward on an EWMH desktop. A row's host is a process; the
// desktop knows windows by the pid each one declares, which may be the host's or that of one of
// its ancestors (an editor's window belongs to its main process, a terminal's to its server).
// Pure: the windows and the process tree come in as facts.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace tidewatch::WindowFocus {

// A managed top-level window, as the window manager lists it.
struct ClientWindow {
  uint32_t id = 0;
  int32_t pid = 0;                 // its declared pid; 0 when it declares none
  std::optional<uint32_t> desktop;  // its workspace; 0xFFFFFFFF on every one
  bool hidden = false;              // minimised
  friend bool operator==(const ClientWindow&, const ClientWindow&) = default;
};

inline constexpr uint32_t everyDesktop = 0xFFFFFFFF;
// How far up the process tree a window is looked for.
inline constexpr int ancestorSteps = 8;

// The window for the pid, or for its nearest ancestor that has one, from windows in stacking
// order (bottom first): the topmost shown one, else the topmost minimised one.
std::optional<ClientWindow> choose(const std::vector<ClientWindow>& stacking, int32_t pid,
                                   const std::function<std::optional<int32_t>(int32_t pid)>& parentOf);

// The workspace to switch to before activating, when the window is on another one.
std::optional<uint32_t> desktopToShow(const ClientWindow& window, std::optional<uint32_t> currentDesktop);

}  // namespace tidewatch::WindowFocus
