// Recognises the terminals, editors and desktop agent applications that can host a coding agent.
#pragma once

#include <optional>

#include "process_core/process_records.h"

namespace tidewatch::HostAppRecognition {

// By bundle identifier first (an unknown one does not end the search), then by the basename of
// the executable, falling back on the short name. Bundle identifiers exist only on macOS; the
// basename tables of both systems are consulted everywhere, as their names do not collide.
std::optional<HostAppKind> recognize(const ProcessSnapshot& snapshot);

}  // namespace tidewatch::HostAppRecognition
