// Light scans of this machine's real process table.
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "coralline_kit/agent_tracking_session.h"
#include "process_core/agent_process_detector.h"
#include "process_core/process_reader.h"
#include "process_core/tests/support/forked_child.h"
#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;

// The setup of a child that runs a copy of the shell named `claude`, whose own child spins for
// as long as that claude lives (so killing the claude ends both), and two minutes at most, so a
// test that dies before its cleanup leaves nothing spinning behind.
std::function<std::string()> busyClaude(const std::string& directory) {
  const std::string program = directory + "/claude";
  std::filesystem::copy_file(std::filesystem::canonical("/bin/sh"), program);
  std::filesystem::permissions(program, std::filesystem::perms::owner_exec, std::filesystem::perm_options::add);
  return [program] {
    ::execl(program.c_str(), "claude", "-c", "timeout 120 sh -c \"while kill -0 $$; do :; done\" 2>/dev/null & wait",
            static_cast<char*>(nullptr));
    return std::string("exec failed");
  };
}

bool hasRun(const std::vector<AgentRun>& runs, pid_t pid, AgentRunState state) {
  return std::any_of(runs.begin(), runs.end(), [&](const AgentRun& run) {
    return run.identity.process.pid == pid && run.state == state && run.provider == AgentKind::claude;
  });
}

TEST(LiveAgentTracking, AClaudeWhoseChildBurnsCPUIsActiveAtTheThirdLookAndFinishedAfterItExits) {
  testing::TemporaryDirectory directory;
  ASSERT_FALSE(directory.path().empty());
  testing::ForkedChild agent(busyClaude(directory.path()));
  const pid_t pid = agent.pid();
  ASSERT_GT(pid, 0);
  std::this_thread::sleep_for(100ms);  // the shell has started its child

  AgentTrackingSession session([] { return BatteryMode::batterySaver; });
  const auto update = session.makeAsyncIterator().next();
  EXPECT_TRUE(update && update->hasOpenRun) << "the live session's first pull looks at once";

  AgentTrackingSession::LiveSource source;
  EXPECT_TRUE(source.refresh().hasOpenRun);
  std::this_thread::sleep_for(300ms);
  EXPECT_FALSE(hasRun(source.refresh().countedRuns, pid, AgentRunState::active)) << "one working look";
  std::this_thread::sleep_for(300ms);
  EXPECT_TRUE(hasRun(source.refresh().countedRuns, pid, AgentRunState::active)) << "two working looks";
  agent.reap();
  EXPECT_TRUE(hasRun(source.refresh().finished, pid, AgentRunState::finished));
}

// The light reader leaves out only what detection never looks at.
TEST(LiveAgentTracking, TheLightReaderReadsWhatDetectionNeedsOfEveryProcess) {
  testing::TemporaryDirectory directory;
  testing::ForkedChild agent(busyClaude(directory.path()));
  const auto uid = static_cast<uint32_t>(::getuid());
  int compared = 0;
  for (int32_t pid : Libproc::processIDs()) {
    auto light = ProcessReader::agentDetectionSnapshot(pid, uid);
    auto full = ProcessReader::detectionSnapshot(pid, uid);
    if (!light || !full || light->identity != full->identity) continue;  // gone or replaced between reads
    // A process that exec'd between the reads keeps its identity but not its name or path.
    const auto again = ProcessReader::agentDetectionSnapshot(pid, uid);
    if (!again || again->name != light->name || again->executablePath != light->executablePath ||
        again->name != full->name || again->executablePath != full->executablePath) {
      continue;
    }
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
