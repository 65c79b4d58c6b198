#include "hooks/agent_hook_protocol.h"

#include <array>
#include <limits>

#include <nlohmann/json.hpp>

#include "process_core/pretty_json.h"

namespace tidewatch::AgentHookProtocol {
namespace {

using json = nlohmann::json;

// Walks a provider's document without building it: only the strings of the four allow-listed
// top-level keys are copied out, every other value goes by unseen. As in a parsed document, the
// last of repeated keys counts, so a wrong type fails only when it is the value that stands.
class ProviderFieldsReader final : public nlohmann::json_sax<json> {
 public:
  AllowlistedProviderFields fields;

  bool finished() const { return !wrongType_[0] && !wrongType_[1] && !wrongType_[2] && !wrongType_[3]; }

  bool null() override {
    if (depth_ == 0) return false;
    settle(nullptr);
    return true;
  }
  bool boolean(bool) override { return takeOther(); }
  bool number_integer(number_integer_t) override { return takeOther(); }
  bool number_unsigned(number_unsigned_t) override { return takeOther(); }
  bool number_float(number_float_t, const string_t&) override { return takeOther(); }
  bool binary(binary_t&) override { return takeOther(); }

  bool string(string_t& value) override {
    if (depth_ == 0) return false;  // the document must be an object
    settle(&value);
    return true;
  }

  bool start_object(std::size_t) override { return open(); }
  bool start_array(std::size_t) override {
    if (depth_ == 0) return false;
    return open();
  }
  bool end_object() override { return close(); }
  bool end_array() override { return close(); }

  bool key(string_t& name) override {
    pending_ = none;
    if (depth_ != 1) return true;
    for (size_t i = 0; i < keys.size(); ++i) {
      if (name == keys[i]) pending_ = i;
    }
    return true;
  }

  bool parse_error(std::size_t, const std::string&, const nlohmann::detail::exception&) override {
    return false;
  }

 private:
  static constexpr size_t none = 4;
  static constexpr std::array<std::string_view, 4> keys{"session_id", "cwd", "hook_event_name", "notification_type"};

  std::optional<std::string>& field(size_t index) {
    switch (index) {
      case 0: return fields.session_id;
      case 1: return fields.cwd;
      case 2: return fields.hook_event_name;
      default: return fields.notification_type;
    }
  }

  // The value of the pending key: a string, null (absent), or anything else (a wrong type).
  void settle(string_t* text, bool wrongType = false) {
    if (pending_ == none) return;
    if (text != nullptr) field(pending_) = std::move(*text);
    else field(pending_).reset();
    wrongType_[pending_] = wrongType;
    pending_ = none;
  }
  bool takeOther() {
    if (depth_ == 0) return false;
    settle(nullptr, true);
    return true;
  }
  bool open() {
    settle(nullptr, true);  // a container where a string belongs
    ++depth_;
    return true;
  }
  bool close() {
    --depth_;
    return true;
  }

  size_t pending_ = none;
  std::array<bool, 4> wrongType_{};
  int depth_ = 0;
};

std::optional<int64_t> integerValue(const json& value) {
  if (value.is_number_unsigned()) {
    const auto unsignedValue = value.get<json::number_unsigned_t>();
    if (unsignedValue > static_cast<json::number_unsigned_t>(std::numeric_limits<int64_t>::max())) {
      return std::nullopt;
    }
    return static_cast<int64_t>(unsignedValue);
  }
  if (value.is_number_integer()) return value.get<json::number_integer_t>();
  return std::nullopt;
}

const json* member(const json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

}  // namespace

std::string_view rawValue(EventKind kind) {
  switch (kind) {
    case EventKind::sessionStart: return "sessionStart";
    case EventKind::promptSubmitted: return "promptSubmitted";
    case EventKind::permissionRequested: return "permissionRequested";
    case EventKind::needsInputNotification: return "needsInputNotification";
    case EventKind::idleNotification: return "idleNotification";
    case EventKind::turnEnded: return "turnEnded";
    case EventKind::turnFailed: return "turnFailed";
    case EventKind::sessionEnded: return "sessionEnded";
    case EventKind::connectionTest: return "connectionTest";
  }
  return {};
}

std::optional<EventKind> eventKindFromRaw(std::string_view raw) {
  for (EventKind kind : allEventKinds) {
    if (rawValue(kind) == raw) return kind;
  }
  return std::nullopt;
}

std::optional<std::string> encode(const Envelope& envelope) {
  json object = {
      {"v", envelope.protocolVersion},
      {"provider", rawValue(envelope.provider)},
      {"event", rawValue(envelope.event)},
      {"sessionID", envelope.sessionID},
      {"parentPID", envelope.parentPID},
  };
  if (envelope.projectName) object["projectName"] = *envelope.projectName;
  std::string bytes;
  try {
    bytes = object.dump(-1, ' ', false, json::error_handler_t::strict);
  } catch (const json::exception&) {
    return std::nullopt;  // a string that is not UTF-8
  }
  if (bytes.size() > maxEnvelopeBytes) return std::nullopt;
  return bytes;
}

std::optional<Envelope> decodeEnvelope(std::string_view bytes) {
  if (bytes.size() > maxEnvelopeBytes) return std::nullopt;
  const json document = parseJSON(bytes);
  if (!document.is_object()) return std::nullopt;

  const json* version = member(document, "v");
  const json* provider = member(document, "provider");
  const json* event = member(document, "event");
  const json* sessionID = member(document, "sessionID");
  const json* parentPID = member(document, "parentPID");
  const json* projectName = member(document, "projectName");
  if (version == nullptr || provider == nullptr || event == nullptr || sessionID == nullptr ||
      parentPID == nullptr) {
    return std::nullopt;
  }
  if (!provider->is_string() || !event->is_string() || !sessionID->is_string()) return std::nullopt;
  if (projectName != nullptr && !projectName->is_string() && !projectName->is_null()) return std::nullopt;

  const auto versionValue = integerValue(*version);
  const auto pidValue = integerValue(*parentPID);
  if (!versionValue || !pidValue) return std::nullopt;
  if (*pidValue < std::numeric_limits<int32_t>::min() || *pidValue > std::numeric_limits<int32_t>::max()) {
    return std::nullopt;
  }
  const auto kind = agentKindFromRaw(provider->get_ref<const std::string&>());
  const auto eventKind = eventKindFromRaw(event->get_ref<const std::string&>());
  if (!kind || !eventKind) return std::nullopt;
  if (*versionValue != protocolVersion) return std::nullopt;

  const auto& session = sessionID->get_ref<const std::string&>();
  if (session.empty() || session.size() > maxSessionIDBytes) return std::nullopt;

  Envelope envelope;
  envelope.protocolVersion = *versionValue;
  envelope.provider = *kind;
  envelope.event = *eventKind;
  envelope.sessionID = session;
  if (projectName != nullptr && projectName->is_string()) {
    envelope.projectName = projectName->get<std::string>();
  }
  envelope.parentPID = static_cast<int32_t>(*pidValue);
  return envelope;
}

std::optional<AllowlistedProviderFields> decodeProviderFields(std::string_view bytes) {
  ProviderFieldsReader reader;
  if (!parseJSON(bytes, reader) || !reader.finished()) return std::nullopt;
  return std::move(reader.fields);
}

std::optional<EventKind> mapEvent(const std::optional<std::string>& hookEventName,
                                  const std::optional<std::string>& notificationType) {
  if (!hookEventName) return std::nullopt;
  const std::string& name = *hookEventName;
  if (name == "SessionStart") return EventKind::sessionStart;
  if (name == "UserPromptSubmit") return EventKind::promptSubmitted;
  if (name == "PermissionRequest") return EventKind::permissionRequested;
  if (name == "Stop") return EventKind::turnEnded;
  if (name == "StopFailure") return EventKind::turnFailed;
  if (name == "SessionEnd") return EventKind::sessionEnded;
  if (name == "Notification" && notificationType) {
    const std::string& type = *notificationType;
    if (type == "permission_prompt") return EventKind::permissionRequested;
    if (type == "agent_needs_input") return EventKind::needsInputNotification;
    if (type == "idle_prompt") return EventKind::idleNotification;
  }
  return std::nullopt;
}

}  // namespace tidewatch::AgentHookProtocol
