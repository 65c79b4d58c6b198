// The relay's live operations: standard input, the file system and the socket client.
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

}  // namespace live

std::string readBoundedStandardInput() { return readBounded(live::readStandardInputChunk); }

bool send(std::string_view bytes, const std::string& socketPath, double timeoutSeconds) {
  if (socketPath.size() > AgentHookPaths::maxSocketPathBytes) return false;
  live::Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (socket.get() < 0) return false;

  // The time-out bounds the connect as well as the send. A local socket never connects "in
  // progress": when the listener's backlog is full, a non-blocking connect fails at once with
  // EAGAIN and a burst of hooks loses its events, while a blocking one waits for room for at
  // most SO_SNDTIMEO. A missing socket file or a refusing listener still fails at once.
  const auto microseconds = static_cast<long>(timeoutSeconds * 1'000'000);
  const timeval timeout{microseconds / 1'000'000, microseconds % 1'000'000};
  if (::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout) != 0) return false;
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
  if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return false;

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
