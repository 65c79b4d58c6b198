#include "app/qt/app_delegate.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

const ScreenRect screen{0, 0, 1920, 1080};
const PanelAnchor underIcon{{1000, 1048, 24, 32}, {0, 0, 1920, 1048}, screen};

Date wallClock() { return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()); }

// A delegate over a scratch home: its own settings, runtime directory and socket, with loops and a
// window that only record what they are told.
class AppDelegateTest : public ::testing::Test {
 protected:
  void launch() {
    fs::create_directories(home);
    ::chmod(home.c_str(), 0700);
    AppDelegate::Dependencies d;
    d.executor = executor;
    d.defaults = defaults;
    const auto installation = AgentHookInstallation::linuxInstalled("/usr/local/bin/tidewatch");
    d.host = AgentInventoryHost::Parts{
        .executor = executor,
        .paths = AgentHookPaths{home + "/run", home + "/run/agent-events.sock"},
        .server = AgentHookSocketServer::Dependencies::live(),
        .connections =
            {
                .homeDirectory = home,
                .bundlePath = installation.installedLocation,
                .defaults = defaults,
                .now = wallClock,
                .installation = installation,
                .hookPaths = {home + "/run", home + "/run", true},
                .files = AgentHookConfigurator::FileOperations::live(),
                .sendInBackground = [](std::string, std::string, double, std::function<void(bool)>) {},
            },
        .inventory =
            {
                .now = wallClock,
                .isProcessCurrent = [](const ProcessIdentity&) { return false; },
                .runInBackground = [](std::function<void()> work) { work(); },
            },
        .hookOrigin = [](int32_t) { return AgentInventoryCoordinator::HookOrigin{}; },
        .intakeOpen = {},
    };
    d.viewModel.executor = executor;
    d.viewModel.defaults = defaults;
    d.viewModel.now = wallClock;
    d.makeLoops = [this](MonitoringSinks given) {
      sinks = std::move(given);
      return MonitoringLoops{
          .synchronizePanelScan = [this](bool shown,
                                         bool list) { loops.push_back(std::string("scan ") + (shown && list ? "on" : "off")); },
          .pokePanelScan = [this] { loops.push_back("poke"); },
          .stopPanelScan = [this] { loops.push_back("stop scan"); },
          .synchronizeTracking =
              [this](bool suspended, bool enabled) {
                loops.push_back(std::string("tracking ") + (!suspended && enabled ? "on" : "off"));
              },
          .stopTracking = [this] { loops.push_back("stop tracking"); },
      };
    };
    d.launchAtLogin.status = [this] { return atLogin; };
    d.shortcut = {
        .installHandler = [](std::function<void()>) {},
        .removeHandler = [] {},
        .registerHotKey = [](uint32_t, uint32_t) { return GlobalShortcutManager::Registration::unavailable; },
        .unregisterHotKey = [] {},
        .installSettler = nullptr,
    };
    d.makeIsland = [this] {
      const auto wing = [this](std::string side) {
        return NotchIslandWingOperations{
            .present = [this, side](const ScreenRect&, double, const NotchIslandAgentState& state,
                                    const CorallineAccessibilityOptions&) {
              island.push_back(side + " " + std::to_string(state.count) + (state.isWorking ? " working" : "") +
                               (state.finishedCount > 0 ? " +" + std::to_string(state.finishedCount) + " done" : ""));
            },
            .hide = [this, side](bool, bool, bool) { island.push_back(side + " hidden"); },
            .hardHide = [this, side] { island.push_back(side + " gone"); },
            .isPresentingCompletion = [] { return false; },
            .isRetracting = [] { return false; },
        };
      };
      NotchPlacementResolver::ScreenContext notched;
      notched.isBuiltIn = notched.hasNotch = true;
      notched.screenFrame = {0, 0, 1512, 982};
      notched.auxiliaryTopLeft = ScreenRect{0, 950, 656, 32};
      notched.auxiliaryTopRight = ScreenRect{856, 950, 656, 32};
      return std::make_unique<NotchIslandController>(NotchIslandController::Dependencies{
          .executor = executor,
          .leftWing = wing("codex"),
          .rightWing = wing("claude"),
          .screenContexts = [this, notched] { return screens.value_or(std::vector{notched}); },
          .accessibilityOptions = [] { return CorallineAccessibilityOptions{}; },
          .spaceTransitionDelay = {},
      });
    };
    d.notify = [this](const AgentNotice& notice) { notices.push_back(notice); };
    d.updates = {.available = true,
                 .automaticallyChecks = [this] { return updateChecks; },
                 .setAutomaticallyChecks = [this](bool on) { updateChecks = on; },
                 .checker = nullptr};
    delegate = std::make_unique<AppDelegate>(
        d, AppDelegate::Shell{
               .panel =
                   {
                       .isVisible = [this] { return visible; },
                       .setFrame = [](const ScreenRect&) {},
                       .orderFront = [this] { visible = true; },
                       .makeKey = [] {},
                       .orderOut = [this] { visible = false; },
                   },
               .setHighlighted = [this](bool on) { highlighted = on; },
               .quit = [] {},
               .currentAnchor = [] { return underIcon; },
               .showAgentIndicator = [this](const AgentIndicatorPresentation& shown) { indicators.push_back(shown); },
           });
    delegate->applicationDidFinishLaunching();
    executor->runUntilIdle();
  }

  void onboard() {
    defaults.set("launchAtLoginOfferCompleted", true);
    defaults.set("tidewatchOnboardingComplete", true);
  }

  // The loops' calls since the last look.
  std::vector<std::string> takeLoops() { return std::exchange(loops, {}); }
  bool listening() const { return fs::exists(home + "/run/agent-events.sock"); }

  testing::TemporaryDirectory scratch;
  const std::string home = scratch.path() + "/home";
  DefaultsStore defaults{scratch.path() + "/defaults.json"};
  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
  MonitoringSinks sinks;
  std::vector<std::string> loops;
  LaunchAtLoginReconciler::SystemStatus atLogin = LaunchAtLoginReconciler::SystemStatus::notRegistered;
  bool updateChecks = true;
  bool visible = false;
  bool highlighted = false;
  std::vector<std::string> island;
  // Unset: one notched screen.
  std::optional<std::vector<NotchPlacementResolver::ScreenContext>> screens;
  std::vector<AgentIndicatorPresentation> indicators;
  std::vector<AgentNotice> notices;
  std::unique_ptr<AppDelegate> delegate;
};

TEST_F(AppDelegateTest, AFirstLaunchRunsNothingUntilOnboardingIsThrough) {
  defaults.set("agentConnections.claude.configured", true);
  defaults.set("display.menuBarIcon", "waves");
  atLogin = LaunchAtLoginReconciler::SystemStatus::enabled;
  launch();
  EXPECT_FALSE(defaults.valueForKey("display.menuBarIcon")) << "an old key goes at each start";
  EXPECT_TRUE(defaults.boolForKey("launchAtLoginEnabled")) << "rewritten from the system";
  EXPECT_FALSE(updateChecks) << "no update check before onboarding";
  EXPECT_FALSE(listening()) << "a connected provider waits for onboarding";
  EXPECT_EQ(takeLoops(), (std::vector<std::string>{"scan off", "tracking off"}));

  delegate->togglePopover(underIcon);
  EXPECT_EQ(takeLoops(), (std::vector<std::string>{"tracking off", "scan off"})) << "the offer shows: neither loop";
  EXPECT_TRUE(highlighted);

  onboard();
  delegate->onboardingGateChanged();
  EXPECT_EQ(takeLoops(), (std::vector<std::string>{"tracking off", "scan on"}));
  EXPECT_TRUE(updateChecks);
  EXPECT_TRUE(listening());
}

TEST_F(AppDelegateTest, OneLoopAtATimeTheRunningOneStoppedFirst) {
  onboard();
  defaults.set("display.showAgentActivity", true);
  launch();
  EXPECT_EQ(takeLoops(), (std::vector<std::string>{"scan off", "tracking on"}));

  delegate->togglePopover(underIcon);
  EXPECT_EQ(takeLoops(), (std::vector<std::string>{"tracking off", "scan on"}));
  EXPECT_FALSE(delegate->reveal().isRevealed()) << "one turn at alpha 0 first";
  executor->runUntilIdle();
  EXPECT_TRUE(delegate->reveal().isRevealed());
  delegate->viewModel().requestScan();
  EXPECT_EQ(takeLoops(), std::vector<std::string>{"poke"});

  delegate->togglePopover(underIcon);  // closes, with a fade
  EXPECT_TRUE(takeLoops().empty()) << "still fading";
  executor->advance(150ms);
  EXPECT_EQ(takeLoops(), (std::vector<std::string>{"scan off", "tracking on"}));
  EXPECT_FALSE(highlighted);
  EXPECT_FALSE(visible);

  // Reopened during a fade: the window stays, the loops are settled at once.
  delegate->togglePopover(underIcon);
  executor->runUntilIdle();
  EXPECT_TRUE(delegate->reveal().isRevealed());
  takeLoops();
  delegate->outsideInteraction(PanelPlacement::Point{5, 5});
  delegate->togglePopover(underIcon);
  EXPECT_TRUE(delegate->reveal().isRevealed());
  EXPECT_EQ(takeLoops(), (std::vector<std::string>{"tracking off", "scan on"}));
  executor->advance(1s);
  EXPECT_TRUE(visible) << "the stale fade did not close it";

  delegate->dismissNow();
  EXPECT_FALSE(visible) << "Escape closes at once";
  EXPECT_EQ(takeLoops(), (std::vector<std::string>{"scan off", "tracking on"}));
}

TEST_F(AppDelegateTest, TrackingFeedsTheInventoryAndTheIslandDrawsFromIt) {
  onboard();
  launch();
  sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::started, std::nullopt});
  EXPECT_TRUE(delegate->agentActivityActive());

  AgentTrackingUpdate update;
  const ProcessIdentity process{4321, 1'700'000'000, 0};
  update.countedRuns.push_back(AgentRun{{process, AgentKind::claude}, AgentKind::claude, HostAppKind::terminal,
                                        AgentRunState::active, 2, 0});
  update.scannedAt = wallClock();
  const auto facts = AppDelegate::trackingFacts(update);
  ASSERT_EQ(facts.counted.size(), 1u);
  EXPECT_TRUE(facts.counted[0].isActive);
  EXPECT_EQ(facts.currentHosts.at(facts.counted[0].identity), HostAppKind::terminal);

  sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::update, update});
  executor->runUntilIdle();
  ASSERT_EQ(delegate->host().inventory().snapshot().ambientSessions().size(), 1u);
  EXPECT_EQ(delegate->viewModel().inventory(), delegate->host().inventory().snapshot()) << "the view model sees it";

  EXPECT_EQ(island, (std::vector<std::string>{"codex 0", "claude 1 working"})) << "the island draws the inventory";

  // The run ends: its completion flashes once on the island, then the wing is steady again.
  island.clear();
  AgentTrackingUpdate finished;
  finished.finished = update.countedRuns;
  finished.finished[0].state = AgentRunState::finished;
  finished.scannedAt = wallClock();
  sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::update, finished});
  executor->runUntilIdle();
  ASSERT_FALSE(island.empty());
  EXPECT_EQ(island.back(), "claude 0 +1 done");
  EXPECT_EQ(delegate->island()->latestPresentation.claude, NotchIslandAgentState{}) << "steady: nothing left";
  EXPECT_TRUE(delegate->pendingIslandCompletions().empty());

  sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::stopped, std::nullopt});
  EXPECT_FALSE(delegate->agentActivityActive());
  EXPECT_EQ(delegate->island()->disposition(), NotchIslandDisposition::hidden);
}

TEST_F(AppDelegateTest, TheTrayTellsTheCountsOnlyWhileTheIslandCannot) {
  onboard();
  launch();
  sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::started, std::nullopt});
  AgentTrackingUpdate update;
  update.countedRuns.push_back(AgentRun{{ProcessIdentity{4321, 1'700'000'000, 0}, AgentKind::claude},
                                        AgentKind::claude, HostAppKind::terminal, AgentRunState::active, 2, 0});
  update.scannedAt = wallClock();
  sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::update, update});
  executor->runUntilIdle();
  ASSERT_EQ(delegate->island()->disposition(), NotchIslandDisposition::island);
  ASSERT_FALSE(indicators.empty());
  EXPECT_TRUE(std::holds_alternative<AgentIndicatorGlyph>(indicators.back().display)) << "the island shows them";

  // A full-screen window takes the notch: the island falls back and the tray takes over.
  screens = std::vector<NotchPlacementResolver::ScreenContext>{};
  const auto before = indicators.size();
  delegate->island()->screenParametersChanged();
  executor->runUntilIdle();
  EXPECT_EQ(indicators.size(), before + 1) << "straight to the counts, without the glyph between";
  EXPECT_EQ(delegate->island()->disposition(), NotchIslandDisposition::menuBarFallback);
  EXPECT_EQ(indicators.back().display, (AgentIndicatorDisplay{AgentIndicatorCounts{0, 1}}));
  EXPECT_EQ(indicators.back().tooltip, "1 Claude Code session running (1 active)");
  const auto shown = indicators.size();
  delegate->island()->screenParametersChanged();
  executor->runUntilIdle();
  EXPECT_EQ(indicators.size(), shown) << "no flicker while the island settles";

  sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::stopped, std::nullopt});
  EXPECT_TRUE(std::holds_alternative<AgentIndicatorGlyph>(indicators.back().display)) << "tracking off: the glyph";
}

TEST_F(AppDelegateTest, AFinishedSessionIsToldOnceAndOnlyToWhoAskedForIt) {
  onboard();
  launch();
  sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::started, std::nullopt});
  const auto runFinishing = [&](int32_t pid) {
    AgentTrackingUpdate update;
    update.countedRuns.push_back(AgentRun{{ProcessIdentity{pid, 1'700'000'000, 0}, AgentKind::claude},
                                          AgentKind::claude, HostAppKind::terminal, AgentRunState::active, 2, 0});
    update.scannedAt = wallClock();
    sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::update, update});
    executor->runUntilIdle();
    AgentTrackingUpdate finished;
    finished.finished = update.countedRuns;
    finished.scannedAt = wallClock();
    sinks.deliverTracking({AgentTrackingLifecycleEvent::Kind::update, finished});
    executor->runUntilIdle();
  };
  runFinishing(4321);
  EXPECT_TRUE(notices.empty()) << "off unless asked for";

  defaults.set("notifications.agentSessions", true);
  runFinishing(4322);
  ASSERT_EQ(notices.size(), 1u);
  EXPECT_EQ(notices[0].summary, "Claude Code finished");
  EXPECT_FALSE(notices[0].sessionID.empty());

  // The click shows that row on the agents pane.
  delegate->showSession(notices[0].sessionID);
  EXPECT_EQ(delegate->viewModel().panelMode(), "agents");
  EXPECT_EQ(delegate->viewModel().expandedAgentSessionID().toStdString(), notices[0].sessionID);
}

TEST_F(AppDelegateTest, TheSocketFollowsTheConnectionsAndTerminationRemovesIt) {
  onboard();
  launch();
  EXPECT_FALSE(listening()) << "no provider connected";
  defaults.set("agentConnections.codex.configured", true);
  delegate->onboardingGateChanged();
  EXPECT_TRUE(listening());

  bool answered = false;
  sinks.presentedProviderEvidence([&](PanelScanLifecycle::Evidence evidence) { answered = evidence.empty(); });
  EXPECT_FALSE(answered) << "answers once the inventory has settled";
  executor->runUntilIdle();
  EXPECT_TRUE(answered);

  takeLoops();
  delegate->applicationWillTerminate();
  EXPECT_EQ(takeLoops(), (std::vector<std::string>{"stop scan", "stop tracking"}));
  EXPECT_FALSE(listening()) << "the socket is removed";
  EXPECT_TRUE(defaults.boolForKey("agentConnections.codex.configured")) << "settings kept";
  delegate->togglePopover(underIcon);
  EXPECT_FALSE(visible) << "nothing opens after termination";
}

}  // namespace
}  // namespace tidewatch
