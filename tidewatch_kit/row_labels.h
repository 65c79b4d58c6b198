// The texts of a row's CPU, memory and uptime columns.
#pragma once

#include <cstdint>
#include <string>

#include "process_core/process_records.h"

namespace tidewatch {

namespace CPUDisplay {
// The percentage rounded half away from zero, then "<1%" below 1, else "N%" (0.5 gives "1%").
// A value that is not finite or does not fit a 64-bit integer reads as the unknown dash.
std::string label(double percent);
}  // namespace CPUDisplay

namespace MemoryDisplay {
// Binary units: "<1 MB" below 2^20, whole megabytes (rounded half away from zero) below 2^30, then
// gigabytes with one decimal.
std::string label(uint64_t bytes);
}  // namespace MemoryDisplay

namespace UptimeDisplay {
// "59s", "1m", "1h", "1h 1m", "1d", "1d 1h": the two largest units, the smaller one only when it
// is not zero. Negative input reads as 0.
std::string label(int64_t elapsedSeconds);
// Elapsed from a start time in whole seconds since 1970 to `now`, truncated to whole seconds.
std::string label(int64_t startTimeSeconds, Date now);
}  // namespace UptimeDisplay

}  // namespace tidewatch
