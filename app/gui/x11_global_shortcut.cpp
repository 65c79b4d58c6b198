#include "app/gui/x11_global_shortcut.h"

#include <QGuiApplication>

#include <xcb/xcb_keysyms.h>

#include "app/gui/x11_properties.h"

namespace tidewatch {

namespace {

// NumLock is Mod2 on every common keyboard map; CapsLock is Lock.
constexpr uint16_t numLock = XCB_MOD_MASK_2;
constexpr uint16_t ignoredLocks[] = {0, XCB_MOD_MASK_LOCK, numLock, XCB_MOD_MASK_LOCK | numLock};
constexpr uint16_t meaningful =
    XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;
constexpr uint8_t badAccess = 10;

xcb_connection_t* connectionOf(void* c) { return static_cast<xcb_connection_t*>(c); }

}  // namespace

X11GlobalShortcut::X11GlobalShortcut() {
  auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
  if (!x11 || QGuiApplication::platformName() != QLatin1String("xcb")) return;
  auto* c = x11->connection();
  connection_ = c;
  root_ = xcb_setup_roots_iterator(xcb_get_setup(c)).data->root;
  symbols_ = xcb_key_symbols_alloc(c);
  qGuiApp->installNativeEventFilter(this);
}

X11GlobalShortcut::~X11GlobalShortcut() {
  if (!connection_) return;
  ungrab();
  if (qGuiApp) qGuiApp->removeNativeEventFilter(this);
  xcb_key_symbols_free(static_cast<xcb_key_symbols_t*>(symbols_));
}

GlobalShortcutManager::Dependencies X11GlobalShortcut::dependencies() {
  GlobalShortcutManager::Dependencies operations;
  operations.installHandler = [this](std::function<void()> pressed) { pressed_ = std::move(pressed); };
  operations.removeHandler = [this] { pressed_ = nullptr; };
  operations.registerHotKey = [this](uint32_t keysym, uint32_t modifiers) { return grab(keysym, modifiers); };
  operations.unregisterHotKey = [this] { ungrab(); };
  return operations;
}

GlobalShortcutManager::Registration X11GlobalShortcut::grab(uint32_t keysym, uint32_t modifiers) {
  using Registration = GlobalShortcutManager::Registration;
  if (!connection_) return Registration::unavailable;
  ungrab();
  auto* c = connectionOf(connection_);
  const auto codes = X11::own(xcb_key_symbols_get_keycode(static_cast<xcb_key_symbols_t*>(symbols_), keysym));
  // A key the keyboard doesn't have can never be pressed; as good as unavailable to us.
  if (!codes || codes.get()[0] == XCB_NO_SYMBOL) return Registration::unavailable;
  keycode_ = codes.get()[0];
  modifiers_ = static_cast<uint16_t>(modifiers & meaningful);
  bool taken = false;
  for (const uint16_t locks : ignoredLocks) {
    const auto cookie = xcb_grab_key_checked(c, 0, root_, modifiers_ | locks, keycode_, XCB_GRAB_MODE_ASYNC,
                                             XCB_GRAB_MODE_ASYNC);
    if (const auto error = X11::own(xcb_request_check(c, cookie)); error && error->error_code == badAccess) {
      taken = true;
    }
  }
  grabbed_ = true;
  if (taken) {
    // Keep none of it: half a grab would work with NumLock on and not off.
    ungrab();
    return Registration::taken;
  }
  return Registration::registered;
}

void X11GlobalShortcut::ungrab() {
  if (!grabbed_ || !connection_) return;
  auto* c = connectionOf(connection_);
  for (const uint16_t locks : ignoredLocks) xcb_ungrab_key(c, keycode_, root_, modifiers_ | locks);
  xcb_flush(c);
  grabbed_ = false;
}

bool X11GlobalShortcut::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
  if (!grabbed_ || eventType != "xcb_generic_event_t") return false;
  const auto* event = static_cast<xcb_generic_event_t*>(message);
  if ((event->response_type & 0x7f) != XCB_KEY_PRESS) return false;
  const auto* press = reinterpret_cast<const xcb_key_press_event_t*>(event);
  if (press->event != root_ || press->detail != keycode_ || (press->state & meaningful) != modifiers_) return false;
  if (pressed_) pressed_();
  return true;
}

}  // namespace tidewatch
