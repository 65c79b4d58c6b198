// The owner of the open panel's scan session: it starts one while the panel shows the listener
// list, stops it when that ends, drains its frames onto the main thread, and makes sure a frame of
// a stale session reaches nobody. It also keeps the provider shown for each agent process stable
// across scans, so the rows and the inventory agree on who an agent is.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <variant>

#include "process_core/main_executor.h"
#include "tidewatch_kit/port_scan_session.h"

namespace tidewatch {

// Which provider each agent process is shown as, remembered across sessions.
struct AgentProviderPresentationFold {
  std::map<AgentProcessIdentity, AgentKind> presentedProviderByAgent;

  // The scan with every agent's provider settled: the inventory's evidence first, then what a
  // listener's origin said once, then the host; presences sorted by provider, pid and start.
  ScanResult reconcile(const ScanResult& result, const std::map<AgentProcessIdentity, AgentKind>& priorProviders);
};

struct PanelScanLifecycleEvent {
  struct Started {
    friend bool operator==(const Started&, const Started&) = default;
  };
  struct Stopped {
    friend bool operator==(const Stopped&, const Stopped&) = default;
  };
  std::variant<ScanFrame, Started, Stopped> value;
};

class PanelScanLifecycle {
 public:
  using Evidence = std::map<AgentProcessIdentity, AgentKind>;

  struct Dependencies {
    std::shared_ptr<MainExecutor> executor;
    // A new session, at each opening of the list.
    std::function<std::shared_ptr<PortScanSession>()> makeSession;
    // The frame goes to the inventory before it is presented.
    std::function<void(const ScanFrame& frame)> ingest;
    // Answers on the main thread with the inventory's presented providers, once it has taken in
    // everything ingested so far.
    std::function<void(std::function<void(Evidence)> answer)> presentedProviderEvidence;
    std::function<void(const PanelScanLifecycleEvent& event)> deliver;
  };

  explicit PanelScanLifecycle(Dependencies dependencies);
  // Stops without delivering: nobody is left to tell.
  ~PanelScanLifecycle();
  PanelScanLifecycle(const PanelScanLifecycle&) = delete;
  PanelScanLifecycle& operator=(const PanelScanLifecycle&) = delete;

  // On the main thread, at any change of the panel or of onboarding: a session runs exactly
  // while the panel is shown on the listener list.
  void synchronize(bool panelShown, bool showsListenerList);
  // A rescan now, when a session runs.
  void poke();
  // Ends the session, if any, and delivers `stopped` once.
  void stop();
  bool isMonitoring() const;

  const AgentProviderPresentationFold& providerPresentation() const;

 private:
  struct Core;
  std::shared_ptr<Core> core_;
};

}  // namespace tidewatch
