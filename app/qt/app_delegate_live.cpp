// The delegate's wiring to this machine: the real loops, the XDG autostart entry, the user's
// settings, the update feed. The global shortcut's grab belongs to the window system, so the
// application gives it where it has one; without, the session offers no global shortcuts, and
// says so.
#include "app/display_settings.h"
#include "app/linux/launch_at_login_linux.h"
#include "app/qt/app_delegate.h"
#include "tidewatch_kit/listener_list_model.h"

namespace tidewatch {

namespace {

MonitoringLoops liveLoops(std::shared_ptr<MainExecutor> executor, DefaultsStore defaults, MonitoringSinks sinks) {
  struct Owned {
    std::shared_ptr<MainExecutor> executor;
    std::unique_ptr<PanelScanLifecycle> scan;
    std::unique_ptr<AgentTrackingLifecycle> tracking;
  };
  auto owned = std::make_shared<Owned>();
  owned->executor = executor;
  auto batteryMode = [defaults] { return DisplaySettings::batteryMode(defaults); };
  owned->scan = std::make_unique<PanelScanLifecycle>(PanelScanLifecycle::Dependencies{
      .executor = executor,
      .makeSession =
          [defaults, batteryMode] {
            const auto lastUsed = defaults.stringForKey(std::string(TidewatchViewModel::lastUsedFilterKey));
            // Rescans every second while the panel is open: only what changed is read again.
            return std::make_shared<PortScanSession>(PortEngine::incremental(PortEngineDependencies::live()),
                                                     DisplaySettings::defaultFilter(defaults),
                                                     lastUsed ? filterCategoryFromRaw(*lastUsed) : std::nullopt,
                                                     batteryMode);
          },
      .ingest = std::move(sinks.ingest),
      .presentedProviderEvidence = std::move(sinks.presentedProviderEvidence),
      .deliver = std::move(sinks.deliverScan),
  });
  owned->tracking = std::make_unique<AgentTrackingLifecycle>(*executor, batteryMode, std::move(sinks.deliverTracking));
  return MonitoringLoops{
      .synchronizePanelScan = [owned](bool shown, bool list) { owned->scan->synchronize(shown, list); },
      .pokePanelScan = [owned] { owned->scan->poke(); },
      .stopPanelScan = [owned] { owned->scan->stop(); },
      .synchronizeTracking = [owned](bool suspended, bool enabled) { owned->tracking->synchronize(suspended, enabled); },
      .stopTracking = [owned] { owned->tracking->stop(); },
  };
}

}  // namespace

AppDelegate::Dependencies AppDelegate::Dependencies::live(std::shared_ptr<MainExecutor> executor) {
  Dependencies d;
  d.executor = executor;
  d.defaults = DefaultsStore::standard();
  d.host = AgentInventoryHost::Parts::live(executor);
  d.viewModel = TidewatchViewModel::Dependencies::live(executor);
  d.makeLoops = [executor, defaults = d.defaults](MonitoringSinks sinks) {
    return liveLoops(executor, defaults, std::move(sinks));
  };
  d.launchAtLogin = LaunchAtLoginManager(LaunchAtLoginManager::Dependencies::live()).service();
  d.shortcutProfile = &GlobalShortcutProfile::forLinux();
  d.shortcut = GlobalShortcutManager::Dependencies{
      .installHandler = [](std::function<void()>) {},
      .removeHandler = [] {},
      .registerHotKey = [](uint32_t, uint32_t) { return GlobalShortcutManager::Registration::unavailable; },
      .unregisterHotKey = [] {},
      .installSettler = nullptr,
  };
  auto checker = std::make_shared<UpdateChecker>(UpdateChecker::Dependencies{
      .feed = UpdateChecker::defaultFeed(),
      .currentVersion = TIDEWATCH_VERSION,
      .defaults = d.defaults,
      .now = [] { return std::chrono::system_clock::now(); },
      .timeout = std::chrono::milliseconds(15000),
  });
  d.updates = UpdateService{
      .available = true,
      .automaticallyChecks = [checker] { return checker->automaticallyChecks(); },
      .setAutomaticallyChecks = [checker](bool on) { checker->setAutomaticallyChecks(on); },
      .checker = checker,
  };
  d.reduceMotion = [] { return false; };
  return d;
}

}  // namespace tidewatch
