#include "app/panel_views.h"

#include <gtest/gtest.h>

#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

using testing::Row;
using PanelTexts::PortsPane;
using F = FilterCategory;
using E = PanelTexts::EmptyState;
constexpr auto codex = AgentKind::codex;
constexpr auto claude = AgentKind::claude;
constexpr auto ports = PanelMode::ports;
constexpr auto agents = PanelMode::agents;

const SafetyContext context{4242, 1000};

// The user's own server on loopback, which every guarded action may signal.
PortListener owned(Row row) {
  PortListener listener = row.path("/opt/app/server");
  listener.process.uid = 1000;
  listener.process.sameUser = true;
  return listener;
}

PortListener server(int32_t pid = 10) { return owned(Row(pid, 3000)); }
const PortListener hiddenRow = Row(30, 631).hidden();

// Bound to an address no URL can carry.
PortListener withoutURL() { return owned(Row(11, 9).bound({{"bad host", AddressFamily::ipv4, 9}})); }

// A loaded pane over these listeners and agents, its model built as the panel builds it.
PortsPane loaded(std::vector<PortListener> listeners, std::vector<AgentKind> running = {}, F filter = F::all,
                 std::string search = "", bool scope = false, bool showSystem = false) {
  ScanResult result;
  result.listeners = std::move(listeners);
  for (size_t i = 0; i < running.size(); ++i) {
    const AgentProcessIdentity identity{{static_cast<int32_t>(900 + i), 1, 0}, running[i]};
    result.agentPresence.entries.push_back({identity, running[i], {}, {}, {}});
  }
  auto model = ListenerListModel::build(result, {filter, search, ListenerSortMode::port, {}});
  return {std::move(result), std::nullopt, std::move(model), filter, std::move(search), scope, showSystem};
}

const PortsPane failed = [] {
  PortsPane pane;
  pane.failure = "Couldn\u2019t read local ports.";
  return pane;
}();

TEST(ListenerKeyboardNavigation, StepsFromTheSelectionOrFromOutsideTheListAndWraps) {
  const std::vector<std::string> abc{"a", "b", "c"};
  const std::tuple<std::vector<std::string>, std::optional<std::string>, int, std::optional<std::string>> cases[] = {
      {{}, std::nullopt, 1, std::nullopt}, {{}, "a", -1, std::nullopt},   {abc, std::nullopt, 1, "a"},
      {abc, std::nullopt, -1, "c"},        {abc, "vanished", 1, "a"},     {abc, "vanished", -1, "c"},
      {abc, "a", 1, "b"},                  {abc, "b", -1, "a"},           {abc, "c", 1, "a"},
      {abc, "a", -1, "c"},                 {{"a"}, "a", -1, "a"},         {{"a"}, "a", 1, "a"},
  };
  for (const auto& [ids, selected, delta, next] : cases) {
    EXPECT_EQ(ListenerKeyboardNavigation::nextID(ids, selected, delta), next) << selected.value_or("-") << delta;
  }
}

// The action as one string: its kind and whatever it carries.
std::string described(const std::optional<ListenerKeyboardAction>& action) {
  if (!action) return "not handled";
  const char* kinds[] = {"open", "stopPool", "kill", "focus", "unavailable"};
  return kinds[static_cast<int>(action->kind)] + (action->url ? " " + *action->url : "") +
         (action->kill ? " pid " + std::to_string(action->kill->pid) : "") +
         (action->stopPool ? " pool " + std::to_string(action->stopPool->representativePID) : "");
}

TEST(ListenerKeyboardAction, OpenFocusAndStopActOnTheRowOnlyWhereTheyCan) {
  PortListener pool = owned(Row(20, 8000).pool(3));
  pool.parentIdentity = ProcessIdentity{19, 1, 0};
  const PortListener otherUsers = Row(12, 5000).path("/opt/app/server");
  const std::tuple<char32_t, PortListener, bool, std::string> cases[] = {
      {U'O', server(), false, "open http://localhost:3000"},
      {U'o', withoutURL(), true, "unavailable"},
      {U't', server(), true, "focus"},
      {U'T', server(), false, "unavailable"},
      {U'k', server(), false, "kill pid 10"},
      {U'K', pool, false, "stopPool pool 20"},
      {U'k', otherUsers, false, "unavailable"},
      {U'x', server(), true, "not handled"},
  };
  for (const auto& [key, row, hasFocusLabel, action] : cases) {
    EXPECT_EQ(described(ListenerKeyboardAction::forKey(key, row, context, hasFocusLabel)), action) << action;
  }
}

// Items as strings: "| " before a divider, the hint in brackets, "!" when destructive.
std::vector<std::string> described(const std::vector<ListenerActionMenu::Item>& items) {
  std::vector<std::string> result;
  for (const auto& item : items) {
    result.push_back((item.dividerBefore ? "| " : "") + item.title +
                     (item.hint.empty() ? "" : " [" + item.hint + "]") + (item.destructive ? " !" : ""));
  }
  return result;
}

TEST(ListenerActionMenu, OffersEachItemUnderItsConditionAndAPoolStopInPlaceOfKills) {
  const std::string kill = "Kill Process [Requires confirmation] !", force = "Force Kill [Requires confirmation] !";
  // hasURL, canKill, canForceKill, canStopPool, canFocus
  const std::tuple<bool, bool, bool, bool, bool, std::vector<std::string>> cases[] = {
      {false, false, false, false, false, {"Copy Port", "Copy Details"}},
      {true, true, true, false, true,
       {"Open in Browser [\u21B5]", "Copy URL", "Copy Port", "Copy Details", "Focus App", "| " + kill, force}},
      {false, false, true, false, false, {"Copy Port", "Copy Details", "| " + force}},
      {false, true, true, true, false, {"Copy Port", "Copy Details", "| Stop Pool [Requires confirmation] !"}},
  };
  for (const auto& [url, canKill, canForce, canStop, canFocus, items] : cases) {
    EXPECT_EQ(described(ListenerActionMenu::items(url, canKill, canForce, canStop, canFocus)), items);
  }

  using A = ListenerActionMenu::Item::Action;
  std::vector<A> actions;
  for (const auto& item : ListenerActionMenu::items(true, true, true, false, true)) actions.push_back(item.action);
  EXPECT_EQ(actions, (std::vector<A>{A::openInBrowser, A::copyURL, A::copyPort, A::copyDetails, A::focusApp, A::kill,
                                     A::forceKill}));
  EXPECT_EQ(ListenerActionMenu::items(false, false, false, true, false).back().action, A::stopPool);
}

TEST(ListenerActionMenu, DetailsAndTooltipSayTheKnownFactsOneALine) {
  PortListener full = Row(10, 5173).path("/opt/app/server").agent(claude).host(HostAppKind::vscode)
                          .project("shop", "/src/shop").classified(Runtime::node, Framework::vite, "Vite");
  full.bindScope = BindScope::allInterfaces;
  EXPECT_EQ(ListenerActionMenu::accessibilityTitle(full), "Actions for server on port 5173");
  EXPECT_EQ(ListenerActionMenu::detailsText(full), "Process: server\nPID: 10\nPort: 5173\nBind: All Interfaces\n"
                                                   "URL: http://localhost:5173\nAgent: Claude Code");
  EXPECT_EQ(ListenerActionMenu::detailsText(withoutURL()), "Process: server\nPID: 11\nPort: 9\nBind: interface");
  EXPECT_EQ(PanelTexts::tooltipText(full),
            "http://localhost:5173\nPID 10\nDetected: Vite\nLaunched from: VS Code\nProject: shop");
  EXPECT_EQ(PanelTexts::tooltipText(withoutURL()), "PID 11");
}

TEST(PanelTexts, ActivityLabelNamesTheLevel) {
  const std::pair<ActivityLevel, std::string> cases[] = {{ActivityLevel::high, "High activity"},
                                                         {ActivityLevel::medium, "Medium activity"},
                                                         {ActivityLevel::low, "Low activity"},
                                                         {ActivityLevel::unknown, "Activity unknown"}};
  for (const auto& [level, label] : cases) EXPECT_EQ(PanelTexts::activityLabel(level), label);
}

TEST(PanelTexts, HeaderCountsAgentsOrTheListenersShownOfTheVisible) {
  const PortListener vite = Row(31, 5173).classified(Runtime::node, Framework::vite, "Vite");
  const std::tuple<PanelMode, int, PortsPane, std::optional<std::string>> cases[] = {
      {agents, 1, {}, "1 agent"},
      {agents, 3, failed, "3 agents"},
      {ports, 3, {}, std::nullopt},
      {ports, 0, loaded({server(), hiddenRow}), "1 listener"},
      {ports, 0, loaded({server(), vite}), "2 listeners"},
      {ports, 0, loaded({server(), vite}, {}, F::node), "1 of 2"},
      {ports, 0, loaded({server(), vite}, {}, F::all, "zzz"), "0 of 2"},
      {ports, 0, loaded({server(), vite}, {}, F::all, "  "), "2 listeners"},
      {ports, 0, loaded({server(), hiddenRow}, {}, F::all, "631"), "0 of 1"},  // hidden rows aren't shown
      {ports, 0, loaded({}, {}, F::codex), "0 of 0"},  // nothing at all
  };
  for (const auto& [mode, sessions, pane, text] : cases) {
    EXPECT_EQ(PanelTexts::listenerCountText(mode, sessions, pane), text) << text.value_or("none");
  }
}

TEST(PanelTexts, FooterSaysTheFirstThingThatApplies) {
  const std::string running = " running \u00B7 see Agents for sessions";
  const std::pair<PortsPane, std::string> cases[] = {
      {loaded({server()}, {codex}, F::codex, "", true), "Showing only ports this agent's processes own"},
      {loaded({server()}, {}, F::agents), "Showing agent-attributed ports"},
      {loaded({server()}, {claude}, F::codex), "Showing agent-attributed ports"},
      {loaded({server()}, {codex, claude}, F::agents), "2 agent agents" + running},
      {loaded({server()}, {codex, claude}, F::codex), "1 Codex agent" + running},
      {loaded({}, {claude, claude}, F::claude), "2 Claude Code agents" + running},
      {loaded({server()}), "↑↓ select · O open · T focus · K stop"},
      {loaded({server()}, {}, F::all, "", false, true), "↑↓ select · O open · T focus · K stop"},
      {loaded({server(), hiddenRow}, {}, F::all, "", false, true), "Showing system & background listeners"},
      {loaded({server(), hiddenRow}), "1 system & background listener hidden"},
      {loaded({hiddenRow, Row(32, 632).hidden()}), "2 system & background listeners hidden"},
  };
  for (const auto& [pane, text] : cases) EXPECT_EQ(PanelTexts::listFooterText(pane), text);
}

TEST(PanelTexts, EmptyStatesSpeakOfAgentsUnderAnAgentChipAndOfTheScopeWhileSet) {
  const std::vector<std::string> viewAgents{"View Agents", "Show all"};
  const std::string none = "None currently has an attributed local listener.";
  const std::string attributed = "No local listeners are attributed to ";
  const std::string but = " running, but none has an attributed local listener.";
  const std::pair<PortsPane, std::optional<E>> cases[] = {
      {{}, std::nullopt},
      {loaded({server()}), std::nullopt},
      {failed, E{"Couldn\u2019t read local ports.", std::nullopt, {"Try Again"}}},
      {loaded({}, {}, F::agents),
       E{"No agent sessions detected", attributed + "Codex or Claude Code either.", viewAgents}},
      {loaded({}, {codex, codex, claude}, F::codex), E{"2 Codex sessions running", none, viewAgents}},
      {loaded({}, {claude}, F::claude), E{"1 Claude Code session running", none, viewAgents}},
      {loaded({}, {codex}, F::agents, "", true),
       E{"No ports related to this agent right now",
         "Related listeners appear here while the agent's servers are running.", {"Remove scope"}}},
      {loaded({}, {codex}, F::agents, "vite"), E{"No local listeners", "1 agent session is" + but, {}}},
      {loaded({}), E{"No local listeners", "Nothing is listening on a local port right now.", {}}},
      {loaded({}, {codex, claude}), E{"No local listeners", "2 agent sessions are" + but, {}}},
      {loaded({server()}, {codex}, F::claude),
       E{"No Claude Code sessions detected", attributed + "Claude Code either.", viewAgents}},
      {loaded({server()}, {}, F::codex, "", true),
       E{"No Codex sessions detected", attributed + "Codex either.", viewAgents}},
      {loaded({server()}, {claude}, F::agents, " "), E{"1 agent session running", none, viewAgents}},
      {loaded({server()}, {claude}, F::agents, "zzz"), E{"No matching listeners", std::nullopt, {"Clear filters"}}},
  };
  for (const auto& [pane, state] : cases) {
    EXPECT_EQ(PanelTexts::emptyState(pane), state) << (state ? state->title : "none");
  }
}

TEST(PanelTexts, ScopeChipNamesTheProvider) {
  EXPECT_EQ(PanelTexts::scopeChipText(codex), "Ports related to this Codex agent");
  EXPECT_EQ(PanelTexts::scopeChipHelp(claude), "Remove exact agent scope: ports related to this Claude agent");
}

TEST(PanelTexts, SupportMailKeepsUnreservedCharactersAndEncodesTheRest) {
  const std::string head =
      "mailto:help@example.com?subject=Tidewatch%20feedback&body=What%20can%20we%20help%20with%3F%0A%0A";
  const std::tuple<std::string, std::string, std::string> cases[] = {
      {"", "Debian GNU/Linux 12 (bookworm)",
       "Tidewatch%20version%3A%20unknown%0AOS%20version%3A%20Debian%20GNU%2FLinux%2012%20%28bookworm%29"},
      {"1.0~rc_2-a&b=\u00FC+", "", "Tidewatch%20version%3A%201.0~rc_2-a%26b%3D%C3%BC%2B%0AOS%20version%3A%20unknown"},
  };
  for (const auto& [version, os, body] : cases) {
    EXPECT_EQ(PanelTexts::supportMailURL("help@example.com", version, os), head + body) << version;
  }
}

}  // namespace
}  // namespace tidewatch
