#include "app/gui/desktop_notifier.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

namespace tidewatch {

namespace {

const QString service = QStringLiteral("org.freedesktop.Notifications");
const QString path = QStringLiteral("/org/freedesktop/Notifications");

}  // namespace

DesktopNotifier::DesktopNotifier() {
  auto bus = QDBusConnection::sessionBus();
  bus.connect(service, path, service, QStringLiteral("ActionInvoked"), this, SLOT(actionInvoked(uint, QString)));
  bus.connect(service, path, service, QStringLiteral("NotificationClosed"), this,
              SLOT(notificationClosed(uint, uint)));
}

void DesktopNotifier::show(const AgentNotice& notice) {
  auto call = QDBusMessage::createMethodCall(service, path, service, QStringLiteral("Notify"));
  const QVariantMap hints{{QStringLiteral("desktop-entry"), QStringLiteral("com.tidewatch.app")}};
  call << QStringLiteral("Tidewatch") << 0u << QStringLiteral("com.tidewatch.app")
       << QString::fromStdString(notice.summary) << QString::fromStdString(notice.body)
       << QStringList{QStringLiteral("default"), QStringLiteral("Show in Tidewatch")} << hints << -1;
  // Never waited on: a server that is slow or absent costs nothing here.
  auto* watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, id = notice.sessionID](QDBusPendingCallWatcher* done) {
    done->deleteLater();
    const QDBusPendingReply<uint> reply = *done;
    if (reply.isValid()) shown_[reply.value()] = id;
  });
}

void DesktopNotifier::actionInvoked(uint id, const QString& action) {
  const auto found = shown_.find(id);
  if (found == shown_.end() || action != QLatin1String("default")) return;
  const std::string session = found->second;
  if (onActivated) onActivated(session);
}

void DesktopNotifier::notificationClosed(uint id, uint) { shown_.erase(id); }

}  // namespace tidewatch
