// The one pretty JSON writer of the program: two-space indent, "key" : value, keys in byte
// order at every level (nlohmann::json keeps objects sorted), and the solidus escaped as \/.
// The scan report and the settings files are written through it.
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace tidewatch {

// Throws nlohmann::json::type_error when a string is not valid UTF-8.
std::string writePrettyJSON(const nlohmann::json& value);

}  // namespace tidewatch
