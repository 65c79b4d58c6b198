// Snapshots and an in-memory process table for the walks up a process's parents. The table
// records every pid it is asked for, so a test can prove what a walk read and where it stopped.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "process_core/process_ancestry.h"

namespace tidewatch::testing {

inline const std::string claudePath = "/home/me/.local/bin/claude";
inline const std::string codexPath = "/home/me/.local/bin/codex";

// A process of the scanning user.
inline ProcessSnapshot process(int32_t pid, int32_t parentPID, std::string path, uint64_t startSeconds = 1000,
                               uint32_t startMicros = 0) {
  ProcessSnapshot snapshot;
  snapshot.identity = {pid, startSeconds, startMicros};
  snapshot.executablePath = std::move(path);
  snapshot.parentPID = parentPID;
  snapshot.sameUser = true;
  return snapshot;
}

inline ProcessIdentity id(int32_t pid, uint64_t startSeconds = 1000) { return {pid, startSeconds, 0}; }

struct FakeProcessTable {
  std::map<int32_t, ProcessSnapshot> byPID;
  std::map<int32_t, std::string> workingDirectories;
  std::set<std::string> existingPaths;
  std::vector<int32_t> asked;

  explicit FakeProcessTable(const std::vector<ProcessSnapshot>& snapshots = {}) {
    for (const auto& snapshot : snapshots) add(snapshot);
  }
  void add(const ProcessSnapshot& snapshot) { byPID.insert_or_assign(snapshot.identity.pid, snapshot); }

  LookupSnapshot lookup() {
    return [this](int32_t pid) -> std::optional<ProcessSnapshot> {
      asked.push_back(pid);
      auto it = byPID.find(pid);
      return it == byPID.end() ? std::nullopt : std::optional(it->second);
    };
  }
  std::function<std::optional<std::string>(int32_t)> cwd() const {
    return [this](int32_t pid) -> std::optional<std::string> {
      auto it = workingDirectories.find(pid);
      return it == workingDirectories.end() ? std::nullopt : std::optional(it->second);
    };
  }
  std::function<bool(const std::string&)> exists() const {
    return [this](const std::string& path) { return existingPaths.contains(path); };
  }
};

}  // namespace tidewatch::testing
