#include "process_core/agent_process_detector.h"

#include <vector>

#include "process_core/host_app_recognition.h"
#include "process_core/text.h"

namespace tidewatch::AgentProcessDetector {
namespace {

// The managed command-line bundle and the executable name it must carry.
struct ManagedCLIBundle {
  std::string_view bundleIdentifier;
  std::string_view requiredBasename;
  AgentKind kind;
};
constexpr ManagedCLIBundle managedCLIBundles[] = {{"com.anthropic.claude-code", "claude", AgentKind::claude}};

bool isVersionNumber(std::string_view version) {
  size_t pieces = 0;
  size_t start = 0;
  while (true) {
    size_t end = version.find('.', start);
    if (end == std::string_view::npos) end = version.size();
    if (end == start) return false;
    for (size_t i = start; i < end; ++i) {
      if (version[i] < '0' || version[i] > '9') return false;
    }
    ++pieces;
    if (end == version.size()) break;
    start = end + 1;
  }
  return pieces >= 3;
}

}  // namespace

std::optional<AgentKind> agentKindForBasename(std::string_view basename) {
  if (basename == "claude") return AgentKind::claude;
  if (basename == "codex") return AgentKind::codex;
  return std::nullopt;
}

bool isScriptInterpreterBasename(std::string_view basename) { return basename == "node"; }

bool isNativeInstalledClaudeCandidate(const std::optional<std::string>& name,
                                      const std::optional<std::string>& executablePath) {
  if (!executablePath) return false;
  const auto pieces = nonEmptyPieces(*executablePath, '/');
  if (pieces.size() < 5) return false;
  const auto tail = pieces.end() - 5;
  if (tail[0] != ".local" || tail[1] != "share" || tail[2] != "claude" || tail[3] != "versions") {
    return false;
  }
  const std::string_view version = tail[4];
  if (!name || *name != version) return false;
  return isVersionNumber(version);
}

PresenceCandidate presenceCandidate(const std::optional<std::string>& name,
                                    const std::optional<std::string>& executablePath) {
  std::optional<std::string> candidate;
  if (executablePath) candidate = lastPathComponent(*executablePath);
  if (!candidate) candidate = name;
  if (!candidate) return PresenceCandidate::rejected;

  const bool nameIsAgent = name && agentKindForBasename(*name);
  const bool nativeCandidate = isNativeInstalledClaudeCandidate(name, executablePath);
  const bool candidateIsAgent = agentKindForBasename(*candidate).has_value();
  const bool candidateIsInterpreter = isScriptInterpreterBasename(*candidate);

  if (!candidateIsAgent && !candidateIsInterpreter && !nameIsAgent && !nativeCandidate) {
    return PresenceCandidate::rejected;
  }
  if (candidateIsInterpreter || nativeCandidate || (nameIsAgent && !candidateIsAgent)) {
    return PresenceCandidate::needsArgv;
  }
  return PresenceCandidate::withoutArgv;
}

std::optional<AgentKind> detect(const ProcessSnapshot& snapshot) {
  if (!snapshot.sameUser) return std::nullopt;
  const auto basename = processBasename(snapshot);

  if (snapshot.bundleIdentifier) {
    for (const auto& managed : managedCLIBundles) {
      if (*snapshot.bundleIdentifier == managed.bundleIdentifier && basename == managed.requiredBasename) {
        return managed.kind;
      }
    }
  }

  if (isNativeInstalledClaudeCandidate(snapshot.name, snapshot.executablePath) && snapshot.argv &&
      !snapshot.argv->empty() && lastPathComponent(snapshot.argv->front()) == "claude") {
    return AgentKind::claude;
  }

  // Applications never reach the name rules; the desktop apps of both providers have identifiers.
  if (snapshot.bundleIdentifier) return std::nullopt;

  std::string candidate;
  if (snapshot.executablePath) {
    if (snapshot.executablePath->find(".app/Contents/") != std::string::npos) return std::nullopt;
    if (HostAppRecognition::recognize(snapshot)) return std::nullopt;
    if (!basename) return std::nullopt;
    candidate = *basename;
  } else {
    if (HostAppRecognition::recognize(snapshot)) return std::nullopt;
    if (!snapshot.name) return std::nullopt;
    candidate = *snapshot.name;
  }

  if (auto kind = agentKindForBasename(candidate)) return kind;

  // An interpreter running an agent script: the script must be exactly the second argument.
  if (isScriptInterpreterBasename(candidate) && snapshot.argv && snapshot.argv->size() >= 2) {
    const auto interpreter = lastPathComponent((*snapshot.argv)[0]);
    const auto script = lastPathComponent((*snapshot.argv)[1]);
    if (interpreter && isScriptInterpreterBasename(*interpreter) && script) return agentKindForBasename(*script);
  }
  return std::nullopt;
}

}  // namespace tidewatch::AgentProcessDetector
