#include "process_core/process_records.h"

#include <unordered_set>

namespace tidewatch {

std::optional<std::string> lastPathComponent(std::string_view path) {
  size_t end = path.size();
  while (end > 0 && path[end - 1] == '/') --end;
  if (end == 0) return std::nullopt;
  size_t start = path.rfind('/', end - 1);
  start = (start == std::string_view::npos) ? 0 : start + 1;
  return std::string(path.substr(start, end - start));
}

std::optional<std::string> processBasename(const ProcessSnapshot& snapshot) {
  if (snapshot.executablePath) {
    if (auto last = lastPathComponent(*snapshot.executablePath)) return last;
  }
  return snapshot.name;
}

std::string ProcessSnapshot::displayName() const {
  if (auto base = processBasename(*this)) return *base;
  return "pid " + std::to_string(identity.pid);
}

std::string_view rawValue(AddressFamily family) {
  return family == AddressFamily::ipv4 ? "IPv4" : "IPv6";
}

std::optional<AddressFamily> addressFamilyFromRaw(std::string_view raw) {
  if (raw == "IPv4") return AddressFamily::ipv4;
  if (raw == "IPv6") return AddressFamily::ipv6;
  return std::nullopt;
}

ScanError::ScanError(Code code) : std::runtime_error("process enumeration unavailable"), code_(code) {}

std::string_view rawValue(BatteryMode mode) {
  return mode == BatteryMode::balanced ? "balanced" : "batterySaver";
}

std::string_view rawValue(AgentKind kind) { return kind == AgentKind::codex ? "codex" : "claude"; }

std::string_view displayName(AgentKind kind) {
  return kind == AgentKind::codex ? "Codex" : "Claude Code";
}

int sortOrder(AgentKind kind) { return kind == AgentKind::codex ? 0 : 1; }

std::optional<AgentKind> agentKindFromRaw(std::string_view raw) {
  for (AgentKind kind : allAgentKinds) {
    if (rawValue(kind) == raw) return kind;
  }
  return std::nullopt;
}

std::string AgentProcessIdentity::stableID() const {
  return "agent:" + std::string(rawValue(kind)) + ":" + std::to_string(process.pid) + ":" +
         std::to_string(process.startTimeSeconds) + "." + std::to_string(process.startTimeMicroseconds);
}

namespace {
struct HostAppNames {
  std::string_view raw;
  std::string_view display;
};
constexpr HostAppNames hostAppNames[] = {
    {"terminal", "Terminal"}, {"iterm2", "iTerm2"},       {"warp", "Warp"},
    {"ghostty", "Ghostty"},   {"wezterm", "WezTerm"},     {"alacritty", "Alacritty"},
    {"vscode", "VS Code"},    {"cursor", "Cursor"},       {"chatgpt", "ChatGPT"},
    {"claudeDesktop", "Claude Desktop"}};
}  // namespace

std::string_view rawValue(HostAppKind kind) { return hostAppNames[static_cast<size_t>(kind)].raw; }

std::string_view displayName(HostAppKind kind) {
  return hostAppNames[static_cast<size_t>(kind)].display;
}

std::optional<HostAppKind> hostAppKindFromRaw(std::string_view raw) {
  for (HostAppKind kind : allHostAppKinds) {
    if (rawValue(kind) == raw) return kind;
  }
  return std::nullopt;
}

std::vector<OwnedListeningSocket> socketsNotOwnedBy(const std::vector<ListeningSocketRecord>& records, uint32_t uid) {
  std::vector<OwnedListeningSocket> sockets;
  std::unordered_set<uint64_t> seen;
  for (const auto& record : records) {
    if (record.owned.uid != uid && seen.insert(record.inode).second) sockets.push_back(record.owned);
  }
  return sockets;
}

}  // namespace tidewatch
