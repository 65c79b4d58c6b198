#include "app/notch_island.h"

namespace tidewatch {

namespace {

std::string sessions(int count) { return count == 1 ? "session" : "sessions"; }

}  // namespace

std::string NotchIslandAgentState::accessibilityDescription(std::string_view agentName) const {
  const std::string name(agentName);
  if (finishedCount < 1) return std::to_string(count) + " " + name + " " + sessions(count);
  std::string text = std::to_string(finishedCount) + " " + name + " " +
                     (finishedCount == 1 ? "session ended" : "sessions ended");
  if (count >= 1) text += "; " + std::to_string(count) + " " + sessions(count) + " remaining";
  return text;
}

namespace NotchIslandEnvironmentResolver {

Decision resolve(bool hasVisibleContent, bool environmentReady,
                 const std::vector<NotchPlacementResolver::ScreenContext>& screenContexts) {
  if (!hasVisibleContent || !environmentReady) return Hidden{};
  for (const auto& context : screenContexts) {
    if (!context.isBuiltIn || !context.hasNotch) continue;
    const auto decision = NotchPlacementResolver::resolveIsland(context, visibleWingWidth, notchOverlap);
    if (const auto* island = std::get_if<NotchPlacementResolver::ShowIsland>(&decision)) return Island{island->layout};
  }
  return MenuBarFallback{};
}

}  // namespace NotchIslandEnvironmentResolver

NotchIslandController::NotchIslandController(Dependencies dependencies) : d_(std::move(dependencies)) {}

bool NotchIslandController::reduceMotion() const {
  return d_.accessibilityOptions && d_.accessibilityOptions().reduceMotion;
}

bool NotchIslandController::hasVisibleContent(const NotchIslandPresentation& state) const {
  const auto transient = [](const NotchIslandWingOperations& wing) {
    return (wing.isPresentingCompletion && wing.isPresentingCompletion()) || (wing.isRetracting && wing.isRetracting());
  };
  return state.codex.count >= 1 || state.codex.finishedCount >= 1 || state.claude.count >= 1 ||
         state.claude.finishedCount >= 1 || transient(d_.leftWing) || transient(d_.rightWing);
}

void NotchIslandController::setDisposition(NotchIslandDisposition disposition) {
  if (disposition_ == disposition) return;
  disposition_ = disposition;
  if (!isSynchronizingFromApp && onDispositionChange) onDispositionChange(disposition);
}

void NotchIslandController::hideBoth(bool hard) {
  if (hard) {
    d_.leftWing.hardHide();
    d_.rightWing.hardHide();
    return;
  }
  const bool reduced = reduceMotion();
  d_.leftWing.hide(reduced, false, false);
  d_.rightWing.hide(reduced, false, false);
}

NotchIslandDisposition NotchIslandController::presentLatest(
    const std::optional<NotchIslandPresentation>& presentationOverride) {
  const NotchIslandPresentation state = presentationOverride.value_or(latestPresentation);
  const bool ready = !screensAreAsleep_ && !environmentIsSettling_ && !spaceIsSettling_;
  const auto decision = NotchIslandEnvironmentResolver::resolve(
      hasVisibleContent(state), ready, d_.screenContexts ? d_.screenContexts() : std::vector<NotchPlacementResolver::ScreenContext>{});
  if (const auto* island = std::get_if<NotchIslandEnvironmentResolver::Island>(&decision)) {
    const auto options = d_.accessibilityOptions ? d_.accessibilityOptions() : CorallineAccessibilityOptions{};
    setDisposition(NotchIslandDisposition::island);
    d_.leftWing.present(island->layout.leftWingFrame, island->layout.notchOverlap, state.codex, options);
    d_.rightWing.present(island->layout.rightWingFrame, island->layout.notchOverlap, state.claude, options);
  } else {
    hideBoth(false);
    setDisposition(std::holds_alternative<NotchIslandEnvironmentResolver::MenuBarFallback>(decision)
                       ? NotchIslandDisposition::menuBarFallback
                       : NotchIslandDisposition::hidden);
  }
  return disposition_;
}

void NotchIslandController::hide() { forget(false); }

void NotchIslandController::shutDown() { forget(true); }

void NotchIslandController::forget(bool hard) {
  latestPresentation = {};
  ++spaceTransitionGeneration_;
  spaceIsSettling_ = false;
  hideBoth(hard);
  setDisposition(NotchIslandDisposition::hidden);
}

void NotchIslandController::activeSpaceChanged() {
  if (!hasVisibleContent(latestPresentation)) return;
  if (disposition_ != NotchIslandDisposition::menuBarFallback || spaceIsSettling_) beginSpaceTransition();
}

void NotchIslandController::beginSpaceTransition() {
  const uint64_t generation = ++spaceTransitionGeneration_;
  spaceIsSettling_ = true;
  hideBoth(true);
  setDisposition(NotchIslandDisposition::hidden);
  // Windows on every workspace would slide with the switch's animation: show again after it.
  const auto delay = std::max(std::chrono::milliseconds(0), d_.spaceTransitionDelay
                                                                 ? d_.spaceTransitionDelay()
                                                                 : std::chrono::milliseconds(reduceMotion() ? 180 : 420));
  std::weak_ptr<bool> alive = alive_;
  d_.executor->postAfter(delay, [this, alive, generation] {
    if (!alive.lock() || generation != spaceTransitionGeneration_) return;
    spaceIsSettling_ = false;
    presentLatest();
  });
}

void NotchIslandController::screensDidSleep() {
  ++environmentGeneration_;
  ++spaceTransitionGeneration_;
  spaceIsSettling_ = false;
  screensAreAsleep_ = true;
  environmentIsSettling_ = false;
  hideBoth(true);
  setDisposition(NotchIslandDisposition::hidden);
}

void NotchIslandController::screensDidWake() {
  screensAreAsleep_ = false;
  beginEnvironmentTransition();
}

void NotchIslandController::screenParametersChanged() { beginEnvironmentTransition(); }

void NotchIslandController::beginEnvironmentTransition() {
  const uint64_t generation = ++environmentGeneration_;
  environmentIsSettling_ = true;
  hideBoth(true);
  setDisposition(NotchIslandDisposition::hidden);
  std::weak_ptr<bool> alive = alive_;
  d_.executor->post([this, alive, generation] {
    if (!alive.lock() || generation != environmentGeneration_) return;
    environmentIsSettling_ = false;
    presentLatest();
  });
}

void NotchIslandController::accessibilityDisplayOptionsChanged() {
  if (presentLatest() == NotchIslandDisposition::menuBarFallback && onDispositionChange) {
    onDispositionChange(NotchIslandDisposition::menuBarFallback);
  }
}

void NotchIslandController::transientEnded() { presentLatest(); }

}  // namespace tidewatch
