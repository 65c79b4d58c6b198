#include "process_core/linux/proc_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace tidewatch::ProcFiles {
namespace {

ssize_t readRetrying(int fd, char* buffer, size_t size) {
  ssize_t count;
  do {
    count = ::read(fd, buffer, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

}  // namespace

FileDescriptor& FileDescriptor::operator=(FileDescriptor&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) (void)::close(fd_);
    fd_ = other.release();
  }
  return *this;
}

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0) (void)::close(fd_);
}

int FileDescriptor::release() {
  const int fd = fd_;
  fd_ = -1;
  return fd;
}

const char* procPath(PathBuffer& buffer, int32_t pid, const char* suffix) {
  if (suffix == nullptr) {
    std::snprintf(buffer, sizeof buffer, "/proc/%d", static_cast<int>(pid));
  } else {
    std::snprintf(buffer, sizeof buffer, "/proc/%d/%s", static_cast<int>(pid), suffix);
  }
  return buffer;
}

FileDescriptor openProcessDirectory(int32_t pid) {
  PathBuffer path;
  return FileDescriptor(::open(procPath(path, pid), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

std::optional<std::string_view> readVirtualFile(int directory, const char* name, std::span<char> buffer) {
  FileDescriptor file(::openat(directory, name, O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!file.valid()) return std::nullopt;
  const ssize_t count = readRetrying(file.get(), buffer.data(), buffer.size());
  if (count < 0) return std::nullopt;
  return std::string_view(buffer.data(), static_cast<size_t>(count));
}

std::optional<std::string> readWholeFile(int directory, const char* name, size_t maxBytes) {
  FileDescriptor file(::openat(directory, name, O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!file.valid()) return std::nullopt;
  std::string content;
  char chunk[4096];
  while (content.size() < maxBytes) {
    const ssize_t count = readRetrying(file.get(), chunk, sizeof chunk);
    if (count < 0) return std::nullopt;
    if (count == 0) break;
    content.append(chunk, std::min(static_cast<size_t>(count), maxBytes - content.size()));
  }
  return content;
}

std::optional<std::string_view> readLink(int directory, const char* name, std::span<char> buffer) {
  const ssize_t length = ::readlinkat(directory, name, buffer.data(), buffer.size());
  if (length <= 0 || static_cast<size_t>(length) >= buffer.size()) return std::nullopt;
  return std::string_view(buffer.data(), static_cast<size_t>(length));
}

}  // namespace tidewatch::ProcFiles
