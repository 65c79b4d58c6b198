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

std::vector<ProcessSnapshot> AgentDetectionRecords::detect(const AgentScannerDependencies& dependencies,
                                                           const std::vector<int32_t>& pids, uint32_t uid, Date now) {
  std::vector<ProcessSnapshot> snapshots;
  snapshots.reserve(pids.size());
  std::unordered_map<int32_t, Record> next;
  next.reserve(pids.size());
  for (int32_t pid : pids) {
    if (auto found = byPID_.find(pid); found != byPID_.end() && dependencies.statSnapshot) {
      auto& record = found->second;
      const bool fresh = now >= record.readAt && now - record.readAt < rereadInterval;
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
      next.emplace(pid, Record{std::move(*snapshot), now});
    }
  }
  byPID_ = std::move(next);
  return snapshots;
}

AgentScanner::Result AgentScanner::scanLightweight(const AgentScannerDependencies& dependencies,
                                                   const AgentActivitySamples& previousSamples, Date now) {
  // No records of earlier looks: every process is read in full.
  AgentDetectionRecords none;
  return scanLightweight(dependencies, previousSamples, now, none);
}

AgentScanner::Result AgentScanner::scanLightweight(const AgentScannerDependencies& dependencies,
                                                   const AgentActivitySamples& previousSamples, Date now,
                                                   AgentDetectionRecords& records) {
  const std::vector<int32_t> pids = dependencies.allPIDs();
  if (pids.empty()) throw ScanError(ScanError::Code::enumerationUnavailable);
  const uint32_t uid = dependencies.currentUID();

  std::vector<ProcessSnapshot> snapshots = records.detect(dependencies, pids, uid, now);
  // Processor time is read only inside agents' trees; everything else stays as detected.
  const auto subtree = AgentProcessGraph(snapshots).agentSubtreePIDs();
  for (auto& snapshot : snapshots) {
    if (!subtree.contains(snapshot.identity.pid)) continue;
    if (auto refreshed = dependencies.activitySnapshot(snapshot, uid)) snapshot = std::move(*refreshed);
  }

  auto built = AgentObservationBuilder::build(snapshots, previousSamples, now);
  return Result{std::move(built.observations), std::move(built.nextSamples), now, static_cast<int>(pids.size())};
}

}  // namespace tidewatch
