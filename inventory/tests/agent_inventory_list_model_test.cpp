#include "inventory/agent_inventory_list_model.h"

#include <gtest/gtest.h>

#include "inventory/tests/inventory_script.h"

namespace tidewatch {
namespace {

using testing::agent;
using testing::at;
using State = AgentSessionState;
using Location = AgentExecutionLocation;

AgentSessionSnapshot row(std::string id, State state, AgentKind provider, std::optional<HostAppKind> host,
                         int64_t lastEvent = 0, Location location = Location::local(),
                         std::optional<std::string> project = std::nullopt) {
  AgentSessionSnapshot session;
  session.id = AgentSessionID::provider(provider, std::move(id));
  session.provider = provider;
  session.state = state;
  if (host) session.controlSurface = AgentHostDescriptor::of(testing::host(*host));
  session.executionLocation = location;
  session.projectName = std::move(project);
  session.lastEventAt = at(lastEvent);
  return session;
}

AgentInventorySnapshot snapshotOf(std::vector<AgentSessionSnapshot> sessions) {
  AgentInventorySnapshot snapshot;
  snapshot.sessions = std::move(sessions);
  snapshot.freshness = InventoryFreshness::live();
  return snapshot;
}

std::vector<std::string> layout(const AgentInventoryListModel& model) {
  std::vector<std::string> lines;
  for (const auto& section : std::get<std::vector<AgentInventoryListModel::Section>>(model.content)) {
    std::string line = section.identity() + ":";
    for (const auto& session : section.rows) line += " " + std::get<ProviderSessionID>(session.id.value).sessionID;
    lines.push_back(line);
  }
  return lines;
}

TEST(AgentsListModel, SectionsByHostAndRowsByUrgency) {
  const auto snapshot = snapshotOf({
      row("idle-term", State::waiting, AgentKind::claude, HostAppKind::terminal, 5),
      row("busy-term-old", State::working, AgentKind::codex, HostAppKind::terminal, 1),
      row("busy-term-new", State::working, AgentKind::claude, HostAppKind::terminal, 9),
      row("ask-code", State::needsAttention, AgentKind::claude, HostAppKind::vscode, 2),
      row("lost", State::needsAttention, AgentKind::codex, std::nullopt, 3, Location::unknown()),
      row("done", State::recentlyFinished, AgentKind::claude, HostAppKind::cursor, 4),
      row("also-term", State::working, AgentKind::claude, HostAppKind::terminal, 8),
  });
  const auto model = AgentInventoryListModel::build(snapshot, AgentProviderFilter::all, "");
  // Hosted sections first, attention before work, then by name; the hostless one always last.
  EXPECT_EQ(layout(model), (std::vector<std::string>{"host:vscode: ask-code",
                                                      "host:terminal: busy-term-new also-term busy-term-old idle-term",
                                                      "host:cursor: done", "host:unknown: lost"}));
  EXPECT_EQ(model.summaryLine, "6 agents across 2 apps \u00B7 1 location unknown");
  EXPECT_EQ(model.stateLine, "2 need attention \u00B7 3 working \u00B7 1 waiting");
  EXPECT_EQ(std::tie(model.allCount, model.codexCount, model.claudeCount), std::make_tuple(6, 2, 4));
}

TEST(AgentsListModel, SummaryAndStateLines) {
  using Rows = std::vector<AgentSessionSnapshot>;
  const std::tuple<Rows, std::string, std::optional<std::string>> cases[] = {
      {{}, "No local agents detected", std::nullopt},
      {{row("a", State::needsAttention, AgentKind::claude, std::nullopt)}, "1 local agent", "1 needs attention"},
      {{row("a", State::working, AgentKind::claude, HostAppKind::terminal),
        row("b", State::detected, AgentKind::codex, HostAppKind::vscode),
        row("c", State::detected, AgentKind::codex, HostAppKind::terminal)},
       "3 local agents across 2 apps", "1 working \u00B7 2 detected"},
      {{row("a", State::waiting, AgentKind::claude, HostAppKind::terminal),
        row("b", State::waiting, AgentKind::codex, std::nullopt, 0, Location::unknown()),
        row("c", State::waiting, AgentKind::codex, std::nullopt, 0, Location::unknown())},
       "3 agents across 1 app \u00B7 2 location unknown", "3 waiting"},
  };
  for (const auto& [rows, summary, state] : cases) {
    EXPECT_EQ(AgentInventoryListModel::summary(rows), summary);
    EXPECT_EQ(AgentInventoryListModel::stateSummary(rows), state);
  }
}

TEST(AgentsListModel, ContentForEmptyFilteredAndSearchedInventories) {
  using Model = AgentInventoryListModel;
  EXPECT_TRUE(std::holds_alternative<Model::Empty>(Model::build(snapshotOf({}), AgentProviderFilter::all, "").content));

  const auto finishedOnly = snapshotOf({row("done", State::recentlyFinished, AgentKind::claude, std::nullopt)});
  const auto finished = Model::build(finishedOnly, AgentProviderFilter::all, "");
  EXPECT_EQ(finished.summaryLine, "No local agents detected");
  EXPECT_EQ(finished.stateLine, std::nullopt);
  EXPECT_EQ(layout(finished), std::vector<std::string>{"host:unknown: done"});
  EXPECT_TRUE(std::holds_alternative<Model::ProviderEmpty>(Model::build(finishedOnly, AgentProviderFilter::codex, "").content));

  const auto snapshot = snapshotOf({row("a", State::working, AgentKind::claude, HostAppKind::vscode, 0, Location::local(), "Harbour"),
                                    row("b", State::waiting, AgentKind::codex, std::nullopt)});
  const std::pair<std::string_view, std::vector<std::string>> searches[] = {
      {"  \n ", {"host:vscode: a", "host:unknown: b"}},
      {" HARB", {"host:vscode: a"}},
      {"vs code", {"host:vscode: a"}},
      {"unknown app", {"host:unknown: b"}},
      {"codex", {"host:unknown: b"}},
      {"WAIT", {"host:unknown: b"}},
  };
  for (const auto& [text, expected] : searches) {
    EXPECT_EQ(layout(Model::build(snapshot, AgentProviderFilter::all, text)), expected) << text;
  }
  EXPECT_TRUE(std::holds_alternative<Model::NoSearchMatches>(Model::build(snapshot, AgentProviderFilter::all, "zzz").content));
  EXPECT_EQ(layout(Model::build(snapshot, AgentProviderFilter::claude, "")), std::vector<std::string>{"host:vscode: a"});
}

AgentProviderConnection connection(AgentKind provider, AgentProviderConnectionStatus::Kind kind, bool enabled = true) {
  return {provider, AgentProviderConnectionStatus::of(kind), enabled};
}

TEST(AgentsPanePrompts, PromptsAndTheirWords) {
  using Kind = AgentProviderConnectionStatus::Kind;
  using Prompt = AgentsConnectionPrompt;
  const std::tuple<Kind, std::optional<Prompt::Kind>, std::string, std::string> cases[] = {
      {Kind::notConfigured, Prompt::Kind::connect, "Connect Codex",
       "CLI agents appear automatically. Connect Codex to include its desktop sessions."},
      {Kind::configuredAwaitingTrust, Prompt::Kind::approve, "Approve Tidewatch\u2019s hooks in Codex to finish connecting",
       "Approve Tidewatch\u2019s hooks in Codex to finish connecting. CLI agents still appear automatically."},
      {Kind::configuredAwaitingFirstEvent, Prompt::Kind::awaitEvent, "Codex is connected and waiting for its first event",
       "Codex is connected and waiting for its first trusted event. CLI agents still appear automatically."},
      {Kind::repairNeeded, Prompt::Kind::review, "Review the Codex connection in Settings",
       "Review the Codex connection in Settings. CLI agents still appear automatically."},
      {Kind::unavailable, Prompt::Kind::review, "Review the Codex connection in Settings",
       "Review the Codex connection in Settings. CLI agents still appear automatically."},
      {Kind::connected, std::nullopt, "", ""},
  };
  for (const auto& [status, kind, footer, detail] : cases) {
    const auto prompt = Prompt::resolve(AgentKind::codex, {connection(AgentKind::codex, status)});
    ASSERT_EQ(prompt.has_value(), kind.has_value());
    if (!prompt) continue;
    EXPECT_EQ(prompt->kind, *kind);
    EXPECT_EQ(prompt->footer(), footer);
    EXPECT_EQ(prompt->detail(), detail);
  }
  EXPECT_EQ(Prompt::resolve(AgentKind::claude, {}), std::nullopt);
  // Codex comes first among the providers.
  const std::vector<AgentProviderConnection> both{connection(AgentKind::claude, Kind::notConfigured),
                                                  connection(AgentKind::codex, Kind::repairNeeded)};
  EXPECT_EQ(Prompt::resolve(both), (Prompt{Prompt::Kind::review, AgentKind::codex}));

  auto stale = snapshotOf({});
  EXPECT_EQ(AgentsPaneText::footer(stale, Prompt::resolve(both)), "Review the Codex connection in Settings");
  EXPECT_EQ(AgentsPaneText::footer(stale, std::nullopt), "CLI agents are detected automatically");
  stale.freshness = InventoryFreshness::stale(std::nullopt);
  EXPECT_EQ(AgentsPaneText::footer(stale, Prompt::resolve(both)),
            "Showing last known agents \u2014 the current scan is unavailable");
}

TEST(AgentsPanePrompts, ProviderEmptyWords) {
  using Prompt = AgentsConnectionPrompt;
  const Prompt connectClaude{Prompt::Kind::connect, AgentKind::claude};
  const Prompt connectCodex{Prompt::Kind::connect, AgentKind::codex};
  const Prompt approveClaude{Prompt::Kind::approve, AgentKind::claude};
  const std::tuple<AgentProviderFilter, std::optional<Prompt>, std::optional<Prompt>, std::string> cases[] = {
      {AgentProviderFilter::claude, std::nullopt, std::nullopt,
       "Clear the provider filter to see other active agents. Connected Claude desktop sessions appear here when active."},
      {AgentProviderFilter::all, std::nullopt, std::nullopt,
       "Clear the provider filter to see other active agents. Connected All desktop sessions appear here when active."},
      {AgentProviderFilter::all, connectClaude, connectClaude,
       "Clear the provider filter or review provider connections in Settings."},
      {AgentProviderFilter::codex, connectClaude, connectClaude,
       "Clear the provider filter or review provider connections in Settings."},
      {AgentProviderFilter::claude, approveClaude, connectCodex, approveClaude.detail()},
      {AgentProviderFilter::claude, connectClaude, std::nullopt, connectClaude.detail()},
      {AgentProviderFilter::claude, connectClaude, connectClaude, connectClaude.detail()},
      {AgentProviderFilter::claude, connectClaude, Prompt{Prompt::Kind::review, AgentKind::codex},
       "Claude is not connected yet. Review the Codex connection in Settings. CLI agents still appear automatically."},
  };
  for (const auto& [filter, prompt, global, detail] : cases) {
    EXPECT_EQ(AgentsPaneText::providerEmptyDetail(filter, prompt, global), detail);
  }
  EXPECT_EQ(AgentsPaneText::providerEmptyTitle(AgentProviderFilter::codex), "No Codex agents detected");
}

TEST(AgentsPanePrompts, EmptyStateAndPanelMode) {
  using Kind = AgentProviderConnectionStatus::Kind;
  namespace Variant = AgentsEmptyStateVariant;
  EXPECT_EQ(Variant::resolve({connection(AgentKind::codex, Kind::notConfigured, false)}, "boom"),
            Variant::Variant{Variant::NoneEnabled{}});
  EXPECT_EQ(Variant::resolve({connection(AgentKind::codex, Kind::connected)}, "boom"),
            Variant::Variant{Variant::ReceiverFailed{"boom"}});
  EXPECT_EQ(Variant::resolve({connection(AgentKind::codex, Kind::connected)}, std::nullopt),
            Variant::Variant{Variant::Enabled{}});

  using Setting = DefaultFilterSetting;
  const std::tuple<std::optional<Setting>, bool, std::optional<PanelMode>, PanelMode> modes[] = {
      {Setting::all, true, PanelMode::agents, PanelMode::ports},
      {Setting::lastUsed, true, PanelMode::ports, PanelMode::ports},
      {Setting::lastUsed, true, std::nullopt, PanelMode::agents},
      {Setting::agents, false, PanelMode::agents, PanelMode::ports},
      {std::nullopt, true, std::nullopt, PanelMode::agents},
  };
  for (const auto& [setting, hasAgents, last, mode] : modes) {
    EXPECT_EQ(PanelModeResolver::resolve(setting, hasAgents, last), mode);
  }
}

}  // namespace
}  // namespace tidewatch
