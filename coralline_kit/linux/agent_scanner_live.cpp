// The light scan on this machine's process table.
#include <unistd.h>

#include "coralline_kit/agent_scanner.h"
#include "process_core/process_reader.h"

namespace tidewatch {

AgentScannerDependencies AgentScannerDependencies::live() {
  // The enumeration without the socket table, and detection without argv it doesn't look at:
  // this runs every few seconds for as long as the application sits in the tray.
  return AgentScannerDependencies{
      [] { return Libproc::processIDs(); },
      [] { return static_cast<uint32_t>(::getuid()); },
      [](int32_t pid, uint32_t uid) { return ProcessReader::agentDetectionSnapshot(pid, uid); },
      [](int32_t pid, uint32_t uid, bool includeArgv) { return ProcessReader::enrichedSnapshot(pid, uid, includeArgv); },
      [](const ProcessSnapshot& snapshot, uint32_t uid) { return ProcessReader::activitySnapshot(snapshot, uid); },
      [](int32_t pid) { return ProcessReader::statSnapshot(pid); }};
}

}  // namespace tidewatch
