// A listening TCP socket, for the tests and tools that read the kernel's tables of listeners.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace tidewatch::testing {

// A socket listening on the address and port (0: any port); its descriptor, or -1. An IPv6
// socket takes IPv6 only, so that "::" and "0.0.0.0" can share a port, unless it binds a
// v4-mapped address, which needs IPv4.
inline int listeningSocket(const std::string& address, int port) {
  const bool v6 = address.find(':') != std::string::npos;
  const int fd = ::socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return -1;
  const int one = 1, v6only = address.starts_with("::ffff:") ? 0 : 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (v6) ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &v6only, sizeof v6only);
  sockaddr_in in4{};
  sockaddr_in6 in6{};
  in4.sin_family = AF_INET;
  in6.sin6_family = AF_INET6;
  in4.sin_port = in6.sin6_port = htons(static_cast<uint16_t>(port));
  const bool bound = v6 ? ::inet_pton(AF_INET6, address.c_str(), &in6.sin6_addr) == 1 &&
                              ::bind(fd, reinterpret_cast<sockaddr*>(&in6), sizeof in6) == 0
                        : ::inet_pton(AF_INET, address.c_str(), &in4.sin_addr) == 1 &&
                              ::bind(fd, reinterpret_cast<sockaddr*>(&in4), sizeof in4) == 0;
  if (!bound || ::listen(fd, 16) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// The port a socket is bound to, or -1.
inline int boundPort(int fd) {
  sockaddr_in6 address{};  // room for either family; both keep the port at the same offset
  socklen_t length = sizeof address;
  if (fd < 0 || ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) return -1;
  return ntohs(address.sin6_port);
}

}  // namespace tidewatch::testing
