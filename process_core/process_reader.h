// The porting contract of process reading. Each platform folder (linux/, a future darwin/)
// implements these declarations; nothing else in the program talks to the kernel's process
// tables. Nothing here throws: a failed read gives an empty sequence or an absent value.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "process_core/process_records.h"

namespace tidewatch::Libproc {

// Every process now, pids above 0; empty only when enumeration is unavailable. Also takes a
// fresh table of listening TCP sockets for the listeningSockets calls that follow.
std::vector<int32_t> allPIDs();

// Every process now, as allPIDs, but without taking the socket table: for the readers that ask
// nothing of listening sockets, which would otherwise pay a walk of every open descriptor.
std::vector<int32_t> processIDs();

// The process's TCP sockets in LISTEN state, in descriptor order, as of the latest allPIDs (a
// pid it did not see is read now); empty when none or unreadable.
std::vector<RawListeningSocket> listeningSockets(int32_t pid);

// The listening sockets of the latest allPIDs whose owner is not uid: other users' servers,
// whose processes cannot be read but whose ports are taken all the same.
std::vector<OwnedListeningSocket> listeningSocketsNotOwnedBy(uint32_t uid);

// The kernel's listening TCP sockets now, without looking for their processes.
std::vector<ListeningSocketRecord> listeningSocketRecords();

// The sockets behind the process's descriptors, in descriptor order; empty when none or unreadable.
std::vector<SocketDescriptor> socketDescriptors(int32_t pid);

// The socket behind one descriptor now; absent when it is closed, not a socket or unreadable.
std::optional<uint64_t> descriptorSocket(int32_t pid, int fd);

// The identity of the incarnation now behind the pid; absent when the pid is gone.
std::optional<ProcessIdentity> processIdentity(int32_t pid);

// Absolute path of the executable as the process was started (see startedThroughSibling),
// given its short name; absent when unreadable (other users' processes).
std::optional<std::string> execPath(int32_t pid, const std::optional<std::string>& name);

// The working directory; absent when unreadable.
std::optional<std::string> currentWorkingDirectory(int32_t pid);

// The argument vector with UTF-8 repaired; absent when unreadable or empty.
std::optional<std::vector<std::string>> argv(int32_t pid);

}  // namespace tidewatch::Libproc

namespace tidewatch::ProcessReader {

// The process if it belongs to myUID, with memory and CPU figures; argv only if asked.
std::optional<ProcessSnapshot> enrichedSnapshot(int32_t pid, uint32_t myUID, bool includeArgv);

// The process of any user, with argv, for walking ancestors.
std::optional<ProcessSnapshot> detectionSnapshot(int32_t pid, uint32_t myUID);

// The process of any user as far as agent detection reads it: detectionSnapshot without the
// argv that detection never looks at, so argv only for the user's own processes whose names
// alone cannot decide.
std::optional<ProcessSnapshot> agentDetectionSnapshot(int32_t pid, uint32_t myUID);

// The process as its stat line alone shows it (identity, short name, parent, kernel thread), in
// one read by path: enough to tell whether a record kept of it still describes it.
std::optional<ProcessSnapshot> statSnapshot(int32_t pid);

// The process only if it belongs to myUID and its names make it a candidate agent; argv is read
// only when the names alone cannot decide.
std::optional<ProcessSnapshot> agentPresenceSnapshot(int32_t pid, uint32_t myUID);

// The process of any user, without argv, for the checks just before an action; a read that
// failed for want of resources or permission says so rather than passing for an exited process.
LiveProcessRead liveResolveSnapshot(int32_t pid);

// CPU and memory of a known process refreshed; absent when the pid now belongs to another
// process or user. Every other field stays from the given snapshot.
std::optional<ProcessSnapshot> activitySnapshot(const ProcessSnapshot& snapshot, uint32_t myUID);

}  // namespace tidewatch::ProcessReader
