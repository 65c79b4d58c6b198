#include "tidewatch_kit/listener_enrichment.h"

#include <gtest/gtest.h>

#include "process_core/tests/support/process_table.h"

namespace tidewatch {
namespace {

using testing::FakeProcessTable;
using testing::process;

TEST(ListenerEnrichmentTest, GathersAgentHostProjectAndFocusTargetInOneWalk) {
  FakeProcessTable system({process(100, 1, "/usr/bin/kitty"), process(200, 100, testing::claudePath)});
  system.workingDirectories[300] = "/home/me/src/app/server";
  system.existingPaths.insert("/home/me/src/app/package.json");

  const auto result = ListenerEnrichment::enrich(process(300, 200, "/usr/bin/node"), 999, system.lookup(),
                                                 system.exists(), system.cwd(), "/home/me");
  EXPECT_EQ(result.agentProcess, (AgentProcessIdentity{{200, 1000, 0}, AgentKind::claude}));
  EXPECT_EQ(result.agentOrigin(), AgentKind::claude);
  EXPECT_EQ(result.host, AgentHost{HostAppKind::terminal});
  EXPECT_EQ(result.focusTarget, (FocusTarget{100, "kitty"}));
  EXPECT_EQ(result.project, (ListenerProject{"app", "/home/me/src/app"}));
  EXPECT_FALSE(result.isInTidewatchSubtree);
}

TEST(ListenerEnrichmentTest, AChildOfThisProgramIsInItsSubtreeAndMayHaveNoContext) {
  FakeProcessTable system({process(999, 1, "/usr/bin/tidewatch")});
  const auto result = ListenerEnrichment::enrich(process(300, 999, "/usr/bin/python3"), 999, system.lookup(),
                                                 system.exists(), system.cwd(), "/home/me");
  ListenerEnrichment::Result expected;
  expected.isInTidewatchSubtree = true;
  EXPECT_EQ(result, expected);
  EXPECT_EQ(result.agentOrigin(), std::nullopt);
}

TEST(FocusTargetResolverTest, NamesTheHostOrSaysWhyNot) {
  FakeProcessTable system({process(100, 1, "/usr/bin/konsole")});
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

TEST(ListenerURLResolverTest, SchemeFromArgumentsAndPort) {
  struct Case {
    int port;
    std::optional<std::vector<std::string>> argv;
    const char* expected;
  };
  const Case cases[] = {
      {3000, {}, "http"},
      {8443, std::vector<std::string>{}, "https"},
      {4443, std::nullopt, "https"},
      {8443, {{"server", "--no-tls"}}, "http"},
      {443, {{" SSL=FALSE\n"}}, "http"},
      {3000, {{"--protocol=https"}}, "https"},
      {3000, {{"--tls-cert=/etc/x.pem"}}, "https"},
      {3000, {{"--cert"}}, "https"},
      {3000, {{"--HTTPS"}}, "https"},
      {3000, {{"--public-url", "HTTPS://dev.local"}}, "https"},
      {3000, {{"--certs-dir=/x"}}, "http"},
      {3000, {{"--scheme=http"}}, "http"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ListenerURLResolver::scheme(c.port, c.argv), c.expected)
        << c.port << " " << ::testing::PrintToString(c.argv);
  }
}

TEST(OpenableURLTest, PrefersLocalhostThenTheFirstSpecificAddress) {
  using F = AddressFamily;
  struct Case {
    int port;
    std::vector<BoundEndpoint> endpoints;
    std::optional<std::string> url;
  };
  const Case cases[] = {
      {3000, {}, "http://localhost:3000"},
      {3000, {{"0.0.0.0", F::ipv4, 3000}, {"127.0.0.1", F::ipv4, 3000}}, "http://localhost:3000"},
      {3000, {{"0.0.0.0", F::ipv4, 3000}, {"::", F::ipv6, 3000}}, "http://localhost:3000"},
      {3000, {{"0.0.0.0", F::ipv4, 3000}, {"192.168.1.20", F::ipv4, 3000}}, "http://192.168.1.20:3000"},
      {8443, {{"fe80::1", F::ipv6, 8443}}, "https://[fe80::1]:8443"},
      // Malformed hosts and ports give no URL.
      {3000, {{"fe80::1%en0", F::ipv6, 3000}}, std::nullopt},
      {3000, {{"bad host", F::ipv4, 3000}}, std::nullopt},
      {3000, {{"999.1.1.1", F::ipv4, 3000}}, std::nullopt},
      {70000, {}, std::nullopt},
  };
  for (const auto& c : cases) {
    PortListener row;
    row.port = c.port;
    row.endpoints = c.endpoints;
    EXPECT_EQ(openableURL(row), c.url) << c.port << " " << (c.endpoints.empty() ? "" : c.endpoints.back().address);
  }
  for (const char* host : {"localhost", "10.0.0.1", "[2001:db8::2]", "dev-box.local"}) {
    EXPECT_TRUE(ListenerURLResolver::isValidHost(host)) << host;
  }
  for (const char* host : {"", "[]", "::1", "-x.local", "a..b", "a/b", "1.2.3.256", "host:80"}) {
    EXPECT_FALSE(ListenerURLResolver::isValidHost(host)) << host;
  }
}

}  // namespace
}  // namespace tidewatch
