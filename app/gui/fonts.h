// Inter for text and JetBrains Mono for figures, loaded by path from their Debian packages;
// without them the system's sans and monospace stand in, quietly.
#pragma once

namespace tidewatch {

// Registers both families and makes Inter the application's font.
void registerApplicationFonts();

}  // namespace tidewatch
