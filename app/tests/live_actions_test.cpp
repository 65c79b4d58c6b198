// Guarded actions against real processes that the test starts: signals really arrive where
// the guard allows them, and protected processes really survive.
#include "app/tests/support/live_process_tree.h"
#include "process_core/process_reader.h"
#include "tidewatch_kit/listener_terminator.h"

namespace tidewatch {
namespace {

class LiveActions : public testing::LiveProcessTree {
 protected:
  // The row of the pid on the port; with no pid, the pool row on the port.
  static std::optional<PortListener> row(std::optional<pid_t> pid, int port) {
    for (const auto& listener : PortEngine().scan(true).listeners) {
      if (listener.port == port && (pid ? listener.process.identity.pid == *pid : listener.workerPoolSize > 1)) {
        return listener;
      }
    }
    return std::nullopt;
  }

  static bool isRunning(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    const auto close = text.rfind(')');
    return close != std::string::npos && close + 2 < text.size() && text[close + 2] != 'Z';
  }

  // Whether the process is gone (or a zombie) within the limit.
  static bool exitsWithin(pid_t pid, std::chrono::milliseconds limit = std::chrono::seconds(5)) {
    return eventually([pid] { return !isRunning(pid); }, limit);
  }

  // What the guard answers when asked to signal the pid directly, without an offered request.
  std::string forgedKill(pid_t pid) const {
    KillRequest forged;
    forged.pid = pid;
    forged.target = *Libproc::processIdentity(pid);
    return terminator.kill(forged).message();
  }

  const SafetyContext& context = ProcessSafetyClassifier::Context::current();
  const ListenerTerminator terminator{PortEngine(), context};
};

TEST_F(LiveActions, KillAndForceKillReachTheRealProcess) {
  const pid_t server = start({actor("devserver"), "listen", "127.0.0.1"}, root, std::nullopt, true);
  const pid_t stubborn = start({actor("stubborn-server"), "stubborn", "127.0.0.1"}, root, std::nullopt, true);
  auto ports = awaitListeners(2);

  const auto serverRow = row(server, ports[server].front());
  ASSERT_TRUE(serverRow.has_value());
  const auto kill = KillRequest::request(*serverRow, context);
  ASSERT_TRUE(kill.has_value());
  EXPECT_EQ(terminator.kill(*kill).message(), "Sent SIGTERM.");
  EXPECT_TRUE(exitsWithin(server));
  EXPECT_EQ(terminator.kill(*kill).message(), "That process had already exited.");

  const auto stubbornRow = row(stubborn, ports[stubborn].front());
  ASSERT_TRUE(stubbornRow.has_value());
  EXPECT_EQ(terminator.kill(*KillRequest::request(*stubbornRow, context)).message(), "Sent SIGTERM.");
  EXPECT_FALSE(exitsWithin(stubborn, std::chrono::milliseconds(50)))
      << "SIGTERM is ignored and nothing escalates on its own";
  EXPECT_EQ(terminator.forceKill(*ForceKillRequest::request(*stubbornRow, context)).message(), "Sent SIGKILL.");
  EXPECT_TRUE(exitsWithin(stubborn));
}

TEST_F(LiveActions, APoolUnderAShellLosesItsWorkersWhileTheShellLives) {
  const pid_t shell = start({actor("bash"), "pool", "3", "127.0.0.1", actor("worker")}, root, std::nullopt, true);
  const int port = awaitListeners(1)[shell].front();

  // The workers show as one pool once all three have become "worker" and their supervisor is read
  // (a worker caught between fork and exec still reads as the shell's copy).
  std::optional<PortListener> pool;
  ASSERT_TRUE(eventually([&] {
    return (pool = row(std::nullopt, port)) && pool->workerPoolSize == 3 && StopPoolRequest::request(*pool, context);
  }));
  EXPECT_EQ(pool->parentIdentity->pid, shell);
  const auto shellRow = row(shell, port);
  ASSERT_TRUE(shellRow.has_value());
  EXPECT_FALSE(KillRequest::request(*shellRow, context)) << "a shell is never offered a kill";

  const auto request = StopPoolRequest::request(*pool, context);
  ASSERT_TRUE(request.has_value());
  const auto members = PortEngine().poolMemberIdentities(request->poolSignals);
  ASSERT_EQ(members.size(), 3u);
  EXPECT_EQ(terminator.stopPool(*request).message(), "Sent SIGTERM to 3 pool workers.");
  for (const auto& member : members) EXPECT_TRUE(exitsWithin(member.pid)) << member.pid;
  EXPECT_TRUE(isRunning(shell));

  EXPECT_EQ(forgedKill(shell), "That\xE2\x80\x99s a login shell \xE2\x80\x94 Tidewatch won\xE2\x80\x99t stop it.");
  EXPECT_TRUE(isRunning(shell));
}

TEST_F(LiveActions, AProcessOfAnotherUserIsRefused) {
  if (::geteuid() != 0) GTEST_SKIP() << "starting a process as another user needs root";
  const pid_t other = start({actor("devserver"), "listen", "127.0.0.1"}, root, 65534, true);
  const int port = awaitListeners(1)[other].front();
  EXPECT_FALSE(row(other, port).has_value()) << "another user's listener is no row";
  EXPECT_EQ(forgedKill(other),
            "Tidewatch can\xE2\x80\x99t confirm you own that process \xE2\x80\x94 it won\xE2\x80\x99t signal it.");
  EXPECT_TRUE(isRunning(other));
}

}  // namespace
}  // namespace tidewatch
