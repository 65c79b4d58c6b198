// The connection store over real settings files in a scratch home, with its clock and the relay
// test's send injected.
#include "hooks/agent_provider_connection_store.h"

#include <gmock/gmock.h>

#include "hooks/tests/hook_test_support.h"

namespace tidewatch {
namespace {

using Status = AgentProviderConnectionStatus;
using Store = AgentProviderConnectionStore;
using AgentHookProtocol::Envelope;
using AgentHookProtocol::EventKind;
using json = nlohmann::json;

constexpr Date at(long seconds) { return Date(std::chrono::seconds(seconds)); }

const std::string missingClaude =
    "Tidewatch's entries are missing from the Claude settings — Repair reinstalls them, or Disconnect to stop "
    "listening.";
const std::string invalidClaude =
    "The Claude settings file contains invalid JSON. Tidewatch won't overwrite it — fix the file, then retry.";

class ConnectionStore : public ::testing::Test {
 protected:
  // Running from the installed place unless told otherwise.
  std::unique_ptr<Store> makeStore(
      AgentHookInstallation installation = AgentHookInstallation::linuxInstalled("/usr/local/bin/tidewatch"),
      std::optional<std::string> bundlePath = {}) {
    auto store = std::make_unique<Store>(Store::Environment{
        .homeDirectory = home,
        .bundlePath = bundlePath.value_or(installation.installedLocation),
        .defaults = DefaultsStore(scratch.path() + "/config/tidewatch/defaults.json"),
        .now = [this] { return now; },
        .installation = std::move(installation),
        .hookPaths = AgentHookPaths::linuxProfile(home, 1000, false),
        .files = AgentHookConfigurator::FileOperations::live(),
        .sendInBackground =
            [this](std::string bytes, std::string socketPath, double timeout, std::function<void(bool)> done) {
              sent.push_back({std::move(bytes), std::move(socketPath), timeout});
              pendingReports.push_back(std::move(done));
            },
    });
    store->onConfiguredChange = [this] { ++configuredChanges; };
    return store;
  }
  Status::Kind kindOf(Store& store, AgentKind provider) { return store.connection(provider).status.kind; }
  std::string claudePath() const { return Store::settingsPath(AgentKind::claude, home); }
  std::string socket() const { return home + "/.local/state/tidewatch/runtime/agent-events.sock"; }

  struct Sent {
    std::string bytes, socketPath;
    double timeout;
  };
  testing::ScratchDirectory scratch;
  std::string home = scratch.path() + "/home";
  Date now = at(1000);
  std::vector<Sent> sent;
  std::vector<std::function<void(bool)>> pendingReports;
  int configuredChanges = 0;
};

TEST_F(ConnectionStore, StatusFollowsKeyEntriesEventsAndDisconnect) {
  auto store = makeStore();
  EXPECT_EQ(store->connection(AgentKind::codex),
            (AgentProviderConnection{AgentKind::codex, Status::of(Status::Kind::notConfigured), false}));
  store->refresh();
  EXPECT_EQ(store->connections().size(), 2u);
  EXPECT_EQ(kindOf(*store, AgentKind::claude), Status::Kind::notConfigured);

  store->connect(AgentKind::claude);
  store->connect(AgentKind::codex);
  EXPECT_EQ(store->actionNotice(), std::nullopt);
  EXPECT_EQ(configuredChanges, 2);
  EXPECT_TRUE(store->isConfigured(AgentKind::claude));
  EXPECT_EQ(store->connection(AgentKind::claude),
            (AgentProviderConnection{AgentKind::claude, Status::of(Status::Kind::configuredAwaitingFirstEvent), true}));
  EXPECT_EQ(kindOf(*store, AgentKind::codex), Status::Kind::configuredAwaitingTrust);

  store->recordEnvelope(Envelope{1, AgentKind::codex, EventKind::turnEnded, "s", {}, 42}, at(2000));
  EXPECT_EQ(store->connection(AgentKind::codex).status, Status::connected(at(2000)));
  // Disconnect takes the entries out; connected again, the earlier event is forgotten.
  store->disconnect(AgentKind::codex);
  EXPECT_EQ(store->actionNotice(), std::nullopt);
  EXPECT_EQ(json::parse(testing::readBytes(home + "/.codex/hooks.json")), (json{{"hooks", json::object()}}));
  store->connect(AgentKind::codex);
  EXPECT_EQ(kindOf(*store, AgentKind::codex), Status::Kind::configuredAwaitingTrust);

  // Entries that went missing, or one that went stale, need a repair; a broken file is unavailable.
  json stale = json::parse(testing::readBytes(claudePath()));
  stale["hooks"]["Stop"][0]["hooks"][0]["command"] =
      AgentHookCommand::commandLine("/usr/local/bin/tidewatch", socket(), AgentKind::claude, "idle_prompt");
  for (const auto& [bytes, status] : std::vector<std::pair<std::string, Status>>{
           {R"({"hooks": {"Stop": [{"hooks": [{"command": "say done"}]}]}})", Status::repairNeeded(missingClaude)},
           {stale.dump(), Status::repairNeeded(
                              "The installed entries are out of date — Repair updates only Tidewatch's own hooks.")},
           {"", Status::unavailable(invalidClaude)}}) {
    testing::writeBytes(claudePath(), bytes);
    store->refresh();
    EXPECT_EQ(store->connection(AgentKind::claude).status, status) << bytes;
  }
}

TEST_F(ConnectionStore, OutsideTheInstalledPlaceNothingIsAvailableButTheKeyStays) {
  auto first = makeStore();
  first->connect(AgentKind::claude);
  auto store = makeStore(AgentHookInstallation::linuxInstalled("/usr/local/bin/tidewatch"), "/home/u/build/tidewatch");
  store->refresh();
  const auto claude = store->connection(AgentKind::claude);
  EXPECT_EQ(claude.status, Status::unavailable("Tidewatch must run from /usr/local/bin to receive agent events."));
  EXPECT_TRUE(claude.locallyEnabled);
  EXPECT_EQ(store->connectBlockedNotice(), "Move Tidewatch to /usr/local/bin, then connect.");
  EXPECT_THAT(store->actions(store->connection(AgentKind::codex)), ::testing::ElementsAre(Store::Action::connect));

  auto darwin = makeStore(AgentHookInstallation::darwin(), "/Users/u/Downloads/Tidewatch.app");
  darwin->refresh();
  EXPECT_EQ(darwin->connection(AgentKind::codex).status,
            Status::unavailable("Tidewatch must run from /Applications to receive agent events."));
  EXPECT_EQ(darwin->connectBlockedNotice(), "Move Tidewatch to /Applications, then connect.");
  EXPECT_EQ(makeStore(AgentHookInstallation::darwin())->connectBlockedNotice(), std::nullopt);
}

TEST_F(ConnectionStore, ConnectReplacesOldEntriesKeepsTheUsersAndIsIdempotent) {
  std::filesystem::create_directories(home + "/.claude");
  const auto stopGroup = [](const std::string& command) {
    return json{{"hooks", json::array({json{{"type", "command"}, {"command", command}}})}};
  };
  const auto commandFor = [](const std::string& socketPath) {
    return AgentHookCommand::commandLine("/usr/local/bin/tidewatch", socketPath, AgentKind::claude, {});
  };
  const json old = stopGroup(commandFor("/run/user/1000/tidewatch/agent-events.sock"));
  testing::writeBytes(claudePath(), json{{"hooks", {{"Stop", {stopGroup("say done"), old}}}}}.dump());
  auto store = makeStore();
  store->connect(AgentKind::claude);
  const std::string once = testing::readBytes(claudePath());
  EXPECT_EQ(json::parse(once)["hooks"]["Stop"], (json{stopGroup("say done"), stopGroup(commandFor(socket()))}));
  store->connect(AgentKind::claude);
  EXPECT_EQ(testing::readBytes(claudePath()), once);
}

TEST_F(ConnectionStore, FailedActionsExplainThemselves) {
  std::filesystem::create_directories(home + "/.claude");
  testing::writeBytes(claudePath(), "{not json");
  auto store = makeStore();
  store->connect(AgentKind::claude);
  EXPECT_EQ(store->actionNotice(), invalidClaude);
  EXPECT_FALSE(store->isConfigured(AgentKind::claude));
  EXPECT_EQ(testing::readBytes(claudePath()), "{not json");

  // Disconnect holds locally even when the file cannot be cleaned.
  DefaultsStore(store->environment().defaults.path()).set(std::string(Store::claudeConfiguredKey), true);
  store->disconnect(AgentKind::claude);
  EXPECT_FALSE(store->isConfigured(AgentKind::claude));
  EXPECT_EQ(kindOf(*store, AgentKind::claude), Status::Kind::notConfigured);
  EXPECT_EQ(store->actionNotice(),
            "Disconnected locally, but Tidewatch's entries may remain in the Claude settings: " + invalidClaude);
  // Without a file, there is nothing to clean and nothing to say.
  store->disconnect(AgentKind::codex);
  EXPECT_EQ(store->actionNotice(), std::nullopt);
  EXPECT_FALSE(std::filesystem::exists(home + "/.codex"));

  using Error = AgentHookConfigurator::ConfigError;
  const std::vector<std::pair<Error, std::string>> notices = {
      {Error::of(Error::Kind::fileIsSymlink),
       "The Codex settings file is a symlink — Tidewatch only edits regular files."},
      {Error::of(Error::Kind::notARegularFile), "The Codex settings path isn't a regular file."},
      {Error::of(Error::Kind::notOwnedByCurrentUser),
       "The Codex settings file isn't owned by you — fix its ownership, then retry."},
      {Error::of(Error::Kind::concurrentModification),
       "The Codex settings file changed while Tidewatch was updating it. Nothing was written — retry."},
      {Error::unwritable("could not create temporary file"),
       "Couldn't update the Codex configuration: could not create temporary file"},
  };
  for (const auto& [error, notice] : notices) EXPECT_EQ(Store::failureNotice(error, AgentKind::codex), notice);
}

TEST_F(ConnectionStore, RelayTestRecordsFailureAtOnceAndSuccessOnlyWhenTheEnvelopeArrives) {
  auto store = makeStore();
  store->connect(AgentKind::claude);
  store->testRelay(AgentKind::claude);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].socketPath, socket());
  EXPECT_EQ(sent[0].timeout, 0.5);
  EXPECT_EQ(AgentHookProtocol::decodeEnvelope(sent[0].bytes),
            (Envelope{1, AgentKind::claude, EventKind::connectionTest, "tidewatch-connection-test", {}, 0}));

  now = at(3000);
  pendingReports[0](true);  // a send that went out records nothing by itself
  EXPECT_EQ(store->lastTestResult(), std::nullopt);
  store->recordEnvelope(*AgentHookProtocol::decodeEnvelope(sent[0].bytes), at(3001));
  EXPECT_EQ(store->lastTestResult(), (Store::TestResult{AgentKind::claude, true, at(3001)}));
  EXPECT_EQ(kindOf(*store, AgentKind::claude), Status::Kind::configuredAwaitingFirstEvent);  // no event recorded
  EXPECT_EQ(store->testResultLine(AgentKind::claude), "Relay test passed — the socket and app are reachable.");
  EXPECT_EQ(store->testResultLine(AgentKind::codex), std::nullopt);

  store->testRelay(AgentKind::claude);
  pendingReports[1](false);
  EXPECT_EQ(store->lastTestResult(), (Store::TestResult{AgentKind::claude, false, at(3000)}));
  EXPECT_EQ(store->testResultLine(AgentKind::claude), "Relay test failed — Tidewatch's socket isn't reachable.");

  // A report that comes back after the store is gone does nothing.
  store->testRelay(AgentKind::codex);
  store.reset();
  pendingReports[2](false);
}

TEST_F(ConnectionStore, TheSettingsCardSpeaksTheStatus) {
  auto store = makeStore();
  const auto words = [&](AgentKind provider, Status status, bool enabled) {
    const AgentProviderConnection connection{provider, std::move(status), enabled};
    std::vector<std::string_view> actions;
    for (auto action : store->actions(connection)) actions.push_back(Store::word(action));
    return std::pair{store->caption(connection, [](Date) { return std::string("10:42"); }), actions};
  };
  using Words = std::pair<std::string, std::vector<std::string_view>>;
  EXPECT_EQ(words(AgentKind::codex, Status::of(Status::Kind::notConfigured), false),
            (Words{"Not connected. Connect installs Tidewatch's event hooks in your ~/.codex settings.", {"Connect"}}));
  EXPECT_EQ(words(AgentKind::claude, Status::of(Status::Kind::notConfigured), false).first,
            "Not connected. Connect installs Tidewatch's event hooks in your ~/.claude settings.");
  EXPECT_EQ(words(AgentKind::codex, Status::of(Status::Kind::configuredAwaitingTrust), true),
            (Words{"Installed — approve Tidewatch's hooks in Codex's hook-trust prompt to finish connecting.",
                   {"Test relay", "Disconnect"}}));
  EXPECT_EQ(words(AgentKind::claude, Status::of(Status::Kind::configuredAwaitingFirstEvent), true).first,
            "Claude is configured and waiting for its first trusted event.");
  EXPECT_EQ(words(AgentKind::claude, Status::connected(at(1)), true).first, "Connected · last event at 10:42");
  EXPECT_EQ(words(AgentKind::claude, Status::repairNeeded(missingClaude), true),
            (Words{missingClaude, {"Repair", "Test relay", "Disconnect"}}));
  EXPECT_EQ(words(AgentKind::claude, Status::unavailable(invalidClaude), true),
            (Words{invalidClaude, {"Test relay", "Disconnect"}}));

  EXPECT_EQ(store->receiverFailureLine(), std::nullopt);
  store->setReceiverFailure("The local event endpoint couldn't start.");
  EXPECT_EQ(store->receiverFailureLine(),
            "Configured, but not receiving events — The local event endpoint couldn't start.");
  EXPECT_EQ(Store::word(Store::Action::retry), "Retry");
}

}  // namespace
}  // namespace tidewatch
