// The kernel's table of listening TCP sockets, asked over NETLINK_SOCK_DIAG and read from
// /proc/net/tcp{,6} when netlink is not available.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "process_core/linux/socket_parsers.h"

namespace tidewatch::SockDiag {

// The raw bytes of one LISTEN dump of a family, datagrams back to back up to and including the
// end marker; absent when the socket, the request or any reply fails.
std::optional<std::vector<uint8_t>> dumpBytes(AddressFamily family);

// IPv4 and IPv6 listeners over netlink; absent when either dump fails.
std::optional<std::vector<SocketParsers::ListenerRecord>> netlinkListeners();

// IPv4 and IPv6 listeners from /proc/net/tcp and /proc/net/tcp6; a missing file adds none.
std::vector<SocketParsers::ListenerRecord> procNetListeners();

// Netlink first, the /proc text when netlink fails.
std::vector<SocketParsers::ListenerRecord> listeners();

}  // namespace tidewatch::SockDiag
