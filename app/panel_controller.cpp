#include "app/panel_controller.h"

#include <utility>

namespace tidewatch {

namespace {

bool contains(const ScreenRect& rect, const PanelPlacement::Point& point) {
  return point.x >= rect.minX() && point.x <= rect.maxX() && point.y >= rect.minY() && point.y <= rect.maxY();
}

}  // namespace

PanelController::PanelController(PanelSurface surface, double width, double height)
    : surface_(std::move(surface)), width_(width), height_(height) {}

bool PanelController::show(const ScreenRect& anchor, const ScreenRect& available, const ScreenRect& screen) {
  if (presented_ || !pendingDismissalCompletions_.empty()) return false;
  const bool wasVisible = surface_.isVisible();
  // Voids the finish of a fade still under way.
  ++generation_;
  frame_ = PanelPlacement::frame(anchor, width_, height_, available, screen);
  surface_.setFrame(*frame_);
  presented_ = true;
  excluded_ = anchor;
  if (!wasVisible) {
    didPublishClose_ = false;
    surface_.orderFront();
    surface_.makeKey();
    if (onDidShow) onDidShow();
  } else {
    surface_.makeKey();
  }
  return true;
}

void PanelController::requestDismissal(DismissalMode mode) {
  const uint64_t generation = ++generation_;
  if (!onDismissRequested) {
    finishDismissal(generation);
    return;
  }
  std::weak_ptr<bool> alive = alive_;
  onDismissRequested(mode, [this, alive, generation] {
    if (alive.lock()) finishDismissal(generation);
  });
}

void PanelController::dismissNow() {
  if (presented_) {
    presented_ = false;
  } else if (!surface_.isVisible()) {
    return;
  }
  excluded_.reset();
  requestDismissal(DismissalMode::immediate);
}

void PanelController::outsideInteraction(const std::optional<PanelPlacement::Point>& pointer) {
  if (!presented_) return;
  if (pointer && excluded_ && contains(*excluded_, *pointer)) return;
  presented_ = false;
  excluded_.reset();
  requestDismissal(DismissalMode::animated);
}

void PanelController::finishDismissal(uint64_t generation) {
  // A later show has taken over.
  if (generation != generation_ || presented_) return;
  surface_.orderOut();
  if (!didPublishClose_) {
    didPublishClose_ = true;
    if (onDidClose) onDidClose();
  }
  auto completions = std::exchange(pendingDismissalCompletions_, {});
  for (auto& completion : completions) completion();
}

PopoverRevealState::PopoverRevealState(std::shared_ptr<MainExecutor> executor, std::function<bool()> reduceMotion)
    : executor_(std::move(executor)), reduceMotion_(std::move(reduceMotion)) {}

void PopoverRevealState::prepare() { set(false, std::chrono::milliseconds(0), Curve::reveal); }

void PopoverRevealState::reveal() {
  const bool reduced = reduceMotion_ && reduceMotion_();
  set(true, std::chrono::milliseconds(reduced ? 120 : 240), reduced ? Curve::easeOut : Curve::reveal);
}

void PopoverRevealState::conceal(std::function<void()> completion) {
  if (!revealed_) {
    completion();
    return;
  }
  const bool reduced = reduceMotion_ && reduceMotion_();
  const auto duration = std::chrono::milliseconds(reduced ? 120 : 150);
  set(false, duration, reduced ? Curve::easeOut : Curve::easeIn);
  // Logically complete when the fade would be, whatever the view made of it.
  executor_->postAfter(duration, std::move(completion));
}

void PopoverRevealState::set(bool revealed, std::chrono::milliseconds duration, Curve curve) {
  duration_ = duration;
  curve_ = curve;
  if (revealed_ == revealed) return;
  revealed_ = revealed;
  if (onChange) onChange();
}

}  // namespace tidewatch
