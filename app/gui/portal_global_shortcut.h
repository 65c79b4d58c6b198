// The global shortcut through the desktop's GlobalShortcuts portal, for Wayland sessions, where
// the compositor keeps the keyboard to itself and an X11 grab only hears keys pressed in X11
// windows. The portal keeps a session of ours with one shortcut bound; its Activated signal is
// the press. Every call is asynchronous and the binding may wait on the user, so registration
// answers "pending" and the portal's reply settles it.
#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QList>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <optional>

#include "app/global_shortcut.h"

namespace tidewatch {

// One entry of the portal's a(sa{sv}) shortcut lists: an id and its properties
// ("description", "preferred_trigger"; "trigger_description" in answers).
struct PortalShortcut {
  QString id;
  QVariantMap properties;
};
QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut);
const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut);

namespace ShortcutsPortal {
inline constexpr char service[] = "org.freedesktop.portal.Desktop";
inline constexpr char path[] = "/org/freedesktop/portal/desktop";
inline constexpr char interface[] = "org.freedesktop.portal.GlobalShortcuts";
inline constexpr char shortcutID[] = "open-panel";
// The application's id, which the portal keys its stored bindings by.
inline constexpr char applicationID[] = "com.tidewatch.app";
// Registers the D-Bus types above; safe to call more than once.
void registerTypes();
}  // namespace ShortcutsPortal

class PortalGlobalShortcut : public QObject {
  Q_OBJECT

 public:
  explicit PortalGlobalShortcut(QDBusConnection bus = QDBusConnection::sessionBus());
  ~PortalGlobalShortcut() override;
  PortalGlobalShortcut(const PortalGlobalShortcut&) = delete;
  PortalGlobalShortcut& operator=(const PortalGlobalShortcut&) = delete;

  // The manager's operations, over this portal.
  GlobalShortcutManager::Dependencies dependencies();

 private Q_SLOTS:
  // Activated(o session, s shortcut, t timestamp, a{sv} options).
  void activated(const QDBusMessage& message);
  // ShortcutsChanged(o session, a(sa{sv}) shortcuts): the user gave it keys, or took them away.
  void shortcutsChanged(const QDBusMessage& message);

 private:
  using Registration = GlobalShortcutManager::Registration;
  // The portal's answer to one request: its response code, or nothing when the call itself failed.
  using Answer = std::function<void(std::optional<uint32_t> response, const QVariantMap& results)>;

  Registration bind(uint32_t keysym, uint32_t modifierMask);
  void bindShortcut(uint64_t generation, const QString& trigger);
  void release();
  void closeSession(const QString& session);
  // Calls a method of the portal with a fresh request token as the last options entry and hands
  // the Request's Response to answer.
  void request(const QString& method, QVariantList arguments, QVariantMap options, Answer answer);
  // Settles the manager's registration if generation is still the current one.
  void settle(uint64_t generation, Registration outcome);

  QDBusConnection bus_;
  uint64_t generation_ = 0;
  uint64_t tokens_ = 0;
  bool announced_ = false;
  QString session_;  // the session handle the portal gave, while one is open
  std::function<void()> pressed_;
  std::function<void(Registration)> settle_;
};

}  // namespace tidewatch

Q_DECLARE_METATYPE(tidewatch::PortalShortcut)
