// A tiny actor for the live scan tests, copied under telling names (a terminal, an agent, a dev
// server) so that a real process tree can be built from it.
//   live_world spawn PROGRAM ARGS...   start PROGRAM and stay as its parent
//   live_world listen ADDRESS...       listen on each ADDRESS ("127.0.0.1", "::1@<port of 1st>", ...)
//   live_world pool WORKERS ADDRESS    listen, then fork WORKERS children that share the socket
//   live_world poolexec WORKERS ADDRESS PROGRAM
//                                      listen, then start WORKERS copies of "PROGRAM hold"
//                                      that inherit the socket
//   live_world hold                    wait, holding what was inherited
//   live_world stubborn ADDRESS        listen and ignore SIGTERM
// Listeners append "<pid> <port>..." to the file named by TW_READY, then wait to be killed.
#include <arpa/inet.h>
#include <signal.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(2);
}

// "ADDRESS" or "ADDRESS@N": N names the port of the N-th listener already made (0-based).
int listenOn(const std::string& spec, const std::vector<int>& ports) {
  std::string address = spec;
  int port = 0;
  if (auto at = spec.find('@'); at != std::string::npos) {
    address = spec.substr(0, at);
    port = ports.at(static_cast<size_t>(std::atoi(spec.c_str() + at + 1)));
  }
  const bool v6 = address.find(':') != std::string::npos;
  const int fd = ::socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
  if (fd < 0) fail("socket");
  int one = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  sockaddr_storage storage{};
  socklen_t length = 0;
  if (v6) {
    auto* in6 = reinterpret_cast<sockaddr_in6*>(&storage);
    in6->sin6_family = AF_INET6;
    in6->sin6_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET6, address.c_str(), &in6->sin6_addr) != 1) fail("inet_pton");
    if (address == "::") ::setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &one, sizeof one);
    length = sizeof *in6;
  } else {
    auto* in4 = reinterpret_cast<sockaddr_in*>(&storage);
    in4->sin_family = AF_INET;
    in4->sin_port = htons(static_cast<uint16_t>(port));
    if (::inet_pton(AF_INET, address.c_str(), &in4->sin_addr) != 1) fail("inet_pton");
    length = sizeof *in4;
  }
  if (::bind(fd, reinterpret_cast<sockaddr*>(&storage), length) != 0) fail("bind");
  if (::listen(fd, 16) != 0) fail("listen");
  if (::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length) != 0) fail("getsockname");
  return ntohs(v6 ? reinterpret_cast<sockaddr_in6*>(&storage)->sin6_port
                  : reinterpret_cast<sockaddr_in*>(&storage)->sin_port);
}

void announce(const std::vector<int>& ports) {
  const char* path = std::getenv("TW_READY");
  if (!path) return;
  std::string line = std::to_string(getpid());
  for (int port : ports) line += " " + std::to_string(port);
  line += "\n";
  FILE* file = std::fopen(path, "a");
  if (!file) fail("ready file");
  std::fputs(line.c_str(), file);
  std::fclose(file);
}

[[noreturn]] void waitForever() {
  while (true) ::pause();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  const std::string command = argv[1];
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
  if (command == "pool" && argc == 4) {
    const int workers = std::atoi(argv[2]);
    const std::vector<int> ports{listenOn(argv[3], {})};
    for (int i = 0; i < workers; ++i) {
      const pid_t worker = ::fork();
      if (worker < 0) fail("fork");
      if (worker == 0) {
        announce(ports);
        waitForever();
      }
    }
    waitForever();
  }
  if (command == "poolexec" && argc == 5) {
    const int workers = std::atoi(argv[2]);
    const std::vector<int> ports{listenOn(argv[3], {})};
    for (int i = 0; i < workers; ++i) {
      const pid_t worker = ::fork();
      if (worker < 0) fail("fork");
      if (worker == 0) {
        char* args[] = {argv[4], const_cast<char*>("hold"), nullptr};
        ::execv(argv[4], args);
        fail("execv");
      }
    }
    announce(ports);
    waitForever();
  }
  if (command == "stubborn") {
    ::signal(SIGTERM, SIG_IGN);
    announce({listenOn(argv[2], {})});
    waitForever();
  }
  return 2;
}
