// Folds the processes of a worker pool into one group: same binary, user, port, binding and the
// very same parent incarnation. Works on positions and signals only, so anything can drive it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "process_core/process_records.h"
#include "tidewatch_kit/listener_records.h"

namespace tidewatch::WorkerPoolCollapser {

struct Signals {
  int port = 0;
  BindSignature bindSignature;
  std::string executablePath;
  ProcessIdentity parentIdentity;
  uint32_t uid = 0;

  friend bool operator==(const Signals&, const Signals&) = default;
};

}  // namespace tidewatch::WorkerPoolCollapser

template <>
struct std::hash<tidewatch::WorkerPoolCollapser::Signals> {
  size_t operator()(const tidewatch::WorkerPoolCollapser::Signals& signals) const noexcept {
    size_t h = std::hash<int>{}(signals.port);
    auto mix = [&h](size_t value) { h ^= value + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2); };
    for (const auto& token : signals.bindSignature.tokens) {
      mix(std::hash<std::string>{}(tidewatch::BindSignature::stableKey(token)));
    }
    mix(std::hash<std::string>{}(signals.executablePath));
    mix(std::hash<tidewatch::ProcessIdentity>{}(signals.parentIdentity));
    mix(std::hash<uint32_t>{}(signals.uid));
    return h;
  }
};

namespace tidewatch::WorkerPoolCollapser {

// Groups of positions in items; every position is in exactly one group. Pools of two or more
// come first, in the order their first member appears; then items without signals, in input
// order; then items whose signals no other item shares, in the same order.
// signals(item) returns std::optional<Signals>.
template <typename Item, typename SignalsOf>
std::vector<std::vector<size_t>> group(const std::vector<Item>& items, SignalsOf signals) {
  std::vector<std::vector<size_t>> singles;
  std::vector<std::vector<size_t>> pooled;  // one entry per distinct key, first-seen order
  std::unordered_map<Signals, size_t> slotByKey;

  for (size_t position = 0; position < items.size(); ++position) {
    std::optional<Signals> key = signals(items[position]);
    if (!key) {
      singles.push_back({position});
      continue;
    }
    auto [it, inserted] = slotByKey.try_emplace(std::move(*key), pooled.size());
    if (inserted) pooled.emplace_back();
    pooled[it->second].push_back(position);
  }

  std::vector<std::vector<size_t>> result;
  for (auto& positions : pooled) {
    if (positions.size() == 1) {
      singles.push_back(std::move(positions));
    } else {
      result.push_back(std::move(positions));
    }
  }
  for (auto& single : singles) result.push_back(std::move(single));
  return result;
}

}  // namespace tidewatch::WorkerPoolCollapser
