#include "app/gui/desktop_events.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QScreen>

#include <algorithm>

#include "app/gui/screen_geometry.h"
#include "app/gui/x11_properties.h"
#include "app/window_focus.h"

namespace tidewatch {

namespace {

xcb_connection_t* x11Connection() {
  auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
  return x11 ? x11->connection() : nullptr;
}

IslandEnvironment::SettingValue settingValue(const QVariant& value) {
  switch (value.metaType().id()) {
    case QMetaType::Bool: return value.toBool();
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::UChar:
    case QMetaType::Short:
    case QMetaType::UShort: return static_cast<int64_t>(value.toLongLong());
    default: break;
  }
  if (value.canConvert<QDBusVariant>()) return settingValue(value.value<QDBusVariant>().variant());
  return value.toString().toStdString();
}

}  // namespace

DesktopEvents::DesktopEvents() {
  auto* connection = x11Connection();
  x11_ = connection != nullptr && QGuiApplication::platformName() == QLatin1String("xcb");
  if (x11_) {
    connection_ = connection;
    root_ = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    currentDesktopAtom_ = atom("_NET_CURRENT_DESKTOP");
    activeWindowAtom_ = atom("_NET_ACTIVE_WINDOW");
    stackingAtom_ = atom("_NET_CLIENT_LIST_STACKING");
    clientListAtom_ = atom("_NET_CLIENT_LIST");
    stateAtom_ = atom("_NET_WM_STATE");
    fullScreenAtom_ = atom("_NET_WM_STATE_FULLSCREEN");
    hiddenAtom_ = atom("_NET_WM_STATE_HIDDEN");
    desktopAtom_ = atom("_NET_WM_DESKTOP");
    selectPropertyChanges(root_);
    qGuiApp->installNativeEventFilter(this);
    refreshFullScreen();
  }
  for (auto* screen : QGuiApplication::screens()) watchScreen(screen);
  connect(qGuiApp, &QGuiApplication::screenAdded, this, [this](QScreen* screen) {
    watchScreen(screen);
    emitScreensChanged();
  });
  connect(qGuiApp, &QGuiApplication::screenRemoved, this, [this] { emitScreensChanged(); });
  connect(qGuiApp, &QGuiApplication::primaryScreenChanged, this, [this] { emitScreensChanged(); });

  // Sleep comes from logind on the system bus; a blanked, locked screen from the session's
  // screen saver, under either of its two names.
  QDBusConnection::systemBus().connect(QStringLiteral("org.freedesktop.login1"), QStringLiteral("/org/freedesktop/login1"),
                                       QStringLiteral("org.freedesktop.login1.Manager"),
                                       QStringLiteral("PrepareForSleep"), this, SLOT(prepareForSleep(bool)));
  for (const auto& name : {QStringLiteral("org.freedesktop.ScreenSaver"), QStringLiteral("org.gnome.ScreenSaver")}) {
    QString path = QLatin1Char('/') + name;
    path.replace(QLatin1Char('.'), QLatin1Char('/'));
    QDBusConnection::sessionBus().connect(QString(), path, name, QStringLiteral("ActiveChanged"), this,
                                          SLOT(screenSaverActiveChanged(bool)));
  }
}

DesktopEvents::~DesktopEvents() {
  if (x11_ && qGuiApp) qGuiApp->removeNativeEventFilter(this);
}

uint32_t DesktopEvents::atom(const char* name) const {
  return X11::atom(static_cast<xcb_connection_t*>(connection_), name);
}

void DesktopEvents::selectPropertyChanges(uint32_t window) {
  // Asked once per window: the mask stays until the window goes.
  if (!watched_.insert(window).second) return;
  auto* c = static_cast<xcb_connection_t*>(connection_);
  const auto attributes = X11::own(xcb_get_window_attributes_reply(c, xcb_get_window_attributes(c, window), nullptr));
  if (!attributes || (attributes->your_event_mask & XCB_EVENT_MASK_PROPERTY_CHANGE)) return;
  const uint32_t mask = attributes->your_event_mask | XCB_EVENT_MASK_PROPERTY_CHANGE;
  xcb_change_window_attributes(c, window, XCB_CW_EVENT_MASK, &mask);
}

void DesktopEvents::watchScreen(QScreen* screen) {
  connect(screen, &QScreen::geometryChanged, this, [this] { emitScreensChanged(); });
  connect(screen, &QScreen::availableGeometryChanged, this, [this] { emitScreensChanged(); });
}

void DesktopEvents::emitScreensChanged() {
  if (screensChanged) screensChanged();
}

std::vector<NotchPlacementResolver::ScreenContext> DesktopEvents::screenContexts() const {
  std::vector<NotchPlacementResolver::ScreenContext> contexts;
  const auto* primary = QGuiApplication::primaryScreen();
  if (!primary) return contexts;
  // The primary screen first: the island stands beside its notch.
  if (x11_) {
    contexts.push_back(IslandEnvironment::virtualNotch(ScreenGeometry::fromQt(primary->availableGeometry()), fullScreen_));
  } else {
    contexts.push_back(IslandEnvironment::plainScreen(ScreenGeometry::fromQt(primary->geometry())));
  }
  for (const auto* screen : QGuiApplication::screens()) {
    if (screen != primary) contexts.push_back(IslandEnvironment::plainScreen(ScreenGeometry::fromQt(screen->geometry())));
  }
  return contexts;
}

void DesktopEvents::refreshFullScreen() {
  auto* c = static_cast<xcb_connection_t*>(connection_);
  const auto* primary = QGuiApplication::primaryScreen();
  if (!c || !primary) return;
  const uint32_t currentDesktop = X11::cardinal(c, root_, currentDesktopAtom_).value_or(0);
  const auto clients = X11::values(c, root_, clientListAtom_, XCB_ATOM_WINDOW);
  // Windows that went are forgotten, so a reused id is watched again.
  std::erase_if(watched_, [&](uint32_t window) {
    return window != root_ && std::find(clients.begin(), clients.end(), window) == clients.end();
  });
  std::vector<IslandEnvironment::WindowFacts> windows;
  for (const uint32_t window : clients) {
    // A window turning full screen says so in its state: keep hearing of it. Our own windows
    // are in the list too, with the toolkit's interests: only ever add to a mask.
    selectPropertyChanges(window);
    IslandEnvironment::WindowFacts facts;
    for (const uint32_t state : X11::values(c, window, stateAtom_, XCB_ATOM_ATOM)) {
      facts.fullScreen = facts.fullScreen || state == fullScreenAtom_;
      facts.hidden = facts.hidden || state == hiddenAtom_;
    }
    if (!facts.fullScreen) continue;
    if (const auto on = X11::cardinal(c, window, desktopAtom_)) {
      facts.onCurrentDesktop = *on == currentDesktop || *on == WindowFocus::everyDesktop;
    }
    const auto geometry = X11::own(xcb_get_geometry_reply(c, xcb_get_geometry(c, window), nullptr));
    const auto origin =
        X11::own(xcb_translate_coordinates_reply(c, xcb_translate_coordinates(c, window, root_, 0, 0), nullptr));
    if (!geometry || !origin) continue;
    facts.frame = {static_cast<double>(origin->dst_x), static_cast<double>(origin->dst_y),
                   static_cast<double>(geometry->width), static_cast<double>(geometry->height)};
    windows.push_back(facts);
  }
  // X speaks device pixels; the screen's geometry is in Qt's scaled ones.
  const double ratio = primary->devicePixelRatio();
  const QRect screen = primary->geometry();
  const bool fullScreen = IslandEnvironment::screenInFullScreenUse(
      windows, {screen.x() * ratio, screen.y() * ratio, screen.width() * ratio, screen.height() * ratio});
  if (fullScreen != fullScreen_) {
    fullScreen_ = fullScreen;
    emitScreensChanged();
  }
}

bool DesktopEvents::nativeEventFilter(const QByteArray& eventType, void* message, qintptr*) {
  if (eventType != "xcb_generic_event_t") return false;
  const auto* event = static_cast<xcb_generic_event_t*>(message);
  if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY) return false;
  const auto* notify = reinterpret_cast<const xcb_property_notify_event_t*>(event);
  if (notify->window == root_) {
    if (notify->atom == currentDesktopAtom_) {
      if (workspaceChanged) workspaceChanged();
      refreshFullScreen();
    } else if (notify->atom == activeWindowAtom_ || notify->atom == stackingAtom_) {
      // Only the order changed: nobody's full-screen state did.
      if (windowsRestacked) windowsRestacked();
    } else if (notify->atom == clientListAtom_) {
      refreshFullScreen();
    }
  } else if (notify->atom == stateAtom_ || notify->atom == desktopAtom_) {
    refreshFullScreen();
  }
  return false;
}

void DesktopEvents::prepareForSleep(bool starting) {
  if (starting == asleep_) return;
  asleep_ = starting;
  if (asleep_ && !screenSaverActive_ && screensSlept) screensSlept();
  if (!asleep_ && !screenSaverActive_ && screensWoke) screensWoke();
}

void DesktopEvents::screenSaverActiveChanged(bool active) {
  if (active == screenSaverActive_) return;
  screenSaverActive_ = active;
  if (asleep_) return;
  if (active && screensSlept) screensSlept();
  if (!active && screensWoke) screensWoke();
}

DesktopAccessibility::DesktopAccessibility() {
  auto bus = QDBusConnection::sessionBus();
  const QString service = QStringLiteral("org.freedesktop.portal.Desktop");
  const QString path = QStringLiteral("/org/freedesktop/portal/desktop");
  const QString interface = QStringLiteral("org.freedesktop.portal.Settings");
  // The slot's variant argument is matched by its registered type.
  qRegisterMetaType<QDBusVariant>();
  bus.connect(service, path, interface, QStringLiteral("SettingChanged"), this,
              SLOT(settingChanged(QString, QString, QDBusVariant)));
  QStringList namespaces;
  for (const auto& name : IslandEnvironment::settingNamespaces()) namespaces << QString::fromStdString(name);
  auto call = QDBusMessage::createMethodCall(service, path, interface, QStringLiteral("ReadAll"));
  call << namespaces;
  // Asked once at start without waiting on it; until it answers, nothing is asked for.
  auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
  connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher* finished) {
    finished->deleteLater();
    const QDBusMessage reply = finished->reply();
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) return;
    const auto argument = reply.arguments().constFirst().value<QDBusArgument>();
    // a{sa{sv}}: each namespace with its keys.
    argument.beginMap();
    while (!argument.atEnd()) {
      QString nameSpace;
      QVariantMap values;
      argument.beginMapEntry();
      argument >> nameSpace >> values;
      argument.endMapEntry();
      for (auto it = values.cbegin(); it != values.cend(); ++it) {
        settings_[{nameSpace.toStdString(), it.key().toStdString()}] = settingValue(it.value());
      }
    }
    argument.endMap();
    apply();
  });
}

void DesktopAccessibility::settingChanged(const QString& nameSpace, const QString& key, const QDBusVariant& value) {
  settings_[{nameSpace.toStdString(), key.toStdString()}] = settingValue(value.variant());
  apply();
}

void DesktopAccessibility::apply() {
  const auto options = IslandEnvironment::accessibilityOptions(settings_);
  if (options == options_) return;
  options_ = options;
  if (changed) changed();
}

}  // namespace tidewatch
