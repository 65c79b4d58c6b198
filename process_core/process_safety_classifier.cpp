#include "process_core/process_safety_classifier.h"

#include <unistd.h>

#include <algorithm>
#include <array>

#include "process_core/host_app_recognition.h"
#include "process_core/system_classifier.h"

namespace tidewatch::ProcessSafetyClassifier {
namespace {

constexpr std::array<std::string_view, 5> loginShellBasenames{"zsh", "bash", "fish", "sh", "nu"};
// Linux beside them: /bin/sh is dash on Debian, and a shell is a shell whatever its name.
constexpr std::array<std::string_view, 12> linuxShellBasenames{"dash", "ash",  "ksh", "mksh",   "oksh", "yash",
                                                               "tcsh", "csh",  "elvish", "pwsh", "busybox", "rbash"};
constexpr std::array<std::string_view, 7> coreSystemBasenames{
    "launchd", "WindowServer", "loginwindow", "Finder", "ControlCenter", "SystemUIServer", "Dock"};
// The processes a Linux desktop session stands on: init, the display server, the shell of the
// desktop, the message bus, sound, and the display managers.
constexpr std::array<std::string_view, 21> linuxCoreSystemBasenames{
    "systemd",     "init",      "Xorg",         "Xwayland",     "gnome-shell", "plasmashell", "kwin_x11",
    "kwin_wayland", "dbus-daemon", "dbus-broker", "pipewire",     "wireplumber", "pulseaudio",  "gdm",
    "gdm3",        "gdm-x-session", "sddm",     "lightdm",      "lxdm",        "xdm",         "mutter"};

template <size_t N>
bool contains(const std::array<std::string_view, N>& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// A look-alike named after a system process in a user's folder does not count.
bool isCoreSystemProcess(const ProcessSnapshot& snapshot) {
  const auto basename = processBasename(snapshot);
  if (!basename || !(contains(coreSystemBasenames, *basename) || contains(linuxCoreSystemBasenames, *basename))) {
    return false;
  }
  if (snapshot.executablePath && SystemClassifier::hasSystemPrefix(*snapshot.executablePath)) return true;
  if (!snapshot.bundleIdentifier) return false;
  const std::string& bundle = *snapshot.bundleIdentifier;
  return bundle == "com.apple" || bundle.starts_with("com.apple.");
}

}  // namespace

const Context& Context::current() {
  static const Context context{static_cast<int32_t>(::getpid()), static_cast<uint32_t>(::getuid())};
  return context;
}

bool isLoginShell(const ProcessSnapshot& snapshot) {
  const auto basename = processBasename(snapshot);
  return basename && (contains(loginShellBasenames, *basename) || contains(linuxShellBasenames, *basename));
}

ProcessSafetyClass classify(const ProcessSnapshot& snapshot, bool appleSystemBinary, bool inTidewatchSubtree,
                            const Context& context) {
  // The order matters: a shell this program started is its own, a host app of another user
  // is someone else's.
  if (snapshot.identity.pid == context.selfPID) return ProcessSafetyClass::protectedBy(ProtectionReason::tidewatchSelf);
  if (snapshot.bundleIdentifier == tidewatchBundleID) {
    return ProcessSafetyClass::protectedBy(ProtectionReason::tidewatchSelf);
  }
  if (inTidewatchSubtree) return ProcessSafetyClass::protectedBy(ProtectionReason::tidewatchSelf);
  if (!snapshot.sameUser) return ProcessSafetyClass::protectedBy(ProtectionReason::unconfirmedOwner);
  // An absent uid passes: sameUser has already vouched for the process.
  if (snapshot.uid && *snapshot.uid != context.currentUID) {
    return ProcessSafetyClass::protectedBy(ProtectionReason::unconfirmedOwner);
  }
  if (HostAppRecognition::recognize(snapshot)) return ProcessSafetyClass::protectedBy(ProtectionReason::hostApp);
  if (isLoginShell(snapshot)) return ProcessSafetyClass::protectedBy(ProtectionReason::loginShell);
  if (appleSystemBinary) return ProcessSafetyClass::protectedBy(ProtectionReason::appleSystemProcess);
  if (isCoreSystemProcess(snapshot)) return ProcessSafetyClass::protectedBy(ProtectionReason::appleSystemProcess);
  // init and the kernel's own threads, whoever runs this program (root owns them too).
  if (snapshot.identity.pid == 1 || snapshot.isKernelThread) {
    return ProcessSafetyClass::protectedBy(ProtectionReason::appleSystemProcess);
  }
  return ProcessSafetyClass::actionable();
}

}  // namespace tidewatch::ProcessSafetyClassifier
