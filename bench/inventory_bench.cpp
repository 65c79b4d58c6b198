// The cost of one hook event on a large inventory: the reducer's step alone, the snapshot that
// every step publishes, and the two together, with 1,000 live sessions (half of them mapped to
// scanned processes, so rows are built both ways).
#include <benchmark/benchmark.h>

#include <string>

#include "inventory/agent_inventory_reducer.h"

namespace tidewatch {
namespace {

using EventKind = AgentHookProtocol::EventKind;

Date at(int64_t seconds) { return Date(std::chrono::seconds(1'800'000'000 + seconds)); }

AgentInventoryReducer inventoryOf(int sessions) {
  AgentInventoryReducer reducer;
  AgentProcessPresenceSnapshot presence;
  for (int i = 0; i < sessions / 2; ++i) {
    const AgentProcessIdentity identity{{10'000 + i, static_cast<uint64_t>(1'700'000'000 + i), 0}, AgentKind::claude};
    presence.entries.push_back({identity, AgentKind::claude, std::nullopt, "project-" + std::to_string(i), at(0)});
  }
  reducer.applyPanelScan(presence, {}, {}, at(0), at(0));
  for (int i = 0; i < sessions; ++i) {
    AgentInventoryReducer::HookOrigin origin;
    if (i < sessions / 2) origin.agentProcess = presence.entries[static_cast<size_t>(i)].identity;
    reducer.applyHookEvent({1, AgentKind::claude, EventKind::promptSubmitted, "session-" + std::to_string(i),
                            std::nullopt, 0},
                           origin, at(1));
  }
  return reducer;
}

void applyOneEvent(benchmark::State& state) {
  auto reducer = inventoryOf(static_cast<int>(state.range(0)));
  int64_t time = 2;
  for (auto _ : state) {
    reducer.applyHookEvent({1, AgentKind::claude, EventKind::turnEnded, "session-7", std::nullopt, 0}, {}, at(time++));
  }
}

void publishSnapshot(benchmark::State& state) {
  const auto reducer = inventoryOf(static_cast<int>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(reducer.snapshot({}));
}

void applyAndPublish(benchmark::State& state) {
  auto reducer = inventoryOf(static_cast<int>(state.range(0)));
  int64_t time = 2;
  for (auto _ : state) {
    reducer.applyHookEvent({1, AgentKind::claude, EventKind::turnEnded, "session-7", std::nullopt, 0}, {}, at(time++));
    benchmark::DoNotOptimize(reducer.snapshot({}));
    benchmark::DoNotOptimize(reducer.nextTransientDeadline());
  }
}

BENCHMARK(applyOneEvent)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(publishSnapshot)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(applyAndPublish)->Arg(1000)->Arg(10)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tidewatch

BENCHMARK_MAIN();
