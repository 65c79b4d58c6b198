#include "coralline_kit/agent_scanner.h"

#include "process_core/agent_process_graph.h"

namespace tidewatch {

AgentObservationBuilder::Result AgentObservationBuilder::build(const std::vector<ProcessSnapshot>& snapshots,
                                                               const AgentActivitySamples& previousSamples,
                                                               Date now) {
  const AgentProcessGraph graph(snapshots);
  Result result;
  std::unordered_map<ProcessIdentity, double> percentBySession;
  for (const auto& snapshot : snapshots) {
    const auto owner = graph.owningAgentIdentity(snapshot);
    if (!owner || !snapshot.cpuTimeNanos) continue;
    const ProcessIdentity top = graph.topLevelSessionIdentity(*owner);
    const ActivityEstimator::Sample current{*snapshot.cpuTimeNanos, now};
    result.nextSamples[snapshot.identity] = current;
    std::optional<ActivityEstimator::Sample> previous;
    if (auto found = previousSamples.find(snapshot.identity); found != previousSamples.end()) previous = found->second;
    if (const auto percent = ActivityEstimator::cpuPercent(previous, current)) percentBySession[top] += *percent;
  }

  for (const auto& snapshot : snapshots) {
    const auto kind = graph.agentKind(snapshot);
    if (!kind) continue;
    AgentObservation observation;
    observation.identity = snapshot.identity;
    observation.kind = *kind;
    if (const auto host = graph.nearestHostApp(snapshot)) observation.host = host->kind;
    observation.parentIdentity = graph.parentIdentity(snapshot);
    // Only a top-level session has an entry; an agent below one is never working by itself.
    const auto percent = percentBySession.find(snapshot.identity);
    observation.isWorking = percent != percentBySession.end() && percent->second >= workingThresholdPercent;
    result.observations.push_back(std::move(observation));
  }
  return result;
}

struct AgentDetectionRecordsAccess {
  // Every enumerated process's detection snapshot, from its record where the stat line allows;
  // records are kept for exactly the processes read now.
  static std::vector<ProcessSnapshot> detect(const AgentScannerDependencies& dependencies,
                                             const std::vector<int32_t>& pids, uint32_t uid, Date now,
                                             AgentDetectionRecords* records) {
    std::vector<ProcessSnapshot> snapshots;
    snapshots.reserve(pids.size());
    if (!records || !dependencies.statSnapshot) {
      for (int32_t pid : pids) {
        if (auto snapshot = dependencies.detectionSnapshot(pid, uid)) snapshots.push_back(std::move(*snapshot));
      }
      return snapshots;
    }
    auto& kept = records->byPID_;
    std::unordered_map<int32_t, AgentDetectionRecords::Record> next;
    next.reserve(pids.size());
    for (int32_t pid : pids) {
      if (auto found = kept.find(pid); found != kept.end()) {
        auto& record = found->second;
        const bool fresh = now >= record.readAt && now - record.readAt < AgentDetectionRecords::rereadInterval;
        const auto line = fresh ? dependencies.statSnapshot(pid) : std::nullopt;
        if (line && line->identity == record.snapshot.identity && line->name == record.snapshot.name &&
            line->isKernelThread == record.snapshot.isKernelThread) {
          record.snapshot.parentPID = line->parentPID;
          snapshots.push_back(record.snapshot);
          next.emplace(pid, std::move(record));
          continue;
        }
      }
      if (auto snapshot = dependencies.detectionSnapshot(pid, uid)) {
        snapshots.push_back(*snapshot);
        next.emplace(pid, AgentDetectionRecords::Record{std::move(*snapshot), now});
      }
    }
    kept = std::move(next);
    return snapshots;
  }
};

namespace {

AgentScanner::Result scan(const AgentScannerDependencies& dependencies, const AgentActivitySamples& previousSamples,
                          Date now, AgentDetectionRecords* records) {
  const std::vector<int32_t> pids = dependencies.allPIDs();
  if (pids.empty()) throw ScanError(ScanError::Code::enumerationUnavailable);
  const uint32_t uid = dependencies.currentUID();

  std::vector<ProcessSnapshot> snapshots = AgentDetectionRecordsAccess::detect(dependencies, pids, uid, now, records);
  // Processor time is read only inside agents' trees; everything else stays as detected.
  const auto subtree = AgentProcessGraph(snapshots).agentSubtreePIDs();
  for (auto& snapshot : snapshots) {
    if (!subtree.contains(snapshot.identity.pid)) continue;
    if (auto refreshed = dependencies.activitySnapshot(snapshot, uid)) snapshot = std::move(*refreshed);
  }

  auto built = AgentObservationBuilder::build(snapshots, previousSamples, now);
  return AgentScanner::Result{std::move(built.observations), std::move(built.nextSamples), now,
                              static_cast<int>(pids.size())};
}

}  // namespace

AgentScanner::Result AgentScanner::scanLightweight(const AgentScannerDependencies& dependencies,
                                                   const AgentActivitySamples& previousSamples, Date now) {
  return scan(dependencies, previousSamples, now, nullptr);
}

AgentScanner::Result AgentScanner::scanLightweight(const AgentScannerDependencies& dependencies,
                                                   const AgentActivitySamples& previousSamples, Date now,
                                                   AgentDetectionRecords& records) {
  return scan(dependencies, previousSamples, now, &records);
}

}  // namespace tidewatch
