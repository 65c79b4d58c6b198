#include "process_core/activity_estimator.h"

#include <chrono>

namespace tidewatch::ActivityEstimator {

std::optional<double> cpuPercent(const std::optional<Sample>& previous, const Sample& current) {
  if (!previous) return std::nullopt;
  const double elapsed = std::chrono::duration<double>(current.at - previous->at).count();
  if (!(elapsed > 0)) return std::nullopt;
  const uint64_t delta = current.cpuNanos >= previous->cpuNanos ? current.cpuNanos - previous->cpuNanos : 0;
  return static_cast<double>(delta) / 1e9 / elapsed * 100.0;
}

ActivityLevel level(const std::optional<Sample>& previous, const Sample& current) {
  const auto percent = cpuPercent(previous, current);
  return percent ? bucket(*percent) : ActivityLevel::unknown;
}

ActivityLevel bucket(double percent) {
  if (percent < lowUpperBound) return ActivityLevel::low;
  if (percent < mediumUpperBound) return ActivityLevel::medium;
  return ActivityLevel::high;
}

}  // namespace tidewatch::ActivityEstimator
