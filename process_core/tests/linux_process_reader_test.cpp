// The Linux readers against real processes and sockets of this machine.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process_core/process_reader.h"
#include "process_core/tests/support/forked_child.h"

namespace tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::Optional;
using testing::ForkedChild;

// A listening TCP socket on the address and port (0 for any); its port, or -1.
int listenOn(const char* address, int port, bool v6only = true) {
  const bool ipv6 = std::string_view(address).find(':') != std::string_view::npos;
  const int fd = ::socket(ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
  if (fd < 0) return -1;
  sockaddr_storage storage{};
  socklen_t length;
  if (ipv6) {
    const int only = v6only ? 1 : 0;
    ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &only, sizeof only);
    auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
    in6->sin6_family = AF_INET6;
    in6->sin6_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET6, address, &in6->sin6_addr);
    length = sizeof *in6;
  } else {
    auto* in = reinterpret_cast<sockaddr_in*>(&storage);
    in->sin_family = AF_INET;
    in->sin_port = htons(static_cast<uint16_t>(port));
    ::inet_pton(AF_INET, address, &in->sin_addr);
    length = sizeof *in;
  }
  if (::bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0 || ::listen(fd, 4) != 0) {
    ::close(fd);
    return -1;
  }
  length = sizeof storage;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length);
  return ntohs(ipv6 ? reinterpret_cast<sockaddr_in6*>(&storage)->sin6_port
                    : reinterpret_cast<sockaddr_in*>(&storage)->sin_port);
}

// One port with both loopback addresses, which can take a few tries while ::1 is busy.
int listenOnLoopbackPair() {
  for (int attempt = 0; attempt < 20; ++attempt) {
    const int port = listenOn("127.0.0.1", 0);
    if (port > 0 && listenOn("::1", port) == port) return port;
  }
  return -1;
}

// The ports the child reports, in its order.
std::vector<int> reportedPorts(const ForkedChild& child) {
  std::vector<int> ports;
  std::istringstream in(child.report());
  for (int port; in >> port;) ports.push_back(port);
  return ports;
}

RawListeningSocket socketOf(const char* address, AddressFamily family, int port) {
  return RawListeningSocket{port, family, address};
}

std::string ownExecutable() {
  char buffer[PATH_MAX];
  const ssize_t length = ::readlink("/proc/self/exe", buffer, sizeof buffer);
  return std::string(buffer, length > 0 ? static_cast<size_t>(length) : 0);
}

TEST(LinuxProcessReader, LiveListeningSocketsShowEachBindingOfAProcess) {
  ForkedChild child([] {
    const int pair = listenOnLoopbackPair();
    const int udp = ::socket(AF_INET, SOCK_DGRAM, 0);  // not TCP: never listed
    int connected[2];
    (void)::socketpair(AF_UNIX, SOCK_STREAM, 0, connected);  // not TCP either
    (void)udp;
    const int any4 = listenOn("0.0.0.0", 0);
    const int any6 = listenOn("::", 0);
    const int mapped = listenOn("::ffff:127.0.0.1", 0, false);
    return std::to_string(pair) + " " + std::to_string(any4) + " " + std::to_string(any6) + " " +
           std::to_string(mapped);
  });
  const std::vector<int> ports = reportedPorts(child);
  ASSERT_EQ(ports.size(), 4u);
  ASSERT_TRUE(std::all_of(ports.begin(), ports.end(), [](int port) { return port > 0; })) << child.report();

  const std::vector<int32_t> pids = Libproc::allPIDs();
  EXPECT_NE(std::find(pids.begin(), pids.end(), child.pid()), pids.end());
  EXPECT_TRUE(std::all_of(pids.begin(), pids.end(), [](int32_t pid) { return pid > 0; }));
  EXPECT_THAT(Libproc::listeningSockets(child.pid()),
              ElementsAre(socketOf("127.0.0.1", AddressFamily::ipv4, ports[0]),
                          socketOf("::1", AddressFamily::ipv6, ports[0]),
                          socketOf("0.0.0.0", AddressFamily::ipv4, ports[1]),
                          socketOf("::", AddressFamily::ipv6, ports[2]),
                          socketOf("::ffff:127.0.0.1", AddressFamily::ipv6, ports[3])));
  // This process holds no listener of its own, and a gone process has none.
  EXPECT_TRUE(Libproc::listeningSockets(::getpid()).empty());
  // Answers hold as of the latest enumeration; after the next one a gone process has none.
  const pid_t gone = child.pid();
  child.reap();
  Libproc::allPIDs();
  EXPECT_TRUE(Libproc::listeningSockets(gone).empty());
}

TEST(LinuxProcessReader, LiveListenersOpenedAfterEnumerationWaitForTheNextOne) {
  Libproc::allPIDs();
  ForkedChild child([] { return std::to_string(listenOn("127.0.0.1", 0)); });
  ASSERT_GT(reportedPorts(child).at(0), 0);
  EXPECT_TRUE(Libproc::listeningSockets(child.pid()).empty());
  Libproc::allPIDs();
  EXPECT_THAT(Libproc::listeningSockets(child.pid()),
              ElementsAre(socketOf("127.0.0.1", AddressFamily::ipv4, reportedPorts(child).at(0))));
}

TEST(LinuxProcessReader, LiveSnapshotVariantsOfAChild) {
  constexpr char oddName[] = "my (odd) na)me";
  ForkedChild child([&] {
    ::prctl(PR_SET_NAME, oddName, 0, 0, 0);
    return std::string("ready");
  });
  ASSERT_EQ(child.report(), "ready");
  const uint32_t me = ::getuid();
  const auto ownArgv = Libproc::argv(::getpid());
  ASSERT_TRUE(ownArgv.has_value());

  const auto detection = ProcessReader::detectionSnapshot(child.pid(), me);
  ASSERT_TRUE(detection.has_value());
  EXPECT_EQ(detection->name, oddName);
  EXPECT_EQ(detection->parentPID, ::getpid());
  EXPECT_EQ(detection->uid, me);
  EXPECT_TRUE(detection->sameUser);
  EXPECT_EQ(detection->executablePath, ownExecutable());
  EXPECT_EQ(detection->argv, ownArgv);
  EXPECT_FALSE(detection->cpuReadable);
  EXPECT_FALSE(detection->residentMemoryBytes.has_value());
  EXPECT_FALSE(detection->bundleIdentifier.has_value());

  // One incarnation reads the same every time, and started no earlier than its parent.
  EXPECT_THAT(Libproc::processIdentity(child.pid()), Optional(detection->identity));
  const auto parent = Libproc::processIdentity(::getpid());
  ASSERT_TRUE(parent.has_value());
  EXPECT_GE(std::pair(detection->identity.startTimeSeconds, detection->identity.startTimeMicroseconds),
            std::pair(parent->startTimeSeconds, parent->startTimeMicroseconds));
  EXPECT_LT(detection->identity.startTimeMicroseconds, 1'000'000u);

  const auto enriched = ProcessReader::enrichedSnapshot(child.pid(), me, false);
  ASSERT_TRUE(enriched.has_value());
  EXPECT_EQ(enriched->identity, detection->identity);
  EXPECT_TRUE(enriched->cpuReadable);
  EXPECT_THAT(enriched->residentMemoryBytes, Optional(::testing::Gt(0u)));
  EXPECT_TRUE(enriched->cpuTimeNanos.has_value());
  EXPECT_FALSE(enriched->argv.has_value());
  EXPECT_EQ(ProcessReader::enrichedSnapshot(child.pid(), me, true)->argv, ownArgv);

  // Another user's view: no enriched snapshot, a detection snapshot that is not the same user.
  EXPECT_FALSE(ProcessReader::enrichedSnapshot(child.pid(), me + 1, false).has_value());
  const auto foreign = ProcessReader::detectionSnapshot(child.pid(), me + 1);
  ASSERT_TRUE(foreign.has_value());
  EXPECT_FALSE(foreign->sameUser);
  EXPECT_EQ(foreign->uid, me);

  const auto live = ProcessReader::liveResolveSnapshot(child.pid());
  ASSERT_TRUE(live.has_value());
  EXPECT_TRUE(live->sameUser);
  EXPECT_FALSE(live->argv.has_value());
  EXPECT_FALSE(live->cpuReadable);

  EXPECT_EQ(Libproc::currentWorkingDirectory(child.pid()), Libproc::currentWorkingDirectory(::getpid()));

  const auto activity = ProcessReader::activitySnapshot(*detection, me);
  ASSERT_TRUE(activity.has_value());
  EXPECT_TRUE(activity->cpuReadable);
  EXPECT_EQ(activity->argv, detection->argv);
  EXPECT_EQ(activity->name, detection->name);
  ProcessSnapshot otherIncarnation = *detection;
  otherIncarnation.identity.startTimeSeconds -= 1;
  EXPECT_FALSE(ProcessReader::activitySnapshot(otherIncarnation, me).has_value());
  EXPECT_FALSE(ProcessReader::activitySnapshot(*foreign, me + 1).has_value());

  child.reap();
  EXPECT_NE(Libproc::processIdentity(detection->identity.pid), detection->identity);
  EXPECT_FALSE(ProcessReader::activitySnapshot(*detection, me).has_value());
}

TEST(LinuxProcessReader, LiveAgentPresenceNeedsAnAgentName) {
  ForkedChild agent([] {
    ::prctl(PR_SET_NAME, "claude", 0, 0, 0);
    return std::string("ready");
  });
  ForkedChild other([] { return std::string("ready"); });
  ASSERT_EQ(agent.report(), "ready");
  ASSERT_EQ(other.report(), "ready");
  const uint32_t me = ::getuid();

  // The name says agent while the executable does not, so argv is read to decide.
  const auto presence = ProcessReader::agentPresenceSnapshot(agent.pid(), me);
  ASSERT_TRUE(presence.has_value());
  EXPECT_EQ(presence->name, "claude");
  EXPECT_EQ(presence->uid, me);
  EXPECT_TRUE(presence->sameUser);
  EXPECT_EQ(presence->argv, Libproc::argv(::getpid()));
  EXPECT_FALSE(ProcessReader::agentPresenceSnapshot(agent.pid(), me + 1).has_value());
  EXPECT_FALSE(ProcessReader::agentPresenceSnapshot(other.pid(), me).has_value());
}

TEST(LinuxProcessReader, LiveAgentExecutableIsKnownWithoutItsArguments) {
  // A copy of sleep installed as "claude": its path alone names the agent.
  char directory[] = "/tmp/tidewatch-reader-XXXXXX";
  ASSERT_NE(::mkdtemp(directory), nullptr);
  const std::string executable = std::string(directory) + "/claude";
  {
    std::ifstream in("/bin/sleep", std::ios::binary);
    std::ofstream out(executable, std::ios::binary);
    out << in.rdbuf();
  }
  ASSERT_EQ(::chmod(executable.c_str(), 0700), 0);
  ForkedChild agent([&] {
    char name[] = "claude";
    char seconds[] = "60";
    char* arguments[] = {name, seconds, nullptr};
    ::execv(executable.c_str(), arguments);
    return std::string("exec failed");
  });
  ASSERT_EQ(agent.report(), "");

  const auto presence = ProcessReader::agentPresenceSnapshot(agent.pid(), ::getuid());
  agent.reap();
  (void)::unlink(executable.c_str());
  (void)::rmdir(directory);
  ASSERT_TRUE(presence.has_value());
  EXPECT_EQ(presence->executablePath, executable);
  EXPECT_FALSE(presence->argv.has_value());
}

}  // namespace
}  // namespace tidewatch
