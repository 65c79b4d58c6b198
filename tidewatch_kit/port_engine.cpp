#include "tidewatch_kit/port_engine.h"

#include <algorithm>
#include <cstdlib>
#include <tuple>
#include <map>
#include <mutex>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "process_core/agent_process_graph.h"
#include "process_core/process_ancestry.h"
#include "process_core/process_safety_classifier.h"
#include "process_core/system_classifier.h"
#include "tidewatch_kit/agent_process_presence_builder.h"
#include "tidewatch_kit/listener_enrichment.h"
#include "tidewatch_kit/service_classifier.h"
#include "tidewatch_kit/socket_owner_map.h"

namespace tidewatch {
namespace {

// One process on one port, before pools are folded.
struct ProcessListener {
  ProcessSnapshot snapshot;
  int port = 0;
  std::vector<BoundEndpoint> endpoints;
  BindSignature bindSignature;
  BindScope bindScope = BindScope::unknown;
};

// One future row.
struct CollapsedListener {
  ProcessListener representative;
  int poolSize = 1;
  std::optional<ProcessIdentity> parent;
};

std::vector<BoundEndpoint> endpointsOf(const std::vector<RawListeningSocket>& sockets, int port) {
  std::vector<BoundEndpoint> endpoints;
  for (const auto& socket : sockets) {
    if (socket.port != port) continue;
    BoundEndpoint endpoint{socket.address, socket.family, socket.port};
    bool seen = false;
    for (const auto& existing : endpoints) seen = seen || existing == endpoint;
    if (!seen) endpoints.push_back(std::move(endpoint));
  }
  return endpoints;
}

using SocketsOfProcess = std::function<std::vector<RawListeningSocket>(int32_t pid)>;

std::vector<ProcessListener> gatherProcessListeners(const PortEngineDependencies& d,
                                                    const std::vector<int32_t>& pids, uint32_t myUID,
                                                    bool includeArgv, const SocketsOfProcess& socketsOf) {
  std::vector<ProcessListener> listeners;
  for (int32_t pid : pids) {
    // A process without a listener costs no further read: that keeps the full pass cheap.
    const auto sockets = socketsOf(pid);
    if (sockets.empty()) continue;
    const auto snapshot = d.enrichedSnapshot(pid, myUID, includeArgv);
    if (!snapshot) continue;
    std::map<int, bool> ports;
    for (const auto& socket : sockets) ports.emplace(socket.port, true);
    for (const auto& [port, unused] : ports) {
      auto endpoints = endpointsOf(sockets, port);
      auto signature = BindSignature::make(endpoints);
      auto scope = makeBindScope(endpoints);
      listeners.push_back({*snapshot, port, std::move(endpoints), std::move(signature), scope});
    }
  }
  return listeners;
}

// Parent identities asked once per parent pid, absent answers included.
class ParentIdentityMemo {
 public:
  explicit ParentIdentityMemo(const PortEngineDependencies& d) : d_(d) {}

  std::optional<ProcessIdentity> operator()(int32_t parentPID) {
    auto it = memo_.find(parentPID);
    if (it == memo_.end()) it = memo_.emplace(parentPID, d_.processIdentity(parentPID)).first;
    return it->second;
  }

 private:
  const PortEngineDependencies& d_;
  std::unordered_map<int32_t, std::optional<ProcessIdentity>> memo_;
};

std::vector<CollapsedListener> collapseWorkerPools(const PortEngineDependencies& d,
                                                   std::vector<ProcessListener> listeners) {
  ParentIdentityMemo parentIdentity(d);
  std::vector<std::optional<WorkerPoolCollapser::Signals>> signals;
  signals.reserve(listeners.size());
  for (const auto& listener : listeners) {
    const auto& s = listener.snapshot;
    // Children of pid 1 and pid 0 are never pooled.
    if (!s.executablePath || !s.uid || !s.parentPID || *s.parentPID < 2) {
      signals.emplace_back();
      continue;
    }
    auto parent = parentIdentity(*s.parentPID);
    if (!parent) {
      signals.emplace_back();
      continue;
    }
    signals.push_back(WorkerPoolCollapser::Signals{listener.port, listener.bindSignature, *s.executablePath,
                                                   *parent, *s.uid});
  }

  const auto groups = WorkerPoolCollapser::group(signals, [](const auto& s) { return s; });
  std::vector<CollapsedListener> collapsed;
  collapsed.reserve(groups.size());
  for (const auto& group : groups) {
    if (group.size() == 1) {
      collapsed.push_back({std::move(listeners[group.front()]), 1, std::nullopt});
      continue;
    }
    size_t representative = group.front();
    for (size_t index : group) {
      if (listeners[index].snapshot.identity.pid < listeners[representative].snapshot.identity.pid) {
        representative = index;
      }
    }
    collapsed.push_back({listeners[representative], static_cast<int>(group.size()),
                         signals[representative]->parentIdentity});
  }
  return collapsed;
}

// The scan's memo: each pid costs at most one read, also when the read fails.
class ScanMemo {
 public:
  ScanMemo(const PortEngineDependencies& d, uint32_t myUID) : d_(d), myUID_(myUID) {}

  void seed(int32_t pid, ProcessSnapshot snapshot) {
    snapshotsByPID_.insert_or_assign(pid, std::move(snapshot));
    attemptedPIDs_.insert(pid);
  }

  std::optional<ProcessSnapshot> lookup(int32_t pid) {
    if (!attemptedPIDs_.insert(pid).second) {
      auto it = snapshotsByPID_.find(pid);
      if (it == snapshotsByPID_.end()) return std::nullopt;
      return it->second;
    }
    auto snapshot = d_.detectionSnapshot(pid, myUID_);
    if (snapshot) snapshotsByPID_.insert_or_assign(pid, *snapshot);
    return snapshot;
  }

  // Merges a listener's own snapshot in, refusing one whose process was replaced since it was read.
  void mergeListenerOwner(const ProcessSnapshot& owner, const std::optional<ProcessIdentity>& current) {
    const int32_t pid = owner.identity.pid;
    attemptedPIDs_.insert(pid);
    auto it = snapshotsByPID_.find(pid);
    if (it != snapshotsByPID_.end() && (!current || it->second.identity != *current)) {
      snapshotsByPID_.erase(it);
    }
    if (!current || owner.identity != *current) return;
    snapshotsByPID_.try_emplace(pid, owner);
  }

  std::vector<ProcessSnapshot> snapshots() const {
    std::vector<ProcessSnapshot> values;
    values.reserve(snapshotsByPID_.size());
    for (const auto& [pid, snapshot] : snapshotsByPID_) values.push_back(snapshot);
    return values;
  }

 private:
  const PortEngineDependencies& d_;
  uint32_t myUID_;
  std::map<int32_t, ProcessSnapshot> snapshotsByPID_;
  std::unordered_set<int32_t> attemptedPIDs_;
};

std::vector<ListenerEnrichment::Result> enrichListeners(const PortEngineDependencies& d,
                                                        const std::vector<CollapsedListener>& collapsed,
                                                        const LookupSnapshot& ancestorSnapshot) {
  const int32_t tidewatchPID = d.currentPID();
  const std::string home = d.homeDirectory();
  // A process with several ports gets one walk.
  std::unordered_map<ProcessIdentity, ListenerEnrichment::Result> byIdentity;
  std::vector<ListenerEnrichment::Result> results;
  results.reserve(collapsed.size());
  for (const auto& listener : collapsed) {
    const auto& owner = listener.representative.snapshot;
    auto it = byIdentity.find(owner.identity);
    if (it == byIdentity.end()) {
      it = byIdentity
               .emplace(owner.identity, ListenerEnrichment::enrich(owner, tidewatchPID, ancestorSnapshot,
                                                                   d.directoryExists,
                                                                   d.currentWorkingDirectory, home))
               .first;
    }
    results.push_back(it->second);
  }
  return results;
}

PortListener buildRow(const CollapsedListener& collapsed, const ListenerEnrichment::Result& result, bool flag,
                      const AgentProcessGraph& graph,
                      const std::unordered_map<AgentProcessIdentity, AgentKind>& providers) {
  const auto& rep = collapsed.representative;
  const auto& snapshot = rep.snapshot;
  PortListener row;

  // A row is attributed only to a process that the graph still confirms as that kind of agent,
  // and to the session that owns it rather than to a sub-agent.
  if (result.agentProcess) {
    const auto& candidate = *result.agentProcess;
    if (auto agent = graph.snapshot(candidate.process)) {
      if (auto kind = graph.agentKind(*agent); kind && *kind == candidate.kind) {
        AgentProcessIdentity session{graph.topLevelSessionIdentity(candidate.process), candidate.kind};
        auto provider = providers.find(session);
        row.agentOrigin = provider != providers.end() ? provider->second : candidate.kind;
        row.agentProcess = session;
      }
    }
  }

  row.visibility = (flag || KnownBackgroundAppClassifier::isKnownBackground(snapshot))
                       ? VisibilityClass::hiddenSystemBackground
                       : VisibilityClass::defaultVisible;
  row.classification = ServiceClassifier::classify(snapshot.name, snapshot.executablePath, rep.port, snapshot.argv);

  row.identity.proto = PortProtocol::tcp;
  row.identity.port = rep.port;
  row.identity.bindSignature = rep.bindSignature;
  if (collapsed.poolSize < 2) {
    row.identity.process = snapshot.identity;
    row.identity.isPool = false;
  } else {
    row.identity.process = collapsed.parent.value_or(snapshot.identity);
    row.identity.executablePath = snapshot.executablePath;
    row.identity.isPool = true;
  }

  row.port = rep.port;
  row.proto = PortProtocol::tcp;
  row.state = PortState::listen;
  row.endpoints = rep.endpoints;
  row.bindScope = rep.bindScope;
  row.bindSignature = rep.bindSignature;
  row.process = snapshot;
  row.workerPoolSize = collapsed.poolSize;
  row.parentIdentity = collapsed.parent;
  row.host = result.host;
  row.project = result.project;
  row.focusTarget = result.focusTarget;
  row.isInTidewatchSubtree = result.isInTidewatchSubtree;
  return row;
}

// Other users' listeners by port, then address; a user's name asked once.
std::vector<OtherUserListener> otherUserListeners(const PortEngineDependencies& d,
                                                  std::vector<OwnedListeningSocket> notOwned) {
  std::map<uint32_t, std::string> names;
  std::vector<OtherUserListener> listeners;
  for (auto& owned : notOwned) {
    auto name = names.find(owned.uid);
    if (name == names.end()) {
      name = names.emplace(owned.uid, d.userName(owned.uid).value_or(std::to_string(owned.uid))).first;
    }
    listeners.push_back({owned.socket.port, owned.socket.family, std::move(owned.socket.address), owned.uid,
                         name->second});
  }
  std::sort(listeners.begin(), listeners.end(), [](const OtherUserListener& a, const OtherUserListener& b) {
    return std::tie(a.port, a.address, a.family, a.uid) < std::tie(b.port, b.address, b.family, b.uid);
  });
  listeners.erase(std::unique(listeners.begin(), listeners.end()), listeners.end());
  return listeners;
}

}  // namespace

struct PortEngine::IncrementalState {
  explicit IncrementalState(const PortEngineDependencies& d)
      : owners({.listeningSockets = d.listeningSocketRecords,
                .socketDescriptors = d.socketDescriptors,
                .descriptorSocket = d.descriptorSocket,
                .processIdentity = d.processIdentity}) {}

  std::mutex mutex;
  SocketOwnerMap owners;
  // Processes whose names and executable make them no agent. A process keeps its pid and its
  // identity through exec, so one that execs into an agent is seen at the next complete walk.
  std::unordered_set<int32_t> notAgents;
};

namespace {

// What a scan starts from: the processes, their listening sockets and other users' listeners.
struct ScanTables {
  std::vector<int32_t> pids;
  SocketsOfProcess socketsOf;
  std::vector<OwnedListeningSocket> notOwned;
  // Processes already known to be no agent, for the presence pass to skip.
  const std::unordered_set<int32_t>* notAgents = nullptr;
};

}  // namespace

PortEngine::PortEngine() : PortEngine(PortEngineDependencies::live()) {}

PortEngine::PortEngine(PortEngineDependencies dependencies) : dependencies_(std::move(dependencies)) {}

PortEngine PortEngine::incremental(PortEngineDependencies dependencies) {
  PortEngine engine(std::move(dependencies));
  engine.incremental_ = std::make_shared<IncrementalState>(engine.dependencies_);
  return engine;
}

ScanResult PortEngine::scan(bool includeArgv) const {
  const auto& d = dependencies_;
  const Date now = d.now();
  const uint32_t myUID = d.currentUID();
  std::unique_lock<std::mutex> lock;
  ScanTables tables;
  std::unordered_map<int32_t, std::vector<RawListeningSocket>> socketsByPID;
  if (incremental_) {
    lock = std::unique_lock(incremental_->mutex);
    tables.pids = d.processIDs();
    if (tables.pids.empty()) throw ScanError(ScanError::Code::enumerationUnavailable);
    auto owners = incremental_->owners.update(tables.pids, now);
    socketsByPID = std::move(owners.socketsByPID);
    tables.socketsOf = [&socketsByPID](int32_t pid) {
      auto found = socketsByPID.find(pid);
      return found == socketsByPID.end() ? std::vector<RawListeningSocket>{} : found->second;
    };
    tables.notOwned = socketsNotOwnedBy(owners.records, myUID);
    auto& notAgents = incremental_->notAgents;
    if (owners.complete) notAgents.clear();
    const std::unordered_set<int32_t> present(tables.pids.begin(), tables.pids.end());
    std::erase_if(notAgents, [&present](int32_t pid) { return !present.contains(pid); });
    tables.notAgents = &notAgents;
  } else {
    tables.pids = d.allPIDs();
    if (tables.pids.empty()) throw ScanError(ScanError::Code::enumerationUnavailable);
    tables.socketsOf = d.listeningSockets;
    tables.notOwned = d.listeningSocketsNotOwnedBy(myUID);
  }
  const auto& pids = tables.pids;

  const auto collapsed =
      collapseWorkerPools(d, gatherProcessListeners(d, pids, myUID, includeArgv, tables.socketsOf));

  ScanMemo memo(d, myUID);
  for (int32_t pid : pids) {
    if (tables.notAgents && tables.notAgents->contains(pid)) continue;
    if (auto snapshot = d.agentPresenceSnapshot(pid, myUID)) {
      memo.seed(pid, std::move(*snapshot));
    } else if (incremental_) {
      incremental_->notAgents.insert(pid);
    }
  }
  const LookupSnapshot ancestorSnapshot = [&memo](int32_t pid) { return memo.lookup(pid); };

  std::unordered_map<int32_t, std::optional<ProcessIdentity>> currentIdentities;
  for (const auto& listener : collapsed) {
    const int32_t pid = listener.representative.snapshot.identity.pid;
    auto it = currentIdentities.find(pid);
    if (it == currentIdentities.end()) it = currentIdentities.emplace(pid, d.processIdentity(pid)).first;
    memo.mergeListenerOwner(listener.representative.snapshot, it->second);
  }

  const auto enrichments = enrichListeners(d, collapsed, ancestorSnapshot);

  // The first graph only names the agents; walking their ancestors pulls the parents into the
  // memo, so the second graph knows the parent of every agent.
  {
    const AgentProcessGraph first(memo.snapshots());
    for (const auto& agent : first.detectedAgents()) {
      if (auto owner = first.snapshot(agent.process)) {
        (void)ProcessAncestry::nearestHostApp(*owner, ancestorSnapshot);
      }
    }
  }
  const AgentProcessGraph graph(memo.snapshots());

  ScanResult result;
  result.agentPresence = AgentProcessPresenceBuilder::build(graph, ancestorSnapshot, d.currentWorkingDirectory,
                                                            d.directoryExists, d.homeDirectory(), now);
  std::unordered_map<AgentProcessIdentity, AgentKind> providers;
  for (const auto& entry : result.agentPresence.entries) providers.emplace(entry.identity, entry.provider);

  std::vector<std::optional<std::string>> paths;
  paths.reserve(collapsed.size());
  for (const auto& listener : collapsed) paths.push_back(listener.representative.snapshot.executablePath);
  const auto flags = d.strongSystemBackgroundFlags(paths);
  if (flags.size() != paths.size()) std::abort();  // a broken wiring, not a runtime condition

  result.listeners.reserve(collapsed.size());
  for (size_t i = 0; i < collapsed.size(); ++i) {
    result.listeners.push_back(buildRow(collapsed[i], enrichments[i], flags[i], graph, providers));
  }
  result.scannedAt = now;
  result.processCount = static_cast<int>(pids.size());
  result.otherUserListeners = otherUserListeners(d, std::move(tables.notOwned));
  return result;
}

std::optional<ProcessSnapshot> PortEngine::detectionSnapshot(int32_t pid) const {
  return dependencies_.detectionSnapshot(pid, dependencies_.currentUID());
}

PortEngine::LiveResolution PortEngine::resolveLiveProcess(int32_t pid) const {
  auto read = dependencies_.liveResolveSnapshot(pid);
  if (!read.snapshot) return {std::nullopt, read.error};
  const auto flags = dependencies_.strongSystemBackgroundFlags({read.snapshot->executablePath});
  if (flags.empty()) return {};
  return {LiveProcess{std::move(*read.snapshot), flags.front()}, 0};
}

PortEngine::SubtreeAnswer PortEngine::isInProcessSubtree(const ProcessSnapshot& snapshot, int32_t rootedAt) const {
  int error = 0;
  const LookupSnapshot lookup = [this, &error](int32_t pid) {
    auto read = dependencies_.liveResolveSnapshot(pid);
    if (!read.snapshot && read.error != 0) error = read.error;
    return read.snapshot;
  };
  const bool inSubtree = ProcessAncestry::isInSubtree(snapshot, rootedAt, lookup);
  // Found is found; not found is only an answer when every ancestor could be read.
  if (inSubtree) return {true, 0};
  return {false, error};
}

std::vector<ProcessIdentity> PortEngine::poolMemberIdentities(const WorkerPoolCollapser::Signals& signals) const {
  const auto& d = dependencies_;
  const uint32_t myUID = d.currentUID();
  ParentIdentityMemo parentIdentity(d);
  std::vector<ProcessIdentity> members;
  for (int32_t pid : d.allPIDs()) {
    const auto sockets = d.listeningSockets(pid);
    bool onPort = false;
    for (const auto& socket : sockets) onPort = onPort || socket.port == signals.port;
    if (!onPort) continue;
    const auto snapshot = d.enrichedSnapshot(pid, myUID, false);
    if (!snapshot) continue;
    if (snapshot->executablePath != signals.executablePath) continue;
    if (snapshot->uid != signals.uid) continue;
    if (!snapshot->parentPID || *snapshot->parentPID < 2) continue;
    if (parentIdentity(*snapshot->parentPID) != signals.parentIdentity) continue;
    std::vector<BoundEndpoint> endpoints;
    for (const auto& socket : sockets) {
      if (socket.port == signals.port) endpoints.push_back({socket.address, socket.family, socket.port});
    }
    if (BindSignature::make(endpoints) != signals.bindSignature) continue;
    const auto safety = ProcessSafetyClassifier::classify(*snapshot, false, false,
                                                          ProcessSafetyClassifier::Context::current());
    if (!safety.isActionable()) continue;
    members.push_back(snapshot->identity);
  }
  return members;
}

}  // namespace tidewatch
