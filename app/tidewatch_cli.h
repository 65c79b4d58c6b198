// The command-line front end: which behaviour the command line asks for, and the scan and
// update-gate reports. A namespace of functions with no state of its own.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "process_core/defaults_store.h"
#include "tidewatch_kit/listener_records.h"

namespace tidewatch {

enum class EntryRoute { relay, scan, updateGate, stop, agents, application };

// First match wins: "agent-event" in first place, then "scan" or "--scan" anywhere, then
// "update-gate" anywhere, then "stop" or "agents" in first place, otherwise the application.
// The later words come last so that no command line changes its meaning.
EntryRoute routeFor(const std::vector<std::string>& arguments);

namespace TidewatchCLI {

// The reports' own characters.
inline constexpr std::string_view middleDot = "\xC2\xB7";
inline constexpr std::string_view emDash = "\xE2\x80\x94";
inline constexpr std::string_view multiplication = "\xC3\x97";

// A table's rule: "─" this many times.
std::string ruleLine(size_t width);

// A port given on the command line: a whole number from 1 to 65535, nothing around it.
std::optional<int> portNumber(std::string_view word);
// The error line for a word that is no port.
std::string notAPort(std::string_view word);

// A row's process as the reports name it: its display name, and " ×N" for a pool of N.
std::string processCell(const PortListener& row);

struct Output {
  std::function<void(const std::string&)> standardOutput;
  std::function<void(const std::string&)> standardError;  // one line: the text and a line feed
  static Output live();
};

// What the scan word's options ask for. Words it does not know are ignored, as they always were.
struct ScanOptions {
  bool json = false;
  bool includeHidden = false;  // --all
  std::vector<int> ports;      // --port N, repeatable: only these ports
  bool agentsOnly = false;     // only listeners started by a coding agent
  bool watch = false;          // redraw until interrupted
  std::optional<std::chrono::milliseconds> watchInterval;  // --watch SECONDS; else the panel's cadence

  friend bool operator==(const ScanOptions&, const ScanOptions&) = default;
};

// The options of a command line that holds the scan word; the error line when they are off.
std::variant<ScanOptions, std::string> parseScan(const std::vector<std::string>& arguments);

// The result with only the listeners the options keep (counts follow the rows kept).
ScanResult filtered(ScanResult result, const ScanOptions& options);

// Runs one scan and prints the report; the arguments still hold the scan word. Exit code. With
// --watch the live form redraws until interrupted (see cli_watch.h).
int32_t run(const std::vector<std::string>& arguments);
int32_t run(const std::vector<std::string>& arguments, const std::function<ScanResult()>& scan,
            const Output& output, const std::function<std::string(Date)>& localTime);

// One scan, or the error line that tells why it failed (an empty process table has its own words).
std::variant<ScanResult, std::string> scanned(const std::function<ScanResult()>& scan);

// The report of one result in the form the options choose; absent when the JSON cannot be encoded.
std::optional<std::string> report(const ScanResult& result, const ScanOptions& options,
                                  const std::function<std::string(Date)>& localTime);

// The rows a report shows, in report order: visible, then hidden with includeHidden, sorted.
std::vector<PortListener> reportRows(const ScanResult& result, bool includeHidden);

// The JSON report with its trailing line feed; absent when it cannot be encoded.
std::optional<std::string> jsonReport(const ScanResult& result, bool includeHidden);

// The fixed-width table, every line ending in a line feed.
std::string tableReport(const ScanResult& result, bool includeHidden,
                        const std::function<std::string(Date)>& localTime);

// A cell of exactly `width` user-perceived characters; a cut cell ends in a blank.
std::string padded(const std::string& text, size_t width);

// The local time with hours, minutes and seconds, in the user's locale.
std::string localMediumTime(Date date);

// The three lines of the update-gate report.
std::string updateGateReport(const DefaultsStore& defaults);
int32_t runUpdateGate();
int32_t runUpdateGate(const DefaultsStore& defaults, const Output& output);

}  // namespace TidewatchCLI
}  // namespace tidewatch
