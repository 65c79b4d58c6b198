#include "tidewatch_kit/listener_enrichment.h"

#include <gtest/gtest.h>

#include <map>
#include <set>

namespace tidewatch {
namespace {

ProcessSnapshot process(int32_t pid, int32_t parentPID, std::string path) {
  ProcessSnapshot snapshot;
  snapshot.identity = {pid, 1000, 0};
  snapshot.executablePath = std::move(path);
  snapshot.parentPID = parentPID;
  snapshot.sameUser = true;
  return snapshot;
}

struct FakeSystem {
  std::map<int32_t, ProcessSnapshot> processes;
  std::map<int32_t, std::string> workingDirectories;
  std::set<std::string> existingPaths;

  void add(ProcessSnapshot snapshot) { processes.insert_or_assign(snapshot.identity.pid, std::move(snapshot)); }
  LookupSnapshot lookup() const {
    return [this](int32_t pid) -> std::optional<ProcessSnapshot> {
      auto it = processes.find(pid);
      return it == processes.end() ? std::nullopt : std::optional(it->second);
    };
  }
  ProjectResolver::CWDForPID cwd() const {
    return [this](int32_t pid) -> std::optional<std::string> {
      auto it = workingDirectories.find(pid);
      return it == workingDirectories.end() ? std::nullopt : std::optional(it->second);
    };
  }
  ProjectResolver::PathExists exists() const {
    return [this](const std::string& path) { return existingPaths.contains(path); };
  }
};

TEST(ListenerEnrichmentTest, GathersAgentHostProjectAndFocusTargetInOneWalk) {
  FakeSystem system;
  system.add(process(100, 1, "/usr/bin/kitty"));
  system.add(process(200, 100, "/home/me/.local/bin/claude"));
  const ProcessSnapshot owner = process(300, 200, "/usr/bin/node");
  system.workingDirectories[300] = "/home/me/src/app/server";
  system.existingPaths.insert("/home/me/src/app/package.json");

  const auto result =
      ListenerEnrichment::enrich(owner, 999, system.lookup(), system.exists(), system.cwd(), "/home/me");
  EXPECT_EQ(result.agentProcess, (AgentProcessIdentity{{200, 1000, 0}, AgentKind::claude}));
  EXPECT_EQ(result.agentOrigin(), AgentKind::claude);
  EXPECT_EQ(result.host, AgentHost{HostAppKind::terminal});
  EXPECT_EQ(result.focusTarget, (FocusTarget{100, "kitty"}));
  EXPECT_EQ(result.project, (ListenerProject{"app", "/home/me/src/app"}));
  EXPECT_FALSE(result.isInTidewatchSubtree);
}

TEST(ListenerEnrichmentTest, AChildOfThisProgramIsInItsSubtreeAndMayHaveNoContext) {
  FakeSystem system;
  system.add(process(999, 1, "/usr/bin/tidewatch"));
  const auto result = ListenerEnrichment::enrich(process(300, 999, "/usr/bin/python3"), 999, system.lookup(),
                                                 system.exists(), system.cwd(), "/home/me");
  ListenerEnrichment::Result expected;
  expected.isInTidewatchSubtree = true;
  EXPECT_EQ(result, expected);
  EXPECT_EQ(result.agentOrigin(), std::nullopt);
}

TEST(FocusTargetResolverTest, NamesTheHostOrSaysWhyNot) {
  FakeSystem system;
  system.add(process(100, 1, "/usr/bin/konsole"));
  const ProcessSnapshot owner = process(300, 100, "/usr/bin/node");
  const ProcessSnapshot orphan = process(301, 1, "/usr/bin/node");
  auto running = [](int32_t) { return true; };
  auto stopped = [](int32_t) { return false; };

  EXPECT_EQ(FocusTargetResolver::resolve(owner, system.lookup(), running), FocusResolution::available(100, "konsole"));
  EXPECT_EQ(FocusTargetResolver::resolve(owner, system.lookup(), stopped),
            FocusResolution::unavailable("konsole isn\u2019t running."));
  EXPECT_EQ(FocusTargetResolver::resolve(orphan, system.lookup(), running),
            FocusResolution::unavailable("No host app found for this listener."));
  EXPECT_EQ(FocusTargetResolver::resolveHostTarget(owner, system.lookup()), (FocusTarget{100, "konsole"}));
  EXPECT_EQ(FocusTargetResolver::resolveHostTarget(orphan, system.lookup()), std::nullopt);
}

struct SchemeCase {
  int port;
  std::vector<std::string> argv;
  const char* expected;
};

TEST(ListenerURLResolverTest, SchemeFromArgumentsAndPort) {
  const std::vector<SchemeCase> cases{
      {3000, {}, "http"},
      {8443, {}, "https"},
      {8443, {"server", "--no-tls"}, "http"},
      {443, {" SSL=FALSE\n"}, "http"},
      {3000, {"--protocol=https"}, "https"},
      {3000, {"--tls-cert=/etc/x.pem"}, "https"},
      {3000, {"--cert"}, "https"},
      {3000, {"--HTTPS"}, "https"},
      {3000, {"--public-url", "HTTPS://dev.local"}, "https"},
      {3000, {"--certs-dir=/x"}, "http"},
      {3000, {"--scheme=http"}, "http"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ListenerURLResolver::scheme(c.port, c.argv), c.expected) << c.port << " " << testing::PrintToString(c.argv);
  }
  EXPECT_EQ(ListenerURLResolver::scheme(4443, std::nullopt), "https");
}

PortListener listener(int port, std::vector<BoundEndpoint> endpoints) {
  PortListener row;
  row.port = port;
  row.endpoints = std::move(endpoints);
  return row;
}

TEST(OpenableURLTest, PrefersLocalhostThenTheFirstSpecificAddress) {
  using F = AddressFamily;
  EXPECT_EQ(openableURL(listener(3000, {})), "http://localhost:3000");
  EXPECT_EQ(openableURL(listener(3000, {{"0.0.0.0", F::ipv4, 3000}, {"127.0.0.1", F::ipv4, 3000}})),
            "http://localhost:3000");
  EXPECT_EQ(openableURL(listener(3000, {{"0.0.0.0", F::ipv4, 3000}, {"::", F::ipv6, 3000}})), "http://localhost:3000");
  EXPECT_EQ(openableURL(listener(3000, {{"0.0.0.0", F::ipv4, 3000}, {"192.168.1.20", F::ipv4, 3000}})),
            "http://192.168.1.20:3000");
  EXPECT_EQ(openableURL(listener(8443, {{"fe80::1", F::ipv6, 8443}})), "https://[fe80::1]:8443");
  // Malformed hosts and ports give no URL.
  EXPECT_EQ(openableURL(listener(3000, {{"fe80::1%en0", F::ipv6, 3000}})), std::nullopt);
  EXPECT_EQ(openableURL(listener(3000, {{"bad host", F::ipv4, 3000}})), std::nullopt);
  EXPECT_EQ(openableURL(listener(3000, {{"999.1.1.1", F::ipv4, 3000}})), std::nullopt);
  EXPECT_EQ(openableURL(listener(70000, {})), std::nullopt);
}

TEST(OpenableURLTest, AcceptsOnlyWellFormedHosts) {
  for (const char* host : {"localhost", "10.0.0.1", "[2001:db8::2]", "dev-box.local"}) {
    EXPECT_TRUE(ListenerURLResolver::isValidHost(host)) << host;
  }
  for (const char* host : {"", "[]", "::1", "-x.local", "a..b", "a/b", "1.2.3.256", "host:80"}) {
    EXPECT_FALSE(ListenerURLResolver::isValidHost(host)) << host;
  }
}

}  // namespace
}  // namespace tidewatch
