// Records the golden captures under tests/data/linux from the machine it runs on: a process
// with an awkward command name and a command line holding invalid UTF-8, and the kernel's
// listener tables (netlink and /proc/net) while known sockets listen.
//
// Build and run from the repository root after building process_core (BUILD is its build tree):
//   g++ -std=c++20 -I. process_core/tests/support/capture_golden_data.cpp
//       BUILD/process_core/libprocess_core.a -lutf8proc -o /tmp/capture_golden_data
//   /tmp/capture_golden_data process_core/tests/data/linux
#include <sys/prctl.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>

#include "process_core/linux/sock_diag.h"
#include "process_core/tests/support/listening_socket.h"

namespace {

bool write(const std::string& to, const std::string& content) {
  std::ofstream out(to, std::ios::binary);
  out << content;
  return out.good();
}

bool copyFile(const std::string& from, const std::string& to) {
  std::ifstream in(from, std::ios::binary);
  return in.good() && write(to, std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()));
}

// The child behind the "--child" flag: the stat, status, statm and cmdline captures under an odd name.
int captureProcessFiles(const std::string& directory) {
  prctl(PR_SET_NAME, "we (ird) name)", 0, 0, 0);
  bool ok = true;
  for (const char* name : {"stat", "status", "statm", "cmdline"}) {
    ok = copyFile(std::string("/proc/self/") + name, directory + "/odd_process_" + name) && ok;
  }
  return ok ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 3 && std::strcmp(argv[1], "--child") == 0) return captureProcessFiles(argv[2]);
  if (argc < 2) {
    std::cerr << "usage: capture_golden_data <output directory>\n";
    return 1;
  }
  const std::string directory = argv[1];

  // Ports 47801 to 47804 in the captures belong to these sockets.
  const std::pair<const char*, int> bindings[] = {
      {"127.0.0.1", 47801}, {"::1", 47801}, {"0.0.0.0", 47802}, {"::", 47803}, {"::ffff:127.0.0.1", 47804}};
  std::vector<int> sockets;
  for (const auto& [address, port] : bindings) {
    sockets.push_back(tidewatch::testing::listeningSocket(address, port));
    if (sockets.back() < 0) {
      std::cerr << "cannot listen on " << address << " port " << port << ": " << std::strerror(errno) << "\n";
      return 1;
    }
  }
  bool ok = true;
  for (auto [family, file] : {std::pair{tidewatch::AddressFamily::ipv4, "sock_diag_inet.bin"},
                              std::pair{tidewatch::AddressFamily::ipv6, "sock_diag_inet6.bin"}}) {
    auto bytes = tidewatch::SockDiag::dumpBytes(family);
    ok = bytes && write(directory + "/" + file, std::string(bytes->begin(), bytes->end())) && ok;
  }
  for (const char* file : {"net/tcp", "net/tcp6", "stat"}) {
    std::string name = std::string("proc_") + file;
    std::replace(name.begin(), name.end(), '/', '_');
    ok = copyFile(std::string("/proc/") + file, directory + "/" + name) && ok;
  }
  for (int fd : sockets) close(fd);

  // A valid two-byte character, invalid sequences and an empty argument.
  const pid_t child = fork();
  if (child == 0) {
    char name[] = "capture", flag[] = "--child", valid[] = "caf\xc3\xa9", invalid[] = "bad\xff\xfe\xe2\x82tail",
         empty[] = "";
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
