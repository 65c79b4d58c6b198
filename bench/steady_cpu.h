// Processor time of the whole process (work spread over helper threads included) per call of a
// repeated step, beside Google Benchmark's own figures, and the share of one core that is at the
// cadence the application repeats it.
#pragma once

#include <benchmark/benchmark.h>
#include <time.h>

#include <string>

namespace tidewatch::bench {

inline double processCPUSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// Runs `step` once untimed (the first has nothing to build on; every later one is the steady
// case), then times it; counters "cpu_us_per_<unit>" and "core_pct_at_<cadence>s".
template <typename Step>
void measureSteadyCPU(benchmark::State& state, const std::string& unit, int cadenceSeconds, Step&& step) {
  step();
  const double before = processCPUSeconds();
  for (auto _ : state) benchmark::DoNotOptimize(step());
  const double perStep = (processCPUSeconds() - before) / static_cast<double>(state.iterations());
  state.counters["cpu_us_per_" + unit] = perStep * 1e6;
  state.counters["core_pct_at_" + std::to_string(cadenceSeconds) + "s"] = perStep / cadenceSeconds * 100.0;
}

}  // namespace tidewatch::bench
