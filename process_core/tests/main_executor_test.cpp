#include "process_core/main_executor.h"
#include "process_core/serial_worker.h"

#include <gtest/gtest.h>

#include <string>
#include <algorithm>
#include <thread>

namespace tidewatch {
namespace {

using namespace std::chrono_literals;

TEST(ManualMainExecutor, RunsDueWorkInOrderAndTimersWhenTheirTimeComes) {
  ManualMainExecutor executor;
  std::string ran;
  executor.postAfter(20ms, [&] { ran += "late "; });
  const auto cancelled = executor.postAfter(10ms, [&] { ran += "cancelled "; });
  executor.postAfter(10ms, [&] { ran += "timer "; });
  executor.post([&] {
    ran += "first ";
    executor.post([&] { ran += "posted-by-work "; });
  });
  std::thread([&] { executor.post([&] { ran += "from-a-thread "; }); }).join();
  EXPECT_EQ(executor.runUntilIdle(), 3u);
  EXPECT_EQ(ran, "first from-a-thread posted-by-work ");
  executor.cancel(cancelled);
  executor.cancel(12345);  // unknown: nothing
  EXPECT_EQ(executor.advance(15ms), 1u);
  EXPECT_EQ(executor.advance(5ms), 1u);
  EXPECT_EQ(ran, "first from-a-thread posted-by-work timer late ");
  EXPECT_EQ(executor.now(), 20ms);
  EXPECT_EQ(executor.requestedDelays(), (std::vector<std::chrono::nanoseconds>{20ms, 10ms, 10ms}));
  EXPECT_EQ(executor.pendingCount(), 0u);
}

TEST(SerialWorker, RunsWorkInOrderOffTheCallersThreadAndFinishesItBeforeItGoes) {
  std::vector<int> order;
  std::thread::id ranOn;
  {
    SerialWorker worker;
    for (int i = 0; i < 100; ++i) {
      worker.post([&order, &ranOn, i] {
        order.push_back(i);
        ranOn = std::this_thread::get_id();
      });
    }
  }
  ASSERT_EQ(order.size(), 100u);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
  EXPECT_NE(ranOn, std::this_thread::get_id());
}

}  // namespace
}  // namespace tidewatch
