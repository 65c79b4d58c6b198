// The cost of ListenerListModel::build over a desktop-sized list, with and without a search text.
#include <benchmark/benchmark.h>

#include <array>
#include <string>

#include "tidewatch_kit/listener_list_model.h"

namespace tidewatch {
namespace {

struct Kind {
  const char* path;
  std::optional<Runtime> runtime;
  std::optional<Framework> framework;
  std::optional<KnownService> service;
  const char* label;
  std::vector<std::string> arguments;
};

const std::array<Kind, 6> kinds{{
    {"/usr/bin/node", Runtime::node, Framework::vite, std::nullopt, "Vite",
     {"node", "/home/dev/work/shop/node_modules/.bin/vite", "--port", "5173", "--host"}},
    {"/usr/bin/python3.11", Runtime::python, Framework::uvicorn, std::nullopt, "Uvicorn",
     {"python3", "-m", "uvicorn", "app.main:app", "--reload", "--port", "8000"}},
    {"/usr/lib/postgresql/15/bin/postgres", std::nullopt, std::nullopt, KnownService::postgres, "Postgres",
     {"/usr/lib/postgresql/15/bin/postgres", "-D", "/var/lib/postgresql/15/main"}},
    {"/home/dev/go/bin/api-server", Runtime::go, std::nullopt, std::nullopt, "Go", {"api-server", "-listen", ":9090"}},
    {"/usr/bin/ruby3.1", Runtime::ruby, Framework::rails, std::nullopt, "Rails",
     {"ruby", "bin/rails", "server", "-p", "3000"}},
    {"/opt/tools/bin/Sync\u00E9Daemon", std::nullopt, std::nullopt, std::nullopt, "Unknown", {"SyncéDaemon", "--daemon"}},
}};

ScanResult desktopScan(int rows) {
  ScanResult result;
  for (int i = 0; i < rows; ++i) {
    const Kind& kind = kinds[static_cast<size_t>(i) % kinds.size()];
    PortListener row;
    row.port = 1024 + (i * 37) % 60000;
    row.endpoints = {{"127.0.0.1", AddressFamily::ipv4, row.port}};
    row.bindSignature = BindSignature::make(row.endpoints);
    row.bindScope = makeBindScope(row.endpoints);
    row.process.identity = {10'000 + i, 1'700'000'000u + static_cast<uint64_t>(i % 97), static_cast<uint32_t>(i)};
    row.process.executablePath = kind.path;
    row.process.name = std::string(kind.path).substr(std::string(kind.path).rfind('/') + 1, 15);
    row.process.argv = kind.arguments;
    row.process.residentMemoryBytes = static_cast<uint64_t>(i) * 1'048'576;
    row.process.cpuTimeNanos = static_cast<uint64_t>(i) * 1'000'000;
    row.identity = {row.process.identity, PortProtocol::tcp, row.port, row.bindSignature, false, std::nullopt};
    row.classification = {kind.runtime, kind.framework, kind.service, Confidence::high, kind.label};
    row.visibility = i % 10 == 9 ? VisibilityClass::hiddenSystemBackground : VisibilityClass::defaultVisible;
    if (i % 7 == 0) {
      row.agentOrigin = i % 14 == 0 ? AgentKind::claude : AgentKind::codex;
      row.host = AgentHost{HostAppKind::vscode};
      row.project = ListenerProject{"project-" + std::to_string(i % 40), "/home/dev/work/project-" + std::to_string(i % 40)};
    }
    result.listeners.push_back(std::move(row));
  }
  return result;
}

void run(benchmark::State& state, const std::string& searchText, FilterCategory filter, ListenerSortMode mode) {
  const ScanResult scan = desktopScan(static_cast<int>(state.range(0)));
  ListenerPreferences preferences;
  preferences.filter = filter;
  preferences.searchText = searchText;
  preferences.sortMode = mode;
  for (const auto& row : scan.listeners) {
    preferences.activityByID[row.id()] = static_cast<ActivityLevel>(row.process.identity.pid % 4);
  }
  size_t shown = 0;
  for (auto _ : state) {
    const auto model = ListenerListModel::build(scan, preferences);
    if (const auto* rows = std::get_if<ListenerListModel::Rows>(&model.content)) shown = rows->visible.size() + rows->hidden.size();
    benchmark::DoNotOptimize(model);
  }
  state.counters["rows shown"] = static_cast<double>(shown);
}

// A keystroke that narrows the list to a sixth of it.
void BM_BuildSearching(benchmark::State& state) { run(state, "  Vite ", FilterCategory::all, ListenerSortMode::port); }
// The worst keystroke: nothing matches, so every field of every row is lower-cased and searched.
void BM_BuildSearchingNoMatch(benchmark::State& state) {
  run(state, "no such text", FilterCategory::all, ListenerSortMode::port);
}
// A non-ASCII query over the same rows.
void BM_BuildSearchingUnicode(benchmark::State& state) {
  run(state, "SYNCÉ", FilterCategory::all, ListenerSortMode::port);
}
// A new frame with no search: every row is kept and sorted.
void BM_BuildAllRowsByActivity(benchmark::State& state) {
  run(state, "", FilterCategory::all, ListenerSortMode::activity);
}

BENCHMARK(BM_BuildSearching)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BuildSearchingNoMatch)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BuildSearchingUnicode)->Arg(1000)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_BuildAllRowsByActivity)->Arg(100)->Arg(1000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tidewatch

BENCHMARK_MAIN();
