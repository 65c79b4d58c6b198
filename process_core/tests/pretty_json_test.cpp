#include "process_core/pretty_json.h"

#include <gtest/gtest.h>

#include "process_core/process_json.h"

namespace tidewatch {
namespace {

TEST(PrettyJSON, SortedKeysSpacedColonsAndEscapedSolidus) {
  const nlohmann::json value = {{"zeta", 1},
                                {"alpha", {{"path", "/usr/bin/x"}, {"empty", nlohmann::json::object()}}},
                                {"list", {true, nullptr, -3}},
                                {"none", nlohmann::json::array()},
                                {"text", "tab\there \"quoted\" back\\slash \x01 caf\xC3\xA9"}};
  EXPECT_EQ(writePrettyJSON(value),
            "{\n"
            "  \"alpha\" : {\n"
            "    \"empty\" : {},\n"
            "    \"path\" : \"\\/usr\\/bin\\/x\"\n"
            "  },\n"
            "  \"list\" : [\n"
            "    true,\n"
            "    null,\n"
            "    -3\n"
            "  ],\n"
            "  \"none\" : [],\n"
            "  \"text\" : \"tab\\there \\\"quoted\\\" back\\\\slash \\u0001 caf\xC3\xA9\",\n"
            "  \"zeta\" : 1\n"
            "}");
  EXPECT_EQ(nlohmann::json::parse(writePrettyJSON(value)), value);
}

TEST(PrettyJSON, InvalidUTF8IsRefused) {
  EXPECT_THROW(writePrettyJSON(nlohmann::json{{"bad", "\xC3\x28"}}), nlohmann::json::type_error);
}

TEST(ISO8601, WholeSecondsInUTCBothWays) {
  const Date date = Date(std::chrono::seconds(1795375680)) + std::chrono::microseconds(999'999);
  EXPECT_EQ(iso8601(date), "2026-11-22T19:28:00Z");
  EXPECT_EQ(dateFromISO8601("2026-11-22T19:28:00Z"), Date(std::chrono::seconds(1795375680)));
  EXPECT_EQ(dateFromISO8601("2026-11-22 19:28:00Z"), std::nullopt);
  EXPECT_EQ(dateFromISO8601("2026-11-22T19:28:00+01"), std::nullopt);
}

TEST(ProcessJSON, SnapshotRoundTripLeavesAbsentFieldsOut) {
  ProcessSnapshot snapshot;
  snapshot.identity = {12, 34, 56};
  snapshot.name = "vite";
  snapshot.argv = std::vector<std::string>{"node", "vite"};
  snapshot.sameUser = true;
  const nlohmann::json encoded = snapshot;
  EXPECT_FALSE(encoded.contains("executablePath"));
  EXPECT_FALSE(encoded.contains("bundleIdentifier"));
  EXPECT_EQ(encoded.get<ProcessSnapshot>(), snapshot);
  nlohmann::json wrongKind = AgentProcessIdentity{{1, 2, 3}, AgentKind::codex};
  wrongKind["kind"] = "Codex";
  EXPECT_THROW(wrongKind.get<AgentProcessIdentity>(), nlohmann::json::exception);
}

}  // namespace
}  // namespace tidewatch
