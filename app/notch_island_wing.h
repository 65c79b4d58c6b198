// One wing of the island: a small black shape beside the notch with the activity of one agent.
// The wing owns its motion (fading in, sliding out from the notch, tucking back under it) and
// its content; the window it is drawn in is reached through operations, and what is drawn at a
// moment is read from the wing's layers, so the whole wing runs against fakes and a manual clock.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "app/activity_visuals.h"
#include "app/notch_island.h"

namespace tidewatch {

enum class NotchIslandSide { left, right };

// The outline of a wing: square where it meets the notch, quarter-round at its outer end.
namespace NotchIslandWingShape {

struct PathElement {
  enum class Kind { moveTo, lineTo, curveTo, close };
  Kind kind = Kind::moveTo;
  // The end point last; a curve's two control points before it.
  std::vector<std::pair<double, double>> points;
};

// Half the smaller side, at most 0.375 of the height.
double outerRadius(const LayerRect& rect);
// `side` is the wing's side of the notch, so the open edge is the opposite one.
std::vector<PathElement> path(const LayerRect& in, NotchIslandSide side, double outerRadius);
// The same outline without the edge against the notch, for the contrast border.
std::vector<PathElement> outerBorderPath(const LayerRect& in, NotchIslandSide side, double outerRadius);

}  // namespace NotchIslandWingShape

class NotchIslandWingView {
 public:
  static constexpr double matrixSide = 8.0;
  static constexpr double countWidth = 28.0;
  static constexpr double countHeight = 16.0;

  NotchIslandWingView(NotchIslandSide side, AgentActivityGroupLayer::Setup setup);

  void update(const NotchIslandAgentState& state, double notchOverlap, const CorallineAccessibilityOptions& options,
              const std::string& accessibilityLabel);

  struct Layout {
    LayerRect matrix;
    LayerRect checkmark;
    LayerRect count;
  };
  // Where the content sits in a wing of that size, top-left origin.
  Layout layout(double width, double height) const;

  NotchIslandSide side() const { return side_; }
  double notchOverlap() const { return notchOverlap_; }
  bool increaseContrast() const { return increaseContrast_; }
  const std::string& steadyAccessibilityLabel() const { return steadyAccessibilityLabel_; }
  const std::string& accessibilityLabel() const { return accessibilityLabel_; }
  AgentActivityGroupLayer& activityGroup() { return group_; }
  const AgentActivityGroupLayer& activityGroup() const { return group_; }

 private:
  NotchIslandSide side_;
  AgentActivityGroupLayer group_;
  double notchOverlap_ = 12.0;
  bool increaseContrast_ = false;
  std::string steadyAccessibilityLabel_;
  std::string accessibilityLabel_;
};

// The window side of a wing.
struct NotchIslandPanelOperations {
  std::function<void(const ScreenRect& frame)> setFrame;
  // Shown above everything, without taking focus.
  std::function<void()> orderFront;
  std::function<void()> orderOut;
  // Something to draw changed, or a motion began.
  std::function<void()> setNeedsDisplay;
};

class NotchIslandWing {
 public:
  static constexpr const char* entranceKey = "tidewatch.notchIsland.entrance";
  static constexpr const char* retractionKey = "tidewatch.notchIsland.retraction";
  static constexpr const char* alphaKey = "tidewatch.notchIsland.alpha";

  struct Setup {
    NotchIslandSide side = NotchIslandSide::left;
    std::shared_ptr<MainExecutor> executor;
    MotionClock now;
    NotchIslandPanelOperations panel;
  };
  explicit NotchIslandWing(Setup setup);
  ~NotchIslandWing();
  NotchIslandWing(const NotchIslandWing&) = delete;
  NotchIslandWing& operator=(const NotchIslandWing&) = delete;

  void present(const ScreenRect& frame, double notchOverlap, const NotchIslandAgentState& state,
               const CorallineAccessibilityOptions& options);
  void hide(bool reduceMotion, bool retractIntoNotch, bool notifyTransientEndedAfterHide);
  void hardHide();

  // What the controller drives.
  NotchIslandWingOperations operations();
  std::function<void()> onTransientEnded;

  // For drawing: the panel's alpha and the content's motion, the frame, the content.
  const MotionLayer& panelLayer() const { return panel_; }
  const MotionLayer& surfaceLayer() const { return surface_; }
  const ScreenRect& frame() const { return frame_; }
  bool isVisible() const { return visible_; }
  bool targetVisible() const { return targetVisible_; }
  bool isRetracting() const { return isRetracting_; }
  NotchIslandSide side() const { return view_.side(); }
  NotchIslandWingView& contentView() { return view_; }
  const NotchIslandWingView& contentView() const { return view_; }
  // Whether anything of the wing still moves; finished motions are forgotten.
  bool isMoving(MotionTime now);
  // Moving apart from the matrix's breathing, which can be drawn at a lower rate.
  bool isTransitioning(MotionTime now);

 private:
  void animateAlpha(double to, MotionTime duration, TimingCurve curve);
  void cancelSurfaceMotion();
  void completionEnded();
  void orderOut();
  void needsDisplay();

  Setup setup_;
  NotchIslandWingView view_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  MotionLayer panel_;
  MotionLayer surface_;
  ScreenRect frame_;
  bool visible_ = false;
  bool targetVisible_ = false;
  bool isRetracting_ = false;
  bool latestReduceMotion_ = false;
  uint64_t transitionGeneration_ = 0;
};

}  // namespace tidewatch
