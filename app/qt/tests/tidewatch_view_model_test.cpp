#include "app/qt/tidewatch_view_model.h"

#include <QAbstractItemModelTester>
#include <QSignalSpy>

#include <gtest/gtest.h>

#include <random>

#include "process_core/tests/support/temporary_directory.h"
#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

using testing::Row;
const Date t0 = Date(std::chrono::seconds(1'800'000'000));

std::vector<std::string> keys(const KeyedListModel& model) {
  std::vector<std::string> result;
  for (const auto& row : model.rows()) result.push_back(row.key);
  return result;
}

TEST(KeyedListModel, EveryUpdateIsTheRemovalsMovesAndInsertsThatMakeIt) {
  KeyedListModel model({"name", "value"});
  QAbstractItemModelTester tester(&model, QAbstractItemModelTester::FailureReportingMode::Fatal);
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    std::vector<KeyedListModel::Row> rows;
    for (int key = 0; key < 12; ++key) {
      if (random() % 3 == 0) continue;
      rows.push_back({"k" + std::to_string(key), {QString::number(key), static_cast<int>(random() % 3)}});
    }
    std::shuffle(rows.begin(), rows.end(), random);
    if (round % 50 == 49) {
      model.reset(rows);
    } else {
      model.update(rows);
    }
    ASSERT_EQ(model.rows(), rows) << round;
  }
  model.update({{"a", {1}}, {"a", {2}}});
  EXPECT_EQ(keys(model), std::vector<std::string>{"a"}) << "a repeated key keeps the first";
  EXPECT_EQ(model.data(model.index(0), Qt::UserRole + 1).toInt(), 1);
  EXPECT_EQ(model.indexOf("a"), 0);
  EXPECT_EQ(model.indexOf("b"), -1);
  EXPECT_EQ(model.roleNames().value(Qt::UserRole + 2), "value");
}

// A view model on a manual executor, whose actions run only when the test says.
class ViewModelTest : public ::testing::Test {
 protected:
  ViewModelTest() {
    TidewatchViewModel::Dependencies d;
    d.executor = executor;
    d.defaults = DefaultsStore(directory.path() + "/defaults.json");
    d.context = {4242, 1000};
    d.kill = [this](const KillRequest& request) {
      signalled.push_back("kill " + std::to_string(request.pid));
      return killAnswer;
    };
    d.forceKill = [this](const ForceKillRequest& request) {
      signalled.push_back("force " + std::to_string(request.pid));
      return KillOutcome{KillOutcome::SignaledForce{}};
    };
    d.stopPool = [this](const StopPoolRequest&) {
      signalled.push_back("pool");
      return StopPoolOutcome{StopPoolOutcome::NoActionableTarget{}};
    };
    d.stopVisible = [](const StopVisibleRequest&) { return StopVisibleOutcome{1, 0, 1, 0}; };
    d.stopAgent = [this](const StopAgentRequest& request) {
      signalled.push_back("agent " + std::to_string(request.pid));
      return StopAgentOutcome{StopAgentOutcome::Signaled{}};
    };
    d.stopAgentRequest = [this](const std::string& id, AgentKind provider, const AgentProcessIdentity& identity) {
      return agentStillThere ? std::optional(StopAgentRequest{id, std::string(displayName(provider)), identity.process.pid,
                                                              "SIGTERM", identity})
                             : std::nullopt;
    };
    d.runInBackground = [this](std::function<void()> work) { background.push_back(std::move(work)); };
    d.focusProbe = [](std::function<void()> work) { work(); };
    d.focusHostResolver = [](int32_t pid) -> std::optional<ProcessIdentity> { return ProcessIdentity{pid, 1, 0}; };
    d.focusHostActivator = [this](int32_t pid) { activated.push_back(pid); };
    d.hasRunningApplication = [](int32_t pid) { return pid == 50; };
    d.now = [] { return t0; };
    model = std::make_unique<TidewatchViewModel>(d);
    model->requestScan = [this] { ++scansAsked; };
  }

  void runBackground() {
    auto work = std::move(background);
    background.clear();
    for (auto& job : work) job();
    executor->runUntilIdle();
  }

  static ScanFrame frame(std::vector<PortListener> listeners, std::optional<FilterCategory> startingFilter = {},
                         int agents = 0) {
    ScanResult result;
    result.listeners = std::move(listeners);
    result.scannedAt = t0;
    for (int i = 0; i < agents; ++i) {
      result.agentPresence.entries.push_back({{{900 + i, 1, 0}, AgentKind::claude}, AgentKind::claude, {}, {}, t0});
    }
    return {result, ScanFrame::Trigger::initial, startingFilter, {}};
  }

  static PortListener server(int32_t pid, int port) {
    PortListener listener = Row(pid, port).path("/opt/app/server");
    listener.process.uid = 1000;
    listener.process.sameUser = true;
    listener.focusTarget = FocusTarget{50, "Terminal"};
    return listener;
  }

  static AgentInventorySnapshot inventoryWith(std::vector<std::pair<std::string, int32_t>> sessions) {
    AgentInventorySnapshot snapshot;
    for (const auto& [id, pid] : sessions) {
      AgentSessionSnapshot session;
      session.id = AgentSessionID::provider(AgentKind::claude, id);
      session.provider = AgentKind::claude;
      session.state = AgentSessionState::working;
      session.processIdentity = AgentProcessIdentity{{pid, 1, 0}, AgentKind::claude};
      session.controlSurface = AgentHostDescriptor{HostAppKind::terminal, "Terminal", {50, 1, 0}};
      snapshot.sessions.push_back(session);
    }
    return snapshot;
  }

  static QString sessionID(const std::string& id) {
    return QString::fromStdString(AgentSessionID::provider(AgentKind::claude, id).stableID());
  }

  const tidewatch::testing::TemporaryDirectory directory;
  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
  std::vector<std::function<void()>> background;
  std::vector<std::string> signalled;
  std::vector<int32_t> activated;
  KillOutcome killAnswer{KillOutcome::AlreadyExited{}};
  bool agentStillThere = true;
  int scansAsked = 0;
  std::unique_ptr<TidewatchViewModel> model;
};

TEST_F(ViewModelTest, FramesSetTheFilterAndModeOncePerOpening) {
  QAbstractItemModelTester tester(qobject_cast<QAbstractItemModel*>(model->listeners()),
                                  QAbstractItemModelTester::FailureReportingMode::Fatal);
  DefaultsStore defaults(directory.path() + "/defaults.json");
  defaults.set("display.lastUsedPanelMode", "sideways");
  defaults.set("display.defaultFilter", "lastUsed");
  defaults.set("display.rowDensity", "compact");
  model->prepareForMonitoring();
  EXPECT_EQ(model->rowDensity(), "compact");
  EXPECT_EQ(model->state(), "loading");

  // A failed first frame touches neither filter nor mode.
  model->apply({ScanError(ScanError::Code::enumerationUnavailable), ScanFrame::Trigger::initial, {}, {}});
  EXPECT_EQ(model->state(), "failed");
  EXPECT_EQ(model->stateMessage(), "Couldn\u2019t read local ports.");
  EXPECT_EQ(model->filter(), "all");

  // The inventory has a session though the scan sees no agent; a garbled remembered mode is absent.
  model->inventoryPublished(inventoryWith({{"s", 77}}));
  executor->runUntilIdle();
  model->apply(frame({server(52, 3000), server(53, 3001)}, FilterCategory::other));
  executor->runUntilIdle();  // the desktop is asked about the hosts on the probe worker
  EXPECT_EQ(model->state(), "loaded");
  EXPECT_EQ(model->filter(), "other");
  EXPECT_EQ(model->panelMode(), "agents");
  EXPECT_EQ(model->focusLabelByID().size(), 2) << "a host with a running application is offered";
  EXPECT_EQ(model->agentFocusLabelByID().value(sessionID("s")).toString(), "Terminal");

  model->selectPanelMode("ports");
  model->apply(frame({server(52, 3000)}, FilterCategory::all));
  EXPECT_EQ(model->panelMode(), "ports") << "resolved once per opening";
  EXPECT_EQ(keys(*qobject_cast<KeyedListModel*>(model->listeners())).size(), 1u);

  model->clearMonitoring();
  model->prepareForMonitoring();
  model->apply(frame({}, FilterCategory::agents, 1));
  EXPECT_EQ(model->panelMode(), "ports") << "the remembered mode, written by selectPanelMode";
}

TEST_F(ViewModelTest, ConfirmationsSignalInTheBackgroundAndLeaveTheRightNotice) {
  model->prepareForMonitoring();
  model->apply(frame({server(52, 3000)}));
  const QString row = QString::fromStdString(server(52, 3000).id());
  ASSERT_TRUE(model->offerKill(row));
  EXPECT_EQ(model->pendingConfirmation(), "kill");
  EXPECT_EQ(model->confirmation().value("button").toString(), "Kill Process");
  model->confirm();
  EXPECT_EQ(model->pendingConfirmation(), "");
  runBackground();
  EXPECT_EQ(signalled, std::vector<std::string>{"kill 52"});
  EXPECT_EQ(model->killNotice(), "") << "already exited says nothing";
  EXPECT_EQ(scansAsked, 1) << "and still rescans";

  // A kill confirmed while a pool stop is in flight: the pool's outcome never shows.
  model->confirmStopPool(StopPoolRequest{});
  killAnswer = KillOutcome{KillOutcome::IdentityChanged{}};
  ASSERT_TRUE(model->offerKill(row));
  model->confirm();
  runBackground();
  EXPECT_EQ(model->killNotice(), "That PID now belongs to a different process \u2014 nothing was signaled.");
  EXPECT_EQ(scansAsked, 2);

  // A closed panel drops whatever is in flight.
  ASSERT_TRUE(model->offerForceKill(row));
  model->confirm();
  model->clearMonitoring();
  runBackground();
  EXPECT_EQ(model->killNotice(), "");
  EXPECT_EQ(scansAsked, 2);
}

TEST_F(ViewModelTest, AgentStopsAreOfferedOnlyForTheOneSessionOfAProcess) {
  QAbstractItemModelTester tester(qobject_cast<QAbstractItemModel*>(model->agents()),
                                  QAbstractItemModelTester::FailureReportingMode::Fatal);
  model->prepareForMonitoring();
  model->inventoryPublished(inventoryWith({{"a", 70}, {"b", 70}, {"c", 71}}));
  EXPECT_EQ(qobject_cast<KeyedListModel*>(model->agents())->rowCount(), 3);
  model->requestStopAgent(sessionID("a"));
  EXPECT_EQ(model->killNotice(), "Stop is unavailable because this process backs multiple agent sessions.");
  EXPECT_TRUE(background.empty());

  model->requestStopAgent(sessionID("c"));
  runBackground();
  EXPECT_EQ(model->pendingConfirmation(), "stopAgent");
  // A second session came onto the process while the confirmation was open.
  const auto request = *model->pending().stopAgent;
  model->inventoryPublished(inventoryWith({{"c", 71}, {"d", 71}}));
  model->confirmStopAgent(request);
  EXPECT_EQ(model->killNotice(),
            "Stop is unavailable because this process now backs multiple agent sessions. Nothing was signaled.");
  EXPECT_TRUE(signalled.empty());

  agentStillThere = false;
  model->inventoryPublished(inventoryWith({{"c", 71}}));
  model->requestStopAgent(sessionID("c"));
  runBackground();
  EXPECT_EQ(model->killNotice(), "That agent changed or stopped before Tidewatch could verify it. Nothing was signaled.");
  EXPECT_EQ(scansAsked, 1);

  model->focusAgentHost(sessionID("c"));
  executor->runUntilIdle();
  EXPECT_EQ(activated, std::vector<int32_t>{50});
  model->viewProviderPorts(sessionID("c"));
  EXPECT_EQ(model->filter(), "claude");
  EXPECT_EQ(model->panelMode(), "ports");
}

TEST_F(ViewModelTest, ChoicesRebuildTheRowsAndScopeFollowsItsAgent) {
  auto* rows = qobject_cast<KeyedListModel*>(model->listeners());
  QAbstractItemModelTester tester(rows, QAbstractItemModelTester::FailureReportingMode::Fatal);
  PortListener hidden = server(54, 53);
  hidden.visibility = VisibilityClass::hiddenSystemBackground;
  PortListener agentOwned = server(55, 5173);
  agentOwned.agentProcess = AgentProcessIdentity{{70, 1, 0}, AgentKind::codex};
  agentOwned.agentOrigin = AgentKind::codex;
  PortListener pool = Row(56, 8000).path("/opt/web/worker").pool(3);
  pool.process.uid = 1000;
  pool.process.sameUser = true;
  pool.parentIdentity = ProcessIdentity{51, 1, 0};
  model->prepareForMonitoring();
  model->apply(frame({server(52, 3000), hidden, agentOwned, pool}));
  EXPECT_EQ(rows->rowCount(), 3);

  QSignalSpy sortChanged(model.get(), &TidewatchViewModel::sortModeChanged);
  model->setSortMode("memory");
  model->setSortMode("sideways");  // not a mode: ignored
  EXPECT_EQ(sortChanged.count(), 1);
  EXPECT_EQ(model->sortMode(), "memory");
  model->setShowSystem(true);
  EXPECT_EQ(rows->rowCount(), 4) << "hidden rows on request";
  model->setSearchText("5173");
  EXPECT_EQ(keys(*rows), std::vector<std::string>{agentOwned.id()});
  model->setSearchText("");

  // The pool offers its own stop, the list its visible stop; cancel forgets either.
  EXPECT_FALSE(model->offerKill(QString::fromStdString(pool.id())));
  ASSERT_TRUE(model->offerStopPool(QString::fromStdString(pool.id())));
  EXPECT_EQ(model->pendingConfirmation(), "stopPool");
  ASSERT_TRUE(model->offerStopVisible());
  EXPECT_EQ(model->pendingConfirmation(), "stopVisible");
  model->cancelConfirmation();
  EXPECT_EQ(model->pendingConfirmation(), "");
  EXPECT_TRUE(model->confirmation().isEmpty());

  // An agent's scope shows its process's ports and follows a re-attribution of its provider.
  auto inventory = inventoryWith({{"s", 70}});
  inventory.sessions[0].processIdentity = agentOwned.agentProcess;
  model->inventoryPublished(inventory);
  model->scopeToAgent(sessionID("s"));
  EXPECT_EQ(keys(*rows), std::vector<std::string>{agentOwned.id()});
  agentOwned.agentOrigin = AgentKind::claude;
  model->apply(frame({agentOwned}));
  EXPECT_EQ(model->exactAgentScope(), QString::fromStdString(agentOwned.agentProcess->stableID()));
  model->apply(frame({server(52, 3000)}));
  EXPECT_EQ(rows->rowCount(), 0) << "the scope stays when the agent is gone";
  model->clearAgentScope();
  EXPECT_EQ(rows->rowCount(), 1);

  model->setAgentFilter("codex");
  EXPECT_EQ(model->agentFilter(), "codex");
  EXPECT_EQ(qobject_cast<KeyedListModel*>(model->agents())->rowCount(), 0) << "the session is Claude's";
  model->setExpandedAgentSessionID(sessionID("s"));
  model->selectPanelMode("ports");
  EXPECT_EQ(model->expandedAgentSessionID(), "") << "leaving the agents closes the expanded row";

  model->focusHost(QString::fromStdString(server(52, 3000).id()));
  executor->runUntilIdle();
  EXPECT_EQ(activated, std::vector<int32_t>{50});
  EXPECT_EQ(model->displayFields().value("port").toBool(), true);
}

}  // namespace
}  // namespace tidewatch
