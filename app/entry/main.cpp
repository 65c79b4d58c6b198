// The one command: the hook relay, the scan report, the update-gate report, or the application.
#include <cstdlib>
#include <string>
#include <vector>

#include "app/tidewatch_cli.h"
#include "hooks/agent_hook_relay.h"

namespace {

int startApplication() {
  tidewatch::TidewatchCLI::Output::live().standardError(
      "error: the Tidewatch panel is not part of this build; run \"tidewatch scan\" for the report");
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
    case EntryRoute::application:
      return startApplication();
  }
  return 1;
}
