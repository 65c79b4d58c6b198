#include "tidewatch_kit/panel_scan_lifecycle.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "process_core/manual_session_clock.h"
#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;
using testing::Row;

const Date t0 = Date(std::chrono::seconds(1'800'000'000));

AgentProcessIdentity agentProcess(int32_t pid, AgentKind kind) { return {{pid, 1, 0}, kind}; }

PortListener attributed(int32_t pid, int port, AgentProcessIdentity process, AgentKind origin) {
  PortListener listener = Row(pid, port);
  listener.agentProcess = process;
  listener.agentOrigin = origin;
  return listener;
}

AgentProcessPresence presence(AgentProcessIdentity identity, std::optional<HostAppKind> host = std::nullopt) {
  std::optional<HostAppOccurrence> occurrence;
  if (host) occurrence = HostAppOccurrence{*host, {7, 1, 0}, std::string(displayName(*host))};
  return {identity, identity.kind, occurrence, std::nullopt, t0};
}

ScanResult scanOf(std::vector<PortListener> listeners, std::vector<AgentProcessPresence> presences) {
  ScanResult result;
  result.listeners = std::move(listeners);
  result.agentPresence.entries = std::move(presences);
  result.scannedAt = t0;
  result.processCount = 10;
  return result;
}

TEST(AgentProviderPresentationFold, ListenersInventoryAndHostsSettleEachAgentsProvider) {
  const auto codexProcess = agentProcess(10, AgentKind::codex);
  const auto hosted = agentProcess(20, AgentKind::claude);
  AgentProviderPresentationFold fold;

  // A listener attributed to Claude on a process detected as Codex: both the row and the presence
  // show Claude; the ChatGPT app's process shows Codex whatever the dictionary says.
  fold.presentedProviderByAgent[hosted] = AgentKind::claude;
  auto result = fold.reconcile(scanOf({attributed(11, 3000, codexProcess, AgentKind::claude)},
                                      {presence(hosted, HostAppKind::chatgpt), presence(codexProcess)}),
                               {});
  ASSERT_EQ(result.agentPresence.entries.size(), 2u);
  EXPECT_EQ(result.agentPresence.entries[0].identity, hosted) << "Codex sorts first";
  EXPECT_EQ(result.agentPresence.entries[0].provider, AgentKind::codex);
  EXPECT_EQ(result.agentPresence.entries[1].provider, AgentKind::claude);
  EXPECT_EQ(result.listeners[0].agentOrigin, AgentKind::claude);

  // Once re-attributed, a later listener with another origin does not undo it...
  result = fold.reconcile(scanOf({attributed(11, 3000, codexProcess, AgentKind::codex),
                                  attributed(12, 3001, codexProcess, AgentKind::codex)},
                                 {presence(codexProcess)}),
                          {});
  EXPECT_EQ(result.agentPresence.entries[0].provider, AgentKind::claude);
  EXPECT_EQ(result.listeners[1].agentOrigin, AgentKind::claude);
  // ...but the inventory's evidence does, and beats a host too.
  result = fold.reconcile(scanOf({}, {presence(codexProcess), presence(hosted, HostAppKind::chatgpt)}),
                          {{codexProcess, AgentKind::codex}, {hosted, AgentKind::claude}});
  EXPECT_EQ(result.agentPresence.entries[0].provider, AgentKind::codex);
  EXPECT_EQ(result.agentPresence.entries[1].provider, AgentKind::claude);

  // A process that has gone is forgotten at once.
  fold.reconcile(scanOf({}, {}), {});
  EXPECT_TRUE(fold.presentedProviderByAgent.empty());
}

// A lifecycle on a manual executor over real sessions whose scans answer from a list and whose
// clock never moves: frames come from the first pull and from pokes only.
class LifecycleTest : public ::testing::Test {
 protected:
  LifecycleTest() {
    PanelScanLifecycle::Dependencies d;
    d.executor = executor;
    d.makeSession = [this] {
      ++sessionsMade;
      PortScanSession::Dependencies session{[this] { return nextScan(); }, clock.clock(), [] { return false; },
                                            [] { return BatteryMode::balanced; }};
      auto made = std::make_shared<PortScanSession>(session, std::nullopt, std::nullopt);
      if (endAtOnce) (void)made->makeAsyncIterator();  // the lifecycle's own iterator then ends at once
      return made;
    };
    d.ingest = [this](const ScanFrame& frame) { events.push_back(frame.scanned() ? "ingest" : "ingest failed"); };
    d.presentedProviderEvidence = [this](std::function<void(PanelScanLifecycle::Evidence)> answer) {
      events.push_back("evidence");
      pendingEvidence.push_back(std::move(answer));
    };
    d.deliver = [this](const PanelScanLifecycleEvent& event) {
      if (std::holds_alternative<PanelScanLifecycleEvent::Started>(event.value)) events.push_back("started");
      if (std::holds_alternative<PanelScanLifecycleEvent::Stopped>(event.value)) events.push_back("stopped");
      if (const auto* frame = std::get_if<ScanFrame>(&event.value)) {
        events.push_back(frame->scanned() ? "frame " + std::to_string(frame->scanned()->processCount) : "frame failed");
      }
    };
    lifecycle = std::make_unique<PanelScanLifecycle>(d);
  }

  ScanResult nextScan() {
    std::lock_guard lock(mutex);
    ++scans;
    if (failNext) {
      failNext = false;
      throw std::runtime_error("no processes");
    }
    auto result = scanOf({}, {});
    result.processCount = scans;
    return result;
  }

  // Turns the executor until `count` events have been seen, or fails after a generous limit.
  void pumpUntil(size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (events.size() < count && std::chrono::steady_clock::now() < deadline) {
      if (executor->runUntilIdle() == 0) std::this_thread::sleep_for(1ms);
    }
    ASSERT_GE(events.size(), count) << ::testing::PrintToString(events);
  }

  void answerEvidence(PanelScanLifecycle::Evidence evidence = {}) {
    auto answers = std::move(pendingEvidence);
    pendingEvidence.clear();
    for (auto& answer : answers) answer(evidence);
  }

  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
  ManualSessionClock clock;
  std::mutex mutex;
  int scans = 0;
  bool failNext = false;
  bool endAtOnce = false;
  int sessionsMade = 0;
  std::vector<std::string> events;
  std::vector<std::function<void(PanelScanLifecycle::Evidence)>> pendingEvidence;
  std::unique_ptr<PanelScanLifecycle> lifecycle;
};

TEST_F(LifecycleTest, OneSessionWhileTheListShowsIngestingBeforePresenting) {
  lifecycle->synchronize(false, true);
  lifecycle->stop();
  EXPECT_TRUE(events.empty()) << "nothing running, nothing said";

  lifecycle->synchronize(true, true);
  lifecycle->synchronize(true, true);
  EXPECT_EQ(sessionsMade, 1);
  pumpUntil(3);
  answerEvidence();
  pumpUntil(4);
  EXPECT_EQ(events, (std::vector<std::string>{"started", "ingest", "evidence", "frame 1"}));

  {
    std::lock_guard lock(mutex);
    failNext = true;
  }
  lifecycle->poke();
  pumpUntil(6);
  EXPECT_EQ(events.back(), "frame failed") << "a failed frame asks for no evidence";
  EXPECT_EQ(events[4], "ingest failed");

  lifecycle->synchronize(true, false);  // an onboarding surface came up
  EXPECT_EQ(events.back(), "stopped");
  EXPECT_FALSE(lifecycle->isMonitoring());
  lifecycle->stop();
  EXPECT_EQ(std::count(events.begin(), events.end(), "stopped"), 1) << "stopped is said once";
}

TEST_F(LifecycleTest, FramesOfAStaleSessionReachNobody) {
  lifecycle->synchronize(true, true);
  pumpUntil(3);  // the first frame waits for its evidence
  lifecycle->stop();
  lifecycle->synchronize(true, true);
  answerEvidence();  // the old frame's evidence comes back after the session changed
  pumpUntil(7);
  answerEvidence();
  pumpUntil(8);
  EXPECT_EQ(events, (std::vector<std::string>{"started", "ingest", "evidence", "stopped", "started", "ingest",
                                              "evidence", "frame 2"}))
      << "a fresh initial frame of the new session, and the old one dropped";
  EXPECT_EQ(sessionsMade, 2);
}

TEST_F(LifecycleTest, AStreamThatEndsByItselfStopsTheLifecycle) {
  endAtOnce = true;
  lifecycle->synchronize(true, true);
  pumpUntil(2);
  EXPECT_EQ(events, (std::vector<std::string>{"started", "stopped"}));
  EXPECT_FALSE(lifecycle->isMonitoring());
}

}  // namespace
}  // namespace tidewatch
