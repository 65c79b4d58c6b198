// The cost of one look of agent tracking on this machine's process table, which the tray
// application pays every 5 seconds while the panel is closed: the light scan and the fold into
// runs, beside the same scan on the general-purpose readers and beside a full port scan.
// Run it against a desktop-sized table: `python3 bench/scan_world.py --ready-file F &`.
#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <utility>

#include "bench/steady_cpu.h"

#include "coralline_kit/agent_tracking_session.h"
#include "process_core/process_reader.h"
#include "tidewatch_kit/port_engine.h"

namespace tidewatch {
namespace {

// A look of agent tracking repeats every 5 s while the panel is closed.
template <typename Look>
void measure(benchmark::State& state, Look&& look) {
  bench::measureSteadyCPU(state, "look", 5, std::forward<Look>(look));
}

// The session's clock moves 5 s a look, so records come due for their reread as they would in
// the tray: the figure is the average over looks that reread and looks that reuse.
std::function<Date()> lookClock() {
  return [now = Date(std::chrono::seconds(1'800'000'000))]() mutable { return now += std::chrono::seconds(5); };
}

void BM_TrackingLook(benchmark::State& state) {
  AgentTrackingSession::LiveSource source(AgentScannerDependencies::live(), lookClock());
  measure(state, [&] { return source.refresh(); });
}

// Every process read in full at every look, as without the records of earlier looks.
void BM_TrackingLookWithoutRecords(benchmark::State& state) {
  AgentScannerDependencies full = AgentScannerDependencies::live();
  full.statSnapshot = nullptr;
  AgentTrackingSession::LiveSource source(full, lookClock());
  measure(state, [&] { return source.refresh(); });
}

// The same look on the readers the port scan uses: enumeration that also takes the socket
// table (a walk of every open descriptor) and argv for every process.
void BM_TrackingLookOnGeneralReaders(benchmark::State& state) {
  AgentScannerDependencies general = AgentScannerDependencies::live();
  general.allPIDs = [] { return Libproc::allPIDs(); };
  general.detectionSnapshot = [](int32_t pid, uint32_t uid) { return ProcessReader::detectionSnapshot(pid, uid); };
  general.statSnapshot = nullptr;
  AgentTrackingSession::LiveSource source(general, lookClock());
  measure(state, [&] { return source.refresh(); });
}

// What `tidewatch scan` does in-process: the full port scan with argv.
void BM_FullPortScan(benchmark::State& state) {
  const PortEngine engine;
  measure(state, [&] { return engine.scan(true); });
}

BENCHMARK(BM_TrackingLook)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(BM_TrackingLookWithoutRecords)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(BM_TrackingLookOnGeneralReaders)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();
BENCHMARK(BM_FullPortScan)->Unit(benchmark::kMillisecond)->UseRealTime()->MeasureProcessCPUTime();

}  // namespace
}  // namespace tidewatch

BENCHMARK_MAIN();
