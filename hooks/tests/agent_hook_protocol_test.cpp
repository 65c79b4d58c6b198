#include "hooks/agent_hook_protocol.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tidewatch::AgentHookProtocol {
namespace {

Envelope sample() {
  return Envelope{1, AgentKind::claude, EventKind::promptSubmitted, "session-1", "tidewatch", 4242};
}

// The envelope's JSON with one key replaced (or removed, for a null replacement).
std::string withKey(const std::string& key, const nlohmann::json& value) {
  auto object = nlohmann::json::parse(*encode(sample()));
  if (value.is_null()) object.erase(key);
  else object[key] = value;
  return object.dump();
}

TEST(AgentHookProtocolTest, EncodesTheSixKeysRoundTripsAndRefusesWhatCannotTravel) {
  const auto bytes = encode(sample());
  ASSERT_TRUE(bytes);
  EXPECT_EQ(*bytes,
            R"({"event":"promptSubmitted","parentPID":4242,"projectName":"tidewatch","provider":"claude",)"
            R"("sessionID":"session-1","v":1})");
  EXPECT_EQ(decodeEnvelope(*bytes), sample());

  Envelope anonymous = sample();
  anonymous.projectName.reset();
  EXPECT_EQ(encode(anonymous)->find("projectName"), std::string::npos);
  EXPECT_EQ(decodeEnvelope(*encode(anonymous)), anonymous);

  // What cannot travel is refused.
  Envelope tooLong = sample();
  tooLong.projectName = std::string(4096, 'p');
  EXPECT_FALSE(encode(tooLong));
  Envelope notText = sample();
  notText.sessionID = "\xff\xfe";
  EXPECT_FALSE(encode(notText));
}

TEST(AgentHookProtocolTest, DecodeAcceptsOnlyValidEnvelopesOfUpTo4096Bytes) {
  // The envelope padded with an unknown key to an exact size.
  const auto padded = [](size_t size) { return withKey("pad", std::string(size - withKey("pad", "").size(), 'x')); };
  ASSERT_EQ(padded(4096).size(), 4096u);
  struct Case {
    std::string bytes;
    bool valid;
  };
  const Case cases[] = {
      {withKey("prompt", "a long prompt the relay would never send"), true},
      {withKey("projectName", nullptr), true},
      {withKey("event", "connectionTest"), true},
      {withKey("sessionID", std::string(256, 's')), true},
      {withKey("sessionID", std::string(255, 's') + "\xc3\xa9"), false},  // 257 bytes, 256 characters
      {withKey("sessionID", std::string(257, 's')), false},
      {withKey("sessionID", ""), false},
      {withKey("sessionID", 7), false},
      {withKey("v", 2), false},
      {withKey("v", "1"), false},
      {withKey("v", 1.5), false},
      {withKey("v", nullptr), false},
      {withKey("provider", "gemini"), false},
      {withKey("event", "Stop"), false},
      {withKey("parentPID", 2147483648LL), false},
      {withKey("parentPID", -2147483648LL), true},
      {withKey("projectName", 3), false},
      {padded(4096), true},
      {padded(4097), false},
      {"[1]", false},
      {"{", false},
      {"", false},
      // A raw NUL is no JSON, though the library's lexer would stop there as at the end.
      {*encode(sample()) + std::string(1, '\0'), false},
      {*encode(sample()) + std::string(1, '\0') + R"({"v":2})", false},
      {std::string(1, '\0') + *encode(sample()), false},
  };
  for (const auto& [bytes, valid] : cases) {
    EXPECT_EQ(decodeEnvelope(bytes).has_value(), valid) << bytes;
  }
}

TEST(AgentHookProtocolTest, ProviderFieldsKeepOnlyTheAllowList) {
  const auto fields = decodeProviderFields(
      R"({"session_id":"s1","cwd":"/w/p","hook_event_name":"Stop","notification_type":null,)"
      R"("prompt":"secret","tool_input":{"session_id":7,"cwd":["x"]},"n":[1,2.5,true,null]})");
  ASSERT_TRUE(fields);
  EXPECT_EQ(*fields, (AllowlistedProviderFields{"s1", "/w/p", "Stop", std::nullopt}));

  for (const char* refused : {R"({"session_id":5})", R"({"cwd":{"a":"b"}})", R"({"hook_event_name":["Stop"]})",
                              R"({"notification_type":false})", R"(["session_id"])", R"("text")", R"({"a":1} x)",
                              R"({"a":)", "", R"({"session_id":"a","session_id":{}})"}) {
    EXPECT_FALSE(decodeProviderFields(refused)) << refused;
  }
  using namespace std::string_literals;
  for (const std::string& withNUL : {R"({"session_id":"s","hook_event_name":"Stop"})"s + '\0',
                                     R"({"session_id":"s"})"s + '\0' + R"({"hook_event_name":"Stop"})",
                                     "\0"s + R"({"session_id":"s"})"}) {
    EXPECT_FALSE(decodeProviderFields(withNUL)) << withNUL.size();
  }
  EXPECT_EQ(decodeProviderFields("{}"), AllowlistedProviderFields{});
  EXPECT_EQ(decodeProviderFields(R"({"cwd":5,"cwd":"/w"})")->cwd, "/w");
}

TEST(AgentHookProtocolTest, MapEventFollowsTheTable) {
  using O = std::optional<std::string>;
  struct Case {
    O name, type;
    std::optional<EventKind> kind;
  };
  const Case cases[] = {
      {std::nullopt, "idle_prompt", std::nullopt},
      {"SessionStart", std::nullopt, EventKind::sessionStart},
      {"UserPromptSubmit", "idle_prompt", EventKind::promptSubmitted},
      {"PermissionRequest", std::nullopt, EventKind::permissionRequested},
      {"Stop", std::nullopt, EventKind::turnEnded},
      {"StopFailure", std::nullopt, EventKind::turnFailed},
      {"SessionEnd", std::nullopt, EventKind::sessionEnded},
      {"Notification", "permission_prompt", EventKind::permissionRequested},
      {"Notification", "agent_needs_input", EventKind::needsInputNotification},
      {"Notification", "idle_prompt", EventKind::idleNotification},
      {"Notification", "auth_success", std::nullopt},
      {"Notification", std::nullopt, std::nullopt},
      {"stop", std::nullopt, std::nullopt},
      {"PreToolUse", std::nullopt, std::nullopt},
  };
  for (const auto& [name, type, kind] : cases) EXPECT_EQ(mapEvent(name, type), kind) << name.value_or("-");
}

}  // namespace
}  // namespace tidewatch::AgentHookProtocol
