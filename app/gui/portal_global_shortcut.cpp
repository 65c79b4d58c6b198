#include "app/gui/portal_global_shortcut.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <utility>

namespace tidewatch {

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
  argument.beginStructure();
  argument << shortcut.id << shortcut.properties;
  argument.endStructure();
  return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
  argument.beginStructure();
  argument >> shortcut.id >> shortcut.properties;
  argument.endStructure();
  return argument;
}

void ShortcutsPortal::registerTypes() {
  qDBusRegisterMetaType<PortalShortcut>();
  qDBusRegisterMetaType<QList<PortalShortcut>>();
}

namespace {

constexpr char requestInterface[] = "org.freedesktop.portal.Request";
constexpr char sessionInterface[] = "org.freedesktop.portal.Session";

QString sessionHandle(const QVariantMap& results) {
  // Documented as a string; some portals send an object path.
  const QVariant handle = results.value(QStringLiteral("session_handle"));
  if (handle.metaType() == QMetaType::fromType<QDBusObjectPath>()) return handle.value<QDBusObjectPath>().path();
  return handle.toString();
}

QList<PortalShortcut> shortcutList(const QVariant& shortcuts) {
  if (shortcuts.metaType() == QMetaType::fromType<QDBusArgument>()) {
    return qdbus_cast<QList<PortalShortcut>>(shortcuts.value<QDBusArgument>());
  }
  return shortcuts.value<QList<PortalShortcut>>();
}

// How the desktop holds our shortcut by its list: with keys, or without any yet (some desktops
// leave the choice to the user in their own settings, or give a combination in use elsewhere none).
GlobalShortcutManager::Registration standing(const QList<PortalShortcut>& shortcuts) {
  for (const auto& shortcut : shortcuts) {
    if (shortcut.id == QLatin1String(ShortcutsPortal::shortcutID) &&
        !shortcut.properties.value(QStringLiteral("trigger_description")).toString().isEmpty()) {
      return GlobalShortcutManager::Registration::registered;
    }
  }
  return GlobalShortcutManager::Registration::unassigned;
}

}  // namespace

// One request of the portal's: listens on its object for the single Response, then goes.
class PortalRequest : public QObject {
  Q_OBJECT

 public:
  using Answer = std::function<void(std::optional<uint32_t>, const QVariantMap&)>;

  PortalRequest(QDBusConnection bus, Answer answer, QObject* parent)
      : QObject(parent), bus_(std::move(bus)), answer_(std::move(answer)) {}

  void listen(const QString& path) {
    stopListening();
    path_ = path;
    bus_.connect(QLatin1String(ShortcutsPortal::service), path_, QLatin1String(requestInterface),
                 QStringLiteral("Response"), this, SLOT(response(uint, QVariantMap)));
  }
  void fail() { finish(std::nullopt, {}); }

 public Q_SLOTS:
  void response(uint code, const QVariantMap& results) { finish(code, results); }

 private:
  void stopListening() {
    if (path_.isEmpty()) return;
    bus_.disconnect(QLatin1String(ShortcutsPortal::service), path_, QLatin1String(requestInterface),
                    QStringLiteral("Response"), this, SLOT(response(uint, QVariantMap)));
  }
  void finish(std::optional<uint32_t> code, const QVariantMap& results) {
    if (!answer_) return;
    stopListening();
    auto answer = std::exchange(answer_, nullptr);
    deleteLater();
    answer(code, results);
  }

  QDBusConnection bus_;
  Answer answer_;
  QString path_;
};

PortalGlobalShortcut::PortalGlobalShortcut(QDBusConnection bus) : bus_(std::move(bus)) {
  ShortcutsPortal::registerTypes();
  // Whole messages: the options argument of Activated is missing from some portals' documentation.
  bus_.connect(QLatin1String(ShortcutsPortal::service), QLatin1String(ShortcutsPortal::path),
               QLatin1String(ShortcutsPortal::interface), QStringLiteral("Activated"), this,
               SLOT(activated(QDBusMessage)));
  bus_.connect(QLatin1String(ShortcutsPortal::service), QLatin1String(ShortcutsPortal::path),
               QLatin1String(ShortcutsPortal::interface), QStringLiteral("ShortcutsChanged"), this,
               SLOT(shortcutsChanged(QDBusMessage)));
}

PortalGlobalShortcut::~PortalGlobalShortcut() { release(); }

GlobalShortcutManager::Dependencies PortalGlobalShortcut::dependencies() {
  GlobalShortcutManager::Dependencies operations;
  operations.installHandler = [this](std::function<void()> pressed) { pressed_ = std::move(pressed); };
  operations.removeHandler = [this] {
    pressed_ = nullptr;
    settle_ = nullptr;
  };
  operations.registerHotKey = [this](uint32_t keysym, uint32_t modifiers) { return bind(keysym, modifiers); };
  operations.unregisterHotKey = [this] { release(); };
  operations.installSettler = [this](std::function<void(Registration)> settle) { settle_ = std::move(settle); };
  return operations;
}

void PortalGlobalShortcut::activated(const QDBusMessage& message) {
  const auto arguments = message.arguments();
  if (arguments.size() < 2 || session_.isEmpty() || !pressed_) return;
  if (arguments[0].value<QDBusObjectPath>().path() == session_ &&
      arguments[1].toString() == QLatin1String(ShortcutsPortal::shortcutID)) {
    pressed_();
  }
}

void PortalGlobalShortcut::shortcutsChanged(const QDBusMessage& message) {
  const auto arguments = message.arguments();
  if (arguments.size() < 2 || session_.isEmpty() || arguments[0].value<QDBusObjectPath>().path() != session_) return;
  settle(generation_, standing(shortcutList(arguments[1])));
}

GlobalShortcutManager::Registration PortalGlobalShortcut::bind(uint32_t keysym, uint32_t modifierMask) {
  const auto trigger = GlobalShortcutKeyMap::portalTrigger(keysym, modifierMask);
  if (!trigger) return Registration::unavailable;
  // The manager releases what it held before asking again, so no session is open here.
  const uint64_t generation = ++generation_;
  if (!announced_) {
    // Newer portals learn a host application's id this way; older ones answer an error, which
    // changes nothing. It has to come before any other call to the portal.
    announced_ = true;
    auto announce = QDBusMessage::createMethodCall(QLatin1String(ShortcutsPortal::service),
                                                   QLatin1String(ShortcutsPortal::path),
                                                   QStringLiteral("org.freedesktop.host.portal.Registry"),
                                                   QStringLiteral("Register"));
    announce.setArguments({QLatin1String(ShortcutsPortal::applicationID), QVariantMap()});
    bus_.asyncCall(announce);
  }
  // One name for every session: desktops that keep bindings per session name (KDE without an
  // application id) then keep the user's choice of keys from one run to the next.
  const QVariantMap options{{QStringLiteral("session_handle_token"), QStringLiteral("tidewatch")}};
  request(QStringLiteral("CreateSession"), {}, options,
          [this, generation, trigger = QString::fromStdString(*trigger)](std::optional<uint32_t> response,
                                                                          const QVariantMap& results) {
            const QString session = sessionHandle(results);
            if (generation != generation_) {
              // Given up on while the portal was making it.
              if (response == 0u && !session.isEmpty()) closeSession(session);
              return;
            }
            if (!response) return settle(generation, Registration::unavailable);
            if (*response != 0 || session.isEmpty()) return settle(generation, Registration::declined);
            session_ = session;
            bindShortcut(generation, trigger);
          });
  return Registration::pending;
}

void PortalGlobalShortcut::bindShortcut(uint64_t generation, const QString& trigger) {
  const QList<PortalShortcut> shortcuts{
      {QLatin1String(ShortcutsPortal::shortcutID),
       {{QStringLiteral("description"), QStringLiteral("Open the Tidewatch panel")},
        {QStringLiteral("preferred_trigger"), trigger}}}};
  request(QStringLiteral("BindShortcuts"),
          {QVariant::fromValue(QDBusObjectPath(session_)), QVariant::fromValue(shortcuts), QString()}, {},
          [this, generation](std::optional<uint32_t> response, const QVariantMap& results) {
            if (generation != generation_) return;  // released, and its session closed, meanwhile
            auto outcome = Registration::registered;
            if (!response) {
              outcome = Registration::unavailable;
            } else if (*response != 0) {
              outcome = Registration::declined;
            } else if (const QVariant bound = results.value(QStringLiteral("shortcuts")); bound.isValid()) {
              outcome = standing(shortcutList(bound));
            }
            // A refused registration is never released by the manager, so its session goes now;
            // one without keys stays, to hear when the user gives it some.
            if (outcome == Registration::unavailable || outcome == Registration::declined) {
              closeSession(std::exchange(session_, QString()));
            }
            settle(generation, outcome);
          });
}

void PortalGlobalShortcut::release() {
  ++generation_;
  if (!session_.isEmpty()) closeSession(std::exchange(session_, QString()));
}

void PortalGlobalShortcut::closeSession(const QString& session) {
  bus_.asyncCall(QDBusMessage::createMethodCall(QLatin1String(ShortcutsPortal::service), session,
                                                QLatin1String(sessionInterface), QStringLiteral("Close")));
}

void PortalGlobalShortcut::request(const QString& method, QVariantList arguments, QVariantMap options,
                                   Answer answer) {
  const QString token = QStringLiteral("tidewatch%1").arg(++tokens_);
  // Where the portal puts the request: listened to before calling, so no answer slips past.
  QString sender = bus_.baseService().mid(1);
  sender.replace(QLatin1Char('.'), QLatin1Char('_'));
  const QString expected = QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
  auto* pending = new PortalRequest(bus_, std::move(answer), this);
  pending->listen(expected);
  options.insert(QStringLiteral("handle_token"), token);
  arguments.append(options);
  auto call = QDBusMessage::createMethodCall(QLatin1String(ShortcutsPortal::service),
                                             QLatin1String(ShortcutsPortal::path),
                                             QLatin1String(ShortcutsPortal::interface), method);
  call.setArguments(arguments);
  auto* watcher = new QDBusPendingCallWatcher(bus_.asyncCall(call), pending);
  connect(watcher, &QDBusPendingCallWatcher::finished, pending, [pending, expected](QDBusPendingCallWatcher* finished) {
    finished->deleteLater();
    const QDBusPendingReply<QDBusObjectPath> reply = *finished;
    if (reply.isError()) return pending->fail();
    // A portal that ignores the token names its own request object.
    if (reply.value().path() != expected) pending->listen(reply.value().path());
  });
}

void PortalGlobalShortcut::settle(uint64_t generation, Registration outcome) {
  if (generation == generation_ && settle_) settle_(outcome);
}

}  // namespace tidewatch

#include "portal_global_shortcut.moc"
