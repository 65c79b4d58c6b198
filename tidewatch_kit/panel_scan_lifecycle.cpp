#include "tidewatch_kit/panel_scan_lifecycle.h"

#include <algorithm>
#include <set>
#include <stop_token>
#include <tuple>

#include "process_core/one_shot.h"

namespace tidewatch {

ScanResult AgentProviderPresentationFold::reconcile(const ScanResult& result,
                                                    const std::map<AgentProcessIdentity, AgentKind>& priorProviders) {
  std::set<AgentProcessIdentity> live;
  for (const auto& entry : result.agentPresence.entries) live.insert(entry.identity);
  for (const auto& listener : result.listeners) {
    if (listener.agentProcess) live.insert(*listener.agentProcess);
  }
  // An agent process that has gone is forgotten at once.
  std::erase_if(presentedProviderByAgent, [&live](const auto& entry) { return !live.contains(entry.first); });

  for (const auto& listener : result.listeners) {
    if (!listener.agentProcess || !listener.agentOrigin) continue;
    const AgentKind origin = *listener.agentOrigin;
    const AgentKind kind = listener.agentProcess->kind;
    auto entry = presentedProviderByAgent.find(*listener.agentProcess);
    // A re-attribution, once made, is not undone by a later listener.
    if ((entry != presentedProviderByAgent.end() && entry->second != kind) || origin == kind) continue;
    presentedProviderByAgent[*listener.agentProcess] = origin;
  }
  // The inventory's evidence beats what the listeners say.
  for (const auto& [identity, provider] : priorProviders) {
    if (live.contains(identity)) presentedProviderByAgent[identity] = provider;
  }

  ScanResult reconciled = result;
  auto& presences = reconciled.agentPresence.entries;
  for (auto& presence : presences) {
    const auto& identity = presence.identity;
    AgentKind provider = identity.kind;
    if (auto prior = priorProviders.find(identity); prior != priorProviders.end()) {
      provider = prior->second;
    } else if (!presence.host) {
      if (auto entry = presentedProviderByAgent.find(identity); entry != presentedProviderByAgent.end()) {
        provider = entry->second;
      }
    } else if (presence.host->kind == HostAppKind::chatgpt) {
      provider = AgentKind::codex;
    } else if (presence.host->kind == HostAppKind::claudeDesktop) {
      provider = AgentKind::claude;
    }
    presentedProviderByAgent[identity] = provider;
    presence.provider = provider;
  }
  std::stable_sort(presences.begin(), presences.end(), [](const auto& a, const auto& b) {
    return std::tuple(sortOrder(a.provider), a.identity.process) < std::tuple(sortOrder(b.provider), b.identity.process);
  });
  for (auto& listener : reconciled.listeners) {
    if (!listener.agentProcess) continue;
    if (auto entry = presentedProviderByAgent.find(*listener.agentProcess); entry != presentedProviderByAgent.end()) {
      listener.agentOrigin = entry->second;
    }
  }
  return reconciled;
}

// All fields are the main thread's. The consume loop runs on a thread of its own, pulling one
// frame at a time and waiting until the main thread has presented it before it pulls again, so
// frames stay in order and nothing is scanned that nobody takes.
struct PanelScanLifecycle::Core : std::enable_shared_from_this<Core> {
  explicit Core(Dependencies deps) : dependencies(std::move(deps)) {}

  Dependencies dependencies;
  std::shared_ptr<PortScanSession> currentSession;
  std::shared_ptr<std::stop_source> consumeTask;
  AgentProviderPresentationFold providerPresentation;

  void activate() {
    if (currentSession) return;
    currentSession = dependencies.makeSession();
    consumeTask = std::make_shared<std::stop_source>();
    startDetached([weak = weak_from_this(), executor = dependencies.executor, session = currentSession,
                   task = consumeTask] { consume(weak, executor, session, task); });
    dependencies.deliver({PanelScanLifecycleEvent::Started{}});
  }

  void stop(bool deliver) {
    if (!currentSession && !consumeTask) return;
    currentSession.reset();
    if (consumeTask) consumeTask->request_stop();
    consumeTask.reset();
    if (deliver) dependencies.deliver({PanelScanLifecycleEvent::Stopped{}});
  }

  // Whether a frame of this session and task may still go anywhere.
  bool isCurrent(const std::shared_ptr<PortScanSession>& session, const std::shared_ptr<std::stop_source>& task) const {
    return !task->stop_requested() && currentSession == session;
  }

  static void consume(const std::weak_ptr<Core>& weak, const std::shared_ptr<MainExecutor>& executor,
                      const std::shared_ptr<PortScanSession>& session, const std::shared_ptr<std::stop_source>& task) {
    auto iterator = session->makeAsyncIterator();
    while (auto frame = iterator.next(task->get_token())) {
      auto presented = std::make_shared<OneShot<bool>>();
      executor->post([weak, session, task, presented, frame = std::move(*frame)]() mutable {
        auto core = weak.lock();
        if (!core || !core->isCurrent(session, task)) return (void)presented->resume(false);
        core->dependencies.ingest(frame);
        if (!frame.scanned()) {
          // A failed frame needs no evidence and leaves the providers as they are.
          core->dependencies.deliver({std::move(frame)});
          return (void)presented->resume(true);
        }
        core->dependencies.presentedProviderEvidence(
            [weak, session, task, presented, frame = std::move(frame)](Evidence evidence) mutable {
              auto inner = weak.lock();
              if (!inner || !inner->isCurrent(session, task)) return (void)presented->resume(false);
              frame.payload = inner->providerPresentation.reconcile(*frame.scanned(), evidence);
              inner->dependencies.deliver({std::move(frame)});
              presented->resume(true);
            });
      });
      const auto wentOn = presented->value(task->get_token());
      if (!wentOn || !*wentOn) return;  // stale: whoever replaced the session has said so
    }
    // The stream ended by itself: the same state as a stop, unless the session is stale already.
    executor->post([weak, session, task] {
      auto core = weak.lock();
      if (core && core->currentSession == session && core->consumeTask == task) core->stop(true);
    });
  }
};

PanelScanLifecycle::PanelScanLifecycle(Dependencies dependencies)
    : core_(std::make_shared<Core>(std::move(dependencies))) {}

PanelScanLifecycle::~PanelScanLifecycle() { core_->stop(false); }

void PanelScanLifecycle::synchronize(bool panelShown, bool showsListenerList) {
  if (panelShown && showsListenerList) {
    core_->activate();
  } else {
    core_->stop(true);
  }
}

void PanelScanLifecycle::poke() {
  if (core_->currentSession) core_->currentSession->poke();
}

void PanelScanLifecycle::stop() { core_->stop(true); }

bool PanelScanLifecycle::isMonitoring() const { return core_->currentSession != nullptr; }

const AgentProviderPresentationFold& PanelScanLifecycle::providerPresentation() const {
  return core_->providerPresentation;
}

}  // namespace tidewatch
