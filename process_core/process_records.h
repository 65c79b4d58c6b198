// What is read and known of processes: plain immutable values shared by every layer.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tidewatch {

// Wall-clock time with microsecond precision; JSON writes it to whole seconds.
using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::microseconds>;

// Tells one process incarnation from a later one that reuses its pid.
struct ProcessIdentity {
  int32_t pid = 0;
  uint64_t startTimeSeconds = 0;
  uint32_t startTimeMicroseconds = 0;

  friend bool operator==(const ProcessIdentity&, const ProcessIdentity&) = default;
  friend auto operator<=>(const ProcessIdentity&, const ProcessIdentity&) = default;
};

struct ProcessSnapshot {
  ProcessIdentity identity;
  std::optional<std::string> name;
  std::optional<std::string> executablePath;
  std::optional<int32_t> parentPID;
  std::optional<uint32_t> uid;
  bool sameUser = false;
  bool cpuReadable = false;
  std::optional<uint64_t> residentMemoryBytes;
  std::optional<uint64_t> cpuTimeNanos;
  std::optional<std::vector<std::string>> argv;
  std::optional<std::string> bundleIdentifier;
  // A thread of the kernel's own (Linux), never a program anyone started.
  bool isKernelThread = false;

  // Basename of the executable, else the kernel's short name, else "pid N".
  std::string displayName() const;

  friend bool operator==(const ProcessSnapshot&, const ProcessSnapshot&) = default;
};

// A process read now. Without a snapshot, `error` says why: 0 when there is no such process any
// more, else the errno of a read refused for want of resources or permission (EMFILE, ENFILE,
// ENOMEM, EACCES, EPERM), which says nothing of whether the process is still there.
struct LiveProcessRead {
  std::optional<ProcessSnapshot> snapshot;
  int error = 0;

  friend bool operator==(const LiveProcessRead&, const LiveProcessRead&) = default;
};

// The last non-empty piece of a "/"-separated path, if any.
std::optional<std::string> lastPathComponent(std::string_view path);

// Basename of the executable falling back on the short name; absent when neither gives one.
std::optional<std::string> processBasename(const ProcessSnapshot& snapshot);

enum class AddressFamily { ipv4, ipv6 };
std::string_view rawValue(AddressFamily family);
std::optional<AddressFamily> addressFamilyFromRaw(std::string_view raw);

struct RawListeningSocket {
  int port = 0;
  AddressFamily family = AddressFamily::ipv4;
  std::string address;

  friend bool operator==(const RawListeningSocket&, const RawListeningSocket&) = default;
};

// A listening socket with the user that owns it (the creator's uid, as the kernel keeps it).
struct OwnedListeningSocket {
  RawListeningSocket socket;
  uint32_t uid = 0;

  friend bool operator==(const OwnedListeningSocket&, const OwnedListeningSocket&) = default;
};

// One row of the kernel's table of listening sockets: the inode that descriptors name, the socket
// and its owner.
struct ListeningSocketRecord {
  uint64_t inode = 0;
  OwnedListeningSocket owned;

  friend bool operator==(const ListeningSocketRecord&, const ListeningSocketRecord&) = default;
};

// The listeners whose owner is not uid, in record order, each inode once.
std::vector<OwnedListeningSocket> socketsNotOwnedBy(const std::vector<ListeningSocketRecord>& records, uint32_t uid);

// A socket behind one of a process's descriptors.
struct SocketDescriptor {
  int fd = 0;
  uint64_t inode = 0;

  friend bool operator==(const SocketDescriptor&, const SocketDescriptor&) = default;
};

// The one failure of a scan: the process list came back empty.
class ScanError : public std::runtime_error {
 public:
  enum class Code { enumerationUnavailable };
  explicit ScanError(Code code);
  Code code() const { return code_; }

 private:
  Code code_;
};

enum class BatteryMode { balanced, batterySaver };
std::string_view rawValue(BatteryMode mode);

enum class AgentKind { codex, claude };
inline constexpr AgentKind allAgentKinds[] = {AgentKind::codex, AgentKind::claude};
std::string_view rawValue(AgentKind kind);
std::string_view displayName(AgentKind kind);
int sortOrder(AgentKind kind);
std::optional<AgentKind> agentKindFromRaw(std::string_view raw);

struct AgentProcessIdentity {
  ProcessIdentity process;
  AgentKind kind = AgentKind::codex;

  // "agent:<kind>:<pid>:<seconds>.<micros>"
  std::string stableID() const;

  friend bool operator==(const AgentProcessIdentity&, const AgentProcessIdentity&) = default;
  friend auto operator<=>(const AgentProcessIdentity&, const AgentProcessIdentity&) = default;
};

enum class HostAppKind {
  terminal, iterm2, warp, ghostty, wezterm, alacritty, vscode, cursor, chatgpt, claudeDesktop
};
inline constexpr HostAppKind allHostAppKinds[] = {
    HostAppKind::terminal,  HostAppKind::iterm2, HostAppKind::warp,   HostAppKind::ghostty,
    HostAppKind::wezterm,   HostAppKind::alacritty, HostAppKind::vscode, HostAppKind::cursor,
    HostAppKind::chatgpt,   HostAppKind::claudeDesktop};
std::string_view rawValue(HostAppKind kind);
std::string_view displayName(HostAppKind kind);
std::optional<HostAppKind> hostAppKindFromRaw(std::string_view raw);

// A host application found on a process chain.
struct HostAppOccurrence {
  HostAppKind kind = HostAppKind::terminal;
  ProcessIdentity identity;
  std::string displayName;

  friend bool operator==(const HostAppOccurrence&, const HostAppOccurrence&) = default;
};

}  // namespace tidewatch

template <>
struct std::hash<tidewatch::ProcessIdentity> {
  size_t operator()(const tidewatch::ProcessIdentity& id) const noexcept {
    size_t h = std::hash<int32_t>{}(id.pid);
    h ^= std::hash<uint64_t>{}(id.startTimeSeconds) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
    h ^= std::hash<uint32_t>{}(id.startTimeMicroseconds) + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
    return h;
  }
};

template <>
struct std::hash<tidewatch::AgentProcessIdentity> {
  size_t operator()(const tidewatch::AgentProcessIdentity& id) const noexcept {
    return std::hash<tidewatch::ProcessIdentity>{}(id.process) * 31 + static_cast<size_t>(id.kind);
  }
};
