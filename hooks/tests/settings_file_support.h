// Shared pieces of the settings-file tests: real files in a scratch home, and the whole
// installation and removal sequences as the connection store runs them.
#pragma once

#include <sys/stat.h>

#include <fstream>
#include <sstream>
#include <string>

#include "hooks/agent_hook_configurator.h"
#include "hooks/tests/hook_test_support.h"

namespace tidewatch::testing {

inline std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream content;
  content << in.rdbuf();
  return content.str();
}

inline void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline uint32_t modeOf(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? (status.st_mode & 0777) : 0;
}

inline size_t entriesIn(const std::string& directory) {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory)) ++count;
  return count;
}

// readIfPresent, removal where a file exists, append, writeAtomically with the snapshot.
inline std::optional<AgentHookConfigurator::ConfigError> install(
    const std::string& path, const std::vector<AgentHookConfigurator::DesiredEntry>& desired,
    const std::set<std::string>& owned, const AgentHookConfigurator::FileOperations& files) {
  using namespace AgentHookConfigurator;
  auto read = readIfPresent(path, files);
  if (!read.hasValue()) return read.error();
  nlohmann::json root = read.value() ? read.value()->root : nlohmann::json::object();
  if (read.value()) removeTidewatchEntries(root, owned);
  if (auto error = append(desired, root)) return error;
  return writeAtomically(root, path, read.value(), files);
}

// readIfPresent, removal, writeAtomically with the snapshot; nothing to do without a file.
inline std::optional<AgentHookConfigurator::ConfigError> uninstall(const std::string& path,
                                                                   const std::set<std::string>& owned,
                                                                   const AgentHookConfigurator::FileOperations& files) {
  using namespace AgentHookConfigurator;
  auto read = readIfPresent(path, files);
  if (!read.hasValue()) return read.error();
  if (!read.value()) return std::nullopt;
  nlohmann::json root = read.value()->root;
  removeTidewatchEntries(root, owned);
  return writeAtomically(root, path, read.value(), files);
}

}  // namespace tidewatch::testing
