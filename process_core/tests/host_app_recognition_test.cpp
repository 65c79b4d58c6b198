#include "process_core/host_app_recognition.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

TEST(HostAppRecognitionTest, RecognisesByBundleThenBasename) {
  struct Case {
    std::optional<std::string> bundleIdentifier;
    std::optional<std::string> executablePath;
    std::optional<std::string> name;
    std::optional<HostAppKind> expected;
  };
  const Case cases[] = {
      // The bundle identifier decides whatever the executable is called.
      {"com.microsoft.VSCode", "/Applications/X.app/Contents/MacOS/Electron", {}, HostAppKind::vscode},
      {"com.openai.codex", "/x/ChatGPT", {}, HostAppKind::chatgpt},
      // An unknown bundle identifier falls through to the basename table.
      {"com.example.unknown", "/Applications/Cursor.app/Contents/MacOS/Cursor", {}, HostAppKind::cursor},
      // macOS editors have no basename entry.
      {{}, "/Applications/Visual Studio Code.app/Contents/MacOS/Electron", {}, std::nullopt},
      {{}, "/Applications/Claude.app/Contents/MacOS/Claude", {}, HostAppKind::claudeDesktop},
      {{}, "/home/u/.local/bin/claude", {}, std::nullopt},
      {{}, "/usr/bin/wezterm-gui", {}, HostAppKind::wezterm},
      // Bundle lookups are case-sensitive.
      {"com.apple.terminal", "/bin/other", {}, std::nullopt},
      // Linux terminals and editors by executable name.
      {{}, "/usr/libexec/gnome-terminal-server", {}, HostAppKind::terminal},
      {{}, "/usr/bin/konsole", {}, HostAppKind::terminal},
      {{}, "/usr/bin/ptyxis", {}, HostAppKind::terminal},
      {{}, "/usr/share/code/code", {}, HostAppKind::vscode},
      {{}, "/usr/bin/codium", {}, HostAppKind::vscode},
      {{}, "/opt/cursor/cursor", {}, HostAppKind::cursor},
      // A path of slashes only gives no piece, so the short name decides; with no name, nothing.
      {{}, "/", "kitty", HostAppKind::terminal},
      {{}, {}, "xterm", HostAppKind::terminal},
      {{}, "//", {}, std::nullopt},
      {{}, "/usr/bin/Konsole", {}, std::nullopt},
  };
  for (const Case& c : cases) {
    ProcessSnapshot snapshot;
    snapshot.name = c.name;
    snapshot.executablePath = c.executablePath;
    snapshot.bundleIdentifier = c.bundleIdentifier;
    EXPECT_EQ(HostAppRecognition::recognize(snapshot), c.expected)
        << c.bundleIdentifier.value_or("") << " " << c.executablePath.value_or("") << " " << c.name.value_or("");
  }
}

}  // namespace
}  // namespace tidewatch
