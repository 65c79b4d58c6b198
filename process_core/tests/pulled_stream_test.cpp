#include "process_core/pulled_stream.h"

#include <gtest/gtest.h>

#include <future>
#include <stdexcept>

namespace tidewatch {
namespace {

TEST(PulledStream, OneIteratorOnePullAndAPullWithoutAnElementEndsTheStream) {
  SingleIteratorGate gate;
  EXPECT_TRUE(gate.claim());
  EXPECT_FALSE(gate.claim());

  const std::vector<std::pair<std::function<std::optional<int>()>, bool>> bodies = {
      {[] { return std::optional(1); }, false},
      {[] { return std::optional<int>(); }, true},
      {[]() -> std::optional<int> { throw std::runtime_error("gone"); }, true}};
  for (const auto& [body, ends] : bodies) {
    PullTurns turns;
    EXPECT_EQ(turns.run([&] {
      EXPECT_EQ(turns.run([] { return std::optional(9); }), std::nullopt) << "refused while one is in flight";
      return std::optional(1);
    }),
              1);
    try {
      turns.run(body);
    } catch (const std::runtime_error&) {
    }
    EXPECT_EQ(turns.run([] { return std::optional(2); }), ends ? std::nullopt : std::optional(2));
  }
}

TEST(PulledStream, DetachedWorkHandsItsValueOverUnlessTheWaiterStopsFirst) {
  EXPECT_EQ(awaitDetached<int>([] { return 7; }, {}), 7);
  auto release = std::make_shared<std::promise<void>>();
  auto finished = std::make_shared<std::promise<void>>();
  std::stop_source stop;
  stop.request_stop();
  EXPECT_EQ(awaitDetached<int>(
                [gate = release->get_future().share(), finished] {
                  gate.wait();
                  finished->set_value();
                  return 8;
                },
                stop.get_token()),
            std::nullopt)
      << "the stop doesn't wait for the work";
  release->set_value();
  finished->get_future().wait();  // the work ran on to its end; its value went nowhere
}

}  // namespace
}  // namespace tidewatch
