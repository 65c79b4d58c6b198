// The one pretty JSON writer of the program: two-space indent, "key" : value, keys in byte
// order at every level (nlohmann::json keeps objects sorted), and the solidus escaped as \/.
// The scan report and the settings files are written through it. Beside it, the one way in:
// every JSON text the program reads goes through parseJSON.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tidewatch {

// Throws nlohmann::json::type_error when a string is not valid UTF-8. A number read by
// parseJSONKeepingNumbers comes out as it was written.
std::string writePrettyJSON(const nlohmann::json& value);

// One whole JSON document through a SAX handler; false when the bytes are not one. A raw NUL
// byte is never valid JSON, though the library's lexer takes it for the end of the input.
bool parseJSON(std::string_view bytes, nlohmann::json_sax<nlohmann::json>& handler);
// The document as a value; discarded when the bytes are not one.
nlohmann::json parseJSON(std::string_view bytes);
// A document that will be written back: every number that the library would write in other
// words (1.50, 1e5, -0, integers beyond 64 bits) is held as its own text, and writePrettyJSON
// writes that text. Discarded when invalid or nested deeper than maxDepth arrays and objects.
nlohmann::json parseJSONKeepingNumbers(std::string_view bytes, size_t maxDepth);

}  // namespace tidewatch
