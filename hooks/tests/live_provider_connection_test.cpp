// Connect writes a hook; the provider's shell runs that very line; the envelope reaches a real
// server and the store calls the provider connected.
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>

#include "hooks/agent_hook_relay.h"
#include "hooks/agent_provider_connection_store.h"
#include "hooks/tests/settings_file_support.h"

namespace tidewatch {
namespace {

using AgentHookProtocol::EventKind;
using json = nlohmann::json;

const std::string frontExecutable = std::string(TIDEWATCH_BINARY_DIR) + "/app/tidewatch";

// Runs `/bin/sh -c <line>` with HOME set and the input on standard input; the exit status.
int runShell(const std::string& line, const std::string& input, const std::string& home) {
  ::signal(SIGPIPE, SIG_IGN);
  int in[2];
  if (::pipe2(in, O_CLOEXEC) != 0) return -1;
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(in[0], STDIN_FILENO);
    ::setenv("HOME", home.c_str(), 1);
    ::execl("/bin/sh", "sh", "-c", line.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::close(in[0]);
  (void)!::write(in[1], input.data(), input.size());
  ::close(in[1]);
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

TEST(LiveProviderConnection, TheWrittenHookLineReachesTheServer) {
  ASSERT_EQ(::access(frontExecutable.c_str(), X_OK), 0) << "build the target tidewatch first";
  testing::ScratchDirectory scratch;
  const std::string home = scratch.path() + "/home";
  ASSERT_EQ(::mkdir(home.c_str(), 0700), 0);
  const AgentHookPaths paths = AgentHookPathsLive::standard(home);
  if (paths.runtimeDirectory.rfind(home, 0) != 0) {
    // The relay would find the login session's directory, where a running application may listen.
    GTEST_SKIP() << "this user has a session runtime directory";
  }
  testing::Deliveries deliveries;
  AgentHookSocketServer server(paths, AgentHookSocketServer::Dependencies::live(), deliveries.handler());
  ASSERT_EQ(server.start(), std::nullopt);

  const auto installation = AgentHookInstallation::linuxInstalled(frontExecutable);
  AgentProviderConnectionStore store(AgentProviderConnectionStore::Environment{
      .homeDirectory = home,
      .bundlePath = installation.installedLocation,
      .defaults = DefaultsStore(scratch.path() + "/config/defaults.json"),
      .now = [] { return Date(std::chrono::seconds(1)); },
      .installation = installation,
      .hookPaths = AgentHookPathsLive::profile(home),
      .files = AgentHookConfigurator::FileOperations::live(),
      .sendInBackground =
          [](std::string bytes, std::string socketPath, double timeout, std::function<void(bool)> done) {
            done(AgentHookRelay::send(bytes, socketPath, timeout));
          },
  });
  store.connect(AgentKind::claude);
  ASSERT_EQ(store.actionNotice(), std::nullopt);
  ASSERT_EQ(store.connection(AgentKind::claude).status.kind,
            AgentProviderConnectionStatus::Kind::configuredAwaitingFirstEvent);

  // The Stop hook and the idle notification, exactly as written in the file.
  const json settings = json::parse(testing::readBytes(home + "/.claude/settings.json"));
  const std::string stopLine = settings["hooks"]["Stop"][0]["hooks"][0]["command"];
  const std::string idleLine = settings["hooks"]["Notification"][2]["hooks"][0]["command"];
  EXPECT_EQ(runShell(stopLine, R"({"session_id":"live-7","hook_event_name":"Stop","prompt":"never sent"})", home), 0);
  EXPECT_EQ(runShell(idleLine, R"({"session_id":"live-7","hook_event_name":"Notification"})", home), 0);
  const auto envelopes = deliveries.waitFor(2);
  ASSERT_EQ(envelopes.size(), 2u);
  EXPECT_EQ(envelopes[0].event, EventKind::turnEnded);
  EXPECT_EQ(envelopes[0].sessionID, "live-7");
  EXPECT_EQ(envelopes[1].event, EventKind::idleNotification);

  store.recordEnvelope(envelopes[0], Date(std::chrono::seconds(50)));
  EXPECT_EQ(store.connection(AgentKind::claude).status,
            AgentProviderConnectionStatus::connected(Date(std::chrono::seconds(50))));

  // The relay test goes through the same socket; with the server gone it fails at once.
  store.testRelay(AgentKind::claude);
  EXPECT_EQ(deliveries.waitFor(3).back().event, EventKind::connectionTest);
  EXPECT_EQ(store.lastTestResult(), std::nullopt);
  server.stop();
  store.testRelay(AgentKind::claude);
  ASSERT_TRUE(store.lastTestResult().has_value());
  EXPECT_FALSE(store.lastTestResult()->succeeded);
  // With the socket gone the guard spares the relay; the hook still exits 0.
  EXPECT_EQ(runShell(stopLine, "{}", home), 0);
}

}  // namespace
}  // namespace tidewatch
