// The real `tidewatch scan --json` over real processes that the test starts.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;

class LiveScan : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tidewatch-live-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root = pattern;
    fs::create_directories(root / "bin");
    ready = root / "ready";
  }

  void TearDown() override {
    for (pid_t group : groups) {
      ::kill(-group, SIGKILL);
      ::waitpid(group, nullptr, 0);
    }
    fs::remove_all(root);
  }

  // The actor, copied under a name that tells the scan what it is.
  std::string actor(const std::string& name) {
    const fs::path path = root / "bin" / name;
    fs::copy_file(TIDEWATCH_LIVE_WORLD, path);
    fs::permissions(path, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec);
    return path;
  }

  // Starts argv in a process group of its own, in `cwd`.
  pid_t start(std::vector<std::string> argv, const fs::path& cwd) {
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::setpgid(0, 0);
      if (::chdir(cwd.c_str()) != 0) _exit(3);
      ::setenv("TW_READY", ready.c_str(), 1);
      std::vector<char*> args;
      for (auto& arg : argv) args.push_back(arg.data());
      args.push_back(nullptr);
      ::execv(args[0], args.data());
      _exit(4);
    }
    groups.push_back(pid);
    return pid;
  }

  // pid -> ports, once `lines` listeners have announced themselves.
  std::map<pid_t, std::vector<int>> awaitListeners(size_t lines) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (std::chrono::steady_clock::now() < deadline) {
      std::ifstream in(ready);
      std::map<pid_t, std::vector<int>> announced;
      std::string line;
      size_t count = 0;
      while (std::getline(in, line)) {
        std::istringstream words(line);
        pid_t pid = 0;
        words >> pid;
        for (int port; words >> port;) announced[pid].push_back(port);
        ++count;
      }
      if (count >= lines) return announced;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ADD_FAILURE() << "listeners did not come up";
    return {};
  }

  nlohmann::json scan() {
    const std::string command = std::string(TIDEWATCH_BINARY_DIR) + "/app/tidewatch scan --json --all";
    FILE* pipe = ::popen(command.c_str(), "r");
    std::string out;
    char buffer[65536];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    EXPECT_EQ(::pclose(pipe), 0);
    return nlohmann::json::parse(out);
  }

  static std::vector<nlohmann::json> rowsOf(const nlohmann::json& report, pid_t pid) {
    std::vector<nlohmann::json> rows;
    for (const auto& row : report["listeners"]) {
      if (row["process"]["identity"]["pid"] == pid) rows.push_back(row);
    }
    return rows;
  }

  static nlohmann::json rowOnPort(const std::vector<nlohmann::json>& rows, int port) {
    for (const auto& row : rows) {
      if (row["port"] == port) return row;
    }
    ADD_FAILURE() << "no row on port " << port;
    return nlohmann::json::object();
  }

  fs::path root;
  fs::path ready;
  std::vector<pid_t> groups;
};

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
