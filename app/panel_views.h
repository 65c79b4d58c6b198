// What the panel's views decide and say, as plain functions of values: the list's keyboard, the row
// menu, the tooltip and badges, the header count, the footer and the empty states of the ports
// pane, and the support mail draft. The QML only calls these, so every word is tested here.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "inventory/agent_inventory_list_model.h"
#include "process_core/activity_level.h"
#include "tidewatch_kit/listener_actions.h"
#include "tidewatch_kit/listener_list_model.h"
#include "tidewatch_kit/listener_records.h"

namespace tidewatch {

namespace ListenerKeyboardNavigation {
// The row an arrow press selects among the visible rows' ids: from the selection's place, or from
// just outside the list when nothing (or a vanished row) is selected, wrapping at both ends.
std::optional<std::string> nextID(const std::vector<std::string>& ids, const std::optional<std::string>& selectedID,
                                  int delta);
}  // namespace ListenerKeyboardNavigation

struct ListenerKeyboardAction {
  enum class Kind { open, stopPool, kill, focus, unavailable };
  Kind kind = Kind::unavailable;
  std::optional<std::string> url;           // open
  std::optional<StopPoolRequest> stopPool;  // stopPool
  std::optional<KillRequest> kill;          // kill

  // What O, T or K (either case) does on the selected row; absent for any other key. A pool is
  // stopped as a whole, so K asks for the pool stop before a single process kill.
  static std::optional<ListenerKeyboardAction> forKey(char32_t key, const PortListener& listener,
                                                      const SafetyContext& context, bool hasFocusLabel);
};

struct ListenerActionMenu {
  struct Item {
    enum class Action { openInBrowser, copyURL, copyPort, copyDetails, focusApp, kill, forceKill, stopPool };
    Action action = Action::copyPort;
    std::string title;
    std::string hint;  // "↵", "Requires confirmation" or empty
    bool destructive = false;
    bool dividerBefore = false;  // the first destructive item only

    friend bool operator==(const Item&, const Item&) = default;
  };

  // The row's menu in order; a pool offers its stop in place of the two process kills.
  static std::vector<Item> items(bool hasURL, bool canKill, bool canForceKill, bool canStopPool, bool canFocus);
  // "Actions for <name> on port <port>".
  static std::string accessibilityTitle(const PortListener& listener);
  // What "Copy Details" puts on the clipboard: one labelled fact a line, unknown facts left out.
  static std::string detailsText(const PortListener& listener);
};

namespace PanelTexts {

inline constexpr std::string_view keyHint = "\u2191\u2193 select \u00B7 O open \u00B7 T focus \u00B7 K stop";
inline constexpr std::string_view visibleStopHelp = "Gracefully stop actionable processes behind visible rows";
inline constexpr std::string_view scopedFooter = "Showing only ports this agent's processes own";
inline constexpr std::string_view agentAttributedFooter = "Showing agent-attributed ports";
inline constexpr std::string_view systemShownFooter = "Showing system & background listeners";
inline constexpr std::string_view providerSessionWithoutProcess =
    "A provider session was reported. No local agent process has been confirmed.";
inline constexpr std::string_view lastScannedPrefix = "Ports last scanned at ";
inline constexpr std::string_view connectionsPromise =
    "Tidewatch receives the provider, event type, session identifier, project folder name, and local parent "
    "process. It does not receive prompts, responses, transcript contents, or tool payloads.";
inline constexpr std::string_view updateCadence = "Checks weekly and always asks before installing.";

// What the ports pane's words are read from.
struct PortsPane {
  std::optional<ScanResult> scopedResult;  // the loaded scan, cut to the exact agent scope while set
  std::optional<std::string> failure;      // the failed scan's message; neither of the two: loading
  ListenerListModel model;                 // built over scopedResult with the choices below
  FilterCategory filter = FilterCategory::all;
  std::string searchText;  // as typed
  bool exactAgentScope = false;
  bool showSystem = false;
};

// The row's tooltip: URL, pid, detected kind, launching app and project, one a line.
std::string tooltipText(const PortListener& listener);
// The activity light's label, "High activity" ... "Activity unknown".
std::string activityLabel(ActivityLevel level);
// The header's count: agent sessions in the agents mode, listeners of a loaded scan in the ports
// mode ("12 listeners", or "3 of 12" under a filter or search); absent otherwise.
std::optional<std::string> listenerCountText(PanelMode mode, int currentSessions, const PortsPane& pane);
// The line under the port list; the key hint when nothing more pressing needs saying.
std::string listFooterText(const PortsPane& pane);

struct EmptyState {
  std::string title;
  std::optional<std::string> detail;
  std::vector<std::string> actions;

  friend bool operator==(const EmptyState&, const EmptyState&) = default;
};

// What stands in place of the list when no rows show; absent while loading or with rows.
std::optional<EmptyState> emptyState(const PortsPane& pane);
// "No Codex sessions detected", "2 agent sessions running", ...; count as for the agent filter.
std::string agentSessionTitle(int count, FilterCategory filter);
// The line under agentSessionTitle.
std::string agentSessionDetail(int count, FilterCategory filter);
// Under "No local listeners": whether agents run all the same.
std::string emptyStateDetail(const AgentProcessPresenceSnapshot& presence);

// The header chip of an exact agent scope ("Ports related to this Codex agent") and its help.
std::string scopeChipText(AgentKind provider);
std::string scopeChipHelp(AgentKind provider);

// A mailto URL to the address with a subject and a body naming the version and the system
// ("unknown" for an empty one), its query percent-encoded.
std::string supportMailURL(std::string_view address, std::string_view version, std::string_view osVersion);

}  // namespace PanelTexts

}  // namespace tidewatch
