#include "tidewatch_kit/listener_records.h"

#include <gtest/gtest.h>

#include "process_core/pretty_json.h"
#include "tidewatch_kit/listener_json.h"
#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

std::vector<BoundEndpoint> endpoints(std::initializer_list<const char*> addresses) {
  std::vector<BoundEndpoint> result;
  for (const char* address : addresses) {
    const bool v6 = std::string_view(address).find(':') != std::string_view::npos;
    result.push_back({address, v6 ? AddressFamily::ipv6 : AddressFamily::ipv4, 3000});
  }
  return result;
}

std::string keys(const BindSignature& signature) {
  std::string joined;
  for (const auto& token : signature.tokens) joined += BindSignature::stableKey(token) + ";";
  return joined;
}

TEST(BindDerivation, ScopeAndSignatureOfEndpointSets) {
  struct Case {
    std::vector<BoundEndpoint> endpoints;
    BindScope scope;
    std::string tokens;
  };
  const Case cases[] = {
      {{}, BindScope::unknown, ""},
      {endpoints({"127.0.0.1", "::1"}), BindScope::loopbackOnly, "0;"},
      {endpoints({"127.4.5.6"}), BindScope::loopbackOnly, "0;"},
      {endpoints({"0.0.0.0", "::"}), BindScope::allInterfaces, "1;"},
      {endpoints({"127.0.0.1", "0.0.0.0"}), BindScope::allInterfaces, "0;1;"},
      {endpoints({"127.0.0.1", "192.168.1.20"}), BindScope::mixed, "0;2:192.168.1.20;"},
      {endpoints({"::ffff:127.0.0.1"}), BindScope::specificInterface, "2:::ffff:127.0.0.1;"},
      {endpoints({"fe80::1", "10.0.0.2", "10.0.0.2"}), BindScope::specificInterface, "2:10.0.0.2;2:fe80::1;"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(makeBindScope(c.endpoints), c.scope) << c.tokens;
    EXPECT_EQ(keys(BindSignature::make(c.endpoints)), c.tokens);
  }
  EXPECT_EQ(BindSignature::make(endpoints({"10.0.0.2", "127.0.0.1", "::"})),
            BindSignature::make(endpoints({"::", "10.0.0.2", "127.0.0.1"})));
}

TEST(ListenerIdentity, StableIDOfSinglesAndPools) {
  ListenerIdentity single{{812, 1700000000, 42}, PortProtocol::tcp, 5173,
                          BindSignature::make(endpoints({"127.0.0.1", "0.0.0.0"})), false, std::nullopt};
  EXPECT_EQ(single.stableID(), "proc:812:1700000000.42:TCP:5173:0,1");
  ListenerIdentity pool = single;
  pool.isPool = true;
  pool.executablePath = "/usr/bin/python3";
  EXPECT_EQ(pool.stableID(), "pool:812:1700000000.42:TCP:5173:0,1:/usr/bin/python3");
  EXPECT_EQ((AgentProcessIdentity{{7, 10, 5}, AgentKind::claude}).stableID(), "agent:claude:7:10.5");
}

TEST(ProcessSnapshotNames, DisplayNameFallsBackFromPathToNameToPid) {
  ProcessSnapshot snapshot;
  snapshot.identity.pid = 31;
  EXPECT_EQ(snapshot.displayName(), "pid 31");
  snapshot.name = "kworker";
  EXPECT_EQ(snapshot.displayName(), "kworker");
  snapshot.executablePath = "///";
  EXPECT_EQ(snapshot.displayName(), "kworker");
  snapshot.executablePath = "/usr/bin/python3.12/";
  EXPECT_EQ(snapshot.displayName(), "python3.12");
}

// Every field of a row set, so that a field lost in JSON shows.
PortListener sampleRow() {
  PortListener row = testing::Row(4100, 5173)
                         .started(1763830000, 250)
                         .bound(endpoints({"::1", "10.1.2.3"}))
                         .path("/usr/local/bin/node")
                         .argv({"node", "vite", "caf\xC3\xA9"})
                         .classified(Runtime::node, Framework::vite, "Node \xC2\xB7 Vite")
                         .agent(AgentKind::claude)
                         .host(HostAppKind::vscode)
                         .project("site", "/home/dev/site");
  row.process.uid = 1000;
  row.process.sameUser = true;
  row.focusTarget = FocusTarget{3000, "code"};
  return row;
}

TEST(ListenerJSON, RoundTripKeepsEveryField) {
  const PortListener row = sampleRow();
  const nlohmann::json encoded = row;
  EXPECT_EQ(encoded.get<PortListener>(), row);

  PortListener bare = row;
  bare.agentOrigin.reset();
  bare.agentProcess.reset();
  bare.host.reset();
  bare.project.reset();
  bare.focusTarget.reset();
  const nlohmann::json bareJSON = bare;
  EXPECT_FALSE(bareJSON.contains("host"));
  EXPECT_FALSE(bareJSON.contains("parentIdentity"));
  EXPECT_EQ(bareJSON.get<PortListener>(), bare);
}

TEST(ListenerJSON, TokensAndEnumsHaveTheirFixedForms) {
  const nlohmann::json signature = BindSignature::make(endpoints({"0.0.0.0", "127.0.0.1", "10.0.0.1"}));
  EXPECT_EQ(writePrettyJSON(signature),
            "{\n  \"tokens\" : [\n    {\n      \"loopback\" : {}\n    },\n    {\n      \"allInterfaces\" : {}\n"
            "    },\n    {\n      \"specific\" : {\n        \"_0\" : \"10.0.0.1\"\n      }\n    }\n  ]\n}");
  const nlohmann::json row = sampleRow();
  EXPECT_EQ(row["proto"], "TCP");
  EXPECT_EQ(row["state"], "LISTEN");
  EXPECT_EQ(row["bindScope"], "mixed");
  EXPECT_EQ(row["endpoints"][0]["family"], "IPv6");
  EXPECT_EQ(row["host"]["kind"], "vscode");
  EXPECT_EQ(row["agentProcess"]["kind"], "claude");
}

TEST(ListenerJSON, MalformedInputIsRefusedWithAJSONError) {
  nlohmann::json row = sampleRow();
  row["bindScope"] = "everywhere";
  EXPECT_THROW(row.get<PortListener>(), nlohmann::json::exception);
  row = sampleRow();
  row.erase("identity");
  EXPECT_THROW(row.get<PortListener>(), nlohmann::json::exception);
  row = sampleRow();
  row["bindSignature"]["tokens"][0] = {{"somewhere", {}}};
  EXPECT_THROW(row.get<PortListener>(), nlohmann::json::exception);
}

}  // namespace
}  // namespace tidewatch
