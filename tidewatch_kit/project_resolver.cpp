#include "tidewatch_kit/project_resolver.h"

#include <array>
#include <string_view>

#include "process_core/path_utils.h"

namespace tidewatch::ProjectResolver {
namespace {
constexpr std::array<std::string_view, 5> markers{".git", "package.json", "pyproject.toml", "go.mod",
                                                  "Cargo.toml"};
}

std::optional<std::string> seedDirectory(const ProcessSnapshot& owner, const CWDForPID& cwdForPID,
                                         const PathExists& pathExists) {
  if (auto cwd = cwdForPID(owner.identity.pid)) return cwd;
  if (!owner.argv || owner.argv->empty()) return std::nullopt;
  for (const auto& argument : *owner.argv) {
    if (!argument.starts_with('/')) continue;
    const std::string path = standardizePath(argument);
    const std::string parent = deletingLastPathComponent(path);
    if (pathExists(path)) return parent.empty() ? path : parent;
    if (pathExists(parent)) return parent;
  }
  return std::nullopt;
}

std::optional<ListenerProject> resolve(const std::string& seed, const PathExists& directoryExists,
                                       const std::string& homeDirectory) {
  std::string current = standardizePath(seed);
  // HOME may come as "/home/dev/" or "//home/dev": the boundary is the directory, not its spelling.
  const std::string home = standardizePath(homeDirectory);
  for (int i = 0; i < maxDirectories; ++i) {
    if (current == home || current == "/") return std::nullopt;
    for (std::string_view marker : markers) {
      if (directoryExists(appendingPathComponent(current, marker))) {
        return ListenerProject{lastPathComponent(current).value_or(current), current};
      }
    }
    current = deletingLastPathComponent(current);
    // A relative seed runs out of pieces before reaching "/".
    if (current.empty()) return std::nullopt;
  }
  return std::nullopt;
}

std::optional<ListenerProject> resolve(const ProcessSnapshot& owner, const CWDForPID& cwdForPID,
                                       const PathExists& directoryExists, const std::string& homeDirectory) {
  auto seed = seedDirectory(owner, cwdForPID, directoryExists);
  if (!seed) return std::nullopt;
  return resolve(*seed, directoryExists, homeDirectory);
}

}  // namespace tidewatch::ProjectResolver
