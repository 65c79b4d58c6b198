#include "tidewatch_kit/project_resolver.h"

#include <gtest/gtest.h>

#include <set>

namespace tidewatch {
namespace {

const std::string home = "/home/me";

ProjectResolver::PathExists existing(std::set<std::string> paths) {
  return [paths = std::move(paths)](const std::string& path) { return paths.contains(path); };
}

ProjectResolver::CWDForPID workingDirectory(std::optional<std::string> cwd) {
  return [cwd = std::move(cwd)](int32_t) { return cwd; };
}

ProcessSnapshot withArgv(std::optional<std::vector<std::string>> argv) {
  ProcessSnapshot snapshot;
  snapshot.identity = {42, 1, 0};
  snapshot.argv = std::move(argv);
  return snapshot;
}

TEST(ProjectResolverTest, TheWalkStopsAtRootAndAtHome) {
  const auto markers = existing({"/.git", "/home/me/.git", "/home/me/package.json"});
  EXPECT_EQ(ProjectResolver::resolve(withArgv({}), workingDirectory("/"), markers, home), std::nullopt);
  EXPECT_EQ(ProjectResolver::resolve(withArgv({}), workingDirectory(home), markers, home), std::nullopt);
  EXPECT_EQ(ProjectResolver::resolve("/home/me/scratch", markers, home), std::nullopt);
  // However HOME is spelled.
  for (const char* spelling : {"/home/me/", "//home/me", "/home//me//"}) {
    EXPECT_EQ(ProjectResolver::resolve("/home/me/scratch", markers, spelling), std::nullopt) << spelling;
  }
}

TEST(ProjectResolverTest, FindsTheNearestMarkerAsFileOrDirectory) {
  EXPECT_EQ(ProjectResolver::resolve("/home/me/site", existing({"/home/me/site/package.json"}), home),
            (ListenerProject{"site", "/home/me/site"}));
  // The nearer of two projects, and the seed in its standard form.
  EXPECT_EQ(ProjectResolver::resolve("/home/me/mono//apps/./web/src/../",
                                     existing({"/home/me/mono/.git", "/home/me/mono/apps/web/Cargo.toml"}), home),
            (ListenerProject{"web", "/home/me/mono/apps/web"}));
}

TEST(ProjectResolverTest, TriesAtMostTenDirectoriesTheSeedAmongThem) {
  const std::string top = "/work/p";
  std::string seed = top;
  for (int i = 0; i < 9; ++i) seed += "/d" + std::to_string(i);
  // The seed is the tenth directory counting up from /work/p.
  EXPECT_EQ(ProjectResolver::resolve(seed, existing({top + "/go.mod"}), home), (ListenerProject{"p", top}));
  EXPECT_EQ(ProjectResolver::resolve(seed + "/d9", existing({top + "/go.mod"}), home), std::nullopt);
}

TEST(ProjectResolverTest, SeedComesFromTheWorkingDirectoryElseAnAbsoluteArgument) {
  const auto none = workingDirectory(std::nullopt);
  // The working directory is taken as it is, unchecked.
  EXPECT_EQ(ProjectResolver::seedDirectory(withArgv({}), workingDirectory("/gone"), existing({})), "/gone");
  // An interpreter and its script: the script's directory.
  EXPECT_EQ(ProjectResolver::seedDirectory(withArgv({{"python3", "/home/me/api/main.py"}}), none,
                                           existing({"/home/me/api/main.py"})),
            "/home/me/api");
  // A script that no longer exists in a directory that does.
  EXPECT_EQ(ProjectResolver::seedDirectory(withArgv({{"node", "/home/me/api/old.js"}}), none,
                                           existing({"/home/me/api"})),
            "/home/me/api");
  // Relative paths are never seeds; later absolute ones still count.
  EXPECT_EQ(ProjectResolver::seedDirectory(withArgv({{"node", "api/main.js", "/srv/x/y"}}), none,
                                           existing({"api/main.js", "/srv/x/y"})),
            "/srv/x");
  EXPECT_EQ(ProjectResolver::seedDirectory(withArgv({{"node", "/nowhere/a"}}), none, existing({})), std::nullopt);
  EXPECT_EQ(ProjectResolver::seedDirectory(withArgv(std::nullopt), none, existing({})), std::nullopt);
}

}  // namespace
}  // namespace tidewatch
