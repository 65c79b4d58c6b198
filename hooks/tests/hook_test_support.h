// Shared pieces of the hook tests: a scratch directory, raw clients, a recorder of delivered
// envelopes that waits without sleeping, settings files on disk, and child processes.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "hooks/agent_hook_configurator.h"
#include "hooks/agent_hook_socket_server.h"

namespace tidewatch::testing {

class ScratchDirectory {
 public:
  ScratchDirectory() {
    char pattern[] = "/tmp/twhooks-XXXXXX";
    path_ = ::mkdtemp(pattern);
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline sockaddr_un addressOf(const std::string& socketPath) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
  return address;
}

// A blocking client connected to the socket, or -1. Its descriptor is moved above 100, so the
// server in this same process gets the numbers it would get alone.
inline int connectClient(const std::string& socketPath) {
  const int first = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int fd = ::fcntl(first, F_DUPFD_CLOEXEC, 100);
  ::close(first);
  const sockaddr_un address = addressOf(socketPath);
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// Blocks until the server closes the connection: true when it did so without sending anything
// (a reset when it left bytes unread).
inline bool closedByServer(int fd) {
  char byte;
  const ssize_t n = ::recv(fd, &byte, 1, 0);
  return n == 0 || (n < 0 && errno == ECONNRESET);
}

// True when the server still holds the connection open.
inline bool stillOpen(int fd) {
  char byte;
  return ::recv(fd, &byte, 1, MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

class Deliveries {
 public:
  AgentHookSocketServer::OnEnvelope handler() {
    return [this](const AgentHookProtocol::Envelope& envelope, Date) {
      std::lock_guard lock(mutex_);
      envelopes_.push_back(envelope);
      arrived_.notify_all();
    };
  }
  // Waits (bounded) for at least n envelopes and answers all of them; waitFor(0) answers at once.
  std::vector<AgentHookProtocol::Envelope> waitFor(size_t n) {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, std::chrono::seconds(5), [&] { return envelopes_.size() >= n; });
    return envelopes_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<AgentHookProtocol::Envelope> envelopes_;
};

// Polls a condition of the server's thread for up to two seconds.
template <typename Predicate>
bool eventually(Predicate predicate) {
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (!predicate()) {
    if (std::chrono::steady_clock::now() > giveUp) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

inline std::string readBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

inline void writeBytes(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
}

inline uint32_t modeOf(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? (status.st_mode & 0777) : 0;
}

inline size_t entriesIn(const std::string& directory) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

// The whole installation as the connection store runs it; without `desired`, the removal, which
// has nothing to do without a file.
inline std::optional<AgentHookConfigurator::ConfigError> edit(
    const std::string& path, const std::optional<std::vector<AgentHookConfigurator::DesiredEntry>>& desired,
    const std::set<std::string>& owned, const AgentHookConfigurator::FileOperations& files) {
  using namespace AgentHookConfigurator;
  auto read = readIfPresent(path, files);
  if (!read.hasValue()) return read.error();
  if (!read.value() && !desired) return std::nullopt;
  nlohmann::json root = read.value() ? read.value()->root : nlohmann::json::object();
  if (read.value()) removeTidewatchEntries(root, owned);
  if (desired) {
    if (auto error = append(*desired, root)) return error;
  }
  return writeAtomically(root, path, read.value(), files);
}

struct ChildRun {
  int status = -1;
  std::string output;  // standard output and standard error together
};

// Runs the program argv[0] with HOME set and the input on standard input, which stays open while
// the child runs when keepInputOpen is set.
inline ChildRun runChild(const std::vector<std::string>& argv, const std::string& input, const std::string& home,
                         bool keepInputOpen = false) {
  ::signal(SIGPIPE, SIG_IGN);
  int in[2], out[2];
  if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) return {};
  const pid_t child = ::fork();
  if (child == 0) {
    ::dup2(in[0], STDIN_FILENO);
    ::dup2(out[1], STDOUT_FILENO);
    ::dup2(out[1], STDERR_FILENO);
    ::setenv("HOME", home.c_str(), 1);
    std::vector<char*> pointers;
    for (const auto& argument : argv) pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    ::execv(pointers[0], pointers.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  (void)!::write(in[1], input.data(), input.size());
  if (!keepInputOpen) ::close(in[1]);
  ChildRun run;
  for (char buffer[4096]; const ssize_t n = ::read(out[0], buffer, sizeof buffer);) {
    if (n < 0) break;
    run.output.append(buffer, static_cast<size_t>(n));
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  ::close(out[0]);
  if (keepInputOpen) ::close(in[1]);
  return run;
}

inline const std::string frontExecutable = std::string(TIDEWATCH_BINARY_DIR) + "/app/tidewatch";

// A scratch home whose runtime directory lies inside it, for a real server and relay processes.
class LiveHome : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::access(frontExecutable.c_str(), X_OK), 0) << "build the target tidewatch first";
    ASSERT_EQ(::mkdir(home_.c_str(), 0700), 0);
    if (paths_.runtimeDirectory.rfind(home_, 0) != 0) {
      // The relay would find the login session's directory, where a running application may listen.
      GTEST_SKIP() << "this user has a session runtime directory";
    }
  }
  std::unique_ptr<AgentHookSocketServer> startServer() {
    auto server = std::make_unique<AgentHookSocketServer>(paths_, AgentHookSocketServer::Dependencies::live(),
                                                          deliveries_.handler());
    EXPECT_EQ(server->start(), std::nullopt);
    return server;
  }

  ScratchDirectory scratch_;
  const std::string home_ = scratch_.path() + "/home";
  const AgentHookPaths paths_ = AgentHookPathsLive::standard(home_);
  Deliveries deliveries_;
};

}  // namespace tidewatch::testing
