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
  auto snapshot = [](std::optional<std::string> bundle, std::optional<std::string> path) {
    ProcessSnapshot result;
    result.executablePath = std::move(path);
    result.bundleIdentifier = std::move(bundle);
    return result;
  };
  EXPECT_TRUE(KnownBackgroundAppClassifier::isKnownBackground(snapshot("COM.RAYCAST.MACOS", {})));
  EXPECT_TRUE(KnownBackgroundAppClassifier::isKnownBackground(
      snapshot({}, "/Applications/Raycast.app/Contents/MacOS/Raycast")));
  EXPECT_TRUE(KnownBackgroundAppClassifier::isKnownBackground(
      snapshot("com.other", "/Applications/Google Drive.app/Contents/MacOS/x")));
  EXPECT_FALSE(KnownBackgroundAppClassifier::isKnownBackground(snapshot({}, "/Applications/Dia.app/MacOS/Dia")));
  EXPECT_FALSE(KnownBackgroundAppClassifier::isKnownBackground(snapshot("com.raycast.macos.helper", {})));
  EXPECT_FALSE(KnownBackgroundAppClassifier::isKnownBackground(snapshot({}, {})));
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
  std::error_code error;
  for (auto it = std::filesystem::recursive_directory_iterator("/usr/lib", error);
       it != std::filesystem::recursive_directory_iterator() && !shipped; it.increment(error)) {
    if (error) break;
    struct stat status {};
    const std::string path = it->path().string();
    if (::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == 0 &&
        (status.st_mode & (S_IWGRP | S_IWOTH)) == 0) {
      shipped = path;
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
