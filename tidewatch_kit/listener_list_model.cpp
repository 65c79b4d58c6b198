#include "tidewatch_kit/listener_list_model.h"
#include "process_core/text.h"
#include "process_core/raw_values.h"


#include <algorithm>
#include <array>

namespace tidewatch {
namespace {

constexpr std::array<std::string_view, 12> categoryRaws{
    "all", "agents", "codex", "claude", "web", "node", "python", "rubyRails", "go", "bun", "deno", "other"};
constexpr std::array<std::string_view, 12> categoryNames{
    "All", "Agents", "Codex", "Claude", "Web", "Node", "Python", "Ruby/Rails", "Go", "Bun", "Deno", "Other"};
constexpr std::array<std::string_view, 3> settingRaws{"agents", "all", "lastUsed"};

constexpr std::string_view webServerGuess = "Web server?";


// Tests the fields of one haystack against a normalized query, reusing one buffer.
class Needle {
 public:
  explicit Needle(std::string_view query) : query_(query) {}

  // Whether one field of the listener's haystack holds the query.
  bool inHaystackOf(const PortListener& listener);

  bool in(std::string_view field) const { return field.find(query_) != std::string_view::npos; }

  bool inLowercased(std::string_view field) {
    scratch_.clear();
    appendLowercased(field, scratch_);
    return in(scratch_);
  }

  bool inJoinedLowercased(const std::vector<std::string>& pieces) {
    scratch_.clear();
    for (size_t i = 0; i < pieces.size(); ++i) {
      if (i > 0) scratch_.push_back(' ');
      appendLowercased(pieces[i], scratch_);
    }
    return in(scratch_);
  }

 private:
  std::string_view query_;
  std::string scratch_;
};

bool Needle::inHaystackOf(const PortListener& listener) {
  if (query_.empty()) return true;
  const ProcessSnapshot& process = listener.process;
  const ServiceClassification& c = listener.classification;

  if (in(std::to_string(listener.port))) return true;
  if (inLowercased(process.displayName())) return true;
  if (inLowercased(c.label)) return true;
  if (c.runtime && in(rawValue(*c.runtime))) return true;
  if (c.framework && inLowercased(displayName(*c.framework))) return true;
  if (c.service && in(rawValue(*c.service))) return true;
  if (process.name && inLowercased(*process.name)) return true;
  if (process.executablePath && inLowercased(*process.executablePath)) return true;
  if (process.argv && inJoinedLowercased(*process.argv)) return true;
  if (listener.agentOrigin) {
    if (in(rawValue(*listener.agentOrigin))) return true;
    if (inLowercased(displayName(*listener.agentOrigin))) return true;
  }
  if (listener.host) {
    // The raw value stays as it is, so "claudeDesktop" is met only through its display name.
    if (in(rawValue(listener.host->kind))) return true;
    if (inLowercased(displayName(listener.host->kind))) return true;
  }
  if (listener.project) {
    if (inLowercased(listener.project->name)) return true;
    if (listener.project->path && inLowercased(*listener.project->path)) return true;
  }
  return false;
}

template <typename Listeners, typename Access>
std::vector<FilterCategory> categoriesPresent(const Listeners& listeners, Access access) {
  std::array<bool, std::size(allFilterCategories)> present{};
  present[static_cast<size_t>(FilterCategory::all)] = true;
  for (const auto& item : listeners) {
    const PortListener& listener = access(item);
    for (FilterCategory category : allFilterCategories) {
      auto& seen = present[static_cast<size_t>(category)];
      if (!seen) seen = ListenerFilter::matches(listener, category);
    }
  }
  std::vector<FilterCategory> result;
  for (FilterCategory category : allFilterCategories) {
    if (present[static_cast<size_t>(category)]) result.push_back(category);
  }
  return result;
}

}  // namespace

std::string_view rawValue(FilterCategory category) { return categoryRaws[static_cast<size_t>(category)]; }
std::string_view displayName(FilterCategory category) { return categoryNames[static_cast<size_t>(category)]; }

std::optional<FilterCategory> filterCategoryFromRaw(std::string_view raw) {
  return enumFromRaw<FilterCategory>(categoryRaws, raw);
}

std::string_view rawValue(DefaultFilterSetting setting) { return settingRaws[static_cast<size_t>(setting)]; }

std::optional<DefaultFilterSetting> defaultFilterSettingFromRaw(std::string_view raw) {
  return enumFromRaw<DefaultFilterSetting>(settingRaws, raw);
}

int ListenerListModel::hiddenCount() const {
  const auto* rows = std::get_if<Rows>(&content);
  return rows ? static_cast<int>(rows->hidden.size()) : 0;
}

bool ListenerFilter::matches(const PortListener& listener, FilterCategory category) {
  const ServiceClassification& c = listener.classification;
  switch (category) {
    case FilterCategory::all: return true;
    case FilterCategory::agents: return listener.agentOrigin.has_value();
    case FilterCategory::codex: return listener.agentOrigin == AgentKind::codex;
    case FilterCategory::claude: return listener.agentOrigin == AgentKind::claude;
    case FilterCategory::web: return c.framework.has_value() || c.label == webServerGuess;
    case FilterCategory::node: return c.runtime == Runtime::node;
    case FilterCategory::python: return c.runtime == Runtime::python;
    case FilterCategory::rubyRails:
      return c.runtime == Runtime::ruby || c.framework == Framework::rails || c.framework == Framework::puma;
    case FilterCategory::go: return c.runtime == Runtime::go;
    case FilterCategory::bun: return c.runtime == Runtime::bun;
    case FilterCategory::deno: return c.runtime == Runtime::deno;
    case FilterCategory::other: return !c.runtime && !c.framework && c.label != webServerGuess;
  }
  return false;
}

std::vector<FilterCategory> ListenerFilter::availableCategories(const std::vector<PortListener>& listeners) {
  return categoriesPresent(listeners, [](const PortListener& listener) -> const PortListener& { return listener; });
}

std::string ListenerSearch::normalizedQuery(std::string_view query) {
  std::string result;
  appendLowercased(trimmedWhitespace(query), result);
  return result;
}

bool ListenerSearch::matches(std::string_view query, const PortListener& listener) {
  return matchesNormalized(normalizedQuery(query), listener);
}

bool ListenerSearch::matchesNormalized(std::string_view query, const PortListener& listener) {
  Needle needle(query);
  return needle.inHaystackOf(listener);
}

std::vector<FilterCategory> PortsChipRail::categories(const std::vector<FilterCategory>& available,
                                                      FilterCategory active) {
  std::vector<FilterCategory> result;
  for (FilterCategory category : allFilterCategories) {
    if (category == active || std::find(available.begin(), available.end(), category) != available.end()) {
      result.push_back(category);
    }
  }
  return result;
}

FilterCategory ListenerDefaultFilterResolver::resolve(std::optional<DefaultFilterSetting> setting,
                                                      bool hasAttributedListeners,
                                                      std::optional<FilterCategory> lastUsed) {
  if (setting == DefaultFilterSetting::all) return FilterCategory::all;
  if (setting == DefaultFilterSetting::lastUsed && lastUsed && *lastUsed != FilterCategory::agents) {
    return *lastUsed;
  }
  return hasAttributedListeners ? FilterCategory::agents : FilterCategory::all;
}

ListenerListModel ListenerListModel::build(const ScanResult& result, const ListenerPreferences& preferences) {
  std::vector<const PortListener*> visible;
  std::vector<const PortListener*> hidden;
  for (const auto& listener : result.listeners) {
    if (listener.visibility == VisibilityClass::defaultVisible) visible.push_back(&listener);
    if (listener.visibility == VisibilityClass::hiddenSystemBackground) hidden.push_back(&listener);
  }

  ListenerListModel model;
  model.chips = categoriesPresent(visible, [](const PortListener* listener) -> const PortListener& { return *listener; });
  model.activeChipIsStale =
      std::find(model.chips.begin(), model.chips.end(), preferences.filter) == model.chips.end();
  if (visible.empty() && hidden.empty()) {
    model.content = NoListeners{};
    return model;
  }

  const std::string query = ListenerSearch::normalizedQuery(preferences.searchText);
  Needle needle(query);  // one buffer for every row
  const auto shown = [&](const std::vector<const PortListener*>& listeners) {
    std::vector<PortListener> kept;
    for (const PortListener* listener : listeners) {
      if (ListenerFilter::matches(*listener, preferences.filter) && needle.inHaystackOf(*listener)) {
        kept.push_back(*listener);
      }
    }
    return ListenerSorter::sorted(std::move(kept), preferences.sortMode, preferences.activityByID);
  };
  Rows rows{shown(visible), shown(hidden)};
  if (rows.visible.empty() && rows.hidden.empty()) {
    model.content = NoMatches{};
  } else {
    model.content = std::move(rows);
  }
  return model;
}

}  // namespace tidewatch
