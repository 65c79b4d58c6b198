#include "inventory/agent_inventory_coordinator.h"

#include <unistd.h>

#include <set>
#include <thread>

#include "process_core/agent_process_graph.h"
#include "process_core/process_ancestry.h"
#include "process_core/process_reader.h"

namespace tidewatch {

// Everything the coordinator holds lives here, owned by the coordinator alone; work that comes
// back later (posted steps, probes, timers) holds it weakly and does nothing once it is gone.
struct AgentInventoryCoordinator::Core : std::enable_shared_from_this<Core> {
  // A step of the lane; it calls `finished` when done, at once or after a wait.
  using Step = std::function<void(std::function<void()> finished)>;

  Core(std::shared_ptr<MainExecutor> mainExecutor, Dependencies deps)
      : executor(std::move(mainExecutor)), dependencies(std::move(deps)) {}

  std::shared_ptr<MainExecutor> executor;
  Dependencies dependencies;
  AgentInventorySnapshot snapshot = AgentInventorySnapshot::empty();
  AgentInventoryReducer reducer;
  std::vector<AgentProviderConnection> connections;
  std::function<void(const std::vector<AgentCompletionEdge>&)>* onCompletionEdges = nullptr;
  std::function<void()>* onSnapshotPublished = nullptr;

  std::deque<std::pair<uint64_t, Step>> lane;
  uint64_t laneGeneration = 0;
  bool ended = false;  // shut down: for good
  bool stepRunning = false;
  bool pumping = false;
  std::optional<MainExecutor::TimerID> expiryTimer;
  uint64_t expiryGeneration = 0;

  // From any thread: the step joins the lane on the main thread, in the order of calls.
  void enqueue(Step step) {
    executor->post([weak = weak_from_this(), step = std::move(step)]() mutable {
      auto core = weak.lock();
      if (!core || core->ended) return;
      core->lane.emplace_back(core->laneGeneration, std::move(step));
      core->pump();
    });
  }

  // A plain step: work, then publish.
  void enqueuePublishing(std::function<void(Core&)> work) {
    enqueue([weak = weak_from_this(), work = std::move(work)](std::function<void()> finished) {
      if (auto core = weak.lock()) {
        work(*core);
        core->publish();
      }
      finished();
    });
  }

  void pump() {
    if (pumping) return;
    pumping = true;
    while (!stepRunning && !lane.empty()) {
      auto [generation, step] = std::move(lane.front());
      lane.pop_front();
      if (generation != laneGeneration) continue;
      stepRunning = true;
      step([weak = weak_from_this()] {
        if (auto core = weak.lock()) {
          core->stepRunning = false;
          core->pump();
        }
      });
    }
    pumping = false;
  }

  void publish() {
    snapshot = reducer.snapshot(connections);
    const auto edges = reducer.takeCompletionEdges();
    if (!edges.empty() && onCompletionEdges && *onCompletionEdges) (*onCompletionEdges)(edges);
    if (onSnapshotPublished && *onSnapshotPublished) (*onSnapshotPublished)();
    rescheduleExpiry();
  }

  void cancelExpiry() {
    if (expiryTimer) executor->cancel(*expiryTimer);
    expiryTimer.reset();
    ++expiryGeneration;
  }

  void rescheduleExpiry() {
    cancelExpiry();
    const auto deadline = reducer.nextTransientDeadline();
    if (!deadline) return;
    const auto delay = std::max(std::chrono::nanoseconds(0),
                                std::chrono::duration_cast<std::chrono::nanoseconds>(*deadline - dependencies.now()));
    expiryTimer = executor->postAfter(delay, [weak = weak_from_this(), generation = expiryGeneration] {
      auto core = weak.lock();
      if (!core || core->expiryGeneration != generation) return;
      core->expiryTimer.reset();
      core->enqueue([weak, generation](std::function<void()> finished) {
        if (auto inner = weak.lock(); inner && inner->expiryGeneration == generation) {
          inner->reducer.expireTransients(inner->dependencies.now());
          inner->publish();
        }
        finished();
      });
    });
  }

  void applyScan(ScanResult result, std::map<AgentProcessIdentity, ListenerIdentitySet> related,
                 std::function<void()> finished) {
    const auto probes = reducer.hookRuntimeProbeIdentities();
    const std::set<ProcessIdentity> unique(probes.begin(), probes.end());
    auto apply = [weak = weak_from_this(), generation = laneGeneration, result = std::move(result),
                  related = std::move(related), finished](std::map<ProcessIdentity, bool> runtimeCurrent) {
      auto core = weak.lock();
      if (!core) return;
      if (core->laneGeneration == generation) {
        core->reducer.applyPanelScan(result.agentPresence, related, runtimeCurrent, result.scannedAt,
                                     core->dependencies.now());
        core->publish();
      }
      finished();
    };
    if (unique.empty()) return apply({});
    // The probes read the process table: off the main thread, while later steps wait behind this one.
    dependencies.runInBackground([isCurrent = dependencies.isProcessCurrent, executor = executor, unique,
                                  apply = std::move(apply)]() mutable {
      std::map<ProcessIdentity, bool> runtimeCurrent;
      for (const auto& identity : unique) runtimeCurrent.emplace(identity, isCurrent(identity));
      executor->post([apply = std::move(apply), runtimeCurrent = std::move(runtimeCurrent)]() mutable {
        apply(std::move(runtimeCurrent));
      });
    });
  }
};

AgentInventoryCoordinator::Dependencies AgentInventoryCoordinator::Dependencies::live() {
  Dependencies d;
  d.now = [] { return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()); };
  d.isProcessCurrent = [](const ProcessIdentity& identity) {
    const auto read = ProcessReader::liveResolveSnapshot(identity.pid);
    return read.snapshot && read.snapshot->identity == identity;
  };
  d.runInBackground = [](std::function<void()> work) {
    try {
      std::thread(std::move(work)).detach();
    } catch (const std::system_error&) {
      work();  // no thread to be had: the probes run here rather than never
    }
  };
  return d;
}

AgentInventoryCoordinator::AgentInventoryCoordinator(std::shared_ptr<MainExecutor> executor, Dependencies dependencies)
    : core_(std::make_shared<Core>(std::move(executor), std::move(dependencies))) {
  core_->onCompletionEdges = &onCompletionEdges;
  core_->onSnapshotPublished = &onSnapshotPublished;
}

AgentInventoryCoordinator::~AgentInventoryCoordinator() { shutDown(); }

const AgentInventorySnapshot& AgentInventoryCoordinator::snapshot() const { return core_->snapshot; }

std::map<AgentProcessIdentity, AgentKind> AgentInventoryCoordinator::presentedProviderEvidence() const {
  return core_->reducer.presentedProviderEvidence();
}

void AgentInventoryCoordinator::applyScan(const ScanResult& result) {
  // Which listeners each agent process holds, worked out on the caller's turn.
  auto related = relatedListeners(result);
  core_->enqueue([weak = std::weak_ptr<Core>(core_), result, related = std::move(related)](
                     std::function<void()> finished) mutable {
    auto core = weak.lock();
    if (!core) return finished();
    core->applyScan(std::move(result), std::move(related), std::move(finished));
  });
}

void AgentInventoryCoordinator::applyScanFailure() {
  core_->enqueuePublishing([](Core& core) { core.reducer.applyScanFailure(core.dependencies.now()); });
}

void AgentInventoryCoordinator::applyHookEnvelope(const AgentHookProtocol::Envelope& envelope, const HookOrigin& origin,
                                                  Date receivedAt) {
  core_->enqueuePublishing(
      [envelope, origin, receivedAt](Core& core) { core.reducer.applyHookEvent(envelope, origin, receivedAt); });
}

void AgentInventoryCoordinator::applyTrackingUpdate(const AgentTrackingUpdateFacts& facts) {
  core_->enqueuePublishing(
      [facts](Core& core) { core.reducer.applyPresentedTrackingUpdate(facts, core.dependencies.now()); });
}

void AgentInventoryCoordinator::setProviderConnections(std::vector<AgentProviderConnection> connections) {
  core_->enqueuePublishing([connections = std::move(connections)](Core& core) { core.connections = connections; });
}

void AgentInventoryCoordinator::providerDisconnected(AgentKind provider) {
  core_->enqueuePublishing(
      [provider](Core& core) { core.reducer.providerDisconnected(provider, core.dependencies.now()); });
}

void AgentInventoryCoordinator::whenSettled(std::function<void()> work) {
  core_->enqueue([work = std::move(work)](std::function<void()> finished) {
    work();
    finished();
  });
}

void AgentInventoryCoordinator::shutDown() {
  core_->ended = true;
  core_->cancelExpiry();
  ++core_->laneGeneration;
  core_->lane.clear();
}

// ---- Hook origins ----------------------------------------------------------------------------

AgentInventoryCoordinator::HookOrigin AgentInventoryCoordinator::liveHookOrigin(int32_t parentPID) {
  const auto myUID = static_cast<uint32_t>(::getuid());
  return hookOrigin(parentPID, [myUID](int32_t pid) { return ProcessReader::detectionSnapshot(pid, myUID); });
}

AgentInventoryCoordinator::HookOrigin AgentInventoryCoordinator::hookOrigin(int32_t parentPID,
                                                                           const ReadProcess& read) {
  if (parentPID < 2) return {};
  auto start = read(parentPID);
  if (!start) return {};
  std::map<int32_t, ProcessSnapshot> chain{{parentPID, *start}};
  const ProcessSnapshot* current = &chain.at(parentPID);
  for (int hop = 0; hop < ProcessAncestry::maxAncestorHops; ++hop) {
    if (!current->parentPID || *current->parentPID < 2 || chain.contains(*current->parentPID)) break;
    auto parent = read(*current->parentPID);
    if (!parent) break;
    current = &chain.emplace(*current->parentPID, std::move(*parent)).first->second;
  }
  return hookOrigin(*start, chain);
}

AgentInventoryCoordinator::HookOrigin AgentInventoryCoordinator::hookOrigin(
    const ProcessSnapshot& start, const std::map<int32_t, ProcessSnapshot>& chain) {
  const LookupSnapshot lookup = [&chain](int32_t pid) -> std::optional<ProcessSnapshot> {
    auto found = chain.find(pid);
    if (found == chain.end()) return std::nullopt;
    return found->second;
  };
  const auto facts = ProcessAncestry::resolve(start, std::nullopt, lookup);
  std::vector<ProcessSnapshot> snapshots;
  for (const auto& [pid, snapshot] : chain) snapshots.push_back(snapshot);
  const AgentProcessGraph graph(snapshots);

  HookOrigin origin;
  if (facts.attributingAgentProcess) {
    const AgentProcessIdentity agent{graph.topLevelSessionIdentity(facts.attributingAgentProcess->process),
                                     facts.attributingAgentProcess->kind};
    origin.agentProcess = agent;
    if (auto snapshot = graph.snapshot(agent.process)) origin.host = graph.nearestHostApp(*snapshot);
  } else {
    origin.host = facts.hostApp;
  }
  origin.runtime = start.identity;
  return origin;
}

}  // namespace tidewatch
