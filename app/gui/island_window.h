// The island's one window on X11: both wings and the virtual notch between them, painted from
// the wings' layers at the moment of each frame. It never takes input or focus, has no taskbar
// or switcher entry, and shows on every workspace above other windows. Frames are drawn only
// while something moves; at rest the window costs nothing.
#pragma once

#include <QPainter>
#include <QRasterWindow>
#include <QTimer>

#include <memory>

#include "app/notch_island_wing.h"
#include "process_core/main_executor.h"

namespace tidewatch {

QColor toQColor(const ActivityColor& color, double opacity = 1.0);

// Paints the island in its own coordinates: the left wing at x 0, the notch after it, the right
// wing after that, `IslandWindow::size()` in all.
void paintIsland(QPainter& painter, NotchIslandWing& left, NotchIslandWing& right, MotionTime now);

class IslandWindow : public QRasterWindow {
  Q_OBJECT

 public:
  static constexpr const char* title = "Tidewatch island";

  IslandWindow(std::shared_ptr<MainExecutor> executor, MotionClock clock);
  ~IslandWindow() override;

  NotchIslandWing& leftWing() { return *left_; }
  NotchIslandWing& rightWing() { return *right_; }
  // The island's extent for wings of the given layout: beside and over the notch.
  static QSize islandSize();
  // What the island tells now, for the bus: its wings' labels while they show.
  QStringList accessibleLabels() const;
  // Above windows raised since it showed.
  void keepAbove();

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  NotchIslandPanelOperations panelFor(NotchIslandSide side);
  void place(NotchIslandSide side, const ScreenRect& frame);
  void wingOrderedFront();
  void wingOrderedOut();
  void scheduleFrame(int milliseconds);
  void updateMask();

  MotionClock clock_;
  std::unique_ptr<NotchIslandWing> left_;
  std::unique_ptr<NotchIslandWing> right_;
  QTimer frame_;
};

}  // namespace tidewatch
