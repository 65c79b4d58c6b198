#include "hooks/agent_hook_socket_server.h"

#include <sys/wait.h>

#include <map>

#include "hooks/agent_hook_relay.h"
#include "hooks/tests/hook_test_support.h"

namespace tidewatch {
namespace {

using Server = AgentHookSocketServer;
using StartError = Server::StartError;
using Type = Server::FileStatus::Type;
using testing::ScratchDirectory;

constexpr uint32_t user = 501;
const AgentHookPaths paths = AgentHookPaths::inRuntimeDirectory("/rt");

// A file system of records; the socket itself cannot be had, so a start that passes every check
// ends in socketUnavailable.
struct FakeFileSystem {
  std::map<std::string, Server::FileStatus> files;
  std::map<std::string, Server::FileStatus> createdAs;
  bool chmodWorks = true;
  bool bindWorks = false;
  int socketFD = -1;
  std::vector<std::string> calls;

  Server::Dependencies dependencies() {
    auto live = Server::Dependencies::live();
    live.effectiveUserID = [] { return user; };
    live.fileStatus = [this](const std::string& path) -> std::optional<Server::FileStatus> {
      const auto found = files.find(path);
      return found == files.end() ? std::nullopt : std::optional(found->second);
    };
    live.createDirectories = [this](const std::string& path, uint32_t mode) {
      calls.push_back("mkdir " + path + " " + std::to_string(mode));
      if (createdAs.contains(path)) files[path] = createdAs[path];
      return createdAs.contains(path);
    };
    live.changeMode = [this](const std::string& path, uint32_t mode) {
      calls.push_back("chmod " + path + " " + std::to_string(mode));
      return chmodWorks;
    };
    live.removeFile = [this](const std::string& path) {
      calls.push_back("unlink " + path);
      files.erase(path);
      return true;
    };
    live.openSocket = [this] { return socketFD; };
    live.bindSocket = [this](int, const std::string&) { return bindWorks; };
    live.closeDescriptor = [this](int fd) { calls.push_back("close " + std::to_string(fd)); };
    return live;
  }
};

TEST(AgentHookSocketServerTest, StartChecksTheRuntimeDirectoryAndTheStalePath) {
  const Server::FileStatus ownDirectory{Type::directory, user, 0700};
  const Server::FileStatus ownSocket{Type::socket, user, 0600};
  struct Case {
    const char* name;
    std::map<std::string, Server::FileStatus> files;
    std::map<std::string, Server::FileStatus> createdAs;
    bool chmodWorks;
    StartError error;
    std::vector<std::string> calls;
  };
  const std::vector<Case> cases = {
      {"symlink", {{"/rt", {Type::symbolicLink, user, 0777}}}, {}, true, StartError::runtimeDirectoryIsSymlink, {}},
      {"foreign", {{"/rt", {Type::directory, 0, 0700}}}, {}, true, StartError::runtimeDirectoryNotOwnedByUser, {}},
      {"file", {{"/rt", {Type::regularFile, user, 0600}}}, {}, true, StartError::runtimeDirectoryUnavailable, {}},
      {"loose", {{"/rt", {Type::directory, user, 0755}}}, {}, true, StartError::socketUnavailable, {"chmod /rt 448"}},
      {"stuck", {{"/rt", {Type::directory, user, 0755}}}, {}, false, StartError::runtimeDirectoryUnavailable,
       {"chmod /rt 448"}},
      {"missing", {}, {{"/rt", ownDirectory}}, true, StartError::socketUnavailable, {"mkdir /rt 448", "chmod /rt 448"}},
      {"uncreatable", {}, {}, true, StartError::runtimeDirectoryUnavailable, {"mkdir /rt 448"}},
      {"created foreign", {}, {{"/rt", {Type::directory, 0, 0700}}}, true, StartError::runtimeDirectoryUnavailable,
       {"mkdir /rt 448"}},
      {"stale file", {{"/rt", ownDirectory}, {paths.socketPath, {Type::regularFile, user, 0600}}}, {}, true,
       StartError::stalePathIsNotAnOwnedSocket, {}},
      {"foreign socket", {{"/rt", ownDirectory}, {paths.socketPath, {Type::socket, 0, 0600}}}, {}, true,
       StartError::stalePathIsNotAnOwnedSocket, {}},
      {"stale socket", {{"/rt", ownDirectory}, {paths.socketPath, ownSocket}}, {}, true, StartError::socketUnavailable,
       {"unlink " + paths.socketPath}},
  };
  for (const auto& c : cases) {
    FakeFileSystem system;
    system.files = c.files;
    system.createdAs = c.createdAs;
    system.chmodWorks = c.chmodWorks;
    Server server(paths, system.dependencies(), nullptr);
    EXPECT_EQ(server.start(), Server::StartFailure{c.error}) << c.name;
    EXPECT_EQ(system.calls, c.calls) << c.name;
    EXPECT_FALSE(server.isListening()) << c.name;
  }
}

TEST(AgentHookSocketServerTest, AFailedBindClosesAndRemovesThePath) {
  FakeFileSystem system;
  system.files = {{"/rt", {Type::directory, user, 0700}}};
  system.socketFD = 42;
  Server server(paths, system.dependencies(), nullptr);
  EXPECT_EQ(server.start(), Server::StartFailure{StartError::socketUnavailable});
  EXPECT_EQ(system.calls, (std::vector<std::string>{"close 42", "unlink " + paths.socketPath}));

  const std::string longDirectory = "/" + std::string(90, 'd');
  system.files = {{longDirectory, {Type::directory, user, 0700}}};
  Server tooLong(AgentHookPaths::inRuntimeDirectory(longDirectory), system.dependencies(), nullptr);
  EXPECT_EQ(tooLong.start()->message(), "The event endpoint path is too long for this system.");
}

TEST(AgentHookSocketServerTest, StartErrorsSpeakTheApplicationsWords) {
  using F = Server::StartFailure;
  EXPECT_EQ(F{StartError::runtimeDirectoryIsSymlink}.message(), F{StartError::runtimeDirectoryUnavailable}.message());
  EXPECT_EQ(F{StartError::runtimeDirectoryNotOwnedByUser}.message(),
            "Tidewatch's runtime folder in Application Support is unusable.");
  EXPECT_EQ(F{StartError::stalePathIsNotAnOwnedSocket}.message(), "Something else occupies Tidewatch's event-endpoint path.");
  EXPECT_EQ(F{StartError::socketUnavailable}.message(), "The local event endpoint couldn't be created.");
  EXPECT_EQ(F{}.message(), "The local event endpoint couldn't start.");
}

// Real sockets in a scratch directory, a started server, and a clock the test moves by hand.
class LiveServer : public ::testing::Test {
 protected:
  void SetUp() override {
    auto dependencies = Server::Dependencies::live();
    dependencies.uptime = [this] { return std::chrono::steady_clock::time_point(std::chrono::milliseconds(clock_)); };
    dependencies.receive = [this, live = dependencies.receive](int fd, char* buffer, size_t length) {
      ++reads_;
      return live(fd, buffer, length);
    };
    dependencies.acceptConnection = [this, live = dependencies.acceptConnection](int listenFD) {
      if (outOfDescriptors_) {
        ++refusedAccepts_;
        return Server::Accepted{Server::Accepted::Kind::outOfResources, -1};
      }
      const auto accepted = live(listenFD);
      if (accepted.fd >= 0) acceptedFDs_.push_back(accepted.fd);  // on the server's thread; read after a sync
      return accepted;
    };
    server_ = std::make_unique<Server>(paths_, dependencies, deliveries_.handler());
    ASSERT_EQ(server_->start(), std::nullopt);
  }

  // Sends these bytes on a client (a new one for `client`), ending its stream when `finish` is set.
  int client(std::string_view bytes, bool finish = true) {
    return send(testing::connectClient(paths_.socketPath), bytes, finish);
  }
  int send(int fd, std::string_view bytes, bool finish = true) {
    EXPECT_EQ(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    if (finish) ::shutdown(fd, SHUT_WR);
    return fd;
  }
  void advance(int64_t milliseconds) {
    // The server's turn in flight ends first: a refusal counted but not yet rested would
    // otherwise take its rest from the advanced clock.
    server_->sync([] {});
    clock_ += milliseconds;
    server_->sync([] {});  // limits that fell due have run
  }

  const AgentHookProtocol::Envelope envelope_{1, AgentKind::codex, AgentHookProtocol::EventKind::sessionStart,
                                              "live-session", std::nullopt, 99};
  const std::string bytes_ = *AgentHookProtocol::encode(envelope_);
  ScratchDirectory scratch_;
  const AgentHookPaths paths_ = AgentHookPaths::inRuntimeDirectory(scratch_.path() + "/state/rt");
  std::atomic<int64_t> clock_{1'000'000};
  std::atomic<int> reads_{0};
  std::atomic<bool> outOfDescriptors_{false};
  std::atomic<int> refusedAccepts_{0};
  std::vector<int> acceptedFDs_;
  testing::Deliveries deliveries_;
  std::unique_ptr<Server> server_;
};

TEST_F(LiveServer, DeliversAtEndOfStreamAndCleansUp) {
  ASSERT_EQ(server_->start(), std::nullopt);  // a second start changes nothing
  EXPECT_EQ(testing::modeOf(paths_.runtimeDirectory), 0700u);
  EXPECT_TRUE(std::filesystem::is_socket(std::filesystem::symlink_status(paths_.socketPath)));
  EXPECT_EQ(testing::modeOf(paths_.socketPath), 0600u);

  const int empty = client("");
  EXPECT_TRUE(testing::closedByServer(empty));
  ::close(empty);
  EXPECT_TRUE(AgentHookRelay::send(bytes_, paths_.socketPath, 0.5));
  EXPECT_EQ(deliveries_.waitFor(1), std::vector{envelope_});  // the empty one delivered nothing

  server_->stop();
  server_->stop();
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(paths_.socketPath)));
  EXPECT_FALSE(AgentHookRelay::send(bytes_, paths_.socketPath, 0.5));
  ASSERT_EQ(server_->start(), std::nullopt);  // a stopped server starts again
  EXPECT_TRUE(server_->isListening());
}

TEST_F(LiveServer, HoldsSixteenConnectionsAndLetsTheSeventeenthWaitInTheBacklog) {
  std::vector<int> clients;
  for (int i = 0; i < 17; ++i) clients.push_back(testing::connectClient(paths_.socketPath));
  ASSERT_TRUE(testing::eventually([&] { return server_->connectionCount() == 16; }));
  server_->sync([&] { EXPECT_EQ(acceptedFDs_.size(), 16u); });
  EXPECT_TRUE(testing::stillOpen(clients.back()));
  for (int fd : clients) send(fd, bytes_);  // as the first ones finish, the last is taken in
  EXPECT_EQ(deliveries_.waitFor(17).size(), 17u);
  for (int fd : clients) ::close(fd);
}

TEST_F(LiveServer, OutOfDescriptorsTheListenerRestsLongerEachTimeThenDelivers) {
  outOfDescriptors_ = true;
  const int waiting = client(bytes_);
  ASSERT_TRUE(testing::eventually([&] { return refusedAccepts_ == 1; }));
  // Rests of 100, 200, 400, 800 ms, then 1 s at most; no accept in between.
  int refused = 1;
  for (int64_t rest : {100, 200, 400, 800, 1000, 1000}) {
    advance(rest - 1);
    EXPECT_EQ(refusedAccepts_, refused) << rest;
    advance(1);
    ASSERT_TRUE(testing::eventually([&] { return refusedAccepts_ == refused + 1; })) << rest;
    ++refused;
  }
  outOfDescriptors_ = false;
  advance(1000);
  EXPECT_EQ(deliveries_.waitFor(1).size(), 1u);
  ::close(waiting);

  // An accepted connection starts the rests over.
  outOfDescriptors_ = true;
  const int next = client(bytes_);
  ASSERT_TRUE(testing::eventually([&] { return refusedAccepts_ == refused + 1; }));
  advance(100);
  EXPECT_TRUE(testing::eventually([&] { return refusedAccepts_ == refused + 2; }));
  outOfDescriptors_ = false;
  advance(200);
  EXPECT_EQ(deliveries_.waitFor(2).size(), 2u);
  ::close(next);
}

TEST_F(LiveServer, StopRemovesOnlyTheSocketItMade) {
  const std::string moved = paths_.runtimeDirectory + "-moved";
  struct Case {
    const char* name;
    std::function<void()> swap;
    std::string survivor;  // what must still be there after stop()
  };
  const std::vector<Case> cases = {
      {"a regular file in the socket's place",
       [&] {
         std::filesystem::remove(paths_.socketPath);
         testing::writeBytes(paths_.socketPath, "not ours");
       },
       paths_.socketPath},
      {"the runtime directory swapped for a link to one holding the socket",
       [&] {
         std::filesystem::rename(paths_.runtimeDirectory, moved);
         std::filesystem::create_directory_symlink(moved, paths_.runtimeDirectory);
       },
       moved + "/agent-events.sock"},
  };
  for (const auto& c : cases) {
    std::filesystem::remove_all(moved);
    std::filesystem::remove_all(paths_.runtimeDirectory);
    server_->stop();
    ASSERT_EQ(server_->start(), std::nullopt) << c.name;
    c.swap();
    server_->stop();
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::symlink_status(c.survivor))) << c.name;
  }
}

TEST_F(LiveServer, EndsOversizedAndSilentPeersWithoutDelivery) {
  // A valid envelope padded with blanks is closed at 4,097 bytes, however the JSON looks.
  const int oversized = client(bytes_ + std::string(4097 - bytes_.size(), ' '), false);
  EXPECT_TRUE(testing::closedByServer(oversized));
  ::close(oversized);

  const int silent = client(bytes_, false);  // whole, but the stream never ends
  ASSERT_TRUE(testing::eventually([&] { return server_->connectionCount() == 1; }));
  advance(1999);
  EXPECT_TRUE(testing::stillOpen(silent));
  advance(1);
  EXPECT_TRUE(testing::closedByServer(silent));
  ::close(silent);

  // 4,096 bytes still pass; it is the only delivery.
  EXPECT_TRUE(AgentHookRelay::send(bytes_ + std::string(4096 - bytes_.size(), ' '), paths_.socketPath, 0.5));
  EXPECT_EQ(deliveries_.waitFor(1).size(), 1u);
  EXPECT_EQ(deliveries_.waitFor(0).size(), 1u);
}

TEST_F(LiveServer, AnEarlierConnectionsLimitSparesANewerOneOnTheSameDescriptor) {
  const int earlier = client(bytes_);
  ASSERT_EQ(deliveries_.waitFor(1).size(), 1u);
  ::close(earlier);
  advance(1500);
  const int newer = testing::connectClient(paths_.socketPath);
  ASSERT_TRUE(testing::eventually([&] { return server_->connectionCount() == 1; }));
  server_->sync([&] { ASSERT_EQ(acceptedFDs_.size(), 2u); EXPECT_EQ(acceptedFDs_[0], acceptedFDs_[1]); });
  advance(500);  // the earlier connection's limit falls due
  EXPECT_TRUE(testing::stillOpen(newer));
  advance(1500);  // and now the newer one's
  EXPECT_TRUE(testing::closedByServer(newer));
  ::close(newer);
}

TEST_F(LiveServer, ClosesAPeerOfAnotherUserBeforeReading) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root to connect as another user";
  // Let the other user reach the socket at all; the server must refuse it by its credentials.
  for (const std::string& path : {scratch_.path(), scratch_.path() + "/state", paths_.runtimeDirectory}) {
    ASSERT_EQ(::chmod(path.c_str(), 0755), 0);
  }
  ASSERT_EQ(::chmod(paths_.socketPath.c_str(), 0666), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setgid(65534) != 0 || ::setuid(65534) != 0) ::_exit(2);
    ::_exit(testing::closedByServer(client(bytes_)) ? 0 : 3);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(server_->connectionCount(), 0u);
  EXPECT_EQ(reads_.load(), 0);
  EXPECT_EQ(deliveries_.waitFor(0).size(), 0u);
}

}  // namespace
}  // namespace tidewatch
