// The relay's live operations: standard input, the file system and the socket client.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "hooks/agent_hook_relay.h"

namespace tidewatch::AgentHookRelay {
namespace live {

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) (void)::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

long readStandardInputChunk(char* buffer, size_t length) {
  for (;;) {
    const ssize_t count = ::read(STDIN_FILENO, buffer, length);
    if (count < 0 && errno == EINTR) continue;
    return static_cast<long>(count);
  }
}

bool pathExists(const std::string& path) {
  struct stat status{};
  return ::stat(path.c_str(), &status) == 0;
}

int32_t parentPID() { return static_cast<int32_t>(::getppid()); }

bool setNonBlocking(int fd, bool enabled) {
  const int flags = ::fcntl(fd, F_GETFL);
  if (flags < 0) return false;
  return ::fcntl(fd, F_SETFL, enabled ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK)) == 0;
}

}  // namespace live

std::string readBoundedStandardInput() { return readBounded(live::readStandardInputChunk); }

bool send(std::string_view bytes, const std::string& socketPath, double timeoutSeconds) {
  if (socketPath.size() > AgentHookPaths::maxSocketPathBytes) return false;
  live::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.get() < 0) return false;
  if (!live::setNonBlocking(socket.get(), true)) return false;

  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    // A missing socket file or a refusing listener ends here at once.
    if (errno != EINPROGRESS) return false;
    pollfd writable{socket.get(), POLLOUT, 0};
    if (::poll(&writable, 1, static_cast<int>(timeoutSeconds * 1000)) != 1) return false;
    if ((writable.revents & (POLLOUT | POLLERR | POLLHUP)) != POLLOUT) return false;
    int error = 0;
    socklen_t length = sizeof error;
    if (::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error != 0) return false;
  }

  if (!live::setNonBlocking(socket.get(), false)) return false;
  const auto microseconds = static_cast<long>(timeoutSeconds * 1'000'000);
  const timeval sendTimeout{microseconds / 1'000'000, microseconds % 1'000'000};
  if (::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, sizeof sendTimeout) != 0) return false;
  // A server that closed early must cost a failed send, not the relay's life by SIGPIPE.
  const ssize_t sent = ::send(socket.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
  if (sent < 0 || static_cast<size_t>(sent) != bytes.size()) return false;
  (void)::shutdown(socket.get(), SHUT_WR);
  return true;
}

Dependencies Dependencies::live() {
  return Dependencies{
      .readStandardInput = readBoundedStandardInput,
      .homeDirectory = AgentHookPathsLive::homeDirectory,
      .pathExists = live::pathExists,
      .paths = AgentHookPathsLive::standard,
      .parentPID = live::parentPID,
      .send = AgentHookRelay::send,
  };
}

}  // namespace tidewatch::AgentHookRelay
