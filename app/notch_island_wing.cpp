#include "app/notch_island_wing.h"

#include <algorithm>
#include <cmath>

#include "process_core/process_records.h"

namespace tidewatch {

namespace {

using std::chrono::milliseconds;
using Kind = NotchIslandWingShape::PathElement::Kind;

// A quarter circle as one cubic Bézier: the control points sit this far along the tangents.
constexpr double circleConstant = 0.55228475;

// Codex stands on the left of the notch, Claude Code on the right.
AgentKind agentOf(NotchIslandSide side) { return side == NotchIslandSide::left ? AgentKind::codex : AgentKind::claude; }

// The outline walked from the notch side's top corner round the outer end to its bottom corner,
// drawn for a left wing and mirrored for a right one.
std::vector<NotchIslandWingShape::PathElement> outline(const LayerRect& in, NotchIslandSide side, double radius,
                                                       bool close) {
  const double r = std::clamp(radius, 0.0, std::min(in.width, in.height) / 2);
  const double k = r * circleConstant;
  const auto x = [&](double fromOuter) {
    return side == NotchIslandSide::left ? in.x + fromOuter : in.x + in.width - fromOuter;
  };
  const double top = in.y;
  const double bottom = in.y + in.height;
  std::vector<NotchIslandWingShape::PathElement> path;
  path.push_back({Kind::moveTo, {{x(in.width), top}}});
  path.push_back({Kind::lineTo, {{x(r), top}}});
  path.push_back({Kind::curveTo, {{x(r - k), top}, {x(0), top + r - k}, {x(0), top + r}}});
  path.push_back({Kind::lineTo, {{x(0), bottom - r}}});
  path.push_back({Kind::curveTo, {{x(0), bottom - r + k}, {x(r - k), bottom}, {x(r), bottom}}});
  path.push_back({Kind::lineTo, {{x(in.width), bottom}}});
  if (close) path.push_back({Kind::close, {}});
  return path;
}

}  // namespace

namespace NotchIslandWingShape {

double outerRadius(const LayerRect& rect) {
  return std::min(std::min(rect.width, rect.height) / 2, 0.375 * rect.height);
}

std::vector<PathElement> path(const LayerRect& in, NotchIslandSide side, double radius) {
  return outline(in, side, radius, true);
}

std::vector<PathElement> outerBorderPath(const LayerRect& in, NotchIslandSide side, double radius) {
  return outline(in, side, radius, false);
}

}  // namespace NotchIslandWingShape

NotchIslandWingView::NotchIslandWingView(NotchIslandSide side, AgentActivityGroupLayer::Setup setup)
    : side_(side), group_(std::move(setup)) {}

void NotchIslandWingView::update(const NotchIslandAgentState& state, double notchOverlap,
                                 const CorallineAccessibilityOptions& options, const std::string& accessibilityLabel) {
  notchOverlap_ = notchOverlap;
  increaseContrast_ = options.increaseContrast;
  const int count = std::max(0, state.count);
  steadyAccessibilityLabel_ =
      std::to_string(count) + " " + std::string(displayName(agentOf(side_))) + " " + (count == 1 ? "session" : "sessions");
  accessibilityLabel_ = accessibilityLabel;
  group_.latestCount = count;
  group_.latestWorking = count >= 1 && state.isWorking;
  group_.latestOptions = options;
  group_.completionLineWidth = options.increaseContrast ? 2.15 : 1.7;
  group_.countLayer().update(count, {1, 1, 1, 1}, options.reduceMotion, true);
  if (state.finishedCount >= 1) {
    group_.beginCompletion();
  } else if (!group_.isPresentingCompletion()) {
    group_.updateMatrix();
    group_.setSteadyLayers();
  }
}

NotchIslandWingView::Layout NotchIslandWingView::layout(double width, double height) const {
  (void)width;
  // Both sit on the wing's middle line, the matrix at the outer end and the count towards it.
  const double matrixY = std::round((height - matrixSide) / 2);
  const double countY = std::round((height - countHeight) / 2);
  const double matrixX = side_ == NotchIslandSide::left ? 9.0 : notchOverlap_ + 41.0;
  const double countX = side_ == NotchIslandSide::left ? 21.0 : notchOverlap_ + 9.0;
  const LayerRect matrix{matrixX, matrixY, matrixSide, matrixSide};
  return {matrix, matrix, {countX, countY, countWidth, countHeight}};
}

NotchIslandWing::NotchIslandWing(Setup setup)
    : setup_(std::move(setup)),
      view_(setup_.side, {setup_.executor, setup_.now,
                          setup_.side == NotchIslandSide::left ? AgentActivityPalette::codex()
                                                               : AgentActivityPalette::claude(),
                          setup_.side == NotchIslandSide::right,
                          setup_.side == NotchIslandSide::left ? AgentActivityMatrixPattern::ring
                                                               : AgentActivityMatrixPattern::spark}) {
  panel_.opacity = 0;
  std::weak_ptr<bool> alive = alive_;
  view_.activityGroup().onCompletionEnded = [this, alive] {
    if (alive.lock()) completionEnded();
  };
}

NotchIslandWing::~NotchIslandWing() = default;

void NotchIslandWing::needsDisplay() {
  if (setup_.panel.setNeedsDisplay) setup_.panel.setNeedsDisplay();
}

void NotchIslandWing::present(const ScreenRect& frame, double notchOverlap, const NotchIslandAgentState& state,
                              const CorallineAccessibilityOptions& options) {
  latestReduceMotion_ = options.reduceMotion;
  if (state.count < 1 && state.finishedCount < 1) {
    if (isRetracting_) return;
    if (!view_.activityGroup().isPresentingCompletion()) {
      hide(options.reduceMotion, false, false);
      return;
    }
  }
  ++transitionGeneration_;
  targetVisible_ = true;
  // A retraction this present interrupts will never finish: it is no longer under way.
  isRetracting_ = false;
  cancelSurfaceMotion();
  frame_ = frame;
  if (setup_.panel.setFrame) setup_.panel.setFrame(frame);
  view_.update(state, notchOverlap, options, state.accessibilityDescription(displayName(agentOf(side()))));
  if (visible_) {
    if (panel_.presentationAt(setup_.now()).opacity < 1.0) animateAlpha(1.0, milliseconds(160), TimingCurves::surface);
  } else {
    panel_.removeAll();
    panel_.opacity = 0;
    visible_ = true;
    if (setup_.panel.orderFront) setup_.panel.orderFront();
    if (!options.reduceMotion) {
      const double offset = side() == NotchIslandSide::left ? 6.0 : -6.0;
      surface_.add(entranceKey, {basicAnimation(LayerProperty::translationX, offset, 0, setup_.now(), milliseconds(180),
                                                TimingCurves::surface)});
    }
    animateAlpha(1.0, options.reduceMotion ? milliseconds(120) : milliseconds(180), TimingCurves::surface);
  }
  needsDisplay();
}

void NotchIslandWing::hide(bool reduceMotion, bool retractIntoNotch, bool notifyTransientEndedAfterHide) {
  auto& group = view_.activityGroup();
  if (!visible_) {
    targetVisible_ = false;
    cancelSurfaceMotion();
    group.reset();
    if (notifyTransientEndedAfterHide && onTransientEnded) onTransientEnded();
    return;
  }
  const uint64_t generation = ++transitionGeneration_;
  targetVisible_ = false;
  isRetracting_ = retractIntoNotch;
  cancelSurfaceMotion();
  group.prepareForHide();
  const double translation = reduceMotion ? 0.0 : (side() == NotchIslandSide::left ? 12.0 : -12.0);
  const double scale = reduceMotion ? 1.0 : 0.84;
  const MotionTime duration = reduceMotion ? milliseconds(120) : milliseconds(180);
  if (retractIntoNotch && (translation != 0 || scale != 1)) {
    const MotionTime begin = setup_.now();
    surface_.add(retractionKey,
                 {basicAnimation(LayerProperty::translationX, 0, translation, begin, duration, TimingCurves::surface),
                  basicAnimation(LayerProperty::scaleX, 1, scale, begin, duration, TimingCurves::surface)});
  }
  const MotionTime fade =
      retractIntoNotch ? duration : (reduceMotion ? MotionTime(milliseconds(100)) : MotionTime(milliseconds(130)));
  animateAlpha(0.0, fade, TimingCurves::surface);
  std::weak_ptr<bool> alive = alive_;
  setup_.executor->postAfter(fade, [this, alive, generation, notifyTransientEndedAfterHide] {
    // A present since then owns the wing now.
    if (!alive.lock() || generation != transitionGeneration_ || targetVisible_) return;
    orderOut();
    isRetracting_ = false;
    cancelSurfaceMotion();
    view_.activityGroup().reset();
    needsDisplay();
    if (notifyTransientEndedAfterHide && onTransientEnded) onTransientEnded();
  });
}

void NotchIslandWing::hardHide() {
  ++transitionGeneration_;
  targetVisible_ = false;
  isRetracting_ = false;
  panel_.removeAll();
  panel_.opacity = 0;
  orderOut();
  cancelSurfaceMotion();
  view_.activityGroup().reset();
  needsDisplay();
}

void NotchIslandWing::orderOut() {
  if (!visible_) return;
  visible_ = false;
  if (setup_.panel.orderOut) setup_.panel.orderOut();
}

void NotchIslandWing::animateAlpha(double to, MotionTime duration, TimingCurve curve) {
  const MotionTime now = setup_.now();
  const double from = panel_.presentationAt(now).opacity;
  panel_.opacity = to;
  panel_.add(alphaKey, {basicAnimation(LayerProperty::opacity, from, to, now, duration, curve)});
  needsDisplay();
}

void NotchIslandWing::cancelSurfaceMotion() {
  surface_.remove(entranceKey);
  surface_.remove(retractionKey);
}

void NotchIslandWing::completionEnded() {
  const auto& group = view_.activityGroup();
  // The last session of this agent just ended: after the checkmark, tuck in under the notch.
  if (group.latestCount < 1 && !group.isPresentingCompletion()) {
    hide(latestReduceMotion_, true, true);
  } else if (onTransientEnded) {
    onTransientEnded();
  }
  needsDisplay();
}

bool NotchIslandWing::isMoving(MotionTime now) {
  const bool transitioning = isTransitioning(now);
  return view_.activityGroup().isMoving(now) || transitioning;
}

bool NotchIslandWing::isTransitioning(MotionTime now) {
  bool moving = panel_.isMoving(now);
  moving = surface_.isMoving(now) || moving;
  return view_.activityGroup().isTransitioning(now) || moving;
}

NotchIslandWingOperations NotchIslandWing::operations() {
  NotchIslandWingOperations operations;
  operations.present = [this](const ScreenRect& frame, double overlap, const NotchIslandAgentState& state,
                              const CorallineAccessibilityOptions& options) { present(frame, overlap, state, options); };
  operations.hide = [this](bool reduceMotion, bool retract, bool notify) { hide(reduceMotion, retract, notify); };
  operations.hardHide = [this] { hardHide(); };
  operations.isPresentingCompletion = [this] { return view_.activityGroup().isPresentingCompletion(); };
  operations.isRetracting = [this] { return isRetracting_; };
  return operations;
}

}  // namespace tidewatch
