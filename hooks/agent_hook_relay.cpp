#include "hooks/agent_hook_relay.h"

#include <algorithm>
#include <charconv>
#include <exception>

#include "hooks/agent_hook_protocol.h"
#include "tidewatch_kit/project_resolver.h"

namespace tidewatch::AgentHookRelay {
namespace {

// An optional sign, then one or more decimal digits, and nothing else.
std::optional<int64_t> decimalInteger(std::string_view text) {
  bool negative = false;
  if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  if (text.empty() || !std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
    return std::nullopt;
  }
  // Parsed with its sign so that the most negative value still fits.
  std::string signedText = negative ? "-" : "";
  signedText.append(text);
  int64_t value = 0;
  const auto [end, error] = std::from_chars(signedText.data(), signedText.data() + signedText.size(), value);
  if (error != std::errc() || end != signedText.data() + signedText.size()) return std::nullopt;
  return value;
}

int32_t relay(const std::vector<std::string>& arguments, const Dependencies& dependencies) {
  const auto invocation = parse(arguments);
  if (!invocation || invocation->protocolVersion != AgentHookProtocol::protocolVersion) return 0;

  AgentHookProtocol::Envelope envelope;
  envelope.provider = invocation->provider;
  std::string home = dependencies.homeDirectory();

  if (invocation->isConnectionTest) {
    envelope.event = AgentHookProtocol::EventKind::connectionTest;
    envelope.sessionID = connectionTestSessionID;
  } else {
    std::optional<AgentHookProtocol::AllowlistedProviderFields> fields;
    {
      const std::string input = dependencies.readStandardInput();
      if (input.size() > maxInputBytes) return 0;
      fields = AgentHookProtocol::decodeProviderFields(input);
    }  // the provider's document goes here, before anything is sent
    if (!fields) return 0;
    if (!fields->session_id || fields->session_id->empty() ||
        fields->session_id->size() > AgentHookProtocol::maxSessionIDBytes) {
      return 0;
    }
    const auto& notificationType = invocation->notificationHint ? invocation->notificationHint
                                                                : fields->notification_type;
    const auto event = AgentHookProtocol::mapEvent(fields->hook_event_name, notificationType);
    if (!event) return 0;
    envelope.event = *event;
    envelope.sessionID = std::move(*fields->session_id);
    if (fields->cwd && !fields->cwd->empty()) {
      // The directory itself stays here: only the project's name travels.
      if (auto project = ProjectResolver::resolve(*fields->cwd, dependencies.pathExists, home)) {
        envelope.projectName = std::move(project->name);
      }
    }
  }
  envelope.parentPID = dependencies.parentPID();

  const auto bytes = AgentHookProtocol::encode(envelope);
  if (!bytes) return 0;
  const AgentHookPaths paths = dependencies.paths(home);
  (void)dependencies.send(*bytes, paths.socketPath, sendTimeoutSeconds);
  return 0;
}

}  // namespace

std::optional<Invocation> parse(const std::vector<std::string>& arguments) {
  if (arguments.empty()) return std::nullopt;
  std::optional<AgentKind> provider;
  std::optional<int64_t> protocolVersion;
  Invocation invocation;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& argument = arguments[i];
    if (argument == "--test") {
      invocation.isConnectionTest = true;
      continue;
    }
    if (argument != "--provider" && argument != "--protocol" && argument != "--hint") return std::nullopt;
    if (i + 1 >= arguments.size()) return std::nullopt;
    const std::string& value = arguments[++i];
    if (argument == "--provider") {
      provider = agentKindFromRaw(value);
      if (!provider) return std::nullopt;
    } else if (argument == "--protocol") {
      protocolVersion = decimalInteger(value);
      if (!protocolVersion) return std::nullopt;
    } else {
      invocation.notificationHint = value;
    }
  }
  if (!provider || !protocolVersion) return std::nullopt;
  invocation.provider = *provider;
  invocation.protocolVersion = *protocolVersion;
  return invocation;
}

int32_t run(const std::vector<std::string>& arguments, const Dependencies& dependencies) {
  try {
    return relay(arguments, dependencies);
  } catch (const std::exception&) {
    return 0;  // out of memory, say: the provider still sees a quiet success
  }
}

int32_t run(const std::vector<std::string>& arguments) { return run(arguments, Dependencies::live()); }

std::string readBounded(const ReadOperation& read) {
  constexpr size_t limit = maxInputBytes + 1;
  std::string buffer(std::min<size_t>(16 * 1024, limit), '\0');
  size_t held = 0;
  while (held < limit) {
    if (held == buffer.size()) buffer.resize(std::min(buffer.size() * 2, limit));
    const long count = read(buffer.data() + held, buffer.size() - held);
    if (count <= 0) break;
    held += static_cast<size_t>(count);
  }
  buffer.resize(held);
  return buffer;
}

}  // namespace tidewatch::AgentHookRelay
