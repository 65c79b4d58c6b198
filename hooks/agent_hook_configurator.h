// The only code that touches the settings files of other programs: Claude Code's
// ~/.claude/settings.json and Codex's ~/.codex/hooks.json. It puts the program's own hook
// entries in, takes them out, and tells whether the entries standing there are the right ones.
// Everything else in a file is the user's and survives every edit as a value.
//
// It refuses to follow a symbolic link, to edit what is not a regular file or not the user's,
// to overwrite what is not valid JSON, and to overwrite what changed while it worked. Each
// refusal ends with nothing written: the one change that reaches a file is the final rename.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "hooks/agent_hook_installation.h"
#include "process_core/process_records.h"

namespace tidewatch {

// The command lines of the program's hooks, and every one it could ever have written.
namespace AgentHookCommand {

inline constexpr std::string_view claudeHints[] = {"permission_prompt", "agent_needs_input", "idle_prompt"};

// "agent-event --provider <word> --protocol 1", then " --hint <hint>" where there is one.
std::string relayArguments(AgentKind provider, const std::optional<std::string>& hint);

// The guarded shell line: it starts the application only when the application is there and its
// socket exists, and otherwise exits 0 at once, so a removed or stopped program never disturbs
// the agent. The socket path goes in as it stands, with no escaping.
std::string commandLine(std::string_view applicationExecutable, std::string_view socketPath, AgentKind provider,
                        const std::optional<std::string>& hint);

// The hints a provider's hooks carry: none for Codex; none and the three notification kinds for
// Claude Code.
std::vector<std::optional<std::string>> hints(AgentKind provider);

// Every command line of both providers, each hint, and each socket given plus the installation's
// home-relative form. Membership is byte for byte: nothing else marks an entry as the program's.
std::set<std::string> ownedCommandSet(const std::vector<std::string>& socketPaths,
                                      const AgentHookInstallation& installation);

}  // namespace AgentHookCommand

namespace AgentHookConfigurator {

// One hook that should exist.
struct DesiredEntry {
  std::string event;                   // a key under "hooks"
  std::optional<std::string> matcher;  // Claude Code's notifications only
  std::string command;

  friend bool operator==(const DesiredEntry&, const DesiredEntry&) = default;
};

// An entry of the program's as read back from a file.
struct EntryKey {
  std::string event;
  std::optional<std::string> matcher;
  std::string command;

  static EntryKey of(const DesiredEntry& entry) { return EntryKey{entry.event, entry.matcher, entry.command}; }
  friend auto operator<=>(const EntryKey&, const EntryKey&) = default;
  friend bool operator==(const EntryKey&, const EntryKey&) = default;
};

struct FileTime {
  int64_t seconds = 0;
  int64_t nanoseconds = 0;
  friend bool operator==(const FileTime&, const FileTime&) = default;
};

// What was read, and how to tell afterwards whether the file is still that.
struct FileSnapshot {
  nlohmann::json root;     // the top-level object
  size_t contentHash = 0;  // of the file's bytes; lives for one operation, never stored
  int64_t size = 0;        // from lstat
  FileTime modified;       // from lstat
  uint16_t mode = 0;       // the nine permission bits
};

struct ConfigError {
  enum class Kind {
    unwritable,  // reading or writing failed at the system level
    fileIsSymlink,
    notARegularFile,
    notOwnedByCurrentUser,
    malformedJSON,           // no JSON, no object at the top, or "hooks" or an event of the wrong type
    concurrentModification,  // the file differs from the snapshot at write time
  };
  Kind kind = Kind::unwritable;
  std::string reason;  // unwritable only: a lower-case technical reason

  static ConfigError of(Kind kind) { return ConfigError{kind, {}}; }
  static ConfigError unwritable(std::string reason) { return ConfigError{Kind::unwritable, std::move(reason)}; }
  friend bool operator==(const ConfigError&, const ConfigError&) = default;
};

// A value or the ConfigError that stopped it.
template <typename Value>
class Outcome {
 public:
  Outcome(Value value) : content_(std::move(value)) {}
  Outcome(ConfigError error) : content_(std::move(error)) {}
  bool hasValue() const { return content_.index() == 0; }
  Value& value() { return std::get<0>(content_); }
  const Value& value() const { return std::get<0>(content_); }
  const ConfigError& error() const { return std::get<1>(content_); }

 private:
  std::variant<Value, ConfigError> content_;
};

// The result of inspect; failure is a value here, never raised.
struct InstallState {
  enum class Kind {
    failed,        // the file could not be judged for a reason other than invalid JSON
    notInstalled,  // no file, or none of the program's entries in it
    installed,     // the program's entries are, as a set, exactly the desired ones
    outdated,      // some of the program's entries, but not exactly the desired ones
    malformed,     // the file holds invalid JSON
  };
  Kind kind = Kind::notInstalled;
  std::optional<ConfigError> error;  // failed only

  friend bool operator==(const InstallState&, const InstallState&) = default;
};

// What lstat(2) tells of a path.
struct FileStatus {
  enum class Type { regularFile, directory, symbolicLink, other };
  Type type = Type::other;
  uint32_t owner = 0;
  int64_t size = 0;
  FileTime modified;
  uint16_t mode = 0;  // the nine permission bits
};

// Every file-system operation the configurator uses; live() wires the real ones.
struct FileOperations {
  // lstat: the link itself, never its target; absent when the path cannot be examined.
  std::function<std::optional<FileStatus>(const std::string& path)> fileStatus;
  // The whole content of a regular file, never through a symbolic link; absent on failure.
  std::function<std::optional<std::string>(const std::string& path)> readFile;
  // Creates the directory and any missing parents with this mode; true when it stands afterwards.
  std::function<bool(const std::string& path, uint32_t mode)> createDirectories;
  // open with O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW and this mode: a descriptor, or -1.
  std::function<int(const std::string& path, uint32_t mode)> createExclusive;
  // One write(2): the count written, or -1.
  std::function<int64_t(int fd, std::string_view bytes)> write;
  // fchmod
  std::function<bool(int fd, uint32_t mode)> changeMode;
  // fsync
  std::function<bool(int fd)> sync;
  std::function<bool(const std::string& from, const std::string& to)> rename;
  // unlink
  std::function<bool(const std::string& path)> removeFile;
  std::function<void(int fd)> close;
  std::function<uint32_t()> effectiveUserID;
  std::function<int64_t()> processID;

  static FileOperations live();
};

// Files nested deeper than this are refused as invalid JSON: every later step walks the tree.
inline constexpr size_t maxNestingDepth = 512;
inline constexpr uint32_t newFileMode = 0600;
inline constexpr uint32_t newDirectoryMode = 0700;
inline constexpr std::string_view temporaryFilePrefix = "/.tidewatch-write-";

// Absent when nothing can be examined at the path. Refuses a symbolic link, anything but a
// regular file, a file of another user (tested in that order), an unreadable file, and bytes
// that are not a JSON object (an empty file among them).
Outcome<std::optional<FileSnapshot>> readIfPresent(const std::string& configPath, const FileOperations& files);

// The program's entries under "hooks", in file order, duplicates kept. Values of the wrong
// shape are skipped; a hook's "type" is not looked at.
std::vector<EntryKey> tidewatchEntries(const nlohmann::json& root, const std::set<std::string>& owned);

InstallState inspect(const std::string& configPath, const std::vector<DesiredEntry>& desired,
                     const std::set<std::string>& owned, const FileOperations& files);

// Drops every hook object whose "command" is owned, then the groups left empty by that, then
// the events left with no group; the "hooks" object itself stays, even when empty. Everything
// else is kept as it stands. Cannot fail.
void removeTidewatchEntries(nlohmann::json& root, const std::set<std::string>& owned);

// Adds one group per entry, in order, at the end of its event's array. Raises malformedJSON
// with the root unchanged when "hooks" or one of the events has the wrong type.
std::optional<ConfigError> append(const std::vector<DesiredEntry>& entries, nlohmann::json& root);

// Serialises the root (pretty, sorted keys, "/" escaped), checks that the file is still the
// snapshot (or still absent), and replaces it by rename of a sibling temporary file that has
// the snapshot's mode (0600 for a new file). On every failure the file stays as it was.
std::optional<ConfigError> writeAtomically(const nlohmann::json& root, const std::string& configPath,
                                           const std::optional<FileSnapshot>& replacing, const FileOperations& files);

}  // namespace AgentHookConfigurator

namespace ClaudeHookConfigurator {
// Nine entries: six events, then the three notification matchers.
std::vector<AgentHookConfigurator::DesiredEntry> desiredEntries(std::string_view socketPath,
                                                                std::string_view applicationExecutable);
}  // namespace ClaudeHookConfigurator

namespace CodexHookConfigurator {
// Four entries: SessionStart, UserPromptSubmit, PermissionRequest, Stop.
std::vector<AgentHookConfigurator::DesiredEntry> desiredEntries(std::string_view socketPath,
                                                                std::string_view applicationExecutable);
}  // namespace CodexHookConfigurator

}  // namespace tidewatch
