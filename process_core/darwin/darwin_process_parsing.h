// The parts of reading processes on Darwin that need no kernel: the KERN_PROCARGS2 argument
// area, Mach time to nanoseconds, and where an executable's application bundle lies. Plain
// functions over bytes and strings, built and tested on every system.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tidewatch::Darwin {

// The argument vector in a KERN_PROCARGS2 area: a little-endian 32-bit argc, the executable
// path, zero padding, then argc zero-terminated strings followed by the environment, which is
// never read. Absent when argc is below 1, the area ends before the arguments, or no argument is
// terminated; a last argument cut off by the end of the area is dropped.
std::optional<std::vector<std::string>> argvFromProcArgs(std::span<const uint8_t> area);

// mach_timebase_info's ratio.
struct MachTimebase {
  uint32_t numer = 0;
  uint32_t denom = 0;
};

// Mach ticks as nanoseconds: ticks times numer over denom through a 128-bit product. A zero or
// unit ratio leaves the ticks unchanged. A quotient beyond 64 bits stops the program.
uint64_t nanoseconds(uint64_t machTicks, MachTimebase timebase);

// The application bundle whose bundle identifier an executable carries: the path up to the
// first ".app/Contents/MacOS/", with ".app". Absent for an absent path or one outside a bundle.
std::optional<std::string> bundlePathForExecutablePath(const std::optional<std::string>& executablePath);

}  // namespace tidewatch::Darwin
