// The server's live operations on Linux; the peer's user comes from SO_PEERCRED.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "hooks/agent_hook_socket_server.h"

namespace tidewatch {
namespace live {

using FileStatus = AgentHookSocketServer::FileStatus;
using Received = AgentHookSocketServer::Received;
using Accepted = AgentHookSocketServer::Accepted;

bool validatePeer(int fd) {
  ucred credentials{};
  socklen_t length = sizeof credentials;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0 || length != sizeof credentials) {
    return false;
  }
  return credentials.uid == ::geteuid();
}

std::optional<FileStatus> fileStatus(const std::string& path) {
  struct stat status{};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  FileStatus result;
  if (S_ISLNK(status.st_mode)) result.type = FileStatus::Type::symbolicLink;
  else if (S_ISDIR(status.st_mode)) result.type = FileStatus::Type::directory;
  else if (S_ISSOCK(status.st_mode)) result.type = FileStatus::Type::socket;
  else if (S_ISREG(status.st_mode)) result.type = FileStatus::Type::regularFile;
  result.owner = status.st_uid;
  result.permissions = status.st_mode & 0777;
  result.device = status.st_dev;
  result.inode = status.st_ino;
  return result;
}

bool createDirectories(const std::string& path, uint32_t mode) {
  if (path.empty()) return false;
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    const std::string prefix = path.substr(0, slash);
    if (::mkdir(prefix.c_str(), static_cast<mode_t>(mode)) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) return true;
  }
}

bool changeMode(const std::string& path, uint32_t mode) { return ::chmod(path.c_str(), static_cast<mode_t>(mode)) == 0; }

bool removeFile(const std::string& path) { return ::unlink(path.c_str()) == 0; }

int openSocket() { return ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

bool bindSocket(int fd, const std::string& path) {
  sockaddr_un address{};
  if (path.size() > AgentHookPaths::maxSocketPathBytes || path.size() >= sizeof address.sun_path) return false;
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, path.data(), path.size());
  return ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool listenSocket(int fd, int backlog) { return ::listen(fd, backlog) == 0; }

bool setNonBlocking(int fd) {
  const int flags = ::fcntl(fd, F_GETFL);
  return flags >= 0 && ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) == 0;
}

Accepted acceptConnection(int listenFD) {
  for (;;) {
    const int fd = ::accept4(listenFD, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) return Accepted{Accepted::Kind::connection, fd};
    switch (errno) {
      case EAGAIN:
#if EWOULDBLOCK != EAGAIN
      case EWOULDBLOCK:
#endif
        return Accepted{Accepted::Kind::nonePending, -1};
      // A peer that gave up while queued, or a signal: the next one may be fine.
      case EINTR:
      case ECONNABORTED:
      case EPROTO:
      case EPERM:
        continue;
      // EMFILE, ENFILE, ENOBUFS, ENOMEM, and anything unforeseen: a retry at once would fail alike.
      default:
        return Accepted{Accepted::Kind::outOfResources, -1};
    }
  }
}

Received receive(int fd, char* buffer, size_t length) {
  for (;;) {
    const ssize_t count = ::read(fd, buffer, length);
    if (count > 0) return Received{Received::Kind::bytes, static_cast<size_t>(count)};
    if (count == 0) return Received{Received::Kind::endOfStream, 0};
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return Received{Received::Kind::wouldBlock, 0};
    return Received{Received::Kind::failed, 0};
  }
}

}  // namespace live

AgentHookSocketServer::Dependencies AgentHookSocketServer::Dependencies::live() {
  return Dependencies{
      .now = [] { return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()); },
      .uptime = [] { return std::chrono::steady_clock::now(); },
      .validatePeer = live::validatePeer,
      .effectiveUserID = [] { return static_cast<uint32_t>(::geteuid()); },
      .fileStatus = live::fileStatus,
      .createDirectories = live::createDirectories,
      .changeMode = live::changeMode,
      .removeFile = live::removeFile,
      .openSocket = live::openSocket,
      .bindSocket = live::bindSocket,
      .listenSocket = live::listenSocket,
      .setNonBlocking = live::setNonBlocking,
      .acceptConnection = live::acceptConnection,
      .receive = live::receive,
      .closeDescriptor = [](int fd) { (void)::close(fd); },
  };
}

}  // namespace tidewatch
