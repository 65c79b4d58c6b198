// The tray icon with the agents' counts drawn on it, for when the island can't show them:
// Codex at the bottom left, Claude Code at the bottom right, as the island's wings stand.
#pragma once

#include <QIcon>
#include <QImage>
#include <QString>

#include "coralline_kit/agent_indicator_presenter.h"

namespace tidewatch {

// The glyph from `svgPath` at `side` pixels with a badge for each count above 0.
QImage badgedTrayImage(const QString& svgPath, const AgentIndicatorCounts& counts, int side);
// The same at the sizes trays ask for.
QIcon badgedTrayIcon(const QString& svgPath, const AgentIndicatorCounts& counts);

}  // namespace tidewatch
