#include "hooks/agent_hook_relay.h"

namespace tidewatch::AgentHookRelay {

// Until the hook transport exists the relay accepts its call and sends nothing; a provider's
// hook must never see a failure from it.
int32_t run(const std::vector<std::string>&) { return 0; }

}  // namespace tidewatch::AgentHookRelay
