// The installed executable is fixed when the build is configured (see hooks/CMakeLists.txt).
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "hooks/agent_hook_installation.h"

#ifndef TIDEWATCH_INSTALLED_EXECUTABLE
#error "TIDEWATCH_INSTALLED_EXECUTABLE must name the installed tidewatch executable"
#endif

namespace tidewatch::AgentHookInstallationLive {

AgentHookInstallation installation() { return AgentHookInstallation::linuxInstalled(TIDEWATCH_INSTALLED_EXECUTABLE); }

std::string runningLocation(const AgentHookInstallation& installation) {
  std::array<char, 4096> buffer{};
  const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (length <= 0 || static_cast<size_t>(length) >= buffer.size()) return {};
  std::string running(buffer.data(), static_cast<size_t>(length));
  if (running == installation.installedLocation) return running;
  // A prefix reached through a symbolic link names the same file by another path.
  struct stat runningFile {
  }, installedFile{};
  if (::stat("/proc/self/exe", &runningFile) == 0 &&
      ::stat(installation.installedLocation.c_str(), &installedFile) == 0 &&
      runningFile.st_dev == installedFile.st_dev && runningFile.st_ino == installedFile.st_ino) {
    return installation.installedLocation;
  }
  return running;
}

}  // namespace tidewatch::AgentHookInstallationLive
