#include "hooks/agent_hook_paths.h"

#include <cstring>
#include <vector>

#include "process_core/path_utils.h"

namespace tidewatch {

AgentHookPaths::Profile AgentHookPaths::darwinProfile(std::string_view homeDirectory,
                                                      const std::optional<std::string>& userTemporaryDirectory,
                                                      std::string_view systemTemporaryDirectory) {
  std::string temporary = userTemporaryDirectory ? *userTemporaryDirectory : std::string(systemTemporaryDirectory);
  if (!temporary.empty() && temporary.back() == '/') temporary.pop_back();
  return Profile{std::string(homeDirectory) + "/Library/Application Support/Tidewatch/Runtime",
                 temporary + "/tidewatch", true};
}

std::string AgentHookPaths::linuxUserRuntimeDirectory(uint32_t uid) {
  return "/run/user/" + std::to_string(uid);
}

AgentHookPaths::Profile AgentHookPaths::linuxProfile(std::string_view homeDirectory, uint32_t uid,
                                                     bool userRuntimeDirectoryOwned) {
  return Profile{linuxUserRuntimeDirectory(uid) + "/tidewatch",
                 appendingPathComponent(homeDirectory, ".local/state/tidewatch/runtime"), userRuntimeDirectoryOwned};
}

AgentHookPaths AgentHookPaths::inRuntimeDirectory(std::string runtimeDirectory) {
  std::string socketPath = runtimeDirectory + "/" + std::string(socketName);
  return AgentHookPaths{std::move(runtimeDirectory), std::move(socketPath)};
}

AgentHookPaths::Candidates AgentHookPaths::candidates(const Profile& profile) {
  return Candidates{inRuntimeDirectory(profile.preferredRuntimeDirectory),
                    inRuntimeDirectory(profile.fallbackRuntimeDirectory)};
}

AgentHookPaths AgentHookPaths::standard(const Profile& profile) {
  Candidates both = candidates(profile);
  if (profile.preferredUsable && both.preferred.socketPath.size() <= maxSocketPathBytes) {
    return std::move(both.preferred);
  }
  return std::move(both.fallback);
}

std::optional<std::string> AgentHookPaths::darwinUserTempDir(const Confstr& confstr) {
  constexpr size_t bufferSize = 1024;
  std::vector<char> buffer(bufferSize, '\0');
  const size_t needed = confstr(darwinUserTempDirName, buffer.data(), buffer.size());
  if (needed < 1 || needed > bufferSize) return std::nullopt;
  return std::string(buffer.data(), strnlen(buffer.data(), buffer.size()));
}

}  // namespace tidewatch
