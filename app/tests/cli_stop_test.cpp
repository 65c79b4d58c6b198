#include "app/cli_stop.h"

#include <gtest/gtest.h>

#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

using testing::Row;
using TidewatchCLI::StopOptions;

constexpr uint32_t me = 1000;
const SafetyContext context{1, me};

// A row of this user's that the guards let through, unless the case changes it.
PortListener mine(Row row) {
  PortListener listener = row;
  listener.process.uid = me;
  listener.process.sameUser = true;
  if (listener.isWorkerPool()) listener.parentIdentity = ProcessIdentity{900, 1'700'000'000, 0};
  return listener;
}

ScanResult world() {
  ScanResult result;
  result.listeners = {
      mine(Row(4242, 3000).path("/usr/bin/node").classified(Runtime::node, std::nullopt, "Node.js")),
      mine(Row(4300, 3001).path("/usr/bin/bash")),
      mine(Row(612, 3002).path("/usr/lib/systemd/systemd-resolved").hidden()),
      mine(Row(2200, 3003).path("/home/dev/.venv/bin/gunicorn").pool(3)),
      mine(Row(5000, 3004).path("/usr/bin/python3").classified(Runtime::python, std::nullopt, "Python")),
      mine(Row(5001, 3004)
               .path("/usr/bin/node")
               .bound({{"::", AddressFamily::ipv6, 3004}})
               .classified(Runtime::node, std::nullopt, "Node.js")),
      // A supervisor that holds the port itself beside its pool, as gunicorn's arbiter does.
      mine(Row(900, 3005).path("/home/dev/.venv/bin/gunicorn")),
      mine(Row(2300, 3005).path("/home/dev/.venv/bin/gunicorn").pool(3)),
  };
  result.otherUserListeners = {{5432, AddressFamily::ipv4, "127.0.0.1", 105, "postgres"},
                               {5432, AddressFamily::ipv6, "::1", 105, "postgres"}};
  return result;
}

// The guards' outcomes as the case sets them, and every call that reached them.
struct FakeActions {
  KillOutcome kill{KillOutcome::Signaled{}};
  KillOutcome forceKill{KillOutcome::SignaledForce{}};
  StopPoolOutcome stopPool{StopPoolOutcome::SignaledSupervisor{}};
  std::vector<std::string> calls;

  TidewatchCLI::StopActions actions(bool dryRun) {
    const std::string mode = dryRun ? "dry " : "";
    return {[this, mode](const KillRequest& r) {
              calls.push_back(mode + "kill " + std::to_string(r.pid));
              return kill;
            },
            [this, mode](const ForceKillRequest& r) {
              calls.push_back(mode + "forceKill " + std::to_string(r.pid));
              return forceKill;
            },
            [this, mode](const StopPoolRequest& r) {
              calls.push_back(mode + "stopPool " + std::to_string(r.supervisor.pid));
              return stopPool;
            }};
  }
};

TEST(StopCommand, ReadsPortsAndOptions) {
  struct Case {
    std::vector<std::string> arguments;
    std::variant<StopOptions, std::string> parsed;
  };
  const Case cases[] = {
      {{"stop", "3000", "8080", "3000"}, StopOptions{{3000, 8080}, false, false, false}},
      {{"stop", "--force", "1", "--pool", "-n"}, StopOptions{{1}, true, true, true}},
      {{"stop", "--dry-run", "65535"}, StopOptions{{65535}, false, false, true}},
      {{"stop"}, std::string("error: name the ports to stop: tidewatch stop PORT...")},
      {{"stop", "--force"}, std::string("error: name the ports to stop: tidewatch stop PORT...")},
      {{"stop", "0"}, std::string("error: not a port: 0 (ports are 1 to 65535)")},
      {{"stop", "65536"}, std::string("error: not a port: 65536 (ports are 1 to 65535)")},
      {{"stop", "3000x"}, std::string("error: not a port: 3000x (ports are 1 to 65535)")},
      {{"stop", ":3000"}, std::string("error: not a port: :3000 (ports are 1 to 65535)")},
      {{"stop", "3000", "--all"}, std::string("error: stop has no option --all (it takes --force, --pool and --dry-run)")},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TidewatchCLI::parseStop(c.arguments), c.parsed) << ::testing::PrintToString(c.arguments);
  }
}

TEST(StopCommand, EachRowOnEachPortGoesThroughTheGuardsAndIsNamedWithItsOutcome) {
  const std::string login = "That\xE2\x80\x99s a login shell \xE2\x80\x94 Tidewatch won\xE2\x80\x99t stop it.";
  const std::string system = "That\xE2\x80\x99s a system process \xE2\x80\x94 Tidewatch won\xE2\x80\x99t stop it.";
  const std::string owner = "Tidewatch can\xE2\x80\x99t confirm you own that process \xE2\x80\x94 it won\xE2\x80\x99t signal it.";
  struct Case {
    const char* what;
    std::vector<std::string> arguments;
    std::function<void(FakeActions&)> outcomes;
    std::vector<std::string> calls;
    std::string out;
    std::string err;
    int status;
  };
  const auto as = [](auto set) { return std::function<void(FakeActions&)>(set); };
  const auto none = as([](FakeActions&) {});
  const std::vector<Case> cases = {
      {"a dev server", {"stop", "3000"}, none, {"kill 4242"}, "port 3000 \xC2\xB7 node (PID 4242): Sent SIGTERM.\n", "", 0},
      {"forced", {"stop", "--force", "3000"}, none, {"forceKill 4242"},
       "port 3000 \xC2\xB7 node (PID 4242): Sent SIGKILL.\n", "", 0},
      {"gone before the signal: still a success", {"stop", "3000"},
       as([](FakeActions& a) { a.kill = {KillOutcome::AlreadyExited{}}; }), {"kill 4242"},
       "port 3000 \xC2\xB7 node (PID 4242): That process had already exited.\n", "", 0},
      {"a pid reused after the scan", {"stop", "3000"},
       as([](FakeActions& a) { a.kill = {KillOutcome::IdentityChanged{}}; }), {"kill 4242"}, "",
       "error: port 3000 \xC2\xB7 node (PID 4242): That PID now belongs to a different process \xE2\x80\x94 nothing was "
       "signaled.\n",
       1},
      {"a shell is never signalled", {"stop", "3001"}, none, {}, "",
       "error: port 3001 \xC2\xB7 bash (PID 4300): " + login + "\n", 1},
      {"a hidden system listener", {"stop", "3002"}, none, {}, "",
       "error: port 3002 \xC2\xB7 systemd-resolved (PID 612): " + system + "\n", 1},
      {"a pool needs --pool", {"stop", "3003"}, none, {}, "",
       "error: port 3003 \xC2\xB7 gunicorn \xC3\x97" "3 (PID 2200): a worker pool of 3 processes serves this port: add "
       "--pool to stop it as one.\n",
       1},
      {"a pool as one", {"stop", "--pool", "3003"}, none, {"stopPool 900"},
       "port 3003 \xC2\xB7 gunicorn \xC3\x97" "3 (PID 2200): Sent SIGTERM to the pool supervisor.\n", "", 0},
      {"a pool is never forced", {"stop", "--pool", "--force", "3003"}, none, {}, "",
       "error: port 3003 \xC2\xB7 gunicorn \xC3\x97" "3 (PID 2200): a worker pool is stopped with SIGTERM only: leave "
       "out --force.\n",
       1},
      {"two processes on one port: both named in the report's order, both stopped", {"stop", "3004"}, none,
       {"kill 5001", "kill 5000"},
       "port 3004 \xC2\xB7 node (PID 5001): Sent SIGTERM.\nport 3004 \xC2\xB7 python3 (PID 5000): Sent SIGTERM.\n", "",
       0},
      {"a supervisor on the port takes its pool with it", {"stop", "3005"}, none, {"kill 900"},
       "port 3005 \xC2\xB7 gunicorn (PID 900): Sent SIGTERM.\n"
       "port 3005 \xC2\xB7 gunicorn \xC3\x97" "3 (PID 2300): stops with its supervisor (PID 900) above.\n",
       "", 0},
      {"a supervisor that could not be signalled leaves its pool to --pool", {"stop", "3005"},
       as([](FakeActions& a) { a.kill = {KillOutcome::IdentityChanged{}}; }), {"kill 900"}, "",
       "error: port 3005 \xC2\xB7 gunicorn (PID 900): That PID now belongs to a different process \xE2\x80\x94 nothing "
       "was signaled.\n"
       "error: port 3005 \xC2\xB7 gunicorn \xC3\x97" "3 (PID 2300): a worker pool of 3 processes serves this port: add "
       "--pool to stop it as one.\n",
       1},
      {"another user's database, named once", {"stop", "5432"}, none, {}, "",
       "error: port 5432 \xC2\xB7 held by user postgres: " + owner + "\n", 1},
      {"nothing listens", {"stop", "9999"}, none, {}, "", "error: port 9999: nothing is listening on it.\n", 1},
      {"one port refused fails the whole command, the others still stop", {"stop", "3001", "3000"}, none,
       {"kill 4242"}, "port 3000 \xC2\xB7 node (PID 4242): Sent SIGTERM.\n",
       "error: port 3001 \xC2\xB7 bash (PID 4300): " + login + "\n", 1},
      {"dry run: the guards run, the words say what would happen", {"stop", "-n", "3000", "3001"}, none,
       {"dry kill 4242"},
       "port 3000 \xC2\xB7 node (PID 4242): would send SIGTERM: it is yours, and no shell, editor, terminal or system "
       "process.\n",
       "error: port 3001 \xC2\xB7 bash (PID 4300): " + login + "\n", 1},
      {"dry run of a pool under a shell", {"stop", "--dry-run", "--pool", "3003"},
       as([](FakeActions& a) { a.stopPool = {StopPoolOutcome::SignaledMembers{3}}; }), {"dry stopPool 900"},
       "port 3003 \xC2\xB7 gunicorn \xC3\x97" "3 (PID 2200): would send SIGTERM to 3 pool workers one by one; their "
       "supervisor is protected and stays.\n",
       "", 0},
      {"a bad word signals nothing", {"stop", "3000", "x"}, none, {}, "",
       "error: not a port: x (ports are 1 to 65535)\n", 1},
  };
  for (const auto& c : cases) {
    FakeActions fake;
    c.outcomes(fake);
    std::string out, err;
    const TidewatchCLI::Output output{[&](const std::string& text) { out += text; },
                                      [&](const std::string& line) { err += line + "\n"; }};
    const TidewatchCLI::StopDependencies dependencies{world, [&](bool dry) { return fake.actions(dry); }, context};
    EXPECT_EQ(TidewatchCLI::runStop(c.arguments, dependencies, output), c.status) << c.what;
    EXPECT_EQ(fake.calls, c.calls) << c.what;
    EXPECT_EQ(out, c.out) << c.what;
    EXPECT_EQ(err, c.err) << c.what;
  }
}

}  // namespace
}  // namespace tidewatch
