// The settings-file editor on any bytes, over an in-memory file whose operations can fail. The
// first byte picks the provider and a failure; the rest is the user's file. Every run ends in a
// refusal that left the file as it was, or in a file that holds every value of the user's, the
// program's entries exactly once each after them, and nothing of the program's after removal.
#include <cstddef>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "hooks/agent_hook_configurator.h"
#include "hooks/agent_hook_paths.h"
#include "process_core/pretty_json.h"

namespace {

using namespace tidewatch;
using namespace tidewatch::AgentHookConfigurator;
using json = nlohmann::json;

const std::string settingsPath = "/home/f/.claude/settings.json";
constexpr int fd = 7;

enum class Fault { none, write, shortWrite, changeMode, sync, rename, rival, missingFile };

struct MemoryFile {
  std::optional<std::string> content;
  std::optional<std::string> temporary;
  Fault fault = Fault::none;
  int reads = 0;

  FileOperations operations() {
    FileOperations files;
    files.fileStatus = [this](const std::string& path) -> std::optional<FileStatus> {
      if (path == settingsPath && content) {
        return FileStatus{FileStatus::Type::regularFile, 1000, static_cast<int64_t>(content->size()), {5, 0}, 0644};
      }
      if (path == "/home/f/.claude") return FileStatus{FileStatus::Type::directory, 1000, 0, {}, 0700};
      return std::nullopt;
    };
    files.readFile = [this](const std::string& path) -> std::optional<std::string> {
      if (path != settingsPath || !content) return std::nullopt;
      auto bytes = content;
      if (++reads == 1 && fault == Fault::rival) content->push_back(' ');
      return bytes;
    };
    files.createDirectories = [](const std::string&, uint32_t) { return true; };
    files.createExclusive = [this](const std::string&, uint32_t) {
      if (temporary) return -1;
      temporary.emplace();
      return fd;
    };
    files.write = [this](int, std::string_view bytes) -> int64_t {
      if (fault == Fault::write) return -1;
      if (fault == Fault::shortWrite) bytes = bytes.substr(0, bytes.size() / 2);
      temporary->append(bytes);
      return static_cast<int64_t>(bytes.size());
    };
    files.changeMode = [this](int, uint32_t) { return fault != Fault::changeMode; };
    files.sync = [this](int) { return fault != Fault::sync; };
    files.rename = [this](const std::string&, const std::string&) {
      if (fault == Fault::rename) return false;
      content = std::move(temporary);
      temporary.reset();
      return true;
    };
    files.removeFile = [this](const std::string&) {
      temporary.reset();
      return true;
    };
    files.close = [](int) {};
    files.effectiveUserID = [] { return uint32_t{1000}; };
    files.processID = [] { return int64_t{4242}; };
    return files;
  }
};

bool isArrayOfObjects(const json& value) {
  if (!value.is_array()) return false;
  for (const auto& element : value) {
    if (!element.is_object()) return false;
  }
  return true;
}

// The user's groups of one event as they must survive: owned hooks gone, groups that lost all
// their hooks gone, everything else as it stood.
json userGroups(const json& groups, const std::set<std::string>& owned) {
  json kept = json::array();
  for (const auto& group : groups) {
    const auto hooks = group.find("hooks");
    if (hooks == group.end() || !isArrayOfObjects(*hooks)) {
      kept.push_back(group);
      continue;
    }
    json keptGroup = group;
    keptGroup["hooks"] = json::array();
    for (const auto& hook : *hooks) {
      const auto command = hook.find("command");
      if (command == hook.end() || !command->is_string() || !owned.contains(command->get<std::string>())) {
        keptGroup["hooks"].push_back(hook);
      }
    }
    if (keptGroup["hooks"].empty() && !hooks->empty()) continue;
    kept.push_back(std::move(keptGroup));
  }
  return kept;
}

void check(bool condition) {
  if (!condition) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const auto fault = static_cast<Fault>(data[0] % 8);
  const AgentKind provider = (data[0] & 8) != 0 ? AgentKind::codex : AgentKind::claude;
  const std::string original(reinterpret_cast<const char*>(data) + 1, size - 1);

  const auto installation = AgentHookInstallation::darwin();
  const auto candidates = AgentHookPaths::candidates(AgentHookPaths::linuxProfile("/home/f", 1000, true));
  const auto owned = AgentHookCommand::ownedCommandSet(
      {candidates.preferred.socketPath, candidates.fallback.socketPath}, installation);
  const auto desired =
      provider == AgentKind::codex
          ? CodexHookConfigurator::desiredEntries(candidates.preferred.socketPath, installation.applicationExecutable)
          : ClaudeHookConfigurator::desiredEntries(candidates.preferred.socketPath, installation.applicationExecutable);

  MemoryFile file;
  file.fault = fault;
  if (fault != Fault::missingFile) file.content = original;
  const FileOperations files = file.operations();

  // Installation, as the connection store runs it.
  auto read = readIfPresent(settingsPath, files);
  std::optional<ConfigError> error;
  if (!read.hasValue()) {
    error = read.error();
  } else {
    json root = read.value() ? read.value()->root : json::object();
    if (read.value()) removeTidewatchEntries(root, owned);
    error = append(desired, root);
    if (!error) error = writeAtomically(root, settingsPath, read.value(), files);
  }
  check(!file.temporary);
  if (error) {
    const bool rivalWrote = fault == Fault::rival && file.reads > 0;
    if (fault == Fault::missingFile) {
      check(!file.content);
    } else {
      check(file.content == (rivalWrote ? original + " " : original));
    }
    return 0;
  }
  check(fault == Fault::none || fault == Fault::missingFile);

  const json before = read.value() ? read.value()->root : json::object();
  // Read as the editor reads, so numbers kept as written compare as the same values.
  const json after = parseJSONKeepingNumbers(*file.content, maxNestingDepth);
  check(after.is_object());
  // Every key but "hooks" as it was.
  for (const auto& [key, value] : before.items()) {
    if (key != "hooks") check(after.contains(key) && after[key] == value);
  }
  check(after.size() == before.size() + (before.contains("hooks") ? 0 : 1));
  // Each event: the user's groups first, then one group per desired entry of that event.
  const json& beforeHooks = before.contains("hooks") ? before["hooks"] : json::object();
  const json& afterHooks = after["hooks"];
  for (const auto& [event, groups] : afterHooks.items()) {
    json expected = json::array();
    if (beforeHooks.contains(event)) {
      const json& old = beforeHooks[event];
      if (!isArrayOfObjects(old)) {
        check(groups == old);
        continue;
      }
      expected = old.empty() ? old : userGroups(old, owned);
    }
    for (const auto& entry : desired) {
      if (entry.event != event) continue;
      json group = {{"hooks", json::array({json{{"type", "command"}, {"command", entry.command}}})}};
      if (entry.matcher) group["matcher"] = *entry.matcher;
      expected.push_back(std::move(group));
    }
    check(groups == expected);
  }
  // An event gone from the file held nothing but the program's groups.
  for (const auto& [event, groups] : beforeHooks.items()) {
    if (!afterHooks.contains(event))
      check(isArrayOfObjects(groups) && !groups.empty() && userGroups(groups, owned).empty());
  }
  check(inspect(settingsPath, desired, owned, files).kind == InstallState::Kind::installed);

  // Removal leaves no entry of the program's and every hook of the user's.
  auto again = readIfPresent(settingsPath, files);
  check(again.hasValue() && again.value());
  json removed = again.value()->root;
  removeTidewatchEntries(removed, owned);
  check(writeAtomically(removed, settingsPath, again.value(), files) == std::nullopt);
  const json cleaned = parseJSONKeepingNumbers(*file.content, maxNestingDepth);
  check(tidewatchEntries(cleaned, owned).empty());
  const json& cleanedHooks = cleaned["hooks"];
  for (const auto& [event, groups] : beforeHooks.items()) {
    if (!isArrayOfObjects(groups)) {
      check(cleanedHooks.contains(event) && cleanedHooks[event] == groups);
    } else if (const json kept = userGroups(groups, owned); !kept.empty()) {
      check(cleanedHooks.contains(event) && cleanedHooks[event] == kept);
    }
  }
  return 0;
}
