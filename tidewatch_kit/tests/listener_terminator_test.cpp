#include "tidewatch_kit/listener_terminator.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <functional>

#include "tidewatch_kit/tests/fake_process_world.h"

namespace tidewatch {
namespace {

using testing::FakeProcessWorld;

// Records every pin and signal in order, with the fresh reads in between, and answers each
// signal with a chosen errno.
struct SignalLog {
  std::vector<std::string> events;
  std::map<int32_t, int> errors;

  ProcessSignals signals() {
    return ProcessSignals{[this](int32_t pid) -> PinnedSignal {
      events.push_back("pin " + std::to_string(pid));
      return [this, pid](int signal) {
        events.push_back("signal " + std::to_string(signal) + " " + std::to_string(pid));
        auto it = errors.find(pid);
        return it == errors.end() ? 0 : it->second;
      };
    }};
  }

  std::vector<std::string> signalsOnly() const {
    std::vector<std::string> sent;
    for (const auto& event : events) {
      if (event.starts_with("signal")) sent.push_back(event);
    }
    return sent;
  }
};

class TerminatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    world.uid = static_cast<uint32_t>(getuid());  // pool members are judged for the real user
    world.selfPID = 4242;
    world.add(50, 1, "/usr/libexec/gnome-terminal-server");
    world.add(51, 50, "/usr/bin/bash");
    world.add(52, 51, "/opt/app/server", 200);
    world.listen(52, 3000);
    // A pool of three workers under a supervisor, serving port 8000.
    world.add(60, 51, "/opt/web/master", 300);
    for (int32_t pid : {61, 62, 63}) {
      world.add(pid, 60, "/opt/web/worker", 300);
      world.listen(pid, 8000, "0.0.0.0");
    }
  }

  ListenerTerminator terminator() {
    auto d = world.dependencies();
    auto read = d.liveResolveSnapshot;
    d.liveResolveSnapshot = [this, read](int32_t pid) {
      log.events.push_back("read " + std::to_string(pid));
      return read(pid);
    };
    return ListenerTerminator(PortEngine(d), context(), log.signals());
  }

  SafetyContext context() const { return {world.selfPID, world.uid}; }

  PortListener row(int port) {
    for (const auto& listener : PortEngine(world.dependencies()).scan(true).listeners) {
      if (listener.port == port) return listener;
    }
    throw std::runtime_error("no row");
  }

  FakeProcessWorld world;
  SignalLog log;
};

TEST_F(TerminatorTest, RequestsAreOfferedOnlyForVisibleActionableSingleRows) {
  auto listener = row(3000);
  auto kill = KillRequest::request(listener, context());
  ASSERT_TRUE(kill.has_value());
  EXPECT_EQ(kill->target, (ProcessIdentity{52, 200, 0}));
  EXPECT_EQ(kill->signalName, "SIGTERM");
  EXPECT_EQ(kill->confirmation().title, "Kill server (PID 52)?");
  EXPECT_EQ(kill->confirmation().message,
            "Sends SIGTERM to the process listening on port 3000. Protected system processes are never terminated.");
  auto force = ForceKillRequest::request(listener, context());
  ASSERT_TRUE(force.has_value());
  EXPECT_EQ(force->signalName, "SIGKILL");
  EXPECT_EQ(force->confirmation().title, "Force Kill server (PID 52)?");
  EXPECT_EQ(force->confirmation().button, "Force Kill");

  auto hidden = listener;
  hidden.visibility = VisibilityClass::hiddenSystemBackground;
  EXPECT_FALSE(KillRequest::request(hidden, context()));
  auto pool = listener;
  pool.workerPoolSize = 2;
  EXPECT_FALSE(KillRequest::request(pool, context()));
  auto shell = listener;
  shell.process.executablePath = "/home/dev/bin/zsh";
  EXPECT_FALSE(ForceKillRequest::request(shell, context()));
  auto ours = listener;
  ours.isInTidewatchSubtree = true;
  EXPECT_FALSE(KillRequest::request(ours, context()));
}

TEST_F(TerminatorTest, TheGuardPinsBeforeItReadsAndSignalsLast) {
  const auto request = *KillRequest::request(row(3000), context());
  const auto outcome = terminator().kill(request);
  EXPECT_EQ(outcome.message(), "Sent SIGTERM.");
  EXPECT_TRUE(outcome.isSuccess());
  ASSERT_GE(log.events.size(), 3u);
  EXPECT_EQ(log.events.front(), "pin 52");
  EXPECT_EQ(log.events[1], "read 52");
  EXPECT_EQ(log.events.back(), "signal 15 52");
  EXPECT_EQ(terminator().forceKill(*ForceKillRequest::request(row(3000), context())).message(), "Sent SIGKILL.");
  EXPECT_EQ(log.signalsOnly().back(), "signal 9 52");
}

TEST_F(TerminatorTest, NothingIsSignalledWhenTheProcessChangedUnderTheRequest) {
  const auto request = *KillRequest::request(row(3000), context());

  world.restart(52, 999);  // the pid now belongs to a new process
  auto outcome = terminator().kill(request);
  EXPECT_EQ(outcome.message(), "That PID now belongs to a different process \xE2\x80\x94 nothing was signaled.");
  EXPECT_FALSE(outcome.isSuccess());

  world.restart(52, 200);
  world.add(52, 51, "/usr/bin/bash", 200);  // same incarnation, exec'd into a shell
  outcome = terminator().kill(request);
  EXPECT_EQ(outcome.message(), "That\xE2\x80\x99s a login shell \xE2\x80\x94 Tidewatch won\xE2\x80\x99t stop it.");

  world.add(52, 51, "/opt/app/server", 200, world.uid + 1);  // now another user's
  EXPECT_EQ(terminator().kill(request).message(),
            "Tidewatch can\xE2\x80\x99t confirm you own that process \xE2\x80\x94 it won\xE2\x80\x99t signal it.");
  EXPECT_TRUE(log.signalsOnly().empty());
}

TEST_F(TerminatorTest, KernelAnswersMapToOutcomes) {
  const auto request = *KillRequest::request(row(3000), context());
  struct Case {
    int error;
    std::string message;
    bool success;
  };
  const Case cases[] = {
      {EPERM, "Tidewatch can\xE2\x80\x99t confirm you own that process \xE2\x80\x94 it won\xE2\x80\x99t signal it.", false},
      {ESRCH, "That process had already exited.", true},
      {EINVAL, "Couldn\xE2\x80\x99t send SIGTERM: Invalid argument.", false},
  };
  for (const auto& c : cases) {
    log.errors[52] = c.error;
    const auto outcome = terminator().kill(request);
    EXPECT_EQ(outcome.message(), c.message);
    EXPECT_EQ(outcome.isSuccess(), c.success);
  }
}

TEST_F(TerminatorTest, GoneProcessesAndNonPositivePIDs) {
  auto request = *KillRequest::request(row(3000), context());
  request.pid = 77;
  request.target.pid = 77;
  EXPECT_EQ(terminator().kill(request).message(), "That process had already exited.");

  // A table that claims a process at pid 0 still never reaches the system call.
  world.add(0, 0, "/opt/x", 1);
  KillRequest zero;
  zero.target = {0, 1, 0};
  EXPECT_EQ(terminator().kill(zero).message(),
            "Couldn\xE2\x80\x99t send SIGTERM: refused to signal a non-positive PID.");
  EXPECT_TRUE(log.signalsOnly().empty());
}

TEST_F(TerminatorTest, AnActionableSupervisorGetsTheOneSignal) {
  const auto request = StopPoolRequest::request(row(8000), context());
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->supervisor, (ProcessIdentity{60, 300, 0}));
  EXPECT_EQ(request->confirmation().title, "Stop worker worker pool?");
  EXPECT_EQ(request->confirmation().message,
            "Sends SIGTERM to the pool serving port 8000 (\xC3\x97" "3). Protected processes are never terminated.");
  EXPECT_EQ(terminator().stopPool(*request).message(), "Sent SIGTERM to the pool supervisor.");
  EXPECT_EQ(log.signalsOnly(), std::vector<std::string>{"signal 15 60"});
}

TEST_F(TerminatorTest, AProtectedSupervisorLivesAndItsWorkersAreStoppedOneByOne) {
  const auto request = *StopPoolRequest::request(row(8000), context());
  // bash, and Debian's `sh -c` (dash), which started the workers of many a dev script.
  for (const char* shell : {"/usr/bin/bash", "/usr/bin/dash"}) {
    log.events.clear();
    world.add(60, 51, shell, 300);
    EXPECT_EQ(terminator().stopPool(request).message(), "Sent SIGTERM to 3 pool workers.");
    EXPECT_EQ(log.signalsOnly(), (std::vector<std::string>{"signal 15 61", "signal 15 62", "signal 15 63"}));
  }

  log.events.clear();
  log.errors = {{61, ESRCH}, {62, EPERM}};
  EXPECT_EQ(terminator().stopPool(request).message(), "Sent SIGTERM to 1 pool worker.");

  log.errors = {{61, ESRCH}, {62, EPERM}, {63, ESRCH}};
  EXPECT_EQ(terminator().stopPool(request).message(), "Tidewatch couldn\xE2\x80\x99t safely stop this pool.");
}

TEST_F(TerminatorTest, ProtectedOrUncheckableProcessesGetNoSignal) {
  const auto request = *KillRequest::request(row(3000), context());
  const std::string unchecked = "Couldn\xE2\x80\x99t send SIGTERM: Tidewatch couldn\xE2\x80\x99t check that process (";
  struct Case {
    const char* what;
    std::function<void()> change;
    std::string message;
  };
  const Case cases[] = {
      {"exec'd into /bin/sh, which is dash", [&] { world.add(52, 51, "/usr/bin/dash", 200); },
       "That\xE2\x80\x99s a login shell \xE2\x80\x94 Tidewatch won\xE2\x80\x99t stop it."},
      {"out of descriptors", [&] { world.liveReadErrors[52] = EMFILE; }, unchecked + "Too many open files)."},
      {"refused by /proc", [&] { world.liveReadErrors[52] = EACCES; }, unchecked + "Permission denied)."},
      {"an ancestor unreadable", [&] { world.liveReadErrors[51] = ENFILE; },
       unchecked + "Too many open files in system)."},
  };
  for (const auto& c : cases) {
    SetUp();
    world.liveReadErrors.clear();
    c.change();
    const auto outcome = terminator().kill(request);
    EXPECT_EQ(outcome.message(), c.message) << c.what;
    EXPECT_FALSE(outcome.isSuccess()) << c.what;
  }

  // A container's init and the kernel's threads, of the same user as this program (root).
  world.liveReadErrors.clear();
  world.add(1, 0, "/opt/tini", 1);
  auto& kworker = world.add(2, 0, "kworker", 1);
  kworker.name = "kworker/0:1";
  kworker.executablePath.reset();
  kworker.isKernelThread = true;
  for (int32_t pid : {1, 2}) {
    KillRequest system = request;
    system.pid = pid;
    system.target = {pid, 1, 0};
    EXPECT_EQ(terminator().forceKill(ForceKillRequest{system.id, system.displayName, pid, 0, "SIGKILL", system.target})
                  .message(),
              "That\xE2\x80\x99s a system process \xE2\x80\x94 Tidewatch won\xE2\x80\x99t stop it.");
  }

  // The pool and agent stops say so too, and stop-visible counts a failure.
  world.liveReadErrors[60] = EMFILE;
  EXPECT_EQ(terminator().stopPool(*StopPoolRequest::request(row(8000), context())).message(),
            "Couldn\xE2\x80\x99t stop the pool: Tidewatch couldn\xE2\x80\x99t check that process (Too many open files).");
  const auto visible = *StopVisibleRequest::request(PortEngine(world.dependencies()).scan(true).visible(), context());
  world.liveReadErrors[52] = EMFILE;
  EXPECT_EQ(terminator().stopVisible(visible), (StopVisibleOutcome{0, 0, 0, 2}));
  EXPECT_TRUE(log.signalsOnly().empty());
}

TEST_F(TerminatorTest, AGoneOrReplacedSupervisorStopsNothing) {
  const auto request = *StopPoolRequest::request(row(8000), context());
  world.restart(60, 301);
  EXPECT_EQ(terminator().stopPool(request).message(),
            "The pool supervisor\xE2\x80\x99s PID now belongs to a different process \xE2\x80\x94 nothing was signaled.");
  auto gone = request;
  gone.supervisor.pid = 404;
  EXPECT_EQ(terminator().stopPool(gone).message(), "That pool had already stopped.");
  EXPECT_TRUE(log.signalsOnly().empty());
  EXPECT_FALSE(StopPoolRequest::request(row(3000), context())) << "a single row is no pool";
}

TEST_F(TerminatorTest, AgentsAreStoppedOnlyWhileStillVerified) {
  world.add(70, 51, "/home/dev/.local/bin/claude", 400);
  const AgentProcessIdentity agent{{70, 400, 0}, AgentKind::claude};
  auto request = terminator().stopAgentRequest("agent-row", AgentKind::claude, agent);
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->confirmation().title, "Stop Claude Code agent (PID 70)?");
  EXPECT_FALSE(terminator().stopAgentRequest("x", AgentKind::codex, {{70, 400, 0}, AgentKind::codex}));

  world.add(70, 51, "/opt/other-tool", 400);  // exec'd into something else
  EXPECT_EQ(terminator().stopAgent(*request).message(),
            "That process is no longer a verified agent \xE2\x80\x94 nothing was signaled.");
  world.add(70, 51, "/home/dev/.local/bin/claude", 400);
  EXPECT_EQ(terminator().stopAgent(*request).message(), "Sent SIGTERM to the verified agent process.");
  EXPECT_EQ(log.signalsOnly(), std::vector<std::string>{"signal 15 70"});
  log.errors[70] = ESRCH;
  EXPECT_EQ(terminator().stopAgent(*request).message(), "That agent had already stopped.");
}

TEST_F(TerminatorTest, StopVisibleCountsListenersAndTargetsAndSumsOneCounterPerTarget) {
  world.listen(52, 3001);  // a second port of the same process
  world.add(80, 51, "/opt/app/other", 500);
  world.listen(80, 4000);
  world.add(81, 51, "/opt/app/third", 500);
  world.listen(81, 4001);
  const auto rows = PortEngine(world.dependencies()).scan(true).visible();
  const auto request = StopVisibleRequest::request(rows, context());
  ASSERT_TRUE(request.has_value());
  EXPECT_EQ(request->listenerCount, 5);
  EXPECT_EQ(request->targetCount(), 4);
  EXPECT_EQ(request->confirmation().title, "Stop 4 visible targets?");
  EXPECT_NE(request->id.find("pool:60:pool:60:300.0:TCP:8000:1:/opt/web/worker"), std::string::npos);

  world.restart(80, 501);    // changed: skipped
  log.errors[81] = ESRCH;    // exited meanwhile
  const auto outcome = terminator().stopVisible(*request);
  EXPECT_EQ(outcome, (StopVisibleOutcome{2, 1, 1, 0}));
  EXPECT_EQ(outcome.message(), "Stopped 2 targets \xC2\xB7 1 already exited \xC2\xB7 1 safely skipped.");
  EXPECT_FALSE(outcome.isSuccess());
  EXPECT_EQ(StopVisibleOutcome{}.message(), "Nothing needed stopping.");
  EXPECT_FALSE(StopVisibleRequest::request({}, context()));
}

}  // namespace
}  // namespace tidewatch
