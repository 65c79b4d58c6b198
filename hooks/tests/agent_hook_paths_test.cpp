#include "hooks/agent_hook_paths.h"

#include <gtest/gtest.h>

#include <cstring>

namespace tidewatch {
namespace {

TEST(AgentHookPathsTest, DarwinCandidatesAndTheFallbackFromOneHundredAndFourBytes) {
  const auto both = AgentHookPaths::candidates(
      AgentHookPaths::darwinProfile("/Users/ada", std::string("/var/folders/xy/T/"), "/tmp/"));
  EXPECT_EQ(both.preferred.runtimeDirectory, "/Users/ada/Library/Application Support/Tidewatch/Runtime");
  EXPECT_EQ(both.preferred.socketPath,
            "/Users/ada/Library/Application Support/Tidewatch/Runtime/agent-events.sock");
  EXPECT_EQ(both.fallback.runtimeDirectory, "/var/folders/xy/T/tidewatch");
  EXPECT_EQ(both.fallback.socketPath, "/var/folders/xy/T/tidewatch/agent-events.sock");

  // Without a per-user directory the system's stands in; only one trailing "/" goes.
  EXPECT_EQ(AgentHookPaths::darwinProfile("/Users/ada", std::nullopt, "/tmp//").fallbackRuntimeDirectory,
            "/tmp//tidewatch");

  // The standard path takes the fallback from 104 bytes on.
  const std::string suffix = "/Library/Application Support/Tidewatch/Runtime/agent-events.sock";
  const std::string fits = "/" + std::string(103 - suffix.size() - 1, 'h');
  const std::string tooLong = fits + "h";
  const auto profile = [](const std::string& home) { return AgentHookPaths::darwinProfile(home, "/t", "/tmp"); };

  EXPECT_EQ(AgentHookPaths::standard(profile(fits)).socketPath, fits + suffix);
  EXPECT_EQ((fits + suffix).size(), 103u);
  EXPECT_EQ(AgentHookPaths::standard(profile(tooLong)).socketPath, "/t/tidewatch/agent-events.sock");
}

TEST(AgentHookPathsTest, LinuxUsesTheUsersRuntimeDirectoryOnlyWhenItIsTheirs) {
  const auto owned = AgentHookPaths::linuxProfile("/home/ada", 1000, true);
  EXPECT_EQ(AgentHookPaths::standard(owned),
            (AgentHookPaths{"/run/user/1000/tidewatch", "/run/user/1000/tidewatch/agent-events.sock"}));
  const auto missing = AgentHookPaths::linuxProfile("/home/ada", 1000, false);
  EXPECT_EQ(AgentHookPaths::standard(missing),
            (AgentHookPaths{"/home/ada/.local/state/tidewatch/runtime",
                            "/home/ada/.local/state/tidewatch/runtime/agent-events.sock"}));
  // Both stay candidates, so hook entries of either form are recognised.
  EXPECT_EQ(AgentHookPaths::candidates(missing).preferred.socketPath, "/run/user/1000/tidewatch/agent-events.sock");
  EXPECT_EQ(AgentHookPaths::linuxProfile("/", 0, false).fallbackRuntimeDirectory, "/.local/state/tidewatch/runtime");
}

TEST(AgentHookPathsTest, DarwinUserTempDirReadsConfstr) {
  const auto answering = [](size_t answer, const char* text) {
    return [=](int name, char* buffer, size_t length) -> size_t {
      EXPECT_EQ(name, 65537);
      EXPECT_EQ(length, 1024u);
      std::strncpy(buffer, text, length - 1);
      return answer;
    };
  };
  EXPECT_EQ(AgentHookPaths::darwinUserTempDir(answering(20, "/var/folders/ab/T/")), "/var/folders/ab/T/");
  EXPECT_EQ(AgentHookPaths::darwinUserTempDir(answering(0, "/x")), std::nullopt);
  EXPECT_EQ(AgentHookPaths::darwinUserTempDir(answering(1025, "/x")), std::nullopt);
}

}  // namespace
}  // namespace tidewatch
