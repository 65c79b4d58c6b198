#include "app/cli_watch.h"

#include <gtest/gtest.h>

#include <deque>

#include "tidewatch_kit/tests/listener_rows.h"

namespace tidewatch {
namespace {

using TidewatchCLI::TerminalSize;
using TidewatchCLI::WatchWake;

TEST(WatchScreen, ClipsToTheWindowAndClearsWhatTheLastScreenLeft) {
  struct Case {
    const char* what;
    std::string report;
    TerminalSize size;
    std::string screen;
  };
  const std::string home = "\x1b[H", eol = "\x1b[K", below = "\x1b[J";
  const Case cases[] = {
      {"fits", "a\nb\n", {80, 24}, home + "a" + eol + "\nb" + eol + "\nfoot" + eol + below},
      {"too wide: cut by characters, not bytes", "\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\n", {3, 24},
       home + "\xC3\xA9\xC3\xA9\xC3\xA9" + eol + "\nfoo" + eol + below},
      {"too tall: the rest counted above the footer", "1\n2\n3\n4\n5\n", {80, 4},
       home + "1" + eol + "\n2" + eol + "\n(3 more lines below: a taller window, or --port, shows them)" + eol +
           "\nfoot" + eol + below},
      {"one line too many", "1\n2\n3\n", {80, 3},
       home + "1" + eol + "\n(2 more lines below: a taller window, or --port, shows them)" + eol + "\nfoot" + eol +
           below},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(TidewatchCLI::watchScreen(c.report, "foot", c.size), c.screen) << c.what;
  }
}

struct Watch {
  std::deque<WatchWake> wakes;
  std::optional<TerminalSize> size;
  int scans = 0;
  bool failOnScan = false;
  std::vector<std::chrono::milliseconds> waits;
  std::string out, err;

  int run(const std::vector<std::string>& arguments) {
    const auto options = std::get<TidewatchCLI::ScanOptions>(TidewatchCLI::parseScan(arguments));
    const TidewatchCLI::WatchDependencies dependencies{
        [this] {
          if (failOnScan && scans > 0) throw ScanError(ScanError::Code::enumerationUnavailable);
          ScanResult result;
          result.processCount = 400 + ++scans;
          result.listeners = {testing::Row(4242, 3000).path("/usr/bin/node")};
          return result;
        },
        [] { return std::chrono::milliseconds(1000); },
        [this](std::chrono::milliseconds interval) {
          waits.push_back(interval);
          const auto wake = wakes.front();
          wakes.pop_front();
          return wake;
        },
        [this] { return size; },
        {[this](const std::string& text) { out += text; }, [this](const std::string& line) { err += line + "\n"; }},
        [](Date) { return std::string("7:28:00 PM"); }};
    return TidewatchCLI::runWatch(options, dependencies);
  }
};

size_t count(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

TEST(ScanWatch, RedrawsOnTheAlternateScreenUntilInterruptedAndLeavesTheTerminalAsItWas) {
  Watch watch;
  watch.size = TerminalSize{100, 30};
  watch.wakes = {WatchWake::tick, WatchWake::resized, WatchWake::tick, WatchWake::interrupted};
  EXPECT_EQ(watch.run({"scan", "--watch"}), 0);
  EXPECT_EQ(watch.scans, 3) << "a resize redraws without scanning";
  EXPECT_TRUE(watch.out.starts_with("\x1b[?1049h\x1b[?25l"));
  EXPECT_TRUE(watch.out.ends_with("\x1b[?25h\x1b[?1049l"));
  EXPECT_EQ(count(watch.out, "\x1b[H"), 4u);
  EXPECT_EQ(count(watch.out, "Every 1 s \xC2\xB7 Ctrl+C to quit"), 4u);
  EXPECT_NE(watch.out.find("403 processes"), std::string::npos);
  EXPECT_EQ(watch.waits, std::vector<std::chrono::milliseconds>(4, std::chrono::milliseconds(1000)))
      << "the panel's cadence";
}

TEST(ScanWatch, GivenSecondsAPipeAndAFailingScan) {
  Watch piped;
  piped.wakes = {WatchWake::tick, WatchWake::interrupted};
  EXPECT_EQ(piped.run({"scan", "--watch", "2.5", "--port", "3000"}), 0);
  EXPECT_EQ(piped.waits, std::vector<std::chrono::milliseconds>(2, std::chrono::milliseconds(2500)));
  EXPECT_EQ(piped.out.find('\x1b'), std::string::npos) << "no terminal, no escapes";
  EXPECT_EQ(count(piped.out, "Tidewatch \xE2\x80\x94 1 listener"), 2u);

  Watch failing;
  failing.size = TerminalSize{};
  failing.failOnScan = true;
  failing.wakes = {WatchWake::tick};
  EXPECT_EQ(failing.run({"scan", "--watch"}), 1);
  EXPECT_TRUE(failing.out.ends_with("\x1b[?25h\x1b[?1049l")) << "the terminal is restored before the error";
  EXPECT_TRUE(failing.err.starts_with("error: process enumeration unavailable"));
}

}  // namespace
}  // namespace tidewatch
