// Reading /proc cheaply: one open and one read into the caller's buffer (the kernel writes a
// virtual file in one go), links read straight into a buffer, descriptors closed on every path.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace tidewatch::ProcFiles {

// An owned file descriptor; -1 when nothing is held.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(other.release()) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept;
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor();

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  int release();

 private:
  int fd_ = -1;
};

// "/proc/PID" (or "/proc/PID/suffix") into a buffer of the caller.
using PathBuffer = char[48];
const char* procPath(PathBuffer& buffer, int32_t pid, const char* suffix = nullptr);

// /proc/PID held open. Files read through it belong to that one incarnation: once the
// process is gone, reads fail even if a new process has taken the pid.
FileDescriptor openProcessDirectory(int32_t pid);

// One read of a file relative to a directory (or AT_FDCWD) into the buffer; absent when it
// cannot be opened or read. A file longer than the buffer comes back cut at the buffer's size.
std::optional<std::string_view> readVirtualFile(int directory, const char* name, std::span<char> buffer);

// A whole file of any size, at most maxBytes of it; absent when it cannot be opened or read.
std::optional<std::string> readWholeFile(int directory, const char* name, size_t maxBytes);

// The target of a symbolic link relative to a directory, in the buffer; absent when unreadable
// or longer than the buffer.
std::optional<std::string_view> readLink(int directory, const char* name, std::span<char> buffer);

}  // namespace tidewatch::ProcFiles
