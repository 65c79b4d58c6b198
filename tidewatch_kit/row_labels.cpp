#include "tidewatch_kit/row_labels.h"

#include <cmath>
#include <cstdio>
#include <limits>

#include "process_core/activity_level.h"

namespace tidewatch {

std::string CPUDisplay::label(double percent) {
  // 2^63 is the first double past the range of int64.
  if (!std::isfinite(percent) || std::fabs(percent) >= 9223372036854775808.0) {
    return std::string(displayName(ActivityLevel::unknown));
  }
  const long long rounded = std::llround(percent);
  if (rounded < 1) return "<1%";
  return std::to_string(rounded) + "%";
}

std::string MemoryDisplay::label(uint64_t bytes) {
  constexpr uint64_t mebibyte = uint64_t{1} << 20;
  constexpr uint64_t gibibyte = uint64_t{1} << 30;
  if (bytes < mebibyte) return "<1 MB";
  if (bytes < gibibyte) {
    return std::to_string(std::llround(static_cast<double>(bytes) / static_cast<double>(mebibyte))) + " MB";
  }
  char text[64];
  std::snprintf(text, sizeof text, "%.1f GB", static_cast<double>(bytes) / static_cast<double>(gibibyte));
  return text;
}

std::string UptimeDisplay::label(int64_t elapsedSeconds) {
  const int64_t total = elapsedSeconds < 0 ? 0 : elapsedSeconds;
  constexpr int64_t minute = 60;
  constexpr int64_t hour = 60 * minute;
  constexpr int64_t day = 24 * hour;
  const int64_t days = total / day;
  const int64_t hours = total % day / hour;
  const int64_t minutes = total % hour / minute;
  const int64_t seconds = total % minute;
  if (total < minute) return std::to_string(seconds) + "s";
  if (total < hour) return std::to_string(minutes) + "m";
  if (total < day) {
    return minutes == 0 ? std::to_string(hours) + "h" : std::to_string(hours) + "h " + std::to_string(minutes) + "m";
  }
  return hours == 0 ? std::to_string(days) + "d" : std::to_string(days) + "d " + std::to_string(hours) + "h";
}

std::string UptimeDisplay::label(int64_t startTimeSeconds, Date now) {
  const int64_t nowSeconds = std::chrono::duration_cast<std::chrono::seconds>(now.time_since_epoch()).count();
  int64_t elapsed = 0;
  if (__builtin_sub_overflow(nowSeconds, startTimeSeconds, &elapsed)) {
    elapsed = startTimeSeconds < 0 ? std::numeric_limits<int64_t>::max() : 0;
  }
  return label(elapsed);
}

}  // namespace tidewatch
