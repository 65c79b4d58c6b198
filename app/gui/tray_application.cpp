#include "app/gui/tray_application.h"

#include <QAbstractItemModel>
#include <QApplication>
#include <QCursor>
#include <QIcon>
#include <QPalette>
#include <QScreen>
#include <QSysInfo>

#include "app/gui/ewmh_focus.h"
#include "app/gui/screen_geometry.h"
#include "app/gui/tray_badge.h"
#include "coralline_kit/notch_placement_resolver.h"
#include "inventory/agent_sessions_document.h"

namespace tidewatch {

namespace {

// A dark panel behind the tray: the window colour of the desktop's palette is dark.
bool darkTheme() { return QGuiApplication::palette().color(QPalette::Window).lightness() < 128; }

}  // namespace

TrayApplication::TrayApplication() : executor_(std::make_shared<QtMainExecutor>()) {
  AppDelegate::Shell shell;
  // The window needs the delegate's view model, and the delegate the window's operations: the
  // operations reach the window through this object once both exist.
  shell.panel = PanelSurface{
      .isVisible = [this] { return window_ && window_->surface().isVisible(); },
      .setFrame = [this](const ScreenRect& frame) { window_->surface().setFrame(frame); },
      .orderFront = [this] { window_->surface().orderFront(); },
      .makeKey = [this] { window_->surface().makeKey(); },
      .orderOut = [this] { window_->surface().orderOut(); },
  };
  shell.setHighlighted = [](bool) {};  // a tray icon has no pressed look to keep
  shell.quit = [] { QCoreApplication::quit(); };
  shell.currentAnchor = [this] { return anchor(false); };
  shell.showAgentIndicator = [this](const AgentIndicatorPresentation& presentation) {
    showAgentIndicator(presentation);
  };
  accessibility_ = std::make_unique<DesktopAccessibility>();
  desktop_ = std::make_unique<DesktopEvents>();
  auto dependencies = AppDelegate::Dependencies::live(executor_);
  dependencies.reduceMotion = [this] { return accessibility_->options().reduceMotion; };
  dependencies.makeIsland = [this] { return makeIsland(); };
  if (globalShortcutThroughPortal(qEnvironmentVariable("XDG_SESSION_TYPE").toStdString(),
                                  qEnvironmentVariable("WAYLAND_DISPLAY").toStdString())) {
    portalShortcut_ = std::make_unique<PortalGlobalShortcut>();
    dependencies.shortcut = portalShortcut_->dependencies();
  } else {
    shortcut_ = std::make_unique<X11GlobalShortcut>();
    if (shortcut_->available()) dependencies.shortcut = shortcut_->dependencies();
  }
  notifier_ = std::make_unique<DesktopNotifier>();
  dependencies.notify = [this](const AgentNotice& notice) { notifier_->show(notice); };
  notifier_->onActivated = [this](const std::string& sessionID) {
    delegate_->showSession(sessionID);
    openPanel();
  };
  // Hosts come forward through the window manager; asked on the probe worker, never here.
  auto focus = std::make_shared<EwmhFocus>();
  auto& rows = dependencies.viewModel;
  rows.hasRunningApplication = [focus](int32_t pid) { return focus->hasWindow(pid); };
  rows.focusHostActivator = [focus, probe = rows.focusProbe](int32_t pid) {
    probe([focus, pid] { focus->activate(pid); });
  };
  delegate_ = std::make_unique<AppDelegate>(std::move(dependencies), std::move(shell));
  followDesktop();
  bridge_ = std::make_unique<PanelBridge>(*delegate_);
  settings_ = std::make_unique<SettingsModel>(SettingsModel::Parts{
      .defaults = delegate_->defaults(),
      .shortcut = &delegate_->globalShortcut(),
      .shortcutProfile = &GlobalShortcutProfile::forLinux(),
      .launchAtLogin = &bridge_->launchAtLogin(),
      .connections = &delegate_->host().connections(),
      .retryReceiver = [this] { delegate_->onboardingGateChanged(); },
      .version = TIDEWATCH_VERSION,
      .operatingSystem = QSysInfo::prettyProductName().toStdString(),
      .updates = delegate_->updates().checker.get(),
  });
  connect(settings_.get(), &SettingsModel::displaySettingsChanged, this, [this] { delegate_->displaySettingsChanged(); });
  delegate_->onConnectionsChanged = [this] { settings_->refresh(); };
  window_ = std::make_unique<PanelWindow>(delegate_->viewModel(), *bridge_, *settings_);
  delegate_->reveal().onChange = [this] { bridge_->notifyReveal(); };
  window_->onEscape = [this] { Q_EMIT bridge_->escapePressed(); };
  window_->onFocusLost = [this] {
    const QPoint pointer = QCursor::pos();
    const ScreenRect at = ScreenGeometry::fromQt(QRect(pointer, QSize(0, 0)));
    delegate_->outsideInteraction(PanelPlacement::Point{at.x, at.y});
  };
  window_->onCloseRequested = [this] {
    // Closing the only window of an app without a tray ends it, as for any windowed program;
    // with a tray that came late, the panel goes back under its icon.
    if (!QSystemTrayIcon::isSystemTrayAvailable()) return QCoreApplication::quit();
    windowMode_ = false;
    bridge_->setWindowMode(false);
    delegate_->dismissNow();
  };
}

TrayApplication::~TrayApplication() { shutDown(); }

std::unique_ptr<NotchIslandController> TrayApplication::makeIsland() {
  island_ = std::make_unique<IslandWindow>(executor_, [] { return std::chrono::steady_clock::now().time_since_epoch(); });
  NotchIslandController::Dependencies dependencies;
  dependencies.executor = executor_;
  dependencies.leftWing = island_->leftWing().operations();
  dependencies.rightWing = island_->rightWing().operations();
  dependencies.screenContexts = [this] { return desktop_->screenContexts(); };
  dependencies.accessibilityOptions = [this] { return accessibility_->options(); };
  auto controller = std::make_unique<NotchIslandController>(std::move(dependencies));
  // The wings end their own transients (a checkmark, a retraction): the island decides again.
  const auto transientEnded = [this] {
    if (auto* island = delegate_ ? delegate_->island() : nullptr) island->transientEnded();
  };
  island_->leftWing().onTransientEnded = transientEnded;
  island_->rightWing().onTransientEnded = transientEnded;
  return controller;
}

void TrayApplication::followDesktop() {
  const auto toIsland = [this](void (NotchIslandController::*handler)()) {
    return [this, handler] {
      if (auto* island = delegate_->island()) (island->*handler)();
    };
  };
  desktop_->workspaceChanged = toIsland(&NotchIslandController::activeSpaceChanged);
  desktop_->screensChanged = toIsland(&NotchIslandController::screenParametersChanged);
  desktop_->screensSlept = toIsland(&NotchIslandController::screensDidSleep);
  desktop_->screensWoke = toIsland(&NotchIslandController::screensDidWake);
  desktop_->windowsRestacked = [this] {
    if (island_) island_->keepAbove();
  };
  accessibility_->changed = toIsland(&NotchIslandController::accessibilityDisplayOptionsChanged);
}

QStringList TrayApplication::shortcutState() const {
  const auto& shortcut = std::as_const(*delegate_).globalShortcut();
  QString state = QStringLiteral("off");
  if (shortcut.registrationError()) {
    state = QString::fromStdString(*shortcut.registrationError());
  } else if (shortcut.isPending()) {
    state = QStringLiteral("pending");
  } else if (shortcut.isRegistered()) {
    state = QStringLiteral("registered");
  }
  return {QString::fromStdString(shortcut.displayText()), state};
}

QStringList TrayApplication::islandState() const {
  auto* island = delegate_->island();
  if (!island || !island_) return {QStringLiteral("hidden")};
  static const char* names[] = {"hidden", "island", "menuBarFallback"};
  QStringList state{QString::fromLatin1(names[static_cast<int>(island->disposition())])};
  return state + island_->accessibleLabels();
}

void TrayApplication::start() {
  auto* open = menu_.addAction(QStringLiteral("Open Tidewatch"));
  connect(open, &QAction::triggered, this, [this] { openPanel(); });
  menu_.addSeparator();
  auto* quit = menu_.addAction(QStringLiteral("Quit Tidewatch"));
  connect(quit, &QAction::triggered, qApp, &QCoreApplication::quit);
  tray_.setContextMenu(&menu_);
  updateTrayIcon();
  connect(&tray_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
    if (reason == QSystemTrayIcon::Trigger) togglePanel(true);
  });
  qApp->installEventFilter(this);
  tray_.show();

  delegate_->applicationDidFinishLaunching();
  QTimer::singleShot(trayGraceMilliseconds, this, [this] { checkForTray(); });
}

void TrayApplication::checkForTray() {
  if (shutDown_ || QSystemTrayIcon::isSystemTrayAvailable()) return;
  // Nowhere to click: the panel is an ordinary window, so the app is never invisible.
  windowMode_ = true;
  bridge_->setWindowMode(true);
  window_->setWindowMode(true);
  delegate_->openPanel(anchor(false));
  window_->showAsWindow();
}

void TrayApplication::shutDown() {
  if (shutDown_) return;
  shutDown_ = true;
  delegate_->applicationWillTerminate();
  tray_.hide();
}

void TrayApplication::openPanel() {
  if (windowMode_) {
    delegate_->openPanel(anchor(false));
    window_->showAsWindow();
    afterToggle();
    return;
  }
  delegate_->openPanel(anchor(false));
  afterToggle();
}

void TrayApplication::togglePanel(bool atPointer) {
  if (windowMode_ && QSystemTrayIcon::isSystemTrayAvailable()) {
    // A tray came after all: the panel goes back under its icon.
    windowMode_ = false;
    bridge_->setWindowMode(false);
    window_->setWindowMode(false);
    delegate_->dismissNow();
  }
  delegate_->togglePopover(anchor(atPointer));
  afterToggle();
}

void TrayApplication::afterToggle() {
  if (delegate_->panel().isPresented()) Q_EMIT bridge_->shown();
}

PanelAnchor TrayApplication::anchor(bool atPointer) const {
  const QRect icon = tray_.geometry();
  const QPoint pointer = QCursor::pos();
  QScreen* screen = nullptr;
  if (icon.isValid() && !icon.isEmpty()) screen = QGuiApplication::screenAt(icon.center());
  if (!screen && atPointer) screen = QGuiApplication::screenAt(pointer);
  if (!screen) screen = QGuiApplication::primaryScreen();
  const ScreenRect available = ScreenGeometry::fromQt(screen->availableGeometry());
  std::optional<ScreenRect> iconRect;
  if (icon.isValid() && !icon.isEmpty()) iconRect = ScreenGeometry::fromQt(icon);
  std::optional<PanelPlacement::Point> at;
  if (atPointer) {
    const ScreenRect point = ScreenGeometry::fromQt(QRect(pointer, QSize(0, 0)));
    at = PanelPlacement::Point{point.x, point.y};
  }
  return PanelAnchor{PanelPlacement::anchor(iconRect, at, available), available, ScreenGeometry::fromQt(screen->geometry())};
}

QStringList TrayApplication::listedPorts() const {
  const auto* model = qobject_cast<QAbstractItemModel*>(delegate_->viewModel().listeners());
  const auto roles = model->roleNames();
  const int port = roles.key("port");
  const int process = roles.key("processName");
  QStringList listed;
  for (int row = 0; row < model->rowCount(); ++row) {
    const auto index = model->index(row, 0);
    listed << model->data(index, port).toString() + QLatin1Char(' ') + model->data(index, process).toString();
  }
  return listed;
}

QString TrayApplication::agentSessions() const {
  const auto document = AgentSessionsDocument::encode(delegate_->host().inventory().snapshot(),
                                                      AgentSessionsDocument::Source::application);
  // A project name is a directory name, which need not be UTF-8.
  return QString::fromStdString(document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void TrayApplication::updateTrayIcon() {
  const QString glyph = darkTheme() ? QStringLiteral(":/tidewatch/tray-dark.svg") : QStringLiteral(":/tidewatch/tray-light.svg");
  if (const auto* counts = std::get_if<AgentIndicatorCounts>(&agentIndicator_.display)) {
    tray_.setIcon(badgedTrayIcon(glyph, *counts));
    tray_.setToolTip(QString::fromStdString(agentIndicator_.tooltip));
    return;
  }
  tray_.setIcon(QIcon(glyph));
  tray_.setToolTip(QStringLiteral("Tidewatch"));
}

void TrayApplication::showAgentIndicator(const AgentIndicatorPresentation& presentation) {
  agentIndicator_ = presentation;
  updateTrayIcon();
}

bool TrayApplication::eventFilter(QObject* watched, QEvent* event) {
  // The icon follows the desktop's switch between light and dark.
  if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange) updateTrayIcon();
  return QObject::eventFilter(watched, event);
}

}  // namespace tidewatch
