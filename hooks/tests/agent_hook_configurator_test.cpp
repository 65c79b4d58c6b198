// The settings-file editor on real files in a scratch home, with failures and rival writers
// injected through its file operations.
#include "hooks/agent_hook_configurator.h"

#include <fcntl.h>
#include <gmock/gmock.h>

#include "hooks/tests/hook_test_support.h"

namespace tidewatch {
namespace {

using namespace AgentHookConfigurator;
using json = nlohmann::json;
using testing::readBytes;
using testing::writeBytes;
using Kind = ConfigError::Kind;

const AgentHookInstallation darwinApp = AgentHookInstallation::darwin();
const std::string app = darwinApp.applicationExecutable;
const std::string sock = "/home/u/.local/state/tidewatch/runtime/agent-events.sock";
const std::string oldSock = "/run/user/1000/tidewatch/agent-events.sock";
const std::set<std::string> owned = AgentHookCommand::ownedCommandSet({oldSock, sock}, darwinApp);
const auto claudeEntries = ClaudeHookConfigurator::desiredEntries(sock, app);
const auto codexEntries = CodexHookConfigurator::desiredEntries(sock, app);

json hook(const std::string& command) { return json{{"type", "command"}, {"command", command}}; }
// Arrays are spelled out: a braced list of one json value copies it on some compilers.
json group(std::initializer_list<json> hooks, std::optional<std::string> matcher = {}) {
  json g = json::object();
  g["hooks"] = json::array();
  for (const auto& h : hooks) g["hooks"].push_back(h);
  if (matcher) g["matcher"] = *matcher;
  return g;
}
std::string claudeCommand(const std::string& socket, std::optional<std::string> hint = {}) {
  return AgentHookCommand::commandLine(app, socket, AgentKind::claude, hint);
}

TEST(AgentHookCommand, WritesTheGuardedLineAndOwnsFifteenExactStrings) {
  EXPECT_EQ(AgentHookCommand::commandLine(app, "/s", AgentKind::codex, {}),
            R"(APP="/Applications/Tidewatch.app/Contents/MacOS/Tidewatch"; SOCK="/s"; if [ -x "$APP" ] && )"
            R"([ -S "$SOCK" ]; then exec "$APP" agent-event --provider codex --protocol 1; fi; exit 0)");
  EXPECT_EQ(AgentHookCommand::relayArguments(AgentKind::claude, "idle_prompt"),
            "agent-event --provider claude --protocol 1 --hint idle_prompt");
  const auto linuxApp = AgentHookInstallation::linuxInstalled("/usr/local/bin/tidewatch");
  EXPECT_EQ(linuxApp.installationDirectory, "/usr/local/bin");
  EXPECT_THAT(AgentHookCommand::commandLine(linuxApp.applicationExecutable, "/s", AgentKind::claude, {}),
              ::testing::StartsWith(R"(APP="/usr/local/bin/tidewatch"; SOCK="/s"; )"));

  EXPECT_EQ(owned.size(), 15u);
  EXPECT_TRUE(owned.contains(
      claudeCommand("$HOME/Library/Application Support/Tidewatch/Runtime/agent-events.sock", "agent_needs_input")));
  EXPECT_TRUE(owned.contains(AgentHookCommand::commandLine(app, oldSock, AgentKind::codex, {})));
  // No pattern matching: a near miss, another hint or a socket outside the candidates is the user's.
  EXPECT_FALSE(owned.contains(claudeCommand(sock) + " "));
  EXPECT_FALSE(owned.contains(AgentHookCommand::commandLine(app, sock, AgentKind::codex, "idle_prompt")));
  EXPECT_FALSE(owned.contains(claudeCommand("/elsewhere/agent-events.sock")));
}

TEST(AgentHookCommand, DesiredEntriesFollowTheProviderTables) {
  std::string events;
  for (const auto& entry : claudeEntries) events += entry.event + " ";
  EXPECT_EQ(events, "SessionStart UserPromptSubmit PermissionRequest Stop StopFailure SessionEnd Notification "
                    "Notification Notification ");
  EXPECT_EQ(claudeEntries[0], (DesiredEntry{"SessionStart", std::nullopt, claudeCommand(sock)}));
  EXPECT_EQ(claudeEntries[8], (DesiredEntry{"Notification", "idle_prompt", claudeCommand(sock, "idle_prompt")}));
  ASSERT_EQ(codexEntries.size(), 4u);
  EXPECT_EQ(codexEntries[3],
            (DesiredEntry{"Stop", std::nullopt, AgentHookCommand::commandLine(app, sock, AgentKind::codex, {})}));
}

TEST(AgentHookEditing, RemovalTakesOnlyOwnedHooksAndLeavesEverythingElseAsItStands) {
  const json userHook = {{"type", "command"}, {"command", "say done"}, {"timeout", 5}};
  const json odd = json::array({group({json::parse(R"({"type": "command"})"), json::parse(R"({"command": 7})")})});
  json root = {
      {"model", "opus"},
      {"hooks",
       {{"Stop", {group({hook(claudeCommand(oldSock)), userHook}, "m"), group({hook(claudeCommand(sock))}, "gone")}},
        {"SessionEnd", json::array({group({hook(claudeCommand(sock))})})},
        {"Empty", json::array()},
        {"Odd", odd},
        {"Mixed", {group({hook(claudeCommand(sock))}), 3}},
        {"Text", "not groups"}}}};
  removeTidewatchEntries(root, owned);
  const json expected = {{"model", "opus"},
                         {"hooks",
                          {{"Stop", json::array({group({userHook}, "m")})},
                           {"Empty", json::array()},
                           {"Odd", odd},
                           {"Mixed", {group({hook(claudeCommand(sock))}), 3}},
                           {"Text", "not groups"}}}};
  EXPECT_EQ(root, expected);
  EXPECT_TRUE(tidewatchEntries(root, owned).empty());

  json onlyOurs = {{"hooks", {{"Stop", json::array({group({hook(claudeCommand(sock))})})}}}};
  removeTidewatchEntries(onlyOurs, owned);
  EXPECT_EQ(onlyOurs, (json{{"hooks", json::object()}}));  // the emptied "hooks" object stays
  json noHooks = {{"hooks", json::array()}};
  removeTidewatchEntries(noHooks, owned);
  EXPECT_EQ(noHooks, (json{{"hooks", json::array()}}));
}

TEST(AgentHookEditing, AppendAddsOneGroupPerEntryAfterTheUsersOrRefusesWithTheRootUntouched) {
  json root = {{"hooks",
                {{"Stop", json::array({group({hook("say done")})})},
                 {"SessionEnd", json::array({group({hook(claudeCommand(oldSock))})})}}}};
  removeTidewatchEntries(root, owned);
  ASSERT_EQ(append(claudeEntries, root), std::nullopt);
  EXPECT_EQ(root["hooks"]["Stop"], (json{group({hook("say done")}), group({hook(claudeCommand(sock))})}));
  EXPECT_EQ(root["hooks"]["SessionEnd"], json::array({group({hook(claudeCommand(sock))})}));
  EXPECT_EQ(root["hooks"]["Notification"][1],
            group({hook(claudeCommand(sock, "agent_needs_input"))}, "agent_needs_input"));
  EXPECT_EQ(tidewatchEntries(root, owned).size(), 9u);

  for (json bad :
       {json{{"hooks", json::array()}}, json{{"hooks", {{"Stop", {1, 2}}}}}, json{{"hooks", {{"Stop", "x"}}}}}) {
    const json before = bad;
    EXPECT_EQ(append(claudeEntries, bad), ConfigError::of(Kind::malformedJSON)) << before;
    EXPECT_EQ(bad, before);
  }
}

class SettingsFile : public ::testing::Test {
 protected:
  void SetUp() override {
    home = scratch.path();
    path = home + "/.claude/settings.json";
  }
  void put(const std::string& bytes, uint32_t mode = 0644) {
    std::filesystem::create_directories(home + "/.claude");
    writeBytes(path, bytes);
    ::chmod(path.c_str(), mode);
  }
  InstallState inspectClaude() { return inspect(path, claudeEntries, owned, files); }
  // The file's bytes are as they were and no temporary file stayed behind.
  void expectUntouched(const std::string& bytes) {
    EXPECT_EQ(readBytes(path), bytes);
    EXPECT_EQ(testing::entriesIn(home + "/.claude"), 1u);
  }

  testing::ScratchDirectory scratch;
  std::string home, path;
  FileOperations files = FileOperations::live();
};

TEST_F(SettingsFile, InspectTellsInstalledOutdatedNotInstalledAndMalformed) {
  EXPECT_EQ(inspectClaude().kind, InstallState::Kind::notInstalled);  // no file
  json root = {{"hooks", {{"Stop", json::array({group({hook("say done")})})}}}};
  put(root.dump());
  EXPECT_EQ(inspectClaude().kind, InstallState::Kind::notInstalled);  // only the user's hooks

  // All nine in reverse order, one of them twice, is installed; eight is outdated.
  json all = root;
  std::vector<DesiredEntry> reversed(claudeEntries.rbegin(), claudeEntries.rend());
  reversed.push_back(claudeEntries[3]);
  ASSERT_EQ(append(reversed, all), std::nullopt);
  put(all.dump());
  EXPECT_EQ(inspectClaude().kind, InstallState::Kind::installed);
  json eight = root;
  ASSERT_EQ(append(std::vector<DesiredEntry>(claudeEntries.begin(), claudeEntries.end() - 1), eight), std::nullopt);
  put(eight.dump());
  EXPECT_EQ(inspectClaude().kind, InstallState::Kind::outdated);

  // Codex's four plus an owned Claude command is outdated for Codex.
  json codex = json::object();
  auto codexPlus = codexEntries;
  codexPlus.push_back(claudeEntries[0]);
  ASSERT_EQ(append(codexPlus, codex), std::nullopt);
  put(codex.dump());
  EXPECT_EQ(inspect(path, codexEntries, owned, files).kind, InstallState::Kind::outdated);

  for (const std::string& bytes : std::vector<std::string>{"", "[]", "{\"a\":", "{\"hooks\":{}} x",
                                                           std::string(600, '[') + std::string(600, ']'),
                                                           std::string("{\"hooks\":{}}\0", 13)}) {
    put(bytes);
    EXPECT_EQ(inspectClaude(), (InstallState{InstallState::Kind::malformed, {}})) << bytes;
  }
}

TEST_F(SettingsFile, EveryRefusalEndsWithNothingWritten) {
  const std::string good = R"({"hooks":{}})";
  struct Case {
    std::string name;
    std::function<void()> arrange;
    ConfigError expected;
  };
  const auto folder = [&] { std::filesystem::create_directories(home + "/.claude"); };
  const auto malformed = ConfigError::of(Kind::malformedJSON);
  const std::vector<Case> cases = {
      {"symlink to a good file",
       [&] {
         writeBytes(home + "/real.json", good);
         folder();
         std::filesystem::create_symlink(home + "/real.json", path);
       },
       ConfigError::of(Kind::fileIsSymlink)},
      {"directory", [&] { std::filesystem::create_directories(path); }, ConfigError::of(Kind::notARegularFile)},
      {"fifo", [&] { folder(); ::mkfifo(path.c_str(), 0600); }, ConfigError::of(Kind::notARegularFile)},
      {"another user's", [&] { put(good); files.effectiveUserID = [] { return ::geteuid() + 1; }; },
       ConfigError::of(Kind::notOwnedByCurrentUser)},
      {"unreadable", [&] { put(good); files.readFile = [](const std::string&) { return std::nullopt; }; },
       ConfigError::unwritable("could not read " + path)},
      {"empty", [&] { put(""); }, malformed},
      // The library's lexer stops at a NUL: all that follows would be lost in the rewrite.
      {"a NUL between objects", [&] { put(std::string("{\"model\":\"opus\"}\0{\"env\":{\"K\":\"v\"}}", 34)); },
       malformed},
      {"invalid", [&] { put("{\"hooks\": {"); }, malformed},
      {"not an object", [&] { put("[1]"); }, malformed},
      {"hooks of the wrong type", [&] { put(R"({"hooks": []})"); }, malformed},
      {"an event of the wrong type", [&] { put(R"({"hooks": {"Stop": {"a": 1}}})"); }, malformed},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove_all(home + "/.claude");
    files = FileOperations::live();
    int reads = 0;
    c.arrange();
    files.readFile = [&, read = files.readFile](const std::string& p) {
      ++reads;
      return read(p);
    };
    const std::string before = std::filesystem::is_regular_file(path) ? readBytes(path) : "";
    EXPECT_EQ(testing::edit(path, claudeEntries, owned, files), c.expected);
    // Removal reads the same way, but leaves values of the wrong type as they are.
    if (!c.name.ends_with("wrong type")) {
      EXPECT_EQ(testing::edit(path, std::nullopt, owned, files), c.expected);
    }
    if (c.expected.kind == Kind::fileIsSymlink || c.expected.kind == Kind::notARegularFile) {
      EXPECT_EQ(reads, 0);
    }
    if (std::filesystem::is_regular_file(path)) {
      expectUntouched(before);
    }
    if (c.name.starts_with("symlink")) {
      EXPECT_EQ(readBytes(home + "/real.json"), good);
    }
  }
}

TEST_F(SettingsFile, InstallAndRemoveGiveBackEveryValueOfTheUsersAndKeepModes) {
  const std::string original = R"({
    "model": "opus", "flag": false, "nothing": null,
    "numbers": [0, -1, 3.25, 1e-7, 12345678901234567890, -9223372036854775808],
    "nested": [[[]], [{}], [[1, [2, [null]]]]],
    "unicode": "naïve ☃ 𝄞 \u0000 tab\t \"quoted\" back\\slash /slash",
    "hooks": {
      "Stop": [{"hooks": [{"type": "command", "command": "say done", "timeout": 5}], "extra": {"k": [true]}}],
      "PreToolUse": [{"matcher": "Bash", "hooks": [{"type": "command",
        "command": "/Applications/Tidewatch.app/Contents/MacOS/Tidewatch agent-event --provider claude --protocol 1"}]}],
      "Custom": "a string this program does not read"
    }
  })";
  put(original);
  // The file keeps its mode, and new files and folders are private, whatever the mask.
  const mode_t previous = ::umask(0077);
  ASSERT_EQ(testing::edit(path, claudeEntries, owned, files), std::nullopt);
  const std::string codexPath = home + "/.codex/hooks.json";
  ASSERT_EQ(testing::edit(codexPath, codexEntries, owned, files), std::nullopt);
  ::umask(previous);
  EXPECT_EQ(testing::modeOf(home + "/.codex"), 0700u);
  EXPECT_EQ(testing::modeOf(codexPath), 0600u);
  EXPECT_EQ(inspect(codexPath, codexEntries, owned, files).kind, InstallState::Kind::installed);
  EXPECT_EQ(inspectClaude().kind, InstallState::Kind::installed);
  const std::string written = readBytes(path);
  // Sorted keys, " : ", and the solidus escaped.
  EXPECT_THAT(written, ::testing::HasSubstr(R"("command" : "APP=\"\/Applications\/Tidewatch.app)"));
  EXPECT_LT(written.find("\"Custom\""), written.find("\"PreToolUse\""));
  EXPECT_EQ(testing::modeOf(path), 0644u);

  // Installing again gives the same bytes; removal gives back the user's values.
  ASSERT_EQ(testing::edit(path, claudeEntries, owned, files), std::nullopt);
  EXPECT_EQ(readBytes(path), written);
  ASSERT_EQ(testing::edit(path, std::nullopt, owned, files), std::nullopt);
  EXPECT_EQ(json::parse(readBytes(path)), json::parse(original));
  expectUntouched(readBytes(path));
}

TEST_F(SettingsFile, NumbersSurviveConnectAndDisconnectByteForByte) {
  // Written as this program writes, with an empty "hooks" as removal leaves it, so nothing but
  // the numbers could change.
  const std::string original =
      "{\n  \"hooks\" : {},\n  \"numbers\" : [\n    123456789012345678901234567890,\n"
      "    -98765432109876543210,\n    18446744073709551615,\n    -9223372036854775808,\n    1.50,\n"
      "    1e5,\n    1E+2,\n    2.5e-3,\n    -0,\n    -0.0,\n    0.1,\n    7\n  ]\n}";
  put(original);
  ASSERT_EQ(testing::edit(path, claudeEntries, owned, files), std::nullopt);
  EXPECT_EQ(inspectClaude().kind, InstallState::Kind::installed);
  const std::string connected = readBytes(path);
  EXPECT_THAT(connected, ::testing::HasSubstr(original.substr(original.find("\"numbers\""))));
  ASSERT_EQ(testing::edit(path, std::nullopt, owned, files), std::nullopt);
  EXPECT_EQ(readBytes(path), original);
}

TEST_F(SettingsFile, AWriterBetweenReadAndWriteStopsTheWrite) {
  const std::string original = R"({"hooks": {"Stop": []}})";
  const auto setTime = [&](long seconds, long nanoseconds) {
    const timespec times[2] = {{0, UTIME_OMIT}, {seconds, nanoseconds}};
    ::utimensat(AT_FDCWD, path.c_str(), times, 0);
  };
  const auto rewrite = [&](const std::string& bytes) {
    writeBytes(path, bytes);
    setTime(2000, 5);
  };
  struct Case {
    std::string name;
    bool fileExists;
    std::function<void()> rival;
    bool refused;
  };
  const std::vector<Case> cases = {
      {"touch with the same bytes", true, [&] { setTime(1000, 0); }, true},
      {"new bytes of the same size, time kept", true, [&] { rewrite(R"({"hooks": {"Stop": {}}})"); }, true},
      {"one byte more, time kept", true, [&] { rewrite(original + " "); }, true},
      {"the time's nanoseconds alone", true, [&] { setTime(2000, 6); }, true},
      {"a chmod alone", true, [&] { ::chmod(path.c_str(), 0600); }, false},
      {"a file that appeared", false, [&] { writeBytes(path, original); }, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove_all(home + "/.claude");
    std::filesystem::create_directories(home + "/.claude");
    if (c.fileExists) {
      put(original, 0640);
      setTime(2000, 5);
    }
    // The rival writes right after the file was read for the edit (or found absent).
    FileOperations rivalled = files;
    bool done = false;
    const auto rivalOnce = [&] {
      if (!std::exchange(done, true)) c.rival();
    };
    if (c.fileExists) {
      rivalled.readFile = [&](const std::string& p) {
        auto bytes = files.readFile(p);
        rivalOnce();
        return bytes;
      };
    } else {
      rivalled.fileStatus = [&](const std::string& p) {
        auto status = files.fileStatus(p);
        if (p == path) rivalOnce();
        return status;
      };
    }
    const auto result = testing::edit(path, claudeEntries, owned, rivalled);
    if (c.refused) {
      EXPECT_EQ(result, ConfigError::of(Kind::concurrentModification));
      EXPECT_EQ(testing::entriesIn(home + "/.claude"), 1u);
      EXPECT_EQ(inspectClaude().kind, InstallState::Kind::notInstalled);
    } else {
      EXPECT_EQ(result, std::nullopt);
      EXPECT_EQ(testing::modeOf(path), 0640u);  // the snapshot's mode wins
    }
  }
}

TEST_F(SettingsFile, AFailedStepOfTheReplaceLeavesTheOriginalBytes) {
  const std::string original = R"({"hooks": {"Stop": [{"hooks": [{"command": "say done"}]}]}, "z": 1})";
  struct Case {
    std::string name;
    std::function<void(FileOperations&)> fail;
    std::string reason;
  };
  const std::vector<Case> cases = {
      {"write", [](FileOperations& f) { f.write = [](int, std::string_view) { return int64_t{-1}; }; },
       "could not write temporary file"},
      {"short write",
       [](FileOperations& f) {
         f.write = [write = f.write](int fd, std::string_view bytes) { return write(fd, bytes.substr(0, 10)); };
       },
       "could not write temporary file"},
      {"fchmod", [](FileOperations& f) { f.changeMode = [](int, uint32_t) { return false; }; },
       "could not write temporary file"},
      {"fsync", [](FileOperations& f) { f.sync = [](int) { return false; }; }, "could not write temporary file"},
      {"rename", [](FileOperations& f) { f.rename = [](const std::string&, const std::string&) { return false; }; },
       "could not replace " + path},
      {"a temporary file left by an earlier process",
       [&](FileOperations& f) {
         writeBytes(home + "/.claude/.tidewatch-write-77", "stale");
         f.processID = [] { return int64_t{77}; };
       },
       "could not create temporary file"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove_all(home + "/.claude");
    put(original);
    FileOperations failing = files;
    int closed = 0;
    failing.close = [&](int fd) {
      ++closed;
      files.close(fd);
    };
    c.fail(failing);
    EXPECT_EQ(testing::edit(path, claudeEntries, owned, failing), ConfigError::unwritable(c.reason));
    EXPECT_EQ(readBytes(path), original);
    EXPECT_EQ(std::filesystem::exists(home + "/.claude/.tidewatch-write-" + std::to_string(::getpid())), false);
    EXPECT_EQ(closed, c.name.starts_with("a temporary") ? 0 : 1);
  }

  // A folder that cannot be made.
  FileOperations noFolders = files;
  noFolders.createDirectories = [](const std::string&, uint32_t) { return false; };
  EXPECT_EQ(testing::edit(home + "/.codex/hooks.json", codexEntries, owned, noFolders),
            ConfigError::unwritable("could not create " + home + "/.codex"));
  // A value that cannot be serialised costs nothing.
  EXPECT_EQ(writeAtomically(json{{"bad", "\xff"}}, path, std::nullopt, files),
            ConfigError::unwritable("could not serialize configuration"));
}

}  // namespace
}  // namespace tidewatch
