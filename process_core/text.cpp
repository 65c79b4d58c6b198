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

// The Unicode White_Space property: blanks, line and paragraph separators and the ASCII controls
// from tab to carriage return.
bool isWhitespaceOrNewline(utf8proc_int32_t c) {
  return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
         (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F || c == 0x205F || c == 0x3000;
}

// Decodes one code point at `offset`; an invalid byte reads as -1 of length 1.
utf8proc_int32_t decodeAt(std::string_view text, size_t offset, size_t& length) {
  utf8proc_int32_t c = -1;
  const auto n = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + offset),
                                  static_cast<utf8proc_ssize_t>(text.size() - offset), &c);
  if (n <= 0) {
    length = 1;
    return -1;
  }
  length = static_cast<size_t>(n);
  return c;
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

std::string_view trimmedWhitespace(std::string_view text) {
  size_t begin = 0;
  while (begin < text.size()) {
    size_t length = 0;
    if (!isWhitespaceOrNewline(decodeAt(text, begin, length))) break;
    begin += length;
  }
  size_t end = text.size();
  while (end > begin) {
    size_t start = end - 1;
    while (start > begin && (static_cast<unsigned char>(text[start]) & 0xC0) == 0x80) --start;
    size_t length = 0;
    const auto c = decodeAt(text, start, length);
    if (start + length != end || !isWhitespaceOrNewline(c)) break;
    end = start;
  }
  return text.substr(begin, end - begin);
}

void appendLowercased(std::string_view text, std::string& out) {
  size_t offset = 0;
  while (offset < text.size()) {
    const auto byte = static_cast<unsigned char>(text[offset]);
    if (byte < 0x80) {
      out.push_back(static_cast<char>(byte >= 'A' && byte <= 'Z' ? byte + ('a' - 'A') : byte));
      ++offset;
      continue;
    }
    size_t length = 0;
    const auto c = decodeAt(text, offset, length);
    if (c < 0) {
      out.push_back(text[offset]);
    } else {
      utf8proc_uint8_t encoded[4];
      const auto n = utf8proc_encode_char(utf8proc_tolower(c), encoded);
      out.append(reinterpret_cast<const char*>(encoded), static_cast<size_t>(n));
    }
    offset += length;
  }
}

std::string lowercased(std::string_view utf8) {
  std::string out;
  out.reserve(utf8.size());
  appendLowercased(utf8, out);
  return out;
}

std::string asciiLowercased(std::string_view text) {
  std::string result(text);
  for (char& c : result) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return result;
}

std::string withoutControlCharacters(std::string_view utf8) {
  constexpr std::string_view replacement = "\xEF\xBF\xBD";
  std::string out;
  out.reserve(utf8.size());
  for (size_t i = 0; i < utf8.size(); ++i) {
    const auto byte = static_cast<unsigned char>(utf8[i]);
    if (byte < 0x20 || byte == 0x7F) {
      out += replacement;
    } else if (byte == 0xC2 && i + 1 < utf8.size() && static_cast<unsigned char>(utf8[i + 1]) >= 0x80 &&
               static_cast<unsigned char>(utf8[i + 1]) <= 0x9F) {
      out += replacement;  // U+0080 to U+009F
      ++i;
    } else {
      out.push_back(utf8[i]);
    }
  }
  return out;
}

std::vector<std::string_view> nonEmptyPieces(std::string_view text, char separator) {
  std::vector<std::string_view> pieces;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(separator, start);
    if (end == std::string_view::npos) end = text.size();
    if (end > start) pieces.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return pieces;
}

}  // namespace tidewatch
