// Pure parsers of the text the kernel writes under /proc. Readers fetch the bytes; everything
// here works on what they fetched, so captured files replay through the same code.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "process_core/process_records.h"

namespace tidewatch::ProcParsers {

// The fields of /proc/PID/stat that a snapshot needs.
struct StatFields {
  std::string_view comm;  // between the first "(" and the last ")"; may be empty
  char state = '?';       // field 3: 'R', 'S', ... 'Z' for a zombie, 'X' for a dead task
  int32_t parentPID = 0;  // field 4
  uint32_t flags = 0;     // field 9: the kernel's PF_* flags of the task
  uint64_t userTicks = 0;    // field 14
  uint64_t systemTicks = 0;  // field 15
  uint64_t startTicks = 0;   // field 22, clock ticks since boot
};

// A thread of the kernel's own, with no program behind it.
inline constexpr uint32_t kernelThreadFlag = 0x00200000;  // PF_KTHREAD
inline bool isKernelThread(const StatFields& fields) { return (fields.flags & kernelThreadFlag) != 0; }

// A process that has exited and only waits to be reaped: nothing of it is left to read or signal.
inline bool hasExited(const StatFields& fields) { return fields.state == 'Z' || fields.state == 'X'; }

// Parses from the last ")", since the command name may hold spaces and parentheses. Absent for
// text cut short before field 22 or with a field that is not a number.
std::optional<StatFields> parseStat(std::string_view text);

// The effective uid: the second number of the "Uid:" line of /proc/PID/status.
std::optional<uint32_t> parseEffectiveUID(std::string_view statusText);

// Resident pages: the second number of /proc/PID/statm.
std::optional<uint64_t> parseResidentPages(std::string_view statmText);

// Seconds since the epoch at boot: the "btime" line of /proc/stat.
std::optional<uint64_t> parseBootTime(std::string_view procStatText);

// Start time as boot time plus ticks since boot, split into seconds and microseconds.
ProcessIdentity identityFromStartTicks(int32_t pid, uint64_t bootTimeSeconds, uint64_t startTicks,
                                       uint64_t ticksPerSecond);

// Clock ticks as nanoseconds, saturating rather than wrapping.
uint64_t ticksToNanoseconds(uint64_t ticks, uint64_t ticksPerSecond);

// /proc/PID/cmdline split on NUL, each piece as repaired UTF-8. The NUL that closes the last
// argument ends it; a command line rewritten without one still gives its text. Absent when empty.
std::optional<std::vector<std::string>> parseCmdline(std::string_view bytes);

// The inode of a descriptor link of the form "socket:[N]"; absent for any other link.
std::optional<uint64_t> parseSocketInode(std::string_view link);

// A /proc entry name that is a pid: decimal digits only, above 0.
std::optional<int32_t> parsePID(std::string_view name);

// The link of /proc/PID/exe without the " (deleted)" the kernel appends once the file was
// replaced or removed, so that the process keeps the name it was started under.
std::string_view withoutDeletedMarker(std::string_view exeLink);

// The path a process was started under, where that differs from the resolved /proc/PID/exe:
// `comm` names a sibling of the resolved file that is a symbolic link to that same file
// (Debian's /usr/bin/redis-server links to redis-check-rdb, python3 to python3.11). Absent
// when the name matches the file, may be cut short (15 bytes), or no such sibling link exists.
// `isLinkToResolved(sibling)` answers whether the sibling is a link to the resolved file.
std::optional<std::string> startedThroughSibling(std::string_view resolved, std::string_view comm,
                                                const std::function<bool(const std::string&)>& isLinkToResolved);

}  // namespace tidewatch::ProcParsers
