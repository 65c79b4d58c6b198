// The application's end of the hook transport: owns the runtime directory and the listening
// socket, takes short connections from relays of the same user, and hands each envelope that
// arrives whole to a callback. It answers nothing. All its work runs on one thread of its own.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "hooks/agent_hook_paths.h"
#include "hooks/agent_hook_protocol.h"
#include "hooks/internal/serial_event_loop.h"
#include "process_core/process_records.h"

namespace tidewatch {

class AgentHookSocketServer {
 public:
  static constexpr size_t maxConnections = 16;
  static constexpr int listenBacklog = 8;
  static constexpr size_t readChunkBytes = 1024;
  static constexpr size_t maxBufferBytes = AgentHookProtocol::maxEnvelopeBytes;
  static constexpr std::chrono::milliseconds connectionTimeLimit{2000};
  // Out of descriptors, the listener rests this long before it is watched again, doubling up to
  // the longest rest; an accepted connection resets it.
  static constexpr std::chrono::milliseconds firstAcceptRest{100};
  static constexpr std::chrono::milliseconds longestAcceptRest{1000};
  static constexpr uint32_t directoryMode = 0700;
  static constexpr uint32_t socketMode = 0600;

  enum class StartError {
    socketPathTooLong,
    runtimeDirectoryIsSymlink,
    runtimeDirectoryNotOwnedByUser,
    runtimeDirectoryUnavailable,
    stalePathIsNotAnOwnedSocket,
    socketUnavailable,
  };
  // The words the application shows for a failed start.
  static std::string_view message(StartError error);
  static constexpr std::string_view otherStartFailureMessage = "The local event endpoint couldn't start.";

  // A failed start: one of the known errors, or something else (no error).
  struct StartFailure {
    std::optional<StartError> error;
    std::string_view message() const { return error ? AgentHookSocketServer::message(*error) : otherStartFailureMessage; }
    friend bool operator==(const StartFailure&, const StartFailure&) = default;
  };

  // What lstat(2) tells of a path.
  struct FileStatus {
    enum class Type { directory, symbolicLink, socket, regularFile, other };
    Type type = Type::other;
    uint32_t owner = 0;
    uint32_t permissions = 0;  // the nine permission bits
    uint64_t device = 0;
    uint64_t inode = 0;
  };

  // One accept from the non-blocking listener.
  struct Accepted {
    enum class Kind { connection, nonePending, outOfResources };
    Kind kind = Kind::nonePending;
    int fd = -1;
  };

  // One read from a connection.
  struct Received {
    enum class Kind { bytes, endOfStream, wouldBlock, failed };
    Kind kind = Kind::failed;
    size_t count = 0;
  };

  // Every operation of the system the server uses; live() wires the real ones.
  struct Dependencies {
    // The wall-clock time handed to onEnvelope with each envelope.
    std::function<Date()> now;
    // A monotonic clock for the time limit of a connection.
    std::function<std::chrono::steady_clock::time_point()> uptime;
    // True exactly when the peer of a connected descriptor runs as the effective user.
    std::function<bool(int fd)> validatePeer;
    std::function<uint32_t()> effectiveUserID;
    // lstat: the link itself, not its target; absent when the path cannot be examined.
    std::function<std::optional<FileStatus>(const std::string& path)> fileStatus;
    // Creates the directory and any missing parents with this mode; true on success.
    std::function<bool(const std::string& path, uint32_t mode)> createDirectories;
    std::function<bool(const std::string& path, uint32_t mode)> changeMode;
    // unlink
    std::function<bool(const std::string& path)> removeFile;
    // A local stream socket descriptor, or -1.
    std::function<int()> openSocket;
    std::function<bool(int fd, const std::string& path)> bindSocket;
    std::function<bool(int fd, int backlog)> listenSocket;
    std::function<bool(int fd)> setNonBlocking;
    // The next pending connection of a non-blocking listener; outOfResources for a failure that
    // a retry at once would only repeat (no descriptor or memory left).
    std::function<Accepted(int listenFD)> acceptConnection;
    std::function<Received(int fd, char* buffer, size_t length)> receive;
    std::function<void(int fd)> closeDescriptor;

    static Dependencies live();
  };

  // Called on the server's thread; it must hand its work on without blocking.
  using OnEnvelope = std::function<void(const AgentHookProtocol::Envelope& envelope, Date arrival)>;

  AgentHookSocketServer(AgentHookPaths paths, Dependencies dependencies, OnEnvelope onEnvelope);
  // Closes what is still open without removing the socket file. Not from onEnvelope.
  ~AgentHookSocketServer();
  AgentHookSocketServer(const AgentHookSocketServer&) = delete;
  AgentHookSocketServer& operator=(const AgentHookSocketServer&) = delete;

  // Both run on the server's thread and wait for it. start() on a listening server and stop()
  // on a stopped one do nothing.
  std::optional<StartFailure> start();
  void stop();

  // Runs work on the server's thread and waits; limits that fell due run first.
  void sync(const std::function<void()>& work);
  bool isListening();
  size_t connectionCount();

  const AgentHookPaths& paths() const { return paths_; }

 private:
  struct Connection {
    uint64_t serial = 0;  // tells this connection from a later one on the same descriptor
    internal::SerialEventLoop::Timer timeLimit;
    std::string buffer;
  };

  // Where a file stands, to tell it later from one put in its place.
  struct Identity {
    uint64_t device = 0;
    uint64_t inode = 0;
    friend bool operator==(const Identity&, const Identity&) = default;
  };

  std::optional<StartError> startOnQueue();
  std::optional<StartError> prepareRuntimeDirectory();
  std::optional<StartError> removeStaleSocketIfSafe();
  void acceptPending();
  void readPending(int fd);
  void finishConnection(int fd, bool deliver);
  void restAccepting();
  void updateAcceptWatch();
  bool isStillOurs(const std::string& path, FileStatus::Type type, const std::optional<Identity>& identity) const;
  void stopOnQueue();
  void closeEverything();

  const AgentHookPaths paths_;
  const Dependencies dependencies_;
  const OnEnvelope onEnvelope_;
  int listenFD_ = -1;
  bool listenerWatched_ = false;
  std::optional<internal::SerialEventLoop::Timer> acceptRest_;  // while the listener rests
  std::chrono::milliseconds nextAcceptRest_ = firstAcceptRest;
  std::optional<Identity> runtimeDirectory_;  // as prepared by the last start
  std::optional<Identity> socketFile_;        // as bound by the last start
  std::map<int, Connection> connections_;
  uint64_t acceptedConnections_ = 0;
  // Declared last: destroyed first, so no handler runs on a half-destroyed server.
  internal::SerialEventLoop queue_;
};

}  // namespace tidewatch
