// A tiny actor for the live scan tests, copied under telling names (a terminal, an agent, a dev
// server) so that a real process tree can be built from it.
//   live_world spawn PROGRAM ARGS...   start PROGRAM and stay as its parent
//   live_world listen ADDRESS...       listen on each ADDRESS ("127.0.0.1", "::1@<port of 1st>", ...)
//   live_world pool WORKERS ADDRESS [PROGRAM]
//                                      listen, then fork WORKERS children that share the socket;
//                                      with PROGRAM each child becomes "PROGRAM hold"
//   live_world hold                    wait, holding what was inherited
//   live_world stubborn ADDRESS        listen and ignore SIGTERM
//   live_world listen-exec ADDRESS PROGRAM ARGS...
//                                      listen, announce, then become PROGRAM, which inherits
//                                      the listener (a shell that holds a port)
// Listeners append "<pid> <port>..." to the file named by TW_READY, then wait to be killed.
#include <signal.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

// The actor is built on its own, without the project's include path.
#include "process_core/tests/support/listening_socket.h"

namespace {

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(2);
}

// "ADDRESS" or "ADDRESS@N": N names the port of the N-th listener already made (0-based).
int listenOn(const std::string& argument, const std::vector<int>& ports) {
  const auto at = argument.find('@');
  const int port = at == std::string::npos ? 0 : ports.at(static_cast<size_t>(std::atoi(argument.c_str() + at + 1)));
  const int bound = tidewatch::testing::boundPort(tidewatch::testing::listeningSocket(argument.substr(0, at), port));
  if (bound < 0) fail(argument.c_str());
  return bound;
}

void announce(const std::vector<int>& ports) {
  std::string line = std::to_string(getpid());
  for (int port : ports) line += " " + std::to_string(port);
  FILE* file = std::getenv("TW_READY") ? std::fopen(std::getenv("TW_READY"), "a") : nullptr;
  if (!file) fail("ready file");
  std::fprintf(file, "%s\n", line.c_str());
  std::fclose(file);
}

[[noreturn]] void waitForever() {
  while (true) ::pause();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string command = argc > 1 ? argv[1] : "";
  if (command == "hold") waitForever();
  if (argc < 3) return 2;
  if (command == "spawn") {
    const pid_t child = ::fork();
    if (child < 0) fail("fork");
    if (child == 0) {
      ::execv(argv[2], argv + 2);
      fail("execv");
    }
    waitForever();
  }
  if (command == "listen") {
    std::vector<int> ports;
    for (int i = 2; i < argc; ++i) ports.push_back(listenOn(argv[i], ports));
    announce(ports);
    waitForever();
  }
  if (command == "pool" && (argc == 4 || argc == 5)) {
    const std::vector<int> ports{listenOn(argv[3], {})};
    for (int i = std::atoi(argv[2]); i > 0; --i) {
      const pid_t worker = ::fork();
      if (worker < 0) fail("fork");
      if (worker == 0 && argc == 5) {
        char* args[] = {argv[4], const_cast<char*>("hold"), nullptr};
        ::execv(argv[4], args);
        fail("execv");
      }
      if (worker == 0) {
        announce(ports);
        waitForever();
      }
    }
    if (argc == 5) announce(ports);
    waitForever();
  }
  if (command == "listen-exec" && argc >= 4) {
    announce({listenOn(argv[2], {})});
    ::execv(argv[3], argv + 3);
    fail("execv");
  }
  if (command == "stubborn") {
    ::signal(SIGTERM, SIG_IGN);
    announce({listenOn(argv[2], {})});
    waitForever();
  }
  return 2;
}
