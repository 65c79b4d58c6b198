// The agent sessions as one JSON document: what the running application answers on the session
// bus, and what `tidewatch agents --json` prints, so a script reads the same keys whichever
// source answered. Keys sorted at every level, dates in UTC whole seconds.
#pragma once

#include <nlohmann/json.hpp>

#include "inventory/agent_inventory_records.h"

namespace tidewatch::AgentSessionsDocument {

// "application": the running application's inventory, hook states included; "processTable":
// what one look at the process table shows without it.
enum class Source { application, processTable };

// {"capturedAt", "source", "sessions": [...]}, sessions by urgency of their state, then by start.
nlohmann::json encode(const AgentInventorySnapshot& snapshot, Source source);

// One session of a document, as the terminal report shows it.
struct Row {
  std::string provider;  // "Claude Code"
  std::string state;     // "Working"
  std::optional<std::string> project;
  std::optional<std::string> host;  // "Terminal"
  std::optional<Date> since;
  std::optional<int32_t> pid;
  std::vector<int> ports;
  std::string detail;

  friend bool operator==(const Row&, const Row&) = default;
};

struct Decoded {
  Source source = Source::processTable;
  std::vector<Row> rows;
};

// Reads a document written by `encode`; absent when it is not one (a running application of
// another version may answer anything).
std::optional<Decoded> decode(const nlohmann::json& document);

}  // namespace tidewatch::AgentSessionsDocument
