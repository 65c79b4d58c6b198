// The live wiring of the scan: this machine's process tables through the platform readers.
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "process_core/process_reader.h"
#include "process_core/system_classifier.h"
#include "process_core/text.h"
#include "tidewatch_kit/port_engine.h"
#include "tidewatch_kit/service_classifier.h"

namespace tidewatch {
namespace {

std::string liveHomeDirectory() {
  if (const char* home = std::getenv("HOME"); home && *home) return home;
  if (const passwd* entry = getpwuid(getuid()); entry && entry->pw_dir) return entry->pw_dir;
  return "/";
}

std::optional<std::string> liveUserName(uint32_t uid) {
  passwd entry {};
  passwd* found = nullptr;
  char buffer[4096];
  if (::getpwuid_r(uid, &entry, buffer, sizeof buffer, &found) != 0 || found == nullptr || !entry.pw_name) {
    return std::nullopt;
  }
  return std::string(entry.pw_name);
}

// The operating system's own plumbing, never a server or runtime a developer may have started
// from a system folder (a Debian PostgreSQL, an interpreter).
bool isSystemPlumbingBinary(const std::string& path) {
  const auto basename = lastPathComponent(path);
  if (basename && ServiceClassifier::namesServiceOrRuntime(asciiLowercased(*basename))) return false;
  return isOperatingSystemBinary(path);
}

}  // namespace

PortEngineDependencies PortEngineDependencies::live() {
  PortEngineDependencies d;
  d.allPIDs = [] { return Libproc::allPIDs(); };
  d.currentUID = [] { return static_cast<uint32_t>(getuid()); };
  d.currentPID = [] { return static_cast<int32_t>(getpid()); };
  d.listeningSockets = [](int32_t pid) { return Libproc::listeningSockets(pid); };
  d.processIDs = [] { return Libproc::processIDs(); };
  d.listeningSocketRecords = [] { return Libproc::listeningSocketRecords(); };
  d.socketDescriptors = [](int32_t pid) { return Libproc::socketDescriptors(pid); };
  d.descriptorSocket = [](int32_t pid, int fd) { return Libproc::descriptorSocket(pid, fd); };
  d.listeningSocketsNotOwnedBy = [](uint32_t uid) { return Libproc::listeningSocketsNotOwnedBy(uid); };
  d.userName = [](uint32_t uid) { return liveUserName(uid); };
  d.enrichedSnapshot = [](int32_t pid, uint32_t uid, bool includeArgv) {
    return ProcessReader::enrichedSnapshot(pid, uid, includeArgv);
  };
  d.agentPresenceSnapshot = [](int32_t pid, uint32_t uid) { return ProcessReader::agentPresenceSnapshot(pid, uid); };
  d.detectionSnapshot = [](int32_t pid, uint32_t uid) { return ProcessReader::detectionSnapshot(pid, uid); };
  d.liveResolveSnapshot = [](int32_t pid) { return ProcessReader::liveResolveSnapshot(pid); };
  d.processIdentity = [](int32_t pid) { return Libproc::processIdentity(pid); };
  d.currentWorkingDirectory = [](int32_t pid) { return Libproc::currentWorkingDirectory(pid); };
  d.directoryExists = [](const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0;
  };
  d.homeDirectory = [] { return liveHomeDirectory(); };
  d.strongSystemBackgroundFlags = [](const std::vector<std::optional<std::string>>& paths) {
    return ::tidewatch::strongSystemBackgroundFlags(paths, isSystemPlumbingBinary);
  };
  d.now = [] { return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()); };
  return d;
}

}  // namespace tidewatch
