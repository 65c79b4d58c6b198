// The Linux answer to "a binary the operating system itself ships": the package manager installs
// its own plumbing as root-owned files that nobody else may write, in the administration and
// helper folders. The rest of /usr/lib/ is where Debian keeps the runtimes and servers that
// developers start themselves (the JDK, Erlang, .NET, PostgreSQL), so it does not count.
#include <sys/stat.h>

#include <array>
#include <string>
#include <string_view>

#include "process_core/system_classifier.h"

namespace tidewatch {
namespace {

constexpr std::array<std::string_view, 4> plumbingDirectories{"/usr/libexec/", "/usr/sbin/", "/sbin/",
                                                              "/usr/lib/systemd/"};

}  // namespace

bool isPlumbingLocation(std::string_view path) {
  for (std::string_view directory : plumbingDirectories) {
    if (path.starts_with(directory)) return true;
  }
  // /usr/lib/x86_64-linux-gnu/libexec/kdeconnectd: a libexec folder anywhere below /usr/lib/.
  constexpr std::string_view library = "/usr/lib/";
  if (!path.starts_with(library)) return false;
  const size_t lastSlash = path.rfind('/');
  const std::string_view folders = path.substr(library.size() - 1, lastSlash - (library.size() - 1) + 1);
  return folders.find("/libexec/") != std::string_view::npos;
}

bool isOperatingSystemBinary(const std::string& path) {
  if (!isPlumbingLocation(path)) return false;

  // lstat: a symbolic link planted in a system folder is not itself a shipped binary. The kernel
  // reports executables by their resolved path, so real binaries are never links here.
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode)) return false;
  if (status.st_uid != 0) return false;
  return (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace tidewatch
