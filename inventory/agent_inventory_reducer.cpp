#include "inventory/agent_inventory_reducer.h"

#include <algorithm>

namespace tidewatch {
namespace {

using State = AgentSessionState;
using EventKind = AgentHookProtocol::EventKind;

Date later(Date a, Date b) { return std::max(a, b); }

Date startOf(const AgentProcessIdentity& identity) {
  return Date(std::chrono::seconds(static_cast<int64_t>(identity.process.startTimeSeconds)));
}

bool isAmbient(State state) {
  return state == State::needsAttention || state == State::working || state == State::waiting;
}

std::optional<HostAppKind> kindOf(const std::optional<HostAppOccurrence>& host) {
  if (!host) return std::nullopt;
  return host->kind;
}

// Keeps a host only when no kind is expected or it is of that kind.
void filterHost(std::optional<HostAppOccurrence>& host, std::optional<HostAppKind> expected) {
  if (expected && host && host->kind != *expected) host.reset();
}

}  // namespace

// ---- Provider presentation -----------------------------------------------------------------

AgentKind AgentInventoryReducer::reconcileProviderPresentation(const AgentProcessIdentity& identity,
                                                               std::optional<HostAppKind> host,
                                                               std::optional<AgentKind> fallback, Date observedAt) {
  auto existing = providerPresentationEvidence_.find(identity);
  if (existing != providerPresentationEvidence_.end()) {
    if (!host) return existing->second.provider;
    // An older fact that rests on a host application stands.
    if (existing->second.isAuthoritative && observedAt < existing->second.observedAt) return existing->second.provider;
    const AgentKind provider = impliedProvider(host, identity.kind);
    existing->second = {provider, observedAt, true, host};
    return provider;
  }
  const AgentKind provider = host ? impliedProvider(host, identity.kind) : fallback.value_or(identity.kind);
  providerPresentationEvidence_.emplace(identity, ProviderPresentationEvidence{provider, observedAt, host.has_value(), host});
  return provider;
}

std::optional<HostAppKind> AgentInventoryReducer::expectedHostKind(const AgentProcessIdentity& identity) const {
  auto evidence = providerPresentationEvidence_.find(identity);
  if (evidence == providerPresentationEvidence_.end()) return std::nullopt;
  return evidence->second.hostKind;
}

std::optional<AgentKind> AgentInventoryReducer::evidenceProvider(const AgentProcessIdentity& identity) const {
  auto evidence = providerPresentationEvidence_.find(identity);
  if (evidence == providerPresentationEvidence_.end()) return std::nullopt;
  return evidence->second.provider;
}

void AgentInventoryReducer::refreshMappedHookPresentation(const AgentProcessIdentity& identity, AgentKind provider) {
  const auto expected = expectedHostKind(identity);
  for (auto& [key, record] : hookRecords_) {
    if (record.agentProcess != identity) continue;
    record.presentedProvider = provider;
    filterHost(record.host, expected);
  }
}

void AgentInventoryReducer::refreshMappedHookPresentation() {
  for (const auto& [identity, record] : processRecords_) refreshMappedHookPresentation(identity, record.provider);
}

std::map<AgentProcessIdentity, AgentKind> AgentInventoryReducer::presentedProviderEvidence() const {
  std::map<AgentProcessIdentity, AgentKind> presented;
  for (const auto& [identity, evidence] : providerPresentationEvidence_) presented.emplace(identity, evidence.provider);
  for (const auto& [identity, record] : processRecords_) presented.emplace(identity, record.provider);
  for (const auto& [key, record] : hookRecords_) {
    if (record.agentProcess) presented.emplace(*record.agentProcess, record.presentedProvider);
  }
  return presented;
}

void AgentInventoryReducer::rebuildPresence(ProcessRecord& record, const AgentProcessIdentity& identity,
                                            AgentKind provider) const {
  record.provider = provider;
  record.presence.identity = identity;
  record.presence.provider = provider;
  filterHost(record.presence.host, expectedHostKind(identity));
}

// ---- Rows ------------------------------------------------------------------------------------

std::map<AgentProcessIdentity, int> AgentInventoryReducer::mappedSessionCounts() const {
  std::map<AgentProcessIdentity, int> counts;
  for (const auto& [key, record] : hookRecords_) {
    if (record.agentProcess) ++counts[*record.agentProcess];
  }
  return counts;
}

AgentSessionState AgentInventoryReducer::effectiveHookState(const HookRecord& record) const {
  // The tracker says busy or idle while the hook says only waiting or detected.
  if ((record.state == State::waiting || record.state == State::detected) && record.agentProcess) {
    auto tracked = trackedActivity_.find(*record.agentProcess);
    if (tracked != trackedActivity_.end()) return tracked->second ? State::working : State::waiting;
  }
  return record.state;
}

bool AgentInventoryReducer::hookEligibility(const HookRecord& record) const {
  if (record.wasAmbientEligible || isAmbient(record.state)) return true;
  return record.state == State::detected && record.agentProcess && trackedActivity_.contains(*record.agentProcess);
}

AgentSessionSnapshot AgentInventoryReducer::hookSessionSnapshot(const HookRecord& record,
                                                                const std::map<AgentProcessIdentity, int>& counts) const {
  AgentSessionSnapshot row;
  row.id = AgentSessionID::provider(record.provider, record.sessionID);
  row.provider = record.presentedProvider;
  row.state = effectiveHookState(record);
  row.stateDetail = record.stateDetail;
  row.lastEventAt = record.lastEventAt;
  const ProcessRecord* mapped = nullptr;
  if (record.agentProcess) {
    auto found = processRecords_.find(*record.agentProcess);
    if (found != processRecords_.end()) mapped = &found->second;
  }
  if (record.host) {
    row.controlSurface = AgentHostDescriptor::of(*record.host);
  } else if (mapped && mapped->presence.host) {
    row.controlSurface = AgentHostDescriptor::of(*mapped->presence.host);
  }
  row.projectName = record.projectName;
  if (!row.projectName && mapped) row.projectName = mapped->presence.projectName;
  row.executionLocation = record.agentProcess ? AgentExecutionLocation::local() : AgentExecutionLocation::unknown();
  row.startedAt = record.agentProcess ? startOf(*record.agentProcess) : record.firstEventAt;
  row.processIdentity = record.agentProcess;
  // A process's listeners belong to a session only when it is the process's one session.
  const auto count = record.agentProcess ? counts.find(*record.agentProcess) : counts.end();
  if (record.agentProcess && (count == counts.end() || count->second <= 1) && mapped && mapped->scanObserved) {
    row.relatedListenerIDs = mapped->relatedListenerIDs;
    row.portRelationship = row.relatedListenerIDs.empty() ? PortRelationshipConfidence::noneObserved
                                                          : PortRelationshipConfidence::exact;
  }
  row.evidence = record.agentProcess ? AgentEvidence::processAndProviderHook : AgentEvidence::providerHook;
  return row;
}

AgentSessionSnapshot AgentInventoryReducer::processSessionSnapshot(const ProcessRecord& record,
                                                                   const AgentProcessIdentity& identity) const {
  AgentSessionSnapshot row;
  row.id = AgentSessionID::process(identity);
  row.provider = record.provider;
  auto tracked = trackedActivity_.find(identity);
  row.state = tracked == trackedActivity_.end() ? State::detected : tracked->second ? State::working : State::waiting;
  if (record.presence.host) row.controlSurface = AgentHostDescriptor::of(*record.presence.host);
  row.projectName = record.presence.projectName;
  row.executionLocation = AgentExecutionLocation::local();
  row.startedAt = startOf(identity);
  row.lastEventAt = record.lastSeenAt;
  row.processIdentity = identity;
  row.relatedListenerIDs = record.relatedListenerIDs;
  if (record.scanObserved) {
    row.portRelationship = record.relatedListenerIDs.empty() ? PortRelationshipConfidence::noneObserved
                                                             : PortRelationshipConfidence::exact;
  }
  row.evidence = AgentEvidence::process;
  return row;
}

void AgentInventoryReducer::addFinishedRow(AgentSessionSnapshot session, Date at) {
  session.state = State::recentlyFinished;
  session.stateDetail.reset();
  session.lastEventAt = at;
  pendingCompletionEdges_.push_back({session.id, session.provider, at});
  finishedRecords_.push_back({std::move(session), at + finishedRowLifetime});
}

void AgentInventoryReducer::finishProcessSession(const ProcessRecord& record, const AgentProcessIdentity& identity,
                                                 Date at) {
  addFinishedRow(processSessionSnapshot(record, identity), at);
}

void AgentInventoryReducer::endHookSession(const HookKey& key, bool announce, Date at) {
  auto found = hookRecords_.find(key);
  if (found == hookRecords_.end()) return;
  const auto counts = mappedSessionCounts();
  const bool eligible = hookEligibility(found->second);
  const HookRecord record = std::move(found->second);
  std::optional<AgentSessionSnapshot> row;
  if (announce && eligible) row = hookSessionSnapshot(record, counts);
  hookRecords_.erase(found);
  terminatedGenerations_[key] = at;
  if (row) addFinishedRow(std::move(*row), at);
}

// ---- Hook events -----------------------------------------------------------------------------

void AgentInventoryReducer::applyHookEvent(const AgentHookProtocol::Envelope& envelope, const HookOrigin& origin,
                                           Date at) {
  if (envelope.event == EventKind::connectionTest) return;
  expireTransients(at);
  capturedAt_ = later(capturedAt_, at);

  const HookKey key{envelope.provider, envelope.sessionID};
  if (auto tombstone = terminatedGenerations_.find(key); tombstone != terminatedGenerations_.end()) {
    // A late event cannot bring a finished session back; only a fresh start reuses the key.
    if (envelope.event != EventKind::sessionStart) return;
    terminatedGenerations_.erase(tombstone);
  }

  // The process the event came from, unless it belongs to another provider altogether.
  std::optional<AgentProcessIdentity> identity = origin.agentProcess;
  if (identity) {
    const AgentKind hostProvider = impliedProvider(kindOf(origin.host), identity->kind);
    std::optional<AgentKind> known = evidenceProvider(*identity);
    if (!known) {
      if (auto record = processRecords_.find(*identity); record != processRecords_.end()) known = record->second.provider;
    }
    if (envelope.provider != identity->kind && envelope.provider != hostProvider &&
        (!known || *known != envelope.provider)) {
      identity.reset();
    }
  }
  if (identity) {
    if (auto suppression = suppressedProcessFallbacks_.find(*identity);
        suppression != suppressedProcessFallbacks_.end()) {
      suppression->second.sourceProviders.erase(envelope.provider);
      suppression->second.changedAt = at;
      if (suppression->second.sourceProviders.empty()) suppressedProcessFallbacks_.erase(suppression);
    }
  }

  const auto existing = hookRecords_.find(key);
  AgentKind presented = envelope.provider;
  if (identity) {
    std::optional<AgentKind> fallback = evidenceProvider(*identity);
    if (!fallback) {
      if (auto record = processRecords_.find(*identity); record != processRecords_.end()) {
        fallback = record->second.provider;
      } else if (existing != hookRecords_.end()) {
        fallback = existing->second.presentedProvider;
      }
    }
    presented = reconcileProviderPresentation(*identity, kindOf(origin.host), fallback, at);
  } else if (origin.host) {
    presented = impliedProvider(origin.host->kind, envelope.provider);
  } else if (existing != hookRecords_.end()) {
    presented = existing->second.presentedProvider;
  }

  HookRecord record;
  if (existing != hookRecords_.end()) {
    record = existing->second;
  } else {
    record.provider = envelope.provider;
    record.sessionID = envelope.sessionID;
    record.host = origin.host;
    record.projectName = envelope.projectName;
    record.agentProcess = identity;
    record.runtime = origin.runtime;
    record.firstEventAt = at;
  }
  record.presentedProvider = presented;
  record.lastEventAt = at;
  record.staleEvidence = false;

  if (identity) {
    const auto expected = expectedHostKind(*identity);
    if (origin.host && (!expected || *expected == origin.host->kind)) {
      record.host = origin.host;
    } else {
      filterHost(record.host, expected);
    }
    if (auto process = processRecords_.find(*identity); process != processRecords_.end()) {
      process->second.lastSeenAt = later(process->second.lastSeenAt, at);
      rebuildPresence(process->second, *identity, presented);
    }
  } else if (origin.host) {
    record.host = origin.host;
  }
  if (envelope.projectName) record.projectName = envelope.projectName;
  if (identity) record.agentProcess = identity;
  if (origin.runtime) record.runtime = origin.runtime;

  switch (envelope.event) {
    case EventKind::sessionStart:
      record.state = State::detected;
      record.stateDetail.reset();
      break;
    case EventKind::promptSubmitted:
      record.state = State::working;
      record.stateDetail.reset();
      break;
    case EventKind::permissionRequested:
      record.state = State::needsAttention;
      record.stateDetail = "Waiting for permission approval.";
      break;
    case EventKind::needsInputNotification:
      record.state = State::needsAttention;
      record.stateDetail = "The agent asked for your input.";
      break;
    case EventKind::idleNotification:
      if (record.state != State::needsAttention) {
        record.state = State::waiting;
        record.stateDetail.reset();
      }
      break;
    case EventKind::turnEnded:
      record.state = State::waiting;
      record.stateDetail.reset();
      break;
    case EventKind::turnFailed:
      if (record.state != State::needsAttention) {
        record.state = State::waiting;
        record.stateDetail = "The last turn ended with an error.";
      }
      break;
    case EventKind::sessionEnded:
    case EventKind::connectionTest:
      break;
  }

  if (envelope.event != EventKind::sessionEnded) {
    if (hookEligibility(record)) record.wasAmbientEligible = true;
    hookRecords_.insert_or_assign(key, std::move(record));
    return;
  }

  const auto process = record.agentProcess;
  const AgentKind provider = record.provider;
  hookRecords_.insert_or_assign(key, std::move(record));
  endHookSession(key, true, at);
  if (process) {
    // The session's process is now hidden as a plain row: its session's end is the one announced.
    auto& suppression = suppressedProcessFallbacks_[*process];
    suppression.sourceProviders.insert(provider);
    suppression.changedAt = at;
  }
}

// ---- Scans -----------------------------------------------------------------------------------

void AgentInventoryReducer::applyPanelScan(const AgentProcessPresenceSnapshot& presence,
                                           const std::map<AgentProcessIdentity, ListenerIdentitySet>& relatedListeners,
                                           const std::map<ProcessIdentity, bool>& runtimeCurrent,
                                           std::optional<Date> observedAt, Date at) {
  expireTransients(at);
  const Date observed = observedAt.value_or(at);

  std::set<AgentProcessIdentity> current;
  for (const auto& entry : presence.entries) current.insert(entry.identity);
  for (const auto& [identity, listeners] : relatedListeners) current.insert(identity);
  const auto previous = processRecords_;
  std::set<AgentProcessIdentity> priorSuppressed;
  for (const auto& [identity, suppression] : suppressedProcessFallbacks_) priorSuppressed.insert(identity);

  // Both outlive their process only until a scan at least as new shows it gone.
  std::erase_if(suppressedProcessFallbacks_, [&](const auto& entry) {
    return !current.contains(entry.first) && !(entry.second.changedAt > observed);
  });
  std::erase_if(providerPresentationEvidence_, [&](const auto& entry) {
    return !current.contains(entry.first) && !(entry.second.observedAt > observed);
  });

  std::map<AgentProcessIdentity, ProcessRecord> next;
  for (const auto& entry : presence.entries) {
    const auto& identity = entry.identity;
    const auto before = previous.find(identity);
    const ProcessRecord* prior = before == previous.end() ? nullptr : &before->second;
    std::optional<AgentKind> fallback;
    if (entry.provider != identity.kind) {
      fallback = entry.provider;
    } else if (prior) {
      fallback = prior->provider;
    }
    const AgentKind presented = reconcileProviderPresentation(identity, kindOf(entry.host), fallback, observed);

    std::optional<HostAppOccurrence> host;
    const auto expected = expectedHostKind(identity);
    for (const auto* candidate : {&entry.host, prior ? &prior->presence.host : nullptr}) {
      if (candidate == nullptr || !*candidate) continue;
      if (expected && (*candidate)->kind != *expected) continue;
      host = *candidate;
      break;
    }

    if (prior && prior->lastSeenAt > observed) {
      ProcessRecord kept = *prior;
      kept.provider = presented;
      kept.presence.provider = presented;
      kept.presence.host = host;
      if (!kept.presence.projectName) kept.presence.projectName = entry.projectName;
      next.insert_or_assign(identity, std::move(kept));
      continue;
    }
    ProcessRecord fresh;
    fresh.presence = {identity, presented, host, entry.projectName, entry.detectedAt};
    fresh.provider = presented;
    if (auto listeners = relatedListeners.find(identity); listeners != relatedListeners.end()) {
      fresh.relatedListenerIDs = listeners->second;
    }
    fresh.lastSeenAt = observed;
    fresh.scanObserved = true;
    fresh.wasAmbientEligible = prior && prior->wasAmbientEligible;
    next.insert_or_assign(identity, std::move(fresh));
  }

  for (const auto& [identity, listeners] : relatedListeners) {
    if (next.contains(identity)) continue;
    const auto prior = previous.find(identity);
    if (prior == previous.end()) continue;  // listeners alone make no row
    ProcessRecord record = prior->second;
    if (!(record.lastSeenAt > observed)) {
      record.relatedListenerIDs = listeners;
      record.lastSeenAt = observed;
      record.scanObserved = true;
    }
    next.insert_or_assign(identity, std::move(record));
  }
  for (const auto& [identity, record] : previous) {
    if (!next.contains(identity) && record.lastSeenAt > observed) next.insert_or_assign(identity, record);
  }

  // After a longer gap nothing found missing is announced: it may have ended long ago.
  const bool continuous = lastSuccessfulScanAt_ && observed >= *lastSuccessfulScanAt_ &&
                          observed - *lastSuccessfulScanAt_ <= continuousScanGap;
  std::set<AgentProcessIdentity> hookMapped;
  for (const auto& [key, record] : hookRecords_) {
    if (record.agentProcess) hookMapped.insert(*record.agentProcess);
  }
  for (const auto& [identity, record] : previous) {
    if (next.contains(identity)) continue;
    trackedActivity_.erase(identity);
    if (continuous && !priorSuppressed.contains(identity) && !hookMapped.contains(identity) &&
        record.wasAmbientEligible) {
      finishProcessSession(record, identity, at);
    }
  }
  processRecords_ = std::move(next);
  refreshMappedHookPresentation();

  const auto hooks = hookRecords_;
  for (const auto& [key, record] : hooks) {
    if (record.lastEventAt > observed) continue;
    if (record.agentProcess) {
      if (processRecords_.contains(*record.agentProcess)) continue;
      endHookSession(key, continuous, at);
    } else if (record.runtime) {
      auto probed = runtimeCurrent.find(*record.runtime);
      if (probed == runtimeCurrent.end() || probed->second) continue;
      endHookSession(key, true, at);
    }
  }

  lastSuccessfulScanAt_ = lastSuccessfulScanAt_ ? later(*lastSuccessfulScanAt_, observed) : observed;
  scanIsStale_ = false;
  capturedAt_ = later(capturedAt_, observed);
}

void AgentInventoryReducer::applyScanFailure(Date at) {
  expireTransients(at);
  scanIsStale_ = true;
  capturedAt_ = at;
}

// ---- Tracking --------------------------------------------------------------------------------

void AgentInventoryReducer::applyPresentedTrackingUpdate(const AgentTrackingUpdateFacts& facts, Date at) {
  expireTransients(at);
  const Date observed = facts.observedAt.value_or(at);
  capturedAt_ = later(capturedAt_, observed);

  // The provider a fact's process presents when no host says otherwise.
  const auto knownProvider = [this](const AgentProcessIdentity& identity) -> std::optional<AgentKind> {
    if (auto provider = evidenceProvider(identity)) return provider;
    if (auto record = processRecords_.find(identity); record != processRecords_.end()) return record->second.provider;
    return std::nullopt;
  };

  for (const auto& fact : facts.counted) {
    const auto& identity = fact.identity;
    const std::optional<AgentKind> fallback = fact.provider == identity.kind ? knownProvider(identity) : fact.provider;
    std::optional<HostAppKind> host;
    if (auto found = facts.currentHosts.find(identity); found != facts.currentHosts.end()) host = found->second;
    const AgentKind presented = reconcileProviderPresentation(identity, host, fallback, observed);

    auto record = processRecords_.find(identity);
    if (record != processRecords_.end() && record->second.lastSeenAt > observed) {
      // Older than what is known: the provider may change, the busy flag may not.
      rebuildPresence(record->second, identity, presented);
      refreshMappedHookPresentation(identity, presented);
      continue;
    }
    trackedActivity_[identity] = fact.isActive;
    const bool suppressed = suppressedProcessFallbacks_.contains(identity);
    if (record != processRecords_.end()) {
      rebuildPresence(record->second, identity, presented);
      record->second.lastSeenAt = observed;
      if (!suppressed) record->second.wasAmbientEligible = true;
    } else {
      ProcessRecord fresh;
      fresh.presence = {identity, presented, std::nullopt, std::nullopt, observed};
      fresh.provider = presented;
      fresh.lastSeenAt = observed;
      fresh.scanObserved = false;
      fresh.wasAmbientEligible = !suppressed;
      processRecords_.emplace(identity, std::move(fresh));
    }
    refreshMappedHookPresentation(identity, presented);
    for (auto& [key, hook] : hookRecords_) {
      if (hook.agentProcess == identity) hook.wasAmbientEligible = true;
    }
  }

  for (const auto& fact : facts.finished) {
    const auto& identity = fact.identity;
    auto record = processRecords_.find(identity);
    if (record != processRecords_.end() && record->second.lastSeenAt > observed) continue;
    const bool newerHook = std::any_of(hookRecords_.begin(), hookRecords_.end(), [&](const auto& entry) {
      return entry.second.agentProcess == identity && entry.second.lastEventAt > observed;
    });
    if (newerHook) continue;
    if (auto suppression = suppressedProcessFallbacks_.find(identity);
        suppression != suppressedProcessFallbacks_.end() && suppression->second.changedAt > observed) {
      continue;
    }
    trackedActivity_.erase(identity);
    const bool wasSuppressed = suppressedProcessFallbacks_.erase(identity) > 0;
    const AgentKind presented =
        fact.provider == identity.kind ? knownProvider(identity).value_or(fact.provider) : fact.provider;
    if (record != processRecords_.end()) {
      const bool mapped = std::any_of(hookRecords_.begin(), hookRecords_.end(),
                                      [&](const auto& entry) { return entry.second.agentProcess == identity; });
      if (!wasSuppressed && !mapped && record->second.wasAmbientEligible) {
        rebuildPresence(record->second, identity, presented);
        finishProcessSession(record->second, identity, at);
      }
      processRecords_.erase(record);
    }
    providerPresentationEvidence_.erase(identity);
    refreshMappedHookPresentation(identity, presented);
    const auto hooks = hookRecords_;
    for (const auto& [key, hook] : hooks) {
      if (hook.agentProcess == identity && !(hook.lastEventAt > observed)) endHookSession(key, true, at);
    }
  }
}

void AgentInventoryReducer::providerDisconnected(AgentKind provider, Date at) {
  expireTransients(at);
  std::erase_if(hookRecords_, [provider](const auto& entry) { return entry.first.provider == provider; });
  for (auto it = suppressedProcessFallbacks_.begin(); it != suppressedProcessFallbacks_.end();) {
    it->second.sourceProviders.erase(provider);
    it = it->second.sourceProviders.empty() ? suppressedProcessFallbacks_.erase(it) : std::next(it);
  }
  capturedAt_ = later(capturedAt_, at);
}

// ---- Time ------------------------------------------------------------------------------------

void AgentInventoryReducer::expireTransients(Date at) {
  std::erase_if(finishedRecords_, [at](const FinishedRecord& record) { return !(record.expiresAt > at); });
  for (auto it = hookRecords_.begin(); it != hookRecords_.end();) {
    HookRecord& record = it->second;
    const auto elapsed = at - record.lastEventAt;
    if (!record.agentProcess && elapsed >= orphanAge) {
      it = hookRecords_.erase(it);
      continue;
    }
    if (!record.staleEvidence && isAmbient(record.state) && elapsed >= staleEvidenceAge) {
      record.state = State::detected;
      record.stateDetail = std::string(staleDetail);
      record.staleEvidence = true;
    }
    ++it;
  }
}

std::optional<Date> AgentInventoryReducer::nextTransientDeadline() const {
  std::optional<Date> earliest;
  const auto consider = [&earliest](Date deadline) {
    if (!earliest || deadline < *earliest) earliest = deadline;
  };
  for (const auto& record : finishedRecords_) consider(record.expiresAt);
  for (const auto& [key, record] : hookRecords_) {
    if (!record.staleEvidence && isAmbient(record.state)) consider(record.lastEventAt + staleEvidenceAge);
    if (!record.agentProcess) consider(record.lastEventAt + orphanAge);
  }
  return earliest;
}

// ---- Reading ---------------------------------------------------------------------------------

AgentInventorySnapshot AgentInventoryReducer::snapshot(const std::vector<AgentProviderConnection>& connections) const {
  const auto counts = mappedSessionCounts();
  AgentInventorySnapshot result;
  for (const auto& [identity, record] : processRecords_) {
    if (counts.contains(identity) || suppressedProcessFallbacks_.contains(identity)) continue;
    result.sessions.push_back(processSessionSnapshot(record, identity));
  }
  for (const auto& [key, record] : hookRecords_) result.sessions.push_back(hookSessionSnapshot(record, counts));
  for (const auto& record : finishedRecords_) result.sessions.push_back(record.session);
  // Nothing merges: a finished row and a fresh row of a reused key may stand side by side.
  // Sorted by key and position, moving each row once.
  std::vector<std::pair<std::string, size_t>> order;
  order.reserve(result.sessions.size());
  for (size_t i = 0; i < result.sessions.size(); ++i) order.emplace_back(result.sessions[i].id.stableID(), i);
  std::sort(order.begin(), order.end());
  std::vector<AgentSessionSnapshot> sorted;
  sorted.reserve(order.size());
  for (const auto& [id, index] : order) sorted.push_back(std::move(result.sessions[index]));
  result.sessions = std::move(sorted);
  result.providerConnections = connections;
  result.capturedAt = capturedAt_;
  result.freshness = scanIsStale_ ? InventoryFreshness::stale(lastSuccessfulScanAt_) : InventoryFreshness::live();
  return result;
}

std::vector<ProcessIdentity> AgentInventoryReducer::hookRuntimeProbeIdentities() const {
  std::vector<ProcessIdentity> identities;
  for (const auto& [key, record] : hookRecords_) {
    if (record.runtime && !record.agentProcess) identities.push_back(*record.runtime);
  }
  return identities;
}

std::vector<AgentCompletionEdge> AgentInventoryReducer::takeCompletionEdges() {
  std::vector<AgentCompletionEdge> edges;
  edges.swap(pendingCompletionEdges_);
  return edges;
}

}  // namespace tidewatch
