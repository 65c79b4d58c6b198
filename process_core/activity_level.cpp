#include "process_core/activity_level.h"
#include "process_core/raw_values.h"

#include <array>

namespace tidewatch {
namespace {
constexpr std::array<std::string_view, 4> raws{"low", "medium", "high", "unknown"};
constexpr std::array<std::string_view, 4> names{"Low", "Medium", "High", "\xE2\x80\x94"};
}  // namespace

std::string_view rawValue(ActivityLevel level) { return raws[static_cast<size_t>(level)]; }
std::string_view displayName(ActivityLevel level) { return names[static_cast<size_t>(level)]; }

std::optional<ActivityLevel> activityLevelFromRaw(std::string_view raw) {
  return enumFromRaw<ActivityLevel>(raws, raw);
}

}  // namespace tidewatch
