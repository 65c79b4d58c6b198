// The relay that a provider's hook starts: `tidewatch agent-event --provider P --protocol 1`.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tidewatch::AgentHookRelay {

// Takes the arguments after "agent-event". Always answers 0 and prints nothing.
int32_t run(const std::vector<std::string>& arguments);

}  // namespace tidewatch::AgentHookRelay
