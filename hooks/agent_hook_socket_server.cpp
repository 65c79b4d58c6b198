#include "hooks/agent_hook_socket_server.h"

#include <algorithm>
#include <utility>

namespace tidewatch {

using FileType = AgentHookSocketServer::FileStatus::Type;

std::string_view AgentHookSocketServer::message(StartError error) {
  switch (error) {
    case StartError::socketPathTooLong: return "The event endpoint path is too long for this system.";
    case StartError::runtimeDirectoryIsSymlink:
    case StartError::runtimeDirectoryNotOwnedByUser:
    case StartError::runtimeDirectoryUnavailable:
      return "Tidewatch's runtime folder in Application Support is unusable.";
    case StartError::stalePathIsNotAnOwnedSocket:
      return "Something else occupies Tidewatch's event-endpoint path.";
    case StartError::socketUnavailable: return "The local event endpoint couldn't be created.";
  }
  return otherStartFailureMessage;
}

AgentHookSocketServer::AgentHookSocketServer(AgentHookPaths paths, Dependencies dependencies, OnEnvelope onEnvelope)
    : paths_(std::move(paths)),
      dependencies_(std::move(dependencies)),
      onEnvelope_(std::move(onEnvelope)),
      queue_(dependencies_.uptime) {}

AgentHookSocketServer::~AgentHookSocketServer() {
  queue_.end();
  closeEverything();  // the socket file stays: only stop() removes it
}

std::optional<AgentHookSocketServer::StartFailure> AgentHookSocketServer::start() {
  std::optional<StartError> error;
  if (!queue_.sync([&] { error = startOnQueue(); })) return StartFailure{std::nullopt};
  if (error) return StartFailure{error};
  return std::nullopt;
}

void AgentHookSocketServer::stop() {
  if (!queue_.sync([this] { stopOnQueue(); })) stopOnQueue();  // no thread ever ran: nothing races
}

void AgentHookSocketServer::sync(const std::function<void()>& work) {
  if (!queue_.sync(work)) work();
}

bool AgentHookSocketServer::isListening() {
  bool listening = false;
  sync([&] { listening = listenFD_ >= 0; });
  return listening;
}

size_t AgentHookSocketServer::connectionCount() {
  size_t count = 0;
  sync([&] { count = connections_.size(); });
  return count;
}

std::optional<AgentHookSocketServer::StartError> AgentHookSocketServer::startOnQueue() {
  if (listenFD_ >= 0) return std::nullopt;
  if (auto error = prepareRuntimeDirectory()) return error;
  if (auto error = removeStaleSocketIfSafe()) return error;
  const std::string& path = paths_.socketPath;
  if (path.size() > AgentHookPaths::maxSocketPathBytes) return StartError::socketPathTooLong;

  const int fd = dependencies_.openSocket();
  if (fd < 0) return StartError::socketUnavailable;
  if (!dependencies_.bindSocket(fd, path) || !dependencies_.changeMode(path, socketMode) ||
      !dependencies_.listenSocket(fd, listenBacklog) || !dependencies_.setNonBlocking(fd)) {
    dependencies_.closeDescriptor(fd);
    (void)dependencies_.removeFile(path);
    return StartError::socketUnavailable;
  }
  listenFD_ = fd;
  // What stop() may remove later: this socket in this directory, nothing put in their place.
  const auto socketStatus = dependencies_.fileStatus(path);
  if (socketStatus && socketStatus->type == FileType::socket) {
    socketFile_ = Identity{socketStatus->device, socketStatus->inode};
  }
  nextAcceptRest_ = firstAcceptRest;
  updateAcceptWatch();
  return std::nullopt;
}

std::optional<AgentHookSocketServer::StartError> AgentHookSocketServer::prepareRuntimeDirectory() {
  const std::string& directory = paths_.runtimeDirectory;
  runtimeDirectory_.reset();
  socketFile_.reset();
  const uint32_t user = dependencies_.effectiveUserID();
  const auto status = dependencies_.fileStatus(directory);
  if (!status) {
    if (!dependencies_.createDirectories(directory, directoryMode)) return StartError::runtimeDirectoryUnavailable;
    const auto created = dependencies_.fileStatus(directory);
    if (!created || created->type != FileType::directory || created->owner != user) {
      return StartError::runtimeDirectoryUnavailable;
    }
    (void)dependencies_.changeMode(directory, directoryMode);
    runtimeDirectory_ = Identity{created->device, created->inode};
    return std::nullopt;
  }
  if (status->type == FileType::symbolicLink) return StartError::runtimeDirectoryIsSymlink;
  if (status->type != FileType::directory) return StartError::runtimeDirectoryUnavailable;
  if (status->owner != user) return StartError::runtimeDirectoryNotOwnedByUser;
  if (status->permissions != directoryMode && !dependencies_.changeMode(directory, directoryMode)) {
    return StartError::runtimeDirectoryUnavailable;
  }
  runtimeDirectory_ = Identity{status->device, status->inode};
  return std::nullopt;
}

std::optional<AgentHookSocketServer::StartError> AgentHookSocketServer::removeStaleSocketIfSafe() {
  const auto status = dependencies_.fileStatus(paths_.socketPath);
  if (!status) return std::nullopt;  // free
  // There is no test for another running copy: the last one to start takes the path over.
  if (status->type != FileType::socket || status->owner != dependencies_.effectiveUserID()) {
    return StartError::stalePathIsNotAnOwnedSocket;
  }
  if (!dependencies_.removeFile(paths_.socketPath)) return StartError::socketUnavailable;
  return std::nullopt;
}

void AgentHookSocketServer::acceptPending() {
  // At the cap the listener is not watched: further peers wait in the listen backlog, and a
  // relay's connect waits there for room, rather than being accepted only to be closed.
  while (listenFD_ >= 0 && connections_.size() < maxConnections) {
    const Accepted accepted = dependencies_.acceptConnection(listenFD_);
    if (accepted.kind == Accepted::Kind::nonePending) break;
    if (accepted.kind == Accepted::Kind::outOfResources) {
      // The listener stays readable, so watching it now would only spin: rest, then try again.
      restAccepting();
      return;
    }
    nextAcceptRest_ = firstAcceptRest;
    const int fd = accepted.fd;
    if (!dependencies_.validatePeer(fd) || !dependencies_.setNonBlocking(fd)) {
      dependencies_.closeDescriptor(fd);  // before a byte is read, and without an answer
      continue;
    }
    const uint64_t serial = ++acceptedConnections_;
    Connection& connection = connections_.emplace(fd, Connection{serial, {}, {}}).first->second;
    queue_.watch(fd, [this, fd] { readPending(fd); });
    // The check belongs to this connection, not to its descriptor number: relays finish in a
    // millisecond and their numbers come back at once, so a check that went by number alone
    // would end a newer connection in the middle of its envelope. A connection that finishes
    // first cancels it, so no check outlives its connection.
    connection.timeLimit = queue_.after(dependencies_.uptime() + connectionTimeLimit, [this, fd, serial] {
      const auto found = connections_.find(fd);
      if (found != connections_.end() && found->second.serial == serial) finishConnection(fd, false);
    });
  }
  updateAcceptWatch();
}

void AgentHookSocketServer::restAccepting() {
  acceptRest_ = queue_.after(dependencies_.uptime() + nextAcceptRest_, [this] {
    acceptRest_.reset();
    updateAcceptWatch();
  });
  nextAcceptRest_ = std::min(nextAcceptRest_ * 2, longestAcceptRest);
  updateAcceptWatch();
}

void AgentHookSocketServer::updateAcceptWatch() {
  const bool wanted = listenFD_ >= 0 && !acceptRest_ && connections_.size() < maxConnections;
  if (wanted == listenerWatched_) return;
  if (wanted) queue_.watch(listenFD_, [this] { acceptPending(); });
  else queue_.unwatch(listenFD_);
  listenerWatched_ = wanted;
}

void AgentHookSocketServer::readPending(int fd) {
  const auto connection = connections_.find(fd);
  if (connection == connections_.end()) return;
  std::string& buffer = connection->second.buffer;
  char chunk[readChunkBytes];
  for (;;) {
    const Received received = dependencies_.receive(fd, chunk, sizeof chunk);
    switch (received.kind) {
      case Received::Kind::bytes:
        buffer.append(chunk, received.count);
        if (buffer.size() > maxBufferBytes) return finishConnection(fd, false);
        break;
      case Received::Kind::endOfStream: return finishConnection(fd, true);
      case Received::Kind::wouldBlock: return;
      case Received::Kind::failed: return finishConnection(fd, false);
    }
  }
}

void AgentHookSocketServer::finishConnection(int fd, bool deliver) {
  auto node = connections_.extract(fd);
  if (node.empty()) return;
  queue_.unwatch(fd);
  queue_.cancel(node.mapped().timeLimit);
  dependencies_.closeDescriptor(fd);
  updateAcceptWatch();
  if (!deliver) return;
  // Oversized, truncated or invalid messages vanish without a trace.
  if (auto envelope = AgentHookProtocol::decodeEnvelope(node.mapped().buffer)) {
    onEnvelope_(*envelope, dependencies_.now());
  }
}

void AgentHookSocketServer::stopOnQueue() {
  const bool wasListening = listenFD_ >= 0;
  if (listenerWatched_) queue_.unwatch(listenFD_);
  listenerWatched_ = false;
  if (acceptRest_) queue_.cancel(*acceptRest_);
  acceptRest_.reset();
  for (const auto& entry : connections_) {
    queue_.unwatch(entry.first);
    queue_.cancel(entry.second.timeLimit);
  }
  closeEverything();
  // Only the socket this server bound, in the directory it prepared: never a file that someone
  // put at the path since, nor one behind a directory swapped for a link.
  if (wasListening && isStillOurs(paths_.runtimeDirectory, FileType::directory, runtimeDirectory_) &&
      isStillOurs(paths_.socketPath, FileType::socket, socketFile_)) {
    (void)dependencies_.removeFile(paths_.socketPath);
  }
}

bool AgentHookSocketServer::isStillOurs(const std::string& path, FileType type,
                                        const std::optional<Identity>& identity) const {
  const auto status = dependencies_.fileStatus(path);
  return identity && status && status->type == type && Identity{status->device, status->inode} == *identity;
}

void AgentHookSocketServer::closeEverything() {
  for (const auto& entry : connections_) dependencies_.closeDescriptor(entry.first);
  connections_.clear();
  if (listenFD_ >= 0) dependencies_.closeDescriptor(listenFD_);
  listenFD_ = -1;
}

}  // namespace tidewatch
