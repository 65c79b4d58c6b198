#include "app/gui/panel_bridge.h"

#include <QClipboard>
#include <QDesktopServices>
#include <QGuiApplication>
#include <QUrl>

#include "app/display_settings.h"

namespace tidewatch {

PanelBridge::PanelBridge(AppDelegate& delegate, QObject* parent)
    : QObject(parent),
      delegate_(delegate),
      launchAtLogin_(delegate.launchAtLogin(), delegate.defaults(), LaunchAtLoginTexts::forLinux()) {
  launchAtLogin_.onOnboardingGateChanged = [this] { gateChanged(); };
}

bool PanelBridge::revealed() const { return delegate_.reveal().isRevealed(); }

int PanelBridge::revealDuration() const { return static_cast<int>(delegate_.reveal().duration().count()); }

QString PanelBridge::revealCurve() const {
  switch (delegate_.reveal().curve()) {
    case PopoverRevealState::Curve::reveal:
      return QStringLiteral("reveal");
    case PopoverRevealState::Curve::easeOut:
      return QStringLiteral("easeOut");
    case PopoverRevealState::Curve::easeIn:
      break;
  }
  return QStringLiteral("easeIn");
}

QString PanelBridge::surface() const {
  if (replayingWalkthrough_) return QStringLiteral("walkthrough");
  switch (delegate_.presentation().surface) {
    case OnboardingPresentation::Surface::launchAtLoginOffer:
      return QStringLiteral("offer");
    case OnboardingPresentation::Surface::walkthrough:
      return QStringLiteral("walkthrough");
    case OnboardingPresentation::Surface::listenerList:
      break;
  }
  return QStringLiteral("list");
}

void PanelBridge::setWindowMode(bool on) {
  if (windowMode_ == on) return;
  windowMode_ = on;
  Q_EMIT windowModeChanged();
}

void PanelBridge::quit() { delegate_.quit(); }

void PanelBridge::dismissNow() {
  if (!windowMode_) delegate_.dismissNow();
}

void PanelBridge::openURL(const QString& url) {
  QDesktopServices::openUrl(QUrl(url));
  if (!windowMode_ && DisplaySettings::autoCloseAfterOpening(delegate_.defaults())) {
    delegate_.outsideInteraction(std::nullopt);
  }
}

void PanelBridge::copy(const QString& text) { QGuiApplication::clipboard()->setText(text); }

void PanelBridge::replayWalkthrough() {
  replayingWalkthrough_ = true;
  Q_EMIT surfaceChanged();
}

void PanelBridge::enableAtLogin() {
  const auto state = launchAtLogin_.enableAtLogin();
  offerMessage_ = QString::fromStdString(state.message.value_or(""));
  Q_EMIT surfaceChanged();
}

void PanelBridge::declineOffer() {
  launchAtLogin_.declineOffer();
  offerMessage_.clear();
  Q_EMIT surfaceChanged();
}

void PanelBridge::finishWalkthrough() {
  replayingWalkthrough_ = false;
  delegate_.defaults().set(std::string(OnboardingKeys::tidewatchOnboardingComplete), true);
  delegate_.defaults().set(std::string(OnboardingKeys::walkthroughCompleted), true);
  gateChanged();
}

void PanelBridge::gateChanged() {
  delegate_.onboardingGateChanged();
  Q_EMIT surfaceChanged();
}

}  // namespace tidewatch
