#include "coralline_kit/agent_indicator_presenter.h"

#include <algorithm>
#include <vector>

namespace tidewatch::AgentIndicatorPresenter {
namespace {

std::string sessions(int count, const char* provider) {
  return std::to_string(count) + " " + provider + " " + (count == 1 ? "session" : "sessions");
}

}  // namespace

AgentIndicatorPresentation presentation(bool enabled, int codexCount, int claudeCount, int workingCount) {
  if (!enabled) return {AgentIndicatorGlyph{}, "Coralline", "Coralline", false};
  const int codex = std::max(codexCount, 0);
  const int claude = std::max(claudeCount, 0);
  const int total = codex + claude;
  if (total < 1) return {AgentIndicatorGlyph{}, "Coralline: Agent Count 0", "Coralline: Agent Count 0", false};

  const int working = std::clamp(workingCount, 0, total);
  std::string sentence;
  if (codex >= 1) sentence = sessions(codex, "Codex");
  if (claude >= 1) sentence += (sentence.empty() ? "" : ", ") + sessions(claude, "Claude Code");
  sentence += " running";
  if (working >= 1) sentence += " (" + std::to_string(working) + " active)";
  return {AgentIndicatorCounts{codex, claude}, sentence, sentence, workingCount >= 1};
}

}  // namespace tidewatch::AgentIndicatorPresenter
