// The real `tidewatch scan --json` over real processes that the test starts.
#include "app/tests/support/live_process_tree.h"

namespace {

using LiveScan = tidewatch::testing::LiveProcessTree;
namespace fs = std::filesystem;

TEST_F(LiveScan, FindsEveryBindingShapeOfOneProcess) {
  const pid_t server = start({actor("devserver"), "listen", "127.0.0.1", "::1@0", "0.0.0.0", "::", "::ffff:127.0.0.1"},
                             root);
  auto announced = awaitListeners(1);
  const auto& ports = announced[server];
  ASSERT_EQ(ports.size(), 5u);

  const auto report = scan();
  EXPECT_GE(report["processCount"].get<int>(), 3);
  const auto rows = rowsOf(report, server);
  ASSERT_EQ(rows.size(), 4u) << report.dump(2);

  const auto pair = rowOnPort(rows, ports[0]);
  EXPECT_EQ(pair["bindScope"], "loopbackOnly");
  ASSERT_EQ(pair["endpoints"].size(), 2u);
  EXPECT_EQ(pair["endpoints"][0]["address"], "127.0.0.1");
  EXPECT_EQ(pair["endpoints"][1]["address"], "::1");
  EXPECT_EQ(pair["endpoints"][1]["family"], "IPv6");
  EXPECT_EQ(pair["process"]["executablePath"], (root / "bin" / "devserver").string());
  EXPECT_EQ(pair["workerPoolSize"], 1);
  for (const auto& [port, scope, address] : {std::tuple{ports[2], "allInterfaces", "0.0.0.0"},
                                             {ports[3], "allInterfaces", "::"},
                                             {ports[4], "specificInterface", "::ffff:127.0.0.1"}}) {
    const auto row = rowOnPort(rows, port);
    EXPECT_EQ(row["bindScope"], scope) << address;
    EXPECT_EQ(row["endpoints"][0]["address"], address);
  }
}

TEST_F(LiveScan, AttributesAnAgentsDevServerAndFoldsAWorkerPool) {
  const fs::path project = root / "project";
  fs::create_directories(project / "web");
  std::ofstream(project / "package.json") << "{}\n";

  const pid_t terminalPID = start(
      {actor("xterm"), "spawn", actor("claude"), "spawn", actor("devserver"), "listen", "127.0.0.1"}, project / "web");
  const auto devServer = awaitListeners(1);
  ASSERT_EQ(devServer.size(), 1u);
  const auto [server, devPorts] = *devServer.begin();
  const pid_t poolParent = start({actor("gunicorn"), "pool", "3", "127.0.0.1"}, root);
  auto announced = awaitListeners(4);
  announced.erase(server);
  ASSERT_EQ(announced.size(), 3u);  // the three workers
  const int poolPort = announced.begin()->second.front();

  const auto report = scan();
  const auto dev = rowOnPort(rowsOf(report, server), devPorts.front());
  EXPECT_EQ(dev["agentOrigin"], "claude") << dev.dump(2);
  EXPECT_EQ(dev["agentProcess"]["kind"], "claude");
  EXPECT_EQ(dev["agentProcess"]["process"]["pid"], dev["process"]["parentPID"]);
  EXPECT_EQ(dev["host"]["kind"], "terminal");
  EXPECT_EQ(dev["focusTarget"]["pid"], terminalPID);
  EXPECT_EQ(dev["focusTarget"]["displayName"], "xterm");
  EXPECT_EQ(dev["project"]["name"], "project");
  EXPECT_EQ(dev["project"]["path"], project.string());
  EXPECT_EQ(dev["isInTidewatchSubtree"], false);
  EXPECT_GE(report["claudeAgentCount"].get<int>(), 1);

  int poolRows = 0;
  for (const auto& row : report["listeners"]) {
    if (row["port"] != poolPort || row["workerPoolSize"] != 3) continue;
    ++poolRows;
    EXPECT_EQ(row["identity"]["isPool"], true);
    EXPECT_EQ(row["identity"]["process"]["pid"], poolParent);
    EXPECT_EQ(row["parentIdentity"]["pid"], poolParent);
    EXPECT_EQ(row["identity"]["executablePath"], (root / "bin" / "gunicorn").string());
  }
  EXPECT_EQ(poolRows, 1) << report.dump(2);
  EXPECT_EQ(rowsOf(report, poolParent).size(), 1u) << "the parent holding the socket is a row of its own";
}

}  // namespace
