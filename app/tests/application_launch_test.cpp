#include "app/application_launch.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <set>

namespace tidewatch {
namespace {

using namespace ApplicationLaunch;

TEST(ApplicationLaunch, ExecsTheApplicationBesideOrInstalledOnlyInAGraphicalSession) {
  struct Case {
    const char* what;
    std::optional<std::string> display, wayland;
    std::set<std::string> executables;
    Plan plan;
  };
  const std::string noDisplay =
      "error: no graphical session here (neither DISPLAY nor WAYLAND_DISPLAY is set); run \"tidewatch scan\" for "
      "the listening ports";
  const Case cases[] = {
      {"over SSH", std::nullopt, std::nullopt, {"/opt/tw/bin/tidewatch-app"}, Refusal{noDisplay}},
      {"empty variables", "", "", {"/opt/tw/bin/tidewatch-app"}, Refusal{noDisplay}},
      {"the build tree", ":0", std::nullopt, {"/opt/tw/bin/tidewatch-app", "/opt/tw/libexec/tidewatch/tidewatch-app"},
       Exec{"/opt/tw/bin/tidewatch-app", {"/opt/tw/bin/tidewatch-app", "--stray"}}},
      {"installed", std::nullopt, "wayland-0", {"/opt/tw/libexec/tidewatch/tidewatch-app"},
       Exec{"/opt/tw/libexec/tidewatch/tidewatch-app", {"/opt/tw/libexec/tidewatch/tidewatch-app", "--stray"}}},
      {"missing", ":0", std::nullopt, {},
       Refusal{"error: the Tidewatch application (tidewatch-app) is not installed beside /opt/tw/bin/tidewatch; run "
               "\"tidewatch scan\" for the listening ports"}},
  };
  for (const auto& c : cases) {
    const Environment environment{c.display, c.wayland, "/opt/tw/bin/tidewatch",
                                  [&c](const std::string& path) { return c.executables.contains(path); }};
    EXPECT_EQ(plan({"--stray"}, environment), c.plan) << c.what;
  }
}

TEST(ApplicationLaunch, HelpAndVersionForWhoeverAsks) {
  const std::pair<std::vector<std::string>, std::optional<Request>> cases[] = {
      {{"--help"}, Request::help}, {{"x", "-h"}, Request::help}, {{"--version"}, Request::version},
      {{"--Help"}, std::nullopt},  {{}, std::nullopt},
  };
  for (const auto& [arguments, expected] : cases) EXPECT_EQ(request(arguments), expected);

  // The real command: help and version on standard output with status 0, the refusal on
  // standard error with status 1, the report untouched.
  const std::string tidewatch = std::string(TIDEWATCH_BINARY_DIR) + "/app/tidewatch";
  const auto run = [&tidewatch](const std::string& arguments) {
    FILE* pipe = ::popen(("env -u DISPLAY -u WAYLAND_DISPLAY " + tidewatch + " " + arguments + " 2>&1").c_str(), "r");
    std::string out;
    char buffer[4096];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    return std::pair(WEXITSTATUS(::pclose(pipe)), out);
  };
  const auto [helpStatus, help] = run("--help");
  EXPECT_EQ(helpStatus, 0);
  EXPECT_EQ(help, helpText());
  EXPECT_NE(help.find("  scan "), std::string::npos);
  const auto [versionStatus, version] = run("--version");
  EXPECT_EQ(versionStatus, 0);
  EXPECT_EQ(version, "tidewatch 0.1.0\n");
  const auto [appStatus, refusal] = run("");
  EXPECT_EQ(appStatus, 1);
  EXPECT_NE(refusal.find("tidewatch scan"), std::string::npos) << refusal;
  EXPECT_EQ(std::count(refusal.begin(), refusal.end(), '\n'), 1) << "one line";
  EXPECT_EQ(run("scan --help").first, 0) << "the report keeps its own dispatch";
}

}  // namespace
}  // namespace tidewatch
