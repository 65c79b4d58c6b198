// JSON forms of the process records: keys are the field names, absent optionals left out.
#pragma once

#include <ctime>

#include <nlohmann/json.hpp>

#include "process_core/process_records.h"

namespace tidewatch {

// The whole seconds since the epoch, for the C library's time functions. The system clock's own
// conversion passes through nanoseconds, which overflow for dates such as the distant past.
std::time_t secondsSinceEpoch(Date date);

// "2026-11-22T19:28:00Z": UTC, whole seconds.
std::string iso8601(Date date);
// Reads the form above; absent on any other text.
std::optional<Date> dateFromISO8601(std::string_view text);

void to_json(nlohmann::json& j, const ProcessIdentity& value);
void from_json(const nlohmann::json& j, ProcessIdentity& value);
void to_json(nlohmann::json& j, const ProcessSnapshot& value);
void from_json(const nlohmann::json& j, ProcessSnapshot& value);
void to_json(nlohmann::json& j, AgentKind value);
void from_json(const nlohmann::json& j, AgentKind& value);
void to_json(nlohmann::json& j, const AgentProcessIdentity& value);
void from_json(const nlohmann::json& j, AgentProcessIdentity& value);
void to_json(nlohmann::json& j, HostAppKind value);
void from_json(const nlohmann::json& j, HostAppKind& value);
void to_json(nlohmann::json& j, AddressFamily value);
void from_json(const nlohmann::json& j, AddressFamily& value);

// Helpers for optional members, shared by every record's JSON form.
template <typename T>
void putOptional(nlohmann::json& j, const char* key, const std::optional<T>& value) {
  if (value) j[key] = *value;
}

template <typename T>
void getOptional(const nlohmann::json& j, const char* key, std::optional<T>& value) {
  auto it = j.find(key);
  if (it == j.end() || it->is_null()) {
    value.reset();
  } else {
    value = it->template get<T>();
  }
}

// Reads a raw-value enumeration or throws nlohmann::json::type_error naming what was expected.
[[noreturn]] void throwUnknownRawValue(const nlohmann::json& j, const char* typeName);

}  // namespace tidewatch
