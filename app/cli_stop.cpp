#include "app/cli_stop.h"

#include <algorithm>
#include <set>

#include "process_core/text.h"
#include "tidewatch_kit/listener_terminator.h"
#include "tidewatch_kit/port_engine.h"

namespace tidewatch::TidewatchCLI {
namespace {

std::string plural(int count, std::string_view word) {
  return std::to_string(count) + " " + std::string(word) + (count == 1 ? "" : "s");
}

// "node (PID 4242)", "gunicorn ×4 (PID 120)".
std::string rowLabel(const PortListener& row) {
  return processCell(row) + " (PID " + std::to_string(row.process.identity.pid) + ")";
}

struct Verdict {
  bool success = false;
  std::string words;
};

Verdict refused(std::string words) { return {false, std::move(words)}; }

// What a dry run says where the real run would say what it sent.
Verdict dryWords(const KillOutcome& outcome, const PortListener&) {
  const bool sent = std::holds_alternative<KillOutcome::Signaled>(outcome.value) ||
                    std::holds_alternative<KillOutcome::SignaledForce>(outcome.value);
  if (!sent) return {outcome.isSuccess(), outcome.message()};
  const char* signal = std::holds_alternative<KillOutcome::SignaledForce>(outcome.value) ? "SIGKILL" : "SIGTERM";
  return {true, std::string("would send ") + signal + ": it is yours, and no shell, editor, terminal or system process."};
}

Verdict dryWords(const StopPoolOutcome& outcome, const PortListener& row) {
  if (std::holds_alternative<StopPoolOutcome::SignaledSupervisor>(outcome.value)) {
    const int supervisor = row.parentIdentity ? row.parentIdentity->pid : 0;
    return {true, "would send SIGTERM to the pool supervisor (PID " + std::to_string(supervisor) +
                      "), which stops its workers."};
  }
  if (const auto* members = std::get_if<StopPoolOutcome::SignaledMembers>(&outcome.value)) {
    return {true, "would send SIGTERM to " + plural(members->count, "pool worker") +
                      " one by one; their supervisor is protected and stays."};
  }
  return {outcome.isSuccess(), outcome.message()};
}

template <typename Outcome>
Verdict verdict(const Outcome& outcome, const PortListener& row, bool dryRun) {
  if (dryRun) return dryWords(outcome, row);
  return {outcome.isSuccess(), outcome.message()};
}

Verdict stopRow(const PortListener& row, const StopOptions& options, const StopActions& actions,
                const SafetyContext& context) {
  if (row.visibility != VisibilityClass::defaultVisible) return refused(blockedMessage(ProtectionReason::appleSystemProcess));
  const auto safety = ProcessSafetyClassifier::classify(row.process, false, row.isInTidewatchSubtree, context);
  if (const auto reason = safety.reason()) return refused(blockedMessage(*reason));
  if (row.isWorkerPool()) {
    if (!options.pool) {
      return refused("a worker pool of " + std::to_string(row.workerPoolSize) +
                     " processes serves this port: add --pool to stop it as one.");
    }
    if (options.force) return refused("a worker pool is stopped with SIGTERM only: leave out --force.");
    const auto request = StopPoolRequest::request(row, context);
    if (!request) return refused(StopPoolOutcome{StopPoolOutcome::NoActionableTarget{}}.message());
    return verdict(actions.stopPool(*request), row, options.dryRun);
  }
  if (options.force) {
    const auto request = ForceKillRequest::request(row, context);
    if (!request) return refused("Tidewatch can\u2019t safely signal this process.");
    return verdict(actions.forceKill(*request), row, options.dryRun);
  }
  const auto request = KillRequest::request(row, context);
  if (!request) return refused("Tidewatch can\u2019t safely signal this process.");
  return verdict(actions.kill(*request), row, options.dryRun);
}

}  // namespace

std::variant<StopOptions, std::string> parseStop(const std::vector<std::string>& arguments) {
  StopOptions options;
  std::set<int> seen;
  const auto word = std::find(arguments.begin(), arguments.end(), "stop");
  for (auto it = word == arguments.end() ? arguments.begin() : word + 1; it != arguments.end(); ++it) {
    const std::string& argument = *it;
    if (argument == "--force") {
      options.force = true;
    } else if (argument == "--pool") {
      options.pool = true;
    } else if (argument == "--dry-run" || argument == "-n") {
      options.dryRun = true;
    } else if (argument.starts_with("-")) {
      return "error: stop has no option " + withoutControlCharacters(argument) +
             " (it takes --force, --pool and --dry-run)";
    } else if (const auto port = portNumber(argument)) {
      if (seen.insert(*port).second) options.ports.push_back(*port);
    } else {
      return notAPort(argument);
    }
  }
  if (options.ports.empty()) return std::string("error: name the ports to stop: tidewatch stop PORT...");
  return options;
}

int32_t runStop(const std::vector<std::string>& arguments, const StopDependencies& dependencies,
                const Output& output) {
  const auto parsed = parseStop(arguments);
  if (const auto* error = std::get_if<std::string>(&parsed)) {
    output.standardError(*error);
    return 1;
  }
  const auto& options = std::get<StopOptions>(parsed);
  const auto scan = scanned(dependencies.scan);
  if (const auto* error = std::get_if<std::string>(&scan)) {
    output.standardError(*error);
    return 1;
  }
  const auto& result = std::get<ScanResult>(scan);
  const StopActions actions = dependencies.actions(options.dryRun);
  // Every row on a port is named and judged on its own: two processes may hold one port (IPv4
  // and IPv6), and stopping one of them alone would leave the port taken.
  const auto rows = reportRows(result, true);
  bool allStopped = true;
  for (const int port : options.ports) {
    const std::string where = "port " + std::to_string(port);
    // A pool's supervisor that holds the port itself is a row of its own, taken first: once it
    // is signalled it stops its workers, so their pool is not refused for want of --pool.
    std::vector<const PortListener*> onPort;
    for (const auto& row : rows) {
      if (row.port == port && !row.isWorkerPool()) onPort.push_back(&row);
    }
    for (const auto& row : rows) {
      if (row.port == port && row.isWorkerPool()) onPort.push_back(&row);
    }
    std::set<ProcessIdentity> signalled;
    for (const PortListener* row : onPort) {
      Verdict outcome;
      if (row->isWorkerPool() && row->parentIdentity && signalled.contains(*row->parentIdentity)) {
        const std::string supervisor = "its supervisor (PID " + std::to_string(row->parentIdentity->pid) + ") above";
        outcome = {true, options.dryRun ? "would stop with " + supervisor + "." : "stops with " + supervisor + "."};
      } else {
        outcome = stopRow(*row, options, actions, dependencies.context);
      }
      if (outcome.success) signalled.insert(row->process.identity);
      const std::string line = where + " " + std::string(middleDot) + " " + rowLabel(*row) + ": " + outcome.words;
      if (outcome.success) {
        output.standardOutput(line + "\n");
      } else {
        allStopped = false;
        output.standardError("error: " + line);
      }
    }
    bool any = !onPort.empty();
    std::set<std::string> users;
    for (const auto& other : result.otherUserListeners) {
      if (other.port != port || !users.insert(other.userName).second) continue;
      any = true;
      allStopped = false;
      output.standardError("error: " + where + " " + std::string(middleDot) + " held by user " +
                           withoutControlCharacters(other.userName) + ": " +
                           blockedMessage(ProtectionReason::unconfirmedOwner));
    }
    if (!any) {
      allStopped = false;
      output.standardError("error: " + where + ": nothing is listening on it.");
    }
  }
  return allStopped ? 0 : 1;
}

StopDependencies StopDependencies::live() {
  const SafetyContext& context = ProcessSafetyClassifier::Context::current();
  return StopDependencies{
      [] { return PortEngine().scan(true); },
      [context](bool dryRun) {
        ProcessSignals signals = ProcessSignals::live();
        if (dryRun) signals.pin = [](int32_t) -> PinnedSignal { return [](int) { return 0; }; };
        auto terminator = std::make_shared<ListenerTerminator>(PortEngine(), context, std::move(signals));
        return StopActions{[terminator](const KillRequest& r) { return terminator->kill(r); },
                           [terminator](const ForceKillRequest& r) { return terminator->forceKill(r); },
                           [terminator](const StopPoolRequest& r) { return terminator->stopPool(r); }};
      },
      context};
}

int32_t runStop(const std::vector<std::string>& arguments) {
  return runStop(arguments, StopDependencies::live(), Output::live());
}

}  // namespace tidewatch::TidewatchCLI
