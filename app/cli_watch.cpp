#include "app/cli_watch.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <ctime>

#include "app/display_settings.h"
#include "process_core/power_profile.h"
#include "process_core/text.h"
#include "tidewatch_kit/port_engine.h"
#include "tidewatch_kit/port_scan_session.h"

namespace tidewatch::TidewatchCLI {
namespace {

constexpr std::string_view enterScreen = "\x1b[?1049h\x1b[?25l";  // alternate screen, cursor hidden
constexpr std::string_view leaveScreen = "\x1b[?25h\x1b[?1049l";
constexpr std::string_view home = "\x1b[H";
constexpr std::string_view clearLine = "\x1b[K";
constexpr std::string_view clearBelow = "\x1b[J";

std::vector<std::string> lines(const std::string& text) {
  std::vector<std::string> out;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = text.find('\n', start);
    out.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return out;
}

std::string secondsText(std::chrono::milliseconds interval) {
  const double seconds = static_cast<double>(interval.count()) / 1000.0;
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, seconds == std::floor(seconds) ? "%.0f" : "%.1f", seconds);
  return buffer;
}

}  // namespace

std::string watchScreen(const std::string& report, const std::string& footer, TerminalSize size) {
  const size_t width = static_cast<size_t>(std::max(size.columns, 1));
  const size_t height = static_cast<size_t>(std::max(size.rows, 2));
  auto body = lines(report);
  // The footer takes the last row; what does not fit above it is counted on the row before.
  if (body.size() > height - 1) {
    const size_t kept = height - 2;
    const size_t left = body.size() - kept;
    body.resize(kept);
    body.push_back("(" + std::to_string(left) + " more line" + (left == 1 ? "" : "s") +
                   " below: a taller window, or --port, shows them)");
  }
  body.push_back(footer);
  std::string screen(home);
  for (size_t i = 0; i < body.size(); ++i) {
    const auto& line = body[i];
    screen += graphemeCount(line) > width ? graphemePrefix(line, width) : line;
    screen += clearLine;
    // No line feed after the last row: it would scroll a full screen by one.
    if (i + 1 < body.size()) screen += "\n";
  }
  screen += clearBelow;
  return screen;
}

int32_t runWatch(const ScanOptions& options, const WatchDependencies& dependencies) {
  const bool terminal = dependencies.terminalSize().has_value();
  if (terminal) dependencies.output.standardOutput(std::string(enterScreen));
  for (;;) {
    const auto result = scanned(dependencies.scan);
    std::optional<std::string> text;
    std::string failure;
    if (const auto* error = std::get_if<std::string>(&result)) {
      failure = *error;
    } else if (!(text = report(std::get<ScanResult>(result), options, dependencies.localTime))) {
      failure = "error: failed to encode scan report as JSON";
    }
    if (!failure.empty()) {
      if (terminal) dependencies.output.standardOutput(std::string(leaveScreen));
      dependencies.output.standardError(failure);
      return 1;
    }
    const auto interval = options.watchInterval.value_or(dependencies.cadence());
    const auto draw = [&] {
      if (!terminal) return dependencies.output.standardOutput(*text + (options.json ? "" : "\n"));
      const std::string footer = "Every " + secondsText(interval) + " s " + std::string(middleDot) + " Ctrl+C to quit";
      dependencies.output.standardOutput(watchScreen(*text, footer, dependencies.terminalSize().value_or(TerminalSize{})));
    };
    draw();
    WatchWake wake = dependencies.wait(interval);
    // A resize redraws the last report at once, then waits a whole interval again.
    for (; wake == WatchWake::resized; wake = dependencies.wait(interval)) draw();
    if (wake == WatchWake::interrupted) break;
  }
  if (terminal) dependencies.output.standardOutput(std::string(leaveScreen));
  return 0;
}

WatchDependencies WatchDependencies::live() {
  // The signals that end or resize the watch are taken synchronously, so that the terminal is
  // always restored by the loop itself and never left on the alternate screen.
  static sigset_t watched = [] {
    sigset_t set;
    sigemptyset(&set);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGWINCH}) sigaddset(&set, signal);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return set;
  }();
  auto engine = std::make_shared<PortEngine>(PortEngine::incremental(PortEngineDependencies::live()));
  return WatchDependencies{
      [engine] { return engine->scan(true); },
      // The setting is read once; the machine's power mode at every frame, as the panel does.
      [mode = DisplaySettings::batteryMode(DefaultsStore::standard())] {
        return std::chrono::duration_cast<std::chrono::milliseconds>(
            PortScanSession::cadenceInterval(PowerProfile::isLowPowerModeEnabled(), mode));
      },
      [](std::chrono::milliseconds interval) {
        timespec timeout{static_cast<time_t>(interval.count() / 1000),
                         static_cast<long>(interval.count() % 1000) * 1'000'000};
        for (;;) {
          const int signal = ::sigtimedwait(&watched, nullptr, &timeout);
          if (signal == SIGWINCH) return WatchWake::resized;
          if (signal > 0) return WatchWake::interrupted;
          if (errno == EAGAIN) return WatchWake::tick;
          // EINTR: another signal; the wait goes on (a little longer at worst).
        }
      },
      []() -> std::optional<TerminalSize> {
        if (!::isatty(STDOUT_FILENO)) return std::nullopt;
        winsize window{};
        if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) != 0 || window.ws_col == 0 || window.ws_row == 0) {
          return TerminalSize{};
        }
        return TerminalSize{window.ws_col, window.ws_row};
      },
      Output::live(),
      localMediumTime};
}

}  // namespace tidewatch::TidewatchCLI
