// The scan pipeline: from the operating system's process and socket tables to one ScanResult.
// It reaches the system only through PortEngineDependencies, so it runs against fakes. A cold
// engine keeps nothing between scans; an incremental one (for the live loops) keeps which
// processes hold which sockets and which processes are no agents, shared by its copies and
// guarded for any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "process_core/process_records.h"
#include "tidewatch_kit/listener_records.h"
#include "tidewatch_kit/worker_pool_collapser.h"

namespace tidewatch {

// The porting contract of the scan. None of these may fail other than by the empty answer
// stated; all must be safe to call from any thread.
struct PortEngineDependencies {
  // All processes now, pids above 0; empty only when enumeration is unavailable.
  std::function<std::vector<int32_t>()> allPIDs;
  // The user the program runs as.
  std::function<uint32_t()> currentUID;
  // This program's pid.
  std::function<int32_t()> currentPID;
  // All processes now without taking the socket table that allPIDs takes.
  std::function<std::vector<int32_t>()> processIDs;
  // The kernel's listening TCP sockets now, for the incremental engine.
  std::function<std::vector<ListeningSocketRecord>()> listeningSocketRecords;
  // The sockets behind a process's descriptors, in descriptor order.
  std::function<std::vector<SocketDescriptor>(int32_t pid)> socketDescriptors;
  // The socket behind one descriptor now.
  std::function<std::optional<uint64_t>(int32_t pid, int fd)> descriptorSocket;
  // The TCP sockets in LISTEN state of the latest allPIDs whose owner is not the uid.
  std::function<std::vector<OwnedListeningSocket>(uint32_t uid)> listeningSocketsNotOwnedBy;
  // The user's login name, absent when the password database does not know the uid.
  std::function<std::optional<std::string>(uint32_t uid)> userName;
  // The process's TCP sockets in LISTEN state, possibly empty.
  std::function<std::vector<RawListeningSocket>(int32_t pid)> listeningSockets;
  // The process if it belongs to uid, with memory and CPU figures.
  std::function<std::optional<ProcessSnapshot>(int32_t pid, uint32_t uid, bool includeArgv)> enrichedSnapshot;
  // The process only if it belongs to uid and its names make it a candidate agent.
  std::function<std::optional<ProcessSnapshot>(int32_t pid, uint32_t uid)> agentPresenceSnapshot;
  // The process of any user, with argv, for walking ancestors.
  std::function<std::optional<ProcessSnapshot>(int32_t pid, uint32_t uid)> detectionSnapshot;
  // The process of any user, without argv, for checks just before an action; a failed read
  // tells "gone" (error 0) from "could not be read" (its errno).
  std::function<LiveProcessRead(int32_t pid)> liveResolveSnapshot;
  // Identity only; absent when the pid is gone.
  std::function<std::optional<ProcessIdentity>(int32_t pid)> processIdentity;
  // The process's working directory.
  std::function<std::optional<std::string>(int32_t pid)> currentWorkingDirectory;
  // True when anything exists at the path: files count too, and marker files depend on that.
  std::function<bool(const std::string& path)> directoryExists;
  // The user's home directory.
  std::function<std::string()> homeDirectory;
  // For each executable path, in order, whether it is a strong system or background binary.
  std::function<std::vector<bool>(const std::vector<std::optional<std::string>>& paths)>
      strongSystemBackgroundFlags;
  // The wall clock.
  std::function<Date()> now;

  // The wiring to this machine's kernel tables.
  static PortEngineDependencies live();
};

class PortEngine {
 public:
  struct LiveProcess {
    ProcessSnapshot snapshot;
    bool appleSystemBinary = false;
  };
  // The process as read now: absent with error 0 when it is gone, absent with an errno when it
  // could not be read.
  struct LiveResolution {
    std::optional<LiveProcess> process;
    int error = 0;
  };

  PortEngine();  // live wiring
  explicit PortEngine(PortEngineDependencies dependencies);
  // An engine whose scans give what a cold scan of the same moment gives, reading again only
  // what may have changed; see SocketOwnerMap for what is caught at once and what by the
  // periodic complete walk.
  static PortEngine incremental(PortEngineDependencies dependencies);

  // One pass; throws ScanError when the process list is empty.
  ScanResult scan(bool includeArgv) const;

  std::optional<ProcessSnapshot> detectionSnapshot(int32_t pid) const;
  LiveResolution resolveLiveProcess(int32_t pid) const;
  // Whether rootedAt is the process or one of its ancestors; an errno instead when an ancestor
  // could not be read, since the answer is then unknown.
  struct SubtreeAnswer {
    bool inSubtree = false;
    int error = 0;
  };
  SubtreeAnswer isInProcessSubtree(const ProcessSnapshot& snapshot, int32_t rootedAt) const;
  // The live members of a pool, found afresh in the tables, in pid order of allPIDs.
  std::vector<ProcessIdentity> poolMemberIdentities(const WorkerPoolCollapser::Signals& signals) const;

  const PortEngineDependencies& dependencies() const { return dependencies_; }
  bool isIncremental() const { return incremental_ != nullptr; }

 private:
  struct IncrementalState;

  PortEngineDependencies dependencies_;
  std::shared_ptr<IncrementalState> incremental_;
};

}  // namespace tidewatch
