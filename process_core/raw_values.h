// Enumerations whose raw strings stand in a table in case order.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace tidewatch {

// The case whose raw string is `raw`; absent for any other text.
template <typename Enum, size_t N>
std::optional<Enum> enumFromRaw(const std::array<std::string_view, N>& raws, std::string_view raw) {
  for (size_t i = 0; i < N; ++i) {
    if (raws[i] == raw) return static_cast<Enum>(i);
  }
  return std::nullopt;
}

}  // namespace tidewatch
