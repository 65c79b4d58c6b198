// Connect writes a hook; the provider's shell runs that very line; the envelope reaches a real
// server and the store calls the provider connected.
#include "hooks/agent_hook_relay.h"
#include "hooks/agent_provider_connection_store.h"
#include "hooks/tests/hook_test_support.h"

namespace tidewatch {
namespace {

using AgentHookProtocol::EventKind;
using Status = AgentProviderConnectionStatus;

class LiveProviderConnection : public testing::LiveHome {};

TEST_F(LiveProviderConnection, TheWrittenHookLineReachesTheServer) {
  const auto server = startServer();
  const auto installation = AgentHookInstallation::linuxInstalled(testing::frontExecutable);
  AgentProviderConnectionStore store(AgentProviderConnectionStore::Environment{
      .homeDirectory = home_,
      .bundlePath = installation.installedLocation,
      .defaults = DefaultsStore(scratch_.path() + "/config/defaults.json"),
      .now = [] { return Date(std::chrono::seconds(1)); },
      .installation = installation,
      .hookPaths = AgentHookPathsLive::profile(home_),
      .files = AgentHookConfigurator::FileOperations::live(),
      .sendInBackground =
          [](std::string bytes, std::string socketPath, double timeout, std::function<void(bool)> done) {
            done(AgentHookRelay::send(bytes, socketPath, timeout));
          },
  });
  store.connect(AgentKind::claude);
  ASSERT_EQ(store.actionNotice(), std::nullopt);
  ASSERT_EQ(store.connection(AgentKind::claude).status.kind, Status::Kind::configuredAwaitingFirstEvent);

  // The Stop hook and the idle notification, exactly as written in the file, run by the shell.
  const auto settings = nlohmann::json::parse(testing::readBytes(home_ + "/.claude/settings.json"));
  const std::string stopLine = settings["hooks"]["Stop"][0]["hooks"][0]["command"];
  const std::string idleLine = settings["hooks"]["Notification"][2]["hooks"][0]["command"];
  const auto shell = [&](const std::string& line, const std::string& input) {
    return testing::runChild({"/bin/sh", "-c", line}, input, home_).status;
  };
  EXPECT_EQ(shell(stopLine, R"({"session_id":"live-7","hook_event_name":"Stop","prompt":"never sent"})"), 0);
  EXPECT_EQ(shell(idleLine, R"({"session_id":"live-7","hook_event_name":"Notification"})"), 0);
  const auto envelopes = deliveries_.waitFor(2);
  ASSERT_EQ(envelopes.size(), 2u);
  EXPECT_EQ(envelopes[0].event, EventKind::turnEnded);
  EXPECT_EQ(envelopes[0].sessionID, "live-7");
  EXPECT_EQ(envelopes[1].event, EventKind::idleNotification);

  store.recordEnvelope(envelopes[0], Date(std::chrono::seconds(50)));
  EXPECT_EQ(store.connection(AgentKind::claude).status, Status::connected(Date(std::chrono::seconds(50))));

  // The relay test goes through the same socket; with the server gone it fails at once.
  store.testRelay(AgentKind::claude);
  EXPECT_EQ(deliveries_.waitFor(3).back().event, EventKind::connectionTest);
  EXPECT_EQ(store.lastTestResult(), std::nullopt);
  server->stop();
  store.testRelay(AgentKind::claude);
  ASSERT_TRUE(store.lastTestResult().has_value());
  EXPECT_FALSE(store.lastTestResult()->succeeded);
  // With the socket gone the guard spares the relay; the hook still exits 0.
  EXPECT_EQ(shell(stopLine, "{}"), 0);
}

}  // namespace
}  // namespace tidewatch
