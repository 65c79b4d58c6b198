// The global shortcut on X11: a passive grab of the key on the root window, taken also with
// NumLock and CapsLock on (they are modifiers to X), so the combination works whatever their
// state. Another client's grab of the same combination comes back as BadAccess: taken.
#pragma once

#include <QAbstractNativeEventFilter>

#include <cstdint>
#include <functional>
#include <vector>

#include "app/global_shortcut.h"

namespace tidewatch {

class X11GlobalShortcut : public QAbstractNativeEventFilter {
 public:
  X11GlobalShortcut();
  ~X11GlobalShortcut() override;
  X11GlobalShortcut(const X11GlobalShortcut&) = delete;
  X11GlobalShortcut& operator=(const X11GlobalShortcut&) = delete;

  // False off X11: the manager then hears that the session offers no global shortcuts.
  bool available() const { return connection_ != nullptr; }
  // The manager's operations, over this grab.
  GlobalShortcutManager::Dependencies dependencies();

  bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

 private:
  GlobalShortcutManager::Registration grab(uint32_t keysym, uint32_t modifiers);
  void ungrab();

  void* connection_ = nullptr;
  void* symbols_ = nullptr;
  uint32_t root_ = 0;
  uint8_t keycode_ = 0;
  uint16_t modifiers_ = 0;
  bool grabbed_ = false;
  std::function<void()> pressed_;
};

}  // namespace tidewatch
