#include "process_core/darwin/darwin_process_parsing.h"

#include <cstdlib>
#include <limits>

#include "process_core/utf8_repair.h"

namespace tidewatch::Darwin {

std::optional<std::vector<std::string>> argvFromProcArgs(std::span<const uint8_t> area) {
  constexpr size_t argcSize = 4;
  if (area.size() <= argcSize) return std::nullopt;
  const uint32_t argc = static_cast<uint32_t>(area[0]) | static_cast<uint32_t>(area[1]) << 8 |
                        static_cast<uint32_t>(area[2]) << 16 | static_cast<uint32_t>(area[3]) << 24;
  if (static_cast<int32_t>(argc) < 1) return std::nullopt;

  // The executable path ends at its first zero byte; the padding behind it is all zeros.
  size_t index = argcSize;
  while (index < area.size() && area[index] != 0) ++index;
  if (index == area.size()) return std::nullopt;
  while (index < area.size() && area[index] == 0) ++index;
  if (index == area.size()) return std::nullopt;

  std::vector<std::string> arguments;
  size_t start = index;
  for (; index < area.size() && arguments.size() < argc; ++index) {
    if (area[index] != 0) continue;
    const auto* text = reinterpret_cast<const char*>(area.data() + start);
    arguments.push_back(repairedUTF8(std::string_view(text, index - start)));
    start = index + 1;
  }
  if (arguments.empty()) return std::nullopt;
  return arguments;
}

uint64_t nanoseconds(uint64_t machTicks, MachTimebase timebase) {
  if (timebase.denom == 0 || timebase.numer == 0 || timebase.numer == timebase.denom) return machTicks;
  __extension__ using UInt128 = unsigned __int128;
  const UInt128 quotient = static_cast<UInt128>(machTicks) * timebase.numer / timebase.denom;
  if (quotient > std::numeric_limits<uint64_t>::max()) std::abort();
  return static_cast<uint64_t>(quotient);
}

std::optional<std::string> bundlePathForExecutablePath(const std::optional<std::string>& executablePath) {
  if (!executablePath) return std::nullopt;
  constexpr std::string_view marker = ".app/Contents/MacOS/";
  const size_t found = executablePath->find(marker);
  if (found == std::string::npos) return std::nullopt;
  return executablePath->substr(0, found) + ".app";
}

}  // namespace tidewatch::Darwin
