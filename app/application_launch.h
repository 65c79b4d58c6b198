// The front executable's way to the application: it checks for a graphical session and hands the
// process over (exec) to `tidewatch-app`, so that the report and the relay never load Qt. Also
// the words of --help and --version, which a Linux user expects of any command.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace tidewatch::ApplicationLaunch {

// The application to exec, with its arguments (the program's path first).
struct Exec {
  std::string path;
  std::vector<std::string> arguments;
  friend bool operator==(const Exec&, const Exec&) = default;
};
// A line for standard error, and exit status 1.
struct Refusal {
  std::string message;
  friend bool operator==(const Refusal&, const Refusal&) = default;
};
using Plan = std::variant<Exec, Refusal>;

struct Environment {
  std::optional<std::string> display;         // $DISPLAY
  std::optional<std::string> waylandDisplay;  // $WAYLAND_DISPLAY
  std::string frontExecutable;                // this program's own path, resolved
  std::function<bool(const std::string& path)> isExecutable;
};

// Beside the front executable (the build tree), else in <prefix>/libexec/tidewatch/ (installed).
std::vector<std::string> applicationCandidates(const std::string& frontExecutable);

Plan plan(const std::vector<std::string>& arguments, const Environment& environment);

// "-h" or "--help", "--version": words a user types to learn what the command does.
enum class Request { help, version };
std::optional<Request> request(const std::vector<std::string>& arguments);
std::string helpText();
std::string versionText();

}  // namespace tidewatch::ApplicationLaunch
