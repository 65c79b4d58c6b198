#include "process_core/process_safety_classifier.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

using ProcessSafetyClassifier::Context;

constexpr Context context{100, 501};

ProcessSnapshot userProcess(std::optional<std::string> path) {
  ProcessSnapshot snapshot;
  snapshot.identity = {4242, 1, 0};
  snapshot.executablePath = std::move(path);
  snapshot.uid = 501u;
  snapshot.sameUser = true;
  return snapshot;
}

ProcessSnapshot named(std::optional<std::string> name, std::optional<std::string> path) {
  ProcessSnapshot snapshot;
  snapshot.name = std::move(name);
  snapshot.executablePath = std::move(path);
  return snapshot;
}

struct Case {
  const char* what;
  ProcessSnapshot snapshot;
  bool appleSystemBinary;
  bool inTidewatchSubtree;
  ProcessSafetyClass expected;
};

ProcessSafetyClass guarded(ProtectionReason reason) { return ProcessSafetyClass::protectedBy(reason); }

std::vector<Case> cases() {
  std::vector<Case> all;
  auto add = [&all](const char* what, ProcessSnapshot s, bool apple, bool subtree, ProcessSafetyClass expected) {
    all.push_back({what, std::move(s), apple, subtree, expected});
  };
  ProcessSnapshot self = userProcess("/usr/local/bin/node");
  self.identity.pid = 100;
  add("own pid", self, false, false, guarded(ProtectionReason::tidewatchSelf));

  ProcessSnapshot bundled = userProcess("/opt/x");
  bundled.bundleIdentifier = "com.tidewatch.app";
  add("own bundle", bundled, false, false, guarded(ProtectionReason::tidewatchSelf));

  ProcessSnapshot otherUser = userProcess("/usr/local/bin/node");
  otherUser.sameUser = false;
  otherUser.uid = 0;
  add("another user's process in the subtree", otherUser, false, true, guarded(ProtectionReason::tidewatchSelf));
  add("another user's process", otherUser, false, false, guarded(ProtectionReason::unconfirmedOwner));

  ProcessSnapshot otherHost = userProcess("/usr/bin/konsole");
  otherHost.uid = 0;
  add("a host app whose uid differs", otherHost, false, false, guarded(ProtectionReason::unconfirmedOwner));

  ProcessSnapshot terminal = userProcess("/System/Applications/Utilities/Terminal.app/Contents/MacOS/Terminal");
  add("a host app that is also a system binary", terminal, true, false, guarded(ProtectionReason::hostApp));

  add("/bin/zsh as a system binary", userProcess("/bin/zsh"), true, false, guarded(ProtectionReason::loginShell));
  add("a user's own bash", userProcess("/Users/me/bin/bash"), false, false, guarded(ProtectionReason::loginShell));
  add("a system binary", userProcess("/usr/sbin/cupsd"), true, false, guarded(ProtectionReason::appleSystemProcess));
  add("a look-alike Finder", userProcess("/tmp/Finder"), false, false, ProcessSafetyClass::actionable());

  ProcessSnapshot finder = userProcess("/tmp/Finder");
  finder.bundleIdentifier = "com.apple.finder";
  add("Finder with Apple's bundle", finder, false, false, guarded(ProtectionReason::appleSystemProcess));
  finder.bundleIdentifier = "com.applex.finder";
  add("Finder with a near-miss bundle", finder, false, false, ProcessSafetyClass::actionable());
  add("Dock under a system prefix", userProcess("/System/Library/CoreServices/Dock.app/Contents/MacOS/Dock"), false,
      false, guarded(ProtectionReason::appleSystemProcess));

  ProcessSnapshot unknownUID = userProcess("/usr/local/bin/node");
  unknownUID.uid.reset();
  add("a plain server whose uid is unknown", unknownUID, false, false, ProcessSafetyClass::actionable());
  return all;
}

TEST(ProcessSafetyClassifierTest, FirstApplicableProtectionWins) {
  for (const Case& c : cases()) {
    EXPECT_EQ(ProcessSafetyClassifier::classify(c.snapshot, c.appleSystemBinary, c.inTidewatchSubtree, context),
              c.expected)
        << c.what;
  }
}

TEST(ProcessSafetyClassifierTest, LoginShellGoesByBasenameOnly) {
  EXPECT_TRUE(ProcessSafetyClassifier::isLoginShell(named("fish", {})));
  EXPECT_TRUE(ProcessSafetyClassifier::isLoginShell(named("nu", "/")));
  EXPECT_FALSE(ProcessSafetyClassifier::isLoginShell(named({}, "/bin/Bash")));
  EXPECT_FALSE(ProcessSafetyClassifier::isLoginShell(named({}, "/bin/dash")));
  EXPECT_FALSE(ProcessSafetyClassifier::isLoginShell(named({}, {})));
}

}  // namespace
}  // namespace tidewatch
