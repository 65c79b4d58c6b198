// The typed front of the defaults store for the panel's look and the scanning mode. Every read
// has a default, so a missing or foreign value never reaches the views.
#pragma once

#include <optional>
#include <string_view>

#include "process_core/defaults_store.h"
#include "process_core/process_records.h"
#include "tidewatch_kit/listener_list_model.h"

namespace tidewatch {

// Which optional facts a listener row shows.
struct RowVisibleFields {
  bool port = true;
  bool cpu = false;
  bool memory = false;
  bool path = false;
  bool host = false;
  bool project = false;
  bool uptime = false;
  bool power = false;
  bool powerLabels = false;

  friend bool operator==(const RowVisibleFields&, const RowVisibleFields&) = default;
};

namespace DisplaySettings {

enum class RowDensity { comfortable, compact };
inline constexpr RowDensity allRowDensities[] = {RowDensity::comfortable, RowDensity::compact};
std::string_view rawValue(RowDensity density);
std::optional<RowDensity> rowDensityFromRaw(std::string_view raw);

std::optional<BatteryMode> batteryModeFromRaw(std::string_view raw);

namespace Keys {
inline constexpr std::string_view defaultFilter = "display.defaultFilter";
inline constexpr std::string_view batteryMode = "display.batteryMode";
inline constexpr std::string_view rowDensity = "display.rowDensity";
inline constexpr std::string_view showPort = "display.showPort";
inline constexpr std::string_view showCPU = "display.showCPU";
inline constexpr std::string_view showMemory = "display.showMemory";
inline constexpr std::string_view showPath = "display.showPath";
inline constexpr std::string_view showHost = "display.showHost";
inline constexpr std::string_view showProject = "display.showProject";
inline constexpr std::string_view showUptime = "display.showUptime";
inline constexpr std::string_view showPower = "display.showPower";
inline constexpr std::string_view showPowerLabels = "display.showPowerLabels";
inline constexpr std::string_view showSystemRows = "display.showSystemRows";
inline constexpr std::string_view showAgentActivity = "display.showAgentActivity";
inline constexpr std::string_view autoCloseAfterOpening = "controls.autoCloseAfterOpening";
inline constexpr std::string_view notifyAgentSessions = "notifications.agentSessions";
}  // namespace Keys

// Reads. Unknown strings count as absent.
DefaultFilterSetting defaultFilter(const DefaultsStore& defaults);  // agents when absent
BatteryMode batteryMode(const DefaultsStore& defaults);             // balanced when absent
RowDensity rowDensity(const DefaultsStore& defaults);               // comfortable when absent
RowVisibleFields visibleFields(const DefaultsStore& defaults);      // only the port when absent
bool autoCloseAfterOpening(const DefaultsStore& defaults);
bool showAgentActivity(const DefaultsStore& defaults);
bool showSystemRows(const DefaultsStore& defaults);
// Desktop notices when an agent session finishes or needs attention; off when absent.
bool notifyAgentSessions(const DefaultsStore& defaults);

// Writes; each returns false when the store could not be written.
bool setDefaultFilter(DefaultsStore& defaults, DefaultFilterSetting setting);
bool setBatteryMode(DefaultsStore& defaults, BatteryMode mode);
bool setRowDensity(DefaultsStore& defaults, RowDensity density);
// Writes the nine flags one key at a time, stopping at the first that fails.
bool setVisibleFields(DefaultsStore& defaults, const RowVisibleFields& fields);
bool setAutoCloseAfterOpening(DefaultsStore& defaults, bool on);
bool setShowAgentActivity(DefaultsStore& defaults, bool on);
bool setShowSystemRows(DefaultsStore& defaults, bool on);
bool setNotifyAgentSessions(DefaultsStore& defaults, bool on);

}  // namespace DisplaySettings
}  // namespace tidewatch
