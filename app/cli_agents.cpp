#include "app/cli_agents.h"

#include <algorithm>
#include <ctime>

#include "app/single_instance.h"
#include "app/session_bus.h"
#include "inventory/agent_inventory_reducer.h"
#include "process_core/pretty_json.h"
#include "process_core/process_json.h"
#include "process_core/text.h"
#include "tidewatch_kit/port_engine.h"

namespace tidewatch::TidewatchCLI {
namespace {

// Today's starts by their time; older ones by their day, which the time alone would hide.
std::string sinceText(std::optional<Date> since, Date now, const std::function<std::string(Date)>& localTime) {
  if (!since) return "";
  if (now - *since < std::chrono::hours(20)) return localTime(*since);
  const std::time_t t = secondsSinceEpoch(*since);
  std::tm local{};
  localtime_r(&t, &local);
  char buffer[32];
  return std::string(buffer, std::strftime(buffer, sizeof buffer, "%Y-%m-%d", &local));
}

std::string portsText(const std::vector<int>& ports) {
  std::string text;
  for (const int port : ports) text += (text.empty() ? "" : ", ") + std::to_string(port);
  return text;
}

}  // namespace

std::string agentsTable(const AgentSessionsDocument::Decoded& document, Date now,
                        const std::function<std::string(Date)>& localTime) {
  using Source = AgentSessionsDocument::Source;
  const size_t count = document.rows.size();
  std::string out = "Tidewatch ";
  out += emDash;
  out += " " + std::to_string(count) + " agent session" + (count == 1 ? "" : "s") + " ";
  out += middleDot;
  out += document.source == Source::application ? " from the running application\n" : " from the process table\n";
  if (document.source == Source::processTable) out += std::string(hookStatesNote) + "\n";
  out += "\n";
  if (document.rows.empty()) return out + "No agent sessions.\n";

  out += padded("STATE", 17) + padded("PROVIDER", 13) + padded("PROJECT", 20) + padded("HOST", 14) +
         padded("SINCE", 12) + padded("PID", 9) + "PORTS\n";
  out += ruleLine(85) + "\n";
  for (const auto& row : document.rows) {
    out += padded(withoutControlCharacters(row.state), 17);
    out += padded(withoutControlCharacters(row.provider), 13);
    out += padded(withoutControlCharacters(row.project.value_or("")), 20);
    out += padded(withoutControlCharacters(row.host.value_or("")), 14);
    out += padded(sinceText(row.since, now, localTime), 12);
    out += padded(row.pid ? std::to_string(*row.pid) : "", 9);
    out += portsText(row.ports);
    // Trailing blanks of empty last cells help nobody who copies a line.
    while (!out.empty() && out.back() == ' ') out.pop_back();
    out += "\n";
  }
  return out;
}

int32_t runAgents(const std::vector<std::string>& arguments, const AgentsDependencies& dependencies,
                  const Output& output, const std::function<std::string(Date)>& localTime) {
  bool json = false;
  const auto word = std::find(arguments.begin(), arguments.end(), "agents");
  for (auto it = word == arguments.end() ? arguments.begin() : word + 1; it != arguments.end(); ++it) {
    if (*it == "--json") {
      json = true;
    } else {
      output.standardError("error: agents has no option " + withoutControlCharacters(*it) + " (it takes --json)");
      return 1;
    }
  }

  nlohmann::json document;
  std::optional<AgentSessionsDocument::Decoded> decoded;
  if (const auto answer = dependencies.askApplication()) {
    try {
      document = nlohmann::json::parse(*answer);
      decoded = AgentSessionsDocument::decode(document);
    } catch (const nlohmann::json::exception&) {
      decoded.reset();
    }
  }
  // No application, or one whose answer this version cannot read: the process table stands in.
  if (!decoded) {
    document = AgentSessionsDocument::encode(dependencies.processTableSessions(),
                                             AgentSessionsDocument::Source::processTable);
    decoded = AgentSessionsDocument::decode(document);
  }
  if (json) {
    output.standardOutput(writePrettyJSON(document) + "\n");
  } else {
    output.standardOutput(agentsTable(*decoded, dependencies.now(), localTime));
  }
  return 0;
}

AgentsDependencies AgentsDependencies::live() {
  return AgentsDependencies{
      [] () -> std::optional<std::string> {
        const auto answer = SessionBus::callForString({std::string(SingleInstance::busName),
                                                       std::string(SingleInstance::objectPath),
                                                       std::string(SingleInstance::interfaceName), "AgentSessions"});
        if (const auto* text = std::get_if<std::string>(&answer)) return *text;
        return std::nullopt;
      },
      [] {
        const ScanResult result = PortEngine().scan(true);
        AgentInventoryReducer reducer;
        reducer.applyPanelScan(result.agentPresence, relatedListeners(result), {}, result.scannedAt, result.scannedAt);
        return reducer.snapshot({});
      },
      [] { return std::chrono::time_point_cast<Date::duration>(std::chrono::system_clock::now()); }};
}

int32_t runAgents(const std::vector<std::string>& arguments) {
  return runAgents(arguments, AgentsDependencies::live(), Output::live(), localMediumTime);
}

}  // namespace tidewatch::TidewatchCLI
