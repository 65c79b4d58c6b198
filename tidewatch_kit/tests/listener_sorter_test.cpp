#include "tidewatch_kit/listener_sorter.h"

#include <gtest/gtest.h>

#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

using testing::pids;
using testing::Row;

constexpr uint64_t MB = 1 << 20;

// Ties are built in: pids 1 and 3 share a port, and 1 and 3 share a start time, so the sort falls
// through to the port and then to the case-insensitive name ("api" before "Vite").
std::vector<PortListener> rows() {
  return {
      Row(1, 3000).name("Vite").memory(100 * MB).started(500),
      Row(2, 8080).name("node").memory(300 * MB).started(100),
      Row(3, 3000).name("api").started(500),
      Row(4, 5432).name("postgres").memory(900 * MB).started(10).hidden(),
      Row(5, 9000).name("x").memory(0).started(500, 1),
      Row(6, 1).name("a").memory(999 * MB).started(1).visibility(VisibilityClass::unavailable),
      Row(7, 2).name("b").hidden(),
  };
}

TEST(ListenerSorter, EveryModeAfterVisibilityThenPortNameAndID) {
  const auto r = rows();
  const ActivityByID activity{
      {r[0].id(), ActivityLevel::medium}, {r[1].id(), ActivityLevel::high}, {r[3].id(), ActivityLevel::high},
      {r[4].id(), ActivityLevel::low},    {r[6].id(), ActivityLevel::unknown},
  };
  struct Case {
    ListenerSortMode mode;
    std::vector<int32_t> order;
  };
  const Case cases[] = {
      // visible by port (3000 twice: api, Vite), then hidden by port, then unavailable
      {ListenerSortMode::port, {3, 1, 2, 5, 7, 4, 6}},
      // high, medium, low, then no entry; hidden: unknown ranks with no entry, after high
      {ListenerSortMode::activity, {2, 1, 5, 3, 4, 7, 6}},
      // larger first; absent memory counts as 0 and ties with 0, then port decides
      {ListenerSortMode::memory, {2, 1, 3, 5, 4, 7, 6}},
      // oldest first, seconds then microseconds; equal starts fall to port, then name
      {ListenerSortMode::uptime, {2, 3, 1, 5, 4, 7, 6}},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(pids(ListenerSorter::sorted(rows(), c.mode, activity)), c.order) << rawValue(c.mode);
    EXPECT_EQ(listenerSortModeFromRaw(rawValue(c.mode)), c.mode) << "a remembered mode reads back";
  }
  EXPECT_EQ(listenerSortModeFromRaw("Port"), std::nullopt);
  EXPECT_EQ(displayName(ListenerSortMode::uptime), "Uptime");
}

TEST(ListenerSorter, SamePortAndNameFallBackOnTheStableIDAsAString) {
  // "proc:12:..." sorts before "proc:9:..." as plain strings.
  const std::vector<PortListener> twins = {Row(9, 4000).name("Srv"), Row(12, 4000).name("srv")};
  for (auto mode : {ListenerSortMode::port, ListenerSortMode::activity, ListenerSortMode::memory,
                    ListenerSortMode::uptime}) {
    EXPECT_EQ(pids(ListenerSorter::sorted(twins, mode, {})), (std::vector<int32_t>{12, 9})) << rawValue(mode);
    EXPECT_EQ(pids(ListenerSorter::sorted({twins[1], twins[0]}, mode, {})), (std::vector<int32_t>{12, 9}));
  }
}

}  // namespace
}  // namespace tidewatch
