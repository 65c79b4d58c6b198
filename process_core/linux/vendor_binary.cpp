// The Linux answer to "a binary the operating system itself ships": the package manager installs
// system binaries as root-owned files that nobody else may write, in the system's own library and
// administration folders.
#include <sys/stat.h>

#include <array>
#include <string>
#include <string_view>

#include "process_core/system_classifier.h"

namespace tidewatch {
namespace {

// Not /usr/bin/ nor /bin/: that is where the interpreters and servers developers run live.
constexpr std::array<std::string_view, 4> vendorDirectories{"/usr/lib/", "/usr/libexec/", "/usr/sbin/", "/sbin/"};

}  // namespace

bool isOperatingSystemBinary(const std::string& path) {
  bool underVendorDirectory = false;
  for (std::string_view directory : vendorDirectories) {
    if (path.starts_with(directory)) underVendorDirectory = true;
  }
  if (!underVendorDirectory) return false;

  // lstat: a symbolic link planted in a system folder is not itself a shipped binary. The kernel
  // reports executables by their resolved path, so real binaries are never links here.
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return false;
  if (!S_ISREG(status.st_mode)) return false;
  if (status.st_uid != 0) return false;
  return (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

}  // namespace tidewatch
