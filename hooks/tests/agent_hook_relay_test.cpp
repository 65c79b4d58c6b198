#include "hooks/agent_hook_relay.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <set>

#include "hooks/agent_hook_protocol.h"

namespace tidewatch::AgentHookRelay {
namespace {

using AgentHookProtocol::EventKind;
using Args = std::vector<std::string>;

const Args claude{"--provider", "claude", "--protocol", "1"};

// A relay's surroundings: the hook's input, a small file tree, and a socket that records.
struct FakeSystem {
  explicit FakeSystem(std::string hookInput = {}) : input(std::move(hookInput)) {}
  std::string input;
  std::set<std::string> existing = {"/home/ada/code/tidewatch/.git"};
  int inputReads = 0;
  std::vector<std::string> sent;
  std::string sentTo;

  Dependencies dependencies() {
    return Dependencies{
        .readStandardInput = [this] { ++inputReads; return input; },
        .homeDirectory = [] { return std::string("/home/ada"); },
        .pathExists = [this](const std::string& path) { return existing.contains(path); },
        .paths = [](const std::string& home) { return AgentHookPaths::inRuntimeDirectory(home + "/rt"); },
        .parentPID = [] { return 777; },
        .send = [this](std::string_view bytes, const std::string& path, double timeout) {
          EXPECT_EQ(timeout, 0.5);
          sent.emplace_back(bytes);
          sentTo = path;
          return true;
        },
    };
  }
  std::optional<AgentHookProtocol::Envelope> relay(const Args& arguments = claude) {
    EXPECT_EQ(run(arguments, dependencies()), 0);
    if (sent.empty()) return std::nullopt;
    return AgentHookProtocol::decodeEnvelope(sent.back());
  }
};

TEST(AgentHookRelayTest, ParseReadsTheFourOptions) {
  EXPECT_EQ(parse({"--protocol", "+1", "--hint", "idle_prompt", "--provider", "codex", "--test"}),
            (Invocation{AgentKind::codex, 1, "idle_prompt", true}));
  EXPECT_EQ(parse({"--provider", "codex", "--protocol", "1", "--provider", "claude", "--protocol", "-3"}),
            (Invocation{AgentKind::claude, -3, std::nullopt, false}));
  for (const Args& refused : std::vector<Args>{{},
                                               {"--provider", "claude"},
                                               {"--protocol", "1"},
                                               {"--provider", "gemini", "--protocol", "1"},
                                               {"--provider", "claude", "--protocol", "1", "--hint"},
                                               {"--provider", "claude", "--protocol", "1", "--verbose"}}) {
    EXPECT_FALSE(parse(refused)) << ::testing::PrintToString(refused);
  }
  for (const char* protocol : {"", "1.0", "+", "99999999999999999999"}) {
    EXPECT_FALSE(parse({"--provider", "claude", "--protocol", protocol})) << protocol;
  }
}

// One envelope per hook event; anything that does not make an event is dropped silently.
TEST(AgentHookRelayTest, SendsOneEnvelopePerHookEventOrNothing) {
  using Envelope = AgentHookProtocol::Envelope;
  struct Case {
    Args arguments;
    std::string input;
    std::optional<Envelope> envelope;
    int inputReads;
  };
  const Args test{"--provider", "codex", "--protocol", "1", "--test"};
  const Args idleHint{"--provider", "claude", "--protocol", "1", "--hint", "idle_prompt"};
  const std::string stop = R"({"session_id":"s","hook_event_name":"Stop"})";
  const Case cases[] = {
      {claude, R"({"session_id":"s-1","cwd":"/home/ada/code/tidewatch/src","hook_event_name":"Stop"})",
       Envelope{1, AgentKind::claude, EventKind::turnEnded, "s-1", "tidewatch", 777}, 1},
      // A connection test never reads its input, which may stay open.
      {test, "", Envelope{1, AgentKind::codex, EventKind::connectionTest, "tidewatch-connection-test", {}, 777}, 0},
      // The hint outranks what the document says.
      {idleHint, R"({"session_id":"s","hook_event_name":"Notification","notification_type":"permission_prompt"})",
       Envelope{1, AgentKind::claude, EventKind::idleNotification, "s", std::nullopt, 777}, 1},
      // A working directory without a project still sends the event.
      {claude, R"({"session_id":"s","hook_event_name":"SessionStart","cwd":"/gone/away"})",
       Envelope{1, AgentKind::claude, EventKind::sessionStart, "s", std::nullopt, 777}, 1},
      {{"--provider", "claude", "--protocol", "1", "--bogus"}, stop, std::nullopt, 0},
      {{"--provider", "claude", "--protocol", "2"}, stop, std::nullopt, 0},
      {claude, R"({"session_id":7,"hook_event_name":"Stop"})", std::nullopt, 1},
      {claude, R"({"hook_event_name":"Stop"})", std::nullopt, 1},
      {claude, R"({"session_id":"","hook_event_name":"Stop"})", std::nullopt, 1},
      {claude, R"({"session_id":")" + std::string(257, 's') + R"(","hook_event_name":"Stop"})", std::nullopt, 1},
      {claude, R"({"session_id":"s","hook_event_name":"Notification","notification_type":"other"})", std::nullopt, 1},
      {claude, "not json", std::nullopt, 1},
  };
  for (const auto& [arguments, input, envelope, inputReads] : cases) {
    FakeSystem system{input};
    EXPECT_EQ(system.relay(arguments), envelope) << input;
    EXPECT_EQ(system.sent.size(), envelope ? 1u : 0u) << input;
    EXPECT_EQ(system.inputReads, inputReads) << input;
    EXPECT_EQ(system.sentTo, envelope ? "/home/ada/rt/agent-events.sock" : "");
  }
}

TEST(AgentHookRelayTest, InputUpToOneMebibyteIsDecoded) {
  const std::string head = R"({"session_id":"s","hook_event_name":"Stop","pad":")";
  const std::string exact = head + std::string(maxInputBytes - head.size() - 2, 'x') + "\"}";
  ASSERT_EQ(exact.size(), maxInputBytes);
  EXPECT_TRUE(FakeSystem{exact}.relay());
  EXPECT_FALSE(FakeSystem{exact + " "}.relay());
}

// Nothing but the four keys may pass: a marker in every other place must not reach the wire.
TEST(AgentHookRelayTest, CanaryNeverReachesTheEnvelope) {
  const std::string marker = "CANARY-7f3a9c1e";
  FakeSystem system(R"({"session_id":"s-9","hook_event_name":"UserPromptSubmit","cwd":"/w/)" + marker + R"(/app",)"
                    R"("prompt":")" + marker + R"(","transcript_path":"/t/)" + marker + R"(.jsonl",)"
                    R"("tool_input":{"command":")" + marker + R"(","session_id":")" + marker + R"("},)"
                    R"("tool_response":[")" + marker + R"("],")" + marker + R"(":")" + marker + R"("})");
  system.existing = {"/w/" + marker + "/app/package.json"};  // the project itself is named "app"
  const auto envelope = system.relay();
  ASSERT_TRUE(envelope);
  EXPECT_EQ(envelope->projectName, "app");
  EXPECT_EQ(system.sent.back().find("CANARY"), std::string::npos) << system.sent.back();
}

TEST(AgentHookRelayTest, ReadBoundedStopsAtTheLimitAtTheEndOrAtAnError) {
  auto source = [](std::string data, long failAt) {
    return [data, failAt, offset = size_t{0}](char* buffer, size_t length) mutable -> long {
      if (failAt >= 0 && offset >= static_cast<size_t>(failAt)) return -1;
      const size_t end = failAt >= 0 ? static_cast<size_t>(failAt) : data.size();
      const size_t count = std::min({length, end - offset, size_t{70000}});
      std::memcpy(buffer, data.data() + offset, count);
      offset += count;
      return static_cast<long>(count);
    };
  };
  EXPECT_EQ(readBounded(source("short", -1)), "short");
  EXPECT_EQ(readBounded(source(std::string(3 * maxInputBytes, 'a'), -1)).size(), maxInputBytes + 1);
  // An error in mid-stream leaves the bytes so far.
  EXPECT_EQ(readBounded(source(std::string(200000, 'b'), 140000)).size(), 140000u);
}

}  // namespace
}  // namespace tidewatch::AgentHookRelay
