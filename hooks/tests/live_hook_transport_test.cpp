// The relay as a process of its own piping into a real server, as a provider's hook runs it.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "hooks/agent_hook_relay.h"
#include "hooks/tests/hook_test_support.h"

namespace tidewatch {
namespace {

using AgentHookProtocol::EventKind;

const std::string frontExecutable = std::string(TIDEWATCH_BINARY_DIR) + "/app/tidewatch";

struct RelayRun {
  int status = -1;
  std::string output;  // standard output and standard error together
};

// Runs `tidewatch agent-event <arguments>` with HOME set and the input on standard input, which
// stays open while the relay runs when keepInputOpen is set.
RelayRun runRelay(const std::vector<std::string>& arguments, const std::string& input, const std::string& home,
                  bool keepInputOpen = false) {
  ::signal(SIGPIPE, SIG_IGN);
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return {};
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(out[1], STDERR_FILENO);
    ::setenv("HOME", home.c_str(), 1);
    std::vector<char*> argv{const_cast<char*>("tidewatch"), const_cast<char*>("agent-event")};
    for (const auto& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ::execv(frontExecutable.c_str(), argv.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  (void)!::write(in[1], input.data(), input.size());
  if (!keepInputOpen) ::close(in[1]);
  RelayRun run;
  for (char buffer[4096]; const ssize_t n = ::read(out[0], buffer, sizeof buffer);) {
    if (n < 0) break;
    run.output.append(buffer, static_cast<size_t>(n));
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  ::close(out[0]);
  if (keepInputOpen) ::close(in[1]);
  return run;
}

class LiveTransport : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::access(frontExecutable.c_str(), X_OK), 0) << "build the target tidewatch first";
    home_ = scratch_.path() + "/home";
    ASSERT_EQ(::mkdir(home_.c_str(), 0700), 0);
    paths_ = AgentHookPathsLive::standard(home_);
    if (paths_.runtimeDirectory.rfind(home_, 0) != 0) {
      // The relay would find the login session's directory, where a running application may listen.
      GTEST_SKIP() << "this user has a session runtime directory";
    }
    project_ = home_ + "/code/harbour";
    std::filesystem::create_directories(project_ + "/.git");
    std::filesystem::create_directories(project_ + "/src");
  }

  std::unique_ptr<AgentHookSocketServer> startServer() {
    auto server = std::make_unique<AgentHookSocketServer>(paths_, AgentHookSocketServer::Dependencies::live(),
                                                          deliveries_.handler());
    EXPECT_EQ(server->start(), std::nullopt);
    return server;
  }

  testing::ScratchDirectory scratch_;
  std::string home_, project_;
  AgentHookPaths paths_;
  testing::Deliveries deliveries_;
};

const std::vector<std::string> claude{"--provider", "claude", "--protocol", "1"};

TEST_F(LiveTransport, RelayProcessDeliversOneEnvelope) {
  const auto server = startServer();
  const auto run = runRelay(claude,
                            R"({"session_id":"live-1","hook_event_name":"UserPromptSubmit","cwd":")" + project_ +
                                R"(/src","prompt":"never sent"})",
                            home_);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output, "");
  const auto envelopes = deliveries_.waitFor(1);
  ASSERT_EQ(envelopes.size(), 1u);
  EXPECT_EQ(envelopes[0], (AgentHookProtocol::Envelope{1, AgentKind::claude, EventKind::promptSubmitted, "live-1",
                                                       "harbour", static_cast<int32_t>(::getpid())}));

  // A connection test never waits for its input.
  auto test = claude;
  test.push_back("--test");
  EXPECT_EQ(runRelay(test, "", home_, /*keepInputOpen=*/true).status, 0);
  EXPECT_EQ(deliveries_.waitFor(2).back().event, EventKind::connectionTest);
}

TEST_F(LiveTransport, RelayProcessStaysQuietWhateverHappens) {
  const std::string stop = R"({"session_id":"s","hook_event_name":"Stop"})";
  // No socket at all.
  EXPECT_EQ(runRelay(claude, stop, home_).status, 0);
  // A socket file nobody listens on: connect is refused at once.
  std::filesystem::create_directories(paths_.runtimeDirectory);
  const int bound = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, paths_.socketPath.data(), paths_.socketPath.size());
  ASSERT_EQ(::bind(bound, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  const auto refused = runRelay(claude, stop, home_);
  ::close(bound);
  // With a listener, garbage and an unknown option (whose input stays open) send nothing.
  const auto server = startServer();
  const auto garbage = runRelay(claude, "\x01{\"session_id\":", home_);
  auto unknown = claude;
  unknown.push_back("--verbose");
  const auto unknownRun = runRelay(unknown, stop, home_, /*keepInputOpen=*/true);
  for (const auto& run : {refused, garbage, unknownRun}) {
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.output, "");
  }
  // Only a good event after them arrives.
  EXPECT_EQ(runRelay(claude, R"({"session_id":"after","hook_event_name":"Stop"})", home_).status, 0);
  const auto envelopes = deliveries_.waitFor(1);
  ASSERT_EQ(envelopes.size(), 1u);
  EXPECT_EQ(envelopes[0].sessionID, "after");
}

}  // namespace
}  // namespace tidewatch
