#include "process_core/serial_worker.h"

namespace tidewatch {

SerialWorker::SerialWorker() {
  thread_ = std::thread([this] {
    for (;;) {
      std::function<void()> work;
      {
        std::unique_lock lock(mutex_);
        ready_.wait(lock, [this] { return ending_ || !queue_.empty(); });
        if (queue_.empty()) return;
        work = std::move(queue_.front());
        queue_.pop_front();
      }
      work();
    }
  });
}

SerialWorker::~SerialWorker() {
  {
    std::lock_guard lock(mutex_);
    ending_ = true;
  }
  ready_.notify_all();
  thread_.join();
}

void SerialWorker::post(std::function<void()> work) {
  {
    std::lock_guard lock(mutex_);
    queue_.push_back(std::move(work));
  }
  ready_.notify_one();
}

}  // namespace tidewatch
