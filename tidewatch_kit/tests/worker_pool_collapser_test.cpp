#include "tidewatch_kit/worker_pool_collapser.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

using WorkerPoolCollapser::Signals;
using Groups = std::vector<std::vector<size_t>>;

Signals worker(uint32_t uid = 501, uint32_t parentMicros = 0) {
  return Signals{8000, BindSignature::make({{"127.0.0.1", AddressFamily::ipv4, 8000}}), "/usr/bin/python3",
                 ProcessIdentity{77, 1000, parentMicros}, uid};
}

Groups group(const std::vector<std::optional<Signals>>& signals) {
  return WorkerPoolCollapser::group(signals, [](const std::optional<Signals>& s) { return s; });
}

TEST(WorkerPoolCollapserTest, PoolsComeFirstThenItemsWithoutSignalsThenLoneKeys) {
  EXPECT_EQ(group({}), Groups{});
  EXPECT_EQ(group({worker(), std::nullopt, worker(), worker()}), (Groups{{0, 2, 3}, {1}}));

  Signals otherPort = worker();
  otherPort.port = 9000;
  EXPECT_EQ(group({otherPort, worker(), std::nullopt, worker(), std::nullopt}), (Groups{{1, 3}, {2}, {4}, {0}}));
}

TEST(WorkerPoolCollapserTest, AnyDifferenceInSignalsKeepsProcessesApart) {
  // Another user; a parent restarted under the same pid; items without signals.
  EXPECT_EQ(group({worker(501), worker(502)}), (Groups{{0}, {1}}));
  EXPECT_EQ(group({worker(501, 0), worker(501, 1)}), (Groups{{0}, {1}}));
  EXPECT_EQ(group({std::nullopt, std::nullopt}), (Groups{{0}, {1}}));

  Signals wider = worker();
  wider.bindSignature = BindSignature::make({{"0.0.0.0", AddressFamily::ipv4, 8000}});
  EXPECT_EQ(group({worker(), wider}), (Groups{{0}, {1}}));
}

}  // namespace
}  // namespace tidewatch
