#include "process_core/process_json.h"

#include <cstdio>
#include <ctime>

namespace tidewatch {

std::time_t secondsSinceEpoch(Date date) {
  return static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count());
}

std::string iso8601(Date date) {
  const std::time_t t = secondsSinceEpoch(date);
  std::tm utc{};
  gmtime_r(&t, &utc);
  // strftime's %Y leaves years before 1000 unpadded.
  char buffer[48];
  std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02dT%02d:%02d:%02dZ", utc.tm_year + 1900, utc.tm_mon + 1,
                utc.tm_mday, utc.tm_hour, utc.tm_min, utc.tm_sec);
  return buffer;
}

std::optional<Date> dateFromISO8601(std::string_view text) {
  if (text.size() != 20) return std::nullopt;
  std::tm utc{};
  char zulu = 0;
  std::string copy(text);
  if (std::sscanf(copy.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%c", &utc.tm_year, &utc.tm_mon, &utc.tm_mday,
                  &utc.tm_hour, &utc.tm_min, &utc.tm_sec, &zulu) != 7 ||
      zulu != 'Z') {
    return std::nullopt;
  }
  utc.tm_year -= 1900;
  utc.tm_mon -= 1;
  const std::time_t t = timegm(&utc);
  return Date(std::chrono::seconds(t));
}

void throwUnknownRawValue(const nlohmann::json& j, const char* typeName) {
  throw nlohmann::json::type_error::create(302, std::string("unknown ") + typeName + " " + j.dump(), &j);
}

void to_json(nlohmann::json& j, const ProcessIdentity& value) {
  j = nlohmann::json{{"pid", value.pid},
                     {"startTimeSeconds", value.startTimeSeconds},
                     {"startTimeMicroseconds", value.startTimeMicroseconds}};
}

void from_json(const nlohmann::json& j, ProcessIdentity& value) {
  j.at("pid").get_to(value.pid);
  j.at("startTimeSeconds").get_to(value.startTimeSeconds);
  j.at("startTimeMicroseconds").get_to(value.startTimeMicroseconds);
}

void to_json(nlohmann::json& j, const ProcessSnapshot& value) {
  j = nlohmann::json::object();
  j["identity"] = value.identity;
  putOptional(j, "name", value.name);
  putOptional(j, "executablePath", value.executablePath);
  putOptional(j, "parentPID", value.parentPID);
  putOptional(j, "uid", value.uid);
  j["sameUser"] = value.sameUser;
  j["cpuReadable"] = value.cpuReadable;
  putOptional(j, "residentMemoryBytes", value.residentMemoryBytes);
  putOptional(j, "cpuTimeNanos", value.cpuTimeNanos);
  putOptional(j, "argv", value.argv);
  putOptional(j, "bundleIdentifier", value.bundleIdentifier);
}

void from_json(const nlohmann::json& j, ProcessSnapshot& value) {
  j.at("identity").get_to(value.identity);
  getOptional(j, "name", value.name);
  getOptional(j, "executablePath", value.executablePath);
  getOptional(j, "parentPID", value.parentPID);
  getOptional(j, "uid", value.uid);
  j.at("sameUser").get_to(value.sameUser);
  j.at("cpuReadable").get_to(value.cpuReadable);
  getOptional(j, "residentMemoryBytes", value.residentMemoryBytes);
  getOptional(j, "cpuTimeNanos", value.cpuTimeNanos);
  getOptional(j, "argv", value.argv);
  getOptional(j, "bundleIdentifier", value.bundleIdentifier);
}

void to_json(nlohmann::json& j, AgentKind value) { j = std::string(rawValue(value)); }

void from_json(const nlohmann::json& j, AgentKind& value) {
  auto kind = agentKindFromRaw(j.get<std::string>());
  if (!kind) throwUnknownRawValue(j, "AgentKind");
  value = *kind;
}

void to_json(nlohmann::json& j, const AgentProcessIdentity& value) {
  j = nlohmann::json{{"process", value.process}, {"kind", value.kind}};
}

void from_json(const nlohmann::json& j, AgentProcessIdentity& value) {
  j.at("process").get_to(value.process);
  j.at("kind").get_to(value.kind);
}

void to_json(nlohmann::json& j, HostAppKind value) { j = std::string(rawValue(value)); }

void from_json(const nlohmann::json& j, HostAppKind& value) {
  auto kind = hostAppKindFromRaw(j.get<std::string>());
  if (!kind) throwUnknownRawValue(j, "HostAppKind");
  value = *kind;
}

void to_json(nlohmann::json& j, AddressFamily value) { j = std::string(rawValue(value)); }

void from_json(const nlohmann::json& j, AddressFamily& value) {
  auto family = addressFamilyFromRaw(j.get<std::string>());
  if (!family) throwUnknownRawValue(j, "AddressFamily");
  value = *family;
}

}  // namespace tidewatch
