#include "inventory/agent_inventory_records.h"

#include <gtest/gtest.h>

#include "inventory/tests/inventory_script.h"

namespace tidewatch {
namespace {

using testing::agent;
using State = AgentSessionState;

TEST(InventoryRecords, StableIDsAndShortHashes) {
  const std::pair<std::string_view, std::string_view> hashes[] = {
      {"", "cbf29ce484222325"},
      {"a", "af63dc4c8601ec8c"},
      {"foobar", "85944171f73967e8"},
  };
  for (const auto& [identifier, hash] : hashes) EXPECT_EQ(AgentSessionID::shortHash(identifier), hash) << identifier;
  EXPECT_EQ(AgentSessionID::provider(AgentKind::claude, "a").stableID(), "hook:claude:af63dc4c8601ec8c");
  EXPECT_EQ(AgentSessionID::provider(AgentKind::codex, "").stableID(), "hook:codex:cbf29ce484222325");
  EXPECT_EQ(AgentSessionID::process(agent(42)).stableID(), agent(42).stableID());
}

AgentSessionSnapshot session(std::string id, State state, std::optional<AgentProcessIdentity> process,
                             AgentEvidence evidence = AgentEvidence::processAndProviderHook) {
  AgentSessionSnapshot row;
  row.id = AgentSessionID::provider(AgentKind::claude, std::move(id));
  row.state = state;
  row.processIdentity = process;
  row.evidence = evidence;
  return row;
}

TEST(InventoryRecords, StopAvailabilityAndTheDerivedLists) {
  AgentInventorySnapshot snapshot;
  snapshot.sessions = {session("a", State::working, agent(1)), session("b", State::waiting, agent(1)),
                       session("c", State::detected, std::nullopt), session("d", State::recentlyFinished, agent(2)),
                       session("e", State::needsAttention, agent(3))};
  const auto byID = snapshot.stopAvailabilityByID();
  const auto availability = [&](const char* id) {
    return byID.at(AgentSessionID::provider(AgentKind::claude, id).stableID());
  };
  EXPECT_EQ(availability("a"), AgentStopAvailability::sharedProcess);
  EXPECT_EQ(availability("b"), AgentStopAvailability::sharedProcess);
  EXPECT_EQ(availability("c"), AgentStopAvailability::noLocalProcess);
  EXPECT_EQ(availability("d"), AgentStopAvailability::finished);
  EXPECT_EQ(availability("e"), AgentStopAvailability::available);
  EXPECT_EQ(snapshot.currentSessions().size(), 4u);
  EXPECT_EQ(snapshot.ambientSessions().size(), 3u);

  // Once one of two sessions on a process has finished, the other may stop it.
  snapshot.sessions[1].state = State::recentlyFinished;
  EXPECT_EQ(snapshot.stopAvailability(snapshot.sessions[0]), AgentStopAvailability::available);
  EXPECT_EQ(unavailableStopWords(AgentStopAvailability::sharedProcess),
            "Stop unavailable \u2014 this process backs multiple agent sessions.");
  EXPECT_EQ(unavailableStopWords(AgentStopAvailability::noLocalProcess),
            "Stop unavailable \u2014 no local agent process to signal.");
  EXPECT_EQ(unavailableStopWords(AgentStopAvailability::available), std::nullopt);

  const auto empty = AgentInventorySnapshot::empty();
  EXPECT_TRUE(empty.sessions.empty());
  EXPECT_EQ(empty.freshness, InventoryFreshness::stale(std::nullopt));
  EXPECT_LT(empty.capturedAt, Date(std::chrono::seconds(0)));
}

TEST(InventoryRecords, ExplanationsByStateAndEvidence) {
  using E = AgentEvidence;
  const std::tuple<State, E, std::string_view> cases[] = {
      {State::needsAttention, E::providerHook, "The agent is blocked on your input or approval."},
      {State::working, E::process, "The agent reported or showed active work."},
      {State::waiting, E::providerHook, "The session is open \u2014 the provider reported the last turn completed."},
      {State::waiting, E::processAndProviderHook, "The agent is running and recently idle."},
      {State::detected, E::providerHook,
       "A provider session was reported. No local agent process has been confirmed."},
      {State::detected, E::process,
       "A local agent process is running. Tidewatch can\u2019t yet tell working from waiting for it."},
      {State::recentlyFinished, E::process, "This session ended a moment ago."},
  };
  for (const auto& [state, evidence, text] : cases) {
    EXPECT_EQ(session("x", state, std::nullopt, evidence).explanation(), text) << badgeWord(state);
  }
  auto detailed = session("x", State::waiting, std::nullopt);
  detailed.stateDetail = "The last turn ended with an error.";
  EXPECT_EQ(detailed.explanation(), "The last turn ended with an error.");
  EXPECT_EQ(displayWords(AgentEvidence::processAndProviderHook), "Provider event + local process");
  EXPECT_EQ(AgentExecutionLocation::unknown().displayWords(), "Location unknown");
  EXPECT_EQ(detailed.portDetail(), "Exact port relationship unavailable");
}

}  // namespace
}  // namespace tidewatch
