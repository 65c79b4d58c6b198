// How busy a process is, as the panel shows it.
#pragma once

#include <optional>
#include <string_view>

namespace tidewatch {

enum class ActivityLevel { low, medium, high, unknown };

std::string_view rawValue(ActivityLevel level);
std::string_view displayName(ActivityLevel level);
std::optional<ActivityLevel> activityLevelFromRaw(std::string_view raw);

}  // namespace tidewatch
