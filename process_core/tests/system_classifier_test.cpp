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

TEST(LiveVendorBinaryTest, NeedsARootOwnedFileUnderASystemLibraryFolder) {
  // Find a regular root-owned file under /usr/lib that nobody else may write.
  std::optional<std::string> shipped;
  using Entries = std::filesystem::recursive_directory_iterator;
  for (const auto& entry : Entries("/usr/lib", std::filesystem::directory_options::skip_permission_denied)) {
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
  EXPECT_FALSE(isOperatingSystemBinary("/usr/lib"));
  EXPECT_FALSE(isOperatingSystemBinary("/usr/lib/no-such-file-here"));

  char pattern[] = "/tmp/tidewatch-vendor-XXXXXX";
  const int fd = ::mkstemp(pattern);
  ASSERT_GE(fd, 0);
  ::close(fd);
  EXPECT_FALSE(isOperatingSystemBinary(pattern));
  (void)::unlink(pattern);
}

}  // namespace
}  // namespace tidewatch
