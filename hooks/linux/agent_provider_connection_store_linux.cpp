// The connection store's live environment.
#include <chrono>
#include <thread>

#include "hooks/agent_hook_relay.h"
#include "hooks/agent_provider_connection_store.h"

namespace tidewatch {

AgentProviderConnectionStore::Environment AgentProviderConnectionStore::Environment::live(PostToOwner postToOwner) {
  std::string home = AgentHookPathsLive::homeDirectory();
  AgentHookInstallation installation = AgentHookInstallationLive::installation();
  std::string running = AgentHookInstallationLive::runningLocation(installation);
  AgentHookPaths::Profile hookPaths = AgentHookPathsLive::profile(home);
  return Environment{
      .homeDirectory = std::move(home),
      .bundlePath = std::move(running),
      .defaults = DefaultsStore::standard(),
      .now = [] { return std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now()); },
      .installation = std::move(installation),
      .hookPaths = std::move(hookPaths),
      .files = AgentHookConfigurator::FileOperations::live(),
      .sendInBackground =
          [post = std::move(postToOwner)](std::string bytes, std::string socketPath, double timeoutSeconds,
                                          std::function<void(bool)> done) {
            // Bounded by the send's own time-outs; the report hops back to the owner's thread.
            std::thread([post, bytes = std::move(bytes), socketPath = std::move(socketPath), timeoutSeconds,
                         done = std::move(done)] {
              const bool sent = AgentHookRelay::send(bytes, socketPath, timeoutSeconds);
              post([done, sent] { done(sent); });
            }).detach();
          },
  };
}

}  // namespace tidewatch
