// One thread of its own that runs posted work one piece at a time, in order: a serial queue for
// work that reads the process table and must stay off the main thread.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace tidewatch {

class SerialWorker {
 public:
  SerialWorker();
  // Runs what is queued, then joins.
  ~SerialWorker();
  SerialWorker(const SerialWorker&) = delete;
  SerialWorker& operator=(const SerialWorker&) = delete;

  // From any thread.
  void post(std::function<void()> work);

 private:
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> queue_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace tidewatch
