#include "process_core/power_profile.h"
#include "process_core/text.h"

namespace tidewatch::PowerProfile {

std::optional<std::string> daemonProfile(std::string_view stateFile) {
  bool inState = false;
  std::optional<std::string> profile;
  while (!stateFile.empty()) {
    const auto end = stateFile.find('\n');
    const std::string_view line = trimmedWhitespace(stateFile.substr(0, end));
    stateFile = end == std::string_view::npos ? std::string_view{} : stateFile.substr(end + 1);
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    if (line.front() == '[') {
      inState = line == "[State]";
      continue;
    }
    const auto equals = line.find('=');
    if (!inState || equals == std::string_view::npos) continue;
    if (trimmedWhitespace(line.substr(0, equals)) == "Profile") profile = std::string(trimmedWhitespace(line.substr(equals + 1)));
  }
  return profile;
}

bool isLowPower(const Readings& readings) {
  if (readings.platformProfile && trimmedWhitespace(*readings.platformProfile) == "low-power") return true;
  if (!readings.daemonState) return false;
  const auto profile = daemonProfile(*readings.daemonState);
  return profile && *profile == "power-saver";
}

}  // namespace tidewatch::PowerProfile
