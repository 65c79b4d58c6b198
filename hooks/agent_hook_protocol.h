// The wire format between the hook relay and the application: one small JSON envelope per
// connection, and the allow-list of what the relay may take from a provider's hook input.
// A provider's payload (prompts, transcripts, tool input) has no field here and cannot pass.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "process_core/process_records.h"

namespace tidewatch::AgentHookProtocol {

inline constexpr int64_t protocolVersion = 1;
inline constexpr size_t maxEnvelopeBytes = 4096;
inline constexpr size_t maxSessionIDBytes = 256;

enum class EventKind {
  sessionStart,
  promptSubmitted,
  permissionRequested,
  needsInputNotification,
  idleNotification,
  turnEnded,
  turnFailed,
  sessionEnded,
  connectionTest,
};
inline constexpr EventKind allEventKinds[] = {
    EventKind::sessionStart,      EventKind::promptSubmitted, EventKind::permissionRequested,
    EventKind::needsInputNotification, EventKind::idleNotification, EventKind::turnEnded,
    EventKind::turnFailed,        EventKind::sessionEnded,    EventKind::connectionTest};

// The raw value is the case name.
std::string_view rawValue(EventKind kind);
std::optional<EventKind> eventKindFromRaw(std::string_view raw);

// JSON keys: "v", "provider", "event", "sessionID", "projectName" (left out when absent),
// "parentPID".
struct Envelope {
  int64_t protocolVersion = AgentHookProtocol::protocolVersion;
  AgentKind provider = AgentKind::claude;
  EventKind event = EventKind::sessionStart;
  std::string sessionID;
  std::optional<std::string> projectName;
  int32_t parentPID = 0;

  friend bool operator==(const Envelope&, const Envelope&) = default;
};

// The only keys read from a provider's hook input; every other key is skipped unseen.
struct AllowlistedProviderFields {
  std::optional<std::string> session_id;
  std::optional<std::string> cwd;
  std::optional<std::string> hook_event_name;
  std::optional<std::string> notification_type;

  friend bool operator==(const AllowlistedProviderFields&, const AllowlistedProviderFields&) = default;
};

// The JSON bytes of the envelope; none when it cannot be encoded (a string that is not UTF-8)
// or comes to more than maxEnvelopeBytes.
std::optional<std::string> encode(const Envelope& envelope);

// None for anything that is not a valid envelope of this version within the limits; keys beyond
// the six are ignored. parentPID must fit a signed 32-bit integer but is not judged otherwise.
std::optional<Envelope> decodeEnvelope(std::string_view bytes);

// Reads the four allow-listed keys of a top-level JSON object. The document as a whole must be
// valid JSON; one of the four holding anything but a string (or null, read as absent) fails it.
// Of a key given twice the last counts, as in a parsed document.
// Other values are walked by the parser and dropped, never kept.
std::optional<AllowlistedProviderFields> decodeProviderFields(std::string_view bytes);

// The program's event for a provider's hook event name and notification type.
std::optional<EventKind> mapEvent(const std::optional<std::string>& hookEventName,
                                  const std::optional<std::string>& notificationType);

}  // namespace tidewatch::AgentHookProtocol
