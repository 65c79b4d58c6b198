// Where Linux keeps the power profile: the ACPI platform profile in sysfs, and the state file that
// power-profiles-daemon rewrites whenever the user picks a profile. Reading two small files is far
// cheaper per tick than asking the daemon over D-Bus or through powerprofilesctl.
#include <fstream>

#include "process_core/power_profile.h"

namespace tidewatch::PowerProfile {
namespace {

constexpr const char* platformProfilePath = "/sys/firmware/acpi/platform_profile";
constexpr const char* daemonStatePath = "/var/lib/power-profiles-daemon/state.ini";
constexpr std::streamsize largestFile = 64 * 1024;

std::optional<std::string> readSmallFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) return std::nullopt;
  std::string content(static_cast<size_t>(largestFile), '\0');
  file.read(content.data(), largestFile);
  if (file.bad()) return std::nullopt;
  content.resize(static_cast<size_t>(file.gcount()));
  return content;
}

}  // namespace

Dependencies Dependencies::live() { return Dependencies{readSmallFile}; }

Readings read(const Dependencies& dependencies) {
  return Readings{dependencies.readFile(platformProfilePath), dependencies.readFile(daemonStatePath)};
}

bool isLowPowerModeEnabled() { return isLowPower(read(Dependencies::live())); }

}  // namespace tidewatch::PowerProfile
