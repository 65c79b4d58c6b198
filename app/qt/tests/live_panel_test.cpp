// The panel's model end to end without a display: the lifecycle over a real scan session over the
// real engine feeds the real view model; a listener the test starts appears, is stopped through
// the kill confirmation, and the rescan shows it gone.
#include <thread>

#include "app/qt/tidewatch_view_model.h"
#include "app/tests/support/live_process_tree.h"
#include "tidewatch_kit/panel_scan_lifecycle.h"

namespace tidewatch {
namespace {

using namespace std::chrono_literals;

class LivePanel : public testing::LiveProcessTree {
 protected:
  bool pumpUntil(const std::function<bool()>& condition) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      if (executor->runUntilIdle() == 0) std::this_thread::sleep_for(2ms);
    }
    return true;
  }

  std::shared_ptr<ManualMainExecutor> executor = std::make_shared<ManualMainExecutor>();
};

TEST_F(LivePanel, AListenerAppearsIsStoppedAndIsGoneOnTheNextFrame) {
  const pid_t server = start({actor("devserver"), "listen", "127.0.0.1"}, root, std::nullopt, true);
  const int port = awaitListeners(1)[server].front();

  auto dependencies = TidewatchViewModel::Dependencies::live(executor);
  dependencies.defaults = DefaultsStore((root / "defaults.json").string());
  TidewatchViewModel model(dependencies);
  PanelScanLifecycle lifecycle({executor,
                                [] {
                                  return std::make_shared<PortScanSession>(PortEngine(), std::nullopt, std::nullopt,
                                                                           [] { return BatteryMode::balanced; });
                                },
                                [](const ScanFrame&) {},
                                [](std::function<void(PanelScanLifecycle::Evidence)> answer) { answer({}); },
                                [&model](const PanelScanLifecycleEvent& event) {
                                  if (std::holds_alternative<PanelScanLifecycleEvent::Started>(event.value)) {
                                    model.prepareForMonitoring();
                                  } else if (const auto* frame = std::get_if<ScanFrame>(&event.value)) {
                                    model.apply(*frame);
                                  } else {
                                    model.clearMonitoring();
                                  }
                                }});
  model.requestScan = [&lifecycle] { lifecycle.poke(); };
  lifecycle.synchronize(true, true);

  const auto rowOfServer = [&]() -> QString {
    auto* rows = qobject_cast<KeyedListModel*>(model.listeners());
    for (const auto& row : rows->rows()) {
      if (row.values[1].toInt() == port && row.values[3].toInt() == server) return QString::fromStdString(row.key);
    }
    return {};
  };
  ASSERT_TRUE(pumpUntil([&] { return !rowOfServer().isEmpty(); })) << "the listener never showed";
  ASSERT_TRUE(model.offerKill(rowOfServer()));
  model.confirm();
  ASSERT_TRUE(pumpUntil([&] { return model.state() == "loaded" && rowOfServer().isEmpty(); }))
      << "the stopped listener is still listed";
  EXPECT_EQ(model.killNotice(), "");
  lifecycle.stop();
  EXPECT_EQ(model.state(), "loading");
}

}  // namespace
}  // namespace tidewatch
