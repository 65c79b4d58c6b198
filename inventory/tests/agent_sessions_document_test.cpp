#include "inventory/agent_sessions_document.h"

#include <gtest/gtest.h>

#include "inventory/tests/inventory_script.h"
#include "process_core/process_json.h"

namespace tidewatch {
namespace {

using namespace testing;
namespace Document = AgentSessionsDocument;

// A Claude Code session its hooks report at work in a terminal, and a Codex process found by a
// scan alone, holding a dev server's port.
AgentInventorySnapshot twoSessions() {
  Reducer reducer;
  const auto codex = agent(300, AgentKind::codex);
  reducer.applyPanelScan({{present(codex, host(HostAppKind::terminal), std::nullopt, "shop")}},
                         {{codex, {listenerOn(301, 5173)}}}, {}, at(0), at(0));
  reducer.applyHookEvent(envelope(EventKind::promptSubmitted, "s1", AgentKind::claude, "tidewatch"),
                         from(agent(200), host(HostAppKind::terminal)), at(5));
  return reducer.snapshot({});
}

TEST(AgentSessionsDocument, TellsEachSessionsStateProviderProjectHostAndStartMostUrgentFirst) {
  const auto document = Document::encode(twoSessions(), Document::Source::application);
  EXPECT_EQ(document["source"], "application");
  ASSERT_EQ(document["sessions"].size(), 2u);
  const auto& claude = document["sessions"][0];
  EXPECT_EQ(claude["provider"], "Claude Code");
  EXPECT_EQ(claude["state"], "working");
  EXPECT_EQ(claude["stateWords"], "Working");
  EXPECT_EQ(claude["project"], "tidewatch");
  EXPECT_EQ(claude["host"], "Terminal");
  EXPECT_EQ(claude["pid"], 200);
  const Date processStart = Date(std::chrono::seconds(agent(200).process.startTimeSeconds));
  EXPECT_EQ(claude["startedAt"], iso8601(processStart)) << "a session runs since its process started";
  const auto& codex = document["sessions"][1];
  EXPECT_EQ(codex["provider"], "Codex");
  EXPECT_EQ(codex["state"], "detected");
  EXPECT_EQ(codex["ports"], nlohmann::json::array({5173}));
  EXPECT_EQ(codex["project"], "shop");

  const auto decoded = Document::decode(nlohmann::json::parse(document.dump()));
  ASSERT_TRUE(decoded.has_value());
  EXPECT_EQ(decoded->source, Document::Source::application);
  ASSERT_EQ(decoded->rows.size(), 2u);
  EXPECT_EQ(decoded->rows[0],
            (Document::Row{"Claude Code", "Working", "tidewatch", "Terminal", processStart, 200, {},
                           claude["detail"].get<std::string>()}));
  EXPECT_EQ(decoded->rows[1].ports, std::vector<int>{5173});
}

TEST(AgentSessionsDocument, ReadsOnlyWhatItWrites) {
  const char* documents[] = {
      R"({})",
      R"({"source": "elsewhere", "sessions": []})",
      R"({"source": "application"})",
      R"({"source": "application", "sessions": [{"provider": "Codex"}]})",
      R"({"source": "application", "sessions": [{"provider": 1, "stateWords": "Working"}]})",
      R"([1, 2])",
  };
  for (const char* text : documents) {
    EXPECT_FALSE(Document::decode(nlohmann::json::parse(text)).has_value()) << text;
  }
  const auto empty = Document::decode(nlohmann::json::parse(R"({"source": "processTable", "sessions": []})"));
  ASSERT_TRUE(empty.has_value());
  EXPECT_EQ(empty->source, Document::Source::processTable);
  EXPECT_TRUE(empty->rows.empty());
}

}  // namespace
}  // namespace tidewatch
