#include "app/qt/qt_main_executor.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <gtest/gtest.h>

#include <thread>

namespace tidewatch {
namespace {

using namespace std::chrono_literals;

// Turns the event loop until the condition holds; false after a generous limit.
bool spinUntil(const std::function<bool()>& condition) {
  QElapsedTimer timer;
  timer.start();
  while (!condition() && timer.elapsed() < 10000) QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
  return condition();
}

TEST(QtMainExecutor, RunsPostedWorkOnItsThreadInOrderAndTimersUnlessCancelled) {
  auto executor = std::make_shared<QtMainExecutor>();
  std::vector<std::string> ran;
  bool offThread = false;
  std::thread([&] {
    executor->post([&] {
      ran.push_back("from a thread");
      offThread = QThread::currentThread() != executor->thread();
    });
    executor->post([&] { ran.push_back("after it"); });
  }).join();
  const auto cancelled = executor->postAfter(1ms, [&] { ran.push_back("cancelled"); });
  executor->cancel(cancelled);
  executor->postAfter(5ms, [&] { ran.push_back("timer"); });
  executor->postAfter(-1s, [&] { ran.push_back("due at once"); });
  ASSERT_TRUE(spinUntil([&] { return ran.size() == 4; }));
  EXPECT_EQ(ran, (std::vector<std::string>{"from a thread", "after it", "due at once", "timer"}));
  EXPECT_FALSE(offThread);
  executor->cancel(cancelled);  // long gone: nothing
  bool later = false;
  executor->postAfter(20ms, [&] { later = true; });
  ASSERT_TRUE(spinUntil([&] { return later; }));
  EXPECT_EQ(ran.size(), 4u) << "the cancelled timer never ran";
}

}  // namespace
}  // namespace tidewatch
