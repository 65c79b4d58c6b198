// The relay as a process of its own piping into a real server, as a provider's hook runs it.
#include <spawn.h>

#include <set>

#include "hooks/agent_hook_relay.h"
#include "hooks/tests/hook_test_support.h"

namespace tidewatch {
namespace {

using AgentHookProtocol::EventKind;

class LiveTransport : public testing::LiveHome {
 protected:
  // `tidewatch agent-event --provider claude --protocol 1 <more>`.
  testing::ChildRun relay(const std::string& input, std::vector<std::string> more = {}, bool keepInputOpen = false) {
    std::vector<std::string> argv{testing::frontExecutable, "agent-event", "--provider", "claude", "--protocol", "1"};
    argv.insert(argv.end(), more.begin(), more.end());
    return testing::runChild(argv, input, home_, keepInputOpen);
  }
};

TEST_F(LiveTransport, RelayProcessDeliversOneEnvelope) {
  std::filesystem::create_directories(home_ + "/code/harbour/.git");
  const auto server = startServer();
  const auto run = relay(R"({"session_id":"live-1","hook_event_name":"UserPromptSubmit","cwd":")" + home_ +
                         R"(/code/harbour/src","prompt":"never sent"})");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "");
  const auto envelopes = deliveries_.waitFor(1);
  ASSERT_EQ(envelopes.size(), 1u);
  EXPECT_EQ(envelopes[0], (AgentHookProtocol::Envelope{1, AgentKind::claude, EventKind::promptSubmitted, "live-1",
                                                       "harbour", static_cast<int32_t>(::getpid())}));

  // A connection test never waits for its input.
  EXPECT_EQ(relay("", {"--test"}, /*keepInputOpen=*/true).status, 0);
  EXPECT_EQ(deliveries_.waitFor(2).back().event, EventKind::connectionTest);
}

TEST_F(LiveTransport, RelayProcessStaysQuietWhateverHappens) {
  const std::string stop = R"({"session_id":"s","hook_event_name":"Stop"})";
  // No socket at all.
  EXPECT_EQ(relay(stop).status, 0);
  // A socket file nobody listens on: connect is refused at once.
  std::filesystem::create_directories(paths_.runtimeDirectory);
  const int bound = ::socket(AF_UNIX, SOCK_STREAM, 0);
  const sockaddr_un address = testing::addressOf(paths_.socketPath);
  ASSERT_EQ(::bind(bound, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const auto refused = relay(stop);
  ::close(bound);
  // With a listener, garbage and an unknown option (whose input stays open) send nothing.
  const auto server = startServer();
  for (const auto& run : {refused, relay("\x01{\"session_id\":"), relay(stop, {"--verbose"}, true)}) {
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "");
  }
  // Only a good event after them arrives.
  EXPECT_EQ(relay(R"({"session_id":"after","hook_event_name":"Stop"})").status, 0);
  const auto envelopes = deliveries_.waitFor(1);
  ASSERT_EQ(envelopes.size(), 1u);
  EXPECT_EQ(envelopes[0].sessionID, "after");
}

TEST_F(LiveTransport, ABurstOfTwoHundredRelaysDeliversEveryEvent) {
#if defined(__SANITIZE_ADDRESS__)
  // Each instrumented relay costs tens of milliseconds of CPU to start; two hundred of them on a
  // few cores outlast the relay's half-second budget, which is the loss the budget allows.
  GTEST_SKIP() << "a burst of instrumented processes exceeds the relay's time budget";
#endif
  const auto server = startServer();
  // Every relay waits on its standard input; closing all inputs at once lets them loose together,
  // far more than the listen backlog holds.
  const std::string home = "HOME=" + home_;
  std::vector<char*> environment{const_cast<char*>(home.c_str()), nullptr};
  std::vector<std::string> argv{testing::frontExecutable, "agent-event", "--provider", "claude", "--protocol", "1"};
  std::vector<char*> arguments;
  for (auto& argument : argv) arguments.push_back(argument.data());
  arguments.push_back(nullptr);
  std::vector<std::pair<pid_t, int>> relays;
  for (int i = 0; i < 200; ++i) {
    int input[2];
    ASSERT_EQ(::pipe2(input, O_CLOEXEC), 0);
    const std::string document = R"({"session_id":"burst-)" + std::to_string(i) + R"(","hook_event_name":"Stop"})";
    ASSERT_EQ(::write(input[1], document.data(), document.size()), static_cast<ssize_t>(document.size()));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    pid_t child = -1;
    ASSERT_EQ(::posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environment.data()), 0);
    posix_spawn_file_actions_destroy(&actions);
    ::close(input[0]);
    relays.emplace_back(child, input[1]);
  }
  for (const auto& relay : relays) ::close(relay.second);
  for (const auto& relay : relays) {
    int status = -1;
    ASSERT_EQ(::waitpid(relay.first, &status, 0), relay.first);
    EXPECT_EQ(status, 0);
  }
  std::set<std::string> sessions;
  for (const auto& envelope : deliveries_.waitFor(200)) sessions.insert(envelope.sessionID);
  EXPECT_EQ(sessions.size(), 200u);
}

}  // namespace
}  // namespace tidewatch
