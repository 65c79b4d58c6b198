// Where the hook socket lives. The application, the relay and the hook command line each derive
// the path on their own, so all three must come through these functions: nothing negotiates it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace tidewatch {

struct AgentHookPaths {
  std::string runtimeDirectory;
  std::string socketPath;

  // A socket address holds 104 path bytes on the smallest platform, the last one the
  // terminating zero; the same limit stands everywhere so that every party agrees.
  static constexpr size_t maxSocketPathBytes = 103;
  static constexpr std::string_view socketName = "agent-events.sock";

  struct Candidates;

  // The two runtime directories a platform offers, and whether the preferred one may be used.
  struct Profile {
    std::string preferredRuntimeDirectory;
    std::string fallbackRuntimeDirectory;
    bool preferredUsable = true;
    friend bool operator==(const Profile&, const Profile&) = default;
  };

  // Darwin: "<home>/Library/Application Support/Tidewatch/Runtime", else "<temp>/tidewatch" where
  // temp is the per-user temporary directory, or systemTemporaryDirectory when that is absent
  // (one trailing "/" dropped).
  static Profile darwinProfile(std::string_view homeDirectory,
                               const std::optional<std::string>& userTemporaryDirectory,
                               std::string_view systemTemporaryDirectory);

  // Linux: "/run/user/<uid>/tidewatch" when "/run/user/<uid>" is a directory of that user
  // (derived from the uid, never from the environment, so every shell agrees), else
  // "<home>/.local/state/tidewatch/runtime".
  static Profile linuxProfile(std::string_view homeDirectory, uint32_t uid, bool userRuntimeDirectoryOwned);
  static std::string linuxUserRuntimeDirectory(uint32_t uid);

  static AgentHookPaths inRuntimeDirectory(std::string runtimeDirectory);
  static Candidates candidates(const Profile& profile);
  // The preferred paths when usable and the socket path fits in maxSocketPathBytes, else the fallback.
  static AgentHookPaths standard(const Profile& profile);

  // Answers like confstr(3): the length the whole value needs with its zero, 0 on failure.
  using Confstr = std::function<size_t(int name, char* buffer, size_t length)>;
  static constexpr int darwinUserTempDirName = 65537;  // _CS_DARWIN_USER_TEMP_DIR
  static std::optional<std::string> darwinUserTempDir(const Confstr& confstr);

  friend bool operator==(const AgentHookPaths&, const AgentHookPaths&) = default;
};

struct AgentHookPaths::Candidates {
  AgentHookPaths preferred;
  AgentHookPaths fallback;
  friend bool operator==(const Candidates&, const Candidates&) = default;
};

// The live values of the system this program was built for.
namespace AgentHookPathsLive {
// The user's home directory: $HOME when it is absolute, else the password database's entry.
std::string homeDirectory();
AgentHookPaths::Profile profile(const std::string& homeDirectory);
inline AgentHookPaths standard(const std::string& homeDirectory) {
  return AgentHookPaths::standard(profile(homeDirectory));
}
}  // namespace AgentHookPathsLive

}  // namespace tidewatch
