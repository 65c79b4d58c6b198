#include "app/global_shortcut.h"

#include <gtest/gtest.h>

#include <map>
#include <tuple>
#include <vector>

#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

using Modifier = GlobalShortcutModifier;
using Registration = GlobalShortcutManager::Registration;

TEST(GlobalShortcutKeyMap, DarwinCodesAreTheAnsiVirtualKeysAndLinuxTheLatin1Keysyms) {
  const auto& darwin = GlobalShortcutKeyMap::keyCodes();
  const auto& onLinux = GlobalShortcutKeyMap::linuxKeysyms();
  ASSERT_EQ(darwin.size(), 47u);
  ASSERT_EQ(onLinux.size(), 47u);
  const std::pair<std::string, uint32_t> telling[] = {{"a", 0},  {"z", 6},  {"p", 35}, {"1", 18}, {"0", 29}, {"`", 50},
                                                      {"b", 11}, {"5", 23}, {"=", 24}, {"]", 30}, {"'", 39}, {"\\", 42},
                                                      {",", 43}, {"/", 44}, {".", 47}, {"m", 46}};
  const auto& profile = GlobalShortcutProfile::darwin();
  for (const auto& [key, code] : telling) EXPECT_EQ(profile.keyCode(key), code) << key;
  for (const auto& [key, keysym] : onLinux) {
    EXPECT_EQ(keysym, static_cast<uint32_t>(key[0])) << key;
    EXPECT_TRUE(profile.keyCode(std::string(key))) << key;
  }
  EXPECT_EQ(GlobalShortcutProfile::forLinux().keyCode("f1"), std::nullopt);
}

TEST(GlobalShortcutKeyMap, PortalTriggersUseXkbcommonNames) {
  const std::tuple<uint32_t, uint32_t, std::optional<std::string>> cases[] = {
      {'p', 0x04 | 0x08, "CTRL+ALT+p"},
      {'1', 0x40 | 0x01, "SHIFT+LOGO+1"},
      {'`', 0x04, "CTRL+grave"},
      {'[', 0x08, "ALT+bracketleft"},
      {'\\', 0x04 | 0x01, "CTRL+SHIFT+backslash"},
      {'z', 0, "z"},
      {0xff0d, 0x04, std::nullopt},  // Return: not a key the shortcut can have
      {'A', 0x04, std::nullopt},     // keysyms of the table are lower case
  };
  for (const auto& [keysym, mask, expected] : cases) {
    EXPECT_EQ(GlobalShortcutKeyMap::portalTrigger(keysym, mask), expected) << keysym;
  }
  for (const auto& [key, keysym] : GlobalShortcutKeyMap::linuxKeysyms()) {
    EXPECT_TRUE(GlobalShortcutKeyMap::portalTrigger(keysym, 0x04)) << key;
  }
}

TEST(GlobalShortcutRoute, WaylandSessionsGoThroughThePortal) {
  const std::tuple<std::string_view, std::string_view, bool> cases[] = {
      {"wayland", "", true},
      {"", "wayland-0", true},
      {"x11", "", false},
      {"tty", "", false},
      {"", "", false},
  };
  for (const auto& [sessionType, waylandDisplay, portal] : cases) {
    EXPECT_EQ(globalShortcutThroughPortal(sessionType, waylandDisplay), portal) << sessionType << waylandDisplay;
  }
}

TEST(GlobalShortcutPreference, DisplayTextPerProfile) {
  const auto& darwin = GlobalShortcutProfile::darwin();
  const auto& onLinux = GlobalShortcutProfile::forLinux();
  struct Case {
    const GlobalShortcutProfile& profile;
    GlobalShortcutPreference preference;
    std::string expected;
  };
  const Case cases[] = {
      {darwin, GlobalShortcutPreference::defaultPreference(), "⌘⌥P"},
      {darwin, {"k", {Modifier::shift, Modifier::control, Modifier::option, Modifier::command}}, "⌘⌥⌃⇧K"},
      {onLinux, GlobalShortcutPreference::defaultPreference(), "Ctrl+Alt+P"},
      {onLinux, {";", {Modifier::shift, Modifier::control}}, "Shift+Super+;"},
  };
  for (const Case& c : cases) EXPECT_EQ(c.preference.displayText(c.profile), c.expected);
}

struct ShortcutStoreTest : ::testing::Test {
  testing::TemporaryDirectory directory;
  DefaultsStore store{directory.path() + "/defaults.json"};
};

TEST_F(ShortcutStoreTest, AStoredPreferenceFallsBackToTheDefaultUnlessItIsUsable) {
  const auto& profile = GlobalShortcutProfile::darwin();
  const auto fallback = GlobalShortcutPreference::defaultPreference();
  EXPECT_EQ(GlobalShortcutSettings::preference(store, profile), fallback);  // absent
  const std::pair<nlohmann::json, GlobalShortcutPreference> cases[] = {
      {R"({"key":"k","modifiers":["shift","control"]})", {"k", {Modifier::shift, Modifier::control}}},
      {"{\"key\":", fallback},
      {R"({"key":"k","modifiers":[]})", fallback},
      {R"({"key":"f1","modifiers":["command"]})", fallback},
      {R"({"key":"k","modifiers":["hyper"]})", fallback},
      {R"({"modifiers":["command"]})", fallback},
      {R"(["k"])", fallback},
      {nlohmann::json{{"key", "k"}, {"modifiers", {"shift"}}}, fallback},  // not JSON text
  };
  for (const auto& [stored, expected] : cases) {
    SCOPED_TRACE(stored.dump());
    ASSERT_TRUE(store.set("controls.globalShortcut", stored));
    EXPECT_EQ(GlobalShortcutSettings::preference(store, profile), expected);
    EXPECT_EQ(store.valueForKey("controls.globalShortcut"), stored);  // never rewritten on reading
  }
}

struct FakeHotKeys {
  std::vector<std::pair<uint32_t, uint32_t>> registered;  // every registration, in order
  std::map<std::pair<uint32_t, uint32_t>, Registration> refusals;
  int unregistered = 0;
  int handlersRemoved = 0;
  bool answersLater = false;
  std::function<void()> pressed;
  std::function<void(Registration)> settle;

  GlobalShortcutManager::Dependencies dependencies() {
    return {[this](std::function<void()> handler) { pressed = std::move(handler); }, [this] { ++handlersRemoved; },
            [this](uint32_t code, uint32_t mask) {
              if (refusals.contains({code, mask})) return refusals.at({code, mask});
              registered.emplace_back(code, mask);
              return answersLater ? Registration::pending : Registration::registered;
            },
            [this] { ++unregistered; }, [this](std::function<void(Registration)> settler) { settle = settler; }};
  }
};

struct ShortcutManagerTest : ShortcutStoreTest {
  FakeHotKeys keys;
  int actions = 0;
  int changes = 0;
  std::unique_ptr<GlobalShortcutManager> started(const GlobalShortcutProfile& profile) {
    auto manager = std::make_unique<GlobalShortcutManager>(store, profile, keys.dependencies());
    manager->onChange = [this] { ++changes; };
    manager->start([this] { ++actions; });
    return manager;
  }
};

TEST_F(ShortcutManagerTest, StartRegistersTheProfilesCodeAndMaskAndPressingRunsTheAction) {
  const std::pair<const GlobalShortcutProfile*, std::pair<uint32_t, uint32_t>> cases[] = {
      {&GlobalShortcutProfile::darwin(), {35, 0x100 | 0x800}},
      {&GlobalShortcutProfile::forLinux(), {0x70, 0x04 | 0x08}},
  };
  for (const auto& [profile, expected] : cases) {
    keys = {};
    auto manager = started(*profile);
    ASSERT_EQ(keys.registered, (std::vector{expected}));
    EXPECT_TRUE(manager->isRegistered());
    keys.pressed();
    EXPECT_EQ(actions, 1);
    manager->stop();
    EXPECT_EQ(keys.unregistered, 1);
    EXPECT_EQ(keys.handlersRemoved, 1);
    actions = 0;
  }
  EXPECT_GT(changes, 0);
}

TEST_F(ShortcutManagerTest, RefusedUpdatesKeepTheRegisteredShortcut) {
  auto manager = started(GlobalShortcutProfile::darwin());
  manager->update({"k", {}});
  EXPECT_EQ(manager->registrationError(), "Choose at least one modifier.");
  manager->update({"f1", {Modifier::command}});
  EXPECT_EQ(manager->registrationError(), "Choose a letter, number, or punctuation key.");
  EXPECT_EQ(manager->preference(), GlobalShortcutPreference::defaultPreference());
  EXPECT_EQ(keys.unregistered, 0);
  EXPECT_TRUE(manager->isRegistered());
  EXPECT_FALSE(store.valueForKey("controls.globalShortcut"));
}

TEST_F(ShortcutManagerTest, ATakenShortcutLeavesNoneAndAFreeOneClearsTheError) {
  keys.refusals = {{{40, 0x200}, Registration::taken}};
  auto manager = started(GlobalShortcutProfile::darwin());
  manager->update({"k", {Modifier::shift}});
  EXPECT_EQ(manager->registrationError(), "That shortcut is already in use by another app.");
  EXPECT_FALSE(manager->isRegistered());
  EXPECT_EQ(nlohmann::json::parse(store.stringForKey("controls.globalShortcut").value_or("")),
            nlohmann::json::parse(R"({"key":"k","modifiers":["shift"]})"));

  manager->update({"j", {Modifier::shift}});
  EXPECT_EQ(manager->registrationError(), std::nullopt);
  EXPECT_TRUE(manager->isRegistered());
  EXPECT_EQ(keys.registered.back(), std::pair(38u, 0x200u));
  EXPECT_EQ(manager->displayText(), "⇧J");
  EXPECT_EQ(keys.unregistered, 1);  // the default, released before "k" was tried
}

TEST_F(ShortcutManagerTest, RestoringTheDefaultEnablesADisabledShortcut) {
  ASSERT_TRUE(store.set("controls.globalShortcutEnabled", false));
  ASSERT_TRUE(GlobalShortcutSettings::setPreference({"k", {Modifier::shift}}, store));
  auto manager = started(GlobalShortcutProfile::forLinux());
  EXPECT_FALSE(manager->isEnabled());
  EXPECT_TRUE(keys.registered.empty());

  manager->restoreDefault();
  EXPECT_TRUE(manager->isEnabled());
  EXPECT_EQ(store.valueForKey("controls.globalShortcutEnabled"), true);
  EXPECT_EQ(manager->displayText(), "Ctrl+Alt+P");
  EXPECT_EQ(keys.registered, (std::vector{std::pair(0x70u, 0x0Cu)}));

  manager->setEnabled(false);
  EXPECT_EQ(keys.unregistered, 1);
  EXPECT_FALSE(store.boolForKey("controls.globalShortcutEnabled"));
}

TEST_F(ShortcutManagerTest, ASessionWithoutGlobalShortcutsSaysSo) {
  keys.refusals = {{{0x70, 0x0C}, Registration::unavailable}};
  auto manager = started(GlobalShortcutProfile::forLinux());
  EXPECT_EQ(manager->registrationError(), "This desktop session doesn't offer global shortcuts.");
  EXPECT_FALSE(manager->isRegistered());
}

TEST_F(ShortcutManagerTest, ALaterAnswerSettlesThePendingRegistration) {
  const std::pair<Registration, std::optional<std::string>> cases[] = {
      {Registration::registered, std::nullopt},
      {Registration::taken, "That shortcut is already in use by another app."},
      {Registration::unavailable, "This desktop session doesn't offer global shortcuts."},
      {Registration::declined, "The desktop declined the shortcut."},
      {Registration::unassigned, "Choose its keys in the desktop's keyboard shortcut settings."},
  };
  for (const auto& [answer, error] : cases) {
    keys = {};
    keys.answersLater = true;
    auto manager = started(GlobalShortcutProfile::forLinux());
    EXPECT_TRUE(manager->isPending());
    EXPECT_FALSE(manager->isRegistered());
    EXPECT_EQ(manager->registrationError(), std::nullopt);
    const int before = changes;
    keys.settle(answer);
    EXPECT_EQ(changes, before + 1);
    EXPECT_FALSE(manager->isPending());
    EXPECT_EQ(manager->isRegistered(), answer == Registration::registered);
    EXPECT_EQ(manager->registrationError(), error);
    const bool held = answer == Registration::registered || answer == Registration::unassigned;
    // The desktop may speak again of what it holds (the user changed the keys), never of a refusal.
    keys.settle(Registration::registered);
    EXPECT_EQ(manager->isRegistered(), held);
    manager.reset();
    EXPECT_EQ(keys.unregistered, held ? 1 : 0);  // a refusal left nothing to release
  }
}

TEST_F(ShortcutManagerTest, AChangeWhileWaitingWithdrawsTheRequestAndIgnoresItsAnswer) {
  keys.answersLater = true;
  auto manager = started(GlobalShortcutProfile::forLinux());
  manager->update({"k", {Modifier::command}});
  EXPECT_EQ(keys.unregistered, 1);  // the first request, withdrawn
  EXPECT_TRUE(manager->isPending());
  manager->setEnabled(false);
  EXPECT_EQ(keys.unregistered, 2);
  EXPECT_FALSE(manager->isPending());
  keys.settle(Registration::registered);
  EXPECT_FALSE(manager->isRegistered());
  EXPECT_EQ(keys.registered, (std::vector{std::pair(0x70u, 0x0Cu), std::pair(0x6bu, 0x04u)}));
}

TEST_F(ShortcutManagerTest, DestroyingAStartedManagerReleasesTheShortcutAndHandler) {
  started(GlobalShortcutProfile::darwin()).reset();
  EXPECT_EQ(keys.unregistered, 1);
  EXPECT_EQ(keys.handlersRemoved, 1);
}

}  // namespace
}  // namespace tidewatch
