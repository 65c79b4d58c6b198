#include "app/qt/app_delegate.h"

#include <utility>

#include "app/display_settings.h"

namespace tidewatch {

AppDelegate::AppDelegate(Dependencies dependencies, Shell shell)
    : dependencies_(std::move(dependencies)),
      shell_(std::move(shell)),
      reveal_(dependencies_.executor, dependencies_.reduceMotion) {
  auto hostParts = dependencies_.host;
  hostParts.intakeOpen = [this] { return intakeOpen(); };
  host_ = std::make_unique<AgentInventoryHost>(std::move(hostParts));
  viewModel_ = std::make_unique<TidewatchViewModel>(dependencies_.viewModel);
  static const GlobalShortcutProfile& fallbackProfile = GlobalShortcutProfile::forLinux();
  globalShortcut_ = std::make_unique<GlobalShortcutManager>(
      dependencies_.defaults, dependencies_.shortcutProfile ? *dependencies_.shortcutProfile : fallbackProfile,
      dependencies_.shortcut);
}

AppDelegate::~AppDelegate() { applicationWillTerminate(); }

void AppDelegate::applicationDidFinishLaunching() {
  std::weak_ptr<bool> alive = alive_;
  auto& defaults = dependencies_.defaults;
  OnboardingMigrationApply::applyIfNeeded(defaults);
  defaults.remove("display.appearanceMode");
  defaults.remove("display.menuBarIcon");
  const bool atLogin = dependencies_.launchAtLogin.status &&
                       dependencies_.launchAtLogin.status() == LaunchAtLoginReconciler::SystemStatus::enabled;
  defaults.set(std::string(OnboardingKeys::launchAtLoginEnabled), atLogin);

  viewModel_->requestScan = [this, alive] {
    if (alive.lock() && loops_.pokePanelScan) loops_.pokePanelScan();
  };
  viewModel_->retryReceiver = [this, alive] {
    if (alive.lock()) reconcileHookServer();
  };
  viewModel_->connectProviderHooks = [this, alive](AgentKind provider) {
    if (alive.lock()) host_->connections().connect(provider);
  };
  host_->onConnectionsChanged = [this, alive] {
    if (!alive.lock()) return;
    viewModel_->setReceiverFailure(host_->connections().receiverFailure());
    if (onConnectionsChanged) onConnectionsChanged();
  };

  // The tray entry and the fonts are the window side's, made before this is called.
  syncAutomaticUpdateChecks();

  panel_ = std::make_unique<PanelController>(shell_.panel, panelWidth, panelHeight);
  panel_->onDidShow = [this, alive] {
    if (alive.lock()) syncMonitoring();
  };
  panel_->onDidClose = [this, alive] {
    if (!alive.lock()) return;
    if (shell_.setHighlighted) shell_.setHighlighted(false);
    syncMonitoring();
  };
  panel_->onDismissRequested = [this, alive](DismissalMode mode, std::function<void()> completion) {
    if (!alive.lock()) return completion();
    if (mode == DismissalMode::immediate) {
      reveal_.prepare();
      completion();
    } else {
      reveal_.conceal(std::move(completion));
    }
  };

  loops_ = dependencies_.makeLoops(MonitoringSinks{
      .ingest =
          [this, alive](const ScanFrame& frame) {
            if (!alive.lock()) return;
            if (const auto* result = frame.scanned()) {
              host_->applyScan(*result);
            } else {
              host_->applyScanFailure();
            }
          },
      .presentedProviderEvidence =
          [this, alive](std::function<void(PanelScanLifecycle::Evidence)> answer) {
            if (!alive.lock()) return answer({});
            host_->inventory().whenSettled([this, alive, answer] {
              answer(alive.lock() ? host_->inventory().presentedProviderEvidence() : PanelScanLifecycle::Evidence{});
            });
          },
      .deliverScan =
          [this, alive](const PanelScanLifecycleEvent& event) {
            if (!alive.lock()) return;
            if (const auto* frame = std::get_if<ScanFrame>(&event.value)) {
              viewModel_->apply(*frame);
            } else if (std::holds_alternative<PanelScanLifecycleEvent::Started>(event.value)) {
              viewModel_->prepareForMonitoring();
            } else {
              viewModel_->clearMonitoring();
            }
          },
      .deliverTracking =
          [this, alive](const AgentTrackingLifecycleEvent& event) {
            if (alive.lock()) renderAgentActivity(event);
          },
  });

  globalShortcut_->start([this, alive] {
    if (alive.lock() && shell_.currentAnchor) togglePopover(shell_.currentAnchor());
  });

  host_->connections().onConfiguredChange = [this, alive] {
    if (alive.lock()) reconcileHookServer();
  };
  reconcileHookServer();

  host_->onCompletionEdges = [this, alive](const std::vector<AgentCompletionEdge>& edges) {
    if (!alive.lock()) return;
    // The snapshot these edges came with is already the published one.
    notify(notices_.finished(edges, host_->inventory().snapshot()));
    handleCompletionEdges(edges);
  };
  host_->onSnapshot = [this, alive](const AgentInventorySnapshot& snapshot) {
    if (!alive.lock()) return;
    viewModel_->inventoryPublished(snapshot);
    // Followed whether or not notices are on, so turning them on tells no old news.
    notify(notices_.needingAttention(snapshot));
    renderIslandFromInventory(snapshot);
  };

  syncMonitoring();
}

void AppDelegate::applicationWillTerminate() {
  if (terminated_) return;
  terminated_ = true;
  globalShortcut_->stop();
  if (loops_.stopPanelScan) loops_.stopPanelScan();
  if (loops_.stopTracking) loops_.stopTracking();
  if (island_) island_->shutDown();
  host_->stop();
}

OnboardingPresentation AppDelegate::presentation() const {
  return OnboardingGate::resolve(OnboardingFlags::read(dependencies_.defaults));
}

bool AppDelegate::intakeOpen() const {
  const auto flags = OnboardingFlags::read(dependencies_.defaults);
  return flags.launchAtLoginOfferCompleted && flags.tidewatchOnboardingComplete;
}

void AppDelegate::syncMonitoring() {
  if (terminated_ || !panel_) return;
  const bool listVisible = presentation().surface == OnboardingPresentation::Surface::listenerList;
  const bool shown = panel_->isPresented();
  const bool enabled = DisplaySettings::showAgentActivity(dependencies_.defaults) && listVisible;
  // The loop that was running stops before the other starts, either way.
  if (shown) {
    loops_.synchronizeTracking(true, enabled);
    loops_.synchronizePanelScan(true, listVisible);
  } else {
    loops_.synchronizePanelScan(false, listVisible);
    loops_.synchronizeTracking(false, enabled);
  }
  reconcileHookServer();
}

void AppDelegate::reconcileHookServer() {
  if (terminated_) return;
  (void)host_->syncHookServer();
}

void AppDelegate::syncAutomaticUpdateChecks() {
  auto& updates = dependencies_.updates;
  if (!updates.available) return;
  const bool wanted = intakeOpen();
  if (updates.automaticallyChecks() != wanted) updates.setAutomaticallyChecks(wanted);
}

void AppDelegate::togglePopover(const PanelAnchor& anchor) {
  if (!panel_ || terminated_) return;
  if (panel_->isPresented()) {
    panel_->outsideInteraction(std::nullopt);
    return;
  }
  openPanel(anchor);
}

void AppDelegate::openPanel(const PanelAnchor& anchor) {
  if (!panel_ || terminated_ || panel_->isPresented()) return;
  const bool wasVisible = shell_.panel.isVisible();
  if (!wasVisible) reveal_.prepare();
  if (!panel_->show(anchor.anchor, anchor.available, anchor.screen)) return;
  if (shell_.setHighlighted) shell_.setHighlighted(true);
  if (wasVisible) {
    // Reopened during its fade: no new show was published, so the loops are settled here.
    reveal_.reveal();
    syncMonitoring();
    return;
  }
  // One turn at alpha 0, so the view lays out before it fades in.
  std::weak_ptr<bool> alive = alive_;
  dependencies_.executor->post([this, alive] {
    if (alive.lock() && panel_->isPresented()) reveal_.reveal();
  });
}

void AppDelegate::outsideInteraction(const std::optional<PanelPlacement::Point>& pointer) {
  if (panel_) panel_->outsideInteraction(pointer);
}

void AppDelegate::dismissNow() {
  if (panel_) panel_->dismissNow();
}

void AppDelegate::onboardingGateChanged() {
  syncAutomaticUpdateChecks();
  syncMonitoring();
}

void AppDelegate::displaySettingsChanged() {
  viewModel_->reloadDisplaySettings();
  syncMonitoring();
}

void AppDelegate::notify(const std::vector<AgentNotice>& notices) {
  if (!dependencies_.notify || !DisplaySettings::notifyAgentSessions(dependencies_.defaults)) return;
  for (const auto& notice : notices) dependencies_.notify(notice);
}

void AppDelegate::showSession(const std::string& sessionID) {
  viewModel_->selectPanelMode(QStringLiteral("agents"));
  viewModel_->setExpandedAgentSessionID(QString::fromStdString(sessionID));
}

void AppDelegate::quit() {
  if (shell_.quit) shell_.quit();
}

AgentTrackingUpdateFacts AppDelegate::trackingFacts(const AgentTrackingUpdate& update) {
  AgentTrackingUpdateFacts facts;
  for (const auto& run : update.countedRuns) {
    const AgentProcessIdentity identity{run.identity.process, run.identity.kind};
    facts.counted.push_back({identity, run.provider, run.state == AgentRunState::active});
    if (run.host) facts.currentHosts[identity] = *run.host;
  }
  for (const auto& run : update.finished) {
    facts.finished.push_back({AgentProcessIdentity{run.identity.process, run.identity.kind}, run.provider});
  }
  facts.observedAt = update.scannedAt;
  return facts;
}

void AppDelegate::renderAgentActivity(const AgentTrackingLifecycleEvent& event) {
  switch (event.kind) {
    case AgentTrackingLifecycleEvent::Kind::started:
    case AgentTrackingLifecycleEvent::Kind::stopped:
      agentActivityActive_ = event.kind == AgentTrackingLifecycleEvent::Kind::started;
      pendingIslandCompletions_.clear();
      if (island_) island_->hide();
      agentCounts_ = {};
      updateAgentIndicator();
      break;
    case AgentTrackingLifecycleEvent::Kind::update:
      // The island draws from the inventory alone, never from the tracker directly.
      if (event.update) host_->applyTrackingUpdate(trackingFacts(*event.update));
      break;
  }
}

void AppDelegate::renderIslandFromInventory(const AgentInventorySnapshot& snapshot) {
  // The island is drawn from the inventory alone, and only while tracking runs.
  if (!agentActivityActive_) return;
  NotchIslandPresentation shown;
  int working = 0;
  for (const auto& session : snapshot.ambientSessions()) {
    auto& state = session.provider == AgentKind::codex ? shown.codex : shown.claude;
    ++state.count;
    if (session.state == AgentSessionState::needsAttention || session.state == AgentSessionState::working) {
      state.isWorking = true;
      ++working;
    }
  }
  agentCounts_ = {shown.codex.count, shown.claude.count, working};
  shown.codex.finishedCount = std::max(0, pendingIslandCompletions_[AgentKind::codex]);
  shown.claude.finishedCount = std::max(0, pendingIslandCompletions_[AgentKind::claude]);
  if (!island_ && dependencies_.makeIsland) {
    island_ = dependencies_.makeIsland();
    // The desktop's own events (a full-screen window, a screen gone) can move the island to the
    // tray and back without a new snapshot.
    std::weak_ptr<bool> alive = alive_;
    if (island_) {
      island_->onDispositionChange = [this, alive](NotchIslandDisposition) {
        if (alive.lock()) updateAgentIndicator();
      };
    }
  }
  if (island_) {
    // What stays once the completions have played.
    const auto steady = [](NotchIslandAgentState state) {
      state.count = std::max(0, state.count);
      state.isWorking = state.isWorking && state.count > 0;
      state.finishedCount = 0;
      return state;
    };
    island_->latestPresentation = {steady(shown.codex), steady(shown.claude)};
    island_->isSynchronizingFromApp = true;
    island_->presentLatest(shown);
    island_->isSynchronizingFromApp = false;
  }
  pendingIslandCompletions_.clear();
  updateAgentIndicator();
}

void AppDelegate::updateAgentIndicator() {
  // The tray tells the counts only where the island can't: no island at all, or its fallback.
  // Hidden is the island settling (a workspace switch, a screen change) or having nothing to
  // show: the tray keeps what it did, so its icon doesn't flicker through a transition.
  if (!island_) {
    trayTellsAgents_ = true;
  } else if (island_->disposition() != NotchIslandDisposition::hidden) {
    trayTellsAgents_ = island_->disposition() == NotchIslandDisposition::menuBarFallback;
  }
  const auto presentation = AgentIndicatorPresenter::presentation(agentActivityActive_ && trayTellsAgents_, agentCounts_[0],
                                                                  agentCounts_[1], agentCounts_[2]);
  if (agentIndicator_ == presentation) return;
  agentIndicator_ = presentation;
  if (shell_.showAgentIndicator) shell_.showAgentIndicator(presentation);
}

void AppDelegate::handleCompletionEdges(const std::vector<AgentCompletionEdge>& edges) {
  if (!agentActivityActive_) return;
  for (const auto& edge : edges) ++pendingIslandCompletions_[edge.provider];
}

}  // namespace tidewatch
