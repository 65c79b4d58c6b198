// Tells whether one process is a local coding agent, and of which provider.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "process_core/process_records.h"

namespace tidewatch::AgentProcessDetector {

// "claude" and "codex": exact, case-sensitive basenames of agent executables.
std::optional<AgentKind> agentKindForBasename(std::string_view basename);

// "node": interpreters whose second argument may name an agent script.
bool isScriptInterpreterBasename(std::string_view basename);

// An executable named after its version under ~/.local/share/claude/versions/.
bool isNativeInstalledClaudeCandidate(const std::optional<std::string>& name,
                                      const std::optional<std::string>& executablePath);

// The cheap name test the presence reader runs on every process before reading argv.
enum class PresenceCandidate {
  rejected,     // not an agent by its names
  withoutArgv,  // its names decide; argv is not needed
  needsArgv,    // an interpreter, a native install, or a name that disagrees with its path
};
PresenceCandidate presenceCandidate(const std::optional<std::string>& name,
                                    const std::optional<std::string>& executablePath);

// The provider of a coding agent process, from the snapshot alone. Other users' processes and
// applications with a bundle identifier are never agents; a snapshot without argv can be one only
// by its managed bundle or by its own name.
std::optional<AgentKind> detect(const ProcessSnapshot& snapshot);

}  // namespace tidewatch::AgentProcessDetector
