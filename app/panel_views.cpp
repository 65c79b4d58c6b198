#include "app/panel_views.h"

#include <algorithm>
#include <cstdint>
#include <variant>

#include "tidewatch_kit/listener_enrichment.h"
#include "tidewatch_kit/service_classifier.h"

namespace tidewatch {
namespace {

std::string counted(int count, std::string_view word) {
  return std::to_string(count) + " " + std::string(word) + (count == 1 ? "" : "s");
}

bool isAgentFilter(FilterCategory filter) {
  return filter == FilterCategory::agents || filter == FilterCategory::codex || filter == FilterCategory::claude;
}

std::optional<AgentKind> provider(FilterCategory filter) {
  if (filter == FilterCategory::codex) return AgentKind::codex;
  if (filter == FilterCategory::claude) return AgentKind::claude;
  return std::nullopt;
}

// The agents an agent filter speaks of: the provider's under its own chip, all of them otherwise.
int agentCount(FilterCategory filter, const AgentProcessPresenceSnapshot& presence) {
  const auto kind = provider(filter);
  return kind ? presence.count(*kind) : presence.totalCount();
}

// A whitespace-only search filters nothing, so it reads as no search.
bool searchIsEmpty(std::string_view searchText) { return ListenerSearch::normalizedQuery(searchText).empty(); }

bool isUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

std::string percentEncoded(std::string_view text) {
  static constexpr char hex[] = "0123456789ABCDEF";
  std::string result;
  for (const char ch : text) {
    const auto c = static_cast<unsigned char>(ch);
    if (isUnreserved(c)) {
      result += ch;
    } else {
      result += '%';
      result += hex[c >> 4];
      result += hex[c & 0xF];
    }
  }
  return result;
}

}  // namespace

std::optional<std::string> ListenerKeyboardNavigation::nextID(const std::vector<std::string>& ids,
                                                             const std::optional<std::string>& selectedID,
                                                             int delta) {
  if (ids.empty()) return std::nullopt;
  const auto count = static_cast<int64_t>(ids.size());
  const auto selected = selectedID ? std::find(ids.begin(), ids.end(), *selectedID) : ids.end();
  const int64_t start = selected != ids.end() ? selected - ids.begin() : (delta > 0 ? -1 : 0);
  const int64_t index = ((start + delta) % count + count) % count;
  return ids[static_cast<size_t>(index)];
}

std::optional<ListenerKeyboardAction> ListenerKeyboardAction::forKey(char32_t key, const PortListener& listener,
                                                                     const SafetyContext& context,
                                                                     bool hasFocusLabel) {
  ListenerKeyboardAction action;
  switch (key) {
    case U'o':
    case U'O':
      action.url = openableURL(listener);
      if (action.url) action.kind = Kind::open;
      return action;
    case U't':
    case U'T':
      if (hasFocusLabel) action.kind = Kind::focus;
      return action;
    case U'k':
    case U'K':
      if ((action.stopPool = StopPoolRequest::request(listener, context))) {
        action.kind = Kind::stopPool;
      } else if ((action.kill = KillRequest::request(listener, context))) {
        action.kind = Kind::kill;
      }
      return action;
    default:
      return std::nullopt;
  }
}

std::vector<ListenerActionMenu::Item> ListenerActionMenu::items(bool hasURL, bool canKill, bool canForceKill,
                                                                bool canStopPool, bool canFocus) {
  using Action = Item::Action;
  constexpr std::string_view confirm = "Requires confirmation";
  std::vector<Item> result;
  bool anyDestructive = false;
  const auto add = [&](Action action, std::string_view title, std::string_view hint, bool destructive) {
    result.push_back({action, std::string(title), std::string(hint), destructive, destructive && !anyDestructive});
    anyDestructive = anyDestructive || destructive;
  };
  if (hasURL) {
    add(Action::openInBrowser, "Open in Browser", "\u21B5", false);
    add(Action::copyURL, "Copy URL", "", false);
  }
  add(Action::copyPort, "Copy Port", "", false);
  add(Action::copyDetails, "Copy Details", "", false);
  if (canFocus) add(Action::focusApp, "Focus App", "", false);
  if (canKill && !canStopPool) add(Action::kill, "Kill Process", confirm, true);
  if (canForceKill && !canStopPool) add(Action::forceKill, "Force Kill", confirm, true);
  if (canStopPool) add(Action::stopPool, "Stop Pool", confirm, true);
  return result;
}

std::string ListenerActionMenu::accessibilityTitle(const PortListener& listener) {
  return "Actions for " + listener.process.displayName() + " on port " + std::to_string(listener.port);
}

std::string ListenerActionMenu::detailsText(const PortListener& listener) {
  std::string text = "Process: " + listener.process.displayName() +
                     "\nPID: " + std::to_string(listener.process.identity.pid) +
                     "\nPort: " + std::to_string(listener.port) +
                     "\nBind: " + std::string(badgeWord(listener.bindScope));
  if (const auto url = openableURL(listener)) text += "\nURL: " + *url;
  if (listener.agentOrigin) text += "\nAgent: " + std::string(displayName(*listener.agentOrigin));
  return text;
}

namespace PanelTexts {

std::string tooltipText(const PortListener& listener) {
  std::string text;
  if (const auto url = openableURL(listener)) text += *url + "\n";
  text += "PID " + std::to_string(listener.process.identity.pid);
  if (const auto label = classificationDisplayLabel(listener)) text += "\nDetected: " + *label;
  if (listener.host) text += "\nLaunched from: " + std::string(displayName(listener.host->kind));
  if (listener.project) text += "\nProject: " + listener.project->name;
  return text;
}

std::string activityLabel(ActivityLevel level) {
  switch (level) {
    case ActivityLevel::high: return "High activity";
    case ActivityLevel::medium: return "Medium activity";
    case ActivityLevel::low: return "Low activity";
    case ActivityLevel::unknown: return "Activity unknown";
  }
  return "Activity unknown";
}

std::optional<std::string> listenerCountText(PanelMode mode, int currentSessions, const PortsPane& pane) {
  if (mode == PanelMode::agents) return counted(currentSessions, "agent");
  if (!pane.scopedResult) return std::nullopt;
  const auto all = static_cast<int>(pane.scopedResult->visible().size());
  if (pane.filter == FilterCategory::all && searchIsEmpty(pane.searchText)) return counted(all, "listener");
  int shown = all;
  if (pane.model.hasNoMatches()) shown = 0;
  if (const auto* rows = std::get_if<ListenerListModel::Rows>(&pane.model.content)) {
    shown = static_cast<int>(rows->visible.size());
  }
  return std::to_string(shown) + " of " + std::to_string(all);
}

std::string listFooterText(const PortsPane& pane) {
  if (pane.exactAgentScope) return std::string(scopedFooter);
  if (isAgentFilter(pane.filter)) {
    const int n = pane.scopedResult ? agentCount(pane.filter, pane.scopedResult->agentPresence) : 0;
    if (n < 1) return std::string(agentAttributedFooter);
    const auto kind = provider(pane.filter);
    // Under the all-agents chip the word is "agent", so this reads "2 agent agents running".
    const std::string word = kind ? std::string(displayName(*kind)) : "agent";
    return std::to_string(n) + " " + word + (n == 1 ? " agent" : " agents") + " running \u00B7 see Agents for sessions";
  }
  const int hidden = pane.model.hiddenCount();
  if (hidden < 1) return std::string(keyHint);
  if (pane.showSystem) return std::string(systemShownFooter);
  return counted(hidden, "system & background listener") + " hidden";
}

std::optional<EmptyState> emptyState(const PortsPane& pane) {
  if (pane.failure) return EmptyState{*pane.failure, std::nullopt, {"Try Again"}};
  if (!pane.scopedResult) return std::nullopt;
  const bool noListeners = std::holds_alternative<ListenerListModel::NoListeners>(pane.model.content);
  if (!noListeners && !pane.model.hasNoMatches()) return std::nullopt;

  // Under an agent chip the emptiness is about the agents, so say how many run.
  const bool agentChoice = isAgentFilter(pane.filter) && searchIsEmpty(pane.searchText);
  const auto agentSessions = [&pane] {
    const int count = agentCount(pane.filter, pane.scopedResult->agentPresence);
    return EmptyState{agentSessionTitle(count, pane.filter), agentSessionDetail(count, pane.filter),
                      {"View Agents", "Show all"}};
  };
  if (noListeners) {
    if (pane.exactAgentScope) {
      return EmptyState{"No ports related to this agent right now",
                        "Related listeners appear here while the agent's servers are running.",
                        {"Remove scope"}};
    }
    if (agentChoice) return agentSessions();
    return EmptyState{"No local listeners", emptyStateDetail(pane.scopedResult->agentPresence), {}};
  }
  if (agentChoice) return agentSessions();
  return EmptyState{"No matching listeners", std::nullopt, {"Clear filters"}};
}

std::string agentSessionTitle(int count, FilterCategory filter) {
  const auto kind = provider(filter);
  if (count < 1) {
    return kind ? "No " + std::string(displayName(*kind)) + " sessions detected" : "No agent sessions detected";
  }
  return counted(count, kind ? std::string(displayName(*kind)) + " session" : "agent session") + " running";
}

std::string agentSessionDetail(int count, FilterCategory filter) {
  if (count >= 1) return "None currently has an attributed local listener.";
  const auto kind = provider(filter);
  return "No local listeners are attributed to " +
         (kind ? std::string(displayName(*kind)) : std::string("Codex or Claude Code")) + " either.";
}

std::string emptyStateDetail(const AgentProcessPresenceSnapshot& presence) {
  const int total = presence.totalCount();
  if (total < 1) return "Nothing is listening on a local port right now.";
  return std::to_string(total) + (total == 1 ? " agent session is" : " agent sessions are") +
         " running, but none has an attributed local listener.";
}

std::string scopeChipText(AgentKind provider) {
  return "Ports related to this " + std::string(providerWord(provider)) + " agent";
}

std::string scopeChipHelp(AgentKind provider) {
  return "Remove exact agent scope: ports related to this " + std::string(providerWord(provider)) + " agent";
}

std::string supportMailURL(std::string_view address, std::string_view version, std::string_view osVersion) {
  const auto known = [](std::string_view value) { return value.empty() ? std::string("unknown") : std::string(value); };
  const std::string body =
      "What can we help with?\n\nTidewatch version: " + known(version) + "\nOS version: " + known(osVersion);
  return "mailto:" + std::string(address) + "?subject=" + percentEncoded("Tidewatch feedback") +
         "&body=" + percentEncoded(body);
}

}  // namespace PanelTexts

}  // namespace tidewatch
