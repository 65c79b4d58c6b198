// The port scan of the open panel, which rescans every second: a cold scan (what one
// `tidewatch scan` pays) beside a steady-state rescan of the incremental engine, each with its
// processor time and the share of one core that is at the 1 s cadence, and the resident memory
// an incremental engine grows by over 10,000 rescans.
// Run it against a desktop-sized table: `python3 bench/scan_world.py --ready-file F &`.
#include <benchmark/benchmark.h>

#include <fstream>
#include <string>
#include <utility>

#include "bench/steady_cpu.h"
#include "tidewatch_kit/port_engine.h"

namespace tidewatch {
namespace {

double residentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6));
  }
  return 0;
}

// The panel rescans every second.
template <typename Scan>
void measure(benchmark::State& state, Scan&& scan) {
  bench::measureSteadyCPU(state, "scan", 1, std::forward<Scan>(scan));
}

void BM_ColdScan(benchmark::State& state) {
  const PortEngine engine;
  measure(state, [&] { return engine.scan(true); });
}

void BM_IncrementalRescan(benchmark::State& state) {
  const auto engine = PortEngine::incremental(PortEngineDependencies::live());
  measure(state, [&] { return engine.scan(true); });
}

void BM_TenThousandRescans(benchmark::State& state) {
  for (auto _ : state) {
    const auto engine = PortEngine::incremental(PortEngineDependencies::live());
    for (int i = 0; i < 100; ++i) benchmark::DoNotOptimize(engine.scan(true));  // settle the allocator
    const double before = residentKiB();
    for (int i = 0; i < 10'000; ++i) benchmark::DoNotOptimize(engine.scan(true));
    state.counters["rss_growth_kib"] = residentKiB() - before;
    state.counters["rss_kib"] = residentKiB();
  }
}

BENCHMARK(BM_ColdScan)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IncrementalRescan)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_TenThousandRescans)->Iterations(1)->UseRealTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace tidewatch

BENCHMARK_MAIN();
