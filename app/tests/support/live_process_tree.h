// Real process trees for the live tests, built from a small actor copied under telling names
// (a terminal, an agent, a dev server, a shell), each tree in a process group of its own.
#pragma once

#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <optional>
#include <sstream>
#include <thread>

#include <nlohmann/json.hpp>

namespace tidewatch::testing {

namespace fs = std::filesystem;

class LiveProcessTree : public ::testing::Test {
 protected:
  static constexpr auto everyone = fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                   fs::perms::others_read | fs::perms::others_exec;

  void SetUp() override {
    char pattern[] = "/tmp/tidewatch-live-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    root = pattern;
    ready = root / "ready";
    fs::create_directories(root / "bin");
    // Readable, and the ready file writable, for a process of another user too.
    fs::permissions(root, everyone);
    std::ofstream(ready).close();
    fs::permissions(ready, fs::perms::all & ~(fs::perms::owner_exec | fs::perms::group_exec | fs::perms::others_exec));
  }

  void TearDown() override {
    for (pid_t group : groups) {
      ::kill(-group, SIGKILL);
      ::waitpid(group, nullptr, 0);  // detached trees are init's to reap
    }
    fs::remove_all(root);
  }

  // The actor, copied under a name that tells the scan what it is.
  std::string actor(const std::string& name) {
    const fs::path path = root / "bin" / name;
    fs::copy_file(TIDEWATCH_LIVE_WORLD, path);
    fs::permissions(path, everyone);
    return path;
  }

  // Starts argv in a process group of its own, in `cwd`, as `uid` when given. A detached tree
  // is handed to init, so it is not in this program's subtree (which the guard protects).
  pid_t start(std::vector<std::string> argv, const fs::path& cwd, std::optional<uid_t> uid = std::nullopt,
              bool detached = false) {
    int report[2];
    if (::pipe(report) != 0) return -1;
    // The user's own group, as a login would give it: the kernel lets a user read another
    // process's descriptors only when the groups match as well.
    const passwd* account = uid ? ::getpwuid(*uid) : nullptr;
    const gid_t gid = account ? account->pw_gid : static_cast<gid_t>(uid.value_or(0));
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::close(report[0]);
      if (detached && ::fork() != 0) _exit(0);
      ::setpgid(0, 0);
      const pid_t self = ::getpid();
      if (::write(report[1], &self, sizeof self) != sizeof self) _exit(6);
      ::close(report[1]);
      if (::chdir(cwd.c_str()) != 0) _exit(3);
      if (uid && (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(*uid) != 0)) _exit(5);
      ::setenv("TW_READY", ready.c_str(), 1);
      std::vector<char*> args;
      for (auto& arg : argv) args.push_back(arg.data());
      args.push_back(nullptr);
      ::execv(args[0], args.data());
      _exit(4);
    }
    ::close(report[1]);
    pid_t started = -1;
    if (::read(report[0], &started, sizeof started) != sizeof started) started = -1;
    ::close(report[0]);
    if (detached) ::waitpid(pid, nullptr, 0);
    groups.push_back(started);
    return started;
  }

  // Whether the condition comes true within the limit, asked every few milliseconds.
  static bool eventually(const std::function<bool()>& condition,
                         std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
      if (std::chrono::steady_clock::now() >= deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
  }

  // pid -> ports, once `lines` listeners have announced themselves.
  std::map<pid_t, std::vector<int>> awaitListeners(size_t lines) {
    std::map<pid_t, std::vector<int>> announced;
    EXPECT_TRUE(eventually([&] {
      announced.clear();
      std::ifstream in(ready);
      size_t count = 0;
      for (std::string line; std::getline(in, line); ++count) {
        std::istringstream words(line);
        pid_t pid = 0;
        words >> pid;
        for (int port; words >> port;) announced[pid].push_back(port);
      }
      return count >= lines;
    })) << "listeners did not come up";
    return announced;
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

  // The rows of the pid, and the one on a port among them.
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

}  // namespace tidewatch::testing
