// The panel's life under the tray icon: shown, fading out, closed. It can be reopened while it
// fades (the fade's late finish then does nothing), closes on Escape at once and on a click
// elsewhere with a fade, and tells its owner once per opening that it showed and that it closed.
// The window itself is reached through a few operations, so the states run without a display.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "app/panel_placement.h"
#include "process_core/main_executor.h"

namespace tidewatch {

enum class DismissalMode { animated, immediate };

// What the controller needs of the window.
struct PanelSurface {
  std::function<bool()> isVisible;  // on screen, also while it fades
  std::function<void(const ScreenRect& frame)> setFrame;
  std::function<void()> orderFront;  // mapped and raised, its content still concealed
  std::function<void()> makeKey;     // takes the keyboard
  std::function<void()> orderOut;    // unmapped
};

class PanelController {
 public:
  PanelController(PanelSurface surface, double width, double height);

  // Opens the panel placed from the anchor; false when it is open already or a close is owed.
  // The anchor is where a click on the icon toggles the panel rather than closing it as outside.
  bool show(const ScreenRect& anchor, const ScreenRect& available, const ScreenRect& screen);
  void requestDismissal(DismissalMode mode);
  // Escape: closes at once, also cutting a fade short.
  void dismissNow();
  // A click elsewhere or the keyboard taken away; `pointer` where the pointer is then. Nothing
  // when it is on the icon, whose own click toggles.
  void outsideInteraction(const std::optional<PanelPlacement::Point>& pointer);

  bool isPresented() const { return presented_; }
  uint64_t presentationGeneration() const { return generation_; }
  const std::optional<ScreenRect>& frame() const { return frame_; }

  std::function<void()> onDidShow;
  std::function<void()> onDidClose;
  // Runs the fade of the given kind, then the completion.
  std::function<void(DismissalMode mode, std::function<void()> completion)> onDismissRequested;

 private:
  void finishDismissal(uint64_t generation);

  PanelSurface surface_;
  double width_;
  double height_;
  bool presented_ = false;
  bool didPublishClose_ = true;
  uint64_t generation_ = 0;
  std::optional<ScreenRect> frame_;
  std::optional<ScreenRect> excluded_;
  std::vector<std::function<void()>> pendingDismissalCompletions_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

// The content's side of the motion: revealed or concealed, and how long each takes.
class PopoverRevealState {
 public:
  PopoverRevealState(std::shared_ptr<MainExecutor> executor, std::function<bool()> reduceMotion);

  void prepare();
  void reveal();
  // Completion once the fade is over; at once when nothing is revealed.
  void conceal(std::function<void()> completion);

  bool isRevealed() const { return revealed_; }
  // The length of the change under way, for the view's animation.
  std::chrono::milliseconds duration() const { return duration_; }
  // The curve of the change under way.
  enum class Curve { reveal, easeOut, easeIn };
  Curve curve() const { return curve_; }

  std::function<void()> onChange;

 private:
  void set(bool revealed, std::chrono::milliseconds duration, Curve curve);

  std::shared_ptr<MainExecutor> executor_;
  std::function<bool()> reduceMotion_;
  bool revealed_ = false;
  std::chrono::milliseconds duration_{0};
  Curve curve_ = Curve::reveal;
};

}  // namespace tidewatch
