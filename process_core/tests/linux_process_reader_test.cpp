// The Linux readers against real processes and sockets of this machine.
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "process_core/process_reader.h"
#include "process_core/tests/support/forked_child.h"
#include "process_core/tests/support/listening_socket.h"
#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::Optional;
using testing::ForkedChild;

// The port of a new listener (its descriptor stays open for the life of the process), or -1.
int listenOn(const char* address, int port = 0) {
  return testing::boundPort(testing::listeningSocket(address, port));
}

// One port with both loopback addresses, which can take a few tries while ::1 is busy.
int listenOnLoopbackPair() {
  for (int attempt = 0; attempt < 20; ++attempt) {
    const int port = listenOn("127.0.0.1");
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

TEST(LinuxProcessReader, LiveListeningSocketsShowEachBindingOfAProcess) {
  ForkedChild child([] {
    const int pair = listenOnLoopbackPair();
    (void)::socket(AF_INET, SOCK_DGRAM, 0);  // not TCP: never listed
    int connected[2];
    (void)::socketpair(AF_UNIX, SOCK_STREAM, 0, connected);  // not TCP either
    std::string ports = std::to_string(pair);
    for (const char* address : {"0.0.0.0", "::", "::ffff:127.0.0.1"}) ports += " " + std::to_string(listenOn(address));
    return ports;
  });
  const std::vector<int> ports = reportedPorts(child);
  ASSERT_EQ(ports.size(), 4u);
  ASSERT_TRUE(std::all_of(ports.begin(), ports.end(), [](int port) { return port > 0; })) << child.report();

  const std::vector<int32_t> pids = Libproc::allPIDs();
  EXPECT_NE(std::find(pids.begin(), pids.end(), child.pid()), pids.end());
  EXPECT_TRUE(std::all_of(pids.begin(), pids.end(), [](int32_t pid) { return pid > 0; }));
  using F = AddressFamily;
  using S = RawListeningSocket;
  EXPECT_THAT(Libproc::listeningSockets(child.pid()),
              ElementsAre(S{ports[0], F::ipv4, "127.0.0.1"}, S{ports[0], F::ipv6, "::1"}, S{ports[1], F::ipv4, "0.0.0.0"},
                          S{ports[2], F::ipv6, "::"}, S{ports[3], F::ipv6, "::ffff:127.0.0.1"}));
  // This process holds no listener of its own.
  EXPECT_TRUE(Libproc::listeningSockets(::getpid()).empty());
  // Answers hold as of the latest enumeration; after the next one a gone process has none.
  const pid_t gone = child.pid();
  child.reap();
  Libproc::allPIDs();
  EXPECT_TRUE(Libproc::listeningSockets(gone).empty());
}

TEST(LinuxProcessReader, LiveListenersOpenedAfterEnumerationWaitForTheNextOne) {
  Libproc::allPIDs();
  ForkedChild child([] { return std::to_string(listenOn("127.0.0.1")); });
  const int port = reportedPorts(child).at(0);
  ASSERT_GT(port, 0);
  EXPECT_TRUE(Libproc::listeningSockets(child.pid()).empty());
  Libproc::allPIDs();
  EXPECT_THAT(Libproc::listeningSockets(child.pid()),
              ElementsAre(RawListeningSocket{port, AddressFamily::ipv4, "127.0.0.1"}));
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
  EXPECT_EQ(detection->executablePath, std::filesystem::read_symlink("/proc/self/exe").string());
  EXPECT_EQ(detection->argv, ownArgv);
  EXPECT_FALSE(detection->cpuReadable);
  EXPECT_FALSE(detection->residentMemoryBytes.has_value());

  // One incarnation reads the same every time, and started no earlier than its parent.
  EXPECT_THAT(Libproc::processIdentity(child.pid()), Optional(detection->identity));
  const auto parent = Libproc::processIdentity(::getpid());
  ASSERT_TRUE(parent.has_value());
  EXPECT_GE(std::pair(detection->identity.startTimeSeconds, detection->identity.startTimeMicroseconds),
            std::pair(parent->startTimeSeconds, parent->startTimeMicroseconds));
  EXPECT_LT(detection->identity.startTimeMicroseconds, 1'000'000u);

  const auto stat = ProcessReader::statSnapshot(child.pid());
  ASSERT_TRUE(stat.has_value());
  EXPECT_EQ(stat->identity, detection->identity);
  EXPECT_EQ(stat->name, oddName);
  EXPECT_EQ(stat->parentPID, ::getpid());
  EXPECT_FALSE(stat->uid.has_value()) << "the stat line alone: nothing else is read";
  EXPECT_FALSE(stat->executablePath.has_value());

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

  const auto live = ProcessReader::liveResolveSnapshot(child.pid()).snapshot;
  ASSERT_TRUE(live.has_value());
  EXPECT_TRUE(live->sameUser);
  EXPECT_FALSE(live->argv.has_value());
  EXPECT_FALSE(live->cpuReadable);

  EXPECT_EQ(Libproc::currentWorkingDirectory(child.pid()), Libproc::currentWorkingDirectory(::getpid()));

  const auto activity = ProcessReader::activitySnapshot(*detection, me);
  ASSERT_TRUE(activity.has_value());
  EXPECT_TRUE(activity->cpuReadable);
  EXPECT_EQ(activity->argv, detection->argv) << "the other fields stay from the given snapshot";
  ProcessSnapshot otherIncarnation = *detection;
  otherIncarnation.identity.startTimeSeconds -= 1;
  EXPECT_FALSE(ProcessReader::activitySnapshot(otherIncarnation, me).has_value());
  EXPECT_FALSE(ProcessReader::activitySnapshot(*foreign, me + 1).has_value());

  child.reap();
  EXPECT_NE(Libproc::processIdentity(detection->identity.pid), detection->identity);
  const auto statAfter = ProcessReader::statSnapshot(detection->identity.pid);
  EXPECT_TRUE(!statAfter || statAfter->identity != detection->identity);
  EXPECT_EQ(ProcessReader::liveResolveSnapshot(detection->identity.pid), LiveProcessRead{}) << "gone, not unreadable";
  EXPECT_FALSE(ProcessReader::activitySnapshot(*detection, me).has_value());
}

TEST(LinuxProcessReader, LiveAgentPresenceReadsArgvOnlyWhenTheNamesCannotDecide) {
  // A copy of sleep installed as "claude": its path alone names the agent.
  const testing::TemporaryDirectory directory;
  const std::string executable = directory.path() + "/claude";
  std::filesystem::copy_file("/bin/sleep", executable);
  ForkedChild installed([&] {
    char name[] = "claude", seconds[] = "60";
    char* arguments[] = {name, seconds, nullptr};
    ::execv(executable.c_str(), arguments);
    return std::string("exec failed");
  });
  // This program renamed "claude": the name says agent while the executable does not.
  ForkedChild renamed([] {
    ::prctl(PR_SET_NAME, "claude", 0, 0, 0);
    return std::string("ready");
  });
  ForkedChild other([] { return std::string("ready"); });
  ASSERT_EQ(installed.report(), "");
  ASSERT_EQ(renamed.report() + other.report(), "readyready");
  const uint32_t me = ::getuid();

  const auto byPath = ProcessReader::agentPresenceSnapshot(installed.pid(), me);
  installed.reap();
  ASSERT_TRUE(byPath.has_value());
  EXPECT_EQ(byPath->executablePath, executable);
  EXPECT_FALSE(byPath->argv.has_value());

  const auto byName = ProcessReader::agentPresenceSnapshot(renamed.pid(), me);
  ASSERT_TRUE(byName.has_value());
  EXPECT_EQ(byName->name, "claude");
  EXPECT_EQ(byName->uid, me);
  EXPECT_TRUE(byName->sameUser);
  EXPECT_EQ(byName->argv, Libproc::argv(::getpid()));
  EXPECT_FALSE(ProcessReader::agentPresenceSnapshot(renamed.pid(), me + 1).has_value());
  EXPECT_FALSE(ProcessReader::agentPresenceSnapshot(other.pid(), me).has_value());
}

TEST(LinuxProcessReader, LiveAProgramStartedThroughASiblingLinkReadsAsStarted) {
  // Debian's /usr/bin/python3 links to python3.11 beside it; a copy of that pair in a folder of
  // our own stands in where Debian's is absent.
  const testing::TemporaryDirectory directory;
  const std::string file = directory.path() + "/server-1.2", link = directory.path() + "/server";
  std::filesystem::copy_file("/bin/sleep", file);
  std::filesystem::create_symlink("server-1.2", link);
  // A link in another folder is not the file's sibling: the file's own path stands.
  std::filesystem::create_directory(directory.path() + "/bin");
  const std::string elsewhere = directory.path() + "/bin/other";
  std::filesystem::create_symlink(file, elsewhere);
  for (const auto& [started, expected] : {std::pair{link, link}, std::pair{file, file}, std::pair{elsewhere, file}}) {
    ForkedChild child([&started = started] {
      char seconds[] = "60";
      char* arguments[] = {const_cast<char*>(started.c_str()), seconds, nullptr};
      ::execv(started.c_str(), arguments);
      return std::string("exec failed");
    });
    ASSERT_EQ(child.report(), "");
    std::optional<ProcessSnapshot> snapshot;
    // The child's name is the program's own once exec has happened.
    for (int tries = 0; tries < 500 && (!snapshot || snapshot->name == "process_core_tests"); ++tries) {
      snapshot = ProcessReader::detectionSnapshot(child.pid(), ::getuid());
    }
    ASSERT_TRUE(snapshot.has_value());
    EXPECT_EQ(snapshot->executablePath, expected) << started;
    EXPECT_EQ(Libproc::execPath(child.pid(), snapshot->name), expected) << started;
  }
}

}  // namespace
}  // namespace tidewatch
