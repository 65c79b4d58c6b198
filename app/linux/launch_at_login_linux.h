// Open at login on a Linux desktop: an XDG autostart entry of our own,
// $XDG_CONFIG_HOME/autostart/tidewatch.desktop. Approval is never asked for. An entry at that
// path that we did not write is the user's: it is never replaced or removed.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "app/launch_at_login.h"
#include "hooks/agent_hook_configurator.h"

namespace tidewatch {

class LaunchAtLoginManager {
 public:
  struct Dependencies {
    AgentHookConfigurator::FileOperations files;
    std::string autostartFile;  // absolute
    std::string executable;     // the installed tidewatch the entry starts
    // Opens the desktop's startup applications settings.
    std::function<void()> openSettings;

    // The user's autostart folder and the installed executable.
    static Dependencies live(std::function<void()> openSettings = {});
  };

  // Marks an entry as written by us; only such entries are replaced or removed.
  static constexpr std::string_view markerKey = "X-Tidewatch-Autostart";
  static constexpr uint32_t fileMode = 0644;
  static constexpr uint32_t directoryMode = 0755;

  // `xdgConfigHome` counts only when absolute; otherwise ~/.config below `home`.
  static std::string autostartFilePath(const char* xdgConfigHome, const char* home);
  // The whole entry that starts the executable at login.
  static std::string desktopEntry(const std::string& executable);

  explicit LaunchAtLoginManager(Dependencies dependencies);

  // Enabled when our entry starts the installed executable and is not switched off.
  LaunchAtLoginReconciler::SystemStatus status() const;
  // Writes our entry by atomic replace. Fails, leaving the file as it is, when an entry that is
  // not ours stands at the path.
  LaunchAtLoginReconciler::ChangeResult registerApp() const;
  // Removes our entry; someone else's is left alone.
  LaunchAtLoginReconciler::ChangeResult unregisterApp() const;
  void openLoginItemsSettings() const;

  // The operations above for LaunchAtLoginController, over a copy of this manager.
  LaunchAtLoginService service() const;

 private:
  bool ownsExistingEntry() const;

  Dependencies dependencies_;
};

}  // namespace tidewatch
