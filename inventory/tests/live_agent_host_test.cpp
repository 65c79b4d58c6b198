// The hook path end to end without any toolkit: the real relay, run by a shell below a process
// named `claude`, reaches the host's socket, and the published snapshots move that session
// through its states.
#include "inventory/agent_inventory_host.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "hooks/tests/hook_test_support.h"
#include "inventory/tests/inventory_script.h"

namespace tidewatch {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

class LiveAgentHost : public testing::LiveHome {
 protected:
  void SetUp() override {
    LiveHome::SetUp();
    if (IsSkipped()) return;
    DefaultsStore defaults(home_ + "/defaults.json");
    ASSERT_TRUE(defaults.set("agentConnections.claude.configured", true));
    auto installation = AgentHookInstallation::linuxInstalled("/usr/local/bin/tidewatch");
    host_ = std::make_unique<AgentInventoryHost>(AgentInventoryHost::Parts{
        .executor = executor_,
        .paths = paths_,
        .server = AgentHookSocketServer::Dependencies::live(),
        .connections =
            {
                .homeDirectory = home_,
                .bundlePath = installation.installedLocation,
                .defaults = defaults,
                .now = [] { return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()); },
                .installation = installation,
                .hookPaths = AgentHookPathsLive::profile(home_),
                .files = AgentHookConfigurator::FileOperations::live(),
                .sendInBackground = [](std::string, std::string, double, std::function<void(bool)>) {},
            },
        .inventory = AgentInventoryCoordinator::Dependencies::live(),
        .hookOrigin =
            [this](int32_t parentPID) {
              ++arrivals_;
              return AgentInventoryCoordinator::liveHookOrigin(parentPID);
            },
        .intakeOpen = {},
    });
    host_->onSnapshot = [this](const AgentInventorySnapshot& snapshot) { published_.push_back(snapshot); };
  }

  void TearDown() override {
    if (agent_ > 0) {
      ::kill(-agent_, SIGKILL);
      ::waitpid(agent_, nullptr, 0);
    }
  }

  // Turns the main executor until the condition holds, for at most the limit.
  bool pumpUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 10s) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      if (executor_->runUntilIdle() == 0) std::this_thread::sleep_for(2ms);
    }
    return true;
  }

  // A copy of the live actor named `claude` (in its own process group) whose child shell runs
  // the script with HOME set to the scratch home.
  pid_t startAgent(const std::string& script) {
    const fs::path bin = scratch_.path() + "/bin";
    fs::create_directories(bin);
    fs::copy_file(TIDEWATCH_LIVE_WORLD, bin / "claude");
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::setpgid(0, 0);
      ::setenv("HOME", home_.c_str(), 1);
      const std::string actor = (bin / "claude").string();
      ::execl(actor.c_str(), "claude", "spawn", "/bin/sh", "-c", script.c_str(), nullptr);
      ::_exit(127);
    }
    agent_ = pid;
    return pid;
  }

  // The states a hook session went through, one entry per change, across the publications.
  std::vector<std::string> statesOf(const std::string& session) const {
    std::vector<std::string> states;
    for (const auto& snapshot : published_) {
      for (const auto& row : snapshot.sessions) {
        if (testing::describe(row.id) != "hook:" + session) continue;
        const std::string state(badgeWord(row.state));
        if (states.empty() || states.back() != state) states.push_back(state);
      }
    }
    return states;
  }

  std::shared_ptr<ManualMainExecutor> executor_ = std::make_shared<ManualMainExecutor>();
  std::unique_ptr<AgentInventoryHost> host_;
  std::vector<AgentInventorySnapshot> published_;
  pid_t agent_ = -1;
  std::atomic<int> arrivals_{0};  // envelopes the server took, counted on its thread
};

TEST_F(LiveAgentHost, ARelayBelowClaudeMovesItsSessionThroughEveryState) {
  ASSERT_EQ(host_->syncHookServer(), std::nullopt);
  ASSERT_TRUE(host_->isReceivingHooks());
  std::string script = "for e in UserPromptSubmit PermissionRequest Stop SessionEnd; do printf "
                       "'{\"session_id\":\"e2e\",\"hook_event_name\":\"%s\"}' $e | " +
                       testing::frontExecutable + " agent-event --provider claude --protocol 1; done; exec sleep 600";
  const pid_t claude = startAgent(script);
  ASSERT_TRUE(pumpUntil([&] { return statesOf("e2e").size() >= 4; })) << ::testing::PrintToString(statesOf("e2e"));
  EXPECT_EQ(statesOf("e2e"), (std::vector<std::string>{"Working", "Needs attention", "Waiting", "Finished"}));

  // Each live row was tied to the agent process the relay ran below.
  for (const auto& snapshot : published_) {
    for (const auto& row : snapshot.sessions) {
      ASSERT_TRUE(row.processIdentity.has_value());
      EXPECT_EQ(row.processIdentity->process.pid, claude);
      EXPECT_EQ(row.evidence, AgentEvidence::processAndProviderHook);
    }
  }
}

TEST_F(LiveAgentHost, HostileInputNeverLosesDuplicatesOrBlocks) {
  ASSERT_EQ(host_->syncHookServer(), std::nullopt);
  // A session never started, one already ended, and a provider the user did not connect.
  std::string script;
  const auto relay = [&](const std::string& provider, const std::string& session, const std::string& event) {
    script += "printf '{\"session_id\":\"" + session + "\",\"hook_event_name\":\"" + event + "\"}' | " +
              testing::frontExecutable + " agent-event --provider " + provider + " --protocol 1; ";
  };
  relay("claude", "ended", "SessionEnd");
  relay("claude", "ended", "UserPromptSubmit");
  relay("codex", "not-connected", "UserPromptSubmit");
  relay("claude", "unknown", "Stop");
  // A burst of a thousand events on ten sessions, all at once.
  script += "for i in $(seq 1 100); do for s in 0 1 2 3 4 5 6 7 8 9; do printf '{\"session_id\":\"b'$s'\","
            "\"hook_event_name\":\"UserPromptSubmit\"}' | " +
            testing::frontExecutable + " agent-event --provider claude --protocol 1 & done; wait; done; touch $HOME/sent; "
            "exec sleep 600";
  startAgent(script);
  const auto liveRows = [this] {
    std::vector<std::string> rows;
    for (const auto& row : host_->inventory().snapshot().sessions) rows.push_back(testing::describe(row.id));
    return rows;
  };
  // Every relay has exited once the marker exists; then every envelope must arrive.
  ASSERT_TRUE(pumpUntil([&] { return fs::exists(home_ + "/sent") && arrivals_ == 1004; }, 60s)) << arrivals_;
  // The last envelope is posted just after it is counted: let the executor settle.
  for (int turn = 0; turn < 20; ++turn) {
    executor_->runUntilIdle();
    std::this_thread::sleep_for(5ms);
  }
  const auto rows = liveRows();
  const std::set<std::string> unique(rows.begin(), rows.end());
  EXPECT_EQ(unique.size(), 11u) << "one row per session";
  EXPECT_TRUE(unique.contains("hook:unknown"));
  EXPECT_FALSE(unique.contains("hook:ended"));
  EXPECT_FALSE(unique.contains("hook:not-connected"));
}

}  // namespace
}  // namespace tidewatch
