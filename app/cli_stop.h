// `tidewatch stop PORT...`: what holds each port, stopped through the same guards as the panel's
// actions (a fresh read, the identity compared, shells, editors, terminals, system and other
// users' processes refused), with the same words.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <variant>
#include <vector>

#include "app/tidewatch_cli.h"
#include "tidewatch_kit/listener_actions.h"

namespace tidewatch::TidewatchCLI {

struct StopOptions {
  std::vector<int> ports;  // in the order given, each once
  bool force = false;      // SIGKILL
  bool pool = false;       // a worker pool may be stopped as one
  bool dryRun = false;     // say what would happen, signal nothing

  friend bool operator==(const StopOptions&, const StopOptions&) = default;
};

// The words after "stop"; the error line ("error: ...") when they are off.
std::variant<StopOptions, std::string> parseStop(const std::vector<std::string>& arguments);

// The guarded actions; the live ones are a ListenerTerminator's.
struct StopActions {
  std::function<KillOutcome(const KillRequest&)> kill;
  std::function<KillOutcome(const ForceKillRequest&)> forceKill;
  std::function<StopPoolOutcome(const StopPoolRequest&)> stopPool;
};

struct StopDependencies {
  std::function<ScanResult()> scan;
  // With dryRun the same guards run, and every signal is answered as sent without being sent.
  std::function<StopActions(bool dryRun)> actions;
  SafetyContext context;

  static StopDependencies live();
};

// One line per row on each port; exit 0 only when every port was stopped (or, with --dry-run,
// would be).
int32_t runStop(const std::vector<std::string>& arguments, const StopDependencies& dependencies,
                const Output& output);
int32_t runStop(const std::vector<std::string>& arguments);

}  // namespace tidewatch::TidewatchCLI
