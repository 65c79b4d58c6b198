// The scan and the guards against the software a Debian developer really runs: the JDK, the
// packaged Redis and PostgreSQL (run as their own user), and /bin/sh, which is dash.
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdlib>

#include "app/tests/support/live_process_tree.h"
#include "process_core/process_reader.h"
#include "process_core/tests/support/listening_socket.h"
#include "tidewatch_kit/listener_terminator.h"

namespace tidewatch {
namespace {

namespace fs = std::filesystem;

class LiveDebianSoftware : public testing::LiveProcessTree {
 protected:
  // A port that was free a moment ago, for servers that must be told theirs.
  static int freePort() {
    const int fd = testing::listeningSocket("127.0.0.1", 0);
    const int port = testing::boundPort(fd);
    ::close(fd);
    return port;
  }

  static bool accepts(int port) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool connected = ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
  }

  // The first DIRECTORY/*/RELATIVE that exists, in name order: one per installed version.
  static std::optional<std::string> firstInstalled(const fs::path& directory, const fs::path& relative) {
    if (!fs::is_directory(directory)) return std::nullopt;
    std::vector<fs::path> versions;
    for (const auto& entry : fs::directory_iterator(directory)) versions.push_back(entry.path());
    std::sort(versions.begin(), versions.end());
    for (const auto& version : versions) {
      if (fs::exists(version / relative)) return (version / relative).string();
    }
    return std::nullopt;
  }

  static std::string run(const std::string& command) {
    FILE* pipe = ::popen(command.c_str(), "r");
    std::string out;
    char buffer[65536];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    EXPECT_EQ(::pclose(pipe), 0) << command;
    return out;
  }

  static std::string tidewatch() { return std::string(TIDEWATCH_BINARY_DIR) + "/app/tidewatch"; }

  static bool isRunning(pid_t pid) { return ::kill(pid, 0) == 0; }
};

TEST_F(LiveDebianSoftware, AJavaServerOfDebiansJDKIsAVisibleRow) {
  const auto java = firstInstalled("/usr/lib/jvm", "bin/java");
  if (!java || !fs::exists(fs::path(*java).parent_path() / "javac")) GTEST_SKIP() << "no Debian JDK here";
  std::ofstream(root / "Serve.java") << R"(
import java.io.FileWriter;
import java.net.InetAddress;
import java.net.ServerSocket;
public class Serve {
  public static void main(String[] args) throws Exception {
    ServerSocket socket = new ServerSocket(0, 50, InetAddress.getLoopbackAddress());
    try (FileWriter ready = new FileWriter(System.getenv("TW_READY"), true)) {
      ready.write(ProcessHandle.current().pid() + " " + socket.getLocalPort() + "\n");
    }
    Thread.sleep(600000);
  }
})";
  const pid_t server = start({*java, "-Xshare:auto", "-XX:TieredStopAtLevel=1", "Serve.java"}, root);
  const auto ports = awaitListeners(1);
  ASSERT_EQ(ports.count(server), 1u);

  const auto rows = rowsOf(scan(), server);
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0]["visibility"], "defaultVisible");
  EXPECT_EQ(rows[0]["process"]["executablePath"], fs::canonical(*java).string());
}

TEST_F(LiveDebianSoftware, DebiansRedisServerReadsAsStartedAndIsClassifiedRedis) {
  const std::string redis = "/usr/bin/redis-server";
  if (!fs::is_symlink(redis)) GTEST_SKIP() << "no Debian redis-server here";
  const int port = freePort();
  const pid_t server = start({redis, "--port", std::to_string(port), "--bind", "127.0.0.1", "--save", "",
                              "--appendonly", "no", "--dir", root.string()},
                             root);
  ASSERT_TRUE(eventually([&] { return accepts(port); })) << "redis did not come up";

  const auto row = rowOnPort(rowsOf(scan(), server), port);
  EXPECT_EQ(row["process"]["executablePath"], redis) << "the link it was started through, not redis-check-rdb";
  EXPECT_EQ(row["classification"]["label"], "Redis");
  EXPECT_EQ(row["visibility"], "defaultVisible");
}

TEST_F(LiveDebianSoftware, PostgresOfAnotherUserIsNamedAndItsOwnUserSeesAVisibleRow) {
  const passwd* postgresUser = ::getpwnam("postgres");
  const auto postgres = firstInstalled("/usr/lib/postgresql", "bin/postgres");
  if (::geteuid() != 0 || postgresUser == nullptr || !postgres) {
    GTEST_SKIP() << "needs root, the postgres user and Debian's PostgreSQL";
  }
  const fs::path data = root / "pg";
  fs::create_directories(data);
  ASSERT_EQ(::chown(data.c_str(), postgresUser->pw_uid, postgresUser->pw_gid), 0);
  const std::string initdb = (fs::path(*postgres).parent_path() / "initdb").string();
  run("runuser -u postgres -- " + initdb + " -D " + data.string() + " -A trust >/dev/null 2>&1");
  const int port = freePort();
  const pid_t server = start({*postgres, "-D", data.string(), "-p", std::to_string(port), "-k", data.string(), "-c",
                              "listen_addresses=127.0.0.1", "-c", "log_min_messages=fatal"},
                             data, postgresUser->pw_uid);
  ASSERT_TRUE(eventually([&] { return accepts(port); }, std::chrono::seconds(20))) << "postgres did not come up";

  // To root the server is another user's: no row, but named.
  const auto report = scan();
  EXPECT_TRUE(rowsOf(report, server).empty());
  const nlohmann::json expected = {
      {"address", "127.0.0.1"}, {"family", "IPv4"}, {"port", port}, {"uid", postgresUser->pw_uid},
      {"userName", "postgres"}};
  EXPECT_NE(std::find(report["otherUserListeners"].begin(), report["otherUserListeners"].end(), expected),
            report["otherUserListeners"].end())
      << report["otherUserListeners"];
  const std::string table = run(tidewatch() + " scan --all");
  EXPECT_NE(table.find("\n\nHeld by other users: "), std::string::npos) << table;
  EXPECT_NE(table.find(std::to_string(port) + " (postgres)"), std::string::npos) << table;

  // To its own user it is a server under /usr/lib/, in view and classified.
  const auto own = nlohmann::json::parse(run("runuser -u postgres -- " + tidewatch() + " scan --json"));
  const auto row = rowOnPort(rowsOf(own, server), port);
  EXPECT_EQ(row["visibility"], "defaultVisible");
  EXPECT_EQ(row["classification"]["label"], "Postgres");
}

class LiveGuardsOnDebian : public LiveDebianSoftware {
 protected:
  std::optional<PortListener> rowOf(pid_t pid, int port) const {
    for (const auto& listener : PortEngine().scan(true).listeners) {
      if (listener.port == port && listener.process.identity.pid == pid) return listener;
    }
    return std::nullopt;
  }

  std::string forgedKill(pid_t pid) const {
    KillRequest forged;
    forged.pid = pid;
    forged.target = *Libproc::processIdentity(pid);
    return terminator.kill(forged).message();
  }

  // A FIFO that nobody writes: a shell blocked on it waits forever without a child.
  std::string fifo() {
    const std::string path = (root / "never").string();
    ::mkfifo(path.c_str(), 0600);
    return path;
  }

  const SafetyContext& context = ProcessSafetyClassifier::Context::current();
  const ListenerTerminator terminator{PortEngine(), context};
};

TEST_F(LiveGuardsOnDebian, AListenerHeldByBinShIsNeverSignalled) {
  const pid_t shell = start({actor("devserver"), "listen-exec", "127.0.0.1", "/bin/sh", "-c", "read x < " + fifo()},
                            root, std::nullopt, true);
  const int port = awaitListeners(1)[shell].front();
  std::optional<PortListener> row;
  ASSERT_TRUE(eventually([&] { return (row = rowOf(shell, port)) && row->process.displayName() != "devserver"; }));
  EXPECT_FALSE(KillRequest::request(*row, context)) << row->process.displayName() << " is offered a kill";
  EXPECT_EQ(forgedKill(shell), "That\xE2\x80\x99s a login shell \xE2\x80\x94 Tidewatch won\xE2\x80\x99t stop it.");
  EXPECT_TRUE(isRunning(shell));
}

TEST_F(LiveGuardsOnDebian, APoolUnderShDashCLosesItsWorkersWhileTheShellLives) {
  const std::string worker = actor("worker");
  const std::string script = worker + " hold & " + worker + " hold & " + worker + " hold & read x < " + fifo();
  const pid_t shell = start({actor("launcher"), "listen-exec", "127.0.0.1", "/bin/sh", "-c", script}, root,
                            std::nullopt, true);
  const int port = awaitListeners(1)[shell].front();

  std::optional<PortListener> pool;
  ASSERT_TRUE(eventually([&] {
    for (const auto& listener : PortEngine().scan(true).listeners) {
      if (listener.port == port && listener.workerPoolSize == 3) pool = listener;
    }
    return pool.has_value();
  }));
  EXPECT_EQ(pool->parentIdentity->pid, shell);
  const auto request = StopPoolRequest::request(*pool, context);
  ASSERT_TRUE(request.has_value());
  const auto members = PortEngine().poolMemberIdentities(request->poolSignals);
  ASSERT_EQ(members.size(), 3u);
  EXPECT_EQ(terminator.stopPool(*request).message(), "Sent SIGTERM to 3 pool workers.");
  for (const auto& member : members) {
    EXPECT_TRUE(eventually([&] { return Libproc::processIdentity(member.pid) != member; })) << member.pid;
  }
  EXPECT_TRUE(isRunning(shell)) << "the sh -c supervisor got no signal";
}

TEST_F(LiveGuardsOnDebian, InitIsNeverSignalled) {
  EXPECT_EQ(forgedKill(1), ::geteuid() == 0
                               ? "That\xE2\x80\x99s a system process \xE2\x80\x94 Tidewatch won\xE2\x80\x99t stop it."
                               : "Tidewatch can\xE2\x80\x99t confirm you own that process \xE2\x80\x94 it won\xE2\x80\x99t signal it.");
}

TEST_F(LiveGuardsOnDebian, OutOfDescriptorsNothingIsSignalledAndNothingCalledExited) {
  const pid_t server = start({actor("devserver"), "listen", "127.0.0.1"}, root, std::nullopt, true);
  const int port = awaitListeners(1)[server].front();
  const auto row = rowOf(server, port);
  ASSERT_TRUE(row.has_value());
  const auto request = KillRequest::request(*row, context);
  ASSERT_TRUE(request.has_value());

  // The guard runs in a child whose descriptors are all used up.
  int answer[2];
  ASSERT_EQ(::pipe(answer), 0);
  const pid_t child = ::fork();
  if (child == 0) {
    ::close(answer[0]);
    const rlimit none{0, 0};
    ::setrlimit(RLIMIT_NOFILE, &none);
    const std::string message = terminator.kill(*request).message();
    (void)!::write(answer[1], message.data(), message.size());
    _exit(0);
  }
  ::close(answer[1]);
  std::string message;
  char buffer[512];
  for (ssize_t n; (n = ::read(answer[0], buffer, sizeof buffer)) > 0;) message.append(buffer, static_cast<size_t>(n));
  ::close(answer[0]);
  ::waitpid(child, nullptr, 0);
  EXPECT_EQ(message,
            "Couldn\xE2\x80\x99t send SIGTERM: Tidewatch couldn\xE2\x80\x99t check that process (Too many open files).");
  EXPECT_TRUE(isRunning(server));
}

}  // namespace
}  // namespace tidewatch
