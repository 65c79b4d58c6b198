#include "app/launch_at_login.h"

#include "app/onboarding.h"

namespace tidewatch {

const LaunchAtLoginTexts& LaunchAtLoginTexts::darwin() {
  static const LaunchAtLoginTexts texts{
      .approvalCaption = "Turn on Tidewatch in System Settings → General → Login Items & Extensions.",
      .addFailedCaption = "Couldn't add Tidewatch to Login Items. Try System Settings → General → Login Items.",
      .removeFailedCaption = "Couldn't remove Tidewatch from Login Items. Try System Settings → General → Login Items.",
      .offerAddFailed = "Tidewatch could not be added to Login Items. You can try again here or later in Settings.",
      .offerApprovalOpened =
          "System Settings is open. Turn on Tidewatch in Login Items & Extensions, then return here.",
      .offerNotOnYet = "Tidewatch is not on yet. In System Settings, turn it on under Login Items & Extensions.",
  };
  return texts;
}

const LaunchAtLoginTexts& LaunchAtLoginTexts::forLinux() {
  static const LaunchAtLoginTexts texts{
      .approvalCaption = "Turn on Tidewatch in your desktop's Startup Applications settings.",
      .addFailedCaption =
          "Couldn't add Tidewatch to Startup Applications. Try your desktop's Startup Applications settings.",
      .removeFailedCaption =
          "Couldn't remove Tidewatch from Startup Applications. Try your desktop's Startup Applications settings.",
      .offerAddFailed =
          "Tidewatch could not be added to Startup Applications. You can try again here or later in Settings.",
      .offerApprovalOpened = "Startup Applications settings are open. Turn on Tidewatch there, then return here.",
      .offerNotOnYet = "Tidewatch is not on yet. Turn it on in your desktop's Startup Applications settings.",
  };
  return texts;
}

namespace LaunchAtLoginReconciler {

Presentation presentation(SystemStatus status, const LaunchAtLoginTexts& texts) {
  switch (status) {
    case SystemStatus::enabled:
      return {true, false, std::nullopt, false};
    case SystemStatus::requiresApproval:
      return {false, true, texts.approvalCaption, false};
    case SystemStatus::notRegistered:
      break;
  }
  return {false, false, std::nullopt, false};
}

Presentation presentationAfterToggle(bool requested, ChangeResult result, SystemStatus status,
                                     const LaunchAtLoginTexts& texts) {
  Presentation shown = presentation(status, texts);
  if (requested) {
    if (result == ChangeResult::disabled || result == ChangeResult::failed) {
      shown.caption = texts.addFailedCaption;
    } else if (result == ChangeResult::requiresApproval) {
      shown.needsApproval = true;
      shown.caption = texts.approvalCaption;
      shown.openLoginItemsSettings = true;
    }
  } else if (result != ChangeResult::disabled) {
    shown.caption = texts.removeFailedCaption;
  }
  return shown;
}

std::optional<bool> toggleWrite(bool from, bool to) {
  if (from == to) return std::nullopt;
  return to;
}

}  // namespace LaunchAtLoginReconciler

using LaunchAtLoginReconciler::ChangeResult;
using LaunchAtLoginReconciler::Presentation;

LaunchAtLoginController::LaunchAtLoginController(LaunchAtLoginService service, DefaultsStore& defaults,
                                                 const LaunchAtLoginTexts& texts)
    : service_(std::move(service)), defaults_(defaults), texts_(texts) {}

Presentation LaunchAtLoginController::applyLaunchAtLoginToggle(bool on) {
  const ChangeResult result = on ? service_.registerApp() : service_.unregisterApp();
  const Presentation shown = LaunchAtLoginReconciler::presentationAfterToggle(on, result, service_.status(), texts_);
  if (shown.openLoginItemsSettings) service_.openLoginItemsSettings();
  return keptInStep(shown);
}

Presentation LaunchAtLoginController::reconcileLaunchAtLogin() {
  return keptInStep(LaunchAtLoginReconciler::presentation(service_.status(), texts_));
}

Presentation LaunchAtLoginController::keptInStep(Presentation presentation) {
  const std::string key(OnboardingKeys::launchAtLoginEnabled);
  if (const auto value = LaunchAtLoginReconciler::toggleWrite(defaults_.boolForKey(key), presentation.toggleOn)) {
    (void)defaults_.set(key, *value);
  }
  return presentation;
}

LaunchAtLoginOfferState LaunchAtLoginController::enableAtLogin() {
  using Step = LaunchAtLoginOfferState::Step;
  switch (service_.registerApp()) {
    case ChangeResult::enabled:
      return complete();
    case ChangeResult::requiresApproval:
      service_.openLoginItemsSettings();
      return {Step::awaitingApproval, texts_.offerApprovalOpened};
    case ChangeResult::disabled:
    case ChangeResult::failed:
      break;
  }
  return {Step::offering, texts_.offerAddFailed};
}

LaunchAtLoginOfferState LaunchAtLoginController::reconcileAfterApproval() {
  if (service_.status() == LaunchAtLoginReconciler::SystemStatus::enabled) return complete();
  return {LaunchAtLoginOfferState::Step::awaitingApproval, texts_.offerNotOnYet};
}

LaunchAtLoginOfferState LaunchAtLoginController::declineOffer() { return complete(); }

LaunchAtLoginOfferState LaunchAtLoginController::complete() {
  (void)defaults_.set(std::string(OnboardingKeys::launchAtLoginOfferCompleted), true);
  if (onOnboardingGateChanged) onOnboardingGateChanged();
  return {LaunchAtLoginOfferState::Step::completed, std::nullopt};
}

}  // namespace tidewatch
