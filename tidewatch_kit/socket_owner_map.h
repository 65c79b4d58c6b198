// Which processes hold which listening sockets, kept from one scan to the next so that a rescan
// reads descriptors only where something changed. Finding a socket's processes means reading
// every descriptor of every process (the kernel keeps no map from socket to process), nearly all
// of a cold scan's cost; between two scans a second apart almost nothing changes.
//
// Caught at the next update:
// - a new process (a pid not seen before): all its descriptors are read;
// - a listener that closes: its inode leaves the kernel's table;
// - a process that exits: its pid leaves the process list;
// - a holder that closes or replaces the descriptor it held, exits with its pid reused, or
//   execs with the descriptor closed: each holder's descriptor is read again (one readlink) and
//   its identity compared; a difference reads all its descriptors again;
// - a new listening socket in a process seen before (it called listen late, as servers do after
//   their imports): an inode no holder accounts for sends the update through every process.
// Caught only by the complete walk every safetyNetInterval (or after a pause longer than
// longestPause, when pids may have been reused unseen):
// - a process seen before that gains a listening socket already held by another one, with no new
//   listener anywhere: one passed over a Unix socket or taken with pidfd_getfd;
// - a pid reused between two updates by a child of a holder that inherits its socket, when the
//   pid's earlier process held none (holders are checked, others are not re-read).
// An inode that a walk of every process could not place (its holder cannot be read: another
// user's, or gone between the two tables) is not looked for again until the complete walk.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "process_core/process_records.h"

namespace tidewatch {

class SocketOwnerMap {
 public:
  struct Operations {
    // The kernel's listening sockets now.
    std::function<std::vector<ListeningSocketRecord>()> listeningSockets;
    // The sockets behind a process's descriptors, in descriptor order.
    std::function<std::vector<SocketDescriptor>(int32_t pid)> socketDescriptors;
    // The socket behind one descriptor now.
    std::function<std::optional<uint64_t>(int32_t pid, int fd)> descriptorSocket;
    // The incarnation behind a pid now.
    std::function<std::optional<ProcessIdentity>(int32_t pid)> processIdentity;
  };

  struct Update {
    std::vector<ListeningSocketRecord> records;
    // The listening sockets of each holder, in descriptor order, as a cold walk finds them.
    std::unordered_map<int32_t, std::vector<RawListeningSocket>> socketsByPID;
    // Every process's descriptors were read in this update.
    bool complete = false;
    // Processes whose descriptors were read in this update.
    size_t walkedProcesses = 0;
  };

  static constexpr std::chrono::seconds safetyNetInterval{30};
  static constexpr std::chrono::seconds longestPause{10};

  explicit SocketOwnerMap(Operations operations) : operations_(std::move(operations)) {}

  // pids: every process now; now: the clock the intervals above are measured on.
  Update update(const std::vector<int32_t>& pids, Date now);

 private:
  struct Process {
    std::optional<ProcessIdentity> identity;  // read while it holds a listener
    std::vector<SocketDescriptor> holdings;   // its listening descriptors, in descriptor order
  };

  Operations operations_;
  std::unordered_map<int32_t, Process> processes_;
  std::unordered_set<uint64_t> searched_;
  std::optional<Date> lastCompleteWalk_;
  std::optional<Date> lastUpdate_;
};

}  // namespace tidewatch
