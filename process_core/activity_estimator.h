// How busy a process was between two readings of its accumulated processor time. The estimator
// keeps no history: whoever samples keeps the previous reading.
#pragma once

#include <cstdint>
#include <optional>

#include "process_core/activity_level.h"
#include "process_core/process_records.h"

namespace tidewatch::ActivityEstimator {

// Percentages of one core; below the low bound is low, below the medium bound medium, else high.
inline constexpr double lowUpperBound = 10.0;
inline constexpr double mediumUpperBound = 70.0;

struct Sample {
  uint64_t cpuNanos = 0;  // processor time consumed so far
  Date at;                // when it was read

  friend bool operator==(const Sample&, const Sample&) = default;
};

// Percent of one core between the two readings; several busy cores go above 100. Absent for a
// first reading and for a clock that stood still or stepped back. A counter that went down
// reads as 0, not as a wrap-around.
std::optional<double> cpuPercent(const std::optional<Sample>& previous, const Sample& current);

// `unknown` where cpuPercent is absent, else the bucket of the percentage.
ActivityLevel level(const std::optional<Sample>& previous, const Sample& current);

// Upper bounds exclusive: exactly 10 is medium, exactly 70 high; NaN fails both tests and is high.
ActivityLevel bucket(double percent);

}  // namespace tidewatch::ActivityEstimator
