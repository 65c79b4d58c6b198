#include "process_core/text.h"

#include <utf8proc.h>

#include <cstdlib>
#include <memory>

namespace tidewatch {
namespace {

// Walks code points; an invalid byte counts as one U+FFFD.
template <typename Visit>
void forEachCodePoint(std::string_view utf8, Visit visit) {
  auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(utf8.data());
  utf8proc_ssize_t offset = 0;
  const auto size = static_cast<utf8proc_ssize_t>(utf8.size());
  while (offset < size) {
    utf8proc_int32_t codePoint = 0;
    utf8proc_ssize_t length = utf8proc_iterate(bytes + offset, size - offset, &codePoint);
    if (length <= 0) {
      codePoint = -1;
      length = 1;
    }
    if (!visit(codePoint, static_cast<size_t>(offset), static_cast<size_t>(length))) return;
    offset += length;
  }
}

}  // namespace

size_t graphemeCount(std::string_view utf8) {
  size_t count = 0;
  utf8proc_int32_t previous = -1;
  utf8proc_int32_t state = 0;
  forEachCodePoint(utf8, [&](utf8proc_int32_t codePoint, size_t, size_t) {
    if (codePoint < 0 || previous < 0 || utf8proc_grapheme_break_stateful(previous, codePoint, &state)) {
      ++count;
      if (codePoint < 0) state = 0;
    }
    previous = codePoint;
    return true;
  });
  return count;
}

std::string graphemePrefix(std::string_view utf8, size_t count) {
  size_t clusters = 0;
  size_t end = 0;
  utf8proc_int32_t previous = -1;
  utf8proc_int32_t state = 0;
  forEachCodePoint(utf8, [&](utf8proc_int32_t codePoint, size_t offset, size_t length) {
    if (codePoint < 0 || previous < 0 || utf8proc_grapheme_break_stateful(previous, codePoint, &state)) {
      if (clusters == count) return false;
      ++clusters;
      if (codePoint < 0) state = 0;
    }
    previous = codePoint;
    end = offset + length;
    return true;
  });
  return std::string(utf8.substr(0, end));
}

std::string caseFolded(std::string_view utf8) {
  utf8proc_uint8_t* folded = nullptr;
  const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()),
                                   static_cast<utf8proc_ssize_t>(utf8.size()), &folded,
                                   static_cast<utf8proc_option_t>(UTF8PROC_CASEFOLD | UTF8PROC_COMPOSE));
  if (length < 0) {
    std::string fallback(utf8);
    for (char& c : fallback) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return fallback;
  }
  std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(folded, &std::free);
  return std::string(reinterpret_cast<const char*>(folded), static_cast<size_t>(length));
}

}  // namespace tidewatch
