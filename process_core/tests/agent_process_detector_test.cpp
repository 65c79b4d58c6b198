#include "process_core/agent_process_detector.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

using Argv = std::vector<std::string>;

struct Case {
  const char* what;
  ProcessSnapshot snapshot;
  std::optional<AgentKind> expected;
};

ProcessSnapshot mine(std::optional<std::string> path, std::optional<std::string> name = {},
                     std::optional<Argv> argv = {}, std::optional<std::string> bundle = {}) {
  ProcessSnapshot snapshot;
  snapshot.identity = {10, 1, 0};
  snapshot.name = std::move(name);
  snapshot.executablePath = std::move(path);
  snapshot.sameUser = true;
  snapshot.argv = std::move(argv);
  snapshot.bundleIdentifier = std::move(bundle);
  return snapshot;
}

const std::string nativePath = "/home/me/.local/share/claude/versions/2.1.14";

std::vector<Case> cases() {
  ProcessSnapshot otherUser = mine("/usr/local/bin/claude");
  otherUser.sameUser = false;
  return {
      {"a claude executable", mine("/usr/local/bin/claude"), AgentKind::claude},
      {"codex by short name alone", mine({}, "codex"), AgentKind::codex},
      {"another user's agent", otherUser, std::nullopt},
      {"capitalised Codex", mine("/usr/local/bin/Codex"), std::nullopt},
      {"claude inside an application bundle", mine("/Applications/Foo.app/Contents/MacOS/claude"), std::nullopt},
      {"claude named host app basename", mine("/opt/Claude"), std::nullopt},
      {"managed bundle with the required name", mine("/opt/x/claude", {}, {}, "com.anthropic.claude-code"),
       AgentKind::claude},
      {"managed bundle with another name", mine("/opt/x/helper", {}, {}, "com.anthropic.claude-code"), std::nullopt},
      {"managed bundle with another name but a native install",
       mine(nativePath, "2.1.14", Argv{"claude", "--resume"}, "com.anthropic.claude-code"), AgentKind::claude},
      {"any other bundle stops the name rules", mine("/opt/x/codex", {}, {}, "com.example.tool"), std::nullopt},
      {"native install started as claude", mine(nativePath, "2.1.14", Argv{"/usr/bin/claude"}), AgentKind::claude},
      {"native install without argv", mine(nativePath, "2.1.14"), std::nullopt},
      {"native install started under another name", mine(nativePath, "2.1.14", Argv{"node"}), std::nullopt},
      {"node running the claude script", mine("/usr/local/bin/node", {}, Argv{"/usr/local/bin/node", "/opt/x/claude", "--x"}),
       AgentKind::claude},
      {"node running the codex script alone", mine("/usr/bin/node", {}, Argv{"node", "/opt/x/codex"}), AgentKind::codex},
      {"node with a flag before the script", mine("/usr/local/bin/node", {}, Argv{"node", "--inspect", "/opt/x/claude"}),
       std::nullopt},
      {"node whose argv[0] is not node", mine("/usr/local/bin/node", {}, Argv{"bun", "/opt/x/codex"}), std::nullopt},
      {"node with only one argument", mine("/usr/local/bin/node", {}, Argv{"node"}), std::nullopt},
      {"a path that is only slashes falls back on the name", mine("/", "codex"), AgentKind::codex},
      {"no path and no name", mine({}), std::nullopt},
      {"a Linux terminal", mine("/usr/bin/kitty"), std::nullopt},
  };
}

TEST(AgentProcessDetectorTest, DetectsByRulesInOrder) {
  for (const Case& c : cases()) {
    EXPECT_EQ(AgentProcessDetector::detect(c.snapshot), c.expected) << c.what;
  }
}

TEST(AgentProcessDetectorTest, NativeCandidateNeedsADottedNumericVersionEqualToTheName) {
  using AgentProcessDetector::isNativeInstalledClaudeCandidate;
  EXPECT_TRUE(isNativeInstalledClaudeCandidate("2.1.14", nativePath));
  EXPECT_TRUE(isNativeInstalledClaudeCandidate("1.2.3.4", ".local/share/claude/versions/1.2.3.4"));
  EXPECT_FALSE(isNativeInstalledClaudeCandidate("1.2", "/h/.local/share/claude/versions/1.2"));
  EXPECT_FALSE(isNativeInstalledClaudeCandidate("1.2.3-beta", "/h/.local/share/claude/versions/1.2.3-beta"));
  EXPECT_FALSE(isNativeInstalledClaudeCandidate("1..3", "/h/.local/share/claude/versions/1..3"));
  EXPECT_FALSE(isNativeInstalledClaudeCandidate("2.1.15", nativePath));
  EXPECT_FALSE(isNativeInstalledClaudeCandidate(std::nullopt, nativePath));
  EXPECT_FALSE(isNativeInstalledClaudeCandidate("2.1.14", "/h/.local/share/codex/versions/2.1.14"));
  EXPECT_FALSE(isNativeInstalledClaudeCandidate("2.1.14", std::nullopt));
}

}  // namespace
}  // namespace tidewatch
