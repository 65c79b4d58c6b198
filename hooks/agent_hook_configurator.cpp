#include "hooks/agent_hook_configurator.h"

#include <algorithm>
#include <exception>
#include <functional>

#include "hooks/agent_hook_protocol.h"
#include "process_core/path_utils.h"
#include "process_core/pretty_json.h"

namespace tidewatch {

namespace AgentHookCommand {

std::string relayArguments(AgentKind provider, const std::optional<std::string>& hint) {
  std::string arguments = "agent-event --provider ";
  arguments += rawValue(provider);
  arguments += " --protocol ";
  arguments += std::to_string(AgentHookProtocol::protocolVersion);
  if (hint) {
    arguments += " --hint ";
    arguments += *hint;
  }
  return arguments;
}

std::string commandLine(std::string_view applicationExecutable, std::string_view socketPath, AgentKind provider,
                        const std::optional<std::string>& hint) {
  std::string line = "APP=\"";
  line += applicationExecutable;
  line += "\"; SOCK=\"";
  line += socketPath;
  line += "\"; ";
  line += "if [ -x \"$APP\" ] && [ -S \"$SOCK\" ]; then exec \"$APP\" ";
  line += relayArguments(provider, hint);
  line += "; fi; exit 0";
  return line;
}

std::vector<std::optional<std::string>> hints(AgentKind provider) {
  std::vector<std::optional<std::string>> result{std::nullopt};
  if (provider == AgentKind::claude) {
    for (std::string_view hint : claudeHints) result.emplace_back(std::string(hint));
  }
  return result;
}

std::set<std::string> ownedCommandSet(const std::vector<std::string>& socketPaths,
                                      const AgentHookInstallation& installation) {
  std::vector<std::string> sockets = socketPaths;
  if (!installation.homeRelativeSocketPath.empty()) sockets.push_back(installation.homeRelativeSocketPath);
  std::set<std::string> owned;
  for (AgentKind provider : allAgentKinds) {
    for (const auto& hint : hints(provider)) {
      for (const auto& socket : sockets) {
        owned.insert(commandLine(installation.applicationExecutable, socket, provider, hint));
      }
    }
  }
  return owned;
}

}  // namespace AgentHookCommand

namespace AgentHookConfigurator {
namespace {

using json = nlohmann::json;

bool isArrayOfObjects(const json& value) {
  if (!value.is_array()) return false;
  for (const auto& element : value) {
    if (!element.is_object()) return false;
  }
  return true;
}

// Numbers keep their text, so a value of the user's is written back as it was written.
std::optional<json> parseObject(std::string_view bytes) {
  json root = parseJSONKeepingNumbers(bytes, maxNestingDepth);
  if (root.is_discarded() || !root.is_object()) return std::nullopt;
  return root;
}

size_t hashOf(std::string_view bytes) { return std::hash<std::string_view>{}(bytes); }

bool isOwnedHook(const json& hook, const std::set<std::string>& owned) {
  const auto command = hook.find("command");
  return command != hook.end() && command->is_string() && owned.contains(command->get_ref<const std::string&>());
}

// Closes the descriptor, whatever happened, when the write ends.
class DescriptorGuard {
 public:
  DescriptorGuard(const FileOperations& files, int fd) : files_(files), fd_(fd) {}
  ~DescriptorGuard() { files_.close(fd_); }
  DescriptorGuard(const DescriptorGuard&) = delete;
  DescriptorGuard& operator=(const DescriptorGuard&) = delete;

 private:
  const FileOperations& files_;
  int fd_;
};

}  // namespace

Outcome<std::optional<FileSnapshot>> readIfPresent(const std::string& configPath, const FileOperations& files) {
  // A path that cannot be examined counts as a file that is not there.
  const auto status = files.fileStatus(configPath);
  if (!status) return std::optional<FileSnapshot>{};
  if (status->type == FileStatus::Type::symbolicLink) return ConfigError::of(ConfigError::Kind::fileIsSymlink);
  if (status->type != FileStatus::Type::regularFile) return ConfigError::of(ConfigError::Kind::notARegularFile);
  if (status->owner != files.effectiveUserID()) return ConfigError::of(ConfigError::Kind::notOwnedByCurrentUser);

  const auto bytes = files.readFile(configPath);
  if (!bytes) return ConfigError::unwritable("could not read " + configPath);
  auto root = parseObject(*bytes);
  if (!root) return ConfigError::of(ConfigError::Kind::malformedJSON);
  return std::optional<FileSnapshot>{
      FileSnapshot{std::move(*root), hashOf(*bytes), status->size, status->modified, status->mode}};
}

std::vector<EntryKey> tidewatchEntries(const json& root, const std::set<std::string>& owned) {
  std::vector<EntryKey> found;
  if (!root.is_object()) return found;
  const auto hooks = root.find("hooks");
  if (hooks == root.end() || !hooks->is_object()) return found;
  for (const auto& [event, groups] : hooks->items()) {
    if (!isArrayOfObjects(groups)) continue;
    for (const auto& group : groups) {
      const auto matcherValue = group.find("matcher");
      std::optional<std::string> matcher;
      if (matcherValue != group.end() && matcherValue->is_string()) matcher = matcherValue->get<std::string>();
      const auto hookObjects = group.find("hooks");
      if (hookObjects == group.end() || !isArrayOfObjects(*hookObjects)) continue;
      for (const auto& hook : *hookObjects) {
        if (isOwnedHook(hook, owned))
          found.push_back(EntryKey{event, matcher, hook.find("command")->get<std::string>()});
      }
    }
  }
  return found;
}

InstallState inspect(const std::string& configPath, const std::vector<DesiredEntry>& desired,
                     const std::set<std::string>& owned, const FileOperations& files) {
  try {
    auto read = readIfPresent(configPath, files);
    if (!read.hasValue()) {
      if (read.error().kind == ConfigError::Kind::malformedJSON) return InstallState{InstallState::Kind::malformed, {}};
      return InstallState{InstallState::Kind::failed, read.error()};
    }
    if (!read.value()) return InstallState{InstallState::Kind::notInstalled, {}};
    const auto entries = tidewatchEntries(read.value()->root, owned);
    if (entries.empty()) return InstallState{InstallState::Kind::notInstalled, {}};
    const std::set<EntryKey> found(entries.begin(), entries.end());
    std::set<EntryKey> wanted;
    for (const auto& entry : desired) wanted.insert(EntryKey::of(entry));
    return InstallState{found == wanted ? InstallState::Kind::installed : InstallState::Kind::outdated, {}};
  } catch (const std::exception& error) {
    return InstallState{InstallState::Kind::failed, ConfigError::unwritable(error.what())};
  }
}

void removeTidewatchEntries(json& root, const std::set<std::string>& owned) {
  if (!root.is_object()) return;
  const auto hooksEntry = root.find("hooks");
  if (hooksEntry == root.end() || !hooksEntry->is_object()) return;
  json hooks = std::move(*hooksEntry);

  std::vector<std::string> emptiedEvents;
  for (auto& [event, groups] : hooks.items()) {
    if (!isArrayOfObjects(groups) || groups.empty()) continue;
    bool eventChanged = false;
    json keptGroups = json::array();
    for (auto& group : groups) {
      const auto hookObjects = group.find("hooks");
      if (hookObjects == group.end() || !isArrayOfObjects(*hookObjects)) {
        keptGroups.push_back(std::move(group));
        continue;
      }
      json keptHooks = json::array();
      for (auto& hook : *hookObjects) {
        if (!isOwnedHook(hook, owned)) keptHooks.push_back(std::move(hook));
      }
      if (keptHooks.size() == hookObjects->size()) {
        *hookObjects = std::move(keptHooks);  // the same hooks, moved back in their order
        keptGroups.push_back(std::move(group));
        continue;
      }
      eventChanged = true;
      if (keptHooks.empty()) continue;  // the group goes with its matcher and other keys
      *hookObjects = std::move(keptHooks);
      keptGroups.push_back(std::move(group));
    }
    groups = std::move(keptGroups);
    if (eventChanged && groups.empty()) emptiedEvents.push_back(event);
  }
  for (const auto& event : emptiedEvents) hooks.erase(event);
  // Stored back even when empty: the "hooks" key stays in the file on purpose.
  root["hooks"] = std::move(hooks);
}

std::optional<ConfigError> append(const std::vector<DesiredEntry>& entries, json& root) {
  if (!root.is_object()) return ConfigError::of(ConfigError::Kind::malformedJSON);
  json hooks = json::object();
  if (const auto existing = root.find("hooks"); existing != root.end()) {
    if (!existing->is_object()) return ConfigError::of(ConfigError::Kind::malformedJSON);
    hooks = *existing;
  }
  for (const auto& entry : entries) {
    json& groups = hooks[entry.event];
    if (groups.is_null()) {
      groups = json::array();
    } else if (!isArrayOfObjects(groups)) {
      return ConfigError::of(ConfigError::Kind::malformedJSON);  // the root is still untouched
    }
    json group = {{"hooks", json::array({json{{"type", "command"}, {"command", entry.command}}})}};
    if (entry.matcher) group["matcher"] = *entry.matcher;
    groups.push_back(std::move(group));
  }
  root["hooks"] = std::move(hooks);
  return std::nullopt;
}

std::optional<ConfigError> writeAtomically(const json& root, const std::string& configPath,
                                           const std::optional<FileSnapshot>& replacing, const FileOperations& files) {
  // First, so that a value that cannot be written costs nothing.
  std::string bytes;
  try {
    bytes = writePrettyJSON(root);
  } catch (const std::exception&) {
    return ConfigError::unwritable("could not serialize configuration");
  }

  // Mode and owner are not compared: the snapshot's mode is what gets written.
  const auto current = files.fileStatus(configPath);
  if (replacing) {
    if (!current || current->size != replacing->size || current->modified != replacing->modified) {
      return ConfigError::of(ConfigError::Kind::concurrentModification);
    }
    const auto again = files.readFile(configPath);
    if (!again || hashOf(*again) != replacing->contentHash) {
      return ConfigError::of(ConfigError::Kind::concurrentModification);
    }
  } else if (current) {
    return ConfigError::of(ConfigError::Kind::concurrentModification);  // it appeared since the read
  }

  const std::string parent = deletingLastPathComponent(configPath);
  if (!parent.empty() && !files.fileStatus(parent) && !files.createDirectories(parent, newDirectoryMode)) {
    return ConfigError::unwritable("could not create " + parent);
  }

  // Only the process id tells temporary files apart, so one left behind by an earlier process of
  // the same id blocks writing until someone removes it.
  const std::string temporary =
      (parent == "/" ? std::string() : parent) + std::string(temporaryFilePrefix) + std::to_string(files.processID());
  const uint32_t mode = replacing ? replacing->mode : newFileMode;
  const int fd = files.createExclusive(temporary, mode);
  if (fd < 0) return ConfigError::unwritable("could not create temporary file");
  const DescriptorGuard closeWhenDone(files, fd);

  // fchmod after the write, so that the file-creation mask cannot narrow the mode.
  const int64_t written = files.write(fd, bytes);
  if (written < 0 || static_cast<size_t>(written) != bytes.size() || !files.changeMode(fd, mode) || !files.sync(fd)) {
    (void)files.removeFile(temporary);
    return ConfigError::unwritable("could not write temporary file");
  }
  if (!files.rename(temporary, configPath)) {
    (void)files.removeFile(temporary);
    return ConfigError::unwritable("could not replace " + configPath);
  }
  return std::nullopt;
}

}  // namespace AgentHookConfigurator

namespace {

using AgentHookConfigurator::DesiredEntry;

std::vector<DesiredEntry> entriesFor(AgentKind provider, const std::vector<std::string_view>& events,
                                     std::string_view socketPath, std::string_view applicationExecutable) {
  std::vector<DesiredEntry> entries;
  for (std::string_view event : events) {
    entries.push_back(DesiredEntry{std::string(event), std::nullopt,
                                   AgentHookCommand::commandLine(applicationExecutable, socketPath, provider, {})});
  }
  return entries;
}

}  // namespace

std::vector<DesiredEntry> ClaudeHookConfigurator::desiredEntries(std::string_view socketPath,
                                                                 std::string_view applicationExecutable) {
  auto entries = entriesFor(
      AgentKind::claude, {"SessionStart", "UserPromptSubmit", "PermissionRequest", "Stop", "StopFailure", "SessionEnd"},
      socketPath, applicationExecutable);
  // Claude Code gives each notification kind its own matcher, and the hint names the kind.
  for (std::string_view hint : AgentHookCommand::claudeHints) {
    entries.push_back(DesiredEntry{
        "Notification", std::string(hint),
        AgentHookCommand::commandLine(applicationExecutable, socketPath, AgentKind::claude, std::string(hint))});
  }
  return entries;
}

std::vector<DesiredEntry> CodexHookConfigurator::desiredEntries(std::string_view socketPath,
                                                                std::string_view applicationExecutable) {
  return entriesFor(AgentKind::codex, {"SessionStart", "UserPromptSubmit", "PermissionRequest", "Stop"}, socketPath,
                    applicationExecutable);
}

}  // namespace tidewatch
