// A burst of real relay processes from several concurrent senders into one live server.
//
//   hook_server_burst burst <tidewatch> [senders] [relays-per-sender]
//       Counts what was sent, accepted, admitted and delivered, and the process's memory.
//   hook_server_burst serve <home>
//       Listens at the standard path for that home until SIGINT or SIGTERM (for timing runs).
#include <fcntl.h>
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
    const int fd = live(listenFD);
    if (fd >= 0) ++accepted;
    return fd;
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
  std::printf("closed at the cap %ld, refused at connect (full backlog) %ld\n", accepted.load() - admitted.load(),
              sent - accepted.load());
  std::printf("memory: VmRSS %ld kB before, %ld kB after, VmHWM %ld kB\n", rssBefore, statusKilobytes("VmRSS"),
              statusKilobytes("VmHWM"));
  std::filesystem::remove_all(home);
  const bool allAdmittedDelivered = admitted.load() == delivered.load() && sessions.size() == static_cast<size_t>(delivered.load());
  std::printf("%s\n", allAdmittedDelivered ? "every admitted connection was delivered" : "ADMITTED CONNECTIONS WERE LOST");
  return allAdmittedDelivered && otherExits.load() == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() >= 2 && arguments[0] == "serve") return serve(arguments[1]);
  if (arguments.size() >= 2 && arguments[0] == "burst") {
    const int senders = arguments.size() > 2 ? std::atoi(arguments[2].c_str()) : 4;
    const int relays = arguments.size() > 3 ? std::atoi(arguments[3].c_str()) : 750;
    return burst(arguments[1], senders > 0 ? senders : 4, relays > 0 ? relays : 750);
  }
  std::fprintf(stderr, "usage: hook_server_burst burst <tidewatch> [senders] [relays-per-sender]\n"
                       "       hook_server_burst serve <home>\n");
  return 2;
}
