// Pure decoding of the kernel's tables of listening TCP sockets: the netlink sock_diag dump and
// its text fallback /proc/net/tcp{,6}. Decoding yields records; presenting turns a record into
// the text the rest of the program sees.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "process_core/process_records.h"

namespace tidewatch::SocketParsers {

// One listening socket as the kernel describes it.
struct ListenerRecord {
  uint64_t inode = 0;
  AddressFamily family = AddressFamily::ipv4;
  uint16_t port = 0;                  // host byte order
  std::array<uint8_t, 16> address{};  // network byte order; an IPv4 address in the first 4 bytes
  uint32_t uid = 0;                   // the owner

  friend bool operator==(const ListenerRecord&, const ListenerRecord&) = default;
};

// A sock_diag request for every TCP socket of one family in the LISTEN state.
std::vector<uint8_t> sockDiagRequest(AddressFamily family, uint32_t sequence);

enum class DumpEnd {
  open,    // no end marker yet: more datagrams follow
  done,    // NLMSG_DONE seen
  failed,  // an error message, or bytes that are not a well-formed message
};

struct DecodedDump {
  std::vector<ListenerRecord> listeners;
  DumpEnd end = DumpEnd::open;
};

// The listeners in netlink messages laid back to back (one or more datagrams of a dump).
// Sockets in any state but LISTEN, and families other than IPv4 and IPv6, are left out.
DecodedDump decodeSockDiagDump(std::span<const uint8_t> bytes);

// One row of /proc/net/tcp (IPv4) or /proc/net/tcp6 (IPv6) when it is a LISTEN socket; absent
// for the heading, other states and malformed rows. Addresses there are 32-bit words printed as
// this machine holds them in memory, so the text decodes on the machine that wrote it.
std::optional<ListenerRecord> parseProcNetTCPRow(std::string_view line, AddressFamily family);

// The LISTEN rows of a whole /proc/net/tcp or /proc/net/tcp6 text.
std::vector<ListenerRecord> parseProcNetTCP(std::string_view text, AddressFamily family);

// The record as the program shows it, with the address as inet_ntop writes it.
RawListeningSocket present(const ListenerRecord& record);

// Every record presented, with its inode and owner, in record order.
std::vector<ListeningSocketRecord> presented(const std::vector<ListenerRecord>& records);

// Listening sockets by inode, as one scan sees them (a record without an inode names none).
using SocketTable = std::unordered_map<uint64_t, RawListeningSocket>;
SocketTable makeSocketTable(const std::vector<ListeningSocketRecord>& records);

}  // namespace tidewatch::SocketParsers
