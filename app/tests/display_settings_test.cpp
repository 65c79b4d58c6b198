#include "app/display_settings.h"

#include <gtest/gtest.h>

#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

using DisplaySettings::RowDensity;

struct DisplaySettingsTest : ::testing::Test {
  testing::TemporaryDirectory directory;
  DefaultsStore store{directory.path() + "/tidewatch/defaults.json"};
};

TEST_F(DisplaySettingsTest, AnEmptyStoreReadsTheDefaults) {
  EXPECT_EQ(DisplaySettings::defaultFilter(store), DefaultFilterSetting::agents);
  EXPECT_EQ(DisplaySettings::batteryMode(store), BatteryMode::balanced);
  EXPECT_EQ(DisplaySettings::rowDensity(store), RowDensity::comfortable);
  EXPECT_EQ(DisplaySettings::visibleFields(store), RowVisibleFields());
  EXPECT_TRUE(DisplaySettings::visibleFields(store).port);
  EXPECT_FALSE(DisplaySettings::autoCloseAfterOpening(store));
  EXPECT_FALSE(DisplaySettings::showAgentActivity(store));
  EXPECT_FALSE(DisplaySettings::showSystemRows(store));
}

TEST_F(DisplaySettingsTest, StoredStringsAreReadAndUnknownOnesCountAsAbsent) {
  struct Case {
    nlohmann::json filter, battery, density;
    DefaultFilterSetting expectedFilter;
    BatteryMode expectedBattery;
    RowDensity expectedDensity;
  };
  const Case cases[] = {
      {"all", "batterySaver", "compact", DefaultFilterSetting::all, BatteryMode::batterySaver, RowDensity::compact},
      {"lastUsed", "balanced", "comfortable", DefaultFilterSetting::lastUsed, BatteryMode::balanced,
       RowDensity::comfortable},
      {"All", "saver", "dense", DefaultFilterSetting::agents, BatteryMode::balanced, RowDensity::comfortable},
      {1, true, nullptr, DefaultFilterSetting::agents, BatteryMode::balanced, RowDensity::comfortable},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.filter.dump());
    ASSERT_TRUE(store.set("display.defaultFilter", c.filter));
    ASSERT_TRUE(store.set("display.batteryMode", c.battery));
    ASSERT_TRUE(store.set("display.rowDensity", c.density));
    EXPECT_EQ(DisplaySettings::defaultFilter(store), c.expectedFilter);
    EXPECT_EQ(DisplaySettings::batteryMode(store), c.expectedBattery);
    EXPECT_EQ(DisplaySettings::rowDensity(store), c.expectedDensity);
  }
}

TEST_F(DisplaySettingsTest, EachVisibleFieldReadsItsOwnKey) {
  const std::pair<const char*, bool RowVisibleFields::*> keys[] = {
      {"display.showCPU", &RowVisibleFields::cpu},         {"display.showMemory", &RowVisibleFields::memory},
      {"display.showPath", &RowVisibleFields::path},       {"display.showHost", &RowVisibleFields::host},
      {"display.showProject", &RowVisibleFields::project}, {"display.showUptime", &RowVisibleFields::uptime},
      {"display.showPower", &RowVisibleFields::power},     {"display.showPowerLabels", &RowVisibleFields::powerLabels},
  };
  for (const auto& [key, field] : keys) {
    SCOPED_TRACE(key);
    DefaultsStore fresh(directory.path() + "/" + key + ".json");
    ASSERT_TRUE(fresh.set(key, true));
    RowVisibleFields expected;
    expected.*field = true;
    EXPECT_EQ(DisplaySettings::visibleFields(fresh), expected);
  }
}

TEST_F(DisplaySettingsTest, ThePortTellsAStoredFalseFromAbsence) {
  ASSERT_TRUE(store.set("display.showPort", "no"));
  EXPECT_TRUE(DisplaySettings::visibleFields(store).port);
  ASSERT_TRUE(store.set("display.showPort", false));
  EXPECT_FALSE(DisplaySettings::visibleFields(store).port);
}

TEST_F(DisplaySettingsTest, WritesAreReadBackUnderTheirKeys) {
  // port, cpu, memory, path, host, project, uptime, power, powerLabels
  const RowVisibleFields fields{false, true, false, true, false, false, true, false, true};
  ASSERT_TRUE(DisplaySettings::setVisibleFields(store, fields));
  ASSERT_TRUE(DisplaySettings::setDefaultFilter(store, DefaultFilterSetting::lastUsed));
  ASSERT_TRUE(DisplaySettings::setBatteryMode(store, BatteryMode::batterySaver));
  ASSERT_TRUE(DisplaySettings::setRowDensity(store, RowDensity::compact));
  ASSERT_TRUE(DisplaySettings::setAutoCloseAfterOpening(store, true));
  ASSERT_TRUE(DisplaySettings::setShowAgentActivity(store, true));
  ASSERT_TRUE(DisplaySettings::setShowSystemRows(store, true));

  EXPECT_EQ(DisplaySettings::visibleFields(store), fields);
  EXPECT_EQ(store.stringForKey("display.defaultFilter"), "lastUsed");
  EXPECT_EQ(store.stringForKey("display.batteryMode"), "batterySaver");
  EXPECT_EQ(store.stringForKey("display.rowDensity"), "compact");
  EXPECT_TRUE(store.boolForKey("controls.autoCloseAfterOpening"));
  EXPECT_TRUE(store.boolForKey("display.showAgentActivity"));
  EXPECT_TRUE(store.boolForKey("display.showSystemRows"));
}

}  // namespace
}  // namespace tidewatch
