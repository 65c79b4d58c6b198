#include "inventory/agent_inventory_host.h"

namespace tidewatch {

AgentInventoryHost::Parts AgentInventoryHost::Parts::live(std::shared_ptr<MainExecutor> executor) {
  auto environment = AgentProviderConnectionStore::Environment::live(
      [executor](std::function<void()> work) { executor->post(std::move(work)); });
  AgentHookPaths paths = AgentHookPaths::standard(environment.hookPaths);
  return Parts{
      .executor = std::move(executor),
      .paths = std::move(paths),
      .server = AgentHookSocketServer::Dependencies::live(),
      .connections = std::move(environment),
      .inventory = AgentInventoryCoordinator::Dependencies::live(),
      .hookOrigin = [](int32_t parentPID) { return AgentInventoryCoordinator::liveHookOrigin(parentPID); },
      .intakeOpen = {},
  };
}

AgentInventoryHost::AgentInventoryHost(Parts parts)
    : executor_(parts.executor),
      intakeOpen_(std::move(parts.intakeOpen)),
      connections_(std::move(parts.connections)),
      inventory_(parts.executor, std::move(parts.inventory)),
      server_(std::move(parts.paths), std::move(parts.server),
              [executor = parts.executor, alive = std::weak_ptr<bool>(alive_), this,
               hookOrigin = std::move(parts.hookOrigin)](const AgentHookProtocol::Envelope& envelope, Date at) {
                // The process table is read here, on the server's thread, before anything else.
                const auto origin = hookOrigin(envelope.parentPID);
                executor->post([alive, this, envelope, origin, at] {
                  if (alive.lock()) route(envelope, origin, at);
                });
              }) {
  inventory_.onSnapshotPublished = [this] {
    if (onSnapshot) onSnapshot(inventory_.snapshot());
  };
  inventory_.onCompletionEdges = [this](const std::vector<AgentCompletionEdge>& edges) {
    if (onCompletionEdges) onCompletionEdges(edges);
  };
  connections_.onChange = [this] { connectionsChanged(); };
  connections_.onConfiguredChange = [this] { (void)syncHookServer(); };
  connections_.refresh();
  for (AgentKind provider : allAgentKinds) {
    if (connections_.isConfigured(provider)) configured_.insert(provider);
  }
  inventory_.setProviderConnections(connections_.connections());
}

AgentInventoryHost::~AgentInventoryHost() { stop(); }

std::optional<AgentHookSocketServer::StartFailure> AgentInventoryHost::syncHookServer() {
  const bool open = intakeOpen();
  bool wanted = false;
  for (AgentKind provider : allAgentKinds) {
    if (open && connections_.isConfigured(provider)) {
      wanted = true;
    } else {
      inventory_.providerDisconnected(provider);
    }
  }
  inventory_.setProviderConnections(connections_.connections());
  if (!wanted) {
    server_.stop();
    connections_.setReceiverFailure(std::nullopt);
    return std::nullopt;
  }
  auto failure = server_.start();
  connections_.setReceiverFailure(failure ? std::optional<std::string>(std::string(failure->message())) : std::nullopt);
  return failure;
}

bool AgentInventoryHost::isReceivingHooks() { return server_.isListening(); }

void AgentInventoryHost::stop() {
  server_.stop();
  inventory_.shutDown();
}

void AgentInventoryHost::route(const AgentHookProtocol::Envelope& envelope,
                               const AgentInventoryCoordinator::HookOrigin& origin, Date at) {
  // An event of a provider the user has not connected, or before onboarding is through, goes no
  // further.
  if (!intakeOpen() || !connections_.isConfigured(envelope.provider)) return;
  connections_.recordEnvelope(envelope, at);
  if (envelope.event == AgentHookProtocol::EventKind::connectionTest) return;
  inventory_.applyHookEnvelope(envelope, origin, at);
}

void AgentInventoryHost::connectionsChanged() {
  std::set<AgentKind> configured;
  for (AgentKind provider : allAgentKinds) {
    if (connections_.isConfigured(provider)) configured.insert(provider);
  }
  // A provider the user disconnected takes its hook sessions with it.
  for (AgentKind provider : configured_) {
    if (!configured.contains(provider)) inventory_.providerDisconnected(provider);
  }
  configured_ = std::move(configured);
  inventory_.setProviderConnections(connections_.connections());
  if (onConnectionsChanged) onConnectionsChanged();
}

}  // namespace tidewatch
