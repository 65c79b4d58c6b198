// Shared pieces of the socket tests: a scratch directory, a raw client, and a recorder of
// delivered envelopes that waits without sleeping.
#pragma once

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "hooks/agent_hook_socket_server.h"

namespace tidewatch::testing {

class ScratchDirectory {
 public:
  ScratchDirectory() {
    char pattern[] = "/tmp/twhooks-XXXXXX";
    path_ = ::mkdtemp(pattern);
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A blocking client connected to the socket, or -1. Its descriptor is moved above 100, so the
// server in this same process gets the numbers it would get alone.
inline int connectClient(const std::string& socketPath) {
  const int first = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int fd = ::fcntl(first, F_DUPFD_CLOEXEC, 100);
  ::close(first);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

// Blocks until the server closes the connection: true when it did so without sending anything
// (a reset when it left bytes unread).
inline bool closedByServer(int fd) {
  char byte;
  const ssize_t n = ::recv(fd, &byte, 1, 0);
  return n == 0 || (n < 0 && errno == ECONNRESET);
}

// True when the server still holds the connection open.
inline bool stillOpen(int fd) {
  char byte;
  return ::recv(fd, &byte, 1, MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

class Deliveries {
 public:
  AgentHookSocketServer::OnEnvelope handler() {
    return [this](const AgentHookProtocol::Envelope& envelope, Date) {
      std::lock_guard lock(mutex_);
      envelopes_.push_back(envelope);
      arrived_.notify_all();
    };
  }
  // Waits (bounded) for at least n envelopes and answers all of them.
  std::vector<AgentHookProtocol::Envelope> waitFor(size_t n) {
    std::unique_lock lock(mutex_);
    arrived_.wait_for(lock, std::chrono::seconds(5), [&] { return envelopes_.size() >= n; });
    return envelopes_;
  }
  size_t count() {
    std::lock_guard lock(mutex_);
    return envelopes_.size();
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<AgentHookProtocol::Envelope> envelopes_;
};

// Polls a condition of the server's thread for up to two seconds.
template <typename Predicate>
bool eventually(Predicate predicate) {
  const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(2);
  while (!predicate()) {
    if (std::chrono::steady_clock::now() > giveUp) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

}  // namespace tidewatch::testing
