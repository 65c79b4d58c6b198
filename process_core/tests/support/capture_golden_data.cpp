// Records the golden captures under tests/data/linux from the machine it runs on: a process
// with an awkward command name and a command line holding invalid UTF-8, and the kernel's
// listener tables (netlink and /proc/net) while known sockets listen.
//
// Build and run from the repository root after building process_core (BUILD is its build tree):
//   g++ -std=c++20 -I. process_core/tests/support/capture_golden_data.cpp
//       BUILD/process_core/libprocess_core.a -lutf8proc -o /tmp/capture_golden_data
//   /tmp/capture_golden_data process_core/tests/data/linux
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>

#include "process_core/linux/sock_diag.h"

namespace {

// The command name and arguments the stat, status and cmdline captures are taken under.
constexpr char oddName[] = "we (ird) name)";
constexpr char childFlag[] = "--child";

bool copyFile(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::ofstream out(to, std::ios::binary);
  out << content;
  return in.good() || in.eof();
}

bool writeBytes(const std::string& to, const std::vector<uint8_t>& bytes) {
  std::ofstream out(to, std::ios::binary);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return out.good();
}

int listenOn(int family, const char* address, uint16_t port, bool v6only) {
  const int fd = socket(family, SOCK_STREAM, 0);
  const int yes = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  int result;
  if (family == AF_INET) {
    sockaddr_in in{};
    in.sin_family = AF_INET;
    in.sin_port = htons(port);
    inet_pton(AF_INET, address, &in.sin_addr);
    result = bind(fd, reinterpret_cast<sockaddr*>(&in), sizeof in);
  } else {
    const int only = v6only ? 1 : 0;
    setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &only, sizeof only);
    sockaddr_in6 in6{};
    in6.sin6_family = AF_INET6;
    in6.sin6_port = htons(port);
    inet_pton(AF_INET6, address, &in6.sin6_addr);
    result = bind(fd, reinterpret_cast<sockaddr*>(&in6), sizeof in6);
  }
  if (result != 0 || listen(fd, 4) != 0) {
    std::cerr << "cannot listen on " << address << " port " << port << ": " << std::strerror(errno) << "\n";
    return -1;
  }
  return fd;
}

int captureProcessFiles(const std::string& directory) {
  prctl(PR_SET_NAME, oddName, 0, 0, 0);
  bool ok = true;
  for (const char* name : {"stat", "status", "statm", "cmdline"}) {
    ok = copyFile(std::string("/proc/self/") + name, directory + "/odd_process_" + name) && ok;
  }
  return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && std::strcmp(argv[1], childFlag) == 0) return captureProcessFiles(argv[2]);
  if (argc < 2) {
    std::cerr << "usage: capture_golden_data <output directory>\n";
    return 1;
  }
  const std::string directory = argv[1];

  // Ports 47801 to 47804 in the captures belong to these sockets.
  const int sockets[] = {
      listenOn(AF_INET, "127.0.0.1", 47801, false), listenOn(AF_INET6, "::1", 47801, true),
      listenOn(AF_INET, "0.0.0.0", 47802, false),   listenOn(AF_INET6, "::", 47803, true),
      listenOn(AF_INET6, "::ffff:127.0.0.1", 47804, false)};
  for (int fd : sockets) {
    if (fd < 0) return 1;
  }
  bool ok = true;
  for (auto [family, file] : {std::pair{tidewatch::AddressFamily::ipv4, "sock_diag_inet.bin"},
                              std::pair{tidewatch::AddressFamily::ipv6, "sock_diag_inet6.bin"}}) {
    auto bytes = tidewatch::SockDiag::dumpBytes(family);
    ok = bytes && writeBytes(directory + "/" + file, *bytes) && ok;
  }
  ok = copyFile("/proc/net/tcp", directory + "/proc_net_tcp") && ok;
  ok = copyFile("/proc/net/tcp6", directory + "/proc_net_tcp6") && ok;
  ok = copyFile("/proc/stat", directory + "/proc_stat") && ok;
  for (int fd : sockets) close(fd);

  // Behind the child flag: a valid two-byte character, invalid sequences, an empty argument.
  const pid_t child = fork();
  if (child == 0) {
    char name[] = "capture";
    char valid[] = "caf\xc3\xa9";
    char invalid[] = "bad\xff\xfe\xe2\x82tail";
    char empty[] = "";
    char flag[] = "--child";
    std::string target = directory;
    char* childArgv[] = {name, flag, target.data(), valid, invalid, empty, nullptr};
    execv("/proc/self/exe", childArgv);
    _exit(127);
  }
  int status = 0;
  waitpid(child, &status, 0);
  ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 && ok;
  std::cout << (ok ? "captured into " : "capture failed in ") << directory << "\n";
  return ok ? 0 : 1;
}
