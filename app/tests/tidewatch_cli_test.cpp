#include "app/tidewatch_cli.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>

#include "process_core/tests/support/temporary_directory.h"
#include "process_core/text.h"
#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

TEST(EntryRouting, FirstMatchWins) {
  struct Case {
    std::vector<std::string> arguments;
    EntryRoute route;
  };
  const Case cases[] = {
      {{}, EntryRoute::application},
      {{"--json", "--all"}, EntryRoute::application},
      {{"--json", "agent-event"}, EntryRoute::application},
      {{"agent-event", "scan"}, EntryRoute::relay},
      {{"--all", "scan", "--json"}, EntryRoute::scan},
      {{"--scan"}, EntryRoute::scan},
      {{"update-gate", "scan"}, EntryRoute::scan},
      {{"Scan"}, EntryRoute::application},
      {{"whatever", "update-gate"}, EntryRoute::updateGate},
      {{"stop", "3000"}, EntryRoute::stop},
      {{"stop", "3000", "scan"}, EntryRoute::scan},
      {{"agents", "update-gate"}, EntryRoute::updateGate},
      {{"3000", "stop"}, EntryRoute::application},
      {{"agents", "--json"}, EntryRoute::agents},
      {{"--json", "agents"}, EntryRoute::application},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(routeFor(c.arguments), c.route) << ::testing::PrintToString(c.arguments);
  }
}

TEST(TablePadding, CutsAndPadsByUserPerceivedCharacters) {
  using TidewatchCLI::padded;
  EXPECT_EQ(padded("PORT", 7), "PORT   ");
  EXPECT_EQ(padded(std::string(21, 'a'), 22), std::string(21, 'a') + " ");
  EXPECT_EQ(padded(std::string(22, 'a'), 22), std::string(21, 'a') + " ");
  EXPECT_EQ(padded("123456789", 8), "1234567 ");
  // e + combining acute is one character; a flag is one character of two code points.
  EXPECT_EQ(padded("cafe\xCC\x81", 6), "cafe\xCC\x81  ");
  EXPECT_EQ(padded("\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA" "ab", 3), "\xF0\x9F\x87\xA9\xF0\x9F\x87\xAA" "a ");
}

using testing::Row;

ScanResult sampleResult() {
  ScanResult result;
  result.scannedAt = Date(std::chrono::seconds(1795375680));  // 2026-11-22T19:28:00Z
  result.processCount = 412;
  result.listeners = {
      Row(2200, 8000).path("/home/dev/.venv/bin/a-rather-long-server-name").pool(4).bound(
          {{"0.0.0.0", AddressFamily::ipv4, 8000}}),
      Row(612, 53).path("/usr/lib/systemd/systemd-resolved").hidden(),
      Row(4100, 5173).path("/usr/local/bin/node").classified(Runtime::node, Framework::vite, "Node \xC2\xB7 Vite")};
  return result;
}

std::string fixedTime(Date) { return "7:28:00 PM"; }

TEST(TableReport, HeadingRowsAndColumns) {
  const std::string rule = [] {
    std::string r;
    for (int i = 0; i < 78; ++i) r += "\xE2\x94\x80";
    return r;
  }();
  const std::string expected =
      "Tidewatch \xE2\x80\x94 2 listeners (1 system/background hidden) \xC2\xB7 412 processes \xC2\xB7 scanned 7:28:00 PM\n"
      "\n"
      "PORT   PROTO PROCESS               PID     CLASSIFICATION        BIND\n" +
      rule + "\n" +
      "5173   TCP   node                  4100    Node \xC2\xB7 Vite           localhost\n"
      "8000   TCP   a-rather-long-server- 2200    Unknown               all-interfaces\n";
  EXPECT_EQ(TidewatchCLI::tableReport(sampleResult(), false, fixedTime), expected);

  const std::string all = TidewatchCLI::tableReport(sampleResult(), true, fixedTime);
  EXPECT_NE(all.find("8000   TCP   a-rather-long-server- 2200    Unknown               all-interfaces\n"
                     "53     TCP   systemd-resolved      612     Unknown               localhost \xC2\xB7sys\n"),
            std::string::npos)
      << all;
  EXPECT_NE(all.find("2 listeners"), std::string::npos) << "the heading counts visible rows only";
}

TEST(TableReport, PoolSuffixAgentLineAndEmptyTables) {
  ScanResult result = sampleResult();
  result.listeners[0].process.executablePath = "/opt/gunicorn";
  result.agentPresence.entries.push_back(
      {{{900, 1, 0}, AgentKind::claude}, AgentKind::claude, std::nullopt, std::nullopt, result.scannedAt});
  const std::string table = TidewatchCLI::tableReport(result, false, fixedTime);
  EXPECT_NE(table.find("\nAgents present: 0 Codex \xC2\xB7 1 Claude\n\n"), std::string::npos) << table;
  EXPECT_NE(table.find("gunicorn \xC3\x97" "4"), std::string::npos) << table;

  ScanResult onlyHidden = sampleResult();
  onlyHidden.listeners = {onlyHidden.listeners[1]};
  EXPECT_EQ(TidewatchCLI::tableReport(onlyHidden, false, fixedTime),
            "Tidewatch \xE2\x80\x94 0 listeners (1 system/background hidden) \xC2\xB7 412 processes \xC2\xB7 "
            "scanned 7:28:00 PM\n\nNo local listeners.\n");
  onlyHidden.listeners.front().visibility = VisibilityClass::defaultVisible;
  EXPECT_NE(TidewatchCLI::tableReport(onlyHidden, false, fixedTime).find("1 listener (0 system"), std::string::npos);
}

TEST(TableReport, ControlCharactersNeverReachTheTerminal) {
  ScanResult result = sampleResult();
  result.listeners = {result.listeners[2]};
  // A name can hold anything but "/" and NUL: newline, return, tab, escape, DEL and a C1 code.
  result.listeners[0].process.executablePath = "/tmp/a\nb\rc\td\x1B[2Je\x7F\xC2\x9B";
  const std::string table = TidewatchCLI::tableReport(result, false, fixedTime);
  const std::string r = "\xEF\xBF\xBD";
  EXPECT_NE(table.find("5173   TCP   a" + r + "b" + r + "c" + r + "d" + r + "[2Je" + r + r + "        4100    Node"),
            std::string::npos)
      << table;
  EXPECT_EQ(std::count(table.begin(), table.end(), '\n'), 5) << "one line per row";
  EXPECT_EQ(withoutControlCharacters("caf\xC3\xA9 \xC2\xA0ok"), "caf\xC3\xA9 \xC2\xA0ok");
}

TEST(TableReport, OtherUsersListenersFollowTheRowsOfAllOnly) {
  ScanResult result = sampleResult();
  result.otherUserListeners = {{5432, AddressFamily::ipv4, "127.0.0.1", 101, "postgres"},
                               {5432, AddressFamily::ipv6, "::1", 101, "postgres"},
                               {6379, AddressFamily::ipv4, "0.0.0.0", 0, "root"}};
  EXPECT_EQ(TidewatchCLI::tableReport(result, false, fixedTime), TidewatchCLI::tableReport(sampleResult(), false, fixedTime));
  const std::string all = TidewatchCLI::tableReport(result, true, fixedTime);
  EXPECT_TRUE(all.ends_with("\xC2\xB7sys\n\nHeld by other users: 5432 (postgres), 6379 (root)\n")) << all;

  result.listeners.clear();
  EXPECT_TRUE(TidewatchCLI::tableReport(result, true, fixedTime)
                  .ends_with("No local listeners.\n\nHeld by other users: 5432 (postgres), 6379 (root)\n"));
}

TEST(JSONReport, ByteForByteForm) {
  ScanResult result;
  result.scannedAt = Date(std::chrono::seconds(1795375680));
  result.processCount = 3;
  result.listeners = {Row(77, 8080).path("/srv/app").started(1763830000)};
  result.otherUserListeners = {{5432, AddressFamily::ipv6, "::", 101, "postgres"}};
  const std::string expected = R"({
  "claudeAgentCount" : 0,
  "codexAgentCount" : 0,
  "hiddenCount" : 0,
  "listeners" : [
    {
      "bindScope" : "loopbackOnly",
      "bindSignature" : {
        "tokens" : [
          {
            "loopback" : {}
          }
        ]
      },
      "classification" : {
        "confidence" : "unknown",
        "label" : "Unknown"
      },
      "endpoints" : [
        {
          "address" : "127.0.0.1",
          "family" : "IPv4",
          "port" : 8080
        }
      ],
      "identity" : {
        "bindSignature" : {
          "tokens" : [
            {
              "loopback" : {}
            }
          ]
        },
        "isPool" : false,
        "port" : 8080,
        "process" : {
          "pid" : 77,
          "startTimeMicroseconds" : 0,
          "startTimeSeconds" : 1763830000
        },
        "proto" : "TCP"
      },
      "isInTidewatchSubtree" : false,
      "port" : 8080,
      "process" : {
        "cpuReadable" : false,
        "executablePath" : "\/srv\/app",
        "identity" : {
          "pid" : 77,
          "startTimeMicroseconds" : 0,
          "startTimeSeconds" : 1763830000
        },
        "name" : "app",
        "sameUser" : false
      },
      "proto" : "TCP",
      "state" : "LISTEN",
      "visibility" : "defaultVisible",
      "workerPoolSize" : 1
    }
  ],
  "otherUserListeners" : [
    {
      "address" : "::",
      "family" : "IPv6",
      "port" : 5432,
      "uid" : 101,
      "userName" : "postgres"
    }
  ],
  "processCount" : 3,
  "scannedAt" : "2026-11-22T19:28:00Z",
  "visibleCount" : 1
}
)";
  EXPECT_EQ(TidewatchCLI::jsonReport(result, false), expected);
}

TEST(JSONReport, AllAppendsHiddenRowsButKeepsTheCounts) {
  const auto json = nlohmann::json::parse(*TidewatchCLI::jsonReport(sampleResult(), true));
  EXPECT_EQ(json["visibleCount"], 2);
  EXPECT_EQ(json["hiddenCount"], 1);
  ASSERT_EQ(json["listeners"].size(), 3u);
  EXPECT_EQ(json["listeners"][0]["port"], 5173);
  EXPECT_EQ(json["listeners"][2]["port"], 53);
  EXPECT_EQ(json["otherUserListeners"], nlohmann::json::array());
  EXPECT_EQ(json.size(), 8u);
}

struct Captured {
  std::string out, err;
  TidewatchCLI::Output output() {
    return {[this](const std::string& s) { out += s; }, [this](const std::string& s) { err += s + "\n"; }};
  }
};

TEST(ScanCommand, ExitCodesAndErrorWords) {
  Captured ok;
  EXPECT_EQ(TidewatchCLI::run({"--json", "scan"}, sampleResult, ok.output(), fixedTime), 0);
  EXPECT_TRUE(ok.out.starts_with("{\n  \"claudeAgentCount\" : 0,"));
  EXPECT_TRUE(ok.err.empty());

  Captured empty;
  EXPECT_EQ(TidewatchCLI::run({"scan"}, [] () -> ScanResult { throw ScanError(ScanError::Code::enumerationUnavailable); },
                              empty.output(), fixedTime),
            1);
  EXPECT_EQ(empty.err,
            "error: process enumeration unavailable \xE2\x80\x94 proc_listpids returned 0. This build must run "
            "unsandboxed (ADR-0015).\n");
  EXPECT_TRUE(empty.out.empty());

  Captured other;
  EXPECT_EQ(TidewatchCLI::run({"scan"}, [] () -> ScanResult { throw std::runtime_error("disk on fire"); },
                              other.output(), fixedTime),
            1);
  EXPECT_EQ(other.err, "error: disk on fire\n");

  Captured badText;
  ScanResult broken = sampleResult();
  broken.listeners[2].classification.label = "\xFF\xFE";
  EXPECT_EQ(TidewatchCLI::run({"scan", "--json"}, [&] { return broken; }, badText.output(), fixedTime), 1);
  EXPECT_EQ(badText.err, "error: failed to encode scan report as JSON\n");
  EXPECT_TRUE(badText.out.empty());
}

TEST(UpdateGate, ReadsTwoFlagsFromTheDefaultsStore) {
  const testing::TemporaryDirectory directory;
  DefaultsStore store(directory.path() + "/tidewatch/defaults.json");
  EXPECT_EQ(TidewatchCLI::updateGateReport(store),
            "automaticChecks: disabled\ntidewatchOnboardingComplete: false\nonboardingReady: false\n");
  ASSERT_TRUE(store.set("tidewatchOnboardingComplete", true));
  EXPECT_EQ(TidewatchCLI::updateGateReport(store),
            "automaticChecks: disabled\ntidewatchOnboardingComplete: true\nonboardingReady: false\n");
  ASSERT_TRUE(store.set("launchAtLoginOfferCompleted", true));
  EXPECT_EQ(TidewatchCLI::updateGateReport(store),
            "automaticChecks: enabled\ntidewatchOnboardingComplete: true\nonboardingReady: true\n");
  std::ofstream(store.path()) << "not json";
  EXPECT_EQ(TidewatchCLI::updateGateReport(store),
            "automaticChecks: disabled\ntidewatchOnboardingComplete: false\nonboardingReady: false\n");
}

TEST(ScanOptions, FiltersAndTheWatchAreReadWhereverTheyStand) {
  using TidewatchCLI::ScanOptions;
  using std::chrono::milliseconds;
  struct Case {
    std::vector<std::string> arguments;
    std::variant<ScanOptions, std::string> parsed;
  };
  const Case cases[] = {
      {{"scan"}, ScanOptions{}},
      {{"--all", "scan", "--json", "--unknown"}, ScanOptions{true, true, {}, false, false, std::nullopt}},
      {{"scan", "--port", "3000", "--port=5173", "--port", "3000"}, ScanOptions{false, false, {3000, 5173}, false, false, std::nullopt}},
      {{"scan", "--agents-only"}, ScanOptions{false, false, {}, true, false, std::nullopt}},
      {{"scan", "--watch"}, ScanOptions{false, false, {}, false, true, std::nullopt}},
      {{"scan", "--watch", "--json"}, ScanOptions{true, false, {}, false, true, std::nullopt}},
      {{"scan", "--watch", "2"}, ScanOptions{false, false, {}, false, true, milliseconds(2000)}},
      {{"scan", "--watch=0.25"}, ScanOptions{false, false, {}, false, true, milliseconds(250)}},
      {{"scan", "--port"}, std::string("error: --port needs a port (1 to 65535)")},
      {{"scan", "--port", "--json"}, std::string("error: not a port: --json (ports are 1 to 65535)")},
      {{"scan", "--port=70000"}, std::string("error: not a port: 70000 (ports are 1 to 65535)")},
      {{"scan", "--watch", "0"}, std::string("error: --watch takes from 0.1 to 86400 seconds, not 0")},
      {{"scan", "--watch=soon"}, std::string("error: --watch takes seconds: soon")},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TidewatchCLI::parseScan(c.arguments), c.parsed) << ::testing::PrintToString(c.arguments);
  }
}

TEST(ScanOptions, PortsAndAgentsOnlyKeepTheirRowsWithTheSameWordsAndColumns) {
  ScanResult result = sampleResult();
  PortListener agentServer = Row(4400, 3000).path("/usr/bin/node").agent(AgentKind::claude);
  result.listeners.push_back(agentServer);
  result.otherUserListeners = {{5432, AddressFamily::ipv4, "127.0.0.1", 105, "postgres"}};
  const auto scanned = [&] { return result; };
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> rowStarts;  // the table's rows by their first columns
    bool otherUsersLine;
  };
  const Case cases[] = {
      {{"scan", "--port", "5173"}, {"5173   TCP   node"}, false},
      {{"scan", "--port", "5173", "--port", "3000"}, {"3000   TCP   node", "5173   TCP   node"}, false},
      {{"scan", "--port", "53", "--all"}, {"53     TCP   syst"}, false},
      {{"scan", "--port", "5432", "--all"}, {}, true},
      {{"scan", "--agents-only", "--all"}, {"3000   TCP   node"}, false},
      {{"scan", "--port", "9"}, {}, false},
  };
  for (const auto& c : cases) {
    std::string out, err;
    const TidewatchCLI::Output output{[&](const std::string& text) { out += text; },
                                      [&](const std::string& line) { err += line + "\n"; }};
    EXPECT_EQ(TidewatchCLI::run(c.arguments, scanned, output, fixedTime), 0);
    std::vector<std::string> rows;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
      if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0]))) rows.push_back(line.substr(0, 17));
    }
    EXPECT_EQ(rows, c.rowStarts) << ::testing::PrintToString(c.arguments);
    EXPECT_EQ(out.find("Held by other users: 5432 (postgres)") != std::string::npos, c.otherUsersLine);
    if (c.rowStarts.empty()) {
      EXPECT_NE(out.find("No local listeners."), std::string::npos);
    }
  }

  std::string json;
  const TidewatchCLI::Output toJSON{[&](const std::string& text) { json += text; }, [](const std::string&) {}};
  EXPECT_EQ(TidewatchCLI::run({"scan", "--json", "--agents-only"}, scanned, toJSON, fixedTime), 0);
  const auto report = nlohmann::json::parse(json);
  ASSERT_EQ(report["listeners"].size(), 1u);
  EXPECT_EQ(report["listeners"][0]["port"], 3000);
  EXPECT_EQ(report["visibleCount"], 1);
  EXPECT_TRUE(report["otherUserListeners"].empty());
}

}  // namespace
}  // namespace tidewatch
