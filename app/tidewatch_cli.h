// The command-line front end: which behaviour the command line asks for, and the scan and
// update-gate reports. A namespace of functions with no state of its own.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "process_core/defaults_store.h"
#include "tidewatch_kit/listener_records.h"

namespace tidewatch {

enum class EntryRoute { relay, scan, updateGate, application };

// First match wins: "agent-event" in first place, then "scan" or "--scan" anywhere, then
// "update-gate" anywhere, otherwise the application.
EntryRoute routeFor(const std::vector<std::string>& arguments);

namespace TidewatchCLI {

struct Output {
  std::function<void(const std::string&)> standardOutput;
  std::function<void(const std::string&)> standardError;  // one line: the text and a line feed
  static Output live();
};

// Runs one scan and prints the report; the arguments still hold the scan word. Exit code.
int32_t run(const std::vector<std::string>& arguments);
int32_t run(const std::vector<std::string>& arguments, const std::function<ScanResult()>& scan,
            const Output& output, const std::function<std::string(Date)>& localTime);

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
