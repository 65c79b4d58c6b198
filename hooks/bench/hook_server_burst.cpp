// A burst of real relay processes from several concurrent senders into one live server.
//
//   hook_server_burst burst <tidewatch> [senders] [relays-per-sender]
//       Counts what was sent, accepted, admitted and delivered, and the process's memory.
//   hook_server_burst serve <home>
//       Listens at the standard path for that home until SIGINT or SIGTERM (for timing runs).
//   hook_server_burst churn [connections]
//       Memory before and after that many connections (default 100,000) from in-process clients.
//   hook_server_burst fdlimit [seconds]
//       The server with no descriptor left under RLIMIT_NOFILE 12 while a client process keeps
//       connecting: its CPU time over that many seconds (default 3), then whether it delivers
//       once descriptors are free again.
#include <fcntl.h>
#include <sys/resource.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "hooks/agent_hook_paths.h"
#include "hooks/agent_hook_relay.h"
#include "hooks/agent_hook_socket_server.h"

extern char** environ;

namespace {

using tidewatch::AgentHookPaths;
using tidewatch::AgentHookSocketServer;

long statusKilobytes(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  const std::string prefix = std::string(field) + ":";
  while (std::getline(status, line)) {
    if (line.rfind(prefix, 0) == 0) return std::strtol(line.c_str() + prefix.size(), nullptr, 10);
  }
  return -1;
}

// Runs one relay with the hook document on its standard input; answers its exit status.
int runRelay(const std::string& executable, const std::string& document) {
  int input[2];
  if (::pipe2(input, O_CLOEXEC) != 0) return -1;
  (void)!::write(input[1], document.data(), document.size());
  ::close(input[1]);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  char* argv[] = {const_cast<char*>("tidewatch"), const_cast<char*>("agent-event"),
                  const_cast<char*>("--provider"), const_cast<char*>("claude"),
                  const_cast<char*>("--protocol"), const_cast<char*>("1"), nullptr};
  pid_t child = -1;
  const int spawned = ::posix_spawn(&child, executable.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(input[0]);
  if (spawned != 0) return -1;
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

AgentHookPaths pathsForHome(const std::string& home) {
  const AgentHookPaths paths = tidewatch::AgentHookPathsLive::standard(home);
  if (paths.runtimeDirectory.rfind(home, 0) != 0) {
    std::fprintf(stderr, "this user has a session runtime directory (%s); run where the fallback under HOME applies\n",
                 paths.runtimeDirectory.c_str());
    std::exit(2);
  }
  return paths;
}

int serve(const std::string& home) {
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &stopSignals, nullptr);  // before the server's thread exists
  std::atomic<long> delivered{0};
  AgentHookSocketServer server(pathsForHome(home), AgentHookSocketServer::Dependencies::live(),
                               [&](const auto&, auto) { ++delivered; });
  if (auto failure = server.start()) {
    std::fprintf(stderr, "%.*s\n", static_cast<int>(failure->message().size()), failure->message().data());
    return 1;
  }
  int signal = 0;
  sigwait(&stopSignals, &signal);
  server.stop();
  std::printf("served %ld envelopes\n", delivered.load());
  return 0;
}

int burst(const std::string& executable, int senders, int relaysPerSender) {
  char pattern[] = "/tmp/twburst-XXXXXX";
  const std::string home = ::mkdtemp(pattern);
  std::filesystem::create_directories(home + "/code/harbour/.git");
  ::setenv("HOME", home.c_str(), 1);
  const AgentHookPaths paths = pathsForHome(home);

  std::atomic<long> accepted{0}, admitted{0}, delivered{0};
  std::mutex sessionsMutex;
  std::set<std::string> sessions;
  auto dependencies = AgentHookSocketServer::Dependencies::live();
  dependencies.acceptConnection = [&, live = dependencies.acceptConnection](int listenFD) {
    const auto result = live(listenFD);
    if (result.fd >= 0) ++accepted;
    return result;
  };
  // Asked only of connections under the cap.
  dependencies.validatePeer = [&, live = dependencies.validatePeer](int fd) {
    const bool valid = live(fd);
    if (valid) ++admitted;
    return valid;
  };
  AgentHookSocketServer server(paths, dependencies, [&](const tidewatch::AgentHookProtocol::Envelope& envelope, auto) {
    ++delivered;
    std::lock_guard lock(sessionsMutex);
    sessions.insert(envelope.sessionID);
  });
  if (server.start()) return 1;

  const long rssBefore = statusKilobytes("VmRSS");
  std::atomic<long> quietExits{0}, otherExits{0};
  const auto begin = std::chrono::steady_clock::now();
  std::vector<std::thread> threads;
  for (int sender = 0; sender < senders; ++sender) {
    threads.emplace_back([&, sender] {
      for (int i = 0; i < relaysPerSender; ++i) {
        const std::string document = R"({"session_id":"burst-)" + std::to_string(sender) + "-" + std::to_string(i) +
                                     R"(","hook_event_name":"Stop","cwd":")" + home +
                                     R"(/code/harbour","prompt":"not for the server","transcript_path":"/t.jsonl"})";
        (runRelay(executable, document) == 0 ? quietExits : otherExits)++;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  // Let the last connections finish.
  for (int i = 0; i < 200 && server.connectionCount() > 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  server.stop();

  const long sent = static_cast<long>(senders) * relaysPerSender;
  std::printf("senders %d, relays %ld in %.2f s (%.0f relays/s)\n", senders, sent, seconds, sent / seconds);
  std::printf("relay exits: %ld quiet (status 0), %ld other\n", quietExits.load(), otherExits.load());
  std::printf("sent %ld, accepted %ld, admitted %ld, delivered %ld (%zu distinct sessions)\n", sent, accepted.load(),
              admitted.load(), delivered.load(), sessions.size());
  std::printf("refused by the peer check %ld, lost at connect %ld\n", accepted.load() - admitted.load(),
              sent - accepted.load());
  std::printf("memory: VmRSS %ld kB before, %ld kB after, VmHWM %ld kB\n", rssBefore, statusKilobytes("VmRSS"),
              statusKilobytes("VmHWM"));
  std::filesystem::remove_all(home);
  const bool allAdmittedDelivered = admitted.load() == delivered.load() && sessions.size() == static_cast<size_t>(delivered.load());
  std::printf("%s\n", allAdmittedDelivered ? "every admitted connection was delivered" : "ADMITTED CONNECTIONS WERE LOST");
  return allAdmittedDelivered && otherExits.load() == 0 ? 0 : 1;
}

std::string envelopeBytes(const std::string& session) {
  return *tidewatch::AgentHookProtocol::encode(
      {1, tidewatch::AgentKind::claude, tidewatch::AgentHookProtocol::EventKind::turnEnded, session, std::nullopt, 1});
}

double cpuSeconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

int churn(long connections) {
  char pattern[] = "/tmp/twchurn-XXXXXX";
  const std::string home = ::mkdtemp(pattern);
  const AgentHookPaths paths = pathsForHome(home);
  std::atomic<long> delivered{0};
  AgentHookSocketServer server(paths, AgentHookSocketServer::Dependencies::live(), [&](const auto&, auto) { ++delivered; });
  if (server.start()) return 1;
  const std::string bytes = envelopeBytes("churn");
  const auto run = [&](long count) {
    std::vector<std::thread> clients;
    for (int t = 0; t < 4; ++t) {
      clients.emplace_back([&] {
        for (long i = 0; i < count / 4; ++i) (void)tidewatch::AgentHookRelay::send(bytes, paths.socketPath, 0.5);
      });
    }
    for (auto& client : clients) client.join();
  };
  run(2000);  // the allocator's and the threads' own first costs
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const long before = statusKilobytes("VmRSS");
  const long deliveredBefore = delivered.load();
  const auto begin = std::chrono::steady_clock::now();
  run(connections);
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  for (int i = 0; i < 200 && server.connectionCount() > 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  const long after = statusKilobytes("VmRSS");
  std::this_thread::sleep_for(std::chrono::milliseconds(2500));  // past every connection's time limit
  const long later = statusKilobytes("VmRSS");
  server.stop();
  std::printf("%ld connections in %.2f s, %ld delivered\n", connections, seconds, delivered.load() - deliveredBefore);
  std::printf("memory: VmRSS %ld kB before, %ld kB right after, %ld kB 2.5 s later\n", before, after, later);
  std::filesystem::remove_all(home);
  return 0;
}

int fdlimit(int seconds) {
  char pattern[] = "/tmp/twfdlimit-XXXXXX";
  const std::string home = ::mkdtemp(pattern);
  const AgentHookPaths paths = pathsForHome(home);
  std::atomic<long> delivered{0};
  AgentHookSocketServer server(paths, AgentHookSocketServer::Dependencies::live(), [&](const auto&, auto) { ++delivered; });
  if (server.start()) return 1;

  // A client process of its own, so its descriptors do not count against the server's limit.
  const pid_t client = ::fork();
  if (client == 0) {
    const std::string bytes = envelopeBytes("fdlimit");
    for (;;) (void)tidewatch::AgentHookRelay::send(bytes, paths.socketPath, 0.5);
  }
  const rlimit limit{12, 12};
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) return 1;
  std::vector<int> filler;
  for (int fd; (fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;) filler.push_back(fd);
  std::this_thread::sleep_for(std::chrono::milliseconds(200));
  const long deliveredStarved = delivered.load();
  const double cpuBefore = cpuSeconds();
  const auto begin = std::chrono::steady_clock::now();
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  const double cpu = cpuSeconds() - cpuBefore;
  const long deliveredWhileStarved = delivered.load() - deliveredStarved;

  for (int fd : filler) ::close(fd);
  std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // the longest rest, then some
  const long deliveredAfter = delivered.load() - deliveredStarved - deliveredWhileStarved;
  ::kill(client, SIGKILL);
  ::waitpid(client, nullptr, 0);
  server.stop();
  std::printf("RLIMIT_NOFILE 12, %zu spare descriptors taken; a client process connecting all along\n", filler.size());
  std::printf("starved for %.2f s: server process CPU %.3f s (%.2f%% of one core), %ld delivered\n", wall, cpu,
              100.0 * cpu / wall, deliveredWhileStarved);
  std::printf("descriptors freed: %ld delivered in the next 1.5 s\n", deliveredAfter);
  std::filesystem::remove_all(home);
  return deliveredAfter > 0 && deliveredWhileStarved == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() >= 2 && arguments[0] == "serve") return serve(arguments[1]);
  if (!arguments.empty() && arguments[0] == "churn") return churn(arguments.size() > 1 ? std::atol(arguments[1].c_str()) : 100000);
  if (!arguments.empty() && arguments[0] == "fdlimit") return fdlimit(arguments.size() > 1 ? std::atoi(arguments[1].c_str()) : 3);
  if (arguments.size() >= 2 && arguments[0] == "burst") {
    const int senders = arguments.size() > 2 ? std::atoi(arguments[2].c_str()) : 4;
    const int relays = arguments.size() > 3 ? std::atoi(arguments[3].c_str()) : 750;
    return burst(arguments[1], senders > 0 ? senders : 4, relays > 0 ? relays : 750);
  }
  std::fprintf(stderr, "usage: hook_server_burst burst <tidewatch> [senders] [relays-per-sender]\n"
                       "       hook_server_burst serve <home>\n"
                       "       hook_server_burst churn [connections]\n"
                       "       hook_server_burst fdlimit [seconds]\n");
  return 2;
}
