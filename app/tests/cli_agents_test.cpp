#include "app/cli_agents.h"

#include <gtest/gtest.h>

#include "inventory/tests/inventory_script.h"

namespace tidewatch {
namespace {

using namespace testing;
namespace Document = AgentSessionsDocument;

std::string fixedTime(Date) { return "7:28:00 PM"; }

AgentInventorySnapshot hookSession() {
  Reducer reducer;
  // Its process started a minute before the report: told by the time; the Codex process of the
  // other world started days before: told by the day.
  const AgentProcessIdentity claude{{200, 1'800'000'000, 0}, AgentKind::claude};
  reducer.applyHookEvent(envelope(EventKind::promptSubmitted, "s1", AgentKind::claude, "tidewatch"),
                         from(claude, host(HostAppKind::terminal)), at(5));
  return reducer.snapshot({});
}

AgentInventorySnapshot processSession() {
  Reducer reducer;
  const auto codex = agent(300, AgentKind::codex);
  reducer.applyPanelScan({{present(codex, std::nullopt, std::nullopt, "shop")}},
                         {{codex, {listenerOn(301, 5173),
                                   listenerOn(302, 3000)}}},
                         {}, at(0), at(0));
  return reducer.snapshot({});
}

struct Run {
  int status = 0;
  std::string out, err;
  int processTableLooks = 0;
};

Run agents(const std::vector<std::string>& arguments, std::optional<std::string> application) {
  Run run;
  const TidewatchCLI::AgentsDependencies dependencies{
      [&] { return application; },
      [&] {
        ++run.processTableLooks;
        return processSession();
      },
      [] { return at(60); }};
  const TidewatchCLI::Output output{[&](const std::string& text) { run.out += text; },
                                    [&](const std::string& line) { run.err += line + "\n"; }};
  run.status = TidewatchCLI::runAgents(arguments, dependencies, output, fixedTime);
  return run;
}

const std::string rule = [] {
  std::string r;
  for (int i = 0; i < 85; ++i) r += "\xE2\x94\x80";
  return r;
}();

TEST(AgentsCommand, TheRunningApplicationsSessionsWithTheirHookStates) {
  const auto answer = Document::encode(hookSession(), Document::Source::application).dump();
  const auto run = agents({"agents"}, answer);
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.processTableLooks, 0) << "the application's inventory is the whole answer";
  EXPECT_EQ(run.out,
            "Tidewatch \xE2\x80\x94 1 agent session \xC2\xB7 from the running application\n"
            "\n"
            "STATE            PROVIDER     PROJECT             HOST          SINCE       PID      PORTS\n" +
                rule +
                "\n"
                "Working          Claude Code  tidewatch           Terminal      7:28:00 PM  200\n");
  EXPECT_EQ(run.err, "");

  const auto json = agents({"agents", "--json"}, answer);
  EXPECT_EQ(json.status, 0);
  EXPECT_EQ(nlohmann::json::parse(json.out), nlohmann::json::parse(answer));
}

TEST(AgentsCommand, WithoutTheApplicationTheProcessTableStandsInAndSaysSo) {
  for (const std::optional<std::string>& answer :
       {std::optional<std::string>(), std::optional<std::string>("not json"),
        std::optional<std::string>(R"({"source": "application", "sessions": [{"provider": 2}]})")}) {
    const auto run = agents({"agents"}, answer);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.processTableLooks, 1);
    EXPECT_EQ(run.out, "Tidewatch \xE2\x80\x94 1 agent session \xC2\xB7 from the process table\n" +
                           std::string(TidewatchCLI::hookStatesNote) +
                           "\n"
                           "\n"
                           "STATE            PROVIDER     PROJECT             HOST          SINCE       PID      PORTS\n" +
                           rule +
                           "\n"
                           "Detected         Codex        shop                              2023-11-14  300      3000, "
                           "5173\n")
        << answer.value_or("no application");
  }
  const auto json = nlohmann::json::parse(agents({"agents", "--json"}, std::nullopt).out);
  EXPECT_EQ(json["source"], "processTable");
  EXPECT_EQ(json["sessions"][0]["ports"], nlohmann::json::array({3000, 5173}));
}

TEST(AgentsCommand, NoSessionsAndBadWords) {
  const auto empty = agents({"agents"}, Document::encode(AgentInventorySnapshot::empty(), Document::Source::application).dump());
  EXPECT_EQ(empty.out, "Tidewatch \xE2\x80\x94 0 agent sessions \xC2\xB7 from the running application\n\nNo agent sessions.\n");
  const auto bad = agents({"agents", "--all"}, std::nullopt);
  EXPECT_EQ(bad.status, 1);
  EXPECT_EQ(bad.out, "");
  EXPECT_EQ(bad.err, "error: agents has no option --all (it takes --json)\n");
}

}  // namespace
}  // namespace tidewatch
