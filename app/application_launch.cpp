#include "app/application_launch.h"

#include <algorithm>

#include "process_core/path_utils.h"

#ifndef TIDEWATCH_VERSION
#define TIDEWATCH_VERSION "unknown"
#endif

namespace tidewatch::ApplicationLaunch {
namespace {

bool isSet(const std::optional<std::string>& variable) { return variable && !variable->empty(); }

}  // namespace

std::vector<std::string> applicationCandidates(const std::string& frontExecutable) {
  const std::string directory = deletingLastPathComponent(frontExecutable);
  const std::string prefix = deletingLastPathComponent(directory);
  return {appendingPathComponent(directory, "tidewatch-app"),
          appendingPathComponent(appendingPathComponent(prefix, "libexec/tidewatch"), "tidewatch-app")};
}

Plan plan(const std::vector<std::string>& arguments, const Environment& environment) {
  if (!isSet(environment.display) && !isSet(environment.waylandDisplay)) {
    return Refusal{"error: no graphical session here (neither DISPLAY nor WAYLAND_DISPLAY is set); run "
                   "\"tidewatch scan\" for the listening ports"};
  }
  for (const auto& candidate : applicationCandidates(environment.frontExecutable)) {
    if (!environment.isExecutable(candidate)) continue;
    std::vector<std::string> argv{candidate};
    argv.insert(argv.end(), arguments.begin(), arguments.end());
    return Exec{candidate, std::move(argv)};
  }
  return Refusal{"error: the Tidewatch application (tidewatch-app) is not installed beside " +
                 environment.frontExecutable + "; run \"tidewatch scan\" for the listening ports"};
}

std::optional<Request> request(const std::vector<std::string>& arguments) {
  const auto has = [&arguments](std::string_view word) {
    return std::find(arguments.begin(), arguments.end(), word) != arguments.end();
  };
  if (has("-h") || has("--help")) return Request::help;
  if (has("--version")) return Request::version;
  return std::nullopt;
}

std::string helpText() {
  return "Usage: tidewatch [COMMAND] [OPTIONS]\n"
         "\n"
         "What is listening on this machine's local TCP ports, and which coding agents\n"
         "(Claude Code, Codex) are at work.\n"
         "\n"
         "Commands:\n"
         "  (none)          start the tray application (needs a graphical session)\n"
         "  scan            print each listening port with the process behind it\n"
         "    --json          as JSON, with other users' listeners under otherUserListeners\n"
         "    --all           also the hidden system and background listeners\n"
         "    --port N        only port N; give it again for more ports\n"
         "    --agents-only   only the listeners that coding agents started\n"
         "    --watch [SECONDS]\n"
         "                    redraw in place until Ctrl+C, every SECONDS or at the\n"
         "                    panel's cadence (1 s, 10 s in low power)\n"
         "  stop PORT...    stop what listens on each port, with the panel's guards: shells,\n"
         "                  editors, terminals, system and other users' processes are never\n"
         "                  signalled; exits 0 only when every port was stopped\n"
         "    --force         SIGKILL instead of SIGTERM\n"
         "    --pool          stop a worker pool as one (its supervisor, else each worker)\n"
         "    --dry-run, -n   say what would be stopped and why, and signal nothing\n"
         "  agents          the coding agents' sessions: from the running application, with\n"
         "                  their hook states, else from the process table alone\n"
         "    --json          as JSON\n"
         "  update-gate     tell whether automatic update checks will run\n"
         "  agent-event     the hook relay that agents' hooks start; reads the hook's JSON\n"
         "                  on standard input, prints nothing and always exits 0\n"
         "\n"
         "Options:\n"
         "  -h, --help      print this help and exit\n"
         "  --version       print the version and exit\n";
}

std::string versionText() { return std::string("tidewatch ") + TIDEWATCH_VERSION + "\n"; }

}  // namespace tidewatch::ApplicationLaunch
