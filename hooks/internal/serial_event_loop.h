// One thread of its own that waits on descriptors and deadlines with poll(2) and runs their
// handlers one at a time, like a serial queue with read sources. Handlers run without locks;
// only the hand-over of work from other threads takes one.
#pragma once

#include <atomic>
#include <chrono>
#include <compare>
#include <cstdint>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace tidewatch::internal {

class SerialEventLoop {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;
  // Deadlines are judged by this clock, so tests can move time on and then call sync().
  using Clock = std::function<TimePoint()>;
  // Names one scheduled piece of work, so it can be cancelled.
  struct Timer {
    TimePoint deadline;
    uint64_t serial = 0;
    friend auto operator<=>(const Timer&, const Timer&) = default;
  };

  explicit SerialEventLoop(Clock clock);
  ~SerialEventLoop();  // end()s
  SerialEventLoop(const SerialEventLoop&) = delete;
  SerialEventLoop& operator=(const SerialEventLoop&) = delete;

  // Runs work on the loop's thread and waits for it; inline when called from that thread.
  // Deadlines that are due run first. False when the thread could not be started; work has
  // not run then.
  bool sync(const std::function<void()>& work);
  // Ends and joins the thread; later sync() calls do nothing and answer false. Not on the loop.
  void end();
  bool isCurrent() const { return std::this_thread::get_id() == threadID_.load(); }

  // On the loop's thread only.
  void watch(int fd, std::function<void()> onReadable);
  void unwatch(int fd);
  Timer after(TimePoint deadline, std::function<void()> work);
  // Drops work not yet run; a timer that ran or was cancelled is ignored.
  void cancel(const Timer& timer);

 private:
  struct Request {
    const std::function<void()>* work = nullptr;
    bool done = false;
  };

  bool ensureThread();
  void loop();
  void runDueDeadlines();
  int pollTimeoutMilliseconds() const;
  void wake();

  Clock clock_;
  std::map<int, std::function<void()>> watched_;
  std::map<Timer, std::function<void()>> deadlines_;  // by deadline, then in order of scheduling
  uint64_t timersScheduled_ = 0;

  // Shared with calling threads, under mutex_.
  std::mutex mutex_;
  std::condition_variable finished_;
  std::vector<Request*> requests_;
  bool ending_ = false;

  int wakeRead_ = -1;
  int wakeWrite_ = -1;
  std::thread thread_;
  std::atomic<std::thread::id> threadID_{};
};

}  // namespace tidewatch::internal
