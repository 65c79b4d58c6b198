#include "inventory/agent_inventory_reducer.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "inventory/tests/inventory_script.h"

namespace tidewatch {
namespace {

using namespace testing;
using Counted = AgentTrackingUpdateFacts::Counted;
using Finished = AgentTrackingUpdateFacts::Finished;
constexpr auto codex = AgentKind::codex;
constexpr auto claude = AgentKind::claude;

TEST(InventoryHookEvents, StatesFollowTheEventTableAndEndingsStayEnded) {
  Reducer reducer;
  run(reducer, {
      {"start", hook(EventKind::sessionStart, "s1", 0), {"hook:s1 detected hook claude"}},
      {"prompt", hook(EventKind::promptSubmitted, "s1", 1), {"hook:s1 working hook claude"}},
      {"permission", hook(EventKind::permissionRequested, "s1", 2), {"hook:s1 attention hook claude"}},
      {"idle keeps attention", hook(EventKind::idleNotification, "s1", 3), {"hook:s1 attention hook claude"}},
      {"a failure keeps attention", hook(EventKind::turnFailed, "s1", 4), {"hook:s1 attention hook claude"}},
      {"turn end clears attention", hook(EventKind::turnEnded, "s1", 5), {"hook:s1 waiting hook claude"}},
      {"failed turn", hook(EventKind::turnFailed, "s1", 6), {"hook:s1 waiting hook claude"}},
      {"input wanted", hook(EventKind::needsInputNotification, "s1", 7), {"hook:s1 attention hook claude"}},
      {"end", hook(EventKind::sessionEnded, "s1", 8), {"hook:s1 finished hook claude"}, {"hook:s1 claude"}},
      {"a late event is dropped", hook(EventKind::promptSubmitted, "s1", 9), {"hook:s1 finished hook claude"}},
      {"the finished row lasts 30 s", clock(37), {"hook:s1 finished hook claude"}},
      {"and then goes", clock(38), {}},
      {"a fresh start reuses the key", hook(EventKind::sessionStart, "s1", 39), {"hook:s1 detected hook claude"}},
      {"a connection test is nothing", hook(EventKind::connectionTest, "s2", 40), {"hook:s1 detected hook claude"}},
  });
  EXPECT_EQ(row(reducer.snapshot({}), "hook:s1").startedAt, at(39)) << "a new generation starts afresh";

  Reducer details;
  details.applyHookEvent(envelope(EventKind::permissionRequested, "d"), {}, at(0));
  EXPECT_EQ(row(details.snapshot({}), "hook:d").explanation(), "Waiting for permission approval.");
  details.applyHookEvent(envelope(EventKind::needsInputNotification, "d"), {}, at(1));
  EXPECT_EQ(row(details.snapshot({}), "hook:d").explanation(), "The agent asked for your input.");
  details.applyHookEvent(envelope(EventKind::turnEnded, "d"), {}, at(2));
  details.applyHookEvent(envelope(EventKind::turnFailed, "d"), {}, at(3));
  EXPECT_EQ(row(details.snapshot({}), "hook:d").explanation(), "The last turn ended with an error.");
  details.applyHookEvent(envelope(EventKind::turnEnded, "d"), {}, at(4));
  EXPECT_EQ(row(details.snapshot({}), "hook:d").explanation(),
            "The session is open \u2014 the provider reported the last turn completed.");
}

TEST(InventoryHookEvents, AnUnknownSessionEndedLeavesNoRowButATombstone) {
  Reducer reducer;
  run(reducer, {
      {"end of a session never seen", hook(EventKind::sessionEnded, "ghost", 0), {}},
      {"dropped", hook(EventKind::promptSubmitted, "ghost", 1), {}},
      {"a start revives it", hook(EventKind::sessionStart, "ghost", 2), {"hook:ghost detected hook claude"}},
  });
}

TEST(InventoryHookEvents, AProcessLinkHoldsOnlyForTheRightProvider) {
  Reducer reducer;
  run(reducer, {
      {"Claude's hook on a Codex process outside any host loses the link",
       hook(EventKind::promptSubmitted, "c1", 0, from(agent(10, codex))), {"hook:c1 working hook claude"}},
      {"Codex's hook from the ChatGPT app keeps a claude-kind process",
       hook(EventKind::promptSubmitted, "x1", 1, from(agent(11, claude), host(HostAppKind::chatgpt)), codex),
       {"hook:c1 working hook claude", "hook:x1 working hook+process codex"}},
  });
  const auto snapshot = reducer.snapshot({});
  EXPECT_EQ(row(snapshot, "hook:c1").executionLocation, AgentExecutionLocation::unknown());
  EXPECT_EQ(row(snapshot, "hook:x1").executionLocation, AgentExecutionLocation::local());
  EXPECT_EQ(row(snapshot, "hook:x1").controlSurface->displayName, displayName(HostAppKind::chatgpt));
}

TEST(InventoryHookEvents, AProcessWithTwoSessionsCannotClaimItsPorts) {
  const auto listener = [] {
    ListenerIdentity identity;
    identity.process = agent(20).process;
    identity.port = 5173;
    return ListenerIdentitySet{identity};
  }();
  Reducer reducer;
  run(reducer, {
      {"scan", scan({present(agent(20))}, 0, {}, {{agent(20), listener}}), {"proc:20 detected process claude"}},
      {"one session takes the process's row and ports", hook(EventKind::promptSubmitted, "a", 1, from(agent(20))),
       {"hook:a working hook+process claude"}},
  });
  EXPECT_EQ(row(reducer.snapshot({}), "hook:a").portRelationship, PortRelationshipConfidence::exact);
  EXPECT_EQ(row(reducer.snapshot({}), "hook:a").relatedListenerIDs, listener);
  run(reducer, {{"a second session on it", hook(EventKind::promptSubmitted, "b", 2, from(agent(20))),
                 {"hook:a working hook+process claude", "hook:b working hook+process claude"}}});
  for (const char* id : {"hook:a", "hook:b"}) {
    const auto session = row(reducer.snapshot({}), id);
    EXPECT_EQ(session.portRelationship, PortRelationshipConfidence::unavailable) << id;
    EXPECT_TRUE(session.relatedListenerIDs.empty()) << id;
    EXPECT_EQ(reducer.snapshot({}).stopAvailability(session), AgentStopAvailability::sharedProcess);
  }
}

TEST(InventoryHookEvents, AnEndedSessionHidesItsProcessUntilItsProviderResumesOnIt) {
  Reducer reducer;
  run(reducer, {
      {"scan", scan({present(agent(30))}, 0), {"proc:30 detected process claude"}},
      {"counted", track({{agent(30), claude, true}}, 1), {"proc:30 working process claude"}},
      {"a hook session on it", hook(EventKind::sessionStart, "s", 2, from(agent(30))),
       {"hook:s working hook+process claude"}},
      {"it ends: one finished row, the process hidden", hook(EventKind::sessionEnded, "s", 3, from(agent(30))),
       {"hook:s finished hook+process claude"}, {"hook:s claude"}},
      {"still hidden while it lives", scan({present(agent(30))}, 4), {"hook:s finished hook+process claude"}},
      {"Codex's event does not lift Claude's suppression",
       hook(EventKind::sessionStart, "x", 5, from(agent(30), host(HostAppKind::chatgpt)), codex),
       {"hook:s finished hook+process claude", "hook:x working hook+process codex"}},
      // Its own provider lifts the suppression; the ChatGPT app it runs in still decides what it presents.
      {"Claude resumes on it", hook(EventKind::sessionStart, "s2", 6, from(agent(30))),
       {"hook:s finished hook+process claude", "hook:x working hook+process codex",
        "hook:s2 working hook+process codex"}},
      {"its process goes and takes both sessions", scan({present(agent(31))}, 7),
       {"hook:s finished hook+process claude", "hook:x finished hook+process codex",
        "hook:s2 finished hook+process codex", "proc:31 detected process claude"},
       {"hook:x codex", "hook:s2 codex"}},
  });
}

TEST(InventoryScans, ASuppressedProcessGoesWithoutASecondFinishedRow) {
  Reducer reducer;
  run(reducer, {
      {"scan", scan({present(agent(40))}, 0), {"proc:40 detected process claude"}},
      {"counted", track({{agent(40), claude, true}}, 1), {"proc:40 working process claude"}},
      {"session", hook(EventKind::promptSubmitted, "s", 2, from(agent(40))), {"hook:s working hook+process claude"}},
      {"ended", hook(EventKind::sessionEnded, "s", 3), {"hook:s finished hook+process claude"}, {"hook:s claude"}},
      {"its process goes", scan({}, 4), {"hook:s finished hook+process claude"}},
      {"and does not come back", scan({}, 5), {"hook:s finished hook+process claude"}},
  });

  Reducer tracked;
  run(tracked, {
      {"scan", scan({present(agent(41))}, 0), {"proc:41 detected process claude"}},
      {"counted", track({{agent(41), claude, true}}, 1), {"proc:41 working process claude"}},
      {"session", hook(EventKind::promptSubmitted, "s", 2, from(agent(41))), {"hook:s working hook+process claude"}},
      {"ended", hook(EventKind::sessionEnded, "s", 3), {"hook:s finished hook+process claude"}, {"hook:s claude"}},
      {"the tracker's finish of a suppressed process adds nothing", track({}, 4, {{agent(41), claude}}),
       {"hook:s finished hook+process claude"}},
  });
}

TEST(InventoryScans, OnlyContinuousScansAnnounceWhatIsMissing) {
  Reducer gap;
  run(gap, {
      {"scan", scan({present(agent(50))}, 0), {"proc:50 detected process claude"}},
      {"counted", track({{agent(50), claude, true}}, 1), {"proc:50 working process claude"}},
      {"session", hook(EventKind::promptSubmitted, "s", 2, from(agent(50))), {"hook:s working hook+process claude"}},
      {"after an 11 s gap the process and its session go silently", scan({}, 11), {}},
      {"and the session stays ended", hook(EventKind::promptSubmitted, "s", 12), {}},
  });

  Reducer continuous;
  run(continuous, {
      {"the first scan finishes nothing", scan({present(agent(60))}, 0), {"proc:60 detected process claude"}},
      {"never counted: no finished row", scan({}, 5), {}},
      {"another", scan({present(agent(61))}, 6), {"proc:61 detected process claude"}},
      {"counted idle", track({{agent(61), claude, false}}, 7), {"proc:61 waiting process claude"}},
      {"gone within 10 s", scan({}, 16), {"proc:61 finished process claude"}, {"proc:61 claude"}},
      {"listeners alone make no row", scan({}, 17, {}, {{agent(62), {}}}), {"proc:61 finished process claude"}},
  });
}

TEST(InventoryScans, NewerEvidenceOutlivesAnOlderScan) {
  Reducer reducer;
  run(reducer, {
      {"scan", scan({present(agent(70)), present(agent(80))}, 90),
       {"proc:70 detected process claude", "proc:80 detected process claude"}},
      {"the tracker at 100", track({{agent(70), claude, true}}, 100),
       {"proc:70 working process claude", "proc:80 detected process claude"}},
      {"a hook at 100", hook(EventKind::promptSubmitted, "s", 100, from(agent(80))),
       {"proc:70 working process claude", "hook:s working hook+process claude"}},
      {"a scan observed at 99 removes neither", scan({}, 99),
       {"proc:70 working process claude", "hook:s working hook+process claude"}},
      {"one observed at 100 ends both", scan({}, 100),
       {"proc:70 finished process claude", "hook:s finished hook+process claude"},
       {"proc:70 claude", "hook:s claude"}},
  });
}

TEST(InventoryScans, UnmappedHookSessionsEndWithTheirRuntime) {
  const ProcessIdentity runtime{500, 1'700'000'500, 0};
  Reducer reducer;
  run(reducer, {{"a hook from a shell, no agent", hook(EventKind::promptSubmitted, "r", 1, from(std::nullopt, {}, runtime)),
                 {"hook:r working hook claude"}}});
  EXPECT_EQ(reducer.hookRuntimeProbeIdentities(), std::vector<ProcessIdentity>{runtime});
  run(reducer, {
      {"runtime alive", scan({}, 2, {{runtime, true}}), {"hook:r working hook claude"}},
      {"runtime not probed", scan({}, 3), {"hook:r working hook claude"}},
      {"runtime gone, after any gap", scan({}, 40, {{runtime, false}}), {"hook:r finished hook claude"},
       {"hook:r claude"}},
  });
}

TEST(InventoryTracking, HostsOutrankKindsAndOlderAuthoritativeEvidenceStands) {
  Reducer reducer;
  run(reducer, {
      {"Codex inside the Claude app presents Claude",
       scan({present(agent(120, codex), host(HostAppKind::claudeDesktop))}, 10), {"proc:120 detected process claude"}},
      {"an older look from a terminal changes nothing",
       track({{agent(120, codex), codex, true}}, 5, {}, {{agent(120, codex), HostAppKind::terminal}}),
       {"proc:120 detected process claude"}},
      {"a newer look from the ChatGPT app wins",
       track({{agent(120, codex), codex, true}}, 20, {}, {{agent(120, codex), HostAppKind::chatgpt}}),
       {"proc:120 working process codex"}},
  });
  EXPECT_EQ(reducer.presentedProviderEvidence(), (std::map<AgentProcessIdentity, AgentKind>{{agent(120, codex), codex}}));
  EXPECT_FALSE(row(reducer.snapshot({}), "proc:120").controlSurface.has_value())
      << "the Claude app is no longer where this process runs";
}

TEST(InventoryTracking, TheTrackerMakesRowsAndDecidesBusyForMappedSessions) {
  Reducer reducer;
  run(reducer, {
      {"a tracked process appears before any scan", track({{agent(130), claude, false}}, 0),
       {"proc:130 waiting process claude"}},
      {"its hook session says detected", hook(EventKind::sessionStart, "s", 1, from(agent(130))),
       {"hook:s waiting hook+process claude"}},
      {"busy now", track({{agent(130), claude, true}}, 2), {"hook:s working hook+process claude"}},
      {"attention outranks the tracker", hook(EventKind::permissionRequested, "s", 3, from(agent(130))),
       {"hook:s attention hook+process claude"}},
      {"its end ends the session", track({}, 4, {{agent(130), claude}}), {"hook:s finished hook+process claude"},
       {"hook:s claude"}},
  });
}

TEST(InventoryProviders, DisconnectingLeavesTheAgentsAsProcessRows) {
  Reducer reducer;
  run(reducer, {
      {"scan", scan({present(agent(95)), present(agent(96))}, 0),
       {"proc:95 detected process claude", "proc:96 detected process claude"}},
      {"sessions", hook(EventKind::promptSubmitted, "a", 1, from(agent(95))),
       {"hook:a working hook+process claude", "proc:96 detected process claude"}},
      {"one ends", hook(EventKind::sessionEnded, "b", 2, from(agent(96))),
       {"hook:a working hook+process claude"}},
  });
  reducer.providerDisconnected(claude, at(3));
  EXPECT_EQ(rows(reducer.snapshot({})),
            (std::vector<std::string>{"proc:95 detected process claude", "proc:96 detected process claude"}));
  EXPECT_TRUE(reducer.takeCompletionEdges().empty());
}

TEST(InventoryTime, EvidenceGoesStaleAtTwelveHoursAndOrphansAtADay) {
  constexpr int64_t hours12 = 43200, day = 86400;
  Reducer reducer;
  run(reducer, {
      {"scan", scan({present(agent(100))}, 0), {"proc:100 detected process claude"}},
      {"mapped", hook(EventKind::promptSubmitted, "m", 1, from(agent(100))), {"hook:m working hook+process claude"}},
      {"unmapped", hook(EventKind::promptSubmitted, "u", 1),
       {"hook:m working hook+process claude", "hook:u working hook claude"}},
  });
  EXPECT_EQ(reducer.nextTransientDeadline(), at(1 + hours12));
  run(reducer, {{"12 hours", clock(1 + hours12),
                 {"hook:m detected hook+process claude", "hook:u detected hook claude"}}});
  EXPECT_EQ(row(reducer.snapshot({}), "hook:m").explanation(), "No provider events for a while \u2014 state unknown.");
  EXPECT_EQ(reducer.nextTransientDeadline(), at(1 + day));
  run(reducer, {{"a day: the orphan goes, silently", clock(1 + day), {"hook:m detected hook+process claude"}}});
  EXPECT_EQ(reducer.nextTransientDeadline(), std::nullopt);
  run(reducer, {{"an event revives it", hook(EventKind::promptSubmitted, "m", 2 + day, from(agent(100))),
                 {"hook:m working hook+process claude"}}});
}

TEST(InventorySnapshots, FreshnessFollowsScansAndFailures) {
  Reducer reducer;
  reducer.applyPanelScan({}, {}, {}, at(5), at(6));
  EXPECT_EQ(reducer.snapshot({}).freshness, InventoryFreshness::live());
  reducer.applyScanFailure(at(9));
  EXPECT_EQ(reducer.snapshot({}).freshness, InventoryFreshness::stale(at(5)));
  EXPECT_EQ(reducer.snapshot({}).capturedAt, at(9));
  const std::vector<AgentProviderConnection> connections{{claude, AgentProviderConnectionStatus::of({}), true}};
  EXPECT_EQ(reducer.snapshot(connections).providerConnections, connections);
}

// Random interleavings of every input over a few sessions and processes.
TEST(InventoryProperties, RandomInterleavingsKeepTheInvariants) {
  const std::vector<std::string> sessions{"a", "b", "c"};
  const std::vector<AgentProcessIdentity> processes{agent(1), agent(2), agent(3, codex)};
  const EventKind events[] = {EventKind::sessionStart, EventKind::promptSubmitted, EventKind::permissionRequested,
                              EventKind::idleNotification, EventKind::turnEnded, EventKind::turnFailed,
                              EventKind::sessionEnded, EventKind::needsInputNotification};
  for (unsigned seed = 1; seed <= 40; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const auto pick = [&random](size_t count) { return static_cast<size_t>(random() % count); };
    std::vector<std::function<void(Reducer&)>> inputs;
    std::set<std::pair<AgentKind, std::string>> ended;  // by sessionEnded, not started since
    Reducer reducer;
    std::vector<AgentInventorySnapshot> published;
    int64_t time = 0;
    for (int step = 0; step < 200; ++step) {
      time += static_cast<int64_t>(pick(8));
      std::function<void(Reducer&)> input;
      const size_t what = pick(10);
      if (what < 6) {
        const auto event = events[pick(std::size(events))];
        const auto provider = pick(4) == 0 ? codex : claude;
        const auto session = sessions[pick(sessions.size())];
        std::optional<AgentProcessIdentity> process;
        if (pick(3) != 0) process = processes[pick(processes.size())];
        input = hook(event, session, time, from(process), provider);
        if (event == EventKind::sessionEnded) ended.insert({provider, session});
        if (event == EventKind::sessionStart) ended.erase({provider, session});
      } else if (what < 8) {
        std::vector<AgentProcessPresence> entries;
        for (const auto& process : processes) {
          if (pick(3) != 0) entries.push_back(present(process));
        }
        input = scan(entries, time - static_cast<int64_t>(pick(3)));
      } else if (what < 9) {
        const auto& process = processes[pick(processes.size())];
        if (pick(2) == 0) {
          input = track({{process, process.kind, pick(2) == 0}}, time);
        } else {
          input = track({}, time, {{process, process.kind}});
        }
      } else {
        input = clock(time + static_cast<int64_t>(pick(2) == 0 ? 31 : 43200));
      }
      input(reducer);
      inputs.push_back(input);
      const auto snapshot = reducer.snapshot({});
      published.push_back(snapshot);

      std::set<std::string> liveIDs;
      for (const auto& session : snapshot.sessions) {
        if (session.state == AgentSessionState::recentlyFinished) continue;
        EXPECT_TRUE(liveIDs.insert(session.id.stableID()).second) << "two live rows for " << describe(session);
        if (const auto* hookID = std::get_if<ProviderSessionID>(&session.id.value)) {
          EXPECT_FALSE(ended.contains({hookID->provider, hookID->sessionID}))
              << "an ended session came back without a start: " << describe(session);
        }
      }
      EXPECT_TRUE(std::is_sorted(snapshot.sessions.begin(), snapshot.sessions.end(),
                                 [](const auto& a, const auto& b) { return a.id.stableID() < b.id.stableID(); }));
    }
    // The same inputs give the same snapshots.
    Reducer replay;
    for (size_t i = 0; i < inputs.size(); ++i) {
      inputs[i](replay);
      ASSERT_EQ(replay.snapshot({}), published[i]) << "step " << i;
    }
  }
}

}  // namespace
}  // namespace tidewatch
