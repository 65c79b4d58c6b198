// Process reading on Linux, from /proc and NETLINK_SOCK_DIAG.
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <algorithm>
#include <charconv>
#include <atomic>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "process_core/agent_process_detector.h"
#include "process_core/linux/proc_files.h"
#include "process_core/linux/proc_parsers.h"
#include "process_core/linux/sock_diag.h"
#include "process_core/linux/socket_parsers.h"
#include "process_core/process_reader.h"
#include "process_core/utf8_repair.h"

namespace tidewatch {
namespace {

using ProcFiles::FileDescriptor;
using SocketParsers::SocketTable;

// Room for /proc/PID/stat: 52 numbers and a command name of at most 64 bytes.
constexpr size_t statBufferSize = 1024;
// The "Uid:" line comes within the first few hundred bytes of /proc/PID/status.
constexpr size_t statusBufferSize = 2048;
constexpr size_t statmBufferSize = 256;
// Longer than any path the kernel will write for a link (it fails beyond a page).
constexpr size_t linkBufferSize = 4096 + 1;
// Argument vectors beyond this are cut at the last whole argument.
constexpr size_t cmdlineMaxBytes = 1024 * 1024;
constexpr size_t directoryBufferSize = 16 * 1024;

uint64_t ticksPerSecond() {
  static const uint64_t value = [] {
    const long ticks = ::sysconf(_SC_CLK_TCK);
    return ticks > 0 ? static_cast<uint64_t>(ticks) : uint64_t{100};
  }();
  return value;
}

uint64_t pageSize() {
  static const uint64_t value = [] {
    const long size = ::sysconf(_SC_PAGESIZE);
    return size > 0 ? static_cast<uint64_t>(size) : uint64_t{4096};
  }();
  return value;
}

// Some kernels report btime one second apart between reads, which would change every identity;
// it is read once and kept for the whole run.
uint64_t bootTime() {
  static std::once_flag once;
  static uint64_t value = 0;
  std::call_once(once, [] {
    // /proc/stat carries a line per CPU and per interrupt before btime, so it is read whole.
    constexpr size_t procStatMaxBytes = 4 * 1024 * 1024;
    if (auto text = ProcFiles::readWholeFile(AT_FDCWD, "/proc/stat", procStatMaxBytes)) {
      value = ProcParsers::parseBootTime(*text).value_or(0);
    }
  });
  return value;
}

// Which enumerated processes hold which listening sockets, found in one pass over every
// process's descriptors when the pids are enumerated.
struct SocketOwners {
  std::unordered_set<int32_t> walked;
  std::unordered_map<int32_t, std::vector<RawListeningSocket>> socketsByPID;
};

// The socket table of the latest enumeration, shared by every reader until the next one.
struct SocketTableState {
  std::mutex mutex;
  std::shared_ptr<const std::vector<ListeningSocketRecord>> records;
  std::shared_ptr<const SocketTable> table;
  std::shared_ptr<const SocketOwners> owners;
};

SocketTableState& socketTableState() {
  static SocketTableState state;
  return state;
}


std::vector<RawListeningSocket> socketsOfProcess(int32_t pid, const SocketTable& table);

// Matching sockets to processes means one readlink per open descriptor on the machine, nearly
// all of a scan's cost; the walk is spread over the cores, each thread taking the next pid.
std::shared_ptr<const SocketOwners> findSocketOwners(const std::vector<int32_t>& pids, const SocketTable& table) {
  auto owners = std::make_shared<SocketOwners>();
  owners->walked.insert(pids.begin(), pids.end());
  if (table.empty()) return owners;

  std::vector<std::vector<RawListeningSocket>> found(pids.size());
  std::atomic<size_t> next{0};
  auto work = [&] {
    for (size_t i = next.fetch_add(1, std::memory_order_relaxed); i < pids.size();
         i = next.fetch_add(1, std::memory_order_relaxed)) {
      found[i] = socketsOfProcess(pids[i], table);
    }
  };
  constexpr size_t pidsPerThread = 64;
  const size_t threads = std::clamp<size_t>(std::min<size_t>(std::thread::hardware_concurrency(), 4), 1,
                                            std::max<size_t>(pids.size() / pidsPerThread, 1));
  std::vector<std::thread> helpers;
  for (size_t t = 1; t < threads; ++t) {
    try {
      helpers.emplace_back(work);
    } catch (const std::system_error&) {
      break;  // no thread to be had: this one does the rest
    }
  }
  work();
  for (auto& helper : helpers) helper.join();

  for (size_t i = 0; i < pids.size(); ++i) {
    if (!found[i].empty()) owners->socketsByPID.emplace(pids[i], std::move(found[i]));
  }
  return owners;
}

void refreshSocketTable(const std::vector<int32_t>& pids) {
  auto records = std::make_shared<const std::vector<ListeningSocketRecord>>(Libproc::listeningSocketRecords());
  auto fresh = std::make_shared<const SocketTable>(SocketParsers::makeSocketTable(*records));
  auto owners = findSocketOwners(pids, *fresh);
  SocketTableState& state = socketTableState();
  std::lock_guard lock(state.mutex);
  state.records = std::move(records);
  state.table = std::move(fresh);
  state.owners = std::move(owners);
}

std::shared_ptr<const SocketOwners> currentSocketOwners() {
  SocketTableState& state = socketTableState();
  std::lock_guard lock(state.mutex);
  return state.owners;
}

std::shared_ptr<const SocketTable> currentSocketTable() {
  SocketTableState& state = socketTableState();
  {
    std::lock_guard lock(state.mutex);
    if (state.table) return state.table;
  }
  // Asked before any enumeration: take a table now.
  auto fresh = std::make_shared<const SocketTable>(SocketParsers::makeSocketTable(Libproc::listeningSocketRecords()));
  std::lock_guard lock(state.mutex);
  if (!state.table) state.table = std::move(fresh);
  return state.table;
}

// Calls visit(name) for each entry of an open /proc directory, read with getdents64 into a
// buffer on the stack, so that walking a process's descriptors allocates nothing.
template <typename Visit>
void forEachDirectoryEntry(int directory, Visit&& visit) {
  // The largest record an entry can take: header, a name of NAME_MAX bytes and its NUL, aligned.
  constexpr size_t largestRecord = (offsetof(dirent64, d_name) + NAME_MAX + 1 + 7) / 8 * 8;
  alignas(8) char buffer[directoryBufferSize];
  while (true) {
    const ssize_t count = ::getdents64(directory, buffer, sizeof buffer);
    if (count <= 0) return;
    // procfs fills the buffer until it runs out of room or of entries; with room for one more
    // record left, it ran out of entries, and the call that would answer 0 can be spared.
    const bool exhausted = sizeof buffer - static_cast<size_t>(count) >= largestRecord;
    size_t offset = 0;
    while (offset < static_cast<size_t>(count)) {
      unsigned short recordLength = 0;
      std::memcpy(&recordLength, buffer + offset + offsetof(dirent64, d_reclen), sizeof recordLength);
      if (recordLength == 0) return;
      visit(std::string_view(buffer + offset + offsetof(dirent64, d_name)));
      offset += recordLength;
    }
    if (exhausted) return;
  }
}

// The facts of /proc/PID/stat of one incarnation.
struct StatFacts {
  ProcessIdentity identity;
  std::optional<std::string> name;
  int32_t parentPID = 0;
  uint64_t cpuTicks = 0;
  bool kernelThread = false;
};

// `at` and `path` name the stat file: relative to a process directory held open, or absolute.
std::optional<StatFacts> readStatAt(int at, const char* path, int32_t pid) {
  char buffer[statBufferSize];
  auto text = ProcFiles::readVirtualFile(at, path, buffer);
  if (!text) return std::nullopt;
  auto fields = ProcParsers::parseStat(*text);
  // A zombie is an exited process: it holds no socket, and an action on it finds nobody.
  if (!fields || ProcParsers::hasExited(*fields)) return std::nullopt;
  StatFacts facts;
  facts.identity = ProcParsers::identityFromStartTicks(pid, bootTime(), fields->startTicks, ticksPerSecond());
  if (!fields->comm.empty()) facts.name = repairedUTF8(fields->comm);
  facts.parentPID = fields->parentPID;
  facts.cpuTicks = fields->userTicks + fields->systemTicks;
  facts.kernelThread = ProcParsers::isKernelThread(*fields);
  return facts;
}

std::optional<StatFacts> readStat(int directory, int32_t pid) { return readStatAt(directory, "stat", pid); }

std::optional<uint32_t> readEffectiveUID(int directory) {
  char buffer[statusBufferSize];
  auto text = ProcFiles::readVirtualFile(directory, "status", buffer);
  if (!text) return std::nullopt;
  return ProcParsers::parseEffectiveUID(*text);
}

std::optional<uint64_t> readResidentBytes(int directory) {
  char buffer[statmBufferSize];
  auto text = ProcFiles::readVirtualFile(directory, "statm", buffer);
  if (!text) return std::nullopt;
  auto pages = ProcParsers::parseResidentPages(*text);
  if (!pages) return std::nullopt;
  return *pages * pageSize();
}

std::optional<std::string> readLinkText(int directory, const char* name) {
  char buffer[linkBufferSize];
  auto link = ProcFiles::readLink(directory, name, buffer);
  if (!link) return std::nullopt;
  return repairedUTF8(*link);
}

// Whether `sibling` is a symbolic link that leads to the same file as `resolved`.
bool isSiblingLinkTo(const std::string& sibling, std::string_view resolved) {
  struct stat link {};
  if (::lstat(sibling.c_str(), &link) != 0 || !S_ISLNK(link.st_mode)) return false;
  struct stat target {};
  struct stat file {};
  if (::stat(sibling.c_str(), &target) != 0) return false;
  if (::stat(std::string(resolved).c_str(), &file) != 0) return false;
  return target.st_dev == file.st_dev && target.st_ino == file.st_ino;
}

// The executable as the process was started: the resolved link, or the sibling link named by
// the process's own name that leads to it.
std::string executablePathAsStarted(std::string_view resolved, const std::optional<std::string>& name) {
  std::string path = repairedUTF8(resolved);
  if (!name) return path;
  auto sibling = ProcParsers::startedThroughSibling(
      resolved, *name, [resolved](const std::string& candidate) { return isSiblingLinkTo(candidate, resolved); });
  return sibling ? repairedUTF8(*sibling) : path;
}

std::optional<std::string> readExecPath(int directory, const std::optional<std::string>& name) {
  char buffer[linkBufferSize];
  auto link = ProcFiles::readLink(directory, "exe", buffer);
  if (!link) return std::nullopt;
  return executablePathAsStarted(ProcParsers::withoutDeletedMarker(*link), name);
}

std::optional<std::vector<std::string>> readArgv(int directory) {
  auto bytes = ProcFiles::readWholeFile(directory, "cmdline", cmdlineMaxBytes);
  if (!bytes) return std::nullopt;
  if (bytes->size() == cmdlineMaxBytes) {
    const size_t lastEnd = bytes->rfind('\0');
    bytes->resize(lastEnd == std::string::npos ? 0 : lastEnd + 1);
  }
  return ProcParsers::parseCmdline(*bytes);
}

// What every reader starts with: the incarnation held open, its stat facts, and the fields of
// a snapshot that come from them.
struct ProcessBase {
  FileDescriptor directory;
  StatFacts stat;

  ProcessSnapshot snapshot() const {
    ProcessSnapshot snapshot;
    snapshot.identity = stat.identity;
    snapshot.name = stat.name;
    snapshot.parentPID = stat.parentPID;
    snapshot.isKernelThread = stat.kernelThread;
    return snapshot;
  }
};

std::optional<ProcessBase> readBase(int32_t pid) {
  if (pid <= 0) return std::nullopt;
  FileDescriptor directory = ProcFiles::openProcessDirectory(pid);
  if (!directory.valid()) return std::nullopt;
  auto stat = readStat(directory.get(), pid);
  if (!stat) return std::nullopt;
  return ProcessBase{std::move(directory), std::move(*stat)};
}

// CPU and memory as the enriched and activity readers report them.
void setTaskFigures(ProcessSnapshot& snapshot, int directory, uint64_t cpuTicks) {
  auto resident = readResidentBytes(directory);
  snapshot.cpuReadable = resident.has_value();
  snapshot.residentMemoryBytes = resident;
  snapshot.cpuTimeNanos.reset();
  if (resident) snapshot.cpuTimeNanos = ProcParsers::ticksToNanoseconds(cpuTicks, ticksPerSecond());
}

// The stat fields of a living process, read by path into `buffer` (the fields point into it).
std::optional<ProcParsers::StatFields> readLiveStatByPath(int32_t pid, char (&buffer)[statBufferSize]) {
  ProcFiles::PathBuffer path;
  auto text = ProcFiles::readVirtualFile(AT_FDCWD, ProcFiles::procPath(path, pid, "stat"), buffer);
  if (!text) return std::nullopt;
  auto fields = ProcParsers::parseStat(*text);
  if (!fields || ProcParsers::hasExited(*fields)) return std::nullopt;
  return fields;
}

// A process of any user, through one handle on its incarnation.
std::optional<ProcessSnapshot> anyUsersSnapshot(int32_t pid, uint32_t myUID, bool withArgv) {
  auto base = readBase(pid);
  if (!base) return std::nullopt;
  const int directory = base->directory.get();
  auto uid = readEffectiveUID(directory);
  if (!uid) return std::nullopt;
  ProcessSnapshot snapshot = base->snapshot();
  snapshot.uid = uid;
  snapshot.sameUser = *uid == myUID;
  snapshot.executablePath = readExecPath(directory, base->stat.name);
  if (withArgv) snapshot.argv = readArgv(directory);
  return snapshot;
}

}  // namespace

namespace Libproc {

std::vector<int32_t> processIDs() {
  std::vector<int32_t> pids;
  FileDescriptor proc(::open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!proc.valid()) return pids;
  pids.reserve(512);
  forEachDirectoryEntry(proc.get(), [&](std::string_view name) {
    if (auto pid = ProcParsers::parsePID(name)) pids.push_back(*pid);
  });
  return pids;
}

std::vector<int32_t> allPIDs() {
  std::vector<int32_t> pids = processIDs();
  if (!pids.empty()) refreshSocketTable(pids);
  return pids;
}

std::vector<OwnedListeningSocket> listeningSocketsNotOwnedBy(uint32_t uid) {
  std::shared_ptr<const std::vector<ListeningSocketRecord>> records;
  {
    SocketTableState& state = socketTableState();
    std::lock_guard lock(state.mutex);
    records = state.records;
  }
  if (!records) return {};
  return socketsNotOwnedBy(*records, uid);
}

std::vector<RawListeningSocket> listeningSockets(int32_t pid) {
  if (pid <= 0) return {};
  if (const auto owners = currentSocketOwners(); owners && owners->walked.count(pid)) {
    auto it = owners->socketsByPID.find(pid);
    return it == owners->socketsByPID.end() ? std::vector<RawListeningSocket>{} : it->second;
  }
  // A pid that the last enumeration did not see is walked on its own.
  return socketsOfProcess(pid, *currentSocketTable());
}

}  // namespace Libproc

namespace {

// Calls visit(descriptor name, socket inode) for each socket among the process's descriptors, in
// ascending descriptor order (the kernel's listing order).
template <typename Visit>
void forEachSocketDescriptor(int32_t pid, Visit&& visit) {
  ProcFiles::PathBuffer path;
  FileDescriptor descriptors(::open(ProcFiles::procPath(path, pid, "fd"), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!descriptors.valid()) return;
  forEachDirectoryEntry(descriptors.get(), [&](std::string_view name) {
    if (name.front() == '.') return;
    char link[64];
    const ssize_t length = ::readlinkat(descriptors.get(), name.data(), link, sizeof link);
    if (length <= 0 || static_cast<size_t>(length) >= sizeof link) return;
    if (auto inode = ProcParsers::parseSocketInode(std::string_view(link, static_cast<size_t>(length)))) {
      visit(name, *inode);
    }
  });
}

std::vector<RawListeningSocket> socketsOfProcess(int32_t pid, const SocketTable& table) {
  std::vector<RawListeningSocket> sockets;
  if (table.empty()) return sockets;
  forEachSocketDescriptor(pid, [&](std::string_view, uint64_t inode) {
    auto found = table.find(inode);
    if (found != table.end()) sockets.push_back(found->second);
  });
  return sockets;
}

}  // namespace

namespace Libproc {

std::vector<ListeningSocketRecord> listeningSocketRecords() {
  return SocketParsers::presented(SockDiag::listeners());
}

std::vector<SocketDescriptor> socketDescriptors(int32_t pid) {
  std::vector<SocketDescriptor> sockets;
  if (pid <= 0) return sockets;
  forEachSocketDescriptor(pid, [&](std::string_view name, uint64_t inode) {
    int fd = -1;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), fd);
    if (error == std::errc() && end == name.data() + name.size()) sockets.push_back({fd, inode});
  });
  return sockets;
}

std::optional<uint64_t> descriptorSocket(int32_t pid, int fd) {
  if (pid <= 0 || fd < 0) return std::nullopt;
  char path[64];
  std::snprintf(path, sizeof path, "/proc/%d/fd/%d", pid, fd);
  char link[64];
  const ssize_t length = ::readlink(path, link, sizeof link);
  if (length <= 0 || static_cast<size_t>(length) >= sizeof link) return std::nullopt;
  return ProcParsers::parseSocketInode(std::string_view(link, static_cast<size_t>(length)));
}

std::optional<ProcessIdentity> processIdentity(int32_t pid) {
  if (pid <= 0) return std::nullopt;
  char buffer[statBufferSize];
  auto fields = readLiveStatByPath(pid, buffer);
  if (!fields) return std::nullopt;
  return ProcParsers::identityFromStartTicks(pid, bootTime(), fields->startTicks, ticksPerSecond());
}

std::optional<std::string> execPath(int32_t pid, const std::optional<std::string>& name) {
  if (pid <= 0) return std::nullopt;
  ProcFiles::PathBuffer path;
  char buffer[linkBufferSize];
  auto link = ProcFiles::readLink(AT_FDCWD, ProcFiles::procPath(path, pid, "exe"), buffer);
  if (!link) return std::nullopt;
  return executablePathAsStarted(ProcParsers::withoutDeletedMarker(*link), name);
}

std::optional<std::string> currentWorkingDirectory(int32_t pid) {
  if (pid <= 0) return std::nullopt;
  ProcFiles::PathBuffer path;
  return readLinkText(AT_FDCWD, ProcFiles::procPath(path, pid, "cwd"));
}

std::optional<std::vector<std::string>> argv(int32_t pid) {
  if (pid <= 0) return std::nullopt;
  FileDescriptor directory = ProcFiles::openProcessDirectory(pid);
  if (!directory.valid()) return std::nullopt;
  return readArgv(directory.get());
}

}  // namespace Libproc

namespace ProcessReader {

std::optional<ProcessSnapshot> enrichedSnapshot(int32_t pid, uint32_t myUID, bool includeArgv) {
  auto base = readBase(pid);
  if (!base) return std::nullopt;
  const int directory = base->directory.get();
  auto uid = readEffectiveUID(directory);
  if (!uid || *uid != myUID) return std::nullopt;
  ProcessSnapshot snapshot = base->snapshot();
  snapshot.uid = uid;
  snapshot.sameUser = true;
  snapshot.executablePath = readExecPath(directory, base->stat.name);
  setTaskFigures(snapshot, directory, base->stat.cpuTicks);
  if (includeArgv) snapshot.argv = readArgv(directory);
  return snapshot;
}

std::optional<ProcessSnapshot> detectionSnapshot(int32_t pid, uint32_t myUID) {
  return anyUsersSnapshot(pid, myUID, true);
}

std::optional<ProcessSnapshot> statSnapshot(int32_t pid) {
  if (pid <= 0) return std::nullopt;
  ProcFiles::PathBuffer path;
  auto stat = readStatAt(AT_FDCWD, ProcFiles::procPath(path, pid, "stat"), pid);
  if (!stat) return std::nullopt;
  return ProcessBase{FileDescriptor(), std::move(*stat)}.snapshot();
}

std::optional<ProcessSnapshot> agentDetectionSnapshot(int32_t pid, uint32_t myUID) {
  auto base = readBase(pid);
  if (!base) return std::nullopt;
  const int directory = base->directory.get();
  const bool kernelThread = base->stat.kernelThread;

  // Formatting /proc/PID/status costs more than the rest of this read together. The owner of the
  // process's directory is its effective uid as well, unless the process can't be dumped: then
  // it shows as root, or as the overflow uid where that root isn't mapped. So the owner is taken
  // as it is for kernel threads, for the user's own processes and for other users', and status
  // is read only where the owner could stand for someone else.
  constexpr uint32_t overflowUID = 65534;
  std::optional<uint32_t> uid;
  struct stat owner {};
  if (::fstat(directory, &owner) == 0) {
    const uint32_t shown = owner.st_uid;
    const bool exact = kernelThread || (shown == myUID && myUID != 0) || (shown != 0 && shown != overflowUID);
    if (exact) uid = shown;
  }
  if (!uid) uid = readEffectiveUID(directory);
  if (!uid) return std::nullopt;

  ProcessSnapshot snapshot = base->snapshot();
  snapshot.uid = uid;
  snapshot.sameUser = *uid == myUID;
  // A kernel thread has no executable: the link can't be read.
  if (!kernelThread) snapshot.executablePath = readExecPath(directory, base->stat.name);
  // Detection reads argv only of the user's own interpreters, native installs and names that
  // disagree with their path; argv is read through the same handle, so of the same incarnation.
  if (snapshot.sameUser && AgentProcessDetector::presenceCandidate(snapshot.name, snapshot.executablePath) ==
                               AgentProcessDetector::PresenceCandidate::needsArgv) {
    snapshot.argv = readArgv(directory);
  }
  return snapshot;
}

std::optional<ProcessSnapshot> agentPresenceSnapshot(int32_t pid, uint32_t myUID) {
  if (pid <= 0) return std::nullopt;
  // This reader runs for every process in every scan and rejects nearly all of them by their
  // names, so the test runs first on the fewest reads: stat and the exe link by path.
  {
    char buffer[statBufferSize];
    auto fields = readLiveStatByPath(pid, buffer);
    if (!fields) return std::nullopt;
    std::optional<std::string> name;
    if (!fields->comm.empty()) name = repairedUTF8(fields->comm);
    const auto candidate = AgentProcessDetector::presenceCandidate(name, Libproc::execPath(pid, name));
    if (candidate == AgentProcessDetector::PresenceCandidate::rejected) return std::nullopt;
  }
  // A candidate is read again through one handle on its incarnation, owner check included.
  auto base = readBase(pid);
  if (!base) return std::nullopt;
  const int directory = base->directory.get();
  auto uid = readEffectiveUID(directory);
  if (!uid || *uid != myUID) return std::nullopt;
  auto path = readExecPath(directory, base->stat.name);
  const auto candidate = AgentProcessDetector::presenceCandidate(base->stat.name, path);
  if (candidate == AgentProcessDetector::PresenceCandidate::rejected) return std::nullopt;
  ProcessSnapshot snapshot = base->snapshot();
  snapshot.uid = myUID;
  snapshot.sameUser = true;
  snapshot.executablePath = std::move(path);
  if (candidate == AgentProcessDetector::PresenceCandidate::needsArgv) snapshot.argv = readArgv(directory);
  return snapshot;
}

LiveProcessRead liveResolveSnapshot(int32_t pid) {
  errno = 0;
  auto snapshot = anyUsersSnapshot(pid, static_cast<uint32_t>(::getuid()), false);
  if (snapshot) return {std::move(snapshot), 0};
  // Gone shows as ENOENT or ESRCH, a zombie as no error; anything else leaves it unknown.
  const int error = errno;
  const bool unknown = error == EMFILE || error == ENFILE || error == ENOMEM || error == EACCES || error == EPERM;
  return {std::nullopt, unknown ? error : 0};
}

std::optional<ProcessSnapshot> activitySnapshot(const ProcessSnapshot& snapshot, uint32_t myUID) {
  if (!snapshot.sameUser || snapshot.uid != myUID) return std::nullopt;
  auto base = readBase(snapshot.identity.pid);
  if (!base || base->stat.identity != snapshot.identity) return std::nullopt;
  const int directory = base->directory.get();
  auto uid = readEffectiveUID(directory);
  if (!uid || *uid != myUID) return std::nullopt;
  ProcessSnapshot refreshed = snapshot;
  refreshed.uid = myUID;
  refreshed.sameUser = true;
  setTaskFigures(refreshed, directory, base->stat.cpuTicks);
  return refreshed;
}

}  // namespace ProcessReader
}  // namespace tidewatch
