// Between the user's "open at login" toggle and the system's login-item state, which can
// disagree: the pure reconciler, the texts it shows, and a small controller over an injected
// login-item service and the defaults store.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "process_core/defaults_store.h"

namespace tidewatch {

// The captions and offer messages; the system's settings are named differently per platform.
struct LaunchAtLoginTexts {
  std::string approvalCaption;
  std::string addFailedCaption;
  std::string removeFailedCaption;
  std::string offerAddFailed;
  std::string offerApprovalOpened;
  std::string offerNotOnYet;

  static const LaunchAtLoginTexts& darwin();
  // A Linux desktop: autostart entries, which never wait for approval.
  static const LaunchAtLoginTexts& forLinux();
};

namespace LaunchAtLoginOfferTexts {
inline constexpr std::string_view openAtLoginButton = "Open at Login";
inline constexpr std::string_view notNowButton = "Not now";
}  // namespace LaunchAtLoginOfferTexts

namespace LaunchAtLoginReconciler {

enum class SystemStatus { enabled, requiresApproval, notRegistered };
enum class ChangeResult { enabled, requiresApproval, disabled, failed };

struct Presentation {
  bool toggleOn = false;
  bool needsApproval = false;
  std::optional<std::string> caption;
  bool openLoginItemsSettings = false;

  friend bool operator==(const Presentation&, const Presentation&) = default;
};

Presentation presentation(SystemStatus status, const LaunchAtLoginTexts& texts);
// The toggle follows the status, whatever was asked for; a failed change shows a caption.
Presentation presentationAfterToggle(bool requested, ChangeResult result, SystemStatus status,
                                     const LaunchAtLoginTexts& texts);
// The value to store, or absent when nothing needs writing, so that a reconcile does not
// retrigger the toggle's own change handler.
std::optional<bool> toggleWrite(bool from, bool to);

}  // namespace LaunchAtLoginReconciler

// The system's login-item service.
struct LaunchAtLoginService {
  std::function<LaunchAtLoginReconciler::SystemStatus()> status;
  std::function<LaunchAtLoginReconciler::ChangeResult()> registerApp;
  std::function<LaunchAtLoginReconciler::ChangeResult()> unregisterApp;
  std::function<void()> openLoginItemsSettings;
};

// Where the offer to open at login stands after a step.
struct LaunchAtLoginOfferState {
  enum class Step { offering, awaitingApproval, completed };
  Step step = Step::offering;
  std::optional<std::string> message;

  friend bool operator==(const LaunchAtLoginOfferState&, const LaunchAtLoginOfferState&) = default;
};

// The settings toggle and the first-run offer. Keeps "launchAtLoginEnabled" in step with what
// the system says. The store and the texts (one of the two static sets) must outlive it.
class LaunchAtLoginController {
 public:
  LaunchAtLoginController(LaunchAtLoginService service, DefaultsStore& defaults, const LaunchAtLoginTexts& texts);

  // After "launchAtLoginOfferCompleted" was set.
  std::function<void()> onOnboardingGateChanged;

  // The user flipped the toggle: registers or unregisters, opens the settings when approval is
  // needed, and returns what to render.
  LaunchAtLoginReconciler::Presentation applyLaunchAtLoginToggle(bool on);
  // What the system says now.
  LaunchAtLoginReconciler::Presentation reconcileLaunchAtLogin();

  // "Open at Login" in the offer.
  LaunchAtLoginOfferState enableAtLogin();
  // The user says the approval is given.
  LaunchAtLoginOfferState reconcileAfterApproval();
  // "Not now".
  LaunchAtLoginOfferState declineOffer();

 private:
  LaunchAtLoginReconciler::Presentation keptInStep(LaunchAtLoginReconciler::Presentation presentation);
  LaunchAtLoginOfferState complete();

  LaunchAtLoginService service_;
  DefaultsStore& defaults_;
  const LaunchAtLoginTexts& texts_;
};

}  // namespace tidewatch
