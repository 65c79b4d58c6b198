#include "tidewatch_kit/listener_sorter.h"

#include <algorithm>
#include <array>
#include <numeric>

#include "process_core/text.h"
#include "process_core/raw_values.h"

namespace tidewatch {
namespace {

constexpr std::array<std::string_view, 4> modeRaws{"port", "activity", "memory", "uptime"};
constexpr std::array<std::string_view, 4> modeNames{"Port", "Activity", "Memory", "Uptime"};

int activityRank(const ActivityByID& activity, const std::string& id) {
  auto it = activity.find(id);
  if (it == activity.end()) return 3;
  switch (it->second) {
    case ActivityLevel::high: return 0;
    case ActivityLevel::medium: return 1;
    case ActivityLevel::low: return 2;
    case ActivityLevel::unknown: return 3;
  }
  return 3;
}

// Keys computed once per row, so the comparison allocates nothing.
struct SortKey {
  int visibilityRank = 0;
  int activityRank = 0;
  uint64_t memory = 0;
  uint64_t startSeconds = 0;
  uint32_t startMicroseconds = 0;
  int port = 0;
  std::string foldedName;
  std::string name;
  std::string stableID;
};

}  // namespace

std::string_view rawValue(ListenerSortMode mode) { return modeRaws[static_cast<size_t>(mode)]; }
std::string_view displayName(ListenerSortMode mode) { return modeNames[static_cast<size_t>(mode)]; }

std::optional<ListenerSortMode> listenerSortModeFromRaw(std::string_view raw) {
  return enumFromRaw<ListenerSortMode>(modeRaws, raw);
}

std::vector<PortListener> ListenerSorter::sorted(std::vector<PortListener> listeners, ListenerSortMode mode,
                                                 const ActivityByID& activity) {
  std::vector<SortKey> keys;
  keys.reserve(listeners.size());
  for (const auto& listener : listeners) {
    SortKey key;
    key.visibilityRank = static_cast<int>(listener.visibility);
    key.stableID = listener.id();
    key.activityRank = mode == ListenerSortMode::activity ? activityRank(activity, key.stableID) : 0;
    key.memory = listener.process.residentMemoryBytes.value_or(0);
    key.startSeconds = listener.process.identity.startTimeSeconds;
    key.startMicroseconds = listener.process.identity.startTimeMicroseconds;
    key.port = listener.port;
    key.name = listener.process.displayName();
    key.foldedName = caseFolded(key.name);
    keys.push_back(std::move(key));
  }

  std::vector<size_t> order(listeners.size());
  std::iota(order.begin(), order.end(), size_t{0});
  std::stable_sort(order.begin(), order.end(), [&](size_t ia, size_t ib) {
    const SortKey& a = keys[ia];
    const SortKey& b = keys[ib];
    if (a.visibilityRank != b.visibilityRank) return a.visibilityRank < b.visibilityRank;
    switch (mode) {
      case ListenerSortMode::port: break;
      case ListenerSortMode::activity:
        if (a.activityRank != b.activityRank) return a.activityRank < b.activityRank;
        break;
      case ListenerSortMode::memory:
        if (a.memory != b.memory) return a.memory > b.memory;
        break;
      case ListenerSortMode::uptime:
        if (a.startSeconds != b.startSeconds) return a.startSeconds < b.startSeconds;
        if (a.startMicroseconds != b.startMicroseconds) return a.startMicroseconds < b.startMicroseconds;
        break;
    }
    if (a.port != b.port) return a.port < b.port;
    if (a.foldedName != b.foldedName) return a.foldedName < b.foldedName;
    return a.stableID < b.stableID;
  });

  std::vector<PortListener> result;
  result.reserve(listeners.size());
  for (size_t index : order) result.push_back(std::move(listeners[index]));
  return result;
}

}  // namespace tidewatch
