// Lexical path operations on "/"-separated strings; nothing here touches the file system.
#pragma once

#include <string>
#include <string_view>

namespace tidewatch {

// The normal form of a path: doubled slashes and "." pieces removed, ".." resolved against the
// piece before it in an absolute path, no trailing slash (except for "/" itself).
std::string standardizePath(std::string_view path);

// The path without its last piece: "/a/b" gives "/a", "/a" gives "/", "a" gives "".
std::string deletingLastPathComponent(std::string_view path);

// The path with one piece appended, with exactly one slash between them.
std::string appendingPathComponent(std::string_view path, std::string_view component);

}  // namespace tidewatch
