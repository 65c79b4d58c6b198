#include "process_core/defaults_store.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <iterator>

#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

TEST(DefaultsStorePath, FollowsXDGConfigHomeElseHome) {
  EXPECT_EQ(DefaultsStore::standardPath("/cfg", "/home/u"), "/cfg/tidewatch/defaults.json");
  EXPECT_EQ(DefaultsStore::standardPath(nullptr, "/home/u"), "/home/u/.config/tidewatch/defaults.json");
  EXPECT_EQ(DefaultsStore::standardPath("relative/ignored", "/home/u"), "/home/u/.config/tidewatch/defaults.json");
}

TEST(DefaultsStoreFiles, WritesAtomicallyKeepsOtherKeysAndReadsOddValuesAsFalse) {
  const testing::TemporaryDirectory directory;
  ASSERT_FALSE(directory.path().empty());
  DefaultsStore store(directory.path() + "/nested/tidewatch/defaults.json");
  EXPECT_FALSE(store.boolForKey("tidewatchOnboardingComplete"));
  ASSERT_TRUE(store.set("display.rowDensity", "compact"));
  ASSERT_TRUE(store.set("tidewatchOnboardingComplete", true));
  ASSERT_TRUE(store.set("launchAtLoginOfferCompleted", "yes"));
  EXPECT_TRUE(store.boolForKey("tidewatchOnboardingComplete"));
  EXPECT_FALSE(store.boolForKey("launchAtLoginOfferCompleted")) << "a string is not a boolean";
  EXPECT_EQ(store.stringForKey("display.rowDensity"), "compact");
  EXPECT_EQ(store.valueForKey("launchAtLoginOfferCompleted"), nlohmann::json("yes"));
  EXPECT_EQ(store.valueForKey("display.showPort"), std::nullopt) << "absent, not false";
  std::ifstream file(store.path());
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}),
            "{\n  \"display.rowDensity\" : \"compact\",\n  \"launchAtLoginOfferCompleted\" : \"yes\",\n"
            "  \"tidewatchOnboardingComplete\" : true\n}\n");
  struct stat info {};
  ASSERT_EQ(stat(store.path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);
  ASSERT_TRUE(store.remove("display.rowDensity"));
  EXPECT_EQ(store.stringForKey("display.rowDensity"), std::nullopt);
}

TEST(DefaultsStoreFiles, AFileWithARawNULReadsAsNoSettings) {
  const testing::TemporaryDirectory directory;
  DefaultsStore store(directory.path() + "/defaults.json");
  std::ofstream(store.path(), std::ios::binary) << std::string("{\"a\" : true}\0{\"b\" : true}", 25);
  EXPECT_FALSE(store.boolForKey("a"));
  EXPECT_FALSE(store.boolForKey("b"));
}

TEST(DefaultsStoreFiles, AFailedReplaceLeavesNoTemporaryBehind) {
  // A directory standing where the file should be makes the final rename fail.
  const testing::TemporaryDirectory directory;
  const std::string path = directory.path() + "/defaults.json";
  ASSERT_TRUE(std::filesystem::create_directory(path));
  EXPECT_FALSE(DefaultsStore(path).set("a", 1));
  const std::filesystem::directory_iterator entries(directory.path());
  EXPECT_EQ(std::distance(begin(entries), end(entries)), 1);
}

}  // namespace
}  // namespace tidewatch
