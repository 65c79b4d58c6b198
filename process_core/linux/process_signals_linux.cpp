// Pins with a pidfd: pidfd_open before the checks, pidfd_send_signal after them. Kernels
// without pidfds (before 5.3) fall back to kill by pid.
#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

#include "process_core/process_signals.h"

#ifndef SYS_pidfd_open
#define SYS_pidfd_open 434
#endif
#ifndef SYS_pidfd_send_signal
#define SYS_pidfd_send_signal 424
#endif

namespace tidewatch {
namespace {

struct Descriptor {
  explicit Descriptor(int value) : fd(value) {}
  ~Descriptor() {
    if (fd >= 0) (void)::close(fd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int fd;
};

PinnedSignal byPID(int32_t pid) {
  return [pid](int signal) { return ::kill(pid, signal) == 0 ? 0 : errno; };
}

PinnedSignal pinProcess(int32_t pid) {
  if (pid < 1) return [](int) { return EINVAL; };
  const long fd = ::syscall(SYS_pidfd_open, pid, 0);
  if (fd < 0) {
    // The process is already gone: nothing may be signalled under this pid any more.
    if (errno == ESRCH) return [](int) { return ESRCH; };
    return byPID(pid);
  }
  auto descriptor = std::make_shared<Descriptor>(static_cast<int>(fd));
  return [descriptor, pid](int signal) {
    if (::syscall(SYS_pidfd_send_signal, descriptor->fd, signal, nullptr, 0) == 0) return 0;
    const int error = errno;
    return error == ENOSYS ? byPID(pid)(signal) : error;
  };
}

}  // namespace

ProcessSignals ProcessSignals::live() { return ProcessSignals{pinProcess}; }

}  // namespace tidewatch
