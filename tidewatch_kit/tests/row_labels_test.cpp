#include "tidewatch_kit/row_labels.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace tidewatch {
namespace {

TEST(CPUDisplay, RoundsHalfAwayFromZeroAndFloorsAtLessThanOne) {
  struct Case {
    double percent;
    const char* label;
  };
  const Case cases[] = {
      {0.0, "<1%"},    {0.49, "<1%"},   {0.5, "1%"},       {1.49, "1%"},        {2.5, "3%"},
      {99.5, "100%"},  {142.4, "142%"}, {1234.5, "1235%"}, {std::nan(""), "\xE2\x80\x94"},
      {std::numeric_limits<double>::infinity(), "\xE2\x80\x94"},
  };
  for (const auto& c : cases) EXPECT_EQ(CPUDisplay::label(c.percent), c.label) << c.percent;
}

TEST(MemoryDisplay, BinaryUnitsWithTheirBounds) {
  struct Case {
    uint64_t bytes;
    const char* label;
  };
  const Case cases[] = {
      {0, "<1 MB"},
      {1'048'575, "<1 MB"},
      {1'048'576, "1 MB"},
      {1'572'864, "2 MB"},  // 1.5 MB rounds away from zero
      {1'572'863, "1 MB"},
      {(uint64_t{1} << 30) - 1, "1024 MB"},
      {uint64_t{1} << 30, "1.0 GB"},
      {(uint64_t{3} << 30) / 2, "1.5 GB"},
      {uint64_t{40} << 30, "40.0 GB"},
      {std::numeric_limits<uint64_t>::max(), "17179869184.0 GB"},
  };
  for (const auto& c : cases) EXPECT_EQ(MemoryDisplay::label(c.bytes), c.label) << c.bytes;
}

TEST(UptimeDisplay, TheTwoLargestUnits) {
  struct Case {
    int64_t seconds;
    const char* label;
  };
  const Case cases[] = {
      {-5, "0s"},   {0, "0s"},          {59, "59s"},         {60, "1m"},         {119, "1m"},
      {3'599, "59m"}, {3'600, "1h"},    {3'660, "1h 1m"},    {86'399, "23h 59m"}, {86'400, "1d"},
      {90'000, "1d 1h"}, {93'599, "1d 1h"}, {864'000, "10d"},
  };
  for (const auto& c : cases) EXPECT_EQ(UptimeDisplay::label(c.seconds), c.label) << c.seconds;
}

TEST(UptimeDisplay, FromAStartTimeTruncatesNowToWholeSeconds) {
  const Date now = Date(std::chrono::seconds(1'800'000'000) + std::chrono::microseconds(999'999));
  EXPECT_EQ(UptimeDisplay::label(1'800'000'000 - 3'660, now), "1h 1m");
  EXPECT_EQ(UptimeDisplay::label(1'799'999'941, now), "59s");
  EXPECT_EQ(UptimeDisplay::label(1'800'000'100, now), "0s") << "a start in the future reads as 0";
  EXPECT_EQ(UptimeDisplay::label(std::numeric_limits<int64_t>::min(), now), "106751991167300d 15h");
}

}  // namespace
}  // namespace tidewatch
