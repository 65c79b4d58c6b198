#include "app/linux/launch_at_login_linux.h"

#include <cstdlib>
#include <optional>

#include "hooks/agent_hook_installation.h"
#include "process_core/path_utils.h"

namespace tidewatch {
namespace {

using LaunchAtLoginReconciler::ChangeResult;
using LaunchAtLoginReconciler::SystemStatus;
using FileType = AgentHookConfigurator::FileStatus::Type;

std::string_view trimmed(std::string_view text) {
  const auto first = text.find_first_not_of(" \t\r");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r") - first + 1);
}

// The Exec value that starts exactly this executable: "%" doubled, and the path quoted when it
// holds a character the desktop's command-line parser reserves.
std::string execValue(const std::string& executable) {
  std::string path;
  for (char c : executable) path += c == '%' ? std::string("%%") : std::string(1, c);
  if (path.find_first_of(" \t\n\"'\\><~|&;$*?#()`") == std::string::npos) return path;
  std::string quoted = "\"";
  for (char c : path) {
    // Escaped for the quote, and that backslash escaped again for the string value.
    if (c == '"' || c == '`' || c == '$') quoted += "\\\\";
    if (c == '\\') quoted += "\\\\\\";
    quoted += c;
  }
  return quoted + "\"";
}

struct EntryFacts {
  bool ours = false;
  bool startsExecutable = false;
  bool switchedOff = false;
};

// Only the [Desktop Entry] group counts; blanks around "=" are allowed.
EntryFacts factsOf(std::string_view content, const std::string& executable) {
  EntryFacts facts;
  const std::string exec = execValue(executable);
  bool inMainGroup = false;
  while (!content.empty()) {
    const auto end = content.find('\n');
    const std::string_view line = trimmed(content.substr(0, end));
    content = end == std::string_view::npos ? std::string_view() : content.substr(end + 1);
    if (line.starts_with('[')) {
      inMainGroup = line == "[Desktop Entry]";
      continue;
    }
    const auto equals = line.find('=');
    if (!inMainGroup || equals == std::string_view::npos) continue;
    const std::string_view key = trimmed(line.substr(0, equals));
    const std::string_view value = trimmed(line.substr(equals + 1));
    if (key == LaunchAtLoginManager::markerKey) facts.ours = value == "true";
    if (key == "Exec") facts.startsExecutable = value == exec || value.starts_with(exec + " ");
    if ((key == "Hidden" && value == "true") || (key == "X-GNOME-Autostart-enabled" && value == "false")) {
      facts.switchedOff = true;
    }
  }
  return facts;
}

bool writeAll(const AgentHookConfigurator::FileOperations& files, int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const int64_t written = files.write(fd, bytes);
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(written));
  }
  return true;
}

}  // namespace

std::string LaunchAtLoginManager::autostartFilePath(const char* xdgConfigHome, const char* home) {
  // The defaults store sits in the same configuration folder, found by the same rules.
  const std::string configHome =
      deletingLastPathComponent(deletingLastPathComponent(DefaultsStore::standardPath(xdgConfigHome, home)));
  return appendingPathComponent(appendingPathComponent(configHome, "autostart"), "tidewatch.desktop");
}

std::string LaunchAtLoginManager::desktopEntry(const std::string& executable) {
  return "[Desktop Entry]\n"
         "Type=Application\n"
         "Name=Tidewatch\n"
         "Exec=" +
         execValue(executable) +
         "\n"
         "X-GNOME-Autostart-enabled=true\n" +
         std::string(markerKey) + "=true\n";
}

LaunchAtLoginManager::LaunchAtLoginManager(Dependencies dependencies) : dependencies_(std::move(dependencies)) {}

SystemStatus LaunchAtLoginManager::status() const {
  const auto content = dependencies_.files.readFile(dependencies_.autostartFile);
  if (!content) return SystemStatus::notRegistered;
  const EntryFacts facts = factsOf(*content, dependencies_.executable);
  return facts.ours && facts.startsExecutable && !facts.switchedOff ? SystemStatus::enabled
                                                                    : SystemStatus::notRegistered;
}

bool LaunchAtLoginManager::ownsExistingEntry() const {
  const auto content = dependencies_.files.readFile(dependencies_.autostartFile);
  return content && factsOf(*content, dependencies_.executable).ours;
}

ChangeResult LaunchAtLoginManager::registerApp() const {
  const auto& files = dependencies_.files;
  const std::string& path = dependencies_.autostartFile;
  if (files.fileStatus(path) && !ownsExistingEntry()) return ChangeResult::failed;

  const std::string folder = deletingLastPathComponent(path);
  if (!files.fileStatus(folder) && !files.createDirectories(folder, directoryMode)) return ChangeResult::failed;
  const std::string temporary =
      appendingPathComponent(folder, ".tidewatch.desktop." + std::to_string(files.processID()));
  (void)files.removeFile(temporary);  // left behind by an earlier process of the same id
  const int fd = files.createExclusive(temporary, fileMode);
  if (fd < 0) return ChangeResult::failed;
  // fchmod after the write, so that the file-creation mask cannot narrow the mode.
  const bool written =
      writeAll(files, fd, desktopEntry(dependencies_.executable)) && files.changeMode(fd, fileMode) && files.sync(fd);
  files.close(fd);
  if (!written || !files.rename(temporary, path)) {
    (void)files.removeFile(temporary);
    return ChangeResult::failed;
  }
  return status() == SystemStatus::enabled ? ChangeResult::enabled : ChangeResult::disabled;
}

ChangeResult LaunchAtLoginManager::unregisterApp() const {
  if (ownsExistingEntry() && !dependencies_.files.removeFile(dependencies_.autostartFile)) return ChangeResult::failed;
  return status() == SystemStatus::notRegistered ? ChangeResult::disabled : ChangeResult::failed;
}

void LaunchAtLoginManager::openLoginItemsSettings() const {
  if (dependencies_.openSettings) dependencies_.openSettings();
}

LaunchAtLoginService LaunchAtLoginManager::service() const {
  return {[manager = *this] { return manager.status(); }, [manager = *this] { return manager.registerApp(); },
          [manager = *this] { return manager.unregisterApp(); },
          [manager = *this] { manager.openLoginItemsSettings(); }};
}

LaunchAtLoginManager::Dependencies LaunchAtLoginManager::Dependencies::live(std::function<void()> openSettings) {
  return {AgentHookConfigurator::FileOperations::live(),
          autostartFilePath(std::getenv("XDG_CONFIG_HOME"), std::getenv("HOME")),
          AgentHookInstallationLive::installation().applicationExecutable, std::move(openSettings)};
}

}  // namespace tidewatch
