#include "process_core/host_app_recognition.h"

#include <string_view>
#include <unordered_map>

namespace tidewatch::HostAppRecognition {
namespace {

using KindTable = std::unordered_map<std::string_view, HostAppKind>;

const KindTable& kindsByBundleIdentifier() {
  static const KindTable table{
      {"com.apple.Terminal", HostAppKind::terminal},
      {"com.googlecode.iterm2", HostAppKind::iterm2},
      {"dev.warp.Warp-Stable", HostAppKind::warp},
      {"com.microsoft.VSCode", HostAppKind::vscode},
      {"com.microsoft.VSCodeInsiders", HostAppKind::vscode},
      {"com.visualstudio.code.oss", HostAppKind::vscode},
      {"com.todesktop.230313mzl4w4u92", HostAppKind::cursor},
      {"com.mitchellh.ghostty", HostAppKind::ghostty},
      {"com.github.wez.wezterm", HostAppKind::wezterm},
      {"org.alacritty", HostAppKind::alacritty},
      {"com.openai.codex", HostAppKind::chatgpt},
      {"com.anthropic.claudefordesktop", HostAppKind::claudeDesktop},
  };
  return table;
}

// macOS executables. The editors are left to their bundle identifiers, and "Claude" with a
// capital is the desktop application, not the command-line agent.
const KindTable& darwinKindsByExecutableBasename() {
  static const KindTable table{
      {"Terminal", HostAppKind::terminal}, {"iTerm2", HostAppKind::iterm2},
      {"Warp", HostAppKind::warp},         {"Cursor", HostAppKind::cursor},
      {"ghostty", HostAppKind::ghostty},   {"wezterm", HostAppKind::wezterm},
      {"wezterm-gui", HostAppKind::wezterm}, {"alacritty", HostAppKind::alacritty},
      {"ChatGPT", HostAppKind::chatgpt},   {"Claude", HostAppKind::claudeDesktop},
  };
  return table;
}

// Linux has no bundle identifiers: terminals and editors go by executable name.
const KindTable& linuxKindsByExecutableBasename() {
  static const KindTable table{
      {"gnome-terminal-server", HostAppKind::terminal},
      {"konsole", HostAppKind::terminal},
      {"xfce4-terminal", HostAppKind::terminal},
      {"kitty", HostAppKind::terminal},
      {"tilix", HostAppKind::terminal},
      {"foot", HostAppKind::terminal},
      {"xterm", HostAppKind::terminal},
      {"terminator", HostAppKind::terminal},
      {"ptyxis", HostAppKind::terminal},
      {"code", HostAppKind::vscode},
      {"code-insiders", HostAppKind::vscode},
      {"codium", HostAppKind::vscode},
      {"code-oss", HostAppKind::vscode},
      {"cursor", HostAppKind::cursor},
  };
  return table;
}

std::optional<HostAppKind> find(const KindTable& table, std::string_view key) {
  auto it = table.find(key);
  if (it == table.end()) return std::nullopt;
  return it->second;
}

}  // namespace

std::optional<HostAppKind> recognize(const ProcessSnapshot& snapshot) {
  if (snapshot.bundleIdentifier) {
    if (auto kind = find(kindsByBundleIdentifier(), *snapshot.bundleIdentifier)) return kind;
  }
  const auto basename = processBasename(snapshot);
  if (!basename) return std::nullopt;
  if (auto kind = find(darwinKindsByExecutableBasename(), *basename)) return kind;
  return find(linuxKindsByExecutableBasename(), *basename);
}

}  // namespace tidewatch::HostAppRecognition
