// Unicode-aware text helpers (through utf8proc) for what users read and search.
#pragma once

#include <string>
#include <string_view>

namespace tidewatch {

// The number of user-perceived characters (extended grapheme clusters).
size_t graphemeCount(std::string_view utf8);

// The first `count` user-perceived characters.
std::string graphemePrefix(std::string_view utf8, size_t count);

// Case-folded form for case-insensitive comparison; invalid UTF-8 is folded bytewise.
std::string caseFolded(std::string_view utf8);

}  // namespace tidewatch
