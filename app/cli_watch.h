// `tidewatch scan --watch`: the report redrawn in place at the panel's cadence, from the
// incremental scanning of the panel's live loop, until Ctrl+C. On a terminal it draws on the
// alternate screen, clipped to the window, and leaves the terminal as it found it; elsewhere (a
// pipe, a file) it writes each report after the last.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "app/tidewatch_cli.h"

namespace tidewatch::TidewatchCLI {

struct TerminalSize {
  int columns = 80;
  int rows = 24;
  friend bool operator==(const TerminalSize&, const TerminalSize&) = default;
};

enum class WatchWake { tick, resized, interrupted };

struct WatchDependencies {
  std::function<ScanResult()> scan;
  // The panel's cadence now (it stretches in low power); used where --watch names no seconds.
  std::function<std::chrono::milliseconds()> cadence;
  // Waits up to the interval; a resize or an interruption ends the wait early.
  std::function<WatchWake(std::chrono::milliseconds)> wait;
  // The window's size; absent when the output is no terminal.
  std::function<std::optional<TerminalSize>()> terminalSize;
  Output output;
  std::function<std::string(Date)> localTime;

  static WatchDependencies live();
};

// One screen: the report's lines cut to the window's width, and to its height less the footer
// with a line counting what did not fit; every line cleared to its end, the rest of the screen
// cleared below.
std::string watchScreen(const std::string& report, const std::string& footer, TerminalSize size);

int32_t runWatch(const ScanOptions& options, const WatchDependencies& dependencies);

}  // namespace tidewatch::TidewatchCLI
