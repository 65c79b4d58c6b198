#include "tidewatch_kit/socket_owner_map.h"

#include <utility>

namespace tidewatch {

SocketOwnerMap::Update SocketOwnerMap::update(const std::vector<int32_t>& pids, Date now) {
  Update result;
  result.records = operations_.listeningSockets();
  std::unordered_map<uint64_t, const RawListeningSocket*> table;
  table.reserve(result.records.size());
  for (const auto& record : result.records) table.try_emplace(record.inode, &record.owned.socket);

  const bool paused = lastUpdate_ && (now < *lastUpdate_ || now - *lastUpdate_ > longestPause);
  bool complete = !lastCompleteWalk_ || paused || now < *lastCompleteWalk_ ||
                  now - *lastCompleteWalk_ >= safetyNetInterval;
  lastUpdate_ = now;

  std::unordered_set<int32_t> walked;
  auto walk = [&](int32_t pid, Process& process) {
    process.holdings.clear();
    for (const auto& descriptor : operations_.socketDescriptors(pid)) {
      if (table.contains(descriptor.inode)) process.holdings.push_back(descriptor);
    }
    process.identity = process.holdings.empty() ? std::nullopt : operations_.processIdentity(pid);
    walked.insert(pid);
  };

  std::unordered_map<int32_t, Process> current;
  current.reserve(pids.size());
  for (int32_t pid : pids) {
    auto known = processes_.find(pid);
    Process process;
    if (complete || known == processes_.end()) {
      walk(pid, process);
    } else {
      process = std::move(known->second);
      std::erase_if(process.holdings, [&](const SocketDescriptor& held) { return !table.contains(held.inode); });
      if (!process.holdings.empty()) {
        bool changed = operations_.processIdentity(pid) != process.identity;
        for (const auto& held : process.holdings) {
          if (changed) break;
          changed = operations_.descriptorSocket(pid, held.fd) != held.inode;
        }
        if (changed) walk(pid, process);
      }
    }
    current.emplace(pid, std::move(process));
  }
  processes_ = std::move(current);

  auto unplaced = [&] {
    std::unordered_set<uint64_t> inodes;
    for (const auto& [inode, socket] : table) inodes.insert(inode);
    for (const auto& [pid, process] : processes_) {
      for (const auto& held : process.holdings) inodes.erase(held.inode);
    }
    return inodes;
  };
  if (!complete) {
    std::erase_if(searched_, [&](uint64_t inode) { return !table.contains(inode); });
    for (uint64_t inode : unplaced()) {
      if (!searched_.contains(inode)) complete = true;
    }
    if (complete) {
      for (auto& [pid, process] : processes_) {
        if (!walked.contains(pid)) walk(pid, process);
      }
    }
  }
  if (complete) {
    searched_ = unplaced();
    lastCompleteWalk_ = now;
  }

  for (const auto& [pid, process] : processes_) {
    if (process.holdings.empty()) continue;
    auto& sockets = result.socketsByPID[pid];
    for (const auto& held : process.holdings) sockets.push_back(*table.at(held.inode));
  }
  result.complete = complete;
  result.walkedProcesses = walked.size();
  return result;
}

}  // namespace tidewatch
