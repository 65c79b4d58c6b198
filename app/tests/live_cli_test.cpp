// The terminal commands against real processes that the test starts, through the real executable.
#include <sys/wait.h>

#include <algorithm>

#include "app/tests/support/live_process_tree.h"

namespace tidewatch {
namespace {

class LiveCommands : public testing::LiveProcessTree {
 protected:
  struct Run {
    int status = -1;
    std::string out, err;
  };

  static std::string program() { return std::string(TIDEWATCH_BINARY_DIR) + "/app/tidewatch"; }

  Run tidewatch(const std::string& words) { return shell(program() + " " + words); }

  // A command line of sh, its standard error apart.
  Run shell(const std::string& line) {
    const std::filesystem::path err = root / "stderr";
    const std::string command = "(" + line + ") 2>" + err.string();
    Run run;
    FILE* pipe = ::popen(command.c_str(), "r");
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) run.out.append(buffer, n);
    const int status = ::pclose(pipe);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::ifstream in(err);
    run.err.assign(std::istreambuf_iterator<char>(in), {});
    return run;
  }

  static bool alive(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), {});
    const auto close = text.rfind(')');
    return close != std::string::npos && close + 2 < text.size() && text[close + 2] != 'Z';
  }
};

TEST_F(LiveCommands, StopsADevServerByPortAndIsRefusedAShellsListener) {
  const pid_t server = start({actor("devserver"), "listen", "127.0.0.1"}, root, std::nullopt, true);
  const pid_t shell = start({actor("bash"), "listen", "127.0.0.1"}, root, std::nullopt, true);
  auto ports = awaitListeners(2);
  const std::string serverPort = std::to_string(ports[server].front());
  const std::string shellPort = std::to_string(ports[shell].front());

  const auto dry = tidewatch("stop --dry-run " + serverPort + " " + shellPort);
  EXPECT_EQ(dry.status, 1) << "the shell's port would not be stopped";
  EXPECT_EQ(dry.out, "port " + serverPort + " \xC2\xB7 devserver (PID " + std::to_string(server) +
                         "): would send SIGTERM: it is yours, and no shell, editor, terminal or system process.\n");
  EXPECT_EQ(dry.err, "error: port " + shellPort + " \xC2\xB7 bash (PID " + std::to_string(shell) +
                         "): That\xE2\x80\x99s a login shell \xE2\x80\x94 Tidewatch won\xE2\x80\x99t stop it.\n");
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_TRUE(alive(server)) << "a dry run signals nothing";

  const auto stopped = tidewatch("stop " + serverPort);
  EXPECT_EQ(stopped.status, 0) << stopped.err;
  EXPECT_EQ(stopped.out, "port " + serverPort + " \xC2\xB7 devserver (PID " + std::to_string(server) + "): Sent SIGTERM.\n");
  EXPECT_TRUE(eventually([&] { return !alive(server); }));

  const auto refused = tidewatch("stop --force " + shellPort);
  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_NE(refused.err.find("login shell"), std::string::npos);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_TRUE(alive(shell));

  const auto gone = tidewatch("stop " + serverPort);
  EXPECT_EQ(gone.status, 1);
  EXPECT_EQ(gone.err, "error: port " + serverPort + ": nothing is listening on it.\n");

  const auto filtered = tidewatch("scan --port " + shellPort);
  EXPECT_EQ(filtered.status, 0);
  EXPECT_NE(filtered.out.find(shellPort + std::string(7 - shellPort.size(), ' ') + "TCP   bash"), std::string::npos)
      << filtered.out;
}

TEST_F(LiveCommands, WatchRedrawsOnATerminalUntilInterruptedAndLeavesItClean) {
  const pid_t server = start({actor("devserver"), "listen", "127.0.0.1"}, root, std::nullopt, true);
  const std::string port = std::to_string(awaitListeners(1)[server].front());
  const std::string watch = "timeout --preserve-status -s INT 2 " + program() + " scan --watch 0.2 --port " + port;

  // On a terminal (script gives it one): the alternate screen, frames drawn from its top, and
  // the screen given back when Ctrl+C comes.
  const auto onTerminal = shell("script -qfec '" + watch + "' /dev/null </dev/null");
  EXPECT_EQ(onTerminal.status, 0) << onTerminal.err;
  EXPECT_TRUE(onTerminal.out.starts_with("\x1b[?1049h\x1b[?25l")) << onTerminal.out;
  EXPECT_TRUE(onTerminal.out.ends_with("\x1b[?25h\x1b[?1049l")) << onTerminal.out;
  size_t frames = 0;
  for (size_t at = onTerminal.out.find("\x1b[H"); at != std::string::npos; at = onTerminal.out.find("\x1b[H", at + 1)) {
    ++frames;
  }
  EXPECT_GE(frames, 3u) << "a frame each 0.2 s for 2 s";
  EXPECT_NE(onTerminal.out.find(port + std::string(7 - port.size(), ' ') + "TCP   devserver"), std::string::npos);

  // Into a pipe: each report after the last, no escapes.
  const auto piped = shell(watch);
  EXPECT_EQ(piped.status, 0) << piped.err;
  EXPECT_EQ(piped.out.find('\x1b'), std::string::npos);
  EXPECT_GE(std::count(piped.out.begin(), piped.out.end(), '\n'), 10);
}

TEST_F(LiveCommands, AgentsWithoutAnApplicationAnswerFromTheProcessTable) {
  const auto run = shell("DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent " + program() + " agents --json");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("\"source\" : \"processTable\""), std::string::npos) << run.out;
}

}  // namespace
}  // namespace tidewatch
