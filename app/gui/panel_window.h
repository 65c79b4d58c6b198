// The panel's window: a frameless, translucent Qt Quick window kept above the others, made on
// first use (an unmade view costs nothing while the app idles in the tray). In window mode, for a
// desktop without a tray, it is an ordinary window with a frame and a taskbar entry instead.
#pragma once

#include <QObject>
#include <QPointer>
#include <QQuickView>

#include <functional>
#include <optional>

#include "app/panel_controller.h"

namespace tidewatch {

class PanelBridge;
class SettingsModel;
class TidewatchViewModel;

class PanelWindow : public QObject {
  Q_OBJECT

 public:
  PanelWindow(TidewatchViewModel& viewModel, PanelBridge& bridge, SettingsModel& settings, QObject* parent = nullptr);
  ~PanelWindow() override;

  // The operations the panel's controller drives.
  PanelSurface surface();
  void setWindowMode(bool on);
  bool windowMode() const { return windowMode_; }
  // Shows it as an ordinary window, raised and focused.
  void showAsWindow();
  QQuickView* view() const { return view_; }

  std::function<void()> onEscape;
  // The window lost the keyboard to another one; where the pointer is then, in screen points.
  std::function<void()> onFocusLost;
  // The window mode's close button.
  std::function<void()> onCloseRequested;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  QQuickView& ensureView();
  void applyFlags();

  TidewatchViewModel& viewModel_;
  PanelBridge& bridge_;
  SettingsModel& settings_;
  QPointer<QQuickView> view_;
  bool windowMode_ = false;
  bool wasActive_ = false;
};

}  // namespace tidewatch
