// What the agents pane shows, as a pure function of a snapshot, a provider filter and a search
// text: sections by host application, rows in order of urgency, a summary and a state line; and
// the small deciders beside it (connection prompt, empty state, panel mode) with their words.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "inventory/agent_inventory_records.h"
#include "tidewatch_kit/listener_list_model.h"

namespace tidewatch {

enum class AgentProviderFilter { all, codex, claude };
enum class PanelMode { ports, agents };

// "Codex" or "Claude": the provider's word in the pane's texts and its search.
std::string_view providerWord(AgentKind provider);

struct AgentInventoryListModel {
  struct Section {
    std::optional<AgentHostDescriptor> host;
    std::vector<AgentSessionSnapshot> rows;
    // "host:<kind>" or "host:unknown".
    std::string identity() const;
    friend bool operator==(const Section&, const Section&) = default;
  };
  struct Empty {
    friend bool operator==(const Empty&, const Empty&) = default;
  };
  struct ProviderEmpty {
    friend bool operator==(const ProviderEmpty&, const ProviderEmpty&) = default;
  };
  struct NoSearchMatches {
    friend bool operator==(const NoSearchMatches&, const NoSearchMatches&) = default;
  };
  using Content = std::variant<std::vector<Section>, Empty, ProviderEmpty, NoSearchMatches>;

  Content content;
  std::string summaryLine;
  std::optional<std::string> stateLine;
  int allCount = 0;
  int codexCount = 0;
  int claudeCount = 0;

  static AgentInventoryListModel build(const AgentInventorySnapshot& snapshot, AgentProviderFilter filter,
                                       std::string_view searchText);
  // The rows whose provider, app, project or state holds the trimmed, lower-cased text.
  static std::vector<AgentSessionSnapshot> search(const std::vector<AgentSessionSnapshot>& rows,
                                                  std::string_view text);
  static std::vector<Section> group(const std::vector<AgentSessionSnapshot>& rows);
  // "3 local agents across 2 apps", "No local agents detected", ...
  static std::string summary(const std::vector<AgentSessionSnapshot>& current);
  // "1 needs attention · 2 working", or absent with no rows.
  static std::optional<std::string> stateSummary(const std::vector<AgentSessionSnapshot>& current);

  friend bool operator==(const AgentInventoryListModel&, const AgentInventoryListModel&) = default;
};

// What the pane asks of the user about one provider's connection.
struct AgentsConnectionPrompt {
  enum class Kind { connect, approve, awaitEvent, review };
  Kind kind = Kind::connect;
  AgentKind provider = AgentKind::codex;

  static std::optional<AgentsConnectionPrompt> resolve(AgentKind provider,
                                                       const std::vector<AgentProviderConnection>& connections);
  // The first prompt of the providers in their fixed order.
  static std::optional<AgentsConnectionPrompt> resolve(const std::vector<AgentProviderConnection>& connections);

  std::string footer() const;
  std::string detail() const;

  friend bool operator==(const AgentsConnectionPrompt&, const AgentsConnectionPrompt&) = default;
};

namespace AgentsPaneText {

inline constexpr std::string_view staleFooter = "Showing last known agents \u2014 the current scan is unavailable";
inline constexpr std::string_view noPromptFooter = "CLI agents are detected automatically";
inline constexpr std::string_view noPromptDetail =
    "CLI agents appear automatically. Connected desktop sessions appear here when active.";
inline constexpr std::string_view emptyTitle = "No local agents detected";
inline constexpr std::string_view showAllAction = "Show all agents";
inline constexpr std::string_view noMatchesTitle = "No matching agents";
inline constexpr std::string_view noMatchesDetail = "No agent's provider, app, project, or state matches the search.";

// The footer under the list: stale first, then the prompt's, then the standing one.
std::string footer(const AgentInventorySnapshot& snapshot, const std::optional<AgentsConnectionPrompt>& prompt);
// "No Codex agents detected".
std::string providerEmptyTitle(AgentProviderFilter filter);
// The detail under the provider-empty title, from the filtered provider's prompt and the first one.
std::string providerEmptyDetail(AgentProviderFilter filter, const std::optional<AgentsConnectionPrompt>& prompt,
                                const std::optional<AgentsConnectionPrompt>& globalPrompt);

}  // namespace AgentsPaneText

namespace AgentsEmptyStateVariant {

struct NoneEnabled {
  friend bool operator==(const NoneEnabled&, const NoneEnabled&) = default;
};
struct ReceiverFailed {
  std::string failure;
  friend bool operator==(const ReceiverFailed&, const ReceiverFailed&) = default;
};
struct Enabled {
  friend bool operator==(const Enabled&, const Enabled&) = default;
};
using Variant = std::variant<NoneEnabled, ReceiverFailed, Enabled>;

Variant resolve(const std::vector<AgentProviderConnection>& connections, const std::optional<std::string>& receiverFailure);

}  // namespace AgentsEmptyStateVariant

namespace PanelModeResolver {

PanelMode resolve(std::optional<DefaultFilterSetting> setting, bool hasAgents, std::optional<PanelMode> lastMode);

}  // namespace PanelModeResolver

}  // namespace tidewatch
