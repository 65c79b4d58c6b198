// The agent inventory with its hook transport, owned as one object and free of any toolkit: the
// hook socket server, the provider connections and the coordinator, wired as the application
// wires them. The application owns one; a command-line host or a test can own one just as well.
//
// An envelope's origin is worked out on the server's thread, where it arrives; only then does it
// hop to the main executor, which checks that its provider is connected, records it with the
// connection store and hands it to the inventory.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "hooks/agent_hook_socket_server.h"
#include "hooks/agent_provider_connection_store.h"
#include "inventory/agent_inventory_coordinator.h"
#include "process_core/main_executor.h"

namespace tidewatch {

class AgentInventoryHost {
 public:
  struct Parts {
    std::shared_ptr<MainExecutor> executor;
    AgentHookPaths paths;
    AgentHookSocketServer::Dependencies server;
    AgentProviderConnectionStore::Environment connections;
    AgentInventoryCoordinator::Dependencies inventory;
    // Where an event with this parent pid came from; on the server's thread.
    std::function<AgentInventoryCoordinator::HookOrigin(int32_t parentPID)> hookOrigin;
    // Whether events are taken in at all; the application opens it once onboarding is through.
    // Absent: always open.
    std::function<bool()> intakeOpen;

    // This machine's: the user's runtime directory, settings files and process table.
    static Parts live(std::shared_ptr<MainExecutor> executor);
  };

  explicit AgentInventoryHost(Parts parts);
  // Stops the server (its socket removed) and voids the inventory's queued work.
  ~AgentInventoryHost();
  AgentInventoryHost(const AgentInventoryHost&) = delete;
  AgentInventoryHost& operator=(const AgentInventoryHost&) = delete;

  // On the main thread. Runs the hook server exactly while the intake is open and a provider is
  // connected, and lets the inventory forget every provider that is not; the reason when the
  // server could not start (also handed to the connection store as its receiver failure).
  std::optional<AgentHookSocketServer::StartFailure> syncHookServer();
  bool isReceivingHooks();
  void stop();

  void applyScan(const ScanResult& result) { inventory_.applyScan(result); }
  void applyScanFailure() { inventory_.applyScanFailure(); }
  void applyTrackingUpdate(const AgentTrackingUpdateFacts& facts) { inventory_.applyTrackingUpdate(facts); }

  AgentProviderConnectionStore& connections() { return connections_; }
  AgentInventoryCoordinator& inventory() { return inventory_; }
  const AgentHookPaths& paths() const { return server_.paths(); }

  // On the main thread, after every publication.
  std::function<void(const AgentInventorySnapshot& snapshot)> onSnapshot;
  std::function<void(const std::vector<AgentCompletionEdge>& edges)> onCompletionEdges;
  // After any change of the connections, their notices or the receiver's failure.
  std::function<void()> onConnectionsChanged;

 private:
  void route(const AgentHookProtocol::Envelope& envelope, const AgentInventoryCoordinator::HookOrigin& origin,
             Date at);
  void connectionsChanged();
  bool intakeOpen() const { return !intakeOpen_ || intakeOpen_(); }

  std::shared_ptr<MainExecutor> executor_;
  std::function<bool()> intakeOpen_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  AgentProviderConnectionStore connections_;
  AgentInventoryCoordinator inventory_;
  std::set<AgentKind> configured_;
  // Last: destroyed first, so no envelope arrives for a half-destroyed host.
  AgentHookSocketServer server_;
};

}  // namespace tidewatch
