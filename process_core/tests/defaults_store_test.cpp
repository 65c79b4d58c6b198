#include "process_core/defaults_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace tidewatch {
namespace {

class DefaultsStoreFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    char pattern[] = "/tmp/tidewatch-defaults-XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    directory = pattern;
  }
  void TearDown() override { (void)std::system(("rm -rf " + directory).c_str()); }

  std::string read(const std::string& path) {
    std::ifstream in(path);
    std::stringstream buffer;
    buffer << in.rdbuf();
    return buffer.str();
  }

  std::string directory;
};

TEST(DefaultsStorePath, FollowsXDGConfigHomeElseHome) {
  EXPECT_EQ(DefaultsStore::standardPath("/cfg", "/home/u"), "/cfg/tidewatch/defaults.json");
  EXPECT_EQ(DefaultsStore::standardPath(nullptr, "/home/u"), "/home/u/.config/tidewatch/defaults.json");
  EXPECT_EQ(DefaultsStore::standardPath("relative/ignored", "/home/u"), "/home/u/.config/tidewatch/defaults.json");
}

TEST_F(DefaultsStoreFiles, WritesAtomicallyKeepsOtherKeysAndReadsOddValuesAsFalse) {
  DefaultsStore store(directory + "/nested/tidewatch/defaults.json");
  EXPECT_FALSE(store.boolForKey("tidewatchOnboardingComplete"));
  ASSERT_TRUE(store.set("display.rowDensity", "compact"));
  ASSERT_TRUE(store.set("tidewatchOnboardingComplete", true));
  ASSERT_TRUE(store.set("launchAtLoginOfferCompleted", "yes"));
  EXPECT_TRUE(store.boolForKey("tidewatchOnboardingComplete"));
  EXPECT_FALSE(store.boolForKey("launchAtLoginOfferCompleted")) << "a string is not a boolean";
  EXPECT_EQ(store.stringForKey("display.rowDensity"), "compact");
  EXPECT_EQ(read(store.path()),
            "{\n  \"display.rowDensity\" : \"compact\",\n  \"launchAtLoginOfferCompleted\" : \"yes\",\n"
            "  \"tidewatchOnboardingComplete\" : true\n}\n");
  struct stat info {};
  ASSERT_EQ(stat(store.path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  ASSERT_TRUE(store.remove("display.rowDensity"));
  EXPECT_EQ(store.stringForKey("display.rowDensity"), std::nullopt);
}

TEST_F(DefaultsStoreFiles, AFailedReplaceLeavesNoTemporaryBehind) {
  // A directory standing where the file should be makes the final rename fail.
  ASSERT_EQ(mkdir((directory + "/defaults.json").c_str(), 0700), 0);
  DefaultsStore store(directory + "/defaults.json");
  EXPECT_FALSE(store.set("a", 1));
  int entries = 0;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    (void)entry;
    ++entries;
  }
  EXPECT_EQ(entries, 1);
}

}  // namespace
}  // namespace tidewatch
