// Unicode-aware text helpers (through utf8proc) for what users read and search.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tidewatch {

// The number of user-perceived characters (extended grapheme clusters).
size_t graphemeCount(std::string_view utf8);

// The first `count` user-perceived characters.
std::string graphemePrefix(std::string_view utf8, size_t count);

// Case-folded form for case-insensitive comparison; invalid UTF-8 is folded bytewise.
std::string caseFolded(std::string_view utf8);

// The text without Unicode white space (blanks, tabs, line and paragraph breaks) at either end.
std::string_view trimmedWhitespace(std::string_view utf8);

// Appends the lower-case form (one-to-one Unicode mapping); bytes that are not UTF-8 stay as they are.
void appendLowercased(std::string_view utf8, std::string& out);
std::string lowercased(std::string_view utf8);

// Only A-Z lowered: for the program's own ASCII names and tables.
std::string asciiLowercased(std::string_view text);

// Each control character (C0, DEL, C1) replaced by U+FFFD, so that a name never moves the
// cursor, ends a line or starts an escape sequence in a terminal.
std::string withoutControlCharacters(std::string_view utf8);

// The pieces between separators, empty pieces dropped: "/a//b/" gives "a", "b".
std::vector<std::string_view> nonEmptyPieces(std::string_view text, char separator);

}  // namespace tidewatch
