#include "hooks/internal/serial_event_loop.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <exception>
#include <system_error>

namespace tidewatch::internal {
namespace {

bool makePipe(int (&fds)[2]) {
  if (::pipe(fds) != 0) return false;
  for (int fd : fds) {
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0 || ::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) {
      (void)::close(fds[0]);
      (void)::close(fds[1]);
      return false;
    }
  }
  return true;
}

}  // namespace

SerialEventLoop::SerialEventLoop(Clock clock) : clock_(std::move(clock)) {}

SerialEventLoop::~SerialEventLoop() { end(); }

void SerialEventLoop::end() {
  if (isCurrent()) std::terminate();  // a loop cannot join itself
  {
    std::lock_guard lock(mutex_);
    ending_ = true;
  }
  if (thread_.joinable()) {
    wake();
    thread_.join();
    threadID_ = std::thread::id();
  }
  if (wakeRead_ >= 0) (void)::close(wakeRead_);
  if (wakeWrite_ >= 0) (void)::close(wakeWrite_);
  wakeRead_ = wakeWrite_ = -1;
}

bool SerialEventLoop::ensureThread() {
  if (thread_.joinable()) return true;
  int fds[2];
  if (!makePipe(fds)) return false;
  wakeRead_ = fds[0];
  wakeWrite_ = fds[1];
  try {
    thread_ = std::thread([this] { loop(); });
  } catch (const std::system_error&) {
    (void)::close(wakeRead_);
    (void)::close(wakeWrite_);
    wakeRead_ = wakeWrite_ = -1;
    return false;
  }
  threadID_ = thread_.get_id();
  return true;
}

bool SerialEventLoop::sync(const std::function<void()>& work) {
  if (isCurrent()) {
    work();
    return true;
  }
  Request request{&work, false};
  std::unique_lock lock(mutex_);
  if (ending_ || !ensureThread()) return false;
  requests_.push_back(&request);
  wake();
  finished_.wait(lock, [&] { return request.done; });
  return true;
}

void SerialEventLoop::watch(int fd, std::function<void()> onReadable) { watched_[fd] = std::move(onReadable); }

void SerialEventLoop::unwatch(int fd) { watched_.erase(fd); }

SerialEventLoop::Timer SerialEventLoop::after(TimePoint deadline, std::function<void()> work) {
  const Timer timer{deadline, ++timersScheduled_};
  deadlines_.emplace(timer, std::move(work));
  return timer;
}

void SerialEventLoop::cancel(const Timer& timer) { deadlines_.erase(timer); }

void SerialEventLoop::wake() {
  const char byte = 1;
  (void)!::write(wakeWrite_, &byte, 1);  // a full pipe already means "awake"
}

int SerialEventLoop::pollTimeoutMilliseconds() const {
  if (deadlines_.empty()) return -1;
  const auto remaining = deadlines_.begin()->first.deadline - clock_();
  if (remaining <= TimePoint::duration::zero()) return 0;
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(remaining).count();
  return milliseconds > INT_MAX ? INT_MAX : static_cast<int>(milliseconds);
}

void SerialEventLoop::runDueDeadlines() {
  const TimePoint now = clock_();
  while (!deadlines_.empty() && deadlines_.begin()->first.deadline <= now) {
    auto node = deadlines_.extract(deadlines_.begin());
    node.mapped()();
  }
}

void SerialEventLoop::loop() {
  std::vector<pollfd> fds;
  std::vector<Request*> taken;
  for (;;) {
    fds.clear();
    fds.push_back(pollfd{wakeRead_, POLLIN, 0});
    for (const auto& entry : watched_) fds.push_back(pollfd{entry.first, POLLIN, 0});
    const int ready = ::poll(fds.data(), fds.size(), pollTimeoutMilliseconds());
    if (ready < 0 && errno != EINTR) continue;

    if (ready > 0 && fds[0].revents != 0) {
      char drain[64];
      while (::read(wakeRead_, drain, sizeof drain) > 0) {
      }
    }
    runDueDeadlines();

    bool ending = false;
    {
      std::lock_guard lock(mutex_);
      taken.swap(requests_);
      ending = ending_;
    }
    if (!taken.empty()) {
      // The caller may have moved a test clock on just before asking.
      runDueDeadlines();
      for (Request* request : taken) {
        (*request->work)();
        std::lock_guard lock(mutex_);
        request->done = true;  // the request lives on its caller's stack: not touched after this
      }
      taken.clear();
      finished_.notify_all();
    }
    if (ending) return;

    if (ready <= 0) continue;
    for (size_t i = 1; i < fds.size(); ++i) {
      if (fds[i].revents == 0) continue;
      const auto handler = watched_.find(fds[i].fd);
      if (handler == watched_.end()) continue;  // ended by an earlier handler of this round
      // A copy, since the handler may unwatch its own descriptor.
      const std::function<void()> onReadable = handler->second;
      onReadable();
    }
  }
}

}  // namespace tidewatch::internal
