// The application around the delegate: the tray icon and its menu, the panel's window, the
// fallback to an ordinary window where no tray shows up, and the orderly end.
#pragma once

#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>
#include <QTimer>

#include <memory>

#include "app/gui/panel_bridge.h"
#include "app/gui/panel_window.h"
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

 private:
  PanelAnchor anchor(bool atPointer) const;
  void updateTrayIcon();
  void checkForTray();
  void afterToggle();
  bool eventFilter(QObject* watched, QEvent* event) override;

  std::shared_ptr<QtMainExecutor> executor_;
  std::unique_ptr<AppDelegate> delegate_;
  std::unique_ptr<PanelBridge> bridge_;
  std::unique_ptr<SettingsModel> settings_;
  std::unique_ptr<PanelWindow> window_;
  QSystemTrayIcon tray_;
  QMenu menu_;
  bool windowMode_ = false;
  bool shutDown_ = false;
};

}  // namespace tidewatch
