#include "process_core/linux/sock_diag.h"

#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "process_core/linux/proc_files.h"

namespace tidewatch::SockDiag {
namespace {

using SocketParsers::DumpEnd;
using SocketParsers::ListenerRecord;

// Large enough for the biggest datagram the kernel builds for a dump.
constexpr size_t receiveBufferSize = 32 * 1024;
constexpr size_t procNetChunkSize = 64 * 1024;

bool sendRequest(int fd, AddressFamily family) {
  const std::vector<uint8_t> request = SocketParsers::sockDiagRequest(family, 1);
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  ssize_t sent;
  do {
    sent = ::sendto(fd, request.data(), request.size(), 0, reinterpret_cast<const sockaddr*>(&kernel),
                    sizeof kernel);
  } while (sent < 0 && errno == EINTR);
  return sent == static_cast<ssize_t>(request.size());
}

}  // namespace

std::optional<std::vector<uint8_t>> dumpBytes(AddressFamily family) {
  ProcFiles::FileDescriptor socket(::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
  if (!socket.valid()) return std::nullopt;
  // A dump is answered at once; the limit only keeps a scan from hanging on a broken kernel.
  const timeval timeout{1, 0};
  (void)::setsockopt(socket.get(), SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  if (!sendRequest(socket.get(), family)) return std::nullopt;

  std::vector<uint8_t> bytes;
  std::vector<uint8_t> datagram(receiveBufferSize);
  while (true) {
    iovec vector{datagram.data(), datagram.size()};
    msghdr message{};
    message.msg_iov = &vector;
    message.msg_iovlen = 1;
    const ssize_t count = ::recvmsg(socket.get(), &message, 0);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0 || (message.msg_flags & MSG_TRUNC) != 0) return std::nullopt;
    const std::span<const uint8_t> received(datagram.data(), static_cast<size_t>(count));
    bytes.insert(bytes.end(), received.begin(), received.end());
    switch (SocketParsers::decodeSockDiagDump(received).end) {
      case DumpEnd::done:
        return bytes;
      case DumpEnd::failed:
        return std::nullopt;
      case DumpEnd::open:
        break;
    }
  }
}

std::optional<std::vector<ListenerRecord>> netlinkListeners() {
  std::vector<ListenerRecord> records;
  for (AddressFamily family : {AddressFamily::ipv4, AddressFamily::ipv6}) {
    auto bytes = dumpBytes(family);
    if (!bytes) return std::nullopt;
    auto dump = SocketParsers::decodeSockDiagDump(*bytes);
    if (dump.end != DumpEnd::done) return std::nullopt;
    records.insert(records.end(), dump.listeners.begin(), dump.listeners.end());
  }
  return records;
}

std::vector<ListenerRecord> procNetListeners() {
  std::vector<ListenerRecord> records;
  const std::pair<const char*, AddressFamily> files[] = {{"/proc/net/tcp", AddressFamily::ipv4},
                                                         {"/proc/net/tcp6", AddressFamily::ipv6}};
  for (const auto& [path, family] : files) {
    ProcFiles::FileDescriptor file(::open(path, O_RDONLY | O_CLOEXEC));
    if (!file.valid()) continue;
    // Row by row through a fixed buffer: the file lists every TCP socket, not only listeners.
    std::vector<char> buffer(procNetChunkSize);
    size_t held = 0;
    while (true) {
      const ssize_t count = ::read(file.get(), buffer.data() + held, buffer.size() - held);
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) break;
      held += static_cast<size_t>(count);
      const std::string_view text(buffer.data(), held);
      const size_t complete = text.rfind('\n');
      if (complete == std::string_view::npos) {
        if (held == buffer.size()) held = 0;  // a row longer than the buffer is no row
        continue;
      }
      auto parsed = SocketParsers::parseProcNetTCP(text.substr(0, complete), family);
      records.insert(records.end(), parsed.begin(), parsed.end());
      held -= complete + 1;
      std::memmove(buffer.data(), buffer.data() + complete + 1, held);
    }
    if (held > 0) {
      auto parsed = SocketParsers::parseProcNetTCP(std::string_view(buffer.data(), held), family);
      records.insert(records.end(), parsed.begin(), parsed.end());
    }
  }
  return records;
}

std::vector<ListenerRecord> listeners() {
  if (auto records = netlinkListeners()) return std::move(*records);
  return procNetListeners();
}

}  // namespace tidewatch::SockDiag
