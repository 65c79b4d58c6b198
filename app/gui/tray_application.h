// The application around the delegate: the tray icon and its menu, the panel's window, the
// fallback to an ordinary window where no tray shows up, and the orderly end.
#pragma once

#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>
#include <QTimer>

#include <memory>

#include "app/gui/desktop_events.h"
#include "app/gui/desktop_notifier.h"
#include "app/gui/island_window.h"
#include "app/gui/panel_bridge.h"
#include "app/gui/panel_window.h"
#include "app/gui/portal_global_shortcut.h"
#include "app/gui/x11_global_shortcut.h"
#include "app/qt/app_delegate.h"
#include "app/qt/qt_main_executor.h"
#include "app/qt/settings_model.h"

namespace tidewatch {

class TrayApplication : public QObject {
  Q_OBJECT

 public:
  // How long a tray has to show up before the panel becomes an ordinary window.
  static constexpr int trayGraceMilliseconds = 3000;

  TrayApplication();
  ~TrayApplication() override;

  void start();
  // The hook server stopped and its socket removed, the loops ended; settings stay. Idempotent.
  void shutDown();
  // From a second start: the panel opens where it would on a click of the icon.
  void openPanel();
  void togglePanel(bool atPointer);
  // "port process" for each row the panel lists now.
  QStringList listedPorts() const;
  // The inventory's sessions as the JSON document of `tidewatch agents`.
  QString agentSessions() const;
  // The island's disposition, then what each shown wing says.
  QStringList islandState() const;
  // The shortcut as it reads, then "registered", "off" or why it could not be.
  QStringList shortcutState() const;

 private:
  PanelAnchor anchor(bool atPointer) const;
  void updateTrayIcon();
  void showAgentIndicator(const AgentIndicatorPresentation& presentation);
  void checkForTray();
  void afterToggle();
  bool eventFilter(QObject* watched, QEvent* event) override;
  std::unique_ptr<NotchIslandController> makeIsland();
  void followDesktop();

  std::shared_ptr<QtMainExecutor> executor_;
  // The desktop and the island's window outlive the delegate, which owns the island's controller.
  std::unique_ptr<DesktopAccessibility> accessibility_;
  std::unique_ptr<DesktopEvents> desktop_;
  std::unique_ptr<IslandWindow> island_;
  std::unique_ptr<X11GlobalShortcut> shortcut_;
  std::unique_ptr<PortalGlobalShortcut> portalShortcut_;
  std::unique_ptr<DesktopNotifier> notifier_;
  std::unique_ptr<AppDelegate> delegate_;
  std::unique_ptr<PanelBridge> bridge_;
  std::unique_ptr<SettingsModel> settings_;
  std::unique_ptr<PanelWindow> window_;
  QSystemTrayIcon tray_;
  QMenu menu_;
  AgentIndicatorPresentation agentIndicator_;
  bool windowMode_ = false;
  bool shutDown_ = false;
};

}  // namespace tidewatch
