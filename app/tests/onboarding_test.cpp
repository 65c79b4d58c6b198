#include "app/onboarding.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

using Surface = OnboardingPresentation::Surface;

TEST(OnboardingGate, TheOfferComesFirstThenTheWalkthroughThenTheList) {
  struct Case {
    OnboardingFlags flags;
    Surface surface;
    bool headerControls, listenerContent;
  };
  const Case cases[] = {
      {{false, false}, Surface::launchAtLoginOffer, false, false},
      {{false, true}, Surface::launchAtLoginOffer, false, false},
      {{true, false}, Surface::walkthrough, true, false},
      {{true, true}, Surface::listenerList, true, true},
  };
  for (const Case& c : cases) {
    const auto presentation = OnboardingGate::resolve(c.flags);
    EXPECT_EQ(presentation.surface, c.surface);
    EXPECT_EQ(presentation.showsHeaderControls(), c.headerControls);
    EXPECT_EQ(presentation.showsListenerContent(), c.listenerContent);
  }
}

TEST(OnboardingMigration, OnlyAnUnmigratedUserOfTheEarlierOfferIsLifted) {
  // corallineOfferCompleted, migrationApplied, onboardingComplete, offerCompleted, walkthrough, monitoring
  const OnboardingMigrationSnapshot earlierUser{true, false, false, false, false, true};
  EXPECT_EQ(OnboardingMigration::apply(earlierUser),
            (OnboardingMigrationSnapshot{true, true, true, true, true, false}));
  const OnboardingMigrationSnapshot unchanged[] = {
      {},
      {false, false, true, false, false, true},
      {true, true, false, false, false, true},
  };
  for (const auto& snapshot : unchanged) EXPECT_EQ(OnboardingMigration::apply(snapshot), snapshot);
}

struct RecordingDefaults {
  std::map<std::string, bool, std::less<>> values;
  std::vector<std::pair<std::string, bool>> writes;
  OnboardingMigrationApply::Defaults defaults() {
    return {[this](std::string_view key) {
              const auto found = values.find(key);
              return found != values.end() && found->second;
            },
            [this](std::string_view key, bool value) {
              values[std::string(key)] = value;
              writes.emplace_back(key, value);
            }};
  }
};

TEST(OnboardingMigrationApply, WritesTheLiftInOrderAppliedLastAndOnlyOnce) {
  RecordingDefaults recording;
  recording.values = {{"corallineOfferCompleted", true}, {"agentMonitoringEnabled", true}};
  EXPECT_TRUE(OnboardingMigrationApply::applyIfNeeded(recording.defaults()));
  const std::vector<std::pair<std::string, bool>> expected = {
      {"tidewatchOnboardingComplete", true},
      {"launchAtLoginOfferCompleted", true},
      {"walkthroughCompleted", true},
      {"agentMonitoringEnabled", false},
      {"tidewatchOnboardingMigrationApplied", true},
  };
  EXPECT_EQ(recording.writes, expected);
  EXPECT_FALSE(OnboardingMigrationApply::applyIfNeeded(recording.defaults()));
  EXPECT_EQ(recording.writes.size(), expected.size());

  RecordingDefaults fresh;
  EXPECT_FALSE(OnboardingMigrationApply::applyIfNeeded(fresh.defaults()));
  EXPECT_TRUE(fresh.writes.empty());
}

TEST(OnboardingMigrationApply, AMigratedStoreLandsOnTheListWithMonitoringOff) {
  testing::TemporaryDirectory directory;
  DefaultsStore store(directory.path() + "/defaults.json");
  ASSERT_TRUE(store.set("corallineOfferCompleted", true));
  ASSERT_TRUE(store.set("agentMonitoringEnabled", true));
  EXPECT_TRUE(OnboardingMigrationApply::applyIfNeeded(store));
  EXPECT_EQ(OnboardingGate::resolve(OnboardingFlags::read(store)).surface, Surface::listenerList);
  EXPECT_EQ(store.valueForKey("agentMonitoringEnabled"), false);
  EXPECT_TRUE(store.boolForKey("walkthroughCompleted"));
  EXPECT_EQ(store.valueForKey("corallineOfferCompleted"), true);
}

}  // namespace
}  // namespace tidewatch
