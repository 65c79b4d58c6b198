// What the status item shows and says for the agent counts.
#pragma once

#include <string>
#include <variant>

namespace tidewatch {

// The counts of both providers, or the plain glyph.
struct AgentIndicatorCounts {
  int codex = 0;
  int claude = 0;
  friend bool operator==(const AgentIndicatorCounts&, const AgentIndicatorCounts&) = default;
};
struct AgentIndicatorGlyph {
  friend bool operator==(const AgentIndicatorGlyph&, const AgentIndicatorGlyph&) = default;
};
using AgentIndicatorDisplay = std::variant<AgentIndicatorCounts, AgentIndicatorGlyph>;

// Comparable, so the caller can skip an unchanged update.
struct AgentIndicatorPresentation {
  AgentIndicatorDisplay display = AgentIndicatorGlyph{};
  std::string accessibilityLabel;
  std::string tooltip;
  bool isWorking = false;

  friend bool operator==(const AgentIndicatorPresentation&, const AgentIndicatorPresentation&) = default;
};

namespace AgentIndicatorPresenter {

// Negative counts read as 0; the working count is shown at most as the sum of the counts.
AgentIndicatorPresentation presentation(bool enabled, int codexCount, int claudeCount, int workingCount);

}  // namespace AgentIndicatorPresenter
}  // namespace tidewatch
