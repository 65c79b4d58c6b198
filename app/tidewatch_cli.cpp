#include "app/tidewatch_cli.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <ctime>
#include <exception>

#include "app/cli_watch.h"
#include "process_core/pretty_json.h"
#include "process_core/process_json.h"
#include "process_core/text.h"
#include "tidewatch_kit/listener_json.h"
#include "tidewatch_kit/listener_sorter.h"
#include "tidewatch_kit/port_engine.h"

namespace tidewatch {
namespace {

bool contains(const std::vector<std::string>& arguments, std::string_view word) {
  return std::find(arguments.begin(), arguments.end(), word) != arguments.end();
}

void writeAll(int fd, const std::string& bytes) {
  size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n <= 0) {
      if (n < 0 && errno == EINTR) continue;
      return;
    }
    written += static_cast<size_t>(n);
  }
}


std::string_view bindWord(BindScope scope) {
  switch (scope) {
    case BindScope::loopbackOnly: return "localhost";
    case BindScope::allInterfaces: return "all-interfaces";
    case BindScope::specificInterface: return "specific";
    case BindScope::mixed: return "mixed";
    case BindScope::unknown: return "unknown";
  }
  return "unknown";
}

// After the rows of --all: a blank line, then "PORT (USER)" by port, each pair once; nothing
// when no other user listens.
std::string otherUsersLine(const std::vector<OtherUserListener>& listeners) {
  std::vector<std::string> items;
  for (const auto& listener : listeners) {
    std::string item = std::to_string(listener.port) + " (" + withoutControlCharacters(listener.userName) + ")";
    if (std::find(items.begin(), items.end(), item) == items.end()) items.push_back(std::move(item));
  }
  if (items.empty()) return {};
  std::string line = "\nHeld by other users: ";
  for (size_t i = 0; i < items.size(); ++i) line += (i > 0 ? ", " : "") + items[i];
  return line + "\n";
}

}  // namespace

EntryRoute routeFor(const std::vector<std::string>& arguments) {
  if (!arguments.empty() && arguments.front() == "agent-event") return EntryRoute::relay;
  if (contains(arguments, "scan") || contains(arguments, "--scan")) return EntryRoute::scan;
  if (contains(arguments, "update-gate")) return EntryRoute::updateGate;
  if (!arguments.empty() && arguments.front() == "stop") return EntryRoute::stop;
  if (!arguments.empty() && arguments.front() == "agents") return EntryRoute::agents;
  return EntryRoute::application;
}

namespace TidewatchCLI {

std::string ruleLine(size_t width) {
  std::string line;
  for (size_t i = 0; i < width; ++i) line += "\xE2\x94\x80";
  return line;
}

std::optional<int> portNumber(std::string_view word) {
  int port = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), port);
  if (error != std::errc() || end != word.data() + word.size() || port < 1 || port > 65535) return std::nullopt;
  return port;
}

std::string notAPort(std::string_view word) {
  return "error: not a port: " + withoutControlCharacters(word) + " (ports are 1 to 65535)";
}

std::string processCell(const PortListener& row) {
  std::string process = withoutControlCharacters(row.process.displayName());
  if (row.workerPoolSize >= 2) {
    process += " ";
    process += multiplication;
    process += std::to_string(row.workerPoolSize);
  }
  return process;
}

Output Output::live() {
  return Output{[](const std::string& text) { writeAll(STDOUT_FILENO, text); },
                [](const std::string& line) { writeAll(STDERR_FILENO, line + "\n"); }};
}

std::vector<PortListener> reportRows(const ScanResult& result, bool includeHidden) {
  auto rows = result.visible();
  if (includeHidden) {
    auto hidden = result.hidden();
    rows.insert(rows.end(), std::make_move_iterator(hidden.begin()), std::make_move_iterator(hidden.end()));
  }
  return ListenerSorter::sorted(std::move(rows), ListenerSortMode::port, {});
}

std::optional<std::string> jsonReport(const ScanResult& result, bool includeHidden) {
  try {
    nlohmann::json report = nlohmann::json::object();
    report["scannedAt"] = iso8601(result.scannedAt);
    report["processCount"] = result.processCount;
    report["visibleCount"] = static_cast<int>(result.visible().size());
    report["hiddenCount"] = result.hiddenCount();
    report["codexAgentCount"] = result.agentPresence.count(AgentKind::codex);
    report["claudeAgentCount"] = result.agentPresence.count(AgentKind::claude);
    report["listeners"] = reportRows(result, includeHidden);
    report["otherUserListeners"] = result.otherUserListeners;
    return writePrettyJSON(report) + "\n";
  } catch (const nlohmann::json::exception&) {
    return std::nullopt;
  }
}

std::string padded(const std::string& text, size_t width) {
  if (width == 0) return {};
  const size_t count = graphemeCount(text);
  if (count >= width) return graphemePrefix(text, width - 1) + " ";
  return text + std::string(width - count, ' ');
}

std::string localMediumTime(Date date) {
  static const bool localeSet = [] { return std::setlocale(LC_TIME, "") != nullptr; }();
  (void)localeSet;
  const std::time_t t = secondsSinceEpoch(date);
  std::tm local{};
  localtime_r(&t, &local);
  char buffer[64];
  const size_t n = std::strftime(buffer, sizeof buffer, "%X", &local);
  return std::string(buffer, n);
}

std::string tableReport(const ScanResult& result, bool includeHidden,
                        const std::function<std::string(Date)>& localTime) {
  const size_t visibleCount = result.visible().size();
  std::string out = "Tidewatch ";
  out += emDash;
  out += " " + std::to_string(visibleCount) + " listener" + (visibleCount == 1 ? "" : "s");
  out += " (" + std::to_string(result.hiddenCount()) + " system/background hidden)";
  out += " ";
  out += middleDot;
  out += " " + std::to_string(result.processCount) + " processes ";
  out += middleDot;
  out += " scanned " + localTime(result.scannedAt) + "\n";

  const auto& presence = result.agentPresence;
  if (presence.totalCount() >= 1) {
    out += "Agents present: " + std::to_string(presence.codexCount()) + " Codex ";
    out += middleDot;
    out += " " + std::to_string(presence.claudeCount()) + " Claude\n";
  }
  out += "\n";

  const auto rows = reportRows(result, includeHidden);
  if (rows.empty()) {
    out += "No local listeners.\n";
    if (includeHidden) out += otherUsersLine(result.otherUserListeners);
    return out;
  }

  out += padded("PORT", 7) + padded("PROTO", 6) + padded("PROCESS", 22) + padded("PID", 8) +
         padded("CLASSIFICATION", 22) + "BIND\n";
  out += ruleLine(78) + "\n";
  for (const auto& row : rows) {
    out += padded(std::to_string(row.port), 7);
    out += padded("TCP", 6);
    out += padded(processCell(row), 22);
    out += padded(std::to_string(row.process.identity.pid), 8);
    out += padded(withoutControlCharacters(row.classification.label), 22);
    out += bindWord(row.bindScope);
    if (row.visibility == VisibilityClass::hiddenSystemBackground) {
      out += " ";
      out += middleDot;
      out += "sys";
    }
    out += "\n";
  }
  if (includeHidden) out += otherUsersLine(result.otherUserListeners);
  return out;
}

std::variant<ScanOptions, std::string> parseScan(const std::vector<std::string>& arguments) {
  ScanOptions options;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--json") {
      options.json = true;
    } else if (argument == "--all") {
      options.includeHidden = true;
    } else if (argument == "--agents-only") {
      options.agentsOnly = true;
    } else if (argument == "--port" || argument.starts_with("--port=")) {
      const bool joined = argument != "--port";
      if (!joined && i + 1 == arguments.size()) return std::string("error: --port needs a port (1 to 65535)");
      const std::string value = joined ? argument.substr(7) : arguments[++i];
      const auto port = portNumber(value);
      if (!port) return notAPort(value);
      if (std::find(options.ports.begin(), options.ports.end(), *port) == options.ports.end()) {
        options.ports.push_back(*port);
      }
    } else if (argument == "--watch" || argument.starts_with("--watch=")) {
      options.watch = true;
      const bool joined = argument != "--watch";
      // The seconds are optional: a following word that is no number is left to the others.
      std::string value = joined ? argument.substr(8) : (i + 1 < arguments.size() ? arguments[i + 1] : "");
      double seconds = 0;
      const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), seconds);
      const bool number = !value.empty() && error == std::errc() && end == value.data() + value.size();
      if (number && !joined) ++i;
      if (joined && !number) return "error: --watch takes seconds: " + withoutControlCharacters(value);
      if (number) {
        if (!(seconds >= 0.1 && seconds <= 86400)) {
          return "error: --watch takes from 0.1 to 86400 seconds, not " + withoutControlCharacters(value);
        }
        options.watchInterval = std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000 + 0.5));
      }
    }
  }
  return options;
}

ScanResult filtered(ScanResult result, const ScanOptions& options) {
  const auto portKept = [&](int port) {
    return options.ports.empty() || std::find(options.ports.begin(), options.ports.end(), port) != options.ports.end();
  };
  std::erase_if(result.listeners, [&](const PortListener& listener) {
    return !portKept(listener.port) || (options.agentsOnly && !listener.agentOrigin);
  });
  // Another user's process can't be read, so it is never known to be an agent's.
  std::erase_if(result.otherUserListeners, [&](const OtherUserListener& listener) {
    return !portKept(listener.port) || options.agentsOnly;
  });
  return result;
}

std::optional<std::string> report(const ScanResult& result, const ScanOptions& options,
                                  const std::function<std::string(Date)>& localTime) {
  const ScanResult shown = filtered(result, options);
  if (options.json) return jsonReport(shown, options.includeHidden);
  return tableReport(shown, options.includeHidden, localTime);
}

int32_t run(const std::vector<std::string>& arguments, const std::function<ScanResult()>& scan,
            const Output& output, const std::function<std::string(Date)>& localTime) {
  const auto parsed = parseScan(arguments);
  if (const auto* error = std::get_if<std::string>(&parsed)) {
    output.standardError(*error);
    return 1;
  }
  const auto& options = std::get<ScanOptions>(parsed);
  const auto result = scanned(scan);
  if (const auto* error = std::get_if<std::string>(&result)) {
    output.standardError(*error);
    return 1;
  }
  const auto text = report(std::get<ScanResult>(result), options, localTime);
  if (!text) {
    output.standardError("error: failed to encode scan report as JSON");
    return 1;
  }
  output.standardOutput(*text);
  return 0;
}

std::variant<ScanResult, std::string> scanned(const std::function<ScanResult()>& scan) {
  try {
    return scan();
  } catch (const ScanError&) {
    return std::string("error: process enumeration unavailable ") + std::string(emDash) +
           " proc_listpids returned 0. This build must run unsandboxed (ADR-0015).";
  } catch (const std::exception& error) {
    return std::string("error: ") + error.what();
  }
}

int32_t run(const std::vector<std::string>& arguments) {
  const auto parsed = parseScan(arguments);
  if (const auto* options = std::get_if<ScanOptions>(&parsed); options && options->watch) {
    return runWatch(*options, WatchDependencies::live());
  }
  return run(
      arguments, [] { return PortEngine().scan(true); }, Output::live(), localMediumTime);
}

std::string updateGateReport(const DefaultsStore& defaults) {
  const bool offerCompleted = defaults.boolForKey("launchAtLoginOfferCompleted");
  const bool onboardingComplete = defaults.boolForKey("tidewatchOnboardingComplete");
  const bool ready = offerCompleted && onboardingComplete;
  std::string out = "automaticChecks: " + std::string(ready ? "enabled" : "disabled") + "\n";
  out += "tidewatchOnboardingComplete: " + std::string(onboardingComplete ? "true" : "false") + "\n";
  out += "onboardingReady: " + std::string(ready ? "true" : "false") + "\n";
  return out;
}

int32_t runUpdateGate(const DefaultsStore& defaults, const Output& output) {
  output.standardOutput(updateGateReport(defaults));
  return 0;
}

int32_t runUpdateGate() { return runUpdateGate(DefaultsStore::standard(), Output::live()); }

}  // namespace TidewatchCLI
}  // namespace tidewatch
