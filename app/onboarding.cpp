#include "app/onboarding.h"

namespace tidewatch {

OnboardingFlags OnboardingFlags::read(const DefaultsStore& defaults) {
  return {defaults.boolForKey(std::string(OnboardingKeys::launchAtLoginOfferCompleted)),
          defaults.boolForKey(std::string(OnboardingKeys::tidewatchOnboardingComplete))};
}

OnboardingPresentation OnboardingGate::resolve(const OnboardingFlags& flags) {
  using Surface = OnboardingPresentation::Surface;
  if (!flags.launchAtLoginOfferCompleted) return {Surface::launchAtLoginOffer};
  if (!flags.tidewatchOnboardingComplete) return {Surface::walkthrough};
  return {Surface::listenerList};
}

OnboardingMigrationSnapshot OnboardingMigration::apply(const OnboardingMigrationSnapshot& snapshot) {
  if (snapshot.tidewatchOnboardingMigrationApplied || !snapshot.corallineOfferCompleted) return snapshot;
  OnboardingMigrationSnapshot migrated = snapshot;
  migrated.tidewatchOnboardingComplete = true;
  migrated.launchAtLoginOfferCompleted = true;
  migrated.walkthroughCompleted = true;
  migrated.tidewatchOnboardingMigrationApplied = true;
  migrated.agentMonitoringEnabled = false;
  return migrated;
}

namespace OnboardingMigrationApply {

Defaults Defaults::of(DefaultsStore& store) {
  return {[&store](std::string_view key) { return store.boolForKey(std::string(key)); },
          [&store](std::string_view key, bool value) { (void)store.set(std::string(key), value); }};
}

bool applyIfNeeded(const Defaults& defaults) {
  namespace Keys = OnboardingKeys;
  const OnboardingMigrationSnapshot before{defaults.boolForKey(Keys::corallineOfferCompleted),
                                           defaults.boolForKey(Keys::tidewatchOnboardingMigrationApplied),
                                           defaults.boolForKey(Keys::tidewatchOnboardingComplete),
                                           defaults.boolForKey(Keys::launchAtLoginOfferCompleted),
                                           defaults.boolForKey(Keys::walkthroughCompleted),
                                           defaults.boolForKey(Keys::agentMonitoringEnabled)};
  const OnboardingMigrationSnapshot after = OnboardingMigration::apply(before);
  if (after == before) return false;
  defaults.setBool(Keys::tidewatchOnboardingComplete, after.tidewatchOnboardingComplete);
  defaults.setBool(Keys::launchAtLoginOfferCompleted, after.launchAtLoginOfferCompleted);
  defaults.setBool(Keys::walkthroughCompleted, after.walkthroughCompleted);
  defaults.setBool(Keys::agentMonitoringEnabled, after.agentMonitoringEnabled);
  defaults.setBool(Keys::tidewatchOnboardingMigrationApplied, after.tidewatchOnboardingMigrationApplied);
  return true;
}

bool applyIfNeeded(DefaultsStore& defaults) { return applyIfNeeded(Defaults::of(defaults)); }

}  // namespace OnboardingMigrationApply
}  // namespace tidewatch
