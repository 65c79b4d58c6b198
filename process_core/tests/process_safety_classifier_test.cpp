#include "process_core/process_safety_classifier.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

constexpr ProcessSafetyClassifier::Context context{100, 501};
const std::string node = "/usr/local/bin/node";

// A process of the current user unless told otherwise; pid 100 is this program.
ProcessSnapshot userProcess(std::optional<std::string> path, std::optional<std::string> bundle = {},
                            std::optional<uint32_t> uid = 501u, bool sameUser = true, int32_t pid = 4242) {
  ProcessSnapshot snapshot;
  snapshot.identity = {pid, 1, 0};
  snapshot.executablePath = std::move(path);
  snapshot.bundleIdentifier = std::move(bundle);
  snapshot.uid = uid;
  snapshot.sameUser = sameUser;
  return snapshot;
}

ProcessSnapshot kernelThread() {
  ProcessSnapshot snapshot = userProcess(std::nullopt);
  snapshot.name = "kworker/0:1";
  snapshot.isKernelThread = true;
  return snapshot;
}

ProcessSafetyClass guarded(ProtectionReason reason) { return ProcessSafetyClass::protectedBy(reason); }

TEST(ProcessSafetyClassifierTest, FirstApplicableProtectionWins) {
  using R = ProtectionReason;
  struct Case {
    const char* what;
    ProcessSnapshot snapshot;
    bool appleSystemBinary;
    bool inTidewatchSubtree;
    ProcessSafetyClass expected;
  };
  const Case cases[] = {
      {"own pid", userProcess(node, {}, 501u, true, 100), false, false, guarded(R::tidewatchSelf)},
      {"own bundle", userProcess("/opt/x", "com.tidewatch.app"), false, false, guarded(R::tidewatchSelf)},
      {"another user's process in the subtree", userProcess(node, {}, 0u, false), false, true,
       guarded(R::tidewatchSelf)},
      {"another user's process", userProcess(node, {}, 0u, false), false, false, guarded(R::unconfirmedOwner)},
      {"a host app whose uid differs", userProcess("/usr/bin/konsole", {}, 0u), false, false,
       guarded(R::unconfirmedOwner)},
      {"a host app that is also a system binary",
       userProcess("/System/Applications/Utilities/Terminal.app/Contents/MacOS/Terminal"), true, false,
       guarded(R::hostApp)},
      {"/bin/zsh as a system binary", userProcess("/bin/zsh"), true, false, guarded(R::loginShell)},
      {"a user's own bash", userProcess("/Users/me/bin/bash"), false, false, guarded(R::loginShell)},
      {"a system binary", userProcess("/usr/sbin/cupsd"), true, false, guarded(R::appleSystemProcess)},
      {"a look-alike Finder", userProcess("/tmp/Finder"), false, false, ProcessSafetyClass::actionable()},
      {"Finder with Apple's bundle", userProcess("/tmp/Finder", "com.apple.finder"), false, false,
       guarded(R::appleSystemProcess)},
      {"Finder with a near-miss bundle", userProcess("/tmp/Finder", "com.applex.finder"), false, false,
       ProcessSafetyClass::actionable()},
      {"Dock under a system prefix", userProcess("/System/Library/CoreServices/Dock.app/Contents/MacOS/Dock"), false,
       false, guarded(R::appleSystemProcess)},
      {"a plain server whose uid is unknown", userProcess(node, {}, std::nullopt), false, false,
       ProcessSafetyClass::actionable()},
      {"Debian's /bin/sh, which is dash", userProcess("/usr/bin/dash"), false, false, guarded(R::loginShell)},
      {"busybox", userProcess("/usr/bin/busybox"), false, false, guarded(R::loginShell)},
      {"the desktop's shell", userProcess("/usr/bin/gnome-shell"), false, false, guarded(R::appleSystemProcess)},
      {"the X server under /usr/lib", userProcess("/usr/lib/xorg/Xorg"), false, false,
       guarded(R::appleSystemProcess)},
      {"a look-alike systemd in a user's folder", userProcess("/home/me/bin/systemd"), false, false,
       ProcessSafetyClass::actionable()},
      {"init run by the same user (root)", userProcess("/home/me/init-shim", {}, 501u, true, 1), false, false,
       guarded(R::appleSystemProcess)},
      {"a kernel thread", kernelThread(), false, false, guarded(R::appleSystemProcess)},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(ProcessSafetyClassifier::classify(c.snapshot, c.appleSystemBinary, c.inTidewatchSubtree, context),
              c.expected)
        << c.what;
  }
}

TEST(ProcessSafetyClassifierTest, LoginShellGoesByBasenameOnly) {
  const std::tuple<std::optional<std::string>, std::optional<std::string>, bool> cases[] = {
      {"fish", {}, true}, {"nu", "/", true}, {{}, "/bin/Bash", false}, {{}, "/usr/bin/dash", true},
      {{}, "/bin/mksh", true}, {"tcsh", {}, true}, {{}, "/usr/bin/dashboard", false}, {{}, {}, false}};
  for (const auto& [name, path, shell] : cases) {
    ProcessSnapshot snapshot;
    snapshot.name = name;
    snapshot.executablePath = path;
    EXPECT_EQ(ProcessSafetyClassifier::isLoginShell(snapshot), shell) << name.value_or("") << path.value_or("");
  }
}

}  // namespace
}  // namespace tidewatch
