// The port scan of the open panel, which rescans every second: a cold scan (what one
// `tidewatch scan` pays) beside a steady-state rescan of the incremental engine, each with its
// processor time and the share of one core that is at the 1 s cadence, and the resident memory
// an incremental engine grows by over 10,000 rescans.
// Run it against a desktop-sized table: `python3 bench/scan_world.py --ready-file F &`.
#include <benchmark/benchmark.h>
#include <time.h>

#include <fstream>
#include <string>

#include "tidewatch_kit/port_engine.h"

namespace tidewatch {
namespace {

double processCPUSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double residentKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmRSS:", 0) == 0) return std::stod(line.substr(6));
  }
  return 0;
}

// Processor time of the whole process (the cold walk spreads over threads) per scan.
template <typename Scan>
void measure(benchmark::State& state, Scan&& scan) {
  scan();  // the incremental engine's first scan is a complete walk; every later one is steady
  const double before = processCPUSeconds();
  for (auto _ : state) benchmark::DoNotOptimize(scan());
  const double cpuPerScan = (processCPUSeconds() - before) / static_cast<double>(state.iterations());
  state.counters["cpu_us_per_scan"] = cpuPerScan * 1e6;
  state.counters["core_pct_at_1s"] = cpuPerScan * 100.0;
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
