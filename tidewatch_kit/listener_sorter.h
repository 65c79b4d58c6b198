// The one order of listener rows, shared by the panel and the scan report.
#pragma once

#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "process_core/activity_level.h"
#include "tidewatch_kit/listener_records.h"

namespace tidewatch {

enum class ListenerSortMode { port, activity, memory, uptime };
std::string_view rawValue(ListenerSortMode mode);
std::string_view displayName(ListenerSortMode mode);
std::optional<ListenerSortMode> listenerSortModeFromRaw(std::string_view raw);

using ActivityByID = std::unordered_map<std::string, ActivityLevel>;

namespace ListenerSorter {

// Stable: visibility rank, then the mode's key, then port, then the process's display name
// (case-insensitive), then stableID.
std::vector<PortListener> sorted(std::vector<PortListener> listeners, ListenerSortMode mode,
                                 const ActivityByID& activity);

}  // namespace ListenerSorter
}  // namespace tidewatch
