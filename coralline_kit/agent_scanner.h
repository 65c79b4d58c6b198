// The cheap look at the process table behind agent tracking: every process is read only as far
// as agent detection needs, and processor time only for the trees of agents.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <vector>

#include "coralline_kit/agent_run_tracker.h"
#include "process_core/process_records.h"

namespace tidewatch {

// The process table's operations, all safe from any thread.
struct AgentScannerDependencies {
  std::function<std::vector<int32_t>()> allPIDs;
  std::function<uint32_t()> currentUID;
  // What detection needs of a process of any user.
  std::function<std::optional<ProcessSnapshot>(int32_t pid, uint32_t uid)> detectionSnapshot;
  // Not read by the light scan; kept so the record serves fuller reads as well.
  std::function<std::optional<ProcessSnapshot>(int32_t pid, uint32_t uid, bool includeArgv)> enrichedSnapshot;
  // The snapshot with its processor and memory figures read now; absent when it is gone.
  std::function<std::optional<ProcessSnapshot>(const ProcessSnapshot& snapshot, uint32_t uid)> activitySnapshot;
  // The process as its stat line alone shows it: identity, short name, parent. Without it every
  // look reads every process in full.
  std::function<std::optional<ProcessSnapshot>(int32_t pid)> statSnapshot;

  // This machine's table, read as cheaply as detection allows.
  static AgentScannerDependencies live();
};

namespace AgentObservationBuilder {

struct Result {
  std::vector<AgentObservation> observations;
  AgentActivitySamples nextSamples;
};

// At or above this share of one core, summed over an agent's whole tree, the agent is working.
inline constexpr double workingThresholdPercent = 10.0;

// One observation per agent process. Processor time adds up per top-level session, so a whole
// tree counts as one; a process seen for the first time has no previous sample and adds nothing.
Result build(const std::vector<ProcessSnapshot>& snapshots, const AgentActivitySamples& previousSamples, Date now);

}  // namespace AgentObservationBuilder

// What the light scan read of each process, kept between the looks of one session, so that a
// process whose stat line shows the same incarnation and short name is not read again (its
// parent is taken from the line). One stat read tells these at once: a new or exited process, a
// reused pid, an exec under another name (the kernel renames the process), a rename (which
// also comes with a rewritten title), a new parent. Only a record's reread, at most
// `rereadInterval` after it was read, tells: an exec of a program with the same short name, a
// change of user, an argument vector rewritten without a rename.
class AgentDetectionRecords {
 public:
  static constexpr std::chrono::seconds rereadInterval{30};

  // Every enumerated process's detection snapshot, from its record where the stat line allows
  // (never without `statSnapshot`); afterwards records are kept for exactly the processes read.
  std::vector<ProcessSnapshot> detect(const AgentScannerDependencies& dependencies, const std::vector<int32_t>& pids,
                                      uint32_t uid, Date now);

  size_t size() const { return byPID_.size(); }

 private:
  struct Record {
    ProcessSnapshot snapshot;
    Date readAt;
  };
  std::unordered_map<int32_t, Record> byPID_;
};

namespace AgentScanner {

struct Result {
  std::vector<AgentObservation> observations;
  AgentActivitySamples nextSamples;
  Date scannedAt;
  int processCount = 0;  // pids enumerated, readable or not
};

// Throws ScanError (enumerationUnavailable) when no process can be enumerated.
Result scanLightweight(const AgentScannerDependencies& dependencies, const AgentActivitySamples& previousSamples,
                       Date now);
// The same look, reusing and updating the records of earlier looks; the same result as a look
// without them except for what the records' class names as told only by a reread.
Result scanLightweight(const AgentScannerDependencies& dependencies, const AgentActivitySamples& previousSamples,
                       Date now, AgentDetectionRecords& records);

}  // namespace AgentScanner
}  // namespace tidewatch
