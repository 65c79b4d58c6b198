// A child process for tests that read the real process table: the child runs a setup, reports
// one line to the parent over a pipe, and then waits to be killed. The parent kills and reaps it
// when the handle goes away, so no test leaves a process behind.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

namespace tidewatch::testing {

class ForkedChild {
 public:
  // setup runs in the child and returns the line it reports; the parent waits for that line.
  // A setup that execs reports nothing: the pipe closes on exec, which the parent waits for.
  explicit ForkedChild(const std::function<std::string()>& setup) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(fds[0]);
      const std::string line = setup() + "\n";
      (void)!::write(fds[1], line.data(), line.size());
      while (true) ::pause();
    }
    ::close(fds[1]);
    char byte;
    while (pid_ > 0 && ::read(fds[0], &byte, 1) == 1 && byte != '\n') report_.push_back(byte);
    ::close(fds[0]);
  }

  ForkedChild(const ForkedChild&) = delete;
  ForkedChild& operator=(const ForkedChild&) = delete;
  ~ForkedChild() { reap(); }

  pid_t pid() const { return pid_; }
  const std::string& report() const { return report_; }

  // Kills the child and waits for it; its pid then names no process of ours.
  void reap() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
  }

 private:
  pid_t pid_ = -1;
  std::string report_;
};

}  // namespace tidewatch::testing
