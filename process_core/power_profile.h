// Whether the machine is in its power-saving mode, which stretches the panel's scan cadence.
// On Linux that is the firmware's "low-power" platform profile, or power-profiles-daemon's
// "power-saver" profile.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tidewatch::PowerProfile {

// What the machine's sources hold, as read; absent where a source cannot be read.
struct Readings {
  std::optional<std::string> platformProfile;  // the ACPI platform profile
  std::optional<std::string> daemonState;      // power-profiles-daemon's saved state, an ini file
};

// The active profile saved by power-profiles-daemon: the Profile key of the [State] group.
std::optional<std::string> daemonProfile(std::string_view stateFile);

// The platform profile reads "low-power", or the daemon's profile is "power-saver".
bool isLowPower(const Readings& readings);

struct Dependencies {
  // The whole content of a small file; absent when it cannot be read.
  std::function<std::optional<std::string>(const std::string& path)> readFile;

  static Dependencies live();
};

// Reads the machine's sources through `dependencies`.
Readings read(const Dependencies& dependencies);

// Asks the machine afresh on every call; cheap enough for every tick of a cadence.
bool isLowPowerModeEnabled();

}  // namespace tidewatch::PowerProfile
