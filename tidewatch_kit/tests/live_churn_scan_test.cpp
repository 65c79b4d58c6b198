// The incremental engine against a cold one on this machine, while a process table of the test's
// changes under them: late listeners, forked worker pools, sockets handed between processes,
// closes and exits. After each change both scan; the rows on the test's ports must agree.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tidewatch_kit/port_engine.h"
#include "tidewatch_kit/socket_owner_map.h"

namespace tidewatch {
namespace {

// tidewatch_kit/tests/data/churn_world.py, spoken to line by line.
class ChurnWorld {
 public:
  ChurnWorld() {
    int toWorld[2];
    int fromWorld[2];
    if (::pipe2(toWorld, O_CLOEXEC) != 0 || ::pipe2(fromWorld, O_CLOEXEC) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(toWorld[0], 0);
      ::dup2(fromWorld[1], 1);
      const std::string script = std::string(TIDEWATCH_TEST_DATA_DIR) + "/churn_world.py";
      ::execlp("python3", "python3", script.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    ::close(toWorld[0]);
    ::close(fromWorld[1]);
    in_ = ::fdopen(toWorld[1], "w");
    out_ = ::fdopen(fromWorld[0], "r");
  }
  ~ChurnWorld() {
    if (in_) std::fclose(in_);
    if (out_) std::fclose(out_);
    if (pid_ > 0) ::waitpid(pid_, nullptr, 0);
  }
  ChurnWorld(const ChurnWorld&) = delete;
  ChurnWorld& operator=(const ChurnWorld&) = delete;

  // The answer's port, 0 when it opened none; -1 when the world did not answer.
  int ask(const std::string& command) {
    if (!in_ || !out_) return -1;
    std::fprintf(in_, "%s\n", command.c_str());
    std::fflush(in_);
    char line[128];
    if (!std::fgets(line, sizeof line, out_) || std::string(line).rfind("ok", 0) != 0) return -1;
    const int port = std::atoi(line + 2);
    if (port > 0) ports.insert(port);
    return port;
  }

  std::set<int> ports;

 private:
  pid_t pid_ = -1;
  FILE* in_ = nullptr;
  FILE* out_ = nullptr;
};

// The rows on the world's ports as text, in a stable order, without the figures that move
// between two scans (CPU, memory) or the time of the scan.
std::string rowsOn(const ScanResult& result, const std::set<int>& ports) {
  std::vector<std::string> lines;
  for (const auto& row : result.listeners) {
    if (!ports.contains(row.port)) continue;
    std::ostringstream line;
    line << row.port << " pid " << row.process.identity.pid << " start " << row.process.identity.startTimeSeconds
         << " pool " << row.workerPoolSize << " pooled " << row.identity.isPool << " endpoints "
         << row.endpoints.size() << " name " << row.process.name.value_or("?");
    lines.push_back(line.str());
  }
  std::sort(lines.begin(), lines.end());
  std::string text;
  for (const auto& line : lines) text += line + "\n";
  return text;
}

TEST(LiveChurn, IncrementalScansAgreeWithColdScansThroughChurn) {
  ChurnWorld world;
  std::atomic<int> secondsAhead{0};
  auto dependencies = PortEngineDependencies::live();
  const auto wallClock = dependencies.now;
  dependencies.now = [&] { return wallClock() + std::chrono::seconds(secondsAhead.load()); };
  const PortEngine cold;
  const auto incremental = PortEngine::incremental(dependencies);

  auto agree = [&](const std::string& step) {
    SCOPED_TRACE(step);
    const auto expected = rowsOn(cold.scan(false), world.ports);
    EXPECT_EQ(rowsOn(incremental.scan(false), world.ports), expected);
    return expected;
  };
  agree("before");
  ASSERT_EQ(world.ask("spawn a"), 0);
  ASSERT_EQ(world.ask("spawn b"), 0);
  agree("two idle processes");
  ASSERT_GT(world.ask("listen a"), 0);
  EXPECT_NE(agree("a process seen before listens late"), "");
  ASSERT_GT(world.ask("serve c"), 0);
  agree("a new process listens at once");
  ASSERT_EQ(world.ask("pool c 3"), 0);
  agree("it forks three workers sharing its socket");
  ASSERT_EQ(world.ask("pass a b"), 0);
  agree("a hands its socket to b and closes its own");
  ASSERT_EQ(world.ask("close c"), 0);
  agree("c closes its socket; its workers keep it");
  ASSERT_EQ(world.ask("exit c"), 0);
  agree("c and its workers exit");

  // b lends its socket to a and keeps its own: no new listener anywhere, a process seen before
  // gains one. The complete walk finds it.
  ASSERT_EQ(world.ask("lend b a"), 0);
  const auto lent = rowsOn(cold.scan(false), world.ports);
  EXPECT_NE(rowsOn(incremental.scan(false), world.ports), lent);
  secondsAhead += static_cast<int>(SocketOwnerMap::safetyNetInterval.count());
  agree("a lent socket, from the next complete walk on");
  ASSERT_EQ(world.ask("exit b"), 0);
  ASSERT_EQ(world.ask("exit a"), 0);
  agree("all gone");
}

}  // namespace
}  // namespace tidewatch
