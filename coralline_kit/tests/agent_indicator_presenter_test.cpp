#include "coralline_kit/agent_indicator_presenter.h"

#include <gtest/gtest.h>

namespace tidewatch {
namespace {

TEST(AgentIndicatorPresenter, CountsBecomeTheGlyphOrTheRunningSentence) {
  struct Case {
    bool enabled;
    int codex, claude, working;
    AgentIndicatorDisplay display;
    const char* sentence;
    bool isWorking;
  };
  const AgentIndicatorGlyph glyph;
  const std::vector<Case> cases = {
      {false, 2, 1, 1, glyph, "Coralline", false},
      {true, 0, 0, 3, glyph, "Coralline: Agent Count 0", false},
      {true, 2, -1, 0, AgentIndicatorCounts{2, 0}, "2 Codex sessions running", false},
      {true, 1, 0, 0, AgentIndicatorCounts{1, 0}, "1 Codex session running", false},
      {true, 0, 2, 5, AgentIndicatorCounts{0, 2}, "2 Claude Code sessions running (2 active)", true},
      {true, 2, 1, 1, AgentIndicatorCounts{2, 1}, "2 Codex sessions, 1 Claude Code session running (1 active)", true},
      {true, -3, 1, 1, AgentIndicatorCounts{0, 1}, "1 Claude Code session running (1 active)", true},
      {true, 3, 0, -2, AgentIndicatorCounts{3, 0}, "3 Codex sessions running", false},
  };
  for (const auto& c : cases) {
    const auto shown = AgentIndicatorPresenter::presentation(c.enabled, c.codex, c.claude, c.working);
    EXPECT_EQ(shown, (AgentIndicatorPresentation{c.display, c.sentence, c.sentence, c.isWorking}))
        << c.enabled << " " << c.codex << " " << c.claude << " " << c.working;
  }
}

}  // namespace
}  // namespace tidewatch
