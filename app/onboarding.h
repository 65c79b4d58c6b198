// The first-run surfaces of the panel: which one shows, and the lift of flags written by an
// earlier release of the product.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "process_core/defaults_store.h"

namespace tidewatch {

namespace OnboardingKeys {
inline constexpr std::string_view tidewatchOnboardingComplete = "tidewatchOnboardingComplete";
inline constexpr std::string_view launchAtLoginOfferCompleted = "launchAtLoginOfferCompleted";
inline constexpr std::string_view walkthroughCompleted = "walkthroughCompleted";
inline constexpr std::string_view tidewatchOnboardingMigrationApplied = "tidewatchOnboardingMigrationApplied";
inline constexpr std::string_view corallineOfferCompleted = "corallineOfferCompleted";
inline constexpr std::string_view agentMonitoringEnabled = "agentMonitoringEnabled";
inline constexpr std::string_view launchAtLoginEnabled = "launchAtLoginEnabled";
}  // namespace OnboardingKeys

struct OnboardingFlags {
  bool launchAtLoginOfferCompleted = false;
  bool tidewatchOnboardingComplete = false;

  static OnboardingFlags read(const DefaultsStore& defaults);
  friend bool operator==(const OnboardingFlags&, const OnboardingFlags&) = default;
};

struct OnboardingPresentation {
  enum class Surface { launchAtLoginOffer, walkthrough, listenerList };
  Surface surface = Surface::launchAtLoginOffer;

  bool showsHeaderControls() const { return surface != Surface::launchAtLoginOffer; }
  bool showsListenerContent() const { return surface == Surface::listenerList; }
  friend bool operator==(const OnboardingPresentation&, const OnboardingPresentation&) = default;
};

namespace OnboardingGate {
// The offer first, then the walkthrough, then the list.
OnboardingPresentation resolve(const OnboardingFlags& flags);
}  // namespace OnboardingGate

struct OnboardingMigrationSnapshot {
  bool corallineOfferCompleted = false;
  bool tidewatchOnboardingMigrationApplied = false;
  bool tidewatchOnboardingComplete = false;
  bool launchAtLoginOfferCompleted = false;
  bool walkthroughCompleted = false;
  bool agentMonitoringEnabled = false;

  friend bool operator==(const OnboardingMigrationSnapshot&, const OnboardingMigrationSnapshot&) = default;
};

namespace OnboardingMigration {
// A user who finished the earlier release's offer has seen everything: all done, agent
// monitoring off. Applied once; until then a later start may still apply it.
OnboardingMigrationSnapshot apply(const OnboardingMigrationSnapshot& snapshot);
}  // namespace OnboardingMigration

namespace OnboardingMigrationApply {
// Boolean access to the defaults, so the order of writes can be observed.
struct Defaults {
  std::function<bool(std::string_view key)> boolForKey;
  std::function<void(std::string_view key, bool value)> setBool;

  static Defaults of(DefaultsStore& store);
};

// Reads the six flags, applies the migration and writes the changed result, the applied flag
// last, so an interrupted write is applied again. True when anything was written.
bool applyIfNeeded(const Defaults& defaults);
bool applyIfNeeded(DefaultsStore& defaults);
}  // namespace OnboardingMigrationApply

}  // namespace tidewatch
