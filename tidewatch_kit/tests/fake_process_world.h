// An in-memory process table behind PortEngineDependencies, counting every read.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "process_core/agent_process_detector.h"
#include "tidewatch_kit/port_engine.h"

namespace tidewatch::testing {

struct FakeProcess {
  ProcessSnapshot snapshot;
  std::vector<RawListeningSocket> sockets;
  std::vector<SocketDescriptor> descriptors;  // beside sockets: the descriptor and inode of each
  std::optional<std::string> cwd;
};

class FakeProcessWorld {
 public:
  uint32_t uid = 1000;
  int32_t selfPID = 4242;
  std::string home = "/home/dev";
  std::set<std::string> existingPaths;
  std::set<std::string> strongSystemPaths;
  std::set<int32_t> identityUnreadable;
  // Fresh reads of these pids fail with the errno given, as when descriptors run out.
  std::map<int32_t, int> liveReadErrors;
  Date now = Date(std::chrono::seconds(1'800'000'000));

  std::map<int32_t, int> detectionReads;
  std::map<int32_t, int> enrichedReads;
  std::map<int32_t, int> identityReads;
  std::map<int32_t, int> cwdReads;
  std::map<int32_t, int> descriptorWalks;
  std::map<int32_t, int> presenceReads;
  int descriptorReads = 0;
  int processListings = 0;
  int flagCalls = 0;
  std::vector<std::optional<std::string>> flaggedPaths;
  // Listening sockets of any user by owner, and the password database.
  std::vector<OwnedListeningSocket> ownedSockets;
  std::map<uint32_t, std::string> userNames;

  // Adds a process of `owner` (default: the scanning user) started at `start` seconds.
  ProcessSnapshot& add(int32_t pid, int32_t parent, std::string path, uint64_t start = 100,
                       std::optional<uint32_t> owner = std::nullopt) {
    FakeProcess process;
    process.snapshot.identity = {pid, start, 0};
    process.snapshot.executablePath = path;
    process.snapshot.name = lastPathComponent(path).value_or(path).substr(0, 15);
    process.snapshot.parentPID = parent;
    process.snapshot.uid = owner.value_or(uid);
    process.snapshot.argv = std::vector<std::string>{path};
    processes_[pid] = process;
    return processes_[pid].snapshot;
  }

  void listen(int32_t pid, int port, std::string address = "127.0.0.1") {
    const auto family = address.find(':') != std::string::npos ? AddressFamily::ipv6 : AddressFamily::ipv4;
    hold(pid, {port, family, std::move(address)}, nextInode_++);
  }

  // The listening socket of `from` on port also held by `to`, as after fork or a descriptor passed.
  void share(int32_t from, int port, int32_t to) {
    const auto& source = processes_.at(from);
    for (size_t i = 0; i < source.sockets.size(); ++i) {
      if (source.sockets[i].port == port) return hold(to, source.sockets[i], source.descriptors[i].inode);
    }
  }

  void close(int32_t pid, int port) {
    auto& process = processes_.at(pid);
    for (size_t i = process.sockets.size(); i-- > 0;) {
      if (process.sockets[i].port != port) continue;
      process.sockets.erase(process.sockets.begin() + static_cast<std::ptrdiff_t>(i));
      process.descriptors.erase(process.descriptors.begin() + static_cast<std::ptrdiff_t>(i));
    }
  }

  void exit(int32_t pid) { processes_.erase(pid); }

  void setCWD(int32_t pid, std::string cwd) { processes_.at(pid).cwd = std::move(cwd); }

  // Replaces the process behind a pid, as if it exited and the pid was reused.
  void restart(int32_t pid, uint64_t newStart) { processes_.at(pid).snapshot.identity.startTimeSeconds = newStart; }

  PortEngineDependencies dependencies() {
    PortEngineDependencies d;
    d.processIDs = [this] {
      ++processListings;
      std::vector<int32_t> pids;
      for (const auto& [pid, process] : processes_) pids.push_back(pid);
      return pids;
    };
    d.listeningSocketRecords = [this] {
      std::vector<ListeningSocketRecord> records;
      for (const auto& [pid, process] : processes_) {
        for (size_t i = 0; i < process.sockets.size(); ++i) {
          records.push_back({process.descriptors[i].inode, {process.sockets[i], *process.snapshot.uid}});
        }
      }
      uint64_t inode = 1'000'000;
      for (const auto& owned : ownedSockets) records.push_back({inode++, owned});
      return records;
    };
    d.socketDescriptors = [this](int32_t pid) {
      ++descriptorWalks[pid];
      auto it = processes_.find(pid);
      if (it == processes_.end() || (it->second.snapshot.uid != uid)) return std::vector<SocketDescriptor>{};
      return it->second.descriptors;
    };
    d.descriptorSocket = [this](int32_t pid, int fd) -> std::optional<uint64_t> {
      ++descriptorReads;
      auto it = processes_.find(pid);
      if (it == processes_.end()) return std::nullopt;
      for (const auto& descriptor : it->second.descriptors) {
        if (descriptor.fd == fd) return descriptor.inode;
      }
      return std::nullopt;
    };
    d.allPIDs = [this] {
      std::vector<int32_t> pids;
      for (const auto& [pid, process] : processes_) pids.push_back(pid);
      return pids;
    };
    d.currentUID = [this] { return uid; };
    d.currentPID = [this] { return selfPID; };
    d.listeningSocketsNotOwnedBy = [this](uint32_t myUID) {
      std::vector<OwnedListeningSocket> others;
      for (const auto& owned : ownedSockets) {
        if (owned.uid != myUID) others.push_back(owned);
      }
      return others;
    };
    d.userName = [this](uint32_t owner) -> std::optional<std::string> {
      auto it = userNames.find(owner);
      return it == userNames.end() ? std::nullopt : std::optional(it->second);
    };
    d.listeningSockets = [this](int32_t pid) {
      auto it = processes_.find(pid);
      return it == processes_.end() ? std::vector<RawListeningSocket>{} : it->second.sockets;
    };
    d.enrichedSnapshot = [this](int32_t pid, uint32_t myUID, bool includeArgv) -> std::optional<ProcessSnapshot> {
      ++enrichedReads[pid];
      auto snapshot = read(pid, myUID);
      if (!snapshot || !snapshot->sameUser) return std::nullopt;
      snapshot->cpuReadable = true;
      snapshot->residentMemoryBytes = 4096;
      if (!includeArgv) snapshot->argv.reset();
      return snapshot;
    };
    d.agentPresenceSnapshot = [this](int32_t pid, uint32_t myUID) -> std::optional<ProcessSnapshot> {
      ++presenceReads[pid];
      auto snapshot = read(pid, myUID);
      if (!snapshot || !snapshot->sameUser) return std::nullopt;
      if (AgentProcessDetector::presenceCandidate(snapshot->name, snapshot->executablePath) ==
          AgentProcessDetector::PresenceCandidate::rejected) {
        return std::nullopt;
      }
      return snapshot;
    };
    d.detectionSnapshot = [this](int32_t pid, uint32_t myUID) {
      ++detectionReads[pid];
      return read(pid, myUID);
    };
    d.liveResolveSnapshot = [this](int32_t pid) -> LiveProcessRead {
      if (auto error = liveReadErrors.find(pid); error != liveReadErrors.end()) return {std::nullopt, error->second};
      auto snapshot = read(pid, uid);
      if (snapshot) snapshot->argv.reset();
      return {snapshot, 0};
    };
    d.processIdentity = [this](int32_t pid) -> std::optional<ProcessIdentity> {
      ++identityReads[pid];
      auto it = processes_.find(pid);
      if (it == processes_.end() || identityUnreadable.count(pid)) return std::nullopt;
      return it->second.snapshot.identity;
    };
    d.currentWorkingDirectory = [this](int32_t pid) -> std::optional<std::string> {
      ++cwdReads[pid];
      auto it = processes_.find(pid);
      return it == processes_.end() ? std::nullopt : it->second.cwd;
    };
    d.directoryExists = [this](const std::string& path) { return existingPaths.count(path) > 0; };
    d.homeDirectory = [this] { return home; };
    d.strongSystemBackgroundFlags = [this](const std::vector<std::optional<std::string>>& paths) {
      ++flagCalls;
      flaggedPaths = paths;
      std::vector<bool> flags;
      for (const auto& path : paths) flags.push_back(path && strongSystemPaths.count(*path) > 0);
      return flags;
    };
    d.now = [this] { return now; };
    return d;
  }

 private:
  std::optional<ProcessSnapshot> read(int32_t pid, uint32_t myUID) const {
    auto it = processes_.find(pid);
    if (it == processes_.end()) return std::nullopt;
    ProcessSnapshot snapshot = it->second.snapshot;
    snapshot.sameUser = snapshot.uid == myUID;
    return snapshot;
  }

  void hold(int32_t pid, RawListeningSocket socket, uint64_t inode) {
    auto& process = processes_.at(pid);
    const int fd = process.descriptors.empty() ? 3 : process.descriptors.back().fd + 1;
    process.sockets.push_back(std::move(socket));
    process.descriptors.push_back({fd, inode});
  }

  std::map<int32_t, FakeProcess> processes_;
  uint64_t nextInode_ = 5000;
};

}  // namespace tidewatch::testing
