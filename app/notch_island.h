// The island beside the top of the screen: two wings, Codex on the left and Claude Code on the
// right, each with an activity matrix and a count. The controller decides whether they may show
// at all (screens awake, no screen or workspace change settling, a screen with a notch to stand
// beside) and hands each wing its frame and state; the wings themselves are reached through
// operations, so every decision runs against fakes with a manual clock.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "coralline_kit/notch_placement_resolver.h"
#include "process_core/main_executor.h"

namespace tidewatch {

struct NotchIslandAgentState {
  int count = 0;
  bool isWorking = false;
  int finishedCount = 0;

  // "2 Codex sessions", "1 Claude Code session ended; 1 session remaining".
  std::string accessibilityDescription(std::string_view agentName) const;
  friend bool operator==(const NotchIslandAgentState&, const NotchIslandAgentState&) = default;
};

struct NotchIslandPresentation {
  NotchIslandAgentState codex;
  NotchIslandAgentState claude;
  friend bool operator==(const NotchIslandPresentation&, const NotchIslandPresentation&) = default;
};

enum class NotchIslandDisposition { hidden, island, menuBarFallback };

struct CorallineAccessibilityOptions {
  bool reduceMotion = false;
  bool increaseContrast = false;
  bool reduceTransparency = false;
  bool differentiateWithoutColor = false;
  friend bool operator==(const CorallineAccessibilityOptions&, const CorallineAccessibilityOptions&) = default;
};

namespace NotchIslandEnvironmentResolver {

inline constexpr double visibleWingWidth = 58.0;
inline constexpr double notchOverlap = 12.0;

struct Island {
  NotchPlacementResolver::IslandLayout layout;
  friend bool operator==(const Island&, const Island&) = default;
};
struct MenuBarFallback {
  friend bool operator==(const MenuBarFallback&, const MenuBarFallback&) = default;
};
struct Hidden {
  friend bool operator==(const Hidden&, const Hidden&) = default;
};
using Decision = std::variant<Island, MenuBarFallback, Hidden>;

// Hidden with nothing to show or while the environment settles; otherwise the first built-in
// screen with a notch that has room for the wings, else the tray's fallback.
Decision resolve(bool hasVisibleContent, bool environmentReady,
                 const std::vector<NotchPlacementResolver::ScreenContext>& screenContexts);

}  // namespace NotchIslandEnvironmentResolver

// What the controller needs of one wing.
struct NotchIslandWingOperations {
  std::function<void(const ScreenRect& frame, double notchOverlap, const NotchIslandAgentState& state,
                     const CorallineAccessibilityOptions& options)>
      present;
  // Fades out; with `retract`, tucks in under the notch; with `notify`, tells the controller
  // once it is gone.
  std::function<void(bool reduceMotion, bool retract, bool notify)> hide;
  // Gone at once: no motion, no callback.
  std::function<void()> hardHide;
  std::function<bool()> isPresentingCompletion;
  std::function<bool()> isRetracting;
};

class NotchIslandController {
 public:
  struct Dependencies {
    std::shared_ptr<MainExecutor> executor;
    NotchIslandWingOperations leftWing;   // Codex
    NotchIslandWingOperations rightWing;  // Claude Code
    std::function<std::vector<NotchPlacementResolver::ScreenContext>()> screenContexts;
    std::function<CorallineAccessibilityOptions()> accessibilityOptions;
    // How long a workspace switch's animation runs; 0.18 s under reduce motion, else 0.42 s.
    std::function<std::chrono::milliseconds()> spaceTransitionDelay;
  };

  explicit NotchIslandController(Dependencies dependencies);

  // Shows the given state (or the latest) if the environment allows; the disposition.
  NotchIslandDisposition presentLatest(const std::optional<NotchIslandPresentation>& presentationOverride = std::nullopt);
  void hide();
  void shutDown();

  // The desktop's events.
  void activeSpaceChanged();
  void screensDidSleep();
  void screensDidWake();
  void screenParametersChanged();
  void accessibilityDisplayOptionsChanged();
  // A wing finished a completion or a retraction.
  void transientEnded();

  std::function<void(NotchIslandDisposition disposition)> onDispositionChange;

  // The steady state the application last drew; stored by it.
  NotchIslandPresentation latestPresentation;
  // While set, a change of disposition made on the application's behalf is not announced.
  bool isSynchronizingFromApp = false;

  NotchIslandDisposition disposition() const { return disposition_; }

 private:
  bool hasVisibleContent(const NotchIslandPresentation& state) const;
  void setDisposition(NotchIslandDisposition disposition);
  void hideBoth(bool hard);
  // Nothing to show any more, nothing pending; the wings go, at once when hard.
  void forget(bool hard);
  void beginSpaceTransition();
  void beginEnvironmentTransition();
  bool reduceMotion() const;

  Dependencies d_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  NotchIslandDisposition disposition_ = NotchIslandDisposition::hidden;
  bool screensAreAsleep_ = false;
  bool environmentIsSettling_ = false;
  bool spaceIsSettling_ = false;
  uint64_t environmentGeneration_ = 0;
  uint64_t spaceTransitionGeneration_ = 0;
};

}  // namespace tidewatch
