// Signalling a process without ever hitting a pid that was reused behind our back.
#pragma once

#include <cstdint>
#include <functional>

namespace tidewatch {

// Sends one signal to the process that was pinned; answers 0 or an errno value.
using PinnedSignal = std::function<int(int signal)>;

struct ProcessSignals {
  // Pins the process now behind `pid`, before it is read and checked, so that a signal sent
  // after the checks reaches that very process or nobody: once it exits, the answer is ESRCH
  // even if the pid has been reused. Where the kernel cannot pin, it signals by pid.
  std::function<PinnedSignal(int32_t pid)> pin;

  static ProcessSignals live();
};

}  // namespace tidewatch
