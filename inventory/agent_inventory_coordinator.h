// The one owner of the inventory's reducer. It takes every input from every thread, applies them
// one at a time in the order they arrived on the main executor, publishes a fresh snapshot after
// each, hands completion edges to whoever listens, and wakes itself for the next expiry.
//
// A scan step probes processes in the background before it applies; it waits for them without
// blocking the main thread, and every later step waits behind it, so nothing overtakes it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "inventory/agent_inventory_reducer.h"
#include "process_core/main_executor.h"

namespace tidewatch {

class AgentInventoryCoordinator {
 public:
  using HookOrigin = AgentInventoryReducer::HookOrigin;

  struct Dependencies {
    std::function<Date()> now;
    // Whether a process with exactly this identity runs now; from any thread. A process that
    // cannot be read, or a reused pid, counts as gone.
    std::function<bool(const ProcessIdentity& identity)> isProcessCurrent;
    // Runs work away from the main thread.
    std::function<void(std::function<void()> work)> runInBackground;

    static Dependencies live();
  };

  AgentInventoryCoordinator(std::shared_ptr<MainExecutor> executor, Dependencies dependencies);
  // Shuts down: nothing queued runs after this.
  ~AgentInventoryCoordinator();
  AgentInventoryCoordinator(const AgentInventoryCoordinator&) = delete;
  AgentInventoryCoordinator& operator=(const AgentInventoryCoordinator&) = delete;

  // The latest publication; on the main thread.
  const AgentInventorySnapshot& snapshot() const;
  // Which provider each known process presents, as the reducer has it now; on the main thread.
  std::map<AgentProcessIdentity, AgentKind> presentedProviderEvidence() const;

  // Each returns at once and queues its step. From any thread; steps run in the order of calls.
  void applyScan(const ScanResult& result);
  void applyScanFailure();
  void applyHookEnvelope(const AgentHookProtocol::Envelope& envelope, const HookOrigin& origin, Date receivedAt);
  void applyTrackingUpdate(const AgentTrackingUpdateFacts& facts);
  void setProviderConnections(std::vector<AgentProviderConnection> connections);
  void providerDisconnected(AgentKind provider);
  // Runs `work` on the main thread once every step queued before it has been applied; never
  // after a shut-down.
  void whenSettled(std::function<void()> work);
  // Voids every queued step and the expiry timer; final.
  void shutDown();

  // Called on the main thread: the edges of one publication, and after every publication.
  std::function<void(const std::vector<AgentCompletionEdge>& edges)> onCompletionEdges;
  std::function<void()> onSnapshotPublished;

  // Where a hook event came from: its parent process, walked up at most 8 parents (so at most 9
  // reads) on the caller's thread. `read` is the process of any user by pid.
  using ReadProcess = std::function<std::optional<ProcessSnapshot>(int32_t pid)>;
  static HookOrigin liveHookOrigin(int32_t parentPID);
  static HookOrigin hookOrigin(int32_t parentPID, const ReadProcess& read);
  static HookOrigin hookOrigin(const ProcessSnapshot& start, const std::map<int32_t, ProcessSnapshot>& chain);

 private:
  struct Core;
  std::shared_ptr<Core> core_;
};

}  // namespace tidewatch
