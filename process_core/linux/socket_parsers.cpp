#include "process_core/linux/socket_parsers.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <unordered_set>

namespace tidewatch::SocketParsers {
namespace {

constexpr uint8_t tcpListenState = TCP_LISTEN;

int addressFamilyConstant(AddressFamily family) { return family == AddressFamily::ipv4 ? AF_INET : AF_INET6; }

template <typename Value>
Value load(const uint8_t* bytes) {
  Value value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

std::optional<uint32_t> parseHexWord(std::string_view text) {
  uint32_t value = 0;
  auto [next, error] = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  if (error != std::errc() || next != text.data() + text.size() || text.empty()) return std::nullopt;
  return value;
}

// "0100007F:1F90": address words, then the port.
bool parseProcNetAddress(std::string_view text, AddressFamily family, ListenerRecord& record) {
  const size_t words = family == AddressFamily::ipv4 ? 1 : 4;
  const size_t colon = text.find(':');
  if (colon != words * 8 || text.size() <= colon + 1) return false;
  for (size_t word = 0; word < words; ++word) {
    auto value = parseHexWord(text.substr(word * 8, 8));
    if (!value) return false;
    std::memcpy(record.address.data() + word * 4, &*value, 4);
  }
  auto port = parseHexWord(text.substr(colon + 1));
  if (!port || *port > 0xFFFF) return false;
  record.port = static_cast<uint16_t>(*port);
  return true;
}

std::vector<std::string_view> spaceSeparated(std::string_view line) {
  std::vector<std::string_view> tokens;
  size_t position = 0;
  while (position < line.size()) {
    while (position < line.size() && line[position] == ' ') ++position;
    const size_t start = position;
    while (position < line.size() && line[position] != ' ') ++position;
    if (position > start) tokens.push_back(line.substr(start, position - start));
  }
  return tokens;
}

}  // namespace

std::vector<uint8_t> sockDiagRequest(AddressFamily family, uint32_t sequence) {
  struct {
    nlmsghdr header;
    inet_diag_req_v2 request;
  } message{};
  message.header.nlmsg_len = sizeof message;
  message.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
  message.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  message.header.nlmsg_seq = sequence;
  message.request.sdiag_family = static_cast<uint8_t>(addressFamilyConstant(family));
  message.request.sdiag_protocol = IPPROTO_TCP;
  message.request.idiag_states = 1u << TCP_LISTEN;
  std::vector<uint8_t> bytes(sizeof message);
  std::memcpy(bytes.data(), &message, sizeof message);
  return bytes;
}

DecodedDump decodeSockDiagDump(std::span<const uint8_t> bytes) {
  DecodedDump dump;
  size_t offset = 0;
  while (bytes.size() - offset >= sizeof(nlmsghdr)) {
    const uint8_t* message = bytes.data() + offset;
    const auto length = load<uint32_t>(message + offsetof(nlmsghdr, nlmsg_len));
    const auto type = load<uint16_t>(message + offsetof(nlmsghdr, nlmsg_type));
    if (length < sizeof(nlmsghdr) || length > bytes.size() - offset) {
      dump.end = DumpEnd::failed;
      return dump;
    }
    if (type == NLMSG_DONE) {
      dump.end = DumpEnd::done;
      return dump;
    }
    if (type == NLMSG_ERROR) {
      dump.end = DumpEnd::failed;
      return dump;
    }
    if (type == SOCK_DIAG_BY_FAMILY) {
      if (length < NLMSG_LENGTH(sizeof(inet_diag_msg))) {
        dump.end = DumpEnd::failed;
        return dump;
      }
      const uint8_t* payload = message + NLMSG_HDRLEN;
      const uint8_t family = payload[offsetof(inet_diag_msg, idiag_family)];
      const uint8_t state = payload[offsetof(inet_diag_msg, idiag_state)];
      if (state == tcpListenState && (family == AF_INET || family == AF_INET6)) {
        const uint8_t* id = payload + offsetof(inet_diag_msg, id);
        ListenerRecord record;
        record.family = family == AF_INET ? AddressFamily::ipv4 : AddressFamily::ipv6;
        record.port = ntohs(load<uint16_t>(id + offsetof(inet_diag_sockid, idiag_sport)));
        std::memcpy(record.address.data(), id + offsetof(inet_diag_sockid, idiag_src), record.address.size());
        if (record.family == AddressFamily::ipv4) std::fill(record.address.begin() + 4, record.address.end(), 0);
        record.inode = load<uint32_t>(payload + offsetof(inet_diag_msg, idiag_inode));
        record.uid = load<uint32_t>(payload + offsetof(inet_diag_msg, idiag_uid));
        dump.listeners.push_back(record);
      }
    }
    offset += NLMSG_ALIGN(length);
    if (offset >= bytes.size()) return dump;  // the last message may go without its padding
  }
  if (offset < bytes.size()) dump.end = DumpEnd::failed;
  return dump;
}

std::optional<ListenerRecord> parseProcNetTCPRow(std::string_view line, AddressFamily family) {
  constexpr std::string_view listenState = "0A";
  // sl local_address rem_address st tx:rx tr:when retrnsmt uid timeout inode ...
  const auto tokens = spaceSeparated(line);
  if (tokens.size() < 10 || tokens[3] != listenState) return std::nullopt;
  ListenerRecord record;
  record.family = family;
  if (!parseProcNetAddress(tokens[1], family, record)) return std::nullopt;
  const auto whole = [](std::string_view token, auto& value) {
    auto [next, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    return error == std::errc() && next == token.data() + token.size();
  };
  if (!whole(tokens[9], record.inode) || !whole(tokens[7], record.uid)) return std::nullopt;
  return record;
}

std::vector<ListenerRecord> parseProcNetTCP(std::string_view text, AddressFamily family) {
  std::vector<ListenerRecord> records;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    if (auto record = parseProcNetTCPRow(text.substr(start, end - start), family)) records.push_back(*record);
    start = end + 1;
  }
  return records;
}

RawListeningSocket present(const ListenerRecord& record) {
  char text[INET6_ADDRSTRLEN] = {};
  const int family = addressFamilyConstant(record.family);
  const socklen_t size = record.family == AddressFamily::ipv4 ? INET_ADDRSTRLEN : INET6_ADDRSTRLEN;
  RawListeningSocket socket;
  socket.port = record.port;
  socket.family = record.family;
  if (inet_ntop(family, record.address.data(), text, size) != nullptr) socket.address = text;
  return socket;
}

std::vector<ListeningSocketRecord> presented(const std::vector<ListenerRecord>& records) {
  std::vector<ListeningSocketRecord> sockets;
  sockets.reserve(records.size());
  for (const ListenerRecord& record : records) sockets.push_back({record.inode, {present(record), record.uid}});
  return sockets;
}

SocketTable makeSocketTable(const std::vector<ListeningSocketRecord>& records) {
  SocketTable table;
  table.reserve(records.size());
  for (const auto& record : records) {
    if (record.inode != 0) table.try_emplace(record.inode, record.owned.socket);
  }
  return table;
}

}  // namespace tidewatch::SocketParsers
