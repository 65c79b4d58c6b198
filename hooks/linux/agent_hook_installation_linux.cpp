// The installed executable is fixed when the build is configured (see hooks/CMakeLists.txt).
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "hooks/agent_hook_installation.h"

#if !defined(TIDEWATCH_INSTALLED_EXECUTABLE) || !defined(TIDEWATCH_INSTALLED_APPLICATION)
#error "TIDEWATCH_INSTALLED_EXECUTABLE and TIDEWATCH_INSTALLED_APPLICATION must name the installed executables"
#endif

namespace tidewatch::AgentHookInstallationLive {

AgentHookInstallation installation() { return AgentHookInstallation::linuxInstalled(TIDEWATCH_INSTALLED_EXECUTABLE); }

namespace {

// The same file, also when a prefix is reached through a symbolic link.
bool isRunning(const std::string& path) {
  struct stat runningFile {
  }, file{};
  return ::stat("/proc/self/exe", &runningFile) == 0 && ::stat(path.c_str(), &file) == 0 &&
         runningFile.st_dev == file.st_dev && runningFile.st_ino == file.st_ino;
}

}  // namespace

std::string runningLocation(const AgentHookInstallation& installation) {
  std::array<char, 4096> buffer{};
  const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (length <= 0 || static_cast<size_t>(length) >= buffer.size()) return {};
  std::string running(buffer.data(), static_cast<size_t>(length));
  if (running == installation.installedLocation) return running;
  // The tray application the installed front executable starts belongs to that installation.
  if (installation.installedLocation == TIDEWATCH_INSTALLED_EXECUTABLE && isRunning(TIDEWATCH_INSTALLED_APPLICATION)) {
    return installation.installedLocation;
  }
  if (isRunning(installation.installedLocation)) return installation.installedLocation;
  return running;
}

}  // namespace tidewatch::AgentHookInstallationLive
