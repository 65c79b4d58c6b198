// What the island follows on a Linux desktop: workspace switches, windows raised over it,
// full-screen use of the primary screen, screen changes, sleep and the screen saver (X11 and
// the bus), and the accessibility options the desktop's settings publish.
#pragma once

#include <QAbstractNativeEventFilter>
#include <QDBusVariant>
#include <QObject>
#include <QScreen>

#include <cstdint>
#include <functional>
#include <set>
#include <vector>

#include "app/island_environment.h"

namespace tidewatch {

class DesktopEvents : public QObject, public QAbstractNativeEventFilter {
  Q_OBJECT

 public:
  DesktopEvents();
  ~DesktopEvents() override;

  // Where the island may stand: the primary screen's virtual notch on X11, plain screens
  // elsewhere (where windows can't be placed) and for every other screen.
  std::vector<NotchPlacementResolver::ScreenContext> screenContexts() const;

  std::function<void()> workspaceChanged;
  std::function<void()> windowsRestacked;
  std::function<void()> screensChanged;
  std::function<void()> screensSlept;
  std::function<void()> screensWoke;

  bool nativeEventFilter(const QByteArray& eventType, void* message, qintptr* result) override;

 private Q_SLOTS:
  void prepareForSleep(bool starting);
  void screenSaverActiveChanged(bool active);

 private:
  void watchScreen(QScreen* screen);
  void refreshFullScreen();
  void emitScreensChanged();
  uint32_t atom(const char* name) const;
  // Adds property changes to what this client hears of the window.
  void selectPropertyChanges(uint32_t window);

  bool x11_ = false;
  void* connection_ = nullptr;
  uint32_t root_ = 0;
  uint32_t currentDesktopAtom_ = 0, activeWindowAtom_ = 0, stackingAtom_ = 0, clientListAtom_ = 0;
  uint32_t stateAtom_ = 0, fullScreenAtom_ = 0, hiddenAtom_ = 0, desktopAtom_ = 0;
  std::set<uint32_t> watched_;
  bool fullScreen_ = false;
  bool asleep_ = false;
  bool screenSaverActive_ = false;
};

class DesktopAccessibility : public QObject {
  Q_OBJECT

 public:
  DesktopAccessibility();
  CorallineAccessibilityOptions options() const { return options_; }
  // After the options changed.
  std::function<void()> changed;

 private Q_SLOTS:
  void settingChanged(const QString& nameSpace, const QString& key, const QDBusVariant& value);

 private:
  void apply();

  IslandEnvironment::DesktopSettings settings_;
  CorallineAccessibilityOptions options_;
};

}  // namespace tidewatch
