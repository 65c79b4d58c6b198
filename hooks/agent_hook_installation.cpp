#include "hooks/agent_hook_installation.h"

#include "process_core/path_utils.h"

namespace tidewatch {

AgentHookInstallation AgentHookInstallation::darwin() {
  return AgentHookInstallation{
      .applicationExecutable = "/Applications/Tidewatch.app/Contents/MacOS/Tidewatch",
      .installedLocation = "/Applications/Tidewatch.app",
      .installationDirectory = "/Applications",
      .homeRelativeSocketPath = "$HOME/Library/Application Support/Tidewatch/Runtime/agent-events.sock",
  };
}

AgentHookInstallation AgentHookInstallation::linuxInstalled(const std::string& installedExecutable) {
  return AgentHookInstallation{
      .applicationExecutable = installedExecutable,
      .installedLocation = installedExecutable,
      .installationDirectory = deletingLastPathComponent(installedExecutable),
      .homeRelativeSocketPath = "$HOME/.local/state/tidewatch/runtime/agent-events.sock",
  };
}

}  // namespace tidewatch
