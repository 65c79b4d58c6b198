#include "process_core/linux/proc_parsers.h"

#include <charconv>
#include <limits>

#include "process_core/utf8_repair.h"

namespace tidewatch::ProcParsers {
namespace {

// A whole token as an unsigned or signed number; nothing else may follow the digits.
template <typename Number>
std::optional<Number> parseNumber(std::string_view token) {
  Number value{};
  const char* end = token.data() + token.size();
  auto [next, error] = std::from_chars(token.data(), end, value);
  if (error != std::errc() || next != end || token.empty()) return std::nullopt;
  return value;
}

// The next space-separated token from position, moving position past it.
std::string_view nextToken(std::string_view text, size_t& position) {
  while (position < text.size() && (text[position] == ' ' || text[position] == '\t')) ++position;
  const size_t start = position;
  while (position < text.size() && text[position] != ' ' && text[position] != '\t' &&
         text[position] != '\n') {
    ++position;
  }
  return text.substr(start, position - start);
}

// The text after "key" at the start of a line, up to the end of that line.
std::optional<std::string_view> lineValue(std::string_view text, std::string_view key) {
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(start, end - start);
    if (line.starts_with(key)) return line.substr(key.size());
    start = end + 1;
  }
  return std::nullopt;
}

}  // namespace

std::optional<StatFields> parseStat(std::string_view text) {
  const size_t open = text.find('(');
  const size_t close = text.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos || close < open) {
    return std::nullopt;
  }
  StatFields fields;
  fields.comm = text.substr(open + 1, close - open - 1);

  // Field 3 (the state) is the first token after the command name.
  constexpr int firstField = 3;
  constexpr int lastField = 22;
  size_t position = close + 1;
  for (int field = firstField; field <= lastField; ++field) {
    std::string_view token = nextToken(text, position);
    if (token.empty()) return std::nullopt;
    switch (field) {
      case 3:
        fields.state = token.front();
        break;
      case 4: {
        auto parent = parseNumber<int32_t>(token);
        if (!parent) return std::nullopt;
        fields.parentPID = *parent;
        break;
      }
      case 9: {
        auto flags = parseNumber<uint32_t>(token);
        if (!flags) return std::nullopt;
        fields.flags = *flags;
        break;
      }
      case 14:
      case 15:
      case 22: {
        auto ticks = parseNumber<uint64_t>(token);
        if (!ticks) return std::nullopt;
        (field == 14 ? fields.userTicks : field == 15 ? fields.systemTicks : fields.startTicks) = *ticks;
        break;
      }
      default:
        break;
    }
  }
  return fields;
}

std::optional<uint32_t> parseEffectiveUID(std::string_view statusText) {
  auto value = lineValue(statusText, "Uid:");
  if (!value) return std::nullopt;
  size_t position = 0;
  if (nextToken(*value, position).empty()) return std::nullopt;  // the real uid
  return parseNumber<uint32_t>(nextToken(*value, position));
}

std::optional<uint64_t> parseResidentPages(std::string_view statmText) {
  size_t position = 0;
  if (nextToken(statmText, position).empty()) return std::nullopt;  // the total size
  return parseNumber<uint64_t>(nextToken(statmText, position));
}

std::optional<uint64_t> parseBootTime(std::string_view procStatText) {
  auto value = lineValue(procStatText, "btime ");
  if (!value) return std::nullopt;
  size_t position = 0;
  return parseNumber<uint64_t>(nextToken(*value, position));
}

ProcessIdentity identityFromStartTicks(int32_t pid, uint64_t bootTimeSeconds, uint64_t startTicks,
                                       uint64_t ticksPerSecond) {
  const uint64_t hz = ticksPerSecond == 0 ? 1 : ticksPerSecond;
  ProcessIdentity identity;
  identity.pid = pid;
  identity.startTimeSeconds = bootTimeSeconds + startTicks / hz;
  identity.startTimeMicroseconds = static_cast<uint32_t>((startTicks % hz) * 1'000'000 / hz);
  return identity;
}

uint64_t ticksToNanoseconds(uint64_t ticks, uint64_t ticksPerSecond) {
  __extension__ using UInt128 = unsigned __int128;
  const uint64_t hz = ticksPerSecond == 0 ? 1 : ticksPerSecond;
  const UInt128 nanoseconds = static_cast<UInt128>(ticks) * 1'000'000'000u / hz;
  constexpr uint64_t most = std::numeric_limits<uint64_t>::max();
  return nanoseconds > most ? most : static_cast<uint64_t>(nanoseconds);
}

std::optional<std::vector<std::string>> parseCmdline(std::string_view bytes) {
  if (bytes.empty()) return std::nullopt;
  if (bytes.back() == '\0') bytes.remove_suffix(1);
  std::vector<std::string> arguments;
  size_t start = 0;
  while (true) {
    const size_t end = bytes.find('\0', start);
    if (end == std::string_view::npos) {
      arguments.push_back(repairedUTF8(bytes.substr(start)));
      break;
    }
    arguments.push_back(repairedUTF8(bytes.substr(start, end - start)));
    start = end + 1;
  }
  return arguments;
}

std::optional<uint64_t> parseSocketInode(std::string_view link) {
  constexpr std::string_view prefix = "socket:[";
  if (!link.starts_with(prefix) || !link.ends_with(']')) return std::nullopt;
  return parseNumber<uint64_t>(link.substr(prefix.size(), link.size() - prefix.size() - 1));
}

std::optional<int32_t> parsePID(std::string_view name) {
  if (name.empty() || name.front() < '1' || name.front() > '9') return std::nullopt;
  auto pid = parseNumber<int32_t>(name);
  if (!pid || *pid <= 0) return std::nullopt;
  return pid;
}

std::string_view withoutDeletedMarker(std::string_view exeLink) {
  constexpr std::string_view marker = " (deleted)";
  if (exeLink.size() > marker.size() && exeLink.ends_with(marker)) exeLink.remove_suffix(marker.size());
  return exeLink;
}

std::optional<std::string> startedThroughSibling(std::string_view resolved, std::string_view comm,
                                                const std::function<bool(const std::string&)>& isLinkToResolved) {
  // The kernel keeps at most 15 bytes of the name: a name of that length may be cut short.
  constexpr size_t longestWholeName = 14;
  if (comm.empty() || comm.size() > longestWholeName || comm == "." || comm == "..") return std::nullopt;
  if (comm.find('/') != std::string_view::npos || comm.find('\0') != std::string_view::npos) return std::nullopt;
  const size_t slash = resolved.rfind('/');
  if (slash == std::string_view::npos || !resolved.starts_with('/')) return std::nullopt;
  if (resolved.substr(slash + 1) == comm) return std::nullopt;
  std::string sibling(resolved.substr(0, slash + 1));
  sibling.append(comm);
  if (!isLinkToResolved(sibling)) return std::nullopt;
  return sibling;
}

}  // namespace tidewatch::ProcParsers
