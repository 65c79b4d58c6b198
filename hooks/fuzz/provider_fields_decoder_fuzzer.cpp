// The relay's reading of a provider's hook input: the streaming allow-list decoder must agree
// with a full parse of the document, and the whole relay must send only well-formed envelopes
// whose session identifier came from the allow-listed key.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "hooks/agent_hook_protocol.h"
#include "hooks/agent_hook_relay.h"
#include "process_core/pretty_json.h"

namespace {

using tidewatch::AgentHookProtocol::AllowlistedProviderFields;

// The same reading through a whole document tree.
std::optional<AllowlistedProviderFields> decodeByTree(const std::string& bytes) {
  const auto document = tidewatch::parseJSON(bytes);
  if (!document.is_object()) return std::nullopt;
  AllowlistedProviderFields fields;
  const std::pair<const char*, std::optional<std::string>*> keys[] = {
      {"session_id", &fields.session_id},
      {"cwd", &fields.cwd},
      {"hook_event_name", &fields.hook_event_name},
      {"notification_type", &fields.notification_type}};
  for (const auto& [key, field] : keys) {
    const auto found = document.find(key);
    if (found == document.end() || found->is_null()) continue;
    if (!found->is_string()) return std::nullopt;
    *field = found->get<std::string>();
  }
  return fields;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace tidewatch;
  const std::string input(reinterpret_cast<const char*>(data), size);
  const auto streamed = AgentHookProtocol::decodeProviderFields(input);
  if (streamed != decodeByTree(input)) __builtin_trap();

  std::optional<std::string> sent;
  const AgentHookRelay::Dependencies dependencies{
      .readStandardInput = [&] { return input; },
      .homeDirectory = [] { return std::string("/home/fuzz"); },
      .pathExists = [](const std::string& path) { return path.ends_with("/.git"); },
      .paths = [](const std::string&) { return AgentHookPaths::inRuntimeDirectory("/run/fuzz"); },
      .parentPID = [] { return 4242; },
      .send = [&](std::string_view bytes, const std::string&, double) {
        sent = std::string(bytes);
        return true;
      },
  };
  if (AgentHookRelay::run({"--provider", "claude", "--protocol", "1"}, dependencies) != 0) __builtin_trap();
  if (!sent) return 0;
  const auto envelope = AgentHookProtocol::decodeEnvelope(*sent);
  if (!envelope || !streamed || envelope->sessionID != streamed->session_id) __builtin_trap();
  return 0;
}
