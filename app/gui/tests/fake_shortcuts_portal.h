// A GlobalShortcuts portal for tests: it makes sessions, binds what it is asked (or refuses, or
// leaves the user deciding), and presses the bound shortcut on request. Every call it hears goes
// into calls, as "CreateSession", "BindShortcuts <id> <preferred trigger>", "Close <session>"
// or "Register <application id>".
#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVirtualObject>

#include <functional>
#include <vector>

#include "app/gui/portal_global_shortcut.h"

namespace tidewatch::testing {

class FakeShortcutsPortal : public QDBusVirtualObject {
 public:
  explicit FakeShortcutsPortal(QDBusConnection bus) : bus_(std::move(bus)) { ShortcutsPortal::registerTypes(); }
  ~FakeShortcutsPortal() override {
    bus_.unregisterService(QLatin1String(ShortcutsPortal::service));
    bus_.unregisterObject(QLatin1String(ShortcutsPortal::path), QDBusConnection::UnregisterTree);
  }

  bool serve() {
    return bus_.registerVirtualObject(QLatin1String(ShortcutsPortal::path), this, QDBusConnection::SubPath) &&
           bus_.registerService(QLatin1String(ShortcutsPortal::service));
  }

  // How the next requests are answered.
  uint bindResponse = 0;          // 1: the user cancelled, 2: otherwise refused
  bool grantsTrigger = true;      // false: bound without keys, for the user to choose
  bool answersCreation = true;    // false: CreateSession's answer waits for answerCreation()
  bool answersBinding = true;     // false: the user never closes the dialog

  std::vector<QString> calls;
  std::function<void(const QString&)> onCall;

  // The newest session's shortcut pressed, or that of the session given.
  void press(QString session = {}) {
    auto signal = QDBusMessage::createSignal(QLatin1String(ShortcutsPortal::path),
                                             QLatin1String(ShortcutsPortal::interface), QStringLiteral("Activated"));
    signal.setArguments({QVariant::fromValue(QDBusObjectPath(session.isEmpty() ? newestSession : session)),
                         QLatin1String(ShortcutsPortal::shortcutID), qulonglong(1), QVariantMap()});
    bus_.send(signal);
  }

  // The user gave the newest session's shortcut these keys in the desktop's settings (none: took them away).
  void changeKeys(const QString& trigger) {
    auto signal = QDBusMessage::createSignal(QLatin1String(ShortcutsPortal::path),
                                             QLatin1String(ShortcutsPortal::interface),
                                             QStringLiteral("ShortcutsChanged"));
    const QList<PortalShortcut> shortcuts{
        {QLatin1String(ShortcutsPortal::shortcutID), {{QStringLiteral("trigger_description"), trigger}}}};
    signal.setArguments({QVariant::fromValue(QDBusObjectPath(newestSession)), QVariant::fromValue(shortcuts)});
    bus_.send(signal);
  }

  void answerCreation() {
    respond(heldCreation, 0, {{QStringLiteral("session_handle"), newestSession}});
  }

  QString newestSession;

  QString introspect(const QString&) const override { return {}; }

  bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
    const QString member = message.member();
    const QString interface = message.interface();
    const auto arguments = message.arguments();
    if (interface == QLatin1String("org.freedesktop.host.portal.Registry") && member == QLatin1String("Register")) {
      heard(QStringLiteral("Register ") + arguments.value(0).toString());
      connection.send(message.createReply());
      return true;
    }
    if (interface == QLatin1String("org.freedesktop.portal.Session") && member == QLatin1String("Close")) {
      heard(QStringLiteral("Close ") + message.path());
      connection.send(message.createReply());
      return true;
    }
    if (interface != QLatin1String(ShortcutsPortal::interface)) return false;
    const QVariant last = arguments.value(arguments.size() - 1);
    const auto options = last.metaType() == QMetaType::fromType<QDBusArgument>()
                             ? qdbus_cast<QVariantMap>(last.value<QDBusArgument>())
                             : last.toMap();
    QString sender = message.service().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    const QString request = QStringLiteral("%1/request/%2/%3")
                                .arg(QLatin1String(ShortcutsPortal::path), sender,
                                     options.value(QStringLiteral("handle_token")).toString());
    connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));
    if (member == QLatin1String("CreateSession")) {
      heard(QStringLiteral("CreateSession"));
      newestSession = QStringLiteral("%1/session/%2/%3")
                          .arg(QLatin1String(ShortcutsPortal::path), sender,
                               options.value(QStringLiteral("session_handle_token")).toString());
      if (!answersCreation) {
        heldCreation = request;
        return true;
      }
      respond(request, 0, {{QStringLiteral("session_handle"), newestSession}});
      return true;
    }
    if (member == QLatin1String("BindShortcuts")) {
      auto shortcuts = qdbus_cast<QList<PortalShortcut>>(arguments.value(1).value<QDBusArgument>());
      for (auto& shortcut : shortcuts) {
        const QString preferred = shortcut.properties.value(QStringLiteral("preferred_trigger")).toString();
        heard(QStringLiteral("BindShortcuts %1 %2").arg(shortcut.id, preferred));
        shortcut.properties = {{QStringLiteral("description"), shortcut.properties.value(QStringLiteral("description"))},
                               {QStringLiteral("trigger_description"), grantsTrigger ? preferred : QString()}};
      }
      if (answersBinding) respond(request, bindResponse, {{QStringLiteral("shortcuts"), QVariant::fromValue(shortcuts)}});
      return true;
    }
    return false;
  }

 private:
  void heard(const QString& call) {
    calls.push_back(call);
    if (onCall) onCall(call);
  }
  void respond(const QString& request, uint response, const QVariantMap& results) {
    auto signal = QDBusMessage::createSignal(request, QStringLiteral("org.freedesktop.portal.Request"),
                                             QStringLiteral("Response"));
    signal.setArguments({response, results});
    bus_.send(signal);
  }

  QDBusConnection bus_;
  QString heldCreation;
};

}  // namespace tidewatch::testing
