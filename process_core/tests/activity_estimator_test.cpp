#include "process_core/activity_estimator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using ActivityEstimator::Sample;

const Date t0 = Date(std::chrono::seconds(1'800'000'000));

TEST(ActivityEstimator, PercentOfOneCoreBetweenTwoReadings) {
  struct Case {
    const char* what;
    std::optional<Sample> previous;
    Sample current;
    std::optional<double> percent;
    ActivityLevel level;
  };
  const Case cases[] = {
      {"first reading", std::nullopt, {5'000'000'000, t0}, std::nullopt, ActivityLevel::unknown},
      {"same date", Sample{1, t0}, {2'000'000'000, t0}, std::nullopt, ActivityLevel::unknown},
      {"clock stepped back", Sample{1, t0}, {2'000'000'000, t0 - 1s}, std::nullopt, ActivityLevel::unknown},
      {"counter fell", Sample{9'000'000'000, t0}, {1'000'000'000, t0 + 1s}, 0.0, ActivityLevel::low},
      {"one core", Sample{0, t0}, {1'000'000'000, t0 + 1s}, 100.0, ActivityLevel::high},
      {"two cores", Sample{0, t0}, {2'000'000'000, t0 + 1s}, 200.0, ActivityLevel::high},
      {"half a core over 2 s", Sample{1'000'000'000, t0}, {2'000'000'000, t0 + 2s}, 50.0, ActivityLevel::medium},
      {"idle", Sample{7, t0}, {7, t0 + 10s}, 0.0, ActivityLevel::low},
      {"sub-second elapsed", Sample{0, t0}, {25'000'000, t0 + 250ms}, 10.0, ActivityLevel::medium},
  };
  for (const auto& c : cases) {
    const auto percent = ActivityEstimator::cpuPercent(c.previous, c.current);
    ASSERT_EQ(percent.has_value(), c.percent.has_value()) << c.what;
    if (percent) {
      EXPECT_DOUBLE_EQ(*percent, *c.percent) << c.what;
    }
    EXPECT_EQ(ActivityEstimator::level(c.previous, c.current), c.level) << c.what;
  }
}

TEST(ActivityEstimator, BucketBoundsAreExclusiveAbove) {
  struct Case {
    double percent;
    ActivityLevel level;
  };
  const Case cases[] = {
      {0.0, ActivityLevel::low},       {9.999, ActivityLevel::low},    {10.0, ActivityLevel::medium},
      {69.99, ActivityLevel::medium},  {70.0, ActivityLevel::high},    {450.0, ActivityLevel::high},
      {std::numeric_limits<double>::quiet_NaN(), ActivityLevel::high},
  };
  for (const auto& c : cases) EXPECT_EQ(ActivityEstimator::bucket(c.percent), c.level) << c.percent;
}

}  // namespace
}  // namespace tidewatch
