#include "app/display_settings.h"

#include <string>

namespace tidewatch::DisplaySettings {
namespace {

struct VisibleFieldKey {
  std::string_view key;
  bool RowVisibleFields::*field;
};

// In the order of the row's fields.
constexpr VisibleFieldKey visibleFieldKeys[] = {
    {Keys::showPort, &RowVisibleFields::port},
    {Keys::showCPU, &RowVisibleFields::cpu},
    {Keys::showMemory, &RowVisibleFields::memory},
    {Keys::showPath, &RowVisibleFields::path},
    {Keys::showHost, &RowVisibleFields::host},
    {Keys::showProject, &RowVisibleFields::project},
    {Keys::showUptime, &RowVisibleFields::uptime},
    {Keys::showPower, &RowVisibleFields::power},
    {Keys::showPowerLabels, &RowVisibleFields::powerLabels},
};

std::optional<std::string> stringValue(const DefaultsStore& defaults, std::string_view key) {
  return defaults.stringForKey(std::string(key));
}

// A flag whose default is true: only a stored boolean overrides it.
bool flag(const DefaultsStore& defaults, std::string_view key, bool absent) {
  if (!absent) return defaults.boolForKey(std::string(key));
  const auto value = defaults.valueForKey(std::string(key));
  return value && value->is_boolean() ? value->get<bool>() : absent;
}

bool write(DefaultsStore& defaults, std::string_view key, const nlohmann::json& value) {
  return defaults.set(std::string(key), value);
}

}  // namespace

std::string_view rawValue(RowDensity density) { return density == RowDensity::comfortable ? "comfortable" : "compact"; }

std::optional<RowDensity> rowDensityFromRaw(std::string_view raw) {
  for (RowDensity density : allRowDensities) {
    if (rawValue(density) == raw) return density;
  }
  return std::nullopt;
}

std::optional<BatteryMode> batteryModeFromRaw(std::string_view raw) {
  for (BatteryMode mode : {BatteryMode::balanced, BatteryMode::batterySaver}) {
    if (rawValue(mode) == raw) return mode;
  }
  return std::nullopt;
}

DefaultFilterSetting defaultFilter(const DefaultsStore& defaults) {
  const auto raw = stringValue(defaults, Keys::defaultFilter);
  return raw ? defaultFilterSettingFromRaw(*raw).value_or(DefaultFilterSetting::agents) : DefaultFilterSetting::agents;
}

BatteryMode batteryMode(const DefaultsStore& defaults) {
  const auto raw = stringValue(defaults, Keys::batteryMode);
  return raw ? batteryModeFromRaw(*raw).value_or(BatteryMode::balanced) : BatteryMode::balanced;
}

RowDensity rowDensity(const DefaultsStore& defaults) {
  const auto raw = stringValue(defaults, Keys::rowDensity);
  return raw ? rowDensityFromRaw(*raw).value_or(RowDensity::comfortable) : RowDensity::comfortable;
}

RowVisibleFields visibleFields(const DefaultsStore& defaults) {
  const RowVisibleFields absent;
  RowVisibleFields fields;
  for (const auto& [key, field] : visibleFieldKeys) fields.*field = flag(defaults, key, absent.*field);
  return fields;
}

bool autoCloseAfterOpening(const DefaultsStore& defaults) { return flag(defaults, Keys::autoCloseAfterOpening, false); }
bool showAgentActivity(const DefaultsStore& defaults) { return flag(defaults, Keys::showAgentActivity, false); }
bool showSystemRows(const DefaultsStore& defaults) { return flag(defaults, Keys::showSystemRows, false); }

bool setDefaultFilter(DefaultsStore& defaults, DefaultFilterSetting setting) {
  return write(defaults, Keys::defaultFilter, std::string(rawValue(setting)));
}

bool setBatteryMode(DefaultsStore& defaults, BatteryMode mode) {
  return write(defaults, Keys::batteryMode, std::string(rawValue(mode)));
}

bool setRowDensity(DefaultsStore& defaults, RowDensity density) {
  return write(defaults, Keys::rowDensity, std::string(rawValue(density)));
}

bool setVisibleFields(DefaultsStore& defaults, const RowVisibleFields& fields) {
  for (const auto& [key, field] : visibleFieldKeys) {
    if (!write(defaults, key, fields.*field)) return false;
  }
  return true;
}

bool setAutoCloseAfterOpening(DefaultsStore& defaults, bool on) {
  return write(defaults, Keys::autoCloseAfterOpening, on);
}
bool setShowAgentActivity(DefaultsStore& defaults, bool on) { return write(defaults, Keys::showAgentActivity, on); }
bool notifyAgentSessions(const DefaultsStore& defaults) { return flag(defaults, Keys::notifyAgentSessions, false); }
bool setNotifyAgentSessions(DefaultsStore& defaults, bool on) { return write(defaults, Keys::notifyAgentSessions, on); }
bool setShowSystemRows(DefaultsStore& defaults, bool on) { return write(defaults, Keys::showSystemRows, on); }

}  // namespace tidewatch::DisplaySettings
