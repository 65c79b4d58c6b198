#include "app/window_focus.h"

#include <gtest/gtest.h>

#include <map>

namespace tidewatch {
namespace {

using WindowFocus::ClientWindow;

TEST(WindowFocus, ChoosesTheHostsTopmostShownWindowOrItsNearestAncestors) {
  // 300 (a shell) under 200 (a terminal's server) under 100 (the session); 400 elsewhere.
  const std::map<int32_t, int32_t> parents{{300, 200}, {200, 100}, {100, 1}, {400, 1}, {500, 300}};
  const auto parentOf = [&](int32_t pid) -> std::optional<int32_t> {
    const auto found = parents.find(pid);
    return found == parents.end() ? std::nullopt : std::optional(found->second);
  };
  const std::vector<ClientWindow> stacking{
      {0x10, 200, 0, false}, {0x11, 200, 1, false}, {0x12, 200, 0, true},
      {0x20, 400, 0, true},  {0x30, 0, 0, false},
  };
  struct Case {
    const char* name;
    int32_t pid;
    std::optional<uint32_t> expected;
  };
  const Case cases[] = {
      {"its own topmost shown window", 200, 0x11},
      {"an ancestor's window", 300, 0x11},
      {"two steps up", 500, 0x11},
      {"only a minimised one", 400, 0x20},
      {"none up to init", 100, std::nullopt},
      {"an unknown process", 999, std::nullopt},
  };
  for (const auto& c : cases) {
    const auto chosen = WindowFocus::choose(stacking, c.pid, parentOf);
    EXPECT_EQ(chosen ? std::optional(chosen->id) : std::nullopt, c.expected) << c.name;
  }
  // A cycle in a bad process table still ends.
  EXPECT_FALSE(WindowFocus::choose({}, 7, [](int32_t pid) { return std::optional<int32_t>(pid == 7 ? 8 : 7); }));
}

TEST(WindowFocus, SwitchesWorkspaceOnlyForAWindowOnAnotherOne) {
  EXPECT_EQ(WindowFocus::desktopToShow({1, 2, 3, false}, 0u), 3u);
  EXPECT_EQ(WindowFocus::desktopToShow({1, 2, 0, false}, 0u), std::nullopt);
  EXPECT_EQ(WindowFocus::desktopToShow({1, 2, WindowFocus::everyDesktop, false}, 0u), std::nullopt);
  EXPECT_EQ(WindowFocus::desktopToShow({1, 2, std::nullopt, false}, 0u), std::nullopt);
}

}  // namespace
}  // namespace tidewatch
