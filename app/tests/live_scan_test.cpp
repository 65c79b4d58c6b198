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

  EXPECT_EQ(rowOnPort(rows, ports[2])["bindScope"], "allInterfaces");
  const auto wildcard6 = rowOnPort(rows, ports[3]);
  EXPECT_EQ(wildcard6["bindScope"], "allInterfaces");
  EXPECT_EQ(wildcard6["endpoints"][0]["address"], "::");
  const auto mapped = rowOnPort(rows, ports[4]);
  EXPECT_EQ(mapped["bindScope"], "specificInterface");
  EXPECT_EQ(mapped["endpoints"][0]["address"], "::ffff:127.0.0.1");
  EXPECT_GE(report["processCount"].get<int>(), 3);
}

TEST_F(LiveScan, AttributesAnAgentsDevServerAndFoldsAWorkerPool) {
  const fs::path project = root / "project";
  fs::create_directories(project / "web");
  std::ofstream(project / "package.json") << "{}\n";

  const std::string terminal = actor("xterm");
  const std::string agent = actor("claude");
  const std::string devserver = actor("devserver");
  const pid_t terminalPID =
      start({terminal, "spawn", agent, "spawn", devserver, "listen", "127.0.0.1"}, project / "web");
  const pid_t poolParent = start({actor("gunicorn"), "pool", "3", "127.0.0.1"}, root);

  auto announced = awaitListeners(4);
  announced.erase(poolParent);
  ASSERT_EQ(announced.size(), 4u);  // the dev server and three workers
  pid_t server = 0;
  int devPort = 0, poolPort = 0;
  for (const auto& [pid, ports] : announced) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    if (text.find("(devserver)") != std::string::npos) {
      server = pid;
      devPort = ports.front();
    } else {
      poolPort = ports.front();
    }
  }
  ASSERT_NE(server, 0);

  const auto report = scan();
  const auto dev = rowOnPort(rowsOf(report, server), devPort);
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
