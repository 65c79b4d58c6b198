// The root of the tray application: it owns every long-lived object and holds the two rules that
// decide what runs. One timed loop at a time: the port scan while the panel shows the list, agent
// tracking otherwise. The event socket exactly while onboarding is through and a provider is
// connected. Everything here happens on the main thread; the window, the tray and the loops are
// reached through operations, so the rules run against fakes without a display.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "app/agent_notifications.h"
#include "app/global_shortcut.h"
#include "app/launch_at_login.h"
#include "app/notch_island.h"
#include "app/onboarding.h"
#include "app/panel_controller.h"
#include "app/qt/tidewatch_view_model.h"
#include "app/qt/update_checker.h"
#include "coralline_kit/agent_indicator_presenter.h"
#include "coralline_kit/agent_tracking_lifecycle.h"
#include "inventory/agent_inventory_host.h"
#include "tidewatch_kit/panel_scan_lifecycle.h"

namespace tidewatch {

// Where the two loops send what they produce; the delegate fills these in.
struct MonitoringSinks {
  std::function<void(const ScanFrame& frame)> ingest;
  std::function<void(std::function<void(PanelScanLifecycle::Evidence)> answer)> presentedProviderEvidence;
  std::function<void(const PanelScanLifecycleEvent& event)> deliverScan;
  std::function<void(const AgentTrackingLifecycleEvent& event)> deliverTracking;
};

// The two timed loops, as the delegate drives them.
struct MonitoringLoops {
  std::function<void(bool panelShown, bool showsListenerList)> synchronizePanelScan;
  std::function<void()> pokePanelScan;
  std::function<void()> stopPanelScan;
  std::function<void(bool suspended, bool enabled)> synchronizeTracking;
  std::function<void()> stopTracking;
};

// An update service; until one exists, it says so rather than pretending to check.
struct UpdateService {
  bool available = false;
  std::function<bool()> automaticallyChecks;
  std::function<void(bool on)> setAutomaticallyChecks;
  // The checker itself, for the settings to show and start; absent in tests.
  std::shared_ptr<UpdateChecker> checker;
};

// Where the panel should open: the anchor as the tray resolved it, and the screen it is on, all
// in bottom-left coordinates.
struct PanelAnchor {
  ScreenRect anchor;
  ScreenRect available;
  ScreenRect screen;
};

class AppDelegate {
 public:
  struct Dependencies {
    std::shared_ptr<MainExecutor> executor;
    DefaultsStore defaults{""};
    AgentInventoryHost::Parts host;
    TidewatchViewModel::Dependencies viewModel;
    std::function<MonitoringLoops(MonitoringSinks sinks)> makeLoops;
    LaunchAtLoginService launchAtLogin;
    const GlobalShortcutProfile* shortcutProfile = nullptr;
    GlobalShortcutManager::Dependencies shortcut;
    UpdateService updates;
    std::function<bool()> reduceMotion;
    // The island beside the top of the screen, made on first use; absent where none can be drawn.
    std::function<std::unique_ptr<NotchIslandController>()> makeIsland;
    // Shows a desktop notice; absent where the desktop has no notification service.
    std::function<void(const AgentNotice& notice)> notify;

    // This machine's; the shortcut and update services are not offered yet.
    static Dependencies live(std::shared_ptr<MainExecutor> executor);
  };

  // What the delegate asks of the window side.
  struct Shell {
    PanelSurface panel;
    std::function<void(bool on)> setHighlighted;
    std::function<void()> quit;
    // Where the panel opens when no click says so (the shortcut): the tray's best guess now.
    std::function<PanelAnchor()> currentAnchor;
    // The agent counts on the tray icon, while the island can't show them; the plain glyph
    // otherwise.
    std::function<void(const AgentIndicatorPresentation& presentation)> showAgentIndicator;
  };

  static constexpr double panelWidth = 700;
  static constexpr double panelHeight = 480;

  AppDelegate(Dependencies dependencies, Shell shell);
  ~AppDelegate();
  AppDelegate(const AppDelegate&) = delete;
  AppDelegate& operator=(const AppDelegate&) = delete;

  void applicationDidFinishLaunching();
  // In order: shortcut, both loops, the inventory, the hook server (its socket removed).
  void applicationWillTerminate();

  // The tray icon's click, the shortcut and a second start.
  void togglePopover(const PanelAnchor& anchor);
  // Opens the panel if it is not open; a second start asks for this.
  void openPanel(const PanelAnchor& anchor);
  // A click elsewhere, or the keyboard gone to another window.
  void outsideInteraction(const std::optional<PanelPlacement::Point>& pointer);
  // Escape.
  void dismissNow();
  // A notice was clicked: the panel, when it opens next, shows the agents pane with that
  // session's row expanded.
  void showSession(const std::string& sessionID);
  // The views changed an onboarding flag or a setting that decides what runs.
  void onboardingGateChanged();
  // A display setting changed: the rows show it, and agent activity may start or stop.
  void displaySettingsChanged();
  void quit();

  TidewatchViewModel& viewModel() { return *viewModel_; }
  PanelController& panel() { return *panel_; }
  PopoverRevealState& reveal() { return reveal_; }
  AgentInventoryHost& host() { return *host_; }
  GlobalShortcutManager& globalShortcut() { return *globalShortcut_; }
  const GlobalShortcutManager& globalShortcut() const { return *globalShortcut_; }
  DefaultsStore& defaults() { return dependencies_.defaults; }
  const LaunchAtLoginService& launchAtLogin() const { return dependencies_.launchAtLogin; }
  const UpdateService& updates() const { return dependencies_.updates; }
  const std::map<AgentKind, int>& pendingIslandCompletions() const { return pendingIslandCompletions_; }
  NotchIslandController* island() { return island_.get(); }
  bool agentActivityActive() const { return agentActivityActive_; }
  OnboardingPresentation presentation() const;

  static AgentTrackingUpdateFacts trackingFacts(const AgentTrackingUpdate& update);

  // After any change of the agents' connections or of the receiver's failure.
  std::function<void()> onConnectionsChanged;

 private:
  void syncMonitoring();
  void reconcileHookServer();
  void syncAutomaticUpdateChecks();
  void renderAgentActivity(const AgentTrackingLifecycleEvent& event);
  void handleCompletionEdges(const std::vector<AgentCompletionEdge>& edges);
  void renderIslandFromInventory(const AgentInventorySnapshot& snapshot);
  void updateAgentIndicator();
  void notify(const std::vector<AgentNotice>& notices);
  bool intakeOpen() const;

  Dependencies dependencies_;
  Shell shell_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  std::unique_ptr<AgentInventoryHost> host_;
  std::unique_ptr<TidewatchViewModel> viewModel_;
  std::unique_ptr<GlobalShortcutManager> globalShortcut_;
  std::unique_ptr<PanelController> panel_;
  std::unique_ptr<NotchIslandController> island_;
  PopoverRevealState reveal_;
  MonitoringLoops loops_;
  bool agentActivityActive_ = false;
  std::map<AgentKind, int> pendingIslandCompletions_;
  // The counts the island was last given: codex, claude, and how many of them work.
  std::array<int, 3> agentCounts_{};
  std::optional<AgentIndicatorPresentation> agentIndicator_;
  bool trayTellsAgents_ = false;
  AgentSessionNotices notices_;
  bool terminated_ = false;
};

}  // namespace tidewatch
