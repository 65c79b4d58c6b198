#include "app/launch_at_login.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "app/linux/launch_at_login_linux.h"
#include "process_core/tests/support/temporary_directory.h"

namespace tidewatch {
namespace {

using LaunchAtLoginReconciler::ChangeResult;
using LaunchAtLoginReconciler::Presentation;
using LaunchAtLoginReconciler::SystemStatus;
using FileOperations = AgentHookConfigurator::FileOperations;
using FileStatus = AgentHookConfigurator::FileStatus;

const std::string approval = "Turn on Tidewatch in System Settings → General → Login Items & Extensions.";
const std::string addFailed = "Couldn't add Tidewatch to Login Items. Try System Settings → General → Login Items.";
const std::string removeFailed =
    "Couldn't remove Tidewatch from Login Items. Try System Settings → General → Login Items.";

// toggleOn, needsApproval, caption, openLoginItemsSettings
using shown = Presentation;

TEST(LaunchAtLoginReconciler, TheToggleFollowsTheSystemAndFailuresGetACaption) {
  const auto& texts = LaunchAtLoginTexts::darwin();
  EXPECT_EQ(presentation(SystemStatus::enabled, texts), (shown{true, false, std::nullopt, false}));
  EXPECT_EQ(presentation(SystemStatus::requiresApproval, texts), (shown{false, true, approval, false}));
  EXPECT_EQ(presentation(SystemStatus::notRegistered, texts), (shown{false, false, std::nullopt, false}));
  struct Case {
    bool requested;
    ChangeResult result;
    SystemStatus status;
    Presentation expected;
  };
  const Case cases[] = {
      {true, ChangeResult::enabled, SystemStatus::enabled, shown{true, false, std::nullopt, false}},
      {true, ChangeResult::requiresApproval, SystemStatus::notRegistered, shown{false, true, approval, true}},
      {true, ChangeResult::failed, SystemStatus::notRegistered, shown{false, false, addFailed, false}},
      {true, ChangeResult::disabled, SystemStatus::requiresApproval, shown{false, true, addFailed, false}},
      {false, ChangeResult::disabled, SystemStatus::notRegistered, shown{false, false, std::nullopt, false}},
      {false, ChangeResult::failed, SystemStatus::enabled, shown{true, false, removeFailed, false}},
      {false, ChangeResult::enabled, SystemStatus::enabled, shown{true, false, removeFailed, false}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(presentationAfterToggle(c.requested, c.result, c.status, texts), c.expected)
        << c.requested << static_cast<int>(c.result);
  }
  EXPECT_EQ(LaunchAtLoginReconciler::toggleWrite(true, true), std::nullopt);
  EXPECT_EQ(LaunchAtLoginReconciler::toggleWrite(true, false), false);
}

TEST(LaunchAtLoginTexts, LinuxNamesNoMacPlaces) {
  const auto& texts = LaunchAtLoginTexts::forLinux();
  for (const std::string* text : {&texts.approvalCaption, &texts.addFailedCaption, &texts.removeFailedCaption,
                                  &texts.offerAddFailed, &texts.offerApprovalOpened, &texts.offerNotOnYet}) {
    EXPECT_EQ(text->find("System Settings"), std::string::npos) << *text;
    EXPECT_NE(text->find("Startup Applications"), std::string::npos) << *text;
  }
}

struct FakeLoginItems {
  SystemStatus status = SystemStatus::notRegistered;
  ChangeResult result = ChangeResult::enabled;
  std::vector<std::string> calls;
  LaunchAtLoginService service() {
    return {[this] { return status; }, [this] { return calls.push_back("register"), result; },
            [this] { return calls.push_back("unregister"), result; }, [this] { calls.push_back("open settings"); }};
  }
};

struct LaunchAtLoginControllerTest : ::testing::Test {
  testing::TemporaryDirectory directory;
  DefaultsStore store{directory.path() + "/defaults.json"};
  FakeLoginItems items;
  int gateChanges = 0;
  LaunchAtLoginController controller() {
    LaunchAtLoginController made(items.service(), store, LaunchAtLoginTexts::darwin());
    made.onOnboardingGateChanged = [this] { ++gateChanges; };
    return made;
  }
};

TEST_F(LaunchAtLoginControllerTest, EnablingThatNeedsApprovalStaysOffAndOpensTheSettingsOnce) {
  ASSERT_TRUE(store.set("launchAtLoginEnabled", true));  // as the toggle wrote it
  items.result = ChangeResult::requiresApproval;
  EXPECT_EQ(controller().applyLaunchAtLoginToggle(true), (shown{false, true, approval, true}));
  EXPECT_EQ(items.calls, (std::vector<std::string>{"register", "open settings"}));
  EXPECT_EQ(store.valueForKey("launchAtLoginEnabled"), false);
}

TEST_F(LaunchAtLoginControllerTest, DisablingThatFailsKeepsTheToggleOn) {
  items.status = SystemStatus::enabled;
  items.result = ChangeResult::failed;
  EXPECT_EQ(controller().applyLaunchAtLoginToggle(false), (shown{true, false, removeFailed, false}));
  EXPECT_EQ(items.calls, std::vector<std::string>{"unregister"});
  EXPECT_EQ(store.valueForKey("launchAtLoginEnabled"), true);
}

TEST_F(LaunchAtLoginControllerTest, ReconcilingFollowsTheSystemWithoutWritingAnUnchangedValue) {
  items.status = SystemStatus::enabled;
  EXPECT_TRUE(controller().reconcileLaunchAtLogin().toggleOn);
  EXPECT_EQ(store.valueForKey("launchAtLoginEnabled"), true);
  items.status = SystemStatus::notRegistered;
  EXPECT_FALSE(controller().reconcileLaunchAtLogin().toggleOn);
  EXPECT_EQ(store.valueForKey("launchAtLoginEnabled"), false);
  std::filesystem::remove(store.path());
  controller().reconcileLaunchAtLogin();
  EXPECT_FALSE(std::filesystem::exists(store.path()));
}

TEST_F(LaunchAtLoginControllerTest, TheOfferCompletesOnlyOnceTheSystemSaysOn) {
  using Step = LaunchAtLoginOfferState::Step;
  auto offer = controller();
  items.result = ChangeResult::failed;
  EXPECT_EQ(offer.enableAtLogin(),
            (LaunchAtLoginOfferState{
                Step::offering,
                "Tidewatch could not be added to Login Items. You can try again here or later in Settings."}));
  items.result = ChangeResult::requiresApproval;
  EXPECT_EQ(offer.enableAtLogin(), (LaunchAtLoginOfferState{Step::awaitingApproval,
                                                            "System Settings is open. Turn on Tidewatch in Login "
                                                            "Items & Extensions, then return here."}));
  EXPECT_EQ(items.calls.back(), "open settings");
  EXPECT_EQ(offer.reconcileAfterApproval(),
            (LaunchAtLoginOfferState{Step::awaitingApproval,
                                     "Tidewatch is not on yet. In System Settings, turn it "
                                     "on under Login Items & Extensions."}));
  EXPECT_FALSE(store.boolForKey("launchAtLoginOfferCompleted"));
  EXPECT_EQ(gateChanges, 0);

  items.status = SystemStatus::enabled;
  EXPECT_EQ(offer.reconcileAfterApproval().step, Step::completed);
  EXPECT_TRUE(store.boolForKey("launchAtLoginOfferCompleted"));
  items.result = ChangeResult::enabled;
  EXPECT_EQ(offer.enableAtLogin().step, Step::completed);
  EXPECT_EQ(offer.declineOffer().step, Step::completed);
  EXPECT_EQ(gateChanges, 3);
}

// Files in memory; `failing` names the one operation that fails.
struct MemoryFiles {
  std::map<std::string, std::string> files;
  std::set<std::string> folders;
  std::map<int, std::string> descriptors;
  std::map<std::string, uint32_t> modes;
  std::string failing;

  FileOperations operations() {
    FileOperations ops;
    ops.fileStatus = [this](const std::string& path) -> std::optional<FileStatus> {
      if (!files.contains(path) && !folders.contains(path)) return std::nullopt;
      FileStatus status;
      status.type = files.contains(path) ? FileStatus::Type::regularFile : FileStatus::Type::directory;
      return status;
    };
    ops.readFile = [this](const std::string& path) -> std::optional<std::string> {
      if (failing == "readFile" || !files.contains(path)) return std::nullopt;
      return files.at(path);
    };
    ops.createDirectories = [this](const std::string& path, uint32_t) {
      return failing != "createDirectories" && folders.insert(path).second;
    };
    ops.createExclusive = [this](const std::string& path, uint32_t) {
      if (failing == "createExclusive" || files.contains(path)) return -1;
      files[path];
      const int fd = 3 + static_cast<int>(descriptors.size());
      descriptors[fd] = path;
      return fd;
    };
    ops.write = [this](int fd, std::string_view bytes) -> int64_t {
      if (failing == "write") return -1;
      bytes = bytes.substr(0, 20);  // short writes
      files[descriptors.at(fd)] += bytes;
      return static_cast<int64_t>(bytes.size());
    };
    ops.changeMode = [this](int fd, uint32_t mode) {
      return failing != "changeMode" && (modes[descriptors.at(fd)] = mode);
    };
    ops.sync = [this](int) { return failing != "sync"; };
    ops.rename = [this](const std::string& from, const std::string& to) {
      if (failing == "rename") return false;
      files[to] = files.at(from);
      files.erase(from);
      return true;
    };
    ops.removeFile = [this](const std::string& path) { return failing != "removeFile" && files.erase(path) > 0; };
    ops.close = [this](int fd) { descriptors.erase(fd); };
    ops.effectiveUserID = [] { return 1000u; };
    ops.processID = [] { return int64_t{42}; };
    return ops;
  }
};

const std::string entryPath = "/home/u/.config/autostart/tidewatch.desktop";
const std::string executable = "/usr/local/bin/tidewatch";

LaunchAtLoginManager managerOver(MemoryFiles& memory, const std::string& program = executable) {
  return LaunchAtLoginManager({memory.operations(), entryPath, program, {}});
}

TEST(LaunchAtLoginManager, TheEntryPathHonoursOnlyAnAbsoluteConfigHome) {
  EXPECT_EQ(LaunchAtLoginManager::autostartFilePath("/x/cfg", "/home/u"), "/x/cfg/autostart/tidewatch.desktop");
  EXPECT_EQ(LaunchAtLoginManager::autostartFilePath("cfg", "/home/u"), entryPath);
  EXPECT_EQ(LaunchAtLoginManager::autostartFilePath(nullptr, "/home/u"), entryPath);
}

TEST(LaunchAtLoginManager, OnlyOurEntryForTheInstalledProgramAndNotSwitchedOffIsEnabled) {
  const std::string ours = "[Desktop Entry]\nType=Application\nExec=" + executable + "\nX-Tidewatch-Autostart=true\n";
  const std::pair<std::string, SystemStatus> cases[] = {
      {ours, SystemStatus::enabled},
      {"[Desktop Entry]\r\nExec = " + executable + " --flag\r\n X-Tidewatch-Autostart= true\r\n",
       SystemStatus::enabled},
      {"[Desktop Entry]\nExec=" + executable + "\n", SystemStatus::notRegistered},
      {ours + "Hidden=true\n", SystemStatus::notRegistered},
      {ours + "X-GNOME-Autostart-enabled=false\n", SystemStatus::notRegistered},
      {"[Desktop Entry]\nExec=/opt/tidewatch\nX-Tidewatch-Autostart=true\n", SystemStatus::notRegistered},
      {"[Desktop Entry]\nExec=" + executable + "x\nX-Tidewatch-Autostart=true\n", SystemStatus::notRegistered},
      {"[Desktop Entry]\nExec=" + executable + "\n[Other]\nX-Tidewatch-Autostart=true\n", SystemStatus::notRegistered},
      {ours + "[Desktop Action x]\nHidden=true\n", SystemStatus::enabled},
  };
  for (const auto& [content, expected] : cases) {
    MemoryFiles memory;
    memory.files[entryPath] = content;
    EXPECT_EQ(managerOver(memory).status(), expected) << content;
  }
  MemoryFiles none;
  EXPECT_EQ(managerOver(none).status(), SystemStatus::notRegistered);
}

TEST(LaunchAtLoginManager, RegisteringWritesOurEntryAndUnregisteringRemovesIt) {
  MemoryFiles memory;
  auto manager = managerOver(memory);
  EXPECT_EQ(manager.registerApp(), ChangeResult::enabled);
  EXPECT_EQ(memory.files,
            (std::map<std::string, std::string>{{entryPath, LaunchAtLoginManager::desktopEntry(executable)}}));
  EXPECT_EQ(memory.files.at(entryPath),
            "[Desktop Entry]\nType=Application\nName=Tidewatch\nExec=/usr/local/bin/tidewatch\n"
            "X-GNOME-Autostart-enabled=true\nX-Tidewatch-Autostart=true\n");
  EXPECT_EQ(memory.modes.begin()->second, 0644u);
  EXPECT_TRUE(memory.folders.contains("/home/u/.config/autostart"));
  EXPECT_TRUE(memory.descriptors.empty());

  memory.files[entryPath] += "Hidden=true\n";  // switched off by the desktop: ours to rewrite
  EXPECT_EQ(manager.registerApp(), ChangeResult::enabled);
  EXPECT_EQ(manager.unregisterApp(), ChangeResult::disabled);
  EXPECT_TRUE(memory.files.empty());
  EXPECT_EQ(manager.unregisterApp(), ChangeResult::disabled);
}

TEST(LaunchAtLoginManager, AnExecutablePathWithReservedCharactersIsQuoted) {
  const std::string program = "/opt/my tools/$x\\y\"%/tidewatch";
  EXPECT_NE(LaunchAtLoginManager::desktopEntry(program).find(R"(Exec="/opt/my tools/\\$x\\\\y\\"%%/tidewatch")"),
            std::string::npos);
  MemoryFiles memory;
  EXPECT_EQ(managerOver(memory, program).registerApp(), ChangeResult::enabled);
}

TEST(LaunchAtLoginManager, EachFailingStepIsAFailureThatLeavesNothingBehind) {
  for (const std::string step : {"createDirectories", "createExclusive", "write", "changeMode", "sync", "rename"}) {
    MemoryFiles memory;
    memory.failing = step;
    EXPECT_EQ(managerOver(memory).registerApp(), ChangeResult::failed) << step;
    EXPECT_TRUE(memory.files.empty()) << step;
    EXPECT_TRUE(memory.descriptors.empty()) << step;
  }
  MemoryFiles memory;
  ASSERT_EQ(managerOver(memory).registerApp(), ChangeResult::enabled);
  memory.failing = "removeFile";
  EXPECT_EQ(managerOver(memory).unregisterApp(), ChangeResult::failed);
}

TEST(LaunchAtLoginManager, SomeoneElsesEntryIsNeverReplacedOrRemoved) {
  for (const std::string failing : {"", "readFile"}) {
    MemoryFiles memory;
    const std::string theirs = "[Desktop Entry]\nExec=" + executable + " --quiet\n";
    memory.files[entryPath] = theirs;
    memory.failing = failing;
    auto manager = managerOver(memory);
    EXPECT_EQ(manager.registerApp(), ChangeResult::failed);
    EXPECT_EQ(manager.unregisterApp(), ChangeResult::disabled);
    EXPECT_EQ(memory.files, (std::map<std::string, std::string>{{entryPath, theirs}}));
  }
}

std::string contentOf(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

LaunchAtLoginManager liveManager(const std::string& configHome, std::function<void()> openSettings = {}) {
  return LaunchAtLoginManager({FileOperations::live(),
                               LaunchAtLoginManager::autostartFilePath(configHome.c_str(), nullptr), executable,
                               std::move(openSettings)});
}

TEST(LiveLaunchAtLogin, EnableAndDisableAFreshConfigHome) {
  testing::TemporaryDirectory directory;
  int opened = 0;
  const auto service = liveManager(directory.path() + "/config", [&] { ++opened; }).service();
  const std::string path = directory.path() + "/config/autostart/tidewatch.desktop";
  EXPECT_EQ(service.status(), SystemStatus::notRegistered);
  EXPECT_EQ(service.registerApp(), ChangeResult::enabled);
  EXPECT_EQ(service.status(), SystemStatus::enabled);
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644u);
  EXPECT_EQ(contentOf(path), LaunchAtLoginManager::desktopEntry(executable));
  EXPECT_EQ(service.unregisterApp(), ChangeResult::disabled);
  EXPECT_TRUE(std::filesystem::is_empty(directory.path() + "/config/autostart"));
  service.openLoginItemsSettings();
  EXPECT_EQ(opened, 1);
}

TEST(LiveLaunchAtLogin, AHandWrittenEntryStaysByteForByte) {
  testing::TemporaryDirectory directory;
  std::filesystem::create_directories(directory.path() + "/autostart");
  const std::string path = directory.path() + "/autostart/tidewatch.desktop";
  const std::string theirs = "[Desktop Entry]\nName=Mine\nExec=" + executable + "\n";
  std::ofstream(path, std::ios::binary) << theirs;
  const auto manager = liveManager(directory.path());
  EXPECT_EQ(manager.registerApp(), ChangeResult::failed);
  EXPECT_EQ(manager.unregisterApp(), ChangeResult::disabled);
  EXPECT_EQ(contentOf(path), theirs);
}

TEST(LiveLaunchAtLogin, AnUnwritableFolderIsAReportedFailure) {
  testing::TemporaryDirectory directory;
  const std::string notAFolder = directory.path() + "/file";
  std::ofstream(notAFolder) << "x";
  const auto manager = liveManager(notAFolder);
  EXPECT_EQ(manager.registerApp(), ChangeResult::failed);
  EXPECT_EQ(manager.status(), SystemStatus::notRegistered);
  EXPECT_EQ(manager.unregisterApp(), ChangeResult::disabled);
}

TEST(LiveLaunchAtLogin, TheLiveWiringFollowsXdgConfigHomeAndStartsTheInstalledProgram) {
  const char* saved = std::getenv("XDG_CONFIG_HOME");
  const std::optional<std::string> previous = saved ? std::optional<std::string>(saved) : std::nullopt;
  ::setenv("XDG_CONFIG_HOME", "/elsewhere/config", 1);
  const auto dependencies = LaunchAtLoginManager::Dependencies::live();
  previous ? ::setenv("XDG_CONFIG_HOME", previous->c_str(), 1) : ::unsetenv("XDG_CONFIG_HOME");
  EXPECT_EQ(dependencies.autostartFile, "/elsewhere/config/autostart/tidewatch.desktop");
  EXPECT_TRUE(dependencies.executable.starts_with("/") && dependencies.executable.ends_with("/tidewatch"));
}

}  // namespace
}  // namespace tidewatch
