#include "process_core/system_classifier.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace tidewatch {
namespace {

TEST(KnownBackgroundAppClassifierTest, MatchesBundlesAndPathFragmentsIgnoringCase) {
  const std::tuple<std::optional<std::string>, std::optional<std::string>, bool> cases[] = {
      {"COM.RAYCAST.MACOS", {}, true},
      {{}, "/Applications/Raycast.app/Contents/MacOS/Raycast", true},
      {"com.other", "/Applications/Google Drive.app/Contents/MacOS/x", true},
      {{}, "/Applications/Dia.app/MacOS/Dia", false},
      {"com.raycast.macos.helper", {}, false},
      {{}, {}, false},
  };
  for (const auto& [bundle, path, known] : cases) {
    ProcessSnapshot snapshot;
    snapshot.executablePath = path;
    snapshot.bundleIdentifier = bundle;
    EXPECT_EQ(KnownBackgroundAppClassifier::isKnownBackground(snapshot), known) << bundle.value_or(path.value_or(""));
  }
}

struct CountingVendorCheck {
  std::vector<std::string> asked;
  bool answer = true;
  SystemClassifier::IsVendorBinary operation() {
    return [this](const std::string& path) {
      asked.push_back(path);
      return answer;
    };
  }
};

TEST(SystemClassifierTest, NeedsBothASystemPrefixAndAVendorBinary) {
  CountingVendorCheck check;
  SystemClassifier classifier(check.operation());
  EXPECT_TRUE(classifier.isStrongSystemBackground("/usr/sbin/sshd"));
  EXPECT_TRUE(classifier.isStrongSystemBackground("/Library/Apple/usr/bin/x"));
  // Not under a prefix: no vendor check at all.
  EXPECT_FALSE(classifier.isStrongSystemBackground("/usr/local/bin/node"));
  EXPECT_FALSE(classifier.isStrongSystemBackground("/usr/lib"));
  EXPECT_FALSE(classifier.isStrongSystemBackground("/USR/SBIN/sshd"));
  EXPECT_FALSE(classifier.isStrongSystemBackground(std::nullopt));
  EXPECT_EQ(check.asked, (std::vector<std::string>{"/usr/sbin/sshd", "/Library/Apple/usr/bin/x"}));

  check.answer = false;
  EXPECT_FALSE(classifier.isStrongSystemBackground("/usr/bin/python3"));
}

TEST(SystemClassifierTest, BatchAsksOncePerPathIncludingFalseVerdictsAndKeepsOrder) {
  CountingVendorCheck check;
  check.answer = false;
  const std::vector<std::optional<std::string>> paths{"/usr/bin/x", std::nullopt, "/opt/y", "/usr/bin/x"};
  EXPECT_EQ(strongSystemBackgroundFlags(paths, check.operation()), (std::vector<bool>{false, false, false, false}));
  EXPECT_EQ(check.asked.size(), 1u);

  // A new batch asks again: verdicts are not kept across scans.
  check.answer = true;
  EXPECT_EQ(strongSystemBackgroundFlags(paths, check.operation()), (std::vector<bool>{true, false, false, true}));
  EXPECT_EQ(check.asked.size(), 2u);
}

TEST(PlumbingLocationTest, SystemHelpersButNotTheRuntimesAndServersUnderUsrLib) {
  const std::pair<std::string_view, bool> cases[] = {
      {"/usr/libexec/packagekitd", true},
      {"/usr/sbin/sshd", true},
      {"/sbin/dhclient", true},
      {"/usr/lib/systemd/systemd-resolved", true},
      {"/usr/lib/x86_64-linux-gnu/libexec/kdeconnectd", true},
      {"/usr/lib/libexec/helper", true},
      {"/usr/lib/jvm/java-17-openjdk-amd64/bin/java", false},
      {"/usr/lib/erlang/erts-13.1.5/bin/beam.smp", false},
      {"/usr/lib/dotnet/dotnet", false},
      {"/usr/lib/postgresql/15/bin/postgres", false},
      {"/usr/lib/libexecutable-tools/bin/x", false},
      {"/usr/lib/x/libexec", false},
      {"/usr/bin/node", false},
      {"/bin/sh", false},
      {"/lib/systemd/systemd", false},
      {"/opt/libexec/x", false},
  };
  for (const auto& [path, plumbing] : cases) EXPECT_EQ(isPlumbingLocation(path), plumbing) << path;
}

TEST(LiveVendorBinaryTest, NeedsARootOwnedFileInAPlumbingFolder) {
  // Find a regular root-owned file under /usr/sbin that nobody else may write.
  std::optional<std::string> shipped;
  for (const auto& entry : std::filesystem::directory_iterator("/usr/sbin")) {
    struct stat status {};
    if (::lstat(entry.path().c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == 0 &&
        (status.st_mode & (S_IWGRP | S_IWOTH)) == 0) {
      shipped = entry.path();
      break;
    }
  }
  ASSERT_TRUE(shipped.has_value());
  EXPECT_TRUE(isOperatingSystemBinary(*shipped));

  EXPECT_FALSE(isOperatingSystemBinary("/usr/bin/env"));
  EXPECT_FALSE(isOperatingSystemBinary("/usr/sbin"));
  EXPECT_FALSE(isOperatingSystemBinary("/usr/sbin/no-such-file-here"));
  // Debian's JDK is a developer's runtime, root-owned as it may be.
  if (::access("/usr/lib/jvm", F_OK) == 0) {
    for (const auto& entry : std::filesystem::directory_iterator("/usr/lib/jvm")) {
      EXPECT_FALSE(isOperatingSystemBinary(entry.path() / "bin/java")) << entry.path();
    }
  }
}

}  // namespace
}  // namespace tidewatch
