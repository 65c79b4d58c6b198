// The one command: the hook relay, the reports (scan, agents, update-gate), stop, or the application.
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "app/application_launch.h"
#include "app/cli_agents.h"
#include "app/cli_stop.h"
#include "app/tidewatch_cli.h"
#include "hooks/agent_hook_relay.h"

namespace {

std::optional<std::string> environmentVariable(const char* name) {
  const char* value = std::getenv(name);
  return value ? std::optional<std::string>(value) : std::nullopt;
}

// Hands the process over to the application; returns only when that failed.
int startApplication(const std::vector<std::string>& arguments) {
  namespace Launch = tidewatch::ApplicationLaunch;
  const auto output = tidewatch::TidewatchCLI::Output::live();
  if (const auto request = Launch::request(arguments)) {
    output.standardOutput(*request == Launch::Request::help ? Launch::helpText() : Launch::versionText());
    return 0;
  }
  std::error_code error;
  const auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  const Launch::Environment environment{environmentVariable("DISPLAY"), environmentVariable("WAYLAND_DISPLAY"),
                                        error ? std::string() : self.string(), [](const std::string& path) {
                                          struct stat status {};
                                          return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
                                                 ::access(path.c_str(), X_OK) == 0;
                                        }};
  const auto plan = Launch::plan(arguments, environment);
  if (const auto* refusal = std::get_if<Launch::Refusal>(&plan)) {
    output.standardError(refusal->message);
    return 1;
  }
  const auto& exec = std::get<Launch::Exec>(plan);
  std::vector<char*> argv;
  for (const auto& argument : exec.arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  ::execv(exec.path.c_str(), argv.data());
  output.standardError("error: could not start " + exec.path + ": " + std::strerror(errno));
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  // Kept for the life of the process, as the relay and the reports read it.
  static const std::vector<std::string> arguments(argv + (argc > 0 ? 1 : 0), argv + argc);
  using tidewatch::EntryRoute;
  switch (tidewatch::routeFor(arguments)) {
    case EntryRoute::relay:
      std::exit(tidewatch::AgentHookRelay::run({arguments.begin() + 1, arguments.end()}));
    case EntryRoute::scan:
      std::exit(tidewatch::TidewatchCLI::run(arguments));
    case EntryRoute::updateGate:
      std::exit(tidewatch::TidewatchCLI::runUpdateGate());
    case EntryRoute::stop:
      std::exit(tidewatch::TidewatchCLI::runStop(arguments));
    case EntryRoute::agents:
      std::exit(tidewatch::TidewatchCLI::runAgents(arguments));
    case EntryRoute::application:
      return startApplication(arguments);
  }
  return 1;
}
