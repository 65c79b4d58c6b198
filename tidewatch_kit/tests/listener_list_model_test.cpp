#include "tidewatch_kit/listener_list_model.h"

#include <gtest/gtest.h>

#include <set>

#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

using testing::pids;
using testing::Row;
using FC = FilterCategory;

ScanResult scanOf(std::vector<PortListener> listeners) {
  ScanResult result;
  result.listeners = std::move(listeners);
  return result;
}

const ListenerListModel::Rows& rowsOf(const ListenerListModel& model) {
  static const ListenerListModel::Rows none;
  const auto* rows = std::get_if<ListenerListModel::Rows>(&model.content);
  EXPECT_NE(rows, nullptr) << "expected rows";
  return rows ? *rows : none;
}

TEST(ListenerFilter, MembershipOfEachCategory) {
  struct Case {
    const char* what;
    PortListener listener;
    std::set<FC> categories;
  };
  const Case cases[] = {
      {"vite on node", Row(1, 5173).classified(Runtime::node, Framework::vite, "Vite"), {FC::all, FC::web, FC::node}},
      {"web server guess", Row(2, 8000).classified(std::nullopt, std::nullopt, "Web server?"), {FC::all, FC::web}},
      {"a database is other", Row(3, 5432).classified(std::nullopt, std::nullopt, "Postgres", KnownService::postgres),
       {FC::all, FC::other}},
      {"unclassified", Row(4, 9999), {FC::all, FC::other}},
      {"rails on ruby", Row(5, 3000).classified(Runtime::ruby, Framework::rails, "Rails"),
       {FC::all, FC::web, FC::rubyRails}},
      {"puma alone", Row(6, 9292).classified(std::nullopt, Framework::puma, "Puma"), {FC::all, FC::web, FC::rubyRails}},
      {"plain python", Row(7, 8001).classified(Runtime::python, std::nullopt, "Python"), {FC::all, FC::python}},
      {"go", Row(8, 8002).classified(Runtime::go, std::nullopt, "Go"), {FC::all, FC::go}},
      {"bun", Row(9, 8003).classified(Runtime::bun, std::nullopt, "Bun"), {FC::all, FC::bun}},
      {"deno", Row(10, 8004).classified(Runtime::deno, std::nullopt, "Deno"), {FC::all, FC::deno}},
      {"codex child", Row(11, 8005).agent(AgentKind::codex), {FC::all, FC::agents, FC::codex, FC::other}},
      {"claude child on node", Row(12, 8006).classified(Runtime::node, std::nullopt, "Node").agent(AgentKind::claude),
       {FC::all, FC::agents, FC::claude, FC::node}},
  };
  for (const auto& c : cases) {
    std::set<FC> found;
    for (FC category : allFilterCategories) {
      if (ListenerFilter::matches(c.listener, category)) found.insert(category);
    }
    EXPECT_EQ(found, c.categories) << c.what;
  }
}

TEST(ListenerFilter, AvailableCategoriesInChipOrder) {
  const std::vector<PortListener> listeners = {
      Row(1, 1).classified(Runtime::deno, std::nullopt, "Deno"),
      Row(2, 2).agent(AgentKind::claude),
      Row(3, 3).classified(Runtime::node, Framework::next, "Next.js"),
  };
  EXPECT_EQ(ListenerFilter::availableCategories(listeners),
            (std::vector<FC>{FC::all, FC::agents, FC::claude, FC::web, FC::node, FC::deno, FC::other}));
  EXPECT_EQ(ListenerFilter::availableCategories({}), std::vector<FC>{FC::all});
}

TEST(ListenerSearch, OneFieldMustHoldTheWholeQuery) {
  const std::vector<PortListener> listeners = {
      Row(1, 3000).path("/usr/bin/node").classified(Runtime::node, Framework::vite, "Vite").argv({"node", "vite"}),
      Row(2, 8080).path("/srv/app3000/bin/server"),
      Row(3, 9000).path("/usr/bin/python3").argv({"python3", "-m", "http.server", "--port", "3000"})
          .classified(Runtime::python, Framework::next, "Next.js"),
      Row(4, 4000).path("/opt/agent/bin/api").agent(AgentKind::claude).host(HostAppKind::claudeDesktop)
          .project("École", "/home/dev/work/ecole"),
      Row(5, 6379).name("redis-server").classified(std::nullopt, std::nullopt, "Redis", KnownService::redis)
          .host(HostAppKind::iterm2).project("myshop", std::nullopt),
  };
  struct Case {
    std::string query;
    std::vector<int32_t> matching;
  };
  const Case cases[] = {
      {"", {1, 2, 3, 4, 5}},
      {" \t\n", {1, 2, 3, 4, 5}},
      {"3000", {1, 2, 3}},  // port, path, argument
      {"  VITE \n", {1}},
      {"--port 3000", {3}},  // argv joined with blanks is one field
      {"vite 3000", {}},     // no match across two fields
      {"next.js", {3}},
      {"python", {3}},
      {"redis", {5}},
      {"claude code", {4}},  // agent display name
      {"claude desktop", {4}},
      {"claudedesktop", {}},  // the host's raw value is not lower-cased
      {"iterm2", {5}},
      {"myshop", {5}},
      {"/home/dev/work", {4}},
      {"\u00C9COLE", {4}},  // lower-casing reaches beyond ASCII
      {"\u3000api\u00A0", {4}},  // Unicode blanks are trimmed too
      {"nothing like it", {}},
  };
  for (const auto& c : cases) {
    std::vector<int32_t> found;
    for (const auto& listener : listeners) {
      if (ListenerSearch::matches(c.query, listener)) found.push_back(listener.process.identity.pid);
    }
    EXPECT_EQ(found, c.matching) << "query: " << c.query;
  }
}

TEST(ListenerListModel, EmptyScanHasNoListenersWhateverTheChoices) {
  ListenerPreferences preferences;
  preferences.searchText = "anything";
  const auto model = ListenerListModel::build(scanOf({}), preferences);
  EXPECT_EQ(model.content, ListenerListModel::Content(ListenerListModel::NoListeners{}));
  EXPECT_EQ(model.chips, std::vector<FC>{FC::all});
  EXPECT_FALSE(model.activeChipIsStale);
  EXPECT_EQ(model.hiddenCount(), 0);

  preferences.filter = FC::codex;
  const auto stale = ListenerListModel::build(scanOf({}), preferences);
  EXPECT_TRUE(stale.activeChipIsStale) << "chips alone decide, also with no rows";
  EXPECT_FALSE(stale.hasNoMatches());
}

TEST(ListenerListModel, HiddenRowsShowButMakeNoChips) {
  const auto model = ListenerListModel::build(
      scanOf({Row(1, 631).classified(std::nullopt, std::nullopt, "Unknown").agent(AgentKind::codex).hidden(),
              Row(2, 1).visibility(VisibilityClass::unavailable)}),
      {});
  EXPECT_TRUE(rowsOf(model).visible.empty());
  EXPECT_EQ(pids(rowsOf(model).hidden), std::vector<int32_t>{1});
  EXPECT_EQ(model.hiddenCount(), 1);
  EXPECT_EQ(model.chips, std::vector<FC>{FC::all});
}

TEST(ListenerListModel, AStaleFilterKeepsItsChipAndShowsNoMatches) {
  const ScanResult result = scanOf({Row(1, 3000).classified(Runtime::node, std::nullopt, "Node"),
                                    Row(2, 5432).classified(std::nullopt, std::nullopt, "Postgres")});
  ListenerPreferences preferences;
  preferences.filter = FC::codex;
  const auto model = ListenerListModel::build(result, preferences);
  EXPECT_TRUE(model.activeChipIsStale);
  EXPECT_TRUE(model.hasNoMatches());
  EXPECT_EQ(model.chips, (std::vector<FC>{FC::all, FC::node, FC::other}));
  EXPECT_EQ(PortsChipRail::categories(model.chips, preferences.filter),
            (std::vector<FC>{FC::all, FC::codex, FC::node, FC::other}));
  EXPECT_EQ(PortsChipRail::categories(model.chips, FC::node), model.chips);
}

TEST(ListenerListModel, FiltersSearchesAndSortsBothSections) {
  const std::vector<PortListener> listeners = {
      Row(1, 5173).path("/usr/bin/node").classified(Runtime::node, Framework::vite, "Vite").memory(10),
      Row(2, 3000).path("/usr/bin/node").classified(Runtime::node, std::nullopt, "Node").memory(30),
      Row(3, 8000).path("/usr/bin/python3").classified(Runtime::python, std::nullopt, "Python").memory(99),
      Row(4, 4000).path("/usr/lib/node-sidecar").classified(Runtime::node, std::nullopt, "Node").hidden(),
      Row(5, 4001).path("/usr/lib/other").classified(Runtime::node, std::nullopt, "Node").hidden().memory(5),
  };
  ListenerPreferences preferences;
  preferences.filter = FC::node;
  preferences.sortMode = ListenerSortMode::memory;
  auto model = ListenerListModel::build(scanOf(listeners), preferences);
  EXPECT_EQ(pids(rowsOf(model).visible), (std::vector<int32_t>{2, 1}));
  EXPECT_EQ(pids(rowsOf(model).hidden), (std::vector<int32_t>{5, 4}));
  EXPECT_FALSE(model.activeChipIsStale);

  preferences.searchText = "NODE";
  preferences.sortMode = ListenerSortMode::port;
  model = ListenerListModel::build(scanOf(listeners), preferences);
  EXPECT_EQ(pids(rowsOf(model).visible), (std::vector<int32_t>{2, 1}));
  EXPECT_EQ(pids(rowsOf(model).hidden), (std::vector<int32_t>{4, 5}));

  preferences.searchText = "sidecar";
  model = ListenerListModel::build(scanOf(listeners), preferences);
  EXPECT_TRUE(rowsOf(model).visible.empty());
  EXPECT_EQ(pids(rowsOf(model).hidden), std::vector<int32_t>{4});

  preferences.searchText = "python";
  model = ListenerListModel::build(scanOf(listeners), preferences);
  EXPECT_TRUE(model.hasNoMatches()) << "python is not in the node filter";
  EXPECT_EQ(model.hiddenCount(), 0);

  preferences.filter = FC::all;
  preferences.searchText = "";
  preferences.sortMode = ListenerSortMode::activity;
  preferences.activityByID = {{listeners[2].id(), ActivityLevel::high}};
  model = ListenerListModel::build(scanOf(listeners), preferences);
  EXPECT_EQ(pids(rowsOf(model).visible), (std::vector<int32_t>{3, 2, 1}));
}

TEST(ListenerDefaultFilterResolver, WhichFilterASessionStartsWith) {
  using DFS = DefaultFilterSetting;
  struct Case {
    std::optional<DFS> setting;
    bool attributed;
    std::optional<FC> lastUsed;
    FC expected;
  };
  const Case cases[] = {
      {DFS::all, true, FC::codex, FC::all},
      {DFS::lastUsed, false, FC::python, FC::python},
      {DFS::lastUsed, true, FC::all, FC::all},
      {DFS::lastUsed, false, FC::agents, FC::all},  // a remembered agents filter needs agents
      {DFS::lastUsed, true, FC::agents, FC::agents},
      {DFS::lastUsed, true, std::nullopt, FC::agents},
      {DFS::lastUsed, false, std::nullopt, FC::all},
      {DFS::agents, true, FC::python, FC::agents},
      {DFS::agents, false, FC::python, FC::all},
      {std::nullopt, true, FC::python, FC::agents},
      {std::nullopt, false, std::nullopt, FC::all},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ListenerDefaultFilterResolver::resolve(c.setting, c.attributed, c.lastUsed), c.expected)
        << (c.setting ? rawValue(*c.setting) : "absent") << " " << c.attributed;
  }
  // Settings and filters are remembered by their raw values.
  for (FC category : allFilterCategories) EXPECT_EQ(filterCategoryFromRaw(rawValue(category)), category);
  for (auto setting : allDefaultFilterSettings) EXPECT_EQ(defaultFilterSettingFromRaw(rawValue(setting)), setting);
  EXPECT_EQ(filterCategoryFromRaw("Codex"), std::nullopt);
  EXPECT_EQ(displayName(FC::rubyRails), "Ruby/Rails");
}

}  // namespace
}  // namespace tidewatch
