// The listener tables replayed from a recorded netlink dump and /proc/net text.
#include <fstream>
#include <iterator>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process_core/linux/socket_parsers.h"

namespace tidewatch {
namespace {

using SocketParsers::DumpEnd;
using ::testing::IsSupersetOf;

std::string capturedText(const std::string& name) {
  std::ifstream in(std::string(TIDEWATCH_TEST_DATA_DIR) + "/linux/" + name, std::ios::binary);
  return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

std::vector<uint8_t> captured(const std::string& name) {
  const std::string text = capturedText(name);
  return std::vector<uint8_t>(text.begin(), text.end());
}

// The captures were taken while these sockets listened (inodes as the kernel numbered them).
const std::pair<uint64_t, RawListeningSocket> knownListeners[] = {
    {20233, {47801, AddressFamily::ipv4, "127.0.0.1"}},
    {20234, {47801, AddressFamily::ipv6, "::1"}},
    {20235, {47802, AddressFamily::ipv4, "0.0.0.0"}},
    {20236, {47803, AddressFamily::ipv6, "::"}},
    {20237, {47804, AddressFamily::ipv6, "::ffff:127.0.0.1"}},
};

TEST(LinuxSocketParsers, RecordedNetlinkDumpAndProcNetTextAgree) {
  std::vector<SocketParsers::ListenerRecord> netlink;
  for (const char* file : {"sock_diag_inet.bin", "sock_diag_inet6.bin"}) {
    const auto dump = SocketParsers::decodeSockDiagDump(captured(file));
    EXPECT_EQ(dump.end, DumpEnd::done) << file;
    netlink.insert(netlink.end(), dump.listeners.begin(), dump.listeners.end());
  }
  auto procNet = SocketParsers::parseProcNetTCP(capturedText("proc_net_tcp"), AddressFamily::ipv4);
  const auto procNet6 = SocketParsers::parseProcNetTCP(capturedText("proc_net_tcp6"), AddressFamily::ipv6);
  procNet.insert(procNet.end(), procNet6.begin(), procNet6.end());

  const auto table = SocketParsers::makeSocketTable(SocketParsers::presented(netlink));
  EXPECT_THAT(table, IsSupersetOf(knownListeners));
  EXPECT_EQ(table, SocketParsers::makeSocketTable(SocketParsers::presented(procNet)));
}

TEST(LinuxSocketParsers, MalformedOrUnfinishedDumps) {
  const std::vector<uint8_t> whole = captured("sock_diag_inet.bin");
  ASSERT_GT(whole.size(), 40u);
  const uint32_t firstLength = whole[0] | whole[1] << 8;

  struct Case {
    const char* what;
    std::vector<uint8_t> bytes;
    DumpEnd end;
    size_t listeners;
  };
  std::vector<Case> cases;
  cases.push_back({"nothing yet", {}, DumpEnd::open, 0});
  cases.push_back({"first message only", {whole.begin(), whole.begin() + firstLength}, DumpEnd::open, 1});
  cases.push_back({"cut inside a message", {whole.begin(), whole.begin() + firstLength + 20}, DumpEnd::failed, 1});
  cases.push_back({"cut inside a header", {whole.begin(), whole.begin() + 10}, DumpEnd::failed, 0});

  auto lengthTooSmall = whole;
  lengthTooSmall[0] = 8;
  lengthTooSmall[1] = 0;
  cases.push_back({"length below a header", lengthTooSmall, DumpEnd::failed, 0});

  auto error = whole;
  error[4] = 2;  // NLMSG_ERROR
  error[5] = 0;
  cases.push_back({"error message", error, DumpEnd::failed, 0});

  auto established = whole;
  established[16 + 1] = 1;  // idiag_state of the first socket: ESTABLISHED
  cases.push_back({"a socket not listening", established, DumpEnd::done, 2});

  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto dump = SocketParsers::decodeSockDiagDump(c.bytes);
    EXPECT_EQ(dump.end, c.end);
    EXPECT_EQ(dump.listeners.size(), c.listeners);
  }
}

TEST(LinuxSocketParsers, ProcNetRows) {
  using Row = std::optional<SocketParsers::ListenerRecord>;
  const auto listening = SocketParsers::parseProcNetTCPRow(
      "   2: 00000000:07E8 00000000:0000 0A 00000000:00000000 00:00000000 00000000  0  0 1088 1 0 100 0 0 10 0",
      AddressFamily::ipv4);
  ASSERT_TRUE(listening.has_value());
  EXPECT_EQ(listening->inode, 1088u);
  EXPECT_EQ(SocketParsers::present(*listening), (RawListeningSocket{2024, AddressFamily::ipv4, "0.0.0.0"}));

  const char* rejected[] = {
      "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode",
      "   3: 0100007F:0277 0100007F:A1B2 01 00000000:00000000 00:00000000 00000000  0  0 1090 1",  // ESTABLISHED
      "   4: 0100007:0277 00000000:0000 0A 00000000:00000000 00:00000000 00000000  0  0 1091 1",   // short address
      "   5: 0100007F:1FFFF 00000000:0000 0A 00000000:00000000 00:00000000 00000000  0  0 1092 1",  // port too big
      "   6: 0100007F:0277 00000000:0000 0A 00000000:00000000 00:00000000 00000000  0  0 x 1",  // inode
      "   7: 0100007F:0277 00000000:0000 0A",
      "",
  };
  for (const char* row : rejected) {
    EXPECT_EQ(SocketParsers::parseProcNetTCPRow(row, AddressFamily::ipv4), Row()) << row;
  }
  // An IPv4 row read as IPv6 is malformed, not an address.
  EXPECT_EQ(SocketParsers::parseProcNetTCPRow(
                "   2: 00000000:07E8 00000000:0000 0A 00000000:00000000 00:00000000 00000000  0  0 1088 1",
                AddressFamily::ipv6),
            Row());
}

}  // namespace
}  // namespace tidewatch
