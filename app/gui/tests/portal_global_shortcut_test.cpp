// The shortcut through a GlobalShortcuts portal on a private session bus: the portal stands on a
// connection of its own, the application's side on the session connection, as in a session.
#include "app/gui/portal_global_shortcut.h"

#include <QTest>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/gui/tests/fake_shortcuts_portal.h"
#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

using Modifier = GlobalShortcutModifier;
using Registration = GlobalShortcutManager::Registration;
using testing::FakeShortcutsPortal;

struct PortalShortcutTest : ::testing::Test {
  testing::TemporaryDirectory directory;
  DefaultsStore store{directory.path() + "/defaults.json"};
  std::unique_ptr<FakeShortcutsPortal> portal =
      std::make_unique<FakeShortcutsPortal>(QDBusConnection::connectToBus(QDBusConnection::SessionBus, "portal"));
  std::unique_ptr<PortalGlobalShortcut> client = std::make_unique<PortalGlobalShortcut>();
  std::unique_ptr<GlobalShortcutManager> manager;
  int presses = 0;

  void SetUp() override { ASSERT_TRUE(QDBusConnection::sessionBus().isConnected()); }

  void start() {
    manager = std::make_unique<GlobalShortcutManager>(store, GlobalShortcutProfile::forLinux(), client->dependencies());
    manager->start([this] { ++presses; });
  }
  bool settled() { return QTest::qWaitFor([this] { return !manager->isPending(); }, 5000); }
  // Lets messages in flight arrive.
  static void drain() { QTest::qWait(100); }
  std::vector<QString> callsNamed(const QString& name) const {
    std::vector<QString> named;
    for (const auto& call : portal->calls) {
      if (call.startsWith(name)) named.push_back(call);
    }
    return named;
  }
};

TEST_F(PortalShortcutTest, TheBoundShortcutOpensThePanelAndAChangeRebindsItInANewSession) {
  ASSERT_TRUE(portal->serve());
  start();
  EXPECT_TRUE(manager->isPending());
  ASSERT_TRUE(settled());
  EXPECT_TRUE(manager->isRegistered());
  EXPECT_EQ(manager->registrationError(), std::nullopt);
  EXPECT_EQ(portal->calls, (std::vector<QString>{"Register com.tidewatch.app", "CreateSession",
                                                 "BindShortcuts open-panel CTRL+ALT+p"}));
  const QString session = portal->newestSession;
  portal->press();
  ASSERT_TRUE(QTest::qWaitFor([this] { return presses == 1; }, 5000));

  manager->update({"k", {Modifier::shift, Modifier::command}});
  ASSERT_TRUE(settled());
  EXPECT_TRUE(manager->isRegistered());
  EXPECT_EQ(callsNamed("Close"), (std::vector<QString>{"Close " + session}));
  EXPECT_EQ(callsNamed("CreateSession").size(), 2u);
  EXPECT_EQ(callsNamed("BindShortcuts").back(), "BindShortcuts open-panel CTRL+SHIFT+k");
  EXPECT_EQ(portal->newestSession, session);  // one name, so the desktop keeps the user's keys
  portal->press();
  ASSERT_TRUE(QTest::qWaitFor([this] { return presses == 2; }, 5000));

  manager->setEnabled(false);
  drain();
  EXPECT_EQ(callsNamed("Close").size(), 2u);
  portal->press();
  drain();
  EXPECT_EQ(presses, 2);
}

TEST_F(PortalShortcutTest, BoundWithoutKeysItWaitsForTheUsersChoiceInTheDesktop) {
  ASSERT_TRUE(portal->serve());
  portal->grantsTrigger = false;
  start();
  ASSERT_TRUE(settled());
  EXPECT_FALSE(manager->isRegistered());
  EXPECT_EQ(manager->registrationError(), "Choose its keys in the desktop's keyboard shortcut settings.");
  drain();
  EXPECT_TRUE(callsNamed("Close").empty());  // kept, to hear of the user's choice

  portal->changeKeys("Ctrl+Alt+T");
  ASSERT_TRUE(QTest::qWaitFor([this] { return manager->isRegistered(); }, 5000));
  EXPECT_EQ(manager->registrationError(), std::nullopt);
  portal->press();
  ASSERT_TRUE(QTest::qWaitFor([this] { return presses == 1; }, 5000));

  portal->changeKeys("");
  ASSERT_TRUE(QTest::qWaitFor([this] { return !manager->isRegistered(); }, 5000));
  EXPECT_EQ(manager->registrationError(), "Choose its keys in the desktop's keyboard shortcut settings.");
  manager.reset();
  drain();
  EXPECT_EQ(callsNamed("Close").size(), 1u);
}

TEST_F(PortalShortcutTest, ARefusalSaysWhyAndClosesTheSession) {
  struct Case {
    const char* name;
    uint bindResponse;
    bool grantsTrigger;
    std::string error;
  };
  const Case cases[] = {
      {"the user cancelled", 1, true, "The desktop declined the shortcut."},
      {"refused otherwise", 2, true, "The desktop declined the shortcut."},
  };
  ASSERT_TRUE(portal->serve());
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    portal->calls.clear();
    portal->bindResponse = c.bindResponse;
    portal->grantsTrigger = c.grantsTrigger;
    start();
    ASSERT_TRUE(settled());
    EXPECT_FALSE(manager->isRegistered());
    EXPECT_EQ(manager->registrationError(), c.error);
    drain();
    EXPECT_EQ(callsNamed("Close"), (std::vector<QString>{"Close " + portal->newestSession}));
    portal->press();
    drain();
    EXPECT_EQ(presses, 0);
    manager.reset();
  }
}

TEST_F(PortalShortcutTest, WithoutAPortalTheSessionOffersNoShortcut) {
  start();
  ASSERT_TRUE(settled());
  EXPECT_EQ(manager->registrationError(), "This desktop session doesn't offer global shortcuts.");
  EXPECT_FALSE(manager->isRegistered());
}

TEST_F(PortalShortcutTest, TurningItOffWhileTheUserDecidesWithdrawsTheSession) {
  ASSERT_TRUE(portal->serve());
  portal->answersBinding = false;
  start();
  ASSERT_TRUE(QTest::qWaitFor([this] { return !callsNamed("BindShortcuts").empty(); }, 5000));
  EXPECT_TRUE(manager->isPending());
  manager->setEnabled(false);
  EXPECT_FALSE(manager->isPending());
  drain();
  EXPECT_EQ(callsNamed("Close"), (std::vector<QString>{"Close " + portal->newestSession}));
  EXPECT_EQ(manager->registrationError(), std::nullopt);
}

TEST_F(PortalShortcutTest, ASessionMadeAfterWeStoppedWaitingIsClosed) {
  ASSERT_TRUE(portal->serve());
  portal->answersCreation = false;
  start();
  ASSERT_TRUE(QTest::qWaitFor([this] { return !callsNamed("CreateSession").empty(); }, 5000));
  manager->setEnabled(false);
  portal->answerCreation();
  ASSERT_TRUE(QTest::qWaitFor([this] { return !callsNamed("Close").empty(); }, 5000));
  EXPECT_EQ(callsNamed("Close"), (std::vector<QString>{"Close " + portal->newestSession}));
  EXPECT_TRUE(callsNamed("BindShortcuts").empty());
  EXPECT_FALSE(manager->isRegistered());
}

}  // namespace
}  // namespace tidewatch
