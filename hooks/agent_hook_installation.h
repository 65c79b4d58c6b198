// Where the program is installed, as the hook command line and the connection store see it.
// A hook starts the application at one fixed path, so only a copy that runs from there is
// served; each platform's values are data here, so both can be exercised anywhere.
#pragma once

#include <string>

namespace tidewatch {

struct AgentHookInstallation {
  // The program that a hook command starts (the command's APP).
  std::string applicationExecutable;
  // What the running program's location must equal for the hooks to reach it.
  std::string installedLocation;
  // The folder named to the user when the program runs from somewhere else.
  std::string installationDirectory;
  // A socket path in the form the shell expands when the hook runs. Never written now, it stays
  // among the program's own commands so that entries of that form are still found and replaced.
  std::string homeRelativeSocketPath;

  // /Applications/Tidewatch.app.
  static AgentHookInstallation darwin();
  // The `tidewatch` executable at its installed path, which must be absolute.
  static AgentHookInstallation linuxInstalled(const std::string& installedExecutable);

  friend bool operator==(const AgentHookInstallation&, const AgentHookInstallation&) = default;
};

// The values of the system this program was built for.
namespace AgentHookInstallationLive {
// On Linux the executable under the install prefix the build was configured with.
AgentHookInstallation installation();
// Where the running program lives, comparable with installedLocation: on Linux the installed
// path when the running executable is that very file, else the running executable's own path.
std::string runningLocation(const AgentHookInstallation& installation);
}  // namespace AgentHookInstallationLive

}  // namespace tidewatch
