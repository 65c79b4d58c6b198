// Light scans of this machine's real process table.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "coralline_kit/agent_tracking_session.h"
#include "process_core/agent_process_detector.h"
#include "process_core/process_reader.h"
#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;

// A copy of the shell named `claude` whose child spins, in a process group of its own; the
// whole group is killed when the handle goes.
class BusyAgent {
 public:
  explicit BusyAgent(const std::string& directory) {
    const std::string program = directory + "/claude";
    std::filesystem::copy_file(std::filesystem::canonical("/bin/sh"), program);
    std::filesystem::permissions(program, std::filesystem::perms::owner_exec, std::filesystem::perm_options::add);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::setpgid(0, 0);
      ::execl(program.c_str(), "claude", "-c", "sh -c 'while :; do :; done' & wait", static_cast<char*>(nullptr));
      ::_exit(127);
    }
  }
  BusyAgent(const BusyAgent&) = delete;
  BusyAgent& operator=(const BusyAgent&) = delete;
  ~BusyAgent() { end(); }

  pid_t pid() const { return pid_; }
  void end() {
    if (pid_ <= 0) return;
    ::kill(-pid_, SIGKILL);
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
};

bool hasRun(const std::vector<AgentRun>& runs, pid_t pid, AgentRunState state) {
  return std::any_of(runs.begin(), runs.end(), [&](const AgentRun& run) {
    return run.identity.process.pid == pid && run.state == state && run.provider == AgentKind::claude;
  });
}

TEST(LiveAgentTracking, AClaudeWhoseChildBurnsCPUIsActiveAtTheThirdLookAndFinishedAfterItExits) {
  testing::TemporaryDirectory directory;
  ASSERT_FALSE(directory.path().empty());
  BusyAgent agent(directory.path());
  ASSERT_GT(agent.pid(), 0);
  const pid_t pid = agent.pid();
  std::this_thread::sleep_for(100ms);  // the shell has started its child

  AgentTrackingSession::LiveSource source;
  const auto first = source.refresh();
  EXPECT_GT(first.processCount, 2);
  EXPECT_TRUE(first.hasOpenRun);
  std::this_thread::sleep_for(300ms);
  EXPECT_FALSE(hasRun(source.refresh().countedRuns, pid, AgentRunState::active)) << "one working look";
  std::this_thread::sleep_for(300ms);
  EXPECT_TRUE(hasRun(source.refresh().countedRuns, pid, AgentRunState::active)) << "two working looks";

  agent.end();
  const auto after = source.refresh();
  EXPECT_TRUE(hasRun(after.finished, pid, AgentRunState::finished));
  EXPECT_FALSE(hasRun(after.countedRuns, pid, AgentRunState::active));
}

TEST(LiveAgentTracking, TheLiveSessionsFirstPullLooksAtOnce) {
  AgentTrackingSession session([] { return BatteryMode::batterySaver; });
  const auto update = session.makeAsyncIterator().next();
  ASSERT_TRUE(update);
  EXPECT_GT(update->processCount, 2);
}

// The light reader leaves out only what detection never looks at.
TEST(LiveAgentTracking, TheLightReaderReadsWhatDetectionNeedsOfEveryProcess) {
  testing::TemporaryDirectory directory;
  BusyAgent agent(directory.path());
  std::this_thread::sleep_for(100ms);
  const auto uid = static_cast<uint32_t>(::getuid());
  int compared = 0;
  for (int32_t pid : Libproc::processIDs()) {
    auto light = ProcessReader::agentDetectionSnapshot(pid, uid);
    auto full = ProcessReader::detectionSnapshot(pid, uid);
    if (!light || !full || light->identity != full->identity) continue;  // gone or replaced between reads
    ++compared;
    EXPECT_EQ(AgentProcessDetector::detect(*light), AgentProcessDetector::detect(*full)) << pid;
    if (light->argv) {
      EXPECT_EQ(light->argv, full->argv) << pid;
    }
    light->argv = full->argv;
    EXPECT_EQ(*light, *full) << pid;
  }
  EXPECT_GT(compared, 2);
}

}  // namespace
}  // namespace tidewatch
