#include "process_core/power_profile.h"

#include <gtest/gtest.h>

#include <map>

namespace tidewatch {
namespace {

TEST(PowerProfile, LowPowerFromFirmwareOrDaemon) {
  const std::string saver = "[State]\nCpuDriver=intel_pstate\nPlatformDriver=platform_profile\nProfile=power-saver\n";
  struct Case {
    const char* what;
    PowerProfile::Readings readings;
    bool lowPower;
  };
  const Case cases[] = {
      {"nothing readable", {}, false},
      {"firmware low-power", {"low-power\n", std::nullopt}, true},
      {"firmware balanced", {"balanced\n", std::nullopt}, false},
      {"firmware quiet is not low-power", {"quiet\n", std::nullopt}, false},
      {"daemon power-saver", {std::nullopt, saver}, true},
      {"daemon balanced", {"balanced", "[State]\nProfile=balanced\n"}, false},
      {"daemon key outside its group", {std::nullopt, "[Other]\nProfile=power-saver\n"}, false},
      {"daemon file with CRLF and blanks", {std::nullopt, "# saved\r\n[State]\r\nProfile = power-saver\r\n"}, true},
      {"either source suffices", {"performance", saver}, true},
  };
  for (const auto& c : cases) EXPECT_EQ(PowerProfile::isLowPower(c.readings), c.lowPower) << c.what;
  EXPECT_EQ(PowerProfile::daemonProfile("[State]\nProfile=performance"), "performance");
  EXPECT_EQ(PowerProfile::daemonProfile("Profile=power-saver\n"), std::nullopt) << "no [State] group";
}

TEST(PowerProfile, ReadsTheFirmwareProfileAndTheDaemonState) {
  std::map<std::string, std::string> files;
  PowerProfile::Dependencies dependencies{[&](const std::string& path) -> std::optional<std::string> {
    auto found = files.find(path);
    return found == files.end() ? std::nullopt : std::optional(found->second);
  }};
  EXPECT_FALSE(PowerProfile::isLowPower(PowerProfile::read(dependencies)));
  files["/var/lib/power-profiles-daemon/state.ini"] = "[State]\nProfile=power-saver\n";
  EXPECT_TRUE(PowerProfile::isLowPower(PowerProfile::read(dependencies)));
  files.clear();
  files["/sys/firmware/acpi/platform_profile"] = "low-power\n";
  EXPECT_TRUE(PowerProfile::isLowPower(PowerProfile::read(dependencies)));
}

}  // namespace
}  // namespace tidewatch
