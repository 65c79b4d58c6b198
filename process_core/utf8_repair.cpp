#include "process_core/utf8_repair.h"

#include <cstdint>

#include <utf8proc.h>

namespace tidewatch {
namespace {

constexpr std::string_view replacementCharacter = "\xEF\xBF\xBD";

bool isContinuation(uint8_t byte) { return (byte & 0xC0) == 0x80; }

// Length of the maximal subpart at the start of an ill-formed sequence: the lead byte and
// the continuation bytes that could still have belonged to a well-formed sequence.
size_t maximalSubpartLength(const uint8_t* bytes, size_t count) {
  const uint8_t lead = bytes[0];
  size_t trailing = 0;
  uint8_t low = 0x80;
  uint8_t high = 0xBF;
  if (lead >= 0xC2 && lead <= 0xDF) {
    trailing = 1;
  } else if (lead == 0xE0) {
    trailing = 2;
    low = 0xA0;
  } else if (lead == 0xED) {
    trailing = 2;
    high = 0x9F;
  } else if (lead >= 0xE1 && lead <= 0xEF) {
    trailing = 2;
  } else if (lead == 0xF0) {
    trailing = 3;
    low = 0x90;
  } else if (lead == 0xF4) {
    trailing = 3;
    high = 0x8F;
  } else if (lead >= 0xF1 && lead <= 0xF3) {
    trailing = 3;
  } else {
    return 1;
  }
  size_t length = 1;
  if (length < count && bytes[length] >= low && bytes[length] <= high) {
    ++length;
    while (length <= trailing && length < count && isContinuation(bytes[length])) ++length;
  }
  return length;
}

}  // namespace

std::string repairedUTF8(std::string_view bytes) {
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t count = bytes.size();
  std::string result;
  size_t validFrom = 0;
  size_t index = 0;
  while (index < count) {
    if (data[index] < 0x80) {
      ++index;
      continue;
    }
    utf8proc_int32_t codepoint = 0;
    const utf8proc_ssize_t length =
        utf8proc_iterate(data + index, static_cast<utf8proc_ssize_t>(count - index), &codepoint);
    if (length > 0) {
      index += static_cast<size_t>(length);
      continue;
    }
    if (result.empty()) result.reserve(count + 2);
    result.append(bytes.substr(validFrom, index - validFrom));
    result.append(replacementCharacter);
    index += maximalSubpartLength(data + index, count - index);
    validFrom = index;
  }
  if (validFrom == 0) return std::string(bytes);
  result.append(bytes.substr(validFrom));
  return result;
}

}  // namespace tidewatch
