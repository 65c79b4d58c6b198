#include "process_core/host_app_recognition.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

struct Case {
  std::optional<std::string> bundleIdentifier;
  std::optional<std::string> executablePath;
  std::optional<std::string> name;
  std::optional<HostAppKind> expected;
};

class HostAppRecognitionTest : public ::testing::TestWithParam<Case> {};

TEST_P(HostAppRecognitionTest, RecognisesByBundleThenBasename) {
  const Case& c = GetParam();
  ProcessSnapshot snapshot;
  snapshot.name = c.name;
  snapshot.executablePath = c.executablePath;
  snapshot.bundleIdentifier = c.bundleIdentifier;
  EXPECT_EQ(HostAppRecognition::recognize(snapshot), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Tables, HostAppRecognitionTest,
    ::testing::Values(
        // The bundle identifier decides whatever the executable is called.
        Case{"com.microsoft.VSCode", "/Applications/X.app/Contents/MacOS/Electron", {}, HostAppKind::vscode},
        Case{"com.openai.codex", "/x/ChatGPT", {}, HostAppKind::chatgpt},
        // An unknown bundle identifier falls through to the basename table.
        Case{"com.example.unknown", "/Applications/Cursor.app/Contents/MacOS/Cursor", {}, HostAppKind::cursor},
        // macOS editors have no basename entry.
        Case{{}, "/Applications/Visual Studio Code.app/Contents/MacOS/Electron", {}, std::nullopt},
        Case{{}, "/Applications/Claude.app/Contents/MacOS/Claude", {}, HostAppKind::claudeDesktop},
        Case{{}, "/home/u/.local/bin/claude", {}, std::nullopt},
        Case{{}, "/usr/bin/wezterm-gui", {}, HostAppKind::wezterm},
        // Bundle lookups are case-sensitive.
        Case{"com.apple.terminal", "/bin/other", {}, std::nullopt},
        // Linux terminals and editors by executable name.
        Case{{}, "/usr/libexec/gnome-terminal-server", {}, HostAppKind::terminal},
        Case{{}, "/usr/bin/konsole", {}, HostAppKind::terminal},
        Case{{}, "/usr/bin/ptyxis", {}, HostAppKind::terminal},
        Case{{}, "/usr/share/code/code", {}, HostAppKind::vscode},
        Case{{}, "/usr/bin/codium", {}, HostAppKind::vscode},
        Case{{}, "/opt/cursor/cursor", {}, HostAppKind::cursor},
        // A path of slashes only gives no piece, so the short name decides; with no name, nothing.
        Case{{}, "/", "kitty", HostAppKind::terminal},
        Case{{}, {}, "xterm", HostAppKind::terminal},
        Case{{}, "//", {}, std::nullopt},
        Case{{}, "/usr/bin/Konsole", {}, std::nullopt}));

}  // namespace
}  // namespace tidewatch
