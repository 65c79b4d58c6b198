#include "app/gui/ewmh_focus.h"

#include <unistd.h>
#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "process_core/process_reader.h"

namespace tidewatch {

namespace {

template <typename Reply>
std::unique_ptr<Reply, decltype(&std::free)> own(Reply* reply) {
  return {reply, &std::free};
}

xcb_connection_t* connectionOf(void* c) { return static_cast<xcb_connection_t*>(c); }

}  // namespace

EwmhFocus::~EwmhFocus() {
  if (connection_) xcb_disconnect(connectionOf(connection_));
}

bool EwmhFocus::connect() {
  if (connection_) return true;
  if (failed_) return false;
  // Off X11 (no DISPLAY), nothing can be brought forward: no host is offered.
  auto* c = xcb_connect(nullptr, nullptr);
  if (!c || xcb_connection_has_error(c)) {
    if (c) xcb_disconnect(c);
    failed_ = true;
    return false;
  }
  connection_ = c;
  root_ = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
  return true;
}

uint32_t EwmhFocus::atom(const char* name) {
  auto* c = connectionOf(connection_);
  const auto reply =
      own(xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, static_cast<uint16_t>(std::strlen(name)), name), nullptr));
  return reply ? reply->atom : 0;
}

std::optional<WindowFocus::ClientWindow> EwmhFocus::windowFor(int32_t pid) {
  if (!connect()) return std::nullopt;
  auto* c = connectionOf(connection_);
  const auto property = [c](uint32_t window, uint32_t name, uint32_t type) {
    return own(xcb_get_property_reply(c, xcb_get_property(c, 0, window, name, type, 0, 4096), nullptr));
  };
  const auto cardinal = [&](uint32_t window, uint32_t name) -> std::optional<uint32_t> {
    const auto reply = property(window, name, XCB_ATOM_CARDINAL);
    if (!reply || xcb_get_property_value_length(reply.get()) < 4) return std::nullopt;
    return *static_cast<uint32_t*>(xcb_get_property_value(reply.get()));
  };
  const uint32_t pidAtom = atom("_NET_WM_PID");
  const uint32_t desktopAtom = atom("_NET_WM_DESKTOP");
  const uint32_t stateAtom = atom("_NET_WM_STATE");
  const uint32_t hiddenAtom = atom("_NET_WM_STATE_HIDDEN");
  std::vector<WindowFocus::ClientWindow> stacking;
  const auto clients = property(root_, atom("_NET_CLIENT_LIST_STACKING"), XCB_ATOM_WINDOW);
  if (!clients) return std::nullopt;
  const auto* ids = static_cast<xcb_window_t*>(xcb_get_property_value(clients.get()));
  for (int i = 0; i < xcb_get_property_value_length(clients.get()) / 4; ++i) {
    WindowFocus::ClientWindow window;
    window.id = ids[i];
    window.pid = static_cast<int32_t>(cardinal(ids[i], pidAtom).value_or(0));
    window.desktop = cardinal(ids[i], desktopAtom);
    if (const auto state = property(ids[i], stateAtom, XCB_ATOM_ATOM)) {
      const auto* atoms = static_cast<xcb_atom_t*>(xcb_get_property_value(state.get()));
      for (int a = 0; a < xcb_get_property_value_length(state.get()) / 4; ++a) {
        window.hidden = window.hidden || atoms[a] == hiddenAtom;
      }
    }
    stacking.push_back(window);
  }
  const uint32_t uid = ::getuid();
  return WindowFocus::choose(stacking, pid, [uid](int32_t child) -> std::optional<int32_t> {
    const auto process = ProcessReader::detectionSnapshot(child, uid);
    return process ? process->parentPID : std::nullopt;
  });
}

bool EwmhFocus::hasWindow(int32_t pid) { return windowFor(pid).has_value(); }

void EwmhFocus::sendToRoot(uint32_t window, uint32_t type, std::vector<uint32_t> data) {
  xcb_client_message_event_t event{};
  event.response_type = XCB_CLIENT_MESSAGE;
  event.format = 32;
  event.window = window;
  event.type = type;
  for (size_t i = 0; i < data.size() && i < 5; ++i) event.data.data32[i] = data[i];
  xcb_send_event(connectionOf(connection_), 0, root_,
                 XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                 reinterpret_cast<const char*>(&event));
}

bool EwmhFocus::activate(int32_t pid) {
  const auto window = windowFor(pid);
  if (!window) return false;
  auto* c = connectionOf(connection_);
  std::optional<uint32_t> current;
  if (const auto reply = own(xcb_get_property_reply(
          c, xcb_get_property(c, 0, root_, atom("_NET_CURRENT_DESKTOP"), XCB_ATOM_CARDINAL, 0, 1), nullptr));
      reply && xcb_get_property_value_length(reply.get()) >= 4) {
    current = *static_cast<uint32_t*>(xcb_get_property_value(reply.get()));
  }
  if (const auto desktop = WindowFocus::desktopToShow(*window, current)) {
    sendToRoot(root_, atom("_NET_CURRENT_DESKTOP"), {*desktop, XCB_CURRENT_TIME});
  }
  // Source 2: a pager, which window managers obey without focus-stealing doubts.
  sendToRoot(window->id, atom("_NET_ACTIVE_WINDOW"), {2, XCB_CURRENT_TIME, 0});
  xcb_flush(c);
  return true;
}

}  // namespace tidewatch
