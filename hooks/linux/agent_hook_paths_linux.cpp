// Linux values of the hook paths: the login session's runtime directory when the user has one.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "hooks/agent_hook_paths.h"

namespace tidewatch::AgentHookPathsLive {

std::string homeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') return home;
  long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<size_t>(suggested) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::geteuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_dir != nullptr) {
    return found->pw_dir;
  }
  return "/";
}

AgentHookPaths::Profile profile(const std::string& homeDirectory) {
  const uid_t uid = ::geteuid();
  const std::string userRuntimeDirectory = AgentHookPaths::linuxUserRuntimeDirectory(uid);
  struct stat status{};
  const bool owned = ::lstat(userRuntimeDirectory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
                     status.st_uid == uid;
  return AgentHookPaths::linuxProfile(homeDirectory, uid, owned);
}

}  // namespace tidewatch::AgentHookPathsLive
