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

TEST(PrettyJSON, NumbersReadForRewritingComeBackAsWritten) {
  for (const char* number : {"123456789012345678901234567890", "-98765432109876543210", "18446744073709551615",
                             "-9223372036854775808", "1.50", "1e5", "1E+2", "2.5e-3", "-0", "-0.0", "0.1", "0", "7",
                             "-12", "1.5"}) {
    const std::string text = std::string("[\n  ") + number + ",\n  {\n    \"-1\" : \"x\\\"-0 1.50\"\n  }\n]";
    EXPECT_EQ(writePrettyJSON(parseJSONKeepingNumbers(text, 2)), text) << number;
  }
  // Plain values stay plain: only numbers the library would write otherwise are held as text.
  EXPECT_EQ(parseJSONKeepingNumbers(R"({"a":[7,"s",true,null,1.5]})", 2), nlohmann::json::parse(R"({"a":[7,"s",true,null,1.5]})"));
  EXPECT_TRUE(parseJSONKeepingNumbers("[[[]]]", 2).is_discarded());
}

TEST(PrettyJSON, ARawNULIsNeverJSON) {
  using namespace std::string_literals;
  struct Null final : nlohmann::json_sax<nlohmann::json> {
    bool null() override { return true; }
    bool boolean(bool) override { return true; }
    bool number_integer(number_integer_t) override { return true; }
    bool number_unsigned(number_unsigned_t) override { return true; }
    bool number_float(number_float_t, const string_t&) override { return true; }
    bool string(string_t&) override { return true; }
    bool binary(binary_t&) override { return true; }
    bool start_object(std::size_t) override { return true; }
    bool key(string_t&) override { return true; }
    bool end_object() override { return true; }
    bool start_array(std::size_t) override { return true; }
    bool end_array() override { return true; }
    bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override { return false; }
  };
  for (const std::string& bytes : {R"({"a":1})"s + '\0' + R"({"b":2})", R"({"a":1})"s + '\0', "\0"s + "[]"}) {
    Null handler;
    EXPECT_FALSE(parseJSON(bytes, handler)) << bytes.size();
    EXPECT_TRUE(parseJSON(bytes).is_discarded()) << bytes.size();
    EXPECT_TRUE(parseJSONKeepingNumbers(bytes, 8).is_discarded()) << bytes.size();
  }
  Null handler;
  EXPECT_TRUE(parseJSON(R"({"a":"\u0000"})", handler));  // the escape is fine
  EXPECT_EQ(parseJSON(R"({"a":"\u0000"})")["a"], "\0"s);
}

TEST(ISO8601, WholeSecondsInUTCBothWays) {
  const Date date = Date(std::chrono::seconds(1795375680)) + std::chrono::microseconds(999'999);
  EXPECT_EQ(iso8601(date), "2026-11-22T19:28:00Z");
  EXPECT_EQ(dateFromISO8601("2026-11-22T19:28:00Z"), Date(std::chrono::seconds(1795375680)));
  EXPECT_EQ(dateFromISO8601("2026-11-22 19:28:00Z"), std::nullopt);
  EXPECT_EQ(dateFromISO8601("2026-11-22T19:28:00+01"), std::nullopt);
  // The distant past that an empty inventory is captured at, both ways.
  EXPECT_EQ(iso8601(Date(std::chrono::seconds(-62135596800))), "0001-01-01T00:00:00Z");
  EXPECT_EQ(dateFromISO8601("0001-01-01T00:00:00Z"), Date(std::chrono::seconds(-62135596800)));
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
