// The configurator's live file operations.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "hooks/agent_hook_configurator.h"
#include "process_core/path_utils.h"

namespace tidewatch::AgentHookConfigurator {
namespace {

FileStatus::Type typeOf(mode_t mode) {
  if (S_ISLNK(mode)) return FileStatus::Type::symbolicLink;
  if (S_ISREG(mode)) return FileStatus::Type::regularFile;
  if (S_ISDIR(mode)) return FileStatus::Type::directory;
  return FileStatus::Type::other;
}

std::optional<FileStatus> lstatPath(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  return FileStatus{typeOf(status.st_mode), status.st_uid, static_cast<int64_t>(status.st_size),
                    FileTime{static_cast<int64_t>(status.st_mtim.tv_sec), static_cast<int64_t>(status.st_mtim.tv_nsec)},
                    static_cast<uint16_t>(status.st_mode & 0777)};
}

std::optional<std::string> readRegularFile(const std::string& path) {
  // No link is followed and nothing but a regular file is read, whatever replaced the path since
  // it was examined; O_NONBLOCK keeps a fifo from holding the open.
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::optional<std::string> content;
  struct stat status {};
  if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode)) {
    content.emplace();
    char buffer[16384];
    for (;;) {
      const ssize_t count = ::read(fd, buffer, sizeof buffer);
      if (count < 0 && errno == EINTR) continue;
      if (count < 0) {
        content.reset();
        break;
      }
      if (count == 0) break;
      content->append(buffer, static_cast<size_t>(count));
    }
  }
  (void)::close(fd);
  return content;
}

bool makeDirectories(const std::string& path, uint32_t mode) {
  struct stat status {};
  if (::stat(path.c_str(), &status) == 0) return S_ISDIR(status.st_mode);
  const std::string parent = deletingLastPathComponent(path);
  if (!parent.empty() && parent != path && !makeDirectories(parent, mode)) return false;
  if (::mkdir(path.c_str(), static_cast<mode_t>(mode)) != 0)
    return errno == EEXIST && ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  // The creation mask may have narrowed the mode.
  return ::chmod(path.c_str(), static_cast<mode_t>(mode)) == 0;
}

int openExclusive(const std::string& path, uint32_t mode) {
  return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, static_cast<mode_t>(mode));
}

int64_t writeOnce(int fd, std::string_view bytes) {
  for (;;) {
    const ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    return static_cast<int64_t>(count);
  }
}

}  // namespace

FileOperations FileOperations::live() {
  return FileOperations{
      .fileStatus = lstatPath,
      .readFile = readRegularFile,
      .createDirectories = makeDirectories,
      .createExclusive = openExclusive,
      .write = writeOnce,
      .changeMode = [](int fd, uint32_t mode) { return ::fchmod(fd, static_cast<mode_t>(mode)) == 0; },
      .sync = [](int fd) { return ::fsync(fd) == 0; },
      .rename = [](const std::string& from, const std::string& to) { return ::rename(from.c_str(), to.c_str()) == 0; },
      .removeFile = [](const std::string& path) { return ::unlink(path.c_str()) == 0; },
      .close = [](int fd) { (void)::close(fd); },
      .effectiveUserID = [] { return static_cast<uint32_t>(::geteuid()); },
      .processID = [] { return static_cast<int64_t>(::getpid()); },
  };
}

}  // namespace tidewatch::AgentHookConfigurator
