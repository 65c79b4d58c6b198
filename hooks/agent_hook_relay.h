// The relay that a provider's hook starts: `tidewatch agent-event --provider P --protocol 1`.
// It runs inside the provider's turn, so it costs almost nothing, prints nothing, bounds its
// socket work and always exits 0. Of the hook's input it keeps four keys; of the working
// directory only the project's name.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "hooks/agent_hook_paths.h"
#include "process_core/process_records.h"

namespace tidewatch::AgentHookRelay {

struct Invocation {
  AgentKind provider = AgentKind::claude;
  int64_t protocolVersion = 0;
  std::optional<std::string> notificationHint;
  bool isConnectionTest = false;

  friend bool operator==(const Invocation&, const Invocation&) = default;
};

inline constexpr size_t maxInputBytes = 1'048'576;
inline constexpr double sendTimeoutSeconds = 0.5;
inline constexpr std::string_view connectionTestSessionID = "tidewatch-connection-test";

// What the relay needs of the system; live() is the real one.
struct Dependencies {
  // Standard input, read as readBoundedStandardInput does.
  std::function<std::string()> readStandardInput;
  // The user's home directory: the project walk stops there, and the socket may live below it.
  std::function<std::string()> homeDirectory;
  // Whether anything exists at a path (the project markers).
  std::function<bool(const std::string& path)> pathExists;
  // The hook paths for a home directory, derived as the application derives them.
  std::function<AgentHookPaths(const std::string& homeDirectory)> paths;
  // The process that started the relay: the hook's shell or the provider.
  std::function<int32_t()> parentPID;
  // Hands the bytes to the socket within the time-out; true when all went out.
  std::function<bool(std::string_view bytes, const std::string& socketPath, double timeoutSeconds)> send;

  static Dependencies live();
};

// None for an empty list, an unknown argument, an option without its value, a provider outside
// "codex" and "claude", a protocol that is no decimal integer, or a missing provider or protocol.
// A later occurrence of an option replaces the earlier one.
std::optional<Invocation> parse(const std::vector<std::string>& arguments);

// Takes the arguments after "agent-event". Always answers 0 and prints nothing.
int32_t run(const std::vector<std::string>& arguments);
int32_t run(const std::vector<std::string>& arguments, const Dependencies& dependencies);

// Reads until end of input, an error, or maxInputBytes + 1 bytes, whichever comes first, and
// answers what arrived. `read` answers like read(2): a count, 0 at the end, below 0 on error.
using ReadOperation = std::function<long(char* buffer, size_t length)>;
std::string readBounded(const ReadOperation& read);
std::string readBoundedStandardInput();

// One envelope to the socket: non-blocking connect bounded by the time-out, then one send
// bounded by it again, then end of stream. No retry.
bool send(std::string_view bytes, const std::string& socketPath, double timeoutSeconds);

}  // namespace tidewatch::AgentHookRelay
