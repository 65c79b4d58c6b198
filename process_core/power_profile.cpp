#include "process_core/power_profile.h"

namespace tidewatch::PowerProfile {
namespace {

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  const auto first = text.find_first_not_of(blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

std::optional<std::string> daemonProfile(std::string_view stateFile) {
  bool inState = false;
  std::optional<std::string> profile;
  while (!stateFile.empty()) {
    const auto end = stateFile.find('\n');
    const std::string_view line = trimmed(stateFile.substr(0, end));
    stateFile = end == std::string_view::npos ? std::string_view{} : stateFile.substr(end + 1);
    if (line.empty() || line.front() == '#' || line.front() == ';') continue;
    if (line.front() == '[') {
      inState = line == "[State]";
      continue;
    }
    const auto equals = line.find('=');
    if (!inState || equals == std::string_view::npos) continue;
    if (trimmed(line.substr(0, equals)) == "Profile") profile = std::string(trimmed(line.substr(equals + 1)));
  }
  return profile;
}

bool isLowPower(const Readings& readings) {
  if (readings.platformProfile && trimmed(*readings.platformProfile) == "low-power") return true;
  if (!readings.daemonState) return false;
  const auto profile = daemonProfile(*readings.daemonState);
  return profile && *profile == "power-saver";
}

}  // namespace tidewatch::PowerProfile
