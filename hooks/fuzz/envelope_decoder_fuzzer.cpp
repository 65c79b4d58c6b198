// Whatever a local peer sends, the decoder answers without fault, and what it accepts encodes
// again to an envelope that decodes to itself.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "hooks/agent_hook_protocol.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tidewatch::AgentHookProtocol;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto envelope = decodeEnvelope(bytes);
  if (!envelope) return 0;
  if (size > maxEnvelopeBytes || envelope->sessionID.empty() || envelope->sessionID.size() > maxSessionIDBytes) {
    __builtin_trap();
  }
  const auto again = encode(*envelope);
  if (!again || decodeEnvelope(*again) != envelope) __builtin_trap();
  return 0;
}
