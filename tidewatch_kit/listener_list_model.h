// What the panel's port list shows of one scan under the user's choices: filtered, searched and
// sorted rows, the filter chips, and whether the active chip has gone stale. Pure functions of
// values, run again on every frame and every keystroke of the search field.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "tidewatch_kit/listener_records.h"
#include "tidewatch_kit/listener_sorter.h"

namespace tidewatch {

// The chips of the list, in chip order.
enum class FilterCategory { all, agents, codex, claude, web, node, python, rubyRails, go, bun, deno, other };
inline constexpr FilterCategory allFilterCategories[] = {
    FilterCategory::all,    FilterCategory::agents,    FilterCategory::codex, FilterCategory::claude,
    FilterCategory::web,    FilterCategory::node,      FilterCategory::python, FilterCategory::rubyRails,
    FilterCategory::go,     FilterCategory::bun,       FilterCategory::deno,  FilterCategory::other};
std::string_view rawValue(FilterCategory category);
std::string_view displayName(FilterCategory category);
std::optional<FilterCategory> filterCategoryFromRaw(std::string_view raw);

// Which filter a new session of the panel starts with.
enum class DefaultFilterSetting { agents, all, lastUsed };
inline constexpr DefaultFilterSetting allDefaultFilterSettings[] = {
    DefaultFilterSetting::agents, DefaultFilterSetting::all, DefaultFilterSetting::lastUsed};
std::string_view rawValue(DefaultFilterSetting setting);
std::optional<DefaultFilterSetting> defaultFilterSettingFromRaw(std::string_view raw);

struct ListenerPreferences {
  FilterCategory filter = FilterCategory::all;
  std::string searchText;  // as typed
  ListenerSortMode sortMode = ListenerSortMode::port;
  ActivityByID activityByID;  // the latest frame's activity by stableID
};

struct ListenerListModel {
  struct Rows {
    std::vector<PortListener> visible;
    std::vector<PortListener> hidden;
    friend bool operator==(const Rows&, const Rows&) = default;
  };
  struct NoListeners {
    friend bool operator==(const NoListeners&, const NoListeners&) = default;
  };
  struct NoMatches {
    friend bool operator==(const NoMatches&, const NoMatches&) = default;
  };
  using Content = std::variant<Rows, NoListeners, NoMatches>;

  Content content = NoListeners{};
  std::vector<FilterCategory> chips;
  bool activeChipIsStale = false;

  int hiddenCount() const;
  bool hasNoMatches() const { return std::holds_alternative<NoMatches>(content); }

  // Chips come from the visible rows alone; a stale filter is kept, its rows simply empty.
  static ListenerListModel build(const ScanResult& result, const ListenerPreferences& preferences);

  friend bool operator==(const ListenerListModel&, const ListenerListModel&) = default;
};

namespace ListenerFilter {
// Whether the listener belongs to the category; a listener can belong to several.
bool matches(const PortListener& listener, FilterCategory category);
// In chip order: `all`, and every other category that some listener belongs to.
std::vector<FilterCategory> availableCategories(const std::vector<PortListener>& listeners);
}  // namespace ListenerFilter

namespace ListenerSearch {
// The query as compared: whitespace and newlines trimmed from both ends, lower-cased.
std::string normalizedQuery(std::string_view query);
// Whether one field of the listener holds the whole query as a substring, case-insensitively. An
// empty query matches everything; words are not split, and no match spans two fields.
bool matches(std::string_view query, const PortListener& listener);
// As `matches`, with a query already normalized.
bool matchesNormalized(std::string_view normalizedQuery, const PortListener& listener);
}  // namespace ListenerSearch

namespace PortsChipRail {
// In chip order, the available categories and the active one, so a stale chip stays in its place.
std::vector<FilterCategory> categories(const std::vector<FilterCategory>& available, FilterCategory active);
}  // namespace PortsChipRail

namespace ListenerDefaultFilterResolver {
// `all` stays `all`; a remembered filter other than `agents` is taken; everything else is
// `agents` while some listener is attributed to an agent, else `all`.
FilterCategory resolve(std::optional<DefaultFilterSetting> setting, bool hasAttributedListeners,
                       std::optional<FilterCategory> lastUsed);
}  // namespace ListenerDefaultFilterResolver

}  // namespace tidewatch
