// Finds the project a process works in: a walk up from its working directory (or from the
// directory of an absolute path in its arguments) to the nearest marker file.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "tidewatch_kit/listener_records.h"

namespace tidewatch::ProjectResolver {

using PathExists = std::function<bool(const std::string& path)>;
using CWDForPID = std::function<std::optional<std::string>(int32_t pid)>;

// At most this many directories are tried, the seed among them.
inline constexpr int maxDirectories = 10;

// Where to start looking: the working directory, else the directory of the first absolute
// argument that exists (or whose directory does).
std::optional<std::string> seedDirectory(const ProcessSnapshot& owner, const CWDForPID& cwdForPID,
                                         const PathExists& pathExists);

// The nearest directory holding .git, package.json, pyproject.toml, go.mod or Cargo.toml. The
// walk never looks at or past the home directory or "/".
std::optional<ListenerProject> resolve(const std::string& seedDirectory, const PathExists& directoryExists,
                                       const std::string& homeDirectory);

std::optional<ListenerProject> resolve(const ProcessSnapshot& owner, const CWDForPID& cwdForPID,
                                       const PathExists& directoryExists, const std::string& homeDirectory);

}  // namespace tidewatch::ProjectResolver
