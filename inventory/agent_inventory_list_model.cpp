#include "inventory/agent_inventory_list_model.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

#include "process_core/text.h"

namespace tidewatch {
namespace {

using State = AgentSessionState;
constexpr std::string_view unknownApp = "Unknown app";

std::optional<AgentKind> filteredProvider(AgentProviderFilter filter) {
  switch (filter) {
    case AgentProviderFilter::codex: return AgentKind::codex;
    case AgentProviderFilter::claude: return AgentKind::claude;
    case AgentProviderFilter::all: return std::nullopt;
  }
  return std::nullopt;
}

std::string_view hostName(const std::optional<AgentHostDescriptor>& host) {
  return host ? std::string_view(host->displayName) : unknownApp;
}

int urgencyRank(const AgentInventoryListModel::Section& section) {
  const auto has = [&section](State state) {
    return std::any_of(section.rows.begin(), section.rows.end(), [state](const auto& row) { return row.state == state; });
  };
  if (has(State::needsAttention)) return 0;
  if (has(State::working)) return 1;
  return 2;
}

std::string plural(int count, std::string_view word) {
  return std::to_string(count) + " " + std::string(word) + (count == 1 ? "" : "s");
}

}  // namespace

std::string_view providerWord(AgentKind provider) { return provider == AgentKind::codex ? "Codex" : "Claude"; }

std::string AgentInventoryListModel::Section::identity() const {
  return "host:" + (host ? std::string(rawValue(host->kind)) : std::string("unknown"));
}

AgentInventoryListModel AgentInventoryListModel::build(const AgentInventorySnapshot& snapshot,
                                                       AgentProviderFilter filter, std::string_view searchText) {
  AgentInventoryListModel model;
  const auto current = snapshot.currentSessions();
  model.allCount = static_cast<int>(current.size());
  for (const auto& session : current) ++(session.provider == AgentKind::codex ? model.codexCount : model.claudeCount);
  model.summaryLine = summary(current);
  model.stateLine = stateSummary(current);

  if (snapshot.sessions.empty()) {
    model.content = Empty{};
    return model;
  }
  std::vector<AgentSessionSnapshot> filtered;
  const auto provider = filteredProvider(filter);
  for (const auto& session : snapshot.sessions) {
    if (!provider || session.provider == *provider) filtered.push_back(session);
  }
  if (filtered.empty()) {
    model.content = ProviderEmpty{};
    return model;
  }
  const auto matching = search(filtered, searchText);
  if (matching.empty()) {
    model.content = NoSearchMatches{};
    return model;
  }
  model.content = group(matching);
  return model;
}

std::vector<AgentSessionSnapshot> AgentInventoryListModel::search(const std::vector<AgentSessionSnapshot>& rows,
                                                                  std::string_view text) {
  const std::string needle = lowercased(trimmedWhitespace(text));
  if (needle.empty()) return rows;
  std::vector<AgentSessionSnapshot> matching;
  for (const auto& row : rows) {
    const std::string_view fields[] = {providerWord(row.provider), hostName(row.controlSurface),
                                       row.projectName ? std::string_view(*row.projectName) : std::string_view(),
                                       badgeWord(row.state)};
    if (std::any_of(std::begin(fields), std::end(fields),
                    [&needle](std::string_view field) { return lowercased(field).find(needle) != std::string::npos; })) {
      matching.push_back(row);
    }
  }
  return matching;
}

std::vector<AgentInventoryListModel::Section> AgentInventoryListModel::group(
    const std::vector<AgentSessionSnapshot>& rows) {
  std::map<std::string, Section> buckets;
  for (const auto& row : rows) {
    Section probe{row.controlSurface, {}};
    auto [bucket, inserted] = buckets.try_emplace(probe.identity(), std::move(probe));
    bucket->second.rows.push_back(row);
  }
  std::vector<Section> sections;
  for (auto& [identity, section] : buckets) {
    std::sort(section.rows.begin(), section.rows.end(), [](const auto& a, const auto& b) {
      if (a.state != b.state) return a.state < b.state;
      if (a.lastEventAt != b.lastEventAt) return a.lastEventAt > b.lastEventAt;
      return a.id.stableID() < b.id.stableID();
    });
    sections.push_back(std::move(section));
  }
  std::stable_sort(sections.begin(), sections.end(), [](const Section& a, const Section& b) {
    if (a.host.has_value() != b.host.has_value()) return a.host.has_value();
    if (urgencyRank(a) != urgencyRank(b)) return urgencyRank(a) < urgencyRank(b);
    if (hostName(a.host) != hostName(b.host)) return hostName(a.host) < hostName(b.host);
    return a.identity() < b.identity();
  });
  return sections;
}

std::string AgentInventoryListModel::summary(const std::vector<AgentSessionSnapshot>& current) {
  if (current.empty()) return "No local agents detected";
  const int count = static_cast<int>(current.size());
  const bool allLocal = std::all_of(current.begin(), current.end(), [](const auto& row) {
    return row.executionLocation.kind == AgentExecutionLocation::Kind::local;
  });
  std::string line = plural(count, allLocal ? "local agent" : "agent");
  std::set<HostAppKind> hosts;
  for (const auto& row : current) {
    if (row.controlSurface) hosts.insert(row.controlSurface->kind);
  }
  if (!hosts.empty()) line += " across " + plural(static_cast<int>(hosts.size()), "app");
  const auto unknown = std::count_if(current.begin(), current.end(), [](const auto& row) {
    return row.executionLocation.kind == AgentExecutionLocation::Kind::unknown;
  });
  if (unknown > 0) line += " \u00B7 " + std::to_string(unknown) + " location unknown";
  return line;
}

std::optional<std::string> AgentInventoryListModel::stateSummary(const std::vector<AgentSessionSnapshot>& current) {
  if (current.empty()) return std::nullopt;
  std::vector<std::string> parts;
  for (State state : {State::needsAttention, State::working, State::waiting, State::detected}) {
    const auto count = std::count_if(current.begin(), current.end(), [state](const auto& row) { return row.state == state; });
    if (count == 0) continue;
    std::string part = std::to_string(count) + " ";
    switch (state) {
      case State::needsAttention: part += count == 1 ? "needs attention" : "need attention"; break;
      case State::working: part += "working"; break;
      case State::waiting: part += "waiting"; break;
      default: part += "detected"; break;
    }
    parts.push_back(std::move(part));
  }
  std::string line;
  for (size_t i = 0; i < parts.size(); ++i) line += (i > 0 ? " \u00B7 " : "") + parts[i];
  return line;
}

// ---- Prompts and words ---------------------------------------------------------------------

std::optional<AgentsConnectionPrompt> AgentsConnectionPrompt::resolve(
    AgentKind provider, const std::vector<AgentProviderConnection>& connections) {
  using Status = AgentProviderConnectionStatus::Kind;
  const auto connection = std::find_if(connections.begin(), connections.end(),
                                       [provider](const auto& c) { return c.provider == provider; });
  if (connection == connections.end()) return std::nullopt;
  switch (connection->status.kind) {
    case Status::notConfigured: return AgentsConnectionPrompt{Kind::connect, provider};
    case Status::configuredAwaitingTrust: return AgentsConnectionPrompt{Kind::approve, provider};
    case Status::configuredAwaitingFirstEvent: return AgentsConnectionPrompt{Kind::awaitEvent, provider};
    case Status::repairNeeded:
    case Status::unavailable: return AgentsConnectionPrompt{Kind::review, provider};
    case Status::connected: return std::nullopt;
  }
  return std::nullopt;
}

std::optional<AgentsConnectionPrompt> AgentsConnectionPrompt::resolve(
    const std::vector<AgentProviderConnection>& connections) {
  std::vector<AgentKind> providers(std::begin(allAgentKinds), std::end(allAgentKinds));
  std::sort(providers.begin(), providers.end(), [](AgentKind a, AgentKind b) { return sortOrder(a) < sortOrder(b); });
  for (AgentKind provider : providers) {
    if (auto prompt = resolve(provider, connections)) return prompt;
  }
  return std::nullopt;
}

std::string AgentsConnectionPrompt::footer() const {
  const std::string name(providerWord(provider));
  switch (kind) {
    case Kind::connect: return "Connect " + name;
    case Kind::approve: return "Approve Tidewatch\u2019s hooks in " + name + " to finish connecting";
    case Kind::awaitEvent: return name + " is connected and waiting for its first event";
    case Kind::review: return "Review the " + name + " connection in Settings";
  }
  return {};
}

std::string AgentsConnectionPrompt::detail() const {
  const std::string name(providerWord(provider));
  switch (kind) {
    case Kind::connect: return "CLI agents appear automatically. Connect " + name + " to include its desktop sessions.";
    case Kind::approve:
      return "Approve Tidewatch\u2019s hooks in " + name + " to finish connecting. CLI agents still appear automatically.";
    case Kind::awaitEvent:
      return name + " is connected and waiting for its first trusted event. CLI agents still appear automatically.";
    case Kind::review:
      return "Review the " + name + " connection in Settings. CLI agents still appear automatically.";
  }
  return {};
}

namespace AgentsPaneText {

std::string footer(const AgentInventorySnapshot& snapshot, const std::optional<AgentsConnectionPrompt>& prompt) {
  if (!snapshot.freshness.isLive) return std::string(staleFooter);
  if (prompt) return prompt->footer();
  return std::string(noPromptFooter);
}

std::string providerEmptyTitle(AgentProviderFilter filter) {
  const auto provider = filteredProvider(filter);
  return "No " + std::string(provider ? providerWord(*provider) : "All") + " agents detected";
}

std::string providerEmptyDetail(AgentProviderFilter filter, const std::optional<AgentsConnectionPrompt>& prompt,
                                const std::optional<AgentsConnectionPrompt>& globalPrompt) {
  const auto provider = filteredProvider(filter);
  const std::string name(provider ? providerWord(*provider) : "All");
  if (!prompt) {
    return "Clear the provider filter to see other active agents. Connected " + name +
           " desktop sessions appear here when active.";
  }
  if (!provider || prompt->provider != *provider) {
    return "Clear the provider filter or review provider connections in Settings.";
  }
  if (prompt->kind != AgentsConnectionPrompt::Kind::connect || !globalPrompt || *globalPrompt == *prompt) {
    return prompt->detail();
  }
  return name + " is not connected yet. " + globalPrompt->detail();
}

}  // namespace AgentsPaneText

namespace AgentsEmptyStateVariant {

Variant resolve(const std::vector<AgentProviderConnection>& connections, const std::optional<std::string>& receiverFailure) {
  if (std::none_of(connections.begin(), connections.end(), [](const auto& c) { return c.locallyEnabled; })) {
    return NoneEnabled{};
  }
  if (receiverFailure) return ReceiverFailed{*receiverFailure};
  return Enabled{};
}

}  // namespace AgentsEmptyStateVariant

namespace PanelModeResolver {

PanelMode resolve(std::optional<DefaultFilterSetting> setting, bool hasAgents, std::optional<PanelMode> lastMode) {
  if (setting == DefaultFilterSetting::all) return PanelMode::ports;
  if (setting == DefaultFilterSetting::lastUsed && lastMode) return *lastMode;
  return hasAgents ? PanelMode::agents : PanelMode::ports;
}

}  // namespace PanelModeResolver

}  // namespace tidewatch
